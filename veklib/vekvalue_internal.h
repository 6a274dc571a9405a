/* SPDX-License-Identifier: MIT */
/* What the sources of values share with each other and with the dictionaries, which fill in records
 * and recognise their types without a call.
 *
 * The `vt` of a record is null (an empty record) or the address of its type's row in
 * vek_value_types. Types are compared by that address. Code outside the family changes records only
 * with the functions below and the public ones. */
#ifndef VEKLIB_VEKVALUE_INTERNAL_H
#define VEKLIB_VEKVALUE_INTERNAL_H

#include "veklib/vekcompiler_internal.h"
#include "veklib/vekvalue.h"

/** The operations of each type, by its number. Declared as hidden, so that its address needs no
 *  look-up in the global offset table. */
extern constinit VEK_HIDDEN const VekValueVtable vek_value_types[VEK_VALUE_MAX];

/** Whether a type holds a number, which is copied and read as such; all other types hold a
 *  pointer. */
inline bool vek_value_is_scalar(VekValueType type)
{
    return type <= VEK_VALUE_DOUBLE;
}

/** Whether a record is a value of `type`. */
inline bool vek_value_is(const VekValue *record, VekValueType type)
{
    return record->vt == &vek_value_types[type];
}

/** The type of a record. Calls vek_value_get_type(), which warns, only if the record is empty.
 *  Force-inlined: a frame without a name would stand in fatal reports. */
[[gnu::always_inline]] inline VekValueType vek_value_type_of(const VekValue *record)
{
    return record->vt != nullptr ? record->vt->type : vek_value_get_type(record);
}

/* What the public getter of a type returns. The getter itself is called only if the record is of
 * another type, so that it warns. Force-inlined, as above. */

[[gnu::always_inline]] inline int32_t vek_value_int_of(const VekValue *record)
{
    return vek_value_is(record, VEK_VALUE_INT) ? record->payload.integer
                                               : vek_value_get_int(record);
}

[[gnu::always_inline]] inline double vek_value_double_of(const VekValue *record)
{
    return vek_value_is(record, VEK_VALUE_DOUBLE) ? record->payload.real
                                                  : vek_value_get_double(record);
}

[[gnu::always_inline]] inline VekStr *vek_value_vekstr_of(const VekValue *record)
{
    return vek_value_is(record, VEK_VALUE_VEKSTR) ? record->payload.vekstr
                                                  : vek_value_get_vekstr(record);
}

[[gnu::always_inline]] inline void *vek_value_pointer_of(const VekValue *record)
{
    return vek_value_is(record, VEK_VALUE_POINTER) ? record->payload.pointer
                                                   : vek_value_get_pointer(record);
}

/** Makes a record a value of `type` that holds `payload`. */
inline void vek_value_become(VekValue *record, VekValueType type, void *payload)
{
    record->vt = &vek_value_types[type];
    record->payload.pointer = payload;
}

/** Makes a record a value that holds an integer. */
inline void vek_value_become_int(VekValue *record, int32_t number)
{
    vek_value_become(record, VEK_VALUE_INT, nullptr);
    record->payload.integer = number;
}

/** Whether a record is of a type that has something to release. */
inline bool vek_value_owns(const VekValue *record)
{
    return record->vt != nullptr && record->vt->release != nullptr;
}

/** Releases a record as vek_value_release() does, but without the call if it owns nothing. */
inline void vek_value_clear(VekValue *record)
{
    if (vek_value_owns(record)) {
        vek_value_release(record);
    } else {
        record->vt = nullptr;
    }
}

#endif
