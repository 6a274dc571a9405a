/* SPDX-License-Identifier: MIT */
/** @file veknamedict.h
 *  Typed dictionaries with names as keys. The functions of vekdict.h release, copy, walk, print
 *  and count them.
 *
 *      VekDict *states = vek_name_dict_create(8);
 *      vek_name_dict_put_int(states, eth0, 1);
 *      int32_t state = vek_name_dict_get_int(states, eth0);
 *      vek_dict_destroy(states);
 *
 *  Threads: a dictionary is used by one thread at a time.
 */
#ifndef VEKLIB_VEKNAMEDICT_H
#define VEKLIB_VEKNAMEDICT_H

#include <stdint.h>

#include <veklib/vekdiag.h>
#include <veklib/vekdict.h>

VEK_BEGIN_DECLS

/** Makes an empty dictionary.
 *  @param init_count  number of items to expect, above 0; the first segment has that many slots
 *  @return  the dictionary, with one reference for the caller; release it with vek_dict_destroy()
 *  Fails:   no memory -> null; `init_count` not above 0 -> null, with a warning
 */
VEK_API VEK_NEW VekDict *vek_name_dict_create(int init_count);

/** Makes an empty dictionary with a destroy function.
 *  @param init_count    number of items to expect, above 0; the first segment has that many slots
 *  @param destroy_func  see _vek_dict_create_full(); may be null
 *  @param user_data     passed to destroy_func; may be null; borrowed for the dictionary's life
 *  @return  the dictionary, with one reference for the caller; release it with vek_dict_destroy()
 *  Fails:   no memory -> null; `init_count` not above 0 -> null, with a warning
 */
VEK_API VEK_MUST_USE VekDict *
vek_name_dict_create_full(int init_count, VekDictForeachFunc destroy_func, void *user_data);

/* ---- put: store a datum under a key ----
 *
 * @param key   the key, which may be null. Names are equal when they are the same pointer. The
 *              name's table owns it, and must live as long as the dictionary
 * @return      1 on success. If an equal key is stored, its item keeps its slot and gets the new
 *              datum, and the old datum is released
 *
 * Fails: no memory -> 0; null dictionary, or one with keys of another type -> 0, with a warning.
 * A stored key that was emptied from outside gives 0, as with _vek_dict_put_value(). The dictionary
 * is unchanged and the datum stays the caller's. */

/** Stores a VekStr, which may be null. On success the dictionary takes the caller's reference. */
VEK_API int vek_name_dict_put_vekstr(VekDict *vekdict_ptr, VekName *key, VekStr *value);
/** Stores a new VekStr with a copy of a text. A null text gives 0, without a warning. */
VEK_API int vek_name_dict_dup_and_put_string(VekDict *vekdict_ptr, VekName *key, const char *value);
/** Stores an integer. */
VEK_API int vek_name_dict_put_int(VekDict *vekdict_ptr, VekName *key, int32_t value);
/** Stores a number. */
VEK_API int vek_name_dict_put_double(VekDict *vekdict_ptr, VekName *key, double value);
/** Stores a pointer. The dictionary never releases what it points to. */
VEK_API int vek_name_dict_put_persistent_pointer(VekDict *vekdict_ptr, VekName *key, void *value);
/** Stores a value of any type. On success its record is taken and zero-filled. A null record gives
 *  0, with a warning that names _vek_dict_put_value; for an empty record see that function. The
 *  record must not be one of the dictionary's own. */
VEK_API int vek_name_dict_put_value(VekDict *vekdict_ptr, VekName *key, VekValue *value);

/* ---- get: the datum of a key ----
 *
 * @return      the datum, borrowed: valid until it is replaced, or the dictionary is emptied (see
 *              vek_dict_clear(), vek_dict_dup_and_clear()) or released. An absent key gives null or
 *              0, as does a stored null or 0; vek_name_dict_key_exists() distinguishes the two
 *
 * Fails: null dictionary, or one with keys of another type -> null or 0, with a warning; a datum of
 * a type other than the function's -> null or 0, with a warning that names the vek_value_get_
 * function of the wanted type. A stored key that was emptied from outside gives null or 0, as with
 * _vek_dict_get_value(). */

/** Returns the record of a datum of any type. */
VEK_API VekValue *vek_name_dict_get_value(const VekDict *vekdict_ptr, VekName *key);
/** Returns a pointer datum. */
VEK_API void *vek_name_dict_get_pointer(const VekDict *vekdict_ptr, VekName *key);
/** Returns a VekStr datum; to keep it, add a reference with vek_str_ref(). */
VEK_API VekStr *vek_name_dict_get_vekstr(const VekDict *vekdict_ptr, VekName *key);
/** Returns the text of a VekStr datum (not of a datum of type VEK_VALUE_STRING). */
VEK_API const char *vek_name_dict_get_string(const VekDict *vekdict_ptr, VekName *key);
/** Returns an integer datum. */
VEK_API int32_t vek_name_dict_get_int(const VekDict *dict, VekName *key);
/** Returns a number datum. */
VEK_API double vek_name_dict_get_double(const VekDict *dict, VekName *key);
/** Returns 1 when the key is stored, else 0. */
VEK_API int vek_name_dict_key_exists(const VekDict *dict, VekName *key);

VEK_END_DECLS

#include <veklib/veknamedict_inline.h>

#endif
