/* SPDX-License-Identifier: MIT */
/** @file vekhash.h
 *  A hash table from untyped keys to untyped values. Entries are in chains, each of which begins in
 *  a slot; the number of slots is a power of two that doubles and halves with the number of
 *  entries. The table stores the pointers that it is given and copies nothing. It owns its keys if
 *  it has a destroy function for keys, and its values if it has one for values.
 *
 *      VekHash *names = vek_hash_new_full(vek_hash_int_hash_func, vek_hash_int_equal_func,
 *                                         NULL, vek_free);
 *      vek_hash_insert(names, VEK_INT_TO_POINTER(7), vek_strdup("seven"));
 *      const char *text = vek_hash_lookup(names, VEK_INT_TO_POINTER(7));
 *      vek_hash_destroy(names);
 *
 *  If a table has the library's own functions for integers or for strings, vek_hash_lookup(),
 *  vek_hash_insert() and vek_hash_remove() search it without calls through pointers.
 *
 *  Functions that can fail return 1 or an object for success, and 0 or null for failure. In two
 *  headers 0 is success: the functions of vekdebug.h return a status, those of vekthread.h an error
 *  number.
 *
 *  The lowest bits of a key's hash choose its slot. A table doubles when an insertion leaves more
 *  than 8 entries per slot, or when the new entry joins a chain that already has at least a third
 *  as many entries as the table has slots. It halves when a removal leaves fewer entries than
 *  slots, but never below 8 slots. If many hashes agree in their lowest bits, these rules work
 *  against each other. Integer keys such as page addresses, `id << 12` or network addresses in
 *  network byte order share few slots: insertions double the table, and removals halve it again.
 *  With 10,000 multiples of 4096 a removal and an insertion take some 110 us, with 10,000
 *  consecutive numbers 0.08 us. For such keys pass vek_hash_pointer_hash_func() of
 *  vekhash_inline.h, which mixes all bits.
 *
 *  None of these hash functions is secret: whoever chooses the keys can make them share a slot.
 *  Limit the number of keys that come from outside.
 *
 *  Threads: a table is used by one thread at a time, look-ups included. The callback of a walk and
 *  a destroy function must not insert into or remove from the table. The body of a
 *  VEK_HASH_FOREACH() loop may remove the current entry. A destroy function may look keys up: a key
 *  that is being replaced has its new value; one that is being removed, or released with its table,
 *  has none.
 */
#ifndef VEKLIB_VEKHASH_H
#define VEKLIB_VEKHASH_H

#include <stdint.h>

#include <veklib/vekcallbacks.h>
#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** Returns the hash of a key; equal keys have equal hashes. */
typedef uint32_t (*VekHashFunc)(const void *key);

/** Receives one entry and the caller's data; a nonzero result stops the walk. */
typedef int (*VekHashForeachFunc)(void *key, void *value, void *user_data);

/** One entry. */
typedef struct VekHashEntry VekHashEntry;
struct VekHashEntry {
    void *key;          /**< the key as inserted */
    void *value;        /**< the value as inserted */
    VekHashEntry *next; /**< the next entry of the same chain, or null */
};

/** A hash table. The fields are for reading; the functions below change them. */
typedef struct VekHash {
    VekHashEntry **table;              /**< the slots: each is the head of a chain, or null */
    uint32_t table_size;               /**< number of slots: 8 times a power of two */
    uint32_t entry_count;              /**< number of entries */
    VekHashFunc hash_func;             /**< never null; a rehash calls it again for each entry */
    VekEqualFunc equal_func;           /**< never null; receives the stored key first */
    VekDestroyFunc key_destroy_func;   /**< releases a key that leaves the table; may be null */
    VekDestroyFunc value_destroy_func; /**< releases a value that leaves the table; may be null */
} VekHash;

/* ---- Create and release ---- */

/** Releases a table and its entries, and releases the keys and values with the destroy functions.
 *  @param hash  the table, taken; must not be null, unlike the argument of vek_free(),
 *               vek_str_unref() and vek_dict_destroy()
 *  Fails: null `hash` -> nothing done, with a warning
 */
VEK_API void vek_hash_destroy(VekHash *hash);

/** Makes an empty table of 8 slots.
 *  @param hash_func           hashes a key; the lowest bits choose the slot, so they should vary
 *  @param equal_func          compares a stored key with the one that is searched for
 *  @param key_destroy_func    releases a key; may be null: the keys stay the caller's
 *  @param value_destroy_func  releases a value; may be null: the values stay the caller's
 *  @return  the table; release it with vek_hash_destroy()
 *  Fails:   no memory -> null; null `hash_func` or null `equal_func` -> null, with a warning
 */
VEK_API VEK_MUST_USE VEK_RELEASED_WITH(vek_hash_destroy)
VekHash *vek_hash_new_full(VekHashFunc hash_func, VekEqualFunc equal_func,
                           VekDestroyFunc key_destroy_func, VekDestroyFunc value_destroy_func);

/** Makes an empty table whose keys are integers carried in the pointers. It owns neither its keys
 *  nor its values.
 *  @return  the table; release it with vek_hash_destroy()
 *  Fails:   no memory -> null
 */
VEK_API VEK_MUST_USE VEK_RELEASED_WITH(vek_hash_destroy)
VekHash *vek_hash_new(void);

/* ---- Change ---- */

/** Stores a value under a key. If the key is present, the new key and value replace the stored
 *  ones, which the destroy functions then release. So never pass the stored key or value itself to
 *  a table that has a destroy function for it.
 *  @param hash   the table
 *  @param key    the key; may be null if the table's functions accept it (the integer 0 is null).
 *                Taken on success if the table owns its keys, else borrowed while it is stored
 *  @param value  the value; may be null. Taken on success if the table owns its values, else
 *                borrowed while it is stored
 *  @return  1, even if the table is due to double and there is no memory for the slots. It then
 *           carries on with longer chains and warns, now and at every further insertion at which it
 *           is due to double. Where warnings are fatal, this one ends the process although the
 *           entry is stored
 *  Fails:   no memory for the entry -> 0; null `hash` or a table without slots -> 0, with a
 *           warning. The table is unchanged; key and value stay the caller's
 */
VEK_API int vek_hash_insert(VekHash *hash, void *key, void *value);

/** Removes an entry and releases its key and value with the destroy functions.
 *  @param hash  the table
 *  @param key   the key to search for; borrowed; may be the stored key itself
 *  @return  1 when an entry was removed, 0 when the key is absent. If the table is due to halve and
 *           there is no memory for the slots, it warns and returns 1
 *  Fails:   null `hash` or a table without slots -> 0, with a warning
 */
VEK_API int vek_hash_remove(VekHash *hash, const void *key);

/* ---- Read and walk ---- */

/** Finds the value of a key.
 *  @param hash  the table
 *  @param key   the key to search for; borrowed
 *  @return  the value, borrowed; null when the key is absent (or its value is null)
 *  Fails:   null `hash` or a table without slots -> null, with a warning
 */
VEK_API void *vek_hash_lookup(const VekHash *hash, const void *key);

/** Calls a function for each entry, slot by slot, until it returns nonzero.
 *  @param hash       the table
 *  @param func       the function
 *  @param user_data  passed to the function; may be null; borrowed
 *  Fails: null `hash` or null `func` -> nothing called, with a warning
 */
VEK_API void vek_hash_foreach(VekHash *hash, VekHashForeachFunc func, void *user_data);

/* ---- Integer keys ---- */

/** Hashes an integer carried in a pointer. The hash of a signed 32-bit integer is the integer
 *  itself. The upper half of a 64-bit pointer is folded into the lower one. */
VEK_API uint32_t vek_hash_int_hash_func(const void *key);

/** Returns 1 when two integers carried in pointers are equal, else 0. */
VEK_API int vek_hash_int_equal_func(const void *a, const void *b);

/* ---- String keys ---- */

/** Hashes a NUL-terminated string with Jenkins' lookup2 over its bytes; the result is the same on
 *  every platform. Its highest bit is clear, except in the one result 0x80000000. The hash of a
 *  null key is 0. */
VEK_API uint32_t vek_hash_string_hash_func(const void *key);

/** Returns 1 when two NUL-terminated strings are equal, else 0. A null key equals only null. */
VEK_API int vek_hash_string_equal_func(const void *a, const void *b);

/* ---- Diagnostics ---- */

/** Prints the chains to standard output, one line per slot: "Bucket; ", the slot's number, a tab,
 *  and for each entry its address and a tab. The output is not flushed.
 *  Fails: null `hash` -> nothing printed, with a warning
 */
VEK_API void _vek_hash_dump(const VekHash *hash);

VEK_END_DECLS

#include <veklib/vekhash_inline.h>

#endif
