/* SPDX-License-Identifier: MIT */
/* Runs a list of edits that the input codes, and compares four variables with strings and a builder
 * with a model after each. The input also says which allocations fail. */
#include <veklib/veklib.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace {

void require(bool condition)
{
    if (!condition) {
        abort();
    }
}

/* ---- The allocator ---- */

size_t live;      /* blocks */
unsigned fail_in; /* allocations until the next failure; 0: no failure */
bool fail_onward; /* all later ones fail, too */
bool refused;     /* whether an allocation failed in this operation */

bool refuse()
{
    if (fail_in == 0 || --fail_in != 0) {
        return false;
    }
    fail_in = fail_onward;
    return refused = true;
}

void *allocate(size_t size, void *)
{
    void *const block = refuse() ? nullptr : malloc(size);
    live += block != nullptr;
    return block;
}

void *allocate_zeros(size_t count, size_t size, void *)
{
    void *const block = refuse() ? nullptr : calloc(count, size);
    live += block != nullptr;
    return block;
}

void *resize(void *block, size_t size, void *)
{
    void *const resized = refuse() ? nullptr : realloc(block, size);
    live += block == nullptr && resized != nullptr;
    return resized;
}

void release(void *block, void *)
{
    --live;
    free(block);
}

constexpr VekMemoryVtable table = {allocate, allocate_zeros, resize,  release, nullptr, allocate,
                                   allocate, nullptr,        nullptr, nullptr, nullptr};

/* Whether something was written to the standard error stream since the last call. */
bool warned()
{
    const bool result = ftell(stderr) != 0;
    rewind(stderr);
    return result;
}

/* ---- The model ---- */

/* A string; the variables that share it, share this record. */
struct Model {
    std::string text;
    bool is_persistent = false;
};

struct Text {
    const char *text; /* null, a text of its own, or part of one that an operation changes */
    std::string model;
};

struct State {
    const unsigned char *input;
    size_t left;
    std::array<VekStr *, 4> strings{};
    std::array<std::shared_ptr<Model>, 4> models{};
    VekStrBuilder builder = VEK_STR_BUILDER_INIT;
    std::string built{};
    bool build_failed = false;
    std::string literal{};

    unsigned byte() { return left != 0 ? --left, *input++ : 0; }

    /* A text for an operation. Short ones, if those that there are have become long. */
    Text text()
    {
        const unsigned code = byte();
        const size_t which = code / 4 % 4;
        const char *own = nullptr;
        if (code % 4 == 1) {
            own = vek_str_to_c_str(strings[which]);
        } else if (code % 4 == 2) {
            own = vek_str_builder_get_text(&builder);
        } else if (code % 4 == 3 && code < 16) {
            return {nullptr, ""};
        }
        if (own != nullptr && strlen(own) < 2048) {
            own += byte() % (strlen(own) + 1);
            return {own, own};
        }
        literal.assign(reinterpret_cast<const char *>(input), std::min<size_t>(code / 4, left));
        left -= literal.size();
        input += literal.size();
        literal.resize(strlen(literal.c_str()));
        return {literal.c_str(), literal};
    }

    /* Forgets the string that variable `i` held. Its reference is released already, or now. */
    void leave(size_t i, VekStr *string, bool is_released)
    {
        const std::shared_ptr<Model> model = std::move(models[i]);
        if (!is_released) {
            require(vek_str_unref(string) == nullptr);
        }
        if (model != nullptr && model->is_persistent && model.use_count() == 1) {
            require(vek_str_to_c_str(string) == model->text);
            vek_str_force_destroy(string);
        }
    }

    /* Puts a string in place of what variable `i` holds. */
    void put(size_t i, VekStr *string, std::shared_ptr<Model> model)
    {
        leave(i, strings[i], false);
        strings[i] = string;
        models[i] = std::move(model);
    }

    /* Puts a new string into variable `i`, if there was memory for it and nothing else failed. */
    void put_new(size_t i, VekStr *string, const std::string &text, bool is_valid = true)
    {
        require((string != nullptr) == (is_valid && !refused));
        put(i, string, string != nullptr ? std::make_shared<Model>(Model{text}) : nullptr);
    }

    /* Follows an edit of variable `i`, which replaced the string `old`, or failed. */
    void replaced(size_t i, VekStr *old, int done, const std::string &text, bool is_valid)
    {
        require(done == (is_valid && !refused));
        require(done == 1 || strings[i] == old);
        if (done == 1) {
            leave(i, old, true);
            models[i] = std::make_shared<Model>(Model{text});
        }
    }

    /* Follows an append to the builder, which may succeed with less memory than it asked for. */
    void appended(int done, const std::string &text, bool is_valid = true)
    {
        require(done == 1 ? is_valid && !build_failed : !is_valid || build_failed || refused);
        build_failed = done == 0;
        built += done == 1 ? text : "";
    }

    void check() const
    {
        size_t blocks = builder.str != nullptr;
        for (size_t i = 0; i < strings.size(); ++i) {
            require((strings[i] != nullptr) == (models[i] != nullptr));
            bool is_first = strings[i] != nullptr;
            for (size_t j = 0; j < i; ++j) {
                require((strings[i] == strings[j]) == (models[i] == models[j]));
                is_first = is_first && strings[i] != strings[j];
            }
            blocks += is_first;
            if (is_first) {
                require(vek_str_to_c_str(strings[i]) == models[i]->text);
                require(vek_strlen(strings[i]) == models[i]->text.size());
                require(_vek_str_get_ref_count(strings[i]) ==
                        (models[i]->is_persistent ? 0 : models[i].use_count()));
            }
        }
        require(live == blocks);
        require(vek_str_builder_get_text(&builder) == built);
        require(vek_str_builder_get_length(&builder) == built.size());
        require(vek_str_builder_failed(&builder) == build_failed);
    }
};

int sign(int number)
{
    return (number > 0) - (number < 0);
}

std::string changed(std::string text, int (*change)(int), bool at_words)
{
    bool starts = true;
    for (char &c : text) {
        c = !at_words || starts ? static_cast<char>(change(static_cast<unsigned char>(c))) : c;
        starts = strchr(" \t\n\v\f\r", c) != nullptr;
    }
    return text;
}

/* A text to format, and what becomes of it. */
struct Formatted {
    const char *format;
    Text text;
    int number;
    int length; /* negative if the number is not a character */
    std::string result;

    explicit Formatted(State &state)
    {
        static const char *const formats[] = {"%s", "%s%c", "[%.3s]%d", "%s%200d", "%s%lc"};
        format = formats[state.byte() % std::size(formats)];
        number = static_cast<int>(state.byte());
        text = state.text();
        text.text = text.text != nullptr ? text.text : "";
        char buffer[4096];
        length = snprintf(buffer, sizeof buffer, format, text.text, number);
        result = length >= 0 ? buffer : "";
    }

    template <typename... Target>
    auto with(auto function, Target... target) const
    {
        return function(target..., format, text.text, number);
    }
};

/* Turns a function that takes an argument list into one that takes arguments. */
template <auto function>
auto listed(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const auto result = function(format, args);
    va_end(args);
    return result;
}

template <auto function>
int listed_to(auto *target, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int result = function(target, format, args);
    va_end(args);
    return result;
}

/* Checks a copy, and releases it. */
void copied(char *copy, const std::string &expected, bool is_valid)
{
    require((copy != nullptr) == (is_valid && !refused));
    require(copy == nullptr || copy == expected);
    vek_free(copy);
}

/* ---- The operations ---- */

/* Expects a warning, or none, from the calls before. */
void expect_warning(bool expected)
{
    require(warned() == expected);
}

using Operation = void (*)(State &, size_t i);

const Operation operations[] = {
    [](State &s, size_t) { // the next allocations fail
        const unsigned code = s.byte();
        fail_in = code % 8;
        fail_onward = code >= 128;
    },
    [](State &s, size_t i) {
        const Text text = s.text();
        s.put_new(i, vek_str_create(text.text), text.model, text.text != nullptr);
    },
    [](State &s, size_t i) {
        const int length = static_cast<int>(s.byte()) - 8;
        const Text text = s.text();
        VekStr *const string = vek_str_ncreate(text.text, length);
        const bool is_valid = length == 0 || (length > 0 && text.text != nullptr);
        expect_warning(!is_valid);
        const std::string model = text.model.substr(0, static_cast<size_t>(std::max(length, 0)));
        for (int at = static_cast<int>(model.size()); string != nullptr && at <= length; ++at) {
            require(vek_str_to_c_str(string)[at] == '\0');
        }
        s.put_new(i, string, model, is_valid);
    },
    [](State &s, size_t i) {
        const Formatted text(s);
        VekStr *const string = s.byte() % 2 == 0 ? text.with(vek_str_create_printf)
                                                 : text.with(listed<vek_str_create_vprintf>);
        s.put_new(i, string, text.result, text.length >= 0);
    },
    [](State &s, size_t i) { // release
        VekStr *const string = s.strings[i];
        const bool is_forced =
            string != nullptr && s.byte() % 2 == 0 && !s.models[i]->is_persistent;
        if (is_forced) {
            vek_str_force_destroy(string);
        }
        s.leave(i, string, is_forced);
        s.strings[i] = nullptr;
    },
    [](State &s, size_t i) {
        const size_t from = s.byte() % 4;
        VekStr *const string = vek_str_ref(s.strings[from]);
        require(string == s.strings[from]);
        s.put(i, string, s.models[from]);
    },
    [](State &s, size_t i) {
        const size_t from = s.byte() % 4;
        VekStr *const old = s.strings[i];
        const std::shared_ptr<Model> model = s.models[from];
        require(vek_str_assign(&s.strings[i], &s.strings[from]) == s.strings[from]);
        s.leave(i, old, true);
        s.models[i] = model;
    },
    [](State &s, size_t i) { // a count at its limit
        VekStr *const string = s.strings[i];
        if (string != nullptr && !s.models[i]->is_persistent) {
            const uint32_t count = string->count;
            string->count = UINT_MAX - 1;
            require(vek_str_ref(string) == nullptr && string->count == UINT_MAX - 1);
            expect_warning(true);
            string->count = count;
        }
    },
    [](State &s, size_t i) {
        vek_str_make_persistent(s.strings[i]);
        expect_warning(s.strings[i] == nullptr);
        if (s.strings[i] != nullptr) {
            s.models[i]->is_persistent = true;
        }
    },
    [](State &s, size_t i) {
        const size_t other = s.byte() % 4;
        const size_t n = s.byte();
        const VekStr *const a = s.strings[i];
        const VekStr *const b = s.strings[other];
        const Model *const left = s.models[i].get();
        const Model *const right = s.models[other].get();
        const bool both = a != nullptr && b != nullptr;
        const int nulls = (a != nullptr) - (b != nullptr);
        const auto compare = [&](size_t count) {
            return both ? left->text.substr(0, count).compare(right->text.substr(0, count)) : nulls;
        };
        require(sign(vek_strcmp(a, b)) == sign(compare(std::string::npos)));
        require(sign(vek_strncmp(a, b, n)) == sign(compare(n)));
        require(vek_str_eq(a, b) == (compare(std::string::npos) == 0));
        const Text text = s.text();
        const bool is_valid = a != nullptr && text.text != nullptr;
        expect_warning(false);
        require(vek_str_eq_c_str(a, text.text) == (is_valid && left->text == text.model));
        expect_warning(!is_valid);
        const bool is_equal = a != nullptr && left->text.substr(0, n) == text.model.substr(0, n);
        require(vek_str_neq_c_str(a, text.text, n) ==
                ((is_valid && is_equal) || (a != nullptr && n == 0)));
        expect_warning(!is_valid && !(a != nullptr && n == 0));
    },
    [](State &s, size_t i) { // change in place
        VekStr *const string = s.strings[i];
        const unsigned way = s.byte() % 4;
        const auto from = static_cast<char>(s.byte());
        const auto to = static_cast<char>(s.byte());
        if (way == 0) {
            vek_str_toupper(string);
        } else if (way == 1) {
            vek_str_tolower(string);
        } else if (way == 2) {
            vek_str_capitalize(string);
        } else {
            vek_str_char_swap(string, from, to);
        }
        expect_warning(string == nullptr && way != 3);
        if (string == nullptr) {
            return;
        }
        std::string &text = s.models[i]->text;
        if (way != 3) {
            text = changed(text, way == 1 ? tolower : toupper, way == 2);
        } else {
            std::replace(text.begin(), text.end(), from, to);
            text.resize(strlen(text.c_str()));
        }
    },
    [](State &s, size_t i) {
        const unsigned way = s.byte() % 5;
        const size_t n = s.byte();
        const char c = static_cast<char>(n);
        const Text text = s.text();
        VekStr *const old = s.strings[i];
        VekStr **const variable = &s.strings[i];
        const std::string before = old != nullptr ? s.models[i]->text : "";
        const std::string one = c != '\0' ? std::string(1, c) : "";
        const bool is_valid =
            old != nullptr && (text.text != nullptr || way > 2 || (way == 2 && n == 0));
        if (way == 0) {
            s.replaced(i, old, vek_str_append_c_str(variable, text.text), before + text.model,
                       is_valid);
        } else if (way == 1) {
            s.replaced(i, old, vek_str_prepend_c_str(variable, text.text), text.model + before,
                       is_valid);
        } else if (way == 2) {
            s.replaced(i, old, vek_str_append_n(variable, text.text, n),
                       before + text.model.substr(0, n), is_valid);
        } else if (way == 3) {
            s.replaced(i, old, vek_str_append_char(variable, c), before + one, is_valid);
        } else {
            s.replaced(i, old, vek_str_prepend_char(variable, c), c != '\0' ? one + before : "",
                       is_valid);
        }
        expect_warning(!is_valid);
    },
    [](State &s, size_t i) {
        const size_t from = s.byte() % 4;
        const bool is_valid = s.strings[i] != nullptr && s.strings[from] != nullptr;
        if (is_valid && s.models[i]->text.size() + s.models[from]->text.size() > 2048) {
            return;
        }
        VekStr *const old = s.strings[i];
        const int done = vek_str_append_vek_str(&s.strings[i], s.strings[from]);
        expect_warning(!is_valid);
        s.replaced(i, old, done, is_valid ? s.models[i]->text + s.models[from]->text : "",
                   is_valid);
    },
    [](State &s, size_t i) {
        const Formatted text(s);
        VekStr *const old = s.strings[i];
        const int done = text.with(vek_str_append_printf, &s.strings[i]);
        expect_warning(old == nullptr);
        s.replaced(i, old, done, old != nullptr ? s.models[i]->text + text.result : "",
                   old != nullptr && text.length >= 0);
    },
    [](State &s, size_t) {
        const size_t n = s.byte();
        const Text text = s.text();
        if (n < 250) {
            const int done = vek_str_builder_append_n(&s.builder, text.text, n);
            s.appended(done, text.model.substr(0, n), n == 0 || text.text != nullptr);
            expect_warning(n != 0 && text.text == nullptr);
        } else {
            const int done = vek_str_builder_append(&s.builder, text.text);
            s.appended(done, text.model, text.text != nullptr);
            expect_warning(text.text == nullptr);
        }
    },
    [](State &s, size_t) {
        const char c[] = {static_cast<char>(s.byte()), '\0'};
        s.appended(vek_str_builder_append_char(&s.builder, c[0]), c);
    },
    [](State &s, size_t) {
        const Formatted text(s);
        const int done = text.with(vek_str_builder_append_printf, &s.builder);
        s.appended(done, text.result, text.length >= 0);
    },
    [](State &s, size_t i) { // hand over or release
        const std::string text = std::exchange(s.built, "");
        const bool is_valid = !std::exchange(s.build_failed, false);
        const bool was_empty = s.builder.str == nullptr;
        const unsigned way = s.byte() % 3;
        VekStr *string = nullptr;
        char *plain = nullptr;
        if (way == 0) {
            vek_str_builder_release(&s.builder);
            return;
        }
        if (way == 1) {
            plain = vek_str_builder_steal_string(&s.builder);
        } else {
            string = vek_str_builder_steal_vekstr(&s.builder);
        }
        refused = refused && was_empty; // a block that cannot be shrunk is handed over as it is
        if (way == 1) {
            copied(plain, text, is_valid);
        } else {
            s.put_new(i, string, text, is_valid);
        }
    },
    [](State &s, size_t) {
        const unsigned way = s.byte() % 3;
        const size_t n = s.byte();
        const Text text = s.text();
        const bool is_valid = text.text != nullptr || (way != 0 && n == 0);
        if (way == 0) {
            copied(vek_strdup(text.text), text.model, is_valid);
        } else if (way == 1) {
            copied(vek_strndup(text.text, n), text.model.substr(0, n), is_valid && n != 0);
        } else {
            const size_t size = std::min(n, text.model.size());
            void *const copy = vek_memdup(text.text, size);
            require((copy != nullptr) == (size != 0 && !refused));
            require(copy == nullptr || memcmp(copy, text.model.data(), size) == 0);
            vek_free(copy);
        }
        expect_warning(!is_valid && way != 2);
    },
    [](State &s, size_t) {
        const Formatted text(s);
        copied(s.byte() % 2 == 0 ? text.with(vek_strdup_printf)
                                 : text.with(listed<vek_strdup_vprintf>),
               text.result, text.length > 0);
    },
    [](State &s, size_t) {
        const size_t size = s.byte();
        const Text text = s.text();
        const std::unique_ptr<char[]> buffer(size != 0 ? new char[size] : nullptr);
        require(vek_strlcpy(buffer.get(), text.text, size) == text.model.size());
        require(text.text == nullptr || size == 0 ||
                buffer.get() == text.model.substr(0, size - 1));
        expect_warning(text.text == nullptr);
    },
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size)
{
    static char written[4096];
    static FILE *const errors = fmemopen(written, sizeof written, "w");
    stderr = errors;
    vek_set_memory_vtable(&table);
    fail_in = 0;
    State state = {data, size};
    while (state.left != 0) {
        const unsigned code = state.byte();
        refused = false;
        operations[code % std::size(operations)](state, code / std::size(operations) % 4);
        state.check();
        expect_warning(false);
    }
    fail_in = 0;
    vek_str_builder_release(&state.builder);
    for (size_t i = 0; i < state.strings.size(); ++i) {
        state.put(i, nullptr, nullptr);
    }
    require(live == 0);
    return 0;
}
