/* SPDX-License-Identifier: MIT */
/* Runs a list of operations that the input codes, on four variables with strings and a builder, and
 * compares them with a model after each. One operation lets allocations of later ones fail. */
#include <veklib/veklib.h>

#include "support.h"

#include <cctype>
#include <climits>
#include <iterator>
#include <map>
#include <memory>
#include <set>

using namespace fuzz;

namespace {

Stream errors;

/* ---- The variables, the builder, and their models ---- */

VekStr *strings[4];
std::map<const VekStr *, std::string> texts; ///< of the strings; empty for null
VekStrBuilder builder;
std::string built;
bool failed;

void check()
{
    std::set<const VekStr *> blocks = {nullptr, builder.str};
    for (const VekStr *const string : strings) {
        blocks.insert(string);
        if (string != nullptr) {
            require(vek_str_to_c_str(string) == texts[string]);
            require(vek_strlen(string) == texts[string].size());
            const auto holders = std::count(strings, std::end(strings), string);
            require(_vek_str_get_ref_count(string) == static_cast<size_t>(holders));
        }
    }
    require(live == blocks.size() - 1);
    require(vek_str_builder_get_text(&builder) == built);
    require(vek_str_builder_get_length(&builder) == built.size());
    require(vek_str_builder_failed(&builder) == failed);
}

/* ---- What an operation gets ---- */

VekStr **variable;     ///< one of the four
VekStr *old;           ///< its string
VekStr **other;        ///< one of the four, too
std::string head;      ///< the text of `old`, empty for null
const char *text;      ///< null, new, or a part of a text of a variable or of the builder
std::string words;     ///< the text, empty for null
const char *value;     ///< the text, "" for null
unsigned n;            ///< a size
std::string part;      ///< the first `n` characters of `words`
char c;                ///< a character
std::string letter;    ///< the same as a text
const char *format;    ///< takes a text and an integer, which is the character
std::string formatted; ///< `words` and the character in this format
int length;            ///< how many characters that takes; negative if it is impossible
bool warns;            ///< whether the operation is to warn

const char *read_text(Input &input)
{
    static std::string literal;
    const unsigned code = input.byte();
    const char *const sources[] = {"", vek_str_to_c_str(strings[code / 4 % 4]),
                                   vek_str_builder_get_text(&builder), nullptr};
    const char *const source = sources[code % 4];
    const size_t size = source != nullptr ? strlen(source) : 0;
    if (size != 0 && size < 2048) { return source + input.byte() % (size + 1); }
    if (code == 3) { return nullptr; }
    literal = input.text(code / 4);
    return literal.c_str();
}

void read(Input &input)
{
    static const char *const formats[] = {"%s", "%s%c", "[%.3s]%d", "%s%192d", "%s%lc"};
    const unsigned code = input.byte();
    variable = &strings[code % 4];
    other = &strings[code / 4 % 4];
    format = formats[code / 16 % 5];
    old = *variable;
    head = texts[old];
    n = input.byte();
    c = static_cast<char>(n);
    letter = std::string(1, c).c_str();
    text = read_text(input);
    value = text != nullptr ? text : "";
    words = value;
    part = words.substr(0, n);
    char buffer[4096];
    length = snprintf(buffer, sizeof buffer, format, value, n);
    formatted = length >= 0 ? buffer : "";
    warns = refused = false;
}

/* ---- What it gives ---- */

/** Checks a copy, which is not kept. It is null if it is refused, or not possible. */
void made(char *copy, const std::string &expected, bool can = true)
{
    require((copy != nullptr) == (can && !refused));
    require(copy == nullptr || copy == expected);
    vek_free(copy);
}

/** Takes a new string into the variable; it is null if it is refused, or not possible. */
void made(VekStr *string, const std::string &expected, bool can = true)
{
    require((string != nullptr) == (can && !refused));
    vek_str_unref(old);
    *variable = string;
    if (string != nullptr) { texts[string] = expected; }
}

/** Follows an edit of the variable. */
void edited(int done, const std::string &expected, bool can = true)
{
    warns = warns || old == nullptr;
    require(done == (!warns && can && !refused));
    require((*variable != old) == done);
    if (done == 1) { texts[*variable] = expected; }
}

/** Follows an append to the builder, which may do with less memory than it requests at first. */
void appended(int done, const std::string &expected, bool can = true)
{
    const bool fails = warns || !can || failed;
    require(done == 1 ? !fails : fails || refused);
    failed = done == 0;
    built += done == 1 ? expected : "";
}

/** Changes the variable's string in place, and its model letter by letter. */
template <auto in_place, typename Change>
void change(Change change)
{
    in_place(old);
    warns = old == nullptr;
    bool is_first = true; // of a word
    for (char &character : texts[old]) {
        const auto from = static_cast<unsigned char>(character);
        character = static_cast<char>(change(from, is_first));
        is_first = isspace(from);
    }
}

/** Hands over what was built. A block that cannot shrink is handed over all the same. Null can only
 *  be for want of an empty one, or because an append has failed. */
template <auto steal>
void take_built()
{
    const bool is_empty = builder.str == nullptr;
    const auto taken = steal(&builder);
    refused = refused && is_empty;
    made(taken, std::exchange(built, ""), !std::exchange(failed, false));
}

/* ---- Operations with a check of their own ---- */

void compare()
{
    const auto sign = [](int number) { return (number > 0) - (number < 0); };
    const auto key = [](const VekStr *string, size_t size) { // null comes first
        return string != nullptr ? "+" + texts[string].substr(0, size) : "";
    };
    const size_t start = n % 16;
    const int whole = key(old, UINT_MAX).compare(key(*other, UINT_MAX));
    require(sign(vek_strcmp(old, *other)) == sign(whole));
    require(vek_str_eq(old, *other) == (whole == 0));
    require(sign(vek_strncmp(old, *other, start)) ==
            sign(key(old, start).compare(key(*other, start))));
    warns = old == nullptr || text == nullptr;
    require(vek_str_eq_c_str(old, text) == (!warns && head == words));
    require(vek_str_neq_c_str(old, text, start) ==
            (old != nullptr && (start == 0 || text != nullptr) &&
             key(old, start) == "+" + words.substr(0, start)));
}

/** Lets a count reach its limit, then edits the string while it is persistent. */
void count_references()
{
    warns = true;
    vek_str_make_persistent(nullptr);
    if (old == nullptr) { return; }
    const uint32_t count = std::exchange(old->count, UINT_MAX - 1);
    require(vek_str_ref(old) == nullptr);
    vek_str_make_persistent(old);
    require(vek_str_ref(old) == old && vek_str_unref(old) == nullptr);
    const bool is_done = vek_str_append_c_str(variable, "") == 1;
    require(_vek_str_get_ref_count(old) == 0 && old->text == head);
    require(is_done == !refused);
    vek_str_force_destroy(is_done ? *variable : nullptr);
    *variable = old;
    old->count = count;
}

void create_part()
{
    const int room = static_cast<int>(n) - 8;
    std::string padded = words;
    padded.resize(static_cast<size_t>(std::max(room, 0)));
    VekStr *const string = vek_str_ncreate(text, room);
    require(string == nullptr || memcmp(string->text, padded.c_str(), padded.size() + 1) == 0);
    warns = room < 0 || (room > 0 && text == nullptr);
    made(string, padded.c_str(), !warns);
}

void copy_block()
{
    const size_t size = std::min<size_t>(n, words.size());
    void *const block = vek_memdup(text, size);
    require((block != nullptr) == (size != 0 && !refused));
    require(block == nullptr || memcmp(block, words.data(), size) == 0);
    vek_free(block);
}

void copy_to_buffer()
{
    const std::unique_ptr<char[]> buffer(n != 0 ? new char[n] : nullptr);
    require(vek_strlcpy(buffer.get(), text, n) == words.size());
    warns = text == nullptr;
    require(warns || n == 0 || buffer.get() == words.substr(0, n - 1));
}

void swap_characters()
{
    const char to = *value;
    change<vek_str_tolower>([](int from, bool) { return tolower(from); });
    vek_str_char_swap(old, c, to);
    std::string &swapped = texts[old];
    std::replace(swapped.begin(), swapped.end(), c, to);
    swapped = swapped.c_str();
}

void append_string()
{
    VekStr *const appended = head.size() < 2048 ? *other : nullptr;
    warns = appended == nullptr;
    edited(vek_str_append_vek_str(variable, appended), head + texts[appended]);
}

bool no_text() { return text == nullptr; }

bool no_part() { return text == nullptr && n != 0; }

using Operation = void (*)();
const Operation operations[] = {
    [] { refuse(n % 8, n >= 128); },
    // Strings
    [] { made(vek_str_create(text), words, !no_text()); },
    create_part,
    [] { made(vek_str_create_printf(format, value, n), formatted, length >= 0); },
    [] { vek_str_force_destroy(std::exchange(*variable, nullptr)); },
    [] { require(vek_str_assign(variable, other) == *other); },
    count_references,
    compare,
    [] { change<vek_str_toupper>([](int from, bool) { return toupper(from); }); },
    [] { change<vek_str_capitalize>([](int a, bool first) { return first ? toupper(a) : a; }); },
    swap_characters,
    [] { warns = no_text(), edited(vek_str_append_c_str(variable, text), head + words); },
    [] { warns = no_text(), edited(vek_str_prepend_c_str(variable, text), words + head); },
    [] { warns = no_part(), edited(vek_str_append_n(variable, text, n), head + part); },
    [] { edited(vek_str_append_char(variable, c), head + letter); },
    [] { edited(vek_str_prepend_char(variable, c), c != 0 ? letter + head : ""); },
    append_string,
    [] {
        edited(vek_str_append_printf(variable, format, value, n), head + formatted, length >= 0);
    },
    // Builder
    [] { warns = no_text(), appended(vek_str_builder_append(&builder, text), words); },
    [] { warns = no_part(), appended(vek_str_builder_append_n(&builder, text, n), part); },
    [] { appended(vek_str_builder_append_char(&builder, c), letter); },
    [] {
        appended(vek_str_builder_append_printf(&builder, format, value, n), formatted, length >= 0);
    },
    [] { vek_str_builder_release(&builder), built.clear(), failed = false; },
    take_built<vek_str_builder_steal_string>,
    take_built<vek_str_builder_steal_vekstr>,
    // Plain texts
    [] { warns = no_text(), made(vek_strdup(text), words, !warns); },
    [] { warns = no_part(), made(vek_strndup(text, n), part, !warns && n != 0); },
    [] { made(vek_strdup_printf(format, value, n), formatted, length > 0); },
    copy_block,
    copy_to_buffer,
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    stderr = errors.file;
    use_memory();
    Input input = {data, size};
    for (int count = 0; count < 64 && input.left != 0; ++count) {
        const Operation operation = operations[input.byte() % std::size(operations)];
        read(input);
        operation();
        require(errors.taken().empty() != warns);
        check();
    }
    refuse(0, false);
    vek_str_builder_release(&builder);
    for (VekStr *&string : strings) { string = vek_str_unref(string); }
    require(live == 0);
    texts.clear();
    built.clear();
    failed = false;
    return 0;
}
