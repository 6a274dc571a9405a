/* SPDX-License-Identifier: MIT */
/* Converts values of every type whose datum comes from the input, a text, and compares the results
 * and what is printed with a model of its own. The model of integers reads digit by digit; that of
 * doubles uses the C library. Each value also meets exhausted memory, and is copied. */
#include <veklib/veklib.h>

#include "support.h"

#include <cerrno>
#include <charconv>
#include <cmath>

using namespace fuzz;

namespace {

Stream output, errors;

/* ---- The model ---- */

/** What the conversions of a value are to give. */
struct Expected {
    bool is_number;
    int32_t integer;
    double real;
    std::string text;         ///< the name of the type, if an address is to follow
    std::string reports = {}; ///< on the integer, then on the double
};

template <typename... Values>
std::string printed(const char *format, Values... values)
{
    char text[64];
    snprintf(text, sizeof text, format, values...);
    return text;
}

/** What is printed about a text that should be a number. */
std::string report(const std::string &text, bool nothing, bool range, const char *number)
{
    const std::string what = " string \"" + text + "\" to " + number;
    return nothing ? "Can't convert" + what + "\n"
           : range ? "Error converting" + what + ": " + strerror(ERANGE) + "\n"
                   : "";
}

void expect_integer(Expected &expected)
{
    const std::string &text = expected.text;
    const char *at = text.c_str() + strspn(text.c_str(), " \t\n\v\f\r");
    const bool negative = *at == '-';
    at += negative || *at == '+';
    int base = *at == '0' ? 8 : 10;
    if (*at == '0' && (at[1] | 32) == 'x' && isxdigit(static_cast<unsigned char>(at[2]))) {
        base = 16;
        at += 2;
    }
    constexpr uint64_t large = uint64_t{1} << 40;
    uint64_t digits = 0;
    const auto [end, error] = std::from_chars(at, text.c_str() + text.size(), digits, base);
    digits = error == std::errc::result_out_of_range ? large : std::min(digits, large);
    const auto size = static_cast<int64_t>(digits);
    const int64_t number = negative ? -size : size;
    const int64_t limited = std::clamp<int64_t>(number, INT32_MIN, INT32_MAX);
    expected.integer = static_cast<int32_t>(limited);
    expected.reports += report(text, end == at, limited != number, "an integer");
}

void expect_real(Expected &expected)
{
    char *end;
    errno = 0;
    expected.real = strtod(expected.text.c_str(), &end);
    expected.reports +=
        report(expected.text, end == expected.text.c_str(), errno == ERANGE, "a double");
}

/* ---- Checks ---- */

bool same(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

/** Calls `convert`, which warns, or does not. */
template <auto convert>
auto call(const VekValue *value, bool warns)
{
    errno = EDOM; // an older error is not the conversion's
    const auto result = convert(value);
    require(errors.taken().empty() != warns);
    return result;
}

void check_texts(const VekValue *value, const std::string &expected)
{
    const bool is_empty = value->vt == nullptr;
    const bool shares =
        !is_empty && value->vt->type == VEK_VALUE_VEKSTR && value->payload.vekstr != nullptr;
    for (const bool refuses : {false, true}) {
        refuse(refuses, true);
        char *const text = call<vek_value_get_as_string>(value, is_empty);
        VekStr *const vekstr = call<vek_value_get_as_vekstr>(value, is_empty);
        refuse(0, false);
        require(refuses ? text == nullptr : text == expected);
        require(refuses && !shares ? vekstr == nullptr : vek_str_to_c_str(vekstr) == expected);
        require(!shares || vekstr == value->payload.vekstr);
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
    const bool has_text = expected.is_number || type == VEK_VALUE_NAME;
    check_texts(value, expected.text + (has_text ? "" : printed("(%p)", value->payload.pointer)));
}

/** Checks a value and a copy of it, and releases it. */
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

/** A record filled in with a datum by one of the set and take functions. */
template <typename Result, typename Datum>
VekValue with(Result (*fill_in)(VekValue *, Datum), std::type_identity_t<Datum> datum)
{
    VekValue value;
    fill_in(&value, datum);
    return value;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    stdout = output.file;
    stderr = errors.file;
    use_memory();
    const std::string text = Input{data, size}.text(size).c_str(); // up to a NUL
    Expected of_text = {true, 0, 0, text};
    expect_integer(of_text);
    expect_real(of_text);
    const Expected of_null = {true, 0, 0, "(nul)"};
    const int32_t integer = of_text.integer;
    const double real = of_text.real;
    void *const pointer = reinterpret_cast<void *>(static_cast<intptr_t>(integer));
    const double limited =
        std::isnan(real) ? 0 : std::clamp<double>(std::trunc(real), INT32_MIN, INT32_MAX);

    check_and_release(with(vek_value_set_string, text.c_str()), of_text);
    check_and_release(with(vek_value_take_vekstr, vek_str_create(text.c_str())), of_text);
    check_and_release(with(vek_value_set_string, nullptr), of_null);
    check_and_release(with(vek_value_set_vekstr, nullptr), of_null);
    check_and_release(with(vek_value_set_int, integer),
                      {true, integer, 1.0 * integer, std::to_string(integer)});
    check_and_release(with(vek_value_set_double, real),
                      {true, static_cast<int32_t>(limited), real, printed("%g", real)});
    check_and_release(with(vek_value_set_pointer, pointer), {false, 0, 0, "VEK_VALUE_POINTER"});
    const VekValue list = with(vek_value_take_slist_of_int, vek_slist_prepend(nullptr, pointer));
    check_and_release(list, {false, 0, 0, "VEK_VALUE_SLIST_OF_INT"});
    check_and_release({nullptr, {integer}}, {false, 0, 0, "[unknown VekValueType]"});

    VekNameTable *table = vek_name_table_create(nullptr);
    VekStr *const vekstr = vek_str_create(text.c_str());
    VekName *const name = vek_name_from_vek_str(table, vekstr, 0);
    VekStr *const copy = vek_name_to_vek_str(name);
    require(vek_str_eq(copy, vekstr) == 1);
    check_and_release(with(vek_value_set_name, name), {false, 0, 0, text});
    vek_str_unref(copy);
    vek_str_unref(vekstr);
    vek_name_table_destroy(&table);
    require(live == 0);
    return 0;
}
