/* SPDX-License-Identifier: MIT */
/* The types of values, for families that recognise one by its address. */
#ifndef VEKLIB_VEKVALUE_INTERNAL_H
#define VEKLIB_VEKVALUE_INTERNAL_H

#include "veklib/vekvalue.h"

/** The operations of each type, by its number: a value's `vt` points to one of them. Hidden already
 * where it is declared, so that its address needs no look-up in the offset table. */
extern constinit __attribute__((visibility("hidden")))
const VekValueVtable vek_value_types[VEK_VALUE_MAX];

/** Whether a record is a value of `type`. */
inline bool vek_value_is(const VekValue *record, VekValueType type)
{
    return record->vt == &vek_value_types[type];
}

/** Makes a record a value of `type` that holds `payload`. */
inline void vek_value_become(VekValue *record, VekValueType type, void *payload)
{
    record->vt = &vek_value_types[type];
    record->payload.pointer = payload;
}

/** Makes a record the value of an integer. */
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

/** vek_value_release() of a record, without the call where it owns nothing. */
inline void vek_value_let_go(VekValue *record)
{
    if (vek_value_owns(record)) {
        vek_value_release(record);
    } else {
        record->vt = nullptr;
    }
}

#endif
