/* SPDX-License-Identifier: MIT */
/** @file vekvalue_inline.h
 *  Conveniences for values, compiled into the code that calls them: they use public functions and
 *  fields alone. vekvalue.h includes this header.
 */
#ifndef VEKLIB_VEKVALUE_INLINE_H
#define VEKLIB_VEKVALUE_INLINE_H

#include <veklib/vekdiag.h>
#include <veklib/vekvalue.h>

VEK_BEGIN_DECLS

/** Makes a record a value of one of the four list types that adopts a list, for callers that know
 *  the type as a number: vek_value_take_slist_of_int() and its kin in one.
 *  @param vekvalue  the record; what it held is not released
 *  @param type      VEK_VALUE_SLIST_OF_INT, _STRING, _POINTER or _VALUE
 *  @param value     the list, taken on success, its elements as far as the type owns them; may be
 *                   null
 *  Fails: null record, or another type -> nothing written or taken, with a warning
 */
static inline void vek_value_take_slist(VekValue *vekvalue, VekValueType type, VekSList *value)
{
    VEK_RETURN_IF_FAIL(vekvalue != NULL);
    VEK_RETURN_IF_FAIL(type >= VEK_VALUE_SLIST_OF_INT && type <= VEK_VALUE_SLIST_OF_VALUE);

    vek_value_init(vekvalue, type);
    vekvalue->payload.slist = value;
}

VEK_END_DECLS

#endif
