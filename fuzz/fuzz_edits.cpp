/* SPDX-License-Identifier: MIT */
/* Runs a list of operations that the input codes, on four variables with strings and a builder, and
 * compares them with a model after each. Some operations let allocations of later ones fail. */
#include <veklib/veklib.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace {

void require(bool condition)
{
    if (!condition) { abort(); }
}

size_t live;      // blocks
unsigned fail_in; // number of the allocation to fail; 0: none
bool fail_onward; // all later ones fail, too
bool refused;     // whether an allocation failed in this operation

/* Serves all requests of the table but zero-filled blocks, which texts do not need. */
void *resize(void *block, size_t size, void *)
{
    if (fail_in != 0 && --fail_in == 0) {
        fail_in = fail_onward;
        refused = true;
        return nullptr;
    }
    live += block == nullptr;
    return realloc(block, size);
}

void *allocate(size_t size, void *) { return resize(nullptr, size, nullptr); }

void release(void *block, void *)
{
    --live;
    free(block);
}

struct Run {
    const unsigned char *input;
    size_t left;
    VekStr *strings[4] = {};
    std::shared_ptr<std::string> models[4] = {}; // shared as the strings are
    VekStrBuilder builder = VEK_STR_BUILDER_INIT;
    std::string built = {};
    bool failed = false;

    /* Of the operation */
    size_t i = 0;            // the variable that it changes
    size_t other = 0;        // another variable, or the same
    VekStr *old = nullptr;   // what the variable held
    std::string before = {}; // its text
    VekStr **variable = nullptr;
    size_t n = 0;
    char c[2] = {};             // the same as a text
    int number = 0;             // the same
    const char *text = nullptr; // null, new, or part of a text of a variable or of the builder
    std::string model = {};     // the same
    std::string part = {};      // its first `n` characters
    bool is_null = false;
    const char *format = nullptr;
    const char *words = nullptr; // the text, empty for null
    int length = 0;              // of `words` and `number` in this format
    std::string result = {};
    bool converts = false; // whether it does
    std::string literal = {};
    bool warns = false;

    int byte() { return left != 0 ? --left, *input++ : 0; }

    void read_text()
    {
        const auto code = static_cast<unsigned>(byte());
        const char *const texts[] = {"", vek_str_to_c_str(strings[code / 4 % 4]),
                                     vek_str_builder_get_text(&builder), nullptr};
        text = texts[code % 4];
        const size_t size = text != nullptr ? strlen(text) : 0;
        if (text != nullptr && code % 4 != 0 && size < 2048) {
            text += static_cast<size_t>(byte()) % (size + 1);
        } else if (code != 3) {
            literal.assign(reinterpret_cast<const char *>(input), std::min<size_t>(code / 4, left));
            left -= literal.size();
            input += literal.size();
            text = literal.c_str();
        }
        words = text != nullptr ? text : "";
        model = words;
    }

    void read()
    {
        static const char *const formats[] = {"%s", "%s%c", "[%.3s]%d", "%s%200d", "%s%lc"};
        i = static_cast<size_t>(byte()) % 16;
        other = i / 4;
        i %= 4;
        old = strings[i];
        before = old != nullptr ? *models[i] : "";
        variable = &strings[i];
        number = byte();
        n = static_cast<size_t>(number);
        c[0] = static_cast<char>(number);
        read_text();
        part = model.substr(0, n);
        is_null = text == nullptr;
        char buffer[4096];
        format = formats[n % std::size(formats)];
        length = snprintf(buffer, sizeof buffer, format, words, number);
        converts = length >= 0;
        result = converts ? buffer : "";
        warns = false;
        refused = false;
    }

    /* Takes a new string into the variable. */
    void made(VekStr *string, const std::string &expected, bool is_possible = true)
    {
        require((string != nullptr) == (is_possible && !refused));
        vek_str_unref(old);
        strings[i] = string;
        models[i] = string != nullptr ? std::make_shared<std::string>(expected) : nullptr;
    }

    /* Follows an edit of the variable, which warns about a null argument. */
    void edited(int done, const std::string &expected, bool is_refused = false,
                bool is_possible = true)
    {
        warns = is_refused || old == nullptr;
        require(done == (!warns && is_possible && !refused));
        require(done == 1 || strings[i] == old);
        models[i] = done == 1 ? std::make_shared<std::string>(expected) : models[i];
    }

    /* Follows an append to the builder, which may do with less memory than it asks for first. */
    void appended(int done, const std::string &expected, bool is_refused = false,
                  bool is_possible = true)
    {
        warns = is_refused;
        const bool fails = is_refused || !is_possible || failed;
        require(done == 1 ? !fails : fails || refused);
        failed = done == 0;
        built += done == 1 ? expected : "";
    }

    /* Checks a copy that is not kept. */
    void copied(char *copy, const std::string &expected, bool is_possible = true) const
    {
        require((copy != nullptr) == (is_possible && !refused));
        require(copy == nullptr || copy == expected);
        vek_free(copy);
    }

    /* Changes the variable's string in place, and its model character by character. */
    template <typename Change>
    void change(void (*in_place)(VekStr *), Change change)
    {
        in_place(old);
        warns = old == nullptr;
        bool is_first = true; // of a word
        for (char &letter : before) {
            letter = static_cast<char>(change(static_cast<unsigned char>(letter), is_first));
            is_first = isspace(static_cast<unsigned char>(letter));
        }
        if (old != nullptr) { *models[i] = before.c_str(); }
    }

    /* Follows the end of what was built. Returns its text. */
    std::string emptied()
    {
        failed = false;
        return std::exchange(built, "");
    }

    void check() const
    {
        size_t blocks = builder.str != nullptr;
        for (size_t at = 0; at < std::size(strings); ++at) {
            const VekStr *const string = strings[at];
            require((string != nullptr) == (models[at] != nullptr));
            if (string != nullptr) {
                require(vek_str_to_c_str(string) == *models[at]);
                require(vek_strlen(string) == models[at]->size());
                require(_vek_str_get_ref_count(string) == models[at].use_count());
                blocks += std::find(strings, strings + at, string) == strings + at;
            }
        }
        require(live == blocks);
        require(vek_str_builder_get_text(&builder) == built);
        require(vek_str_builder_get_length(&builder) == built.size());
        require(vek_str_builder_failed(&builder) == failed);
    }
};

int sign(int number) { return (number > 0) - (number < 0); }

template <auto function>
auto listed(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const auto result = function(format, args);
    va_end(args);
    return result;
}

void compare(Run &r)
{
    const VekStr *const a = r.old;
    const VekStr *const b = r.strings[r.other];
    const std::string text = b != nullptr ? *r.models[r.other] : "";
    const size_t n = r.n % 16;
    const bool both = a != nullptr && b != nullptr;
    const int nulls = (a != nullptr) - (b != nullptr);
    const int whole = both ? r.before.compare(text) : nulls;
    const int part = both ? r.before.substr(0, n).compare(text.substr(0, n)) : nulls;
    require(sign(vek_strcmp(a, b)) == sign(whole) && vek_str_eq(a, b) == (whole == 0));
    require(sign(vek_strncmp(a, b, n)) == sign(part));
    r.warns = a == nullptr || r.text == nullptr;
    require(vek_str_eq_c_str(a, r.text) == (!r.warns && r.before == r.model));
    require(vek_str_neq_c_str(a, r.text, n) == (a != nullptr && (n == 0 || r.text != nullptr) &&
                                                r.before.substr(0, n) == r.model.substr(0, n)));
}

/* Lets a count reach its limit, then edits the string while it is persistent. */
void count_references(Run &r)
{
    r.warns = true;
    if (r.old == nullptr) {
        vek_str_make_persistent(nullptr);
        return;
    }
    const uint32_t count = std::exchange(r.old->count, UINT_MAX - 1);
    require(vek_str_ref(r.old) == nullptr);
    vek_str_make_persistent(r.old);
    require(vek_str_ref(r.old) == r.old && vek_str_unref(r.old) == nullptr);
    const bool is_done = vek_str_append_c_str(&r.strings[r.i], "") == 1;
    require(_vek_str_get_ref_count(r.old) == 0 && r.old->text == r.before);
    require(is_done == !refused);
    vek_str_force_destroy(is_done ? r.strings[r.i] : nullptr);
    r.strings[r.i] = r.old;
    r.old->count = count;
}

void create_part(Run &r)
{
    const int room = r.number - 8;
    std::string padded = r.model;
    padded.resize(static_cast<size_t>(std::max(room, 0)));
    VekStr *const string = vek_str_ncreate(r.text, room);
    require(string == nullptr || memcmp(string->text, padded.c_str(), padded.size() + 1) == 0);
    r.warns = room < 0 || (room > 0 && r.text == nullptr);
    r.made(string, padded.c_str(), !r.warns);
}

void copy_block(Run &r)
{
    const size_t size = std::min(r.n, r.model.size());
    void *const block = vek_memdup(r.text, size);
    require((block != nullptr) == (size != 0 && !refused));
    require(block == nullptr || memcmp(block, r.model.data(), size) == 0);
    vek_free(block);
}

void copy_to_buffer(Run &r)
{
    const std::unique_ptr<char[]> buffer(r.n != 0 ? new char[r.n] : nullptr);
    require(vek_strlcpy(buffer.get(), r.text, r.n) == r.model.size());
    r.warns = r.is_null;
    require(r.is_null || r.n == 0 || buffer.get() == r.model.substr(0, r.n - 1));
}

void swap_characters(Run &r)
{
    vek_str_char_swap(r.old, r.c[0], *r.words);
    std::replace(r.before.begin(), r.before.end(), r.c[0], *r.words);
    r.change([](VekStr *) {}, [](int c, bool) { return c; });
    r.warns = false;
}

void append_string(Run &r)
{
    const VekStr *const tail = r.before.size() < 2048 ? r.strings[r.other] : nullptr;
    const std::string text = tail != nullptr ? tail->text : "";
    r.edited(vek_str_append_vek_str(r.variable, tail), r.before + text, tail == nullptr);
}

void assign(Run &r)
{
    require(vek_str_assign(r.variable, &r.strings[r.other]) == r.strings[r.other]);
    r.models[r.i] = r.models[r.other];
}

/* A block that cannot shrink is handed over all the same. Null can only be for want of an empty
 * one, or because an append has failed. */
template <auto steal>
void take_built(Run &r)
{
    const bool can = !r.failed;
    const bool is_empty = r.builder.str == nullptr;
    const auto text = steal(&r.builder);
    refused = refused && is_empty;
    if constexpr (std::is_same_v<decltype(text), VekStr *const>) {
        r.made(text, r.emptied(), can);
    } else {
        r.copied(text, r.emptied(), can);
    }
}

using Operation = void (*)(Run &);
const Operation operations[] = {
    [](Run &r) { fail_in = r.n % 8, fail_onward = r.n >= 128; },
    // Strings
    [](Run &r) { r.made(vek_str_create(r.text), r.model, !r.is_null); },
    create_part,
    [](Run &r) {
        r.made(vek_str_create_printf(r.format, r.words, r.number), r.result, r.converts);
    },
    [](Run &r) {
        r.made(listed<vek_str_create_vprintf>(r.format, r.words, r.number), r.result, r.converts);
    },
    [](Run &r) { vek_str_force_destroy(r.old), *r.variable = nullptr, r.models[r.i] = nullptr; },
    assign,
    count_references,
    compare,
    [](Run &r) { r.change(vek_str_toupper, [](int c, bool) { return toupper(c); }); },
    [](Run &r) { r.change(vek_str_tolower, [](int c, bool) { return tolower(c); }); },
    [](Run &r) {
        r.change(vek_str_capitalize,
                 [](int c, bool is_first) { return is_first ? toupper(c) : c; });
    },
    swap_characters,
    [](Run &r) {
        r.edited(vek_str_append_c_str(r.variable, r.text), r.before + r.model, r.is_null);
    },
    [](Run &r) {
        r.edited(vek_str_prepend_c_str(r.variable, r.text), r.model + r.before, r.is_null);
    },
    [](Run &r) {
        r.edited(vek_str_append_n(r.variable, r.text, r.n), r.before + r.part,
                 r.is_null && r.n != 0);
    },
    [](Run &r) { r.edited(vek_str_append_char(r.variable, *r.c), r.before + r.c); },
    [](Run &r) { r.edited(vek_str_prepend_char(r.variable, *r.c), *r.c ? r.c + r.before : ""); },
    append_string,
    [](Run &r) {
        r.edited(vek_str_append_printf(r.variable, r.format, r.words, r.number),
                 r.before + r.result, false, r.converts);
    },
    // Builder
    [](Run &r) { r.appended(vek_str_builder_append(&r.builder, r.text), r.model, r.is_null); },
    [](Run &r) {
        r.appended(vek_str_builder_append_n(&r.builder, r.text, r.n), r.part,
                   r.is_null && r.n != 0);
    },
    [](Run &r) { r.appended(vek_str_builder_append_char(&r.builder, *r.c), r.c); },
    [](Run &r) {
        r.appended(vek_str_builder_append_printf(&r.builder, r.format, r.words, r.number), r.result,
                   false, r.converts);
    },
    [](Run &r) { vek_str_builder_release(&r.builder), r.emptied(); },
    take_built<vek_str_builder_steal_string>,
    take_built<vek_str_builder_steal_vekstr>,
    // Plain texts
    [](Run &r) { r.warns = r.is_null, r.copied(vek_strdup(r.text), r.model, !r.is_null); },
    [](Run &r) {
        r.warns = r.is_null && r.n != 0;
        r.copied(vek_strndup(r.text, r.n), r.part, !r.is_null && r.n != 0);
    },
    copy_block,
    [](Run &r) {
        const bool can = r.converts && r.length > 0;
        r.copied(vek_strdup_printf(r.format, r.words, r.number), r.result, can);
        refused = false;
        r.copied(listed<vek_strdup_vprintf>(r.format, r.words, r.number), r.result, can);
    },
    copy_to_buffer,
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size)
{
    static char warnings[4096];
    static FILE *const errors = fmemopen(warnings, sizeof warnings, "w");
    static constexpr VekMemoryVtable table = {allocate, nullptr,  resize,   release,
                                              nullptr,  allocate, allocate, nullptr,
                                              nullptr,  nullptr,  nullptr};
    stderr = errors;
    vek_set_memory_vtable(&table);
    fail_in = 0;
    Run run = {data, size};
    for (int count = 0; count < 64 && run.left != 0; ++count) {
        const auto code = static_cast<size_t>(run.byte()) % std::size(operations);
        run.read();
        operations[code](run);
        require((ftell(errors) != 0) == run.warns);
        rewind(errors);
        run.check();
    }
    fail_in = 0;
    vek_str_builder_release(&run.builder);
    std::for_each(run.strings, std::end(run.strings), vek_str_unref);
    require(live == 0);
    return 0;
}
