/* SPDX-License-Identifier: MIT */
#include "veklib/vekvalue.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekdict.h"
#include "veklib/vekmemory.h"
#include "veklib/vekstrfuncs.h"
#include "veklib/vekstrfuncs_internal.h"
#include "veklib/vekvalue_internal.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include "veklib/vekassert_internal.h"

/* The checks of the accessors read the type of a record that may be empty, so their text is not the
 * condition itself. */
#define RETURN_VAL_IF_FAIL_AS(condition, text, failure)                                            \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            vek_failed_check(text, __LINE__, __func__);                                            \
            return failure;                                                                        \
        }                                                                                          \
    } while (0)

#define RETURN_VAL_UNLESS_TYPE(record, expected, failure)                                          \
    RETURN_VAL_IF_FAIL_AS(vek_value_is(record, expected), #record "->vt->type == " #expected,      \
                          failure)

namespace {

constexpr const char *null_text = "(nul)";

/* ---- The operations of the types ---- */

/* The words hold integers at their beginning, on platforms of either byte order. */
int equal_integers(const void *a, const void *b)
{
    int32_t first;
    int32_t second;
    memcpy(&first, &a, sizeof first);
    memcpy(&second, &b, sizeof second);
    return first == second;
}

int equal_words(const void *a, const void *b)
{
    return a == b;
}

void *same_word(void *payload)
{
    return payload;
}

void release_vekstr(void *payload)
{
    vek_str_unref(static_cast<VekStr *>(payload));
}

int equal_vekstrs(const void *a, const void *b)
{
    return vek_str_eq(static_cast<const VekStr *>(a), static_cast<const VekStr *>(b));
}

void *ref_vekstr(void *payload)
{
    return vek_str_ref(static_cast<VekStr *>(payload));
}

int equal_strings(const void *a, const void *b)
{
    return vek_is_same_text(static_cast<const char *>(a), static_cast<const char *>(b));
}

void *dup_string(void *payload)
{
    return vek_strdup(static_cast<const char *>(payload));
}

void destroy_value(void *element)
{
    vek_value_destroy(static_cast<VekValue *>(element));
}

int equal_values(const void *a, const void *b)
{
    return vek_value_equal(static_cast<const VekValue *>(a), static_cast<const VekValue *>(b));
}

void *dup_value(void *element)
{
    return vek_value_dup(static_cast<const VekValue *>(element));
}

/** The list operations for elements that `destroy`, `same` and `copy` handle (null: plain words). */
template <VekDestroyFunc destroy, VekEqualFunc same, VekCopyFunc copy>
struct List {
    static void release(void *payload)
    {
        vek_slist_free(static_cast<VekSList *>(payload), destroy);
    }

    static int equal(const void *a, const void *b)
    {
        return vek_slist_equal(static_cast<const VekSList *>(a), static_cast<const VekSList *>(b),
                               same);
    }

    /** All elements are copied, or nothing is. */
    static void *dup(void *payload)
    {
        auto *const list = static_cast<VekSList *>(payload);
        VekSList *const result = vek_slist_dup(list, copy);
        // As types, for GCC 11 warns where functions are compared.
        if constexpr (std::is_same_v<List, List<destroy, same, nullptr>>) {
            return result;
        }
        const VekSList *source = list;
        for (const VekSList *node = result; node != nullptr; node = node->next) {
            if (node->data == nullptr && source->data != nullptr) {
                vek_slist_free(result, destroy);
                return nullptr;
            }
            source = source->next;
        }
        return result;
    }
};

using WordList = List<nullptr, nullptr, nullptr>;
using StringList = List<release_vekstr, equal_vekstrs, ref_vekstr>;
using ValueList = List<destroy_value, equal_values, dup_value>;

void destroy_dict(void *payload)
{
    vek_dict_destroy(static_cast<VekDict *>(payload));
}

void *ref_dict(void *payload)
{
    return vek_dict_ref(static_cast<VekDict *>(payload));
}

} // namespace

constinit const VekValueVtable vek_value_types[VEK_VALUE_MAX] = {
    {VEK_VALUE_INT, nullptr, equal_integers, same_word},
    {VEK_VALUE_DOUBLE, nullptr, nullptr, nullptr},
    {VEK_VALUE_VEKSTR, release_vekstr, equal_vekstrs, ref_vekstr},
    {VEK_VALUE_STRING, vek_free, equal_strings, dup_string},
    {VEK_VALUE_POINTER, nullptr, equal_words, same_word},
    {VEK_VALUE_NAME, nullptr, equal_words, same_word},
    {VEK_VALUE_SLIST_OF_INT, WordList::release, WordList::equal, WordList::dup},
    {VEK_VALUE_SLIST_OF_STRING, StringList::release, StringList::equal, StringList::dup},
    {VEK_VALUE_SLIST_OF_POINTER, WordList::release, WordList::equal, WordList::dup},
    {VEK_VALUE_SLIST_OF_VALUE, ValueList::release, ValueList::equal, ValueList::dup},
    {VEK_VALUE_DICT, destroy_dict, equal_words, ref_dict},
};

namespace {

/* Arrays rather than pointers, which the loader would have to fill in. */
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

/** The name of a type; a text of its own for a number that is none. */
const char *value_type_to_string(VekValueType type)
{
    return type >= VEK_VALUE_INT && type < VEK_VALUE_MAX ? type_names[type]
                                                         : "[unknown VekValueType]";
}

/** What `dup` of a type makes of a payload; null stays null. */
void *dup_payload(VekValueType type, void *payload)
{
    return payload != nullptr ? vek_value_types[type].dup(payload) : nullptr;
}

/* ---- Conversions ---- */

/** Tells on standard output what is wrong with a text that was to be a number: nothing in it could
 * be read, or errno is set. */
void tell_conversion_fault(const char *text, bool nothing_read, const char *number)
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

/** The base that a text asks for: 16 for "0x", 8 for a leading 0, else 10. Newer C libraries would
 * read more prefixes if they were asked to find out. */
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
    if (number > INT32_MAX || number < INT32_MIN) { // where long is wider
        number = number > 0 ? INT32_MAX : INT32_MIN;
        errno = ERANGE;
    }
    tell_conversion_fault(text, number == 0 && end == text, "an integer");
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
    tell_conversion_fault(text, number == 0.0 && end == text, "a double");
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

/** A new string of a formatted text that fits a small buffer. */
[[gnu::format(printf, 1, 2)]] VekStr *brief_vekstr(const char *format, ...)
{
    char text[64];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return vek_str_ncreate(text, length);
}

} // namespace

/* ---- Any type ---- */

void vek_value_init(VekValue *vekvalue, VekValueType type)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);
    VEK_RETURN_IF_FAIL(type < VEK_VALUE_MAX);
    VEK_RETURN_IF_FAIL(type != VEK_VALUE_INVALID);
    VEK_RETURN_IF_FAIL(type > VEK_VALUE_INVALID);

    vekvalue->vt = &vek_value_types[type];
    VEK_ASSERT(type == vekvalue->vt->type);
    if (type == VEK_VALUE_DOUBLE) {
        vekvalue->payload.real = 0.0;
    } else {
        vekvalue->payload.pointer = nullptr;
    }
}

void vek_value_release(VekValue *vekvalue)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    const bool owns = vek_value_owns(vekvalue);
    const VekValueVtable *const type = vekvalue->vt;
    vekvalue->vt = nullptr; // first: what is released may come back and find the record
    if (owns) {
        type->release(vekvalue->payload.pointer);
    }
}

void vek_value_destroy(VekValue *value)
{
    if (value != nullptr) {
        vek_value_release(value);
        vek_free(value);
    }
}

VekValueType vek_value_get_type(const VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, VEK_VALUE_INVALID);
    VEK_RETURN_VAL_IF_FAIL(value->vt != NULL, VEK_VALUE_INVALID);

    return value->vt->type;
}

int vek_value_copy(VekValue *dest, const VekValue *src)
{
    VEK_RETURN_VAL_IF_FAIL(dest != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(src != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(src->vt != NULL, 0);

    dest->vt = src->vt;
    const VekValueType type = src->vt->type;
    if (type == VEK_VALUE_INT || type == VEK_VALUE_DOUBLE) {
        dest->payload = src->payload;
        return 1;
    }
    void *const payload = src->payload.pointer;
    dest->payload.pointer = dup_payload(type, payload);
    return payload == nullptr || dest->payload.pointer != nullptr;
}

VekValue *vek_value_dup(const VekValue *src)
{
    auto *const value = static_cast<VekValue *>(vek_calloc(1, sizeof(VekValue)));
    if (value == nullptr) {
        return nullptr;
    }
    if (!vek_value_copy(value, src)) {
        vek_free(value);
        return nullptr;
    }
    return value;
}

int vek_value_equal(const VekValue *val1, const VekValue *val2)
{
    if (val1 == val2) {
        return 1;
    }
    if (val1 == nullptr || val2 == nullptr) {
        return 0;
    }
    VEK_RETURN_VAL_IF_FAIL(val1->vt != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(val2->vt != NULL, 0);

    if (val1->vt->type != val2->vt->type) {
        return 0;
    }
    if (val1->vt->type == VEK_VALUE_DOUBLE) {
        return val1->payload.real == val2->payload.real;
    }
    return val1->vt->equal(val1->payload.pointer, val2->payload.pointer);
}

/* ---- set ---- */

void vek_value_set_int(VekValue *vekvalue, int32_t value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become_int(vekvalue, value);
}

void vek_value_set_double(VekValue *vekvalue, double value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vekvalue->vt = &vek_value_types[VEK_VALUE_DOUBLE];
    vekvalue->payload.real = value;
}

int vek_value_set_string(VekValue *vekvalue, const char *value)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, 0);

    vek_value_become(vekvalue, VEK_VALUE_STRING, value != nullptr ? vek_strdup(value) : nullptr);
    return value == nullptr || vekvalue->payload.string != nullptr;
}

void vek_value_set_vekstr(VekValue *vekvalue, VekStr *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_VEKSTR, dup_payload(VEK_VALUE_VEKSTR, value));
}

void vek_value_set_pointer(VekValue *vekvalue, void *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_POINTER, value);
}

void vek_value_set_name(VekValue *vekvalue, VekName *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_NAME, value);
}

void vek_value_set_slist_of_int(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_INT, dup_payload(VEK_VALUE_SLIST_OF_INT, value));
}

void vek_value_set_slist_of_str(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_STRING,
                     dup_payload(VEK_VALUE_SLIST_OF_STRING, value));
}

void vek_value_set_slist_of_ptr(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_POINTER,
                     dup_payload(VEK_VALUE_SLIST_OF_POINTER, value));
}

void vek_value_set_slist_of_value(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_VALUE,
                     dup_payload(VEK_VALUE_SLIST_OF_VALUE, value));
}

void vek_value_set_dict(VekValue *vekvalue, VekDict *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_DICT, vek_dict_ref(value));
}

/* ---- take ---- */

void vek_value_take_string(VekValue *vekvalue, char *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_STRING, value);
}

void vek_value_take_vekstr(VekValue *vekvalue, VekStr *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_VEKSTR, value);
}

void vek_value_take_slist_of_int(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_INT, value);
}

void vek_value_take_slist_of_str(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_STRING, value);
}

void vek_value_take_slist_of_ptr(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_POINTER, value);
}

void vek_value_take_slist_of_value(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_VALUE, value);
}

void vek_value_take_dict(VekValue *vekvalue, VekDict *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_DICT, value);
}

/* ---- get ---- */

int32_t vek_value_get_int(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, 0);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_INT, 0);

    return vekvalue->payload.integer;
}

double vek_value_get_double(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, 0.0);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_DOUBLE, 0.0);

    return vekvalue->payload.real;
}

const char *vek_value_get_string(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_STRING, nullptr);

    return vekvalue->payload.string;
}

VekStr *vek_value_get_vekstr(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_VEKSTR, nullptr);

    return vekvalue->payload.vekstr;
}

void *vek_value_get_pointer(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_POINTER, nullptr);

    return vekvalue->payload.pointer;
}

VekName *vek_value_get_name(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_NAME, nullptr);

    return vekvalue->payload.name;
}

VekSList *vek_value_get_slist(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(VEK_VALUE_IS_SLIST(vekvalue), nullptr);

    return vekvalue->payload.slist;
}

VekDict *vek_value_get_dict(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_DICT, nullptr);

    return vekvalue->payload.dict;
}

/* ---- dup ---- */

char *vek_value_dup_string(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_STRING, nullptr);

    return vek_strdup(vekvalue->payload.string);
}

VekStr *vek_value_dup_vekstr(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_VEKSTR, nullptr);

    return vek_str_ref(vekvalue->payload.vekstr);
}

VekSList *vek_value_dup_slist(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(VEK_VALUE_IS_SLIST(vekvalue), nullptr);

    return static_cast<VekSList *>(vekvalue->vt->dup(vekvalue->payload.slist));
}

VekDict *vek_value_dup_dict(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_DICT, nullptr);

    return vek_dict_ref(vekvalue->payload.dict);
}

/* ---- steal ---- */

char *vek_value_steal_string(VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_STRING, nullptr);

    char *const string = vekvalue->payload.string;
    vekvalue->payload.string = nullptr;
    return string;
}

VekStr *vek_value_steal_vekstr(VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(vekvalue, VEK_VALUE_VEKSTR, nullptr);

    VekStr *const vekstr = vekvalue->payload.vekstr;
    vekvalue->payload.vekstr = nullptr;
    return vekstr;
}

void *vek_value_steal_pointer(VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, nullptr);
    RETURN_VAL_UNLESS_TYPE(value, VEK_VALUE_POINTER, nullptr);

    void *const pointer = value->payload.pointer;
    value->payload.pointer = nullptr;
    return pointer;
}

/* ---- Conversions ---- */

void *vek_value_get_as_pointer(const VekValue *vekvalue)
{
    VEK_RETURN_VAL_IF_FAIL(vekvalue != NULL, nullptr);
    RETURN_VAL_IF_FAIL_AS(
        vekvalue->vt != nullptr && vekvalue->vt->type > VEK_VALUE_DOUBLE,
        "vekvalue->vt->type != VEK_VALUE_INT && vekvalue->vt->type != VEK_VALUE_DOUBLE", nullptr);

    return vekvalue->payload.pointer;
}

int32_t vek_value_get_as_int(const VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, 0);

    switch (vek_value_get_type(value)) {
    case VEK_VALUE_INT:
        return value->payload.integer;
    case VEK_VALUE_DOUBLE:
        return double_to_int(value->payload.real);
    case VEK_VALUE_VEKSTR:
        return string_to_int(vek_str_to_c_str(value->payload.vekstr));
    case VEK_VALUE_STRING:
        return string_to_int(value->payload.string);
    default:
        VEK_WARNING("Can't coerce %s to int", value_type_to_string(vek_value_get_type(value)));
        return 0;
    }
}

double vek_value_get_as_double(const VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, 0.0);

    switch (vek_value_get_type(value)) {
    case VEK_VALUE_INT:
        return value->payload.integer;
    case VEK_VALUE_DOUBLE:
        return value->payload.real;
    case VEK_VALUE_VEKSTR:
        return string_to_double(vek_str_to_c_str(value->payload.vekstr));
    case VEK_VALUE_STRING:
        return string_to_double(value->payload.string);
    default:
        VEK_WARNING("Can't coerce %s to double", value_type_to_string(vek_value_get_type(value)));
        return 0.0;
    }
}

char *vek_value_get_as_string(const VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, nullptr);

    const char *text;
    switch (vek_value_get_type(value)) {
    case VEK_VALUE_INT:
        return vek_strdup_printf("%d", value->payload.integer);
    case VEK_VALUE_DOUBLE:
        return vek_strdup_printf("%g", value->payload.real);
    case VEK_VALUE_VEKSTR:
        text = vek_str_to_c_str(value->payload.vekstr);
        return vek_strdup(text != nullptr ? text : null_text);
    case VEK_VALUE_STRING:
        text = value->payload.string;
        return vek_strdup(text != nullptr ? text : null_text);
    case VEK_VALUE_NAME:
        return vek_strdup(vek_name_to_string(value->payload.name));
    default:
        return vek_strdup_printf("%s(%p)", value_type_to_string(vek_value_get_type(value)),
                                 value->payload.pointer);
    }
}

VekStr *vek_value_get_as_vekstr(const VekValue *value)
{
    VEK_RETURN_VAL_IF_FAIL(value != NULL, nullptr);

    switch (vek_value_get_type(value)) {
    case VEK_VALUE_INT:
        return brief_vekstr("%d", value->payload.integer);
    case VEK_VALUE_DOUBLE:
        return brief_vekstr("%g", value->payload.real);
    case VEK_VALUE_VEKSTR:
        return value->payload.vekstr != nullptr ? vek_str_ref(value->payload.vekstr)
                                                : vek_str_create(null_text);
    case VEK_VALUE_STRING:
        return vek_str_create(value->payload.string != nullptr ? value->payload.string : null_text);
    case VEK_VALUE_NAME:
        return vek_str_create(vek_name_to_string(value->payload.name));
    default:
        return brief_vekstr("%s(%p)", value_type_to_string(vek_value_get_type(value)),
                            value->payload.pointer);
    }
}
