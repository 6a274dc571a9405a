/* SPDX-License-Identifier: MIT */
/** @file vekdict_inline.h
 *  What the conveniences of the typed dictionaries share: a record that a search returned is read
 *  with a fallback. Included by vekdict.h.
 */
#ifndef VEKLIB_VEKDICT_INLINE_H
#define VEKLIB_VEKDICT_INLINE_H

#include <veklib/vekdict.h>

VEK_BEGIN_DECLS

/* ---- A datum, or a fallback: meant for vek_str_dict_get_int_or() and its siblings ----
 *
 * @param datum  the record that a search returned; null for an absent key
 * @return       what the record holds, or `fallback` for a null record
 *
 * Fails: another type or an empty record -> `fallback`, with a warning of the vek_value_get_
 * function that reads the type. */

/** True when a record is of a type; false without a warning for an empty one. */
static inline int _vek_dict_datum_is(const VekValue *datum, VekValueType type)
{
    return datum->vt != NULL && datum->vt->type == type;
}

/** Returns an integer. */
static inline int32_t _vek_dict_int_or(const VekValue *datum, int32_t fallback)
{
    if (datum == NULL) {
        return fallback;
    }
    const int32_t number = vek_value_get_int(datum);
    return _vek_dict_datum_is(datum, VEK_VALUE_INT) ? number : fallback;
}

/** Returns a number. */
static inline double _vek_dict_double_or(const VekValue *datum, double fallback)
{
    if (datum == NULL) {
        return fallback;
    }
    const double number = vek_value_get_double(datum);
    return _vek_dict_datum_is(datum, VEK_VALUE_DOUBLE) ? number : fallback;
}

/** Returns the text of a VekStr; null when the record holds null. */
static inline const char *_vek_dict_string_or(const VekValue *datum, const char *fallback)
{
    if (datum == NULL) {
        return fallback;
    }
    const VekStr *const text = vek_value_get_vekstr(datum);
    return _vek_dict_datum_is(datum, VEK_VALUE_VEKSTR) ? vek_str_to_c_str(text) : fallback;
}

VEK_END_DECLS

#endif
