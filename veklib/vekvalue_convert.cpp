/* SPDX-License-Identifier: MIT */
/* Values: conversions of a value of any type to a pointer, a number or a text.
 *
 * A conversion never changes the record. It queries the type (except for a pointer), and once more
 * for a message or text that names it. An empty record gives a warning each time; the number of
 * these warnings is interface, as are the texts. A text that cannot be read as a number is reported
 * on standard output; a null text is 0 without a report. Each text for the caller is made by one
 * call of vekstrfuncs or vekstr, so only one allocation can fail. Reading a number changes errno.
 */
#include "veklib/vekvalue.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekstrfuncs.h"
#include "veklib/vekvalue_internal.h"

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/* ---- Names of the types ---- */

/* Arrays of characters, because the loader would have to relocate pointers. */
constexpr char type_names[VEK_VALUE_MAX][sizeof "VEK_VALUE_SLIST_OF_POINTER"] = {
    "VEK_VALUE_INT",
    "VEK_VALUE_DOUBLE",
    "VEK_VALUE_VEKSTR",
    "VEK_VALUE_STRING",
    "VEK_VALUE_POINTER",
    "VEK_VALUE_NAME",
    "VEK_VALUE_SLIST_OF_INT",
    "VEK_VALUE_SLIST_OF_STRING",
    "VEK_VALUE_SLIST_OF_POINTER",
    "VEK_VALUE_SLIST_OF_VALUE",
    "VEK_VALUE_DICT",
};

/** The name of a type, or "[unknown VekValueType]" for a number that is no type. */
const char *value_type_to_string(VekValueType type)
{
    return type >= VEK_VALUE_INT && type < VEK_VALUE_MAX ? type_names[type]
                                                         : "[unknown VekValueType]";
}

/* ---- Texts to numbers ---- */

/** Reports on standard output what is wrong with a text that should be a number: it does not begin
 *  with one, or errno is set. */
void report_conversion(const char *text, bool nothing_read, const char *number)
{
    const int error = errno;
    if (nothing_read) {
        fprintf(stdout, "Can't convert string \"%s\" to %s\n", text, number);
    }
    if (error != 0) {
        fprintf(stdout, "Error converting string \"%s\" to %s: %s\n", text, number,
                strerror(error));
    }
}

/** The base of the number that a text begins with: 16 for "0x", 8 for a leading 0, else 10. If
 *  strtol() chose it, newer C libraries would accept more prefixes. */
int base_of(const char *text)
{
    while (isspace(static_cast<unsigned char>(*text))) {
        ++text;
    }
    if (*text == '-' || *text == '+') {
        ++text;
    }
    if (*text != '0') {
        return 10;
    }
    return text[1] == 'x' || text[1] == 'X' ? 16 : 8;
}

int32_t string_to_int(const char *text)
{
    if (text == nullptr) {
        return 0;
    }
    char *end;
    errno = 0;
    long number = strtol(text, &end, base_of(text));
    if (number > INT32_MAX || number < INT32_MIN) { // possible where long is wider
        number = number > 0 ? INT32_MAX : INT32_MIN;
        errno = ERANGE;
    }
    report_conversion(text, number == 0 && end == text, "an integer");
    return static_cast<int32_t>(number);
}

double string_to_double(const char *text)
{
    if (text == nullptr) {
        return 0.0;
    }
    char *end;
    errno = 0;
    const double number = strtod(text, &end);
    report_conversion(text, number == 0.0 && end == text, "a double");
    return number;
}

int32_t double_to_int(double number)
{
    if (std::isnan(number)) {
        return 0;
    }
    if (number >= INT32_MAX) {
        return INT32_MAX;
    }
    return number > INT32_MIN ? static_cast<int32_t>(number) : INT32_MIN;
}

/* ---- Values to texts ---- */

/** Makes the text of a value: `copy` of the text that it holds, or what `print` formats. A null
 *  name gives `copy` of null. Force-inlined: the public function is charged with the text. */
template <auto copy, auto print>
[[gnu::always_inline]] inline auto text_of(const VekValue *value)
{
    const char *text;
    switch (vek_value_type_of(value)) {
    case VEK_VALUE_INT:
        return print("%d", value->payload.integer);
    case VEK_VALUE_DOUBLE:
        return print("%g", value->payload.real);
    case VEK_VALUE_VEKSTR:
        text = vek_str_to_c_str(value->payload.vekstr);
        break;
    case VEK_VALUE_STRING:
        text = value->payload.string;
        break;
    case VEK_VALUE_NAME:
        return copy(vek_name_to_string(value->payload.name));
    default:
        return print("%s(%p)", value_type_to_string(vek_value_type_of(value)),
                     value->payload.pointer);
    }
    return copy(text != nullptr ? text : "(nul)");
}

} // namespace

/* ---- Conversions to pointers and numbers ---- */

void *vek_value_get_as_pointer(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);

    if (vekvalue->vt == nullptr || vek_value_is_scalar(vekvalue->vt->type)) {
        // The printed text is interface. The condition that it shows is not evaluated, because that
        // would dereference the null vt of an empty record.
        vek_failed_check(
            "vekvalue->vt->type != VEK_VALUE_INT && vekvalue->vt->type != VEK_VALUE_DOUBLE",
            __LINE__, __func__);
        return nullptr;
    }
    return vekvalue->payload.pointer;
}

int32_t vek_value_get_as_int(const VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, 0);

    switch (vek_value_type_of(value)) {
    case VEK_VALUE_INT:
        return value->payload.integer;
    case VEK_VALUE_DOUBLE:
        return double_to_int(value->payload.real);
    case VEK_VALUE_VEKSTR:
        return string_to_int(vek_str_to_c_str(value->payload.vekstr));
    case VEK_VALUE_STRING:
        return string_to_int(value->payload.string);
    default:
        VEK_WARNING("Can't coerce %s to int", value_type_to_string(vek_value_type_of(value)));
        return 0;
    }
}

double vek_value_get_as_double(const VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, 0.0);

    switch (vek_value_type_of(value)) {
    case VEK_VALUE_INT:
        return value->payload.integer;
    case VEK_VALUE_DOUBLE:
        return value->payload.real;
    case VEK_VALUE_VEKSTR:
        return string_to_double(vek_str_to_c_str(value->payload.vekstr));
    case VEK_VALUE_STRING:
        return string_to_double(value->payload.string);
    default:
        VEK_WARNING("Can't coerce %s to double", value_type_to_string(vek_value_type_of(value)));
        return 0.0;
    }
}

/* ---- Conversions to texts ---- */

char *vek_value_get_as_string(const VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, nullptr);

    return text_of<vek_strdup, vek_strdup_printf>(value);
}

VekStr *vek_value_get_as_vekstr(const VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, nullptr);

    if (vek_value_is(value, VEK_VALUE_VEKSTR) && value->payload.vekstr != nullptr) {
        return vek_str_ref(value->payload.vekstr);
    }
    return text_of<vek_str_create, vek_str_create_printf>(value);
}
