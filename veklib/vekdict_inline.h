/* SPDX-License-Identifier: MIT */
/** @file vekdict_inline.h
 *  What the conveniences of the typed dictionaries share: functions that read the record that a
 *  search returned, or give a fallback. vekdict.h includes this header.
 */
#ifndef VEKLIB_VEKDICT_INLINE_H
#define VEKLIB_VEKDICT_INLINE_H

#include <veklib/vekdict.h>

VEK_BEGIN_INLINE

/* ---- A datum, or a fallback: only for vek_str_dict_get_int_or() and similar functions ----
 *
 * @param datum  the record that a search returned; null for an absent key
 * @return       what the record holds, or `fallback` for a null record
 *
 * Fails: a datum of another type, or an empty record -> `fallback`, with a warning that names the
 * vek_value_get_ function of the wanted type. */

/** Returns 1 when a record is a value of a type, else 0; an empty record gives no warning. */
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

VEK_END_INLINE

#endif
