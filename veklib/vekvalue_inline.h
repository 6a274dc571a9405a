/* SPDX-License-Identifier: MIT */
/** @file vekvalue_inline.h
 *  Conveniences for values. They are compiled into the application and use only public functions
 *  and fields. vekvalue.h includes this header.
 */
#ifndef VEKLIB_VEKVALUE_INLINE_H
#define VEKLIB_VEKVALUE_INLINE_H

#include <veklib/vekdiag.h>
#include <veklib/vekvalue.h>

VEK_BEGIN_INLINE

/** Takes a list of any of the four list types, for callers that have the type as a number. It does
 *  the work of vek_value_take_slist_of_int(), _str(), _ptr() or _value().
 *  @param vekvalue  the record; what it held is not released
 *  @param type      VEK_VALUE_SLIST_OF_INT, _STRING, _POINTER or _VALUE
 *  @param value     the list; on success it is taken, and its elements if the type owns them; may
 *                   be null
 *  Fails: null record, or another type -> nothing written or taken, with a warning
 */
static inline void vek_value_take_slist(VekValue *vekvalue, VekValueType type, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);
    VEK_RETURN_IF_FAIL(type >= VEK_VALUE_SLIST_OF_INT && type <= VEK_VALUE_SLIST_OF_VALUE);

    vek_value_init(vekvalue, type);
    vekvalue->payload.slist = value;
}

VEK_END_INLINE

#endif
