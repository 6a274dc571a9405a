/* SPDX-License-Identifier: MIT */
/** @file vekdict.h
 *  Dictionaries: small reference-counted maps from value records to value records. An item is found
 *  by a linear search in the order of insertion. Items never move and cannot be removed one by one.
 *  The dictionary owns its keys and data.
 *
 *  Most applications use the typed dictionaries, whose keys are plain strings, integers or names:
 *  vekstrdict.h, vekintdict.h, veknamedict.h.
 *
 *      VekDict *settings = vek_str_dict_create(8);
 *      vek_str_dict_put_int(settings, "port", 80);
 *      vek_dict_print(settings);
 *      vek_dict_destroy(settings);
 *
 *  Nested dictionaries are released by recursion: a stack of 64 KB was enough for some 600 levels,
 *  and one of 8 MB for 80,000 (x86-64, optimised; for lists see vekvalue.h). An application that
 *  builds dictionaries from data that comes from outside must limit their depth. It must also limit
 *  their size, because storing a new key searches all items. A dictionary that holds itself is
 *  never released.
 *
 *  Threads: a dictionary is used by one thread at a time, through whichever reference.
 */
#ifndef VEKLIB_VEKDICT_H
#define VEKLIB_VEKDICT_H

#include <stddef.h>
#include <stdint.h>

#include <veklib/vekvalue.h>

VEK_BEGIN_DECLS

/** Receives the records of an item and the caller's data; a nonzero result stops the walk. The
 *  dictionary owns the records: the function may change the datum in place, but not the key. It may
 *  put items, but must not release the dictionary, nor empty it with vek_dict_clear() or
 *  vek_dict_dup_and_clear(). */
typedef int (*VekDictForeachFunc)(VekValue *key, VekValue *data, void *user_data);

/** One item. */
typedef struct VekDictItem {
    VekValue key;  /**< never empty in an item in use */
    VekValue data; /**< the datum */
} VekDictItem;

/** An array of items. Segments fill up one after another; free slots are zero-filled. */
typedef struct VekDictSegment VekDictSegment;
struct VekDictSegment {
    int32_t count;        /**< number of slots */
    VekDictSegment *next; /**< the next segment, or null */
    VekDictItem items[1]; /**< the slots, as many as `count` says */
};

/** A dictionary. The fields are for reading. */
struct VekDict {
    int32_t len;                     /**< number of items */
    int32_t ref_count;               /**< number of references */
    VekValueType key_type;           /**< declared type of the keys; typed dictionaries check it */
    VekDictForeachFunc destroy_func; /**< called for the items at the last release, or null */
    void *user_data;                 /**< passed to destroy_func */
    VekDictSegment first_seg;        /**< the first segment, part of this block */
};

/* ---- Create and release ----
 *
 * A dictionary may be used after vek_dict_destroy() as long as there are other references. So no
 * function here has the attribute VEK_RELEASED_WITH(): GCC would warn about correct programs. */

/** Makes an empty dictionary.
 *  @param init_count    number of items to expect, above 0; the first segment has that many slots
 *  @param key_type      declared type of the keys, which only the typed dictionaries check
 *  @param destroy_func  called for each item when the last reference is released, before the items
 *                       are released; a nonzero result ends these calls; may be null
 *  @param user_data     passed to destroy_func; may be null; borrowed for the dictionary's life
 *  @return  the dictionary, with one reference for the caller; release it with vek_dict_destroy()
 *  Fails:   no memory -> null; `init_count` not above 0 -> null, with a warning
 */
VEK_API VEK_MUST_USE VekDict *_vek_dict_create_full(int init_count, VekValueType key_type,
                                                    VekDictForeachFunc destroy_func,
                                                    void *user_data);

/** Makes an empty dictionary without a destroy function.
 *  @param init_count  number of items to expect, above 0; the first segment has that many slots
 *  @param key_type    declared type of the keys, which only the typed dictionaries check
 *  @return  the dictionary, with one reference for the caller; release it with vek_dict_destroy()
 *  Fails:   as _vek_dict_create_full(), which the warning names
 */
VEK_API VEK_NEW VekDict *_vek_dict_create(int init_count, VekValueType key_type);

/** Adds a reference.
 *  @param dict  the dictionary; null gives null
 *  @return  the same dictionary; release the reference with vek_dict_destroy()
 *  Fails:   the count is at its limit (INT_MAX) -> null, with a warning; the count is unchanged
 */
VEK_API VekDict *vek_dict_ref(VekDict *dict);

/** Releases a reference. If it is the last one, calls the destroy function for the items, and then
 *  releases all keys and data and the dictionary itself.
 *  @param dict  the dictionary, whose reference is taken; null does nothing
 */
VEK_API void vek_dict_destroy(VekDict *dict);

/** Copies a dictionary, and its keys and data with vek_value_copy(). The copy has all items in its
 *  first segment, and no destroy function.
 *  @param orig_dict_ptr  the dictionary; borrowed
 *  @param init_count     number of slots of the copy's first segment, above 0; if there are more
 *                        items, it gets a slot for each
 *  @return  the copy, with one reference for the caller; release it with vek_dict_destroy()
 *  Fails:   no memory, or a key or datum that cannot be copied -> null (with a warning if it is
 *           empty); null dictionary or `init_count` not above 0 -> null, with a warning
 */
VEK_API VEK_MUST_USE VekDict *vek_dict_copy(const VekDict *orig_dict_ptr, int init_count);

/** Moves all items into a new dictionary, which has no destroy function. The old one is then empty.
 *  It keeps its references and its destroy function, which is not called.
 *  @param orig_dict_ptr  the old dictionary; borrowed
 *  @return  the new dictionary, with one reference for the caller; release it with
 *           vek_dict_destroy()
 *  Fails:   no memory -> null; null dictionary -> null, with a warning; empty dictionary -> null,
 *           with a warning that names _vek_dict_create_full. The old dictionary is unchanged
 */
VEK_API VEK_MUST_USE VekDict *vek_dict_dup_and_clear(VekDict *orig_dict_ptr);

/* ---- Read ---- */

/** Returns the declared type of the keys.
 *  Fails: null `vekdict` -> VEK_VALUE_INVALID, with a warning
 */
VEK_API VekValueType vek_dict_get_key_type(const VekDict *vekdict);

/** Returns the number of items.
 *  Fails: null `vekdict` -> 0, with a warning
 */
VEK_API int vek_dict_get_len(const VekDict *vekdict);

/** Finds the datum of a key; keys of different types never match.
 *  @param vekdict_ptr  the dictionary
 *  @param key          the key; borrowed
 *  @return  the datum's record, borrowed: valid until the dictionary is released, or emptied by
 *           vek_dict_clear() or vek_dict_dup_and_clear() (storing under the same key changes what
 *           it holds); null when the key is absent
 *  Fails:   null dictionary, null or empty key, or a stored key that has become empty -> null,
 *           with a warning
 */
VEK_API VekValue *_vek_dict_get_value(const VekDict *vekdict_ptr, const VekValue *key);

/* ---- Change ---- */

/** Stores a datum under a key of any type. If the key is present, its item keeps its slot and its
 *  stored key, and gets the new datum. The old datum is released after that, so functions that its
 *  release calls may search the dictionary.
 *  @param vekdict_ptr  the dictionary
 *  @param key          the key's record; taken on success and left empty
 *  @param data         the datum's record, which should not be empty; taken on success and
 *                      zero-filled. An empty one is stored, too: its key is then present, functions
 *                      that read or print the datum warn, and the dictionary cannot be copied
 *  @return  1 on success
 *  Fails:   no memory -> 0; null dictionary, null or empty key, null datum, or a stored key that
 *           has become empty -> 0, with a warning. The records stay the caller's
 */
VEK_API int _vek_dict_put_value(VekDict *vekdict_ptr, VekValue *key, VekValue *data);

/** Releases all items, and all segments but the first. The dictionary keeps its destroy function,
 *  which is not called. Functions that the release of items calls must not change the dictionary.
 *  @param vekdict_ptr  the dictionary
 *  @return  the same dictionary, now empty; no reference is added
 *  Fails:   null dictionary -> null, with a warning
 */
VEK_API VekDict *vek_dict_clear(VekDict *vekdict_ptr);

/* ---- Walk ---- */

/** Calls a function for each item in the order of insertion, including items that the function
 *  puts, until it returns nonzero.
 *  @param vekdict    the dictionary
 *  @param func       the function
 *  @param user_data  passed to the function; may be null; borrowed
 *  Fails:   null dictionary or null function -> nothing called, with a warning
 */
VEK_API void vek_dict_foreach(VekDict *vekdict, VekDictForeachFunc func, void *user_data);

/* ---- Diagnostics ---- */

/** Prints the items to standard output in the order of insertion, one per line: "Key: ", the key's
 *  text, a tab, "Value:", the datum's text. A text that cannot be made is printed as "(nul)".
 *  @param vekdict  the dictionary; borrowed
 *  Fails:   no memory -> nothing printed; null dictionary -> nothing printed, with a warning
 */
VEK_API void vek_dict_print(const VekDict *vekdict);

/** Returns the number of references.
 *  Fails: null `dict` -> -1, with a warning
 */
VEK_API int _vek_dict_get_ref_count(const VekDict *dict);

VEK_END_DECLS

#include <veklib/vekdict_inline.h>

#endif
