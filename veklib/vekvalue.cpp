/* SPDX-License-Identifier: MIT */
/* Values: the operations of the eleven types, and the functions for a record of any type.
 *
 * The `vt` of a record is null (an empty record) or the address of a row in vek_value_types, whose
 * `type` is the row's own number. A payload that is a pointer may be null in every type: `release`
 * and `equal` accept null, and `dup` is called with it only for lists. Functions that fill in a
 * record ignore what it held. Dictionaries move records by copying their bytes, so no operation may
 * keep the address of a record. A null `release` means that the type owns nothing. Scalars come
 * first and the list types are adjacent: their numbers are compared, also in applications. */
#include "veklib/vekvalue.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekdict.h"
#include "veklib/vekmemory.h"
#include "veklib/vekstrfuncs.h"
#include "veklib/vekstrfuncs_internal.h"
#include "veklib/vekvalue_internal.h"

#include <cstring>
#include <type_traits>

#include "veklib/vekassert_internal.h"

namespace {

/* ---- The operations of the types ---- */

/* An integer is at the beginning of its word in either byte order. The other bytes may hold
 * anything. */
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

/** The operations of lists whose elements these functions release, compare and copy. They are null
 *  for elements that are plain words. */
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

    /** Copies the list and all its elements; null if any of them cannot be copied. */
    static void *dup(void *payload)
    {
        auto *const list = static_cast<VekSList *>(payload);
        VekSList *const result = vek_slist_dup(list, copy);
        // Types are compared because GCC 11 warns when functions are.
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

/* ---- The table of the types ---- */

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
    vekvalue->vt = nullptr; // before the release: a destroy function may look at the record
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
    void *const payload = src->payload.pointer;
    if (vek_value_is_scalar(src->vt->type)) {
        dest->payload = src->payload;
        return 1;
    }
    dest->payload.pointer = payload != nullptr ? src->vt->dup(payload) : nullptr;
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
