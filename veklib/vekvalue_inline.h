/* SPDX-License-Identifier: MIT */
/** @file vekvalue_inline.h
 *  Conveniences of values. Included by vekvalue.h.
 */
#ifndef VEKLIB_VEKVALUE_INLINE_H
#define VEKLIB_VEKVALUE_INLINE_H

#include <veklib/vekvalue.h>

/** Adopts a list of one of the four list types. */
static inline void vek_value_take_slist(VekValue *vekvalue, VekValueType type, VekSList *value)
{
    vek_value_init(vekvalue, type);
    vekvalue->payload.slist = value;
}

#endif
