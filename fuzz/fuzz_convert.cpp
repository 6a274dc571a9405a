/* SPDX-License-Identifier: MIT */
/* Converts values of every type whose datum comes from the input, a text, and compares the results
 * and what is printed with a model of its own. The model of integers reads digit by digit; that of
 * doubles uses the C library. Each value also meets exhausted memory, and is copied. */
#include <veklib/veklib.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void require(bool condition)
{
    if (!condition) { abort(); }
}

/* In place of one of the output streams. */
struct Stream {
    char *text = nullptr;
    size_t size = 0;
    FILE *file = open_memstream(&text, &size);

    /* What was written since the last call. */
    std::string taken()
    {
        fflush(file);
        std::string result(text, size);
        rewind(file);
        return result;
    }
};
Stream output, errors;

/* Calls `convert`, which warns, or does not. */
template <auto convert>
auto call(const VekValue *value, bool warns)
{
    errno = EDOM; // an older error is not the conversion's
    const auto result = convert(value);
    require(errors.taken().empty() != warns);
    return result;
}

/* What is printed about a text that should be a number. */
std::string report(const std::string &text, bool nothing, bool range, const char *number)
{
    const std::string what = " string \"" + text + "\" to " + number;
    return nothing ? "Can't convert" + what + "\n"
           : range ? "Error converting" + what + ": " + strerror(ERANGE) + "\n"
                   : "";
}

int digit(char c)
{
    static const std::string digits = "0123456789abcdef";
    const size_t found = digits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c);
    return found != std::string::npos ? static_cast<int>(found) : 16;
}

/* The integer that a text begins with, and the report on it. */
int32_t integer_of(const std::string &text, std::string &reported)
{
    size_t at = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    const bool negative = text.substr(at, 1) == "-";
    at += negative || text.substr(at, 1) == "+";
    int base = text.substr(at, 1) == "0" ? 8 : 10;
    const std::string prefix = text.substr(at, 2);
    if ((prefix == "0x" || prefix == "0X") && at + 2 < text.size() && digit(text[at + 2]) < 16) {
        base = 16;
        at += 2;
    }
    const size_t first = at;
    int64_t number = 0;
    for (; at < text.size() && digit(text[at]) < base; ++at) {
        number = std::min(number * base + digit(text[at]), int64_t{1} << 40);
    }
    number = negative ? -number : number;
    const auto limited = std::clamp<int64_t>(number, INT32_MIN, INT32_MAX);
    reported = report(text, at == first, limited != number, "an integer");
    return static_cast<int32_t>(limited);
}

double real_of(const std::string &text, std::string &reported)
{
    char *end;
    errno = 0;
    const double number = strtod(text.c_str(), &end);
    reported = report(text, end == text.c_str(), errno == ERANGE, "a double");
    return number;
}

std::string formatted(double number)
{
    char text[64];
    snprintf(text, sizeof text, "%g", number);
    return text;
}

std::string address(const char *type, const void *pointer)
{
    char text[64];
    snprintf(text, sizeof text, "%s(%p)", type, pointer);
    return text;
}

/* What the conversions of a value are to give. */
struct Expected {
    bool is_number;
    int32_t integer;
    double real;
    std::string text;    /* the name of the type, if an address is to follow */
    std::string reports; /* on the integer, then on the double */
};

bool same(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

void check_texts(const VekValue *value, const std::string &expected)
{
    const bool is_empty = value->vt == nullptr;
    const bool is_vekstr =
        !is_empty && value->vt->type == VEK_VALUE_VEKSTR && value->payload.vekstr != nullptr;
    for (const bool refused : {false, true}) {
        vek_malloc_set_error(refused);
        char *const text = vek_value_get_as_string(value);
        VekStr *const vekstr = vek_value_get_as_vekstr(value);
        vek_malloc_set_error(0);
        require((text == nullptr) == refused && (vekstr == nullptr) == (refused && !is_vekstr));
        require(errors.taken().empty() == !(is_empty || refused));
        require(text == nullptr || text == expected);
        require(vekstr == nullptr || vek_str_to_c_str(vekstr) == expected);
        require(!is_vekstr ||
                (vekstr == value->payload.vekstr && _vek_str_get_ref_count(vekstr) > 1));
        vek_free(text);
        vek_str_unref(vekstr);
    }
}

void check(const VekValue *value, const Expected &expected)
{
    const int type = value->vt != nullptr ? value->vt->type : VEK_VALUE_INVALID;
    const void *const pointer = type > VEK_VALUE_DOUBLE ? value->payload.pointer : nullptr;
    require(call<vek_value_get_as_int>(value, !expected.is_number) == expected.integer);
    require(same(call<vek_value_get_as_double>(value, !expected.is_number), expected.real));
    require(output.taken() == expected.reports);
    require(call<vek_value_get_as_pointer>(value, type <= VEK_VALUE_DOUBLE) == pointer);
    check_texts(value, expected.is_number || type == VEK_VALUE_NAME
                           ? expected.text
                           : address(expected.text.c_str(), value->payload.pointer));
}

/* Checks a value and a copy of it, and releases it. */
void check_and_release(VekValue value, const Expected &expected)
{
    check(&value, expected);
    if (value.vt != nullptr) {
        VekValue copy;
        require(vek_value_copy(&copy, &value) == 1);
        const bool is_nan = value.vt->type == VEK_VALUE_DOUBLE && std::isnan(value.payload.real);
        require(vek_value_equal(&copy, &value) == !is_nan);
        check(&copy, expected);
        vek_value_release(&copy);
    }
    vek_value_release(&value);
}

/* A record filled in with a datum by one of the set and take functions. */
template <typename Result, typename Datum>
VekValue with(Result (*fill_in)(VekValue *, Datum), std::type_identity_t<Datum> datum)
{
    VekValue value;
    fill_in(&value, datum);
    return value;
}

/* Interns a text twice, and fails to intern another. */
void check_name(VekNameTable *table, const std::string &text, int32_t id)
{
    const std::string other = text + "?";
    VekStr *const vekstr = vek_str_create(text.c_str());
    VekName *const name = vek_name_from_string(table, text.c_str(), id);
    require(name == vek_name_from_vek_str(table, vekstr, id + 1));
    require(name == vek_name_try_string(table, text.c_str()));
    vek_malloc_set_error(1);
    require(vek_name_from_string(table, other.c_str(), id) == nullptr);
    require(vek_name_to_vek_str(name) == nullptr);
    vek_malloc_set_error(0);
    errors.taken();
    require(vek_name_try_string(table, other.c_str()) == nullptr);
    require(vek_name_get_id(name) == id && vek_name_to_string(name) == text);
    VekStr *const copy = vek_name_to_vek_str(name);
    require(vek_str_eq(copy, vekstr) == 1);
    vek_str_unref(copy);
    vek_str_unref(vekstr);
    check_and_release(with(vek_value_set_name, name), {false, 0, 0, text, ""});
}

void check_all(const std::string &text)
{
    std::string on_integer;
    std::string on_real;
    const int32_t integer = integer_of(text, on_integer);
    const double real = real_of(text, on_real);
    void *const pointer = reinterpret_cast<void *>(static_cast<intptr_t>(integer));
    const Expected of_text = {true, integer, real, text, on_integer + on_real};
    const Expected of_null = {true, 0, 0, "(nul)", ""};
    const double limited =
        std::isnan(real) ? 0 : std::clamp<double>(std::trunc(real), INT32_MIN, INT32_MAX);

    check_and_release(with(vek_value_set_string, text.c_str()), of_text);
    check_and_release(with(vek_value_take_vekstr, vek_str_create(text.c_str())), of_text);
    check_and_release(with(vek_value_set_string, nullptr), of_null);
    check_and_release(with(vek_value_set_vekstr, nullptr), of_null);
    check_and_release(with(vek_value_set_int, integer),
                      {true, integer, 1.0 * integer, std::to_string(integer), ""});
    check_and_release(with(vek_value_set_double, real),
                      {true, static_cast<int32_t>(limited), real, formatted(real), ""});
    check_and_release(with(vek_value_set_pointer, pointer), {false, 0, 0, "VEK_VALUE_POINTER", ""});
    const VekValue list = with(vek_value_take_slist_of_int, vek_slist_prepend(nullptr, pointer));
    check_and_release(list, {false, 0, 0, "VEK_VALUE_SLIST_OF_INT", ""});
    check_and_release({nullptr, {integer}}, {false, 0, 0, "[unknown VekValueType]", ""});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size)
{
    static const bool prepared = [] {
        stdout = output.file;
        stderr = errors.file;
        return true;
    }();
    static_cast<void>(prepared);
    const std::string text(reinterpret_cast<const char *>(data),
                           strnlen(reinterpret_cast<const char *>(data), size));
    check_all(text);
    VekNameTable *table = vek_name_table_create(nullptr);
    check_name(table, text, static_cast<int32_t>(size));
    vek_name_table_destroy(&table);
    return 0;
}
