/* SPDX-License-Identifier: MIT */
/** @file veknamedict_inline.h
 *  Conveniences for name dictionaries: reading with a fallback, nested dictionaries and lists.
 *  veknamedict.h includes this header.
 *
 *      int32_t speed = vek_name_dict_get_int_or(port, speed_name, 1000);
 *      if (!vek_name_dict_put_dict(ports, eth0, port)) {
 *          vek_dict_destroy(port);
 *      }
 */
#ifndef VEKLIB_VEKNAMEDICT_INLINE_H
#define VEKLIB_VEKNAMEDICT_INLINE_H

#include <veklib/veknamedict.h>

VEK_BEGIN_INLINE

/* ---- get_or: the datum of a key, or a fallback ----
 *
 * @param fallback  the result for an absent key; a text may be null
 * @return          the datum; a text is borrowed as from vek_name_dict_get_string()
 *
 * Fails: null dictionary, or one with keys of another type -> `fallback`, with a warning that names
 * vek_name_dict_get_value; a datum of a type other than the function's -> `fallback`, with a
 * warning that names the vek_value_get_ function of the wanted type. */

/** Returns an integer datum, or `fallback`. */
static inline int32_t vek_name_dict_get_int_or(const VekDict *dict, VekName *key, int32_t fallback)
{
    return _vek_dict_int_or(vek_name_dict_get_value(dict, key), fallback);
}

/** Returns a number datum, or `fallback`. */
static inline double vek_name_dict_get_double_or(const VekDict *dict, VekName *key, double fallback)
{
    return _vek_dict_double_or(vek_name_dict_get_value(dict, key), fallback);
}

/** Returns the text of a VekStr datum, or `fallback`; null for a datum that holds null. */
static inline const char *vek_name_dict_get_string_or(const VekDict *dict, VekName *key,
                                                      const char *fallback)
{
    return _vek_dict_string_or(vek_name_dict_get_value(dict, key), fallback);
}

/* ---- Nested dictionaries and lists ----
 *
 * They behave like the functions of veknamedict.h: a put that fails returns 0, and the datum stays
 * the caller's; what a get returns is borrowed. Warnings about the dictionary name
 * vek_name_dict_put_value or vek_name_dict_get_value. */

/** Stores a dictionary, which may be null. On success `dict` takes the caller's reference. */
static inline int vek_name_dict_put_dict(VekDict *dict, VekName *key, VekDict *value)
{
    VekValue datum;
    vek_value_take_dict(&datum, value);
    return vek_name_dict_put_value(dict, key, &datum);
}

/** Returns a dictionary datum; to keep it, add a reference with vek_dict_ref(). */
static inline VekDict *vek_name_dict_get_dict(const VekDict *dict, VekName *key)
{
    const VekValue *const datum = vek_name_dict_get_value(dict, key);
    return datum != NULL ? vek_value_get_dict(datum) : NULL;
}

/** Stores a list.
 *  @param list_type  one of the four list types, VEK_VALUE_SLIST_OF_INT to VEK_VALUE_SLIST_OF_VALUE
 *  @param value      the list, which may be null; taken on success, as by
 *                    vek_value_take_slist_of_int(), _str(), _ptr() or _value(). It must not share
 *                    nodes with the list that is stored under the key, which is released
 *  Fails:            as for every put; a type that is not a list type -> 0, with a warning
 */
static inline int vek_name_dict_put_slist(VekDict *dict, VekName *key, VekValueType list_type,
                                          VekSList *value)
{
    VEK_RETURN_VAL_IF_FAIL(list_type >= VEK_VALUE_SLIST_OF_INT, 0);
    VEK_RETURN_VAL_IF_FAIL(list_type <= VEK_VALUE_SLIST_OF_VALUE, 0);

    VekValue datum;
    vek_value_take_slist(&datum, list_type, value);
    return vek_name_dict_put_value(dict, key, &datum);
}

/** Returns a list datum, of any of the four types. To change the list, change it through the record
 *  of vek_name_dict_get_value(), as vekvalue.h says. An empty record gives five warnings. */
static inline VekSList *vek_name_dict_get_slist(const VekDict *dict, VekName *key)
{
    const VekValue *const datum = vek_name_dict_get_value(dict, key);
    return datum != NULL ? vek_value_get_slist(datum) : NULL;
}

VEK_END_INLINE

#endif
