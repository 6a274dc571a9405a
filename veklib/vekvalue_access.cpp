/* SPDX-License-Identifier: MIT */
/* Values: access to the datum of a record by its type, with the header's five verbs.
 *
 * `set` and `take` write the record and never read what it held. The others read: they refuse an
 * empty record (null `vt`) like a record of another type, and those for lists also give the
 * warnings of their type queries. A refusal changes nothing. Of the functions that read, only
 * `steal` changes the payload; it leaves the type. The names of parameters are printed by the
 * checks. */
#include "veklib/vekvalue.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekdict.h"
#include "veklib/vekstrfuncs.h"
#include "veklib/vekvalue_internal.h"

/* The printed text is interface. It is not the condition that is evaluated, because that would
 * dereference the null vt of an empty record. */
#define RETURN_VAL_UNLESS_TYPE(record, expected, failure)                                          \
    do {                                                                                           \
        if (!vek_value_is(record, expected)) {                                                     \
            vek_failed_check(#record "->vt->type == " #expected, __LINE__, __func__);              \
            return failure;                                                                        \
        }                                                                                          \
    } while (0)

namespace {

/** VEK_VALUE_IS_SLIST() without its calls. A record that fails is tested by the macro as well,
 *  because its warnings are interface: an empty record gives four. */
bool is_list(const VekValue *record)
{
    return record->vt != nullptr && record->vt->type >= VEK_VALUE_SLIST_OF_INT &&
           record->vt->type <= VEK_VALUE_SLIST_OF_VALUE;
}

/** Copies a list, with its elements as its type copies them; null for the empty list. */
void *dup_list(VekValueType type, VekSList *list)
{
    return vek_value_types[type].dup(list);
}

} // namespace

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

    vek_value_become(vekvalue, VEK_VALUE_VEKSTR, vek_str_ref(value));
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

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_INT, vek_slist_dup(value, nullptr));
}

void vek_value_set_slist_of_str(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_STRING,
                     dup_list(VEK_VALUE_SLIST_OF_STRING, value));
}

void vek_value_set_slist_of_ptr(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_POINTER, vek_slist_dup(value, nullptr));
}

void vek_value_set_slist_of_value(VekValue *vekvalue, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);

    vek_value_become(vekvalue, VEK_VALUE_SLIST_OF_VALUE, dup_list(VEK_VALUE_SLIST_OF_VALUE, value));
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
    if (!is_list(vekvalue)) {
        VEK_RETURN_VAL_IF_FAIL(VEK_VALUE_IS_SLIST(vekvalue), nullptr);
    }

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
    if (!is_list(vekvalue)) {
        VEK_RETURN_VAL_IF_FAIL(VEK_VALUE_IS_SLIST(vekvalue), nullptr);
    }

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
