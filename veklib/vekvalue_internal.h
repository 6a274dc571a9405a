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

#endif
