/* SPDX-License-Identifier: MIT */
/** @file vekhash_inline.h
 *  Conveniences for hash tables: a hash function for keys of any pattern, a look-up that returns
 *  the entry, a walk without a callback, and removal of many entries. vekhash.h includes this
 *  header. Everything here is compiled into the application and uses only public functions and
 *  fields.
 *
 *      VekHashEntry *entry;
 *      VEK_HASH_FOREACH (entry, ports) {
 *          if (entry->value == NULL) {
 *              vek_hash_remove(ports, entry->key);
 *          }
 *      }
 */
#ifndef VEKLIB_VEKHASH_INLINE_H
#define VEKLIB_VEKHASH_INLINE_H

#include <stddef.h>
#include <stdint.h>

#include <veklib/vekdiag.h>
#include <veklib/vekhash.h>

VEK_BEGIN_INLINE

/* ---- Keys ---- */

/** Hashes a pointer, or an integer carried in one, so that every bit affects the choice of the
 *  slot. It is meant for keys that agree in their low bits, such as page addresses or `id << 12`.
 *  Pass it together with vek_hash_int_equal_func(). */
static inline uint32_t vek_hash_pointer_hash_func(const void *key)
{
    /* A multiplication carries bits upwards only; the shifts bring them down again. */
    uint64_t bits = (uintptr_t)key;
    bits = (bits ^ bits >> 32) * 0xd6e8feb86659fd93u;
    bits = (bits ^ bits >> 32) * 0xd6e8feb86659fd93u;
    return (uint32_t)(bits ^ bits >> 32);
}

/* ---- Read ---- */

/** Finds the entry of a key. Unlike vek_hash_lookup(), it distinguishes an absent key from one
 *  whose value is null.
 *  @param hash  the table
 *  @param key   the key to search for; borrowed
 *  @return  the entry, borrowed: valid until the key is removed or the table is released; null when
 *           the key is absent. You may change the entry's value, which calls no destroy function,
 *           but not its key
 *  Fails:   null `hash` or a table without slots -> null, with a warning
 */
static inline VekHashEntry *vek_hash_find(const VekHash *hash, const void *key)
{
    VekHashEntry *entry;
    VEK_RETURN_VAL_IF_FAIL(hash != NULL, NULL);
    VEK_RETURN_VAL_IF_FAIL(hash->table_size > 0, NULL);

    entry = hash->table[hash->hash_func(key) & (hash->table_size - 1)];
    while (entry != NULL && !hash->equal_func(entry->key, key)) {
        entry = entry->next;
    }
    return entry;
}

/** Returns the number of entries.
 *  Fails: null `hash` -> 0, with a warning
 */
static inline uint32_t vek_hash_get_count(const VekHash *hash)
{
    VEK_RETURN_VAL_IF_FAIL(hash != NULL, 0);

    return hash->entry_count;
}

/* ---- Walk ---- */

/** Walks over all entries, slot by slot; `break` and `continue` work as in any loop. The body may
 *  remove the current entry with vek_hash_remove(hash, entry->key). Removals may halve the table;
 *  even so, each entry is visited exactly once. The body must not remove any other entry, because
 *  the walk may be about to visit it. Nor should it insert new keys: the walk may then miss entries
 *  or visit them twice. Walks may be nested, each with a variable of its own.
 *  @param entry  a variable of type VekHashEntry *; null after a walk that was not ended by `break`
 *  @param hash   the table, evaluated once
 *  Fails: null `hash` -> the body is not entered, with a warning
 */
#define VEK_HASH_FOREACH(entry, hash)                                                              \
    for (VekHashWalk entry##_walk = _vek_hash_walk_begin(hash);                                    \
         ((entry) = _vek_hash_walk_step(&entry##_walk)) != NULL;)

/* The rest of this group serves only VEK_HASH_FOREACH().
 *
 * The walk visits, one after another, the slots that the table had at the start. When the table is
 * halved, each chain is joined with another. The entries of one of the walk's slots are then
 * scattered over the joined chain, in their old order or in reverse. No visited entry of the slot
 * lies between those that are still to come, so the first and the last of these, the near and the
 * far end, are enough to find them all. Neither end can disappear, because only the current entry
 * may be removed. As long as the table keeps its size, the far end is the end of the chain and need
 * not be known. */

/* Where a walk is. "The slot" is one of the slots that the table had at the start. */
typedef struct VekHashWalk {
    const VekHash *hash;
    VekHashEntry *current; /* the entry that the body has; null before the first */
    VekHashEntry *kept; /* the last entry of the slot that was visited and not removed, or null */
    VekHashEntry *next; /* near end of the slot's entries to come; null: there are none */
    VekHashEntry *last; /* far end; null: the slot's last entry in the chain */
    uint32_t slot;
    uint32_t start_size;  /* number of slots at the start */
    uint32_t table_size;  /* number of slots when the body was last entered */
    uint32_t entry_count; /* number of entries then */
} VekHashWalk;

static inline VekHashWalk _vek_hash_walk_begin(const VekHash *hash)
{
    VekHashWalk walk = {hash, NULL, NULL, NULL, NULL, 0, 0, 0, 0};
    if (hash == NULL) {
        vek_warn_failed_assertion(__FILE__, __LINE__, "VEK_HASH_FOREACH", "hash != NULL");
    } else if (hash->table_size > 0) {
        walk.next = hash->table[0];
        walk.start_size = walk.table_size = hash->table_size;
        walk.entry_count = hash->entry_count;
    }
    return walk;
}

/* Returns the first entry of the slot in a chain, from `entry` on, or null. */
static inline VekHashEntry *_vek_hash_walk_skip(const VekHashWalk *walk, VekHashEntry *entry)
{
    const VekHash *hash = walk->hash;
    if (hash->table_size != walk->start_size) {
        while (entry != NULL &&
               (hash->hash_func(entry->key) & (walk->start_size - 1)) != walk->slot) {
            entry = entry->next;
        }
    }
    return entry;
}

/* Returns the head of the chain that now holds the slot's entries. */
static inline VekHashEntry *_vek_hash_walk_chain_head(const VekHashWalk *walk)
{
    return walk->hash->table[walk->slot & (walk->hash->table_size - 1)];
}

/* After the table was halved, finds both ends of the entries to come. The walk is passed and
 * returned by value, so that a loop can keep it in registers. */
static inline VEK_COLD VekHashWalk _vek_hash_walk_find_again(VekHashWalk walk)
{
    VekHashEntry *const first = _vek_hash_walk_skip(&walk, _vek_hash_walk_chain_head(&walk));
    const VekHashEntry *const mark = walk.last != NULL ? walk.last : walk.kept;
    VekHashEntry *met = NULL; /* the near end or the mark, whichever now comes first */
    VekHashEntry *end = NULL;
    VekHashEntry *entry;

    walk.table_size = walk.hash->table_size;
    if (walk.next == NULL) {
        return walk;
    }
    for (entry = first; entry != NULL; entry = _vek_hash_walk_skip(&walk, entry->next)) {
        if (met == NULL && (entry == walk.next || entry == mark)) {
            met = entry;
        }
        end = entry;
    }
    if (walk.last == NULL && walk.kept == NULL) { /* no visited entry is left in the slot */
        walk.next = first;
        walk.last = end;
    } else if (walk.last == NULL && met == walk.kept) { /* the old order */
        walk.last = end;
    } else if (walk.last == NULL) { /* reversed */
        walk.last = walk.next;
        walk.next = first;
    } else if (met == walk.last) {
        walk.last = walk.next;
        walk.next = met;
    }
    return walk;
}

/* Goes on to the next entry and returns it; null after the last one. */
static inline VekHashEntry *_vek_hash_walk_step(VekHashWalk *walk)
{
    const VekHash *const hash = walk->hash;
    if (walk->current != NULL && hash->entry_count == walk->entry_count) {
        walk->kept = walk->current;
    } else if (walk->current != NULL) {
        walk->entry_count = hash->entry_count;
        if (hash->table_size != walk->table_size) {
            *walk = _vek_hash_walk_find_again(*walk);
        }
    }
    while (walk->next == NULL) {
        if (walk->slot + 1 >= walk->start_size) {
            return NULL;
        }
        ++walk->slot;
        walk->kept = walk->last = NULL;
        walk->next = _vek_hash_walk_skip(walk, _vek_hash_walk_chain_head(walk));
    }
    walk->current = walk->next;
    walk->next =
        walk->current != walk->last ? _vek_hash_walk_skip(walk, walk->current->next) : NULL;
    return walk->current;
}

/* ---- Remove many ---- */

/** Removes the entries for which a function returns nonzero, and releases their keys and values
 *  with the destroy functions. The table halves as it empties, with a warning each time there is no
 *  memory for the new slots. Each removal searches its chain again. Traces charge the library,
 *  as for vek_hash_remove().
 *  @param hash       the table
 *  @param func       the function; must neither insert nor remove
 *  @param user_data  passed to the function; may be null; borrowed
 *  @return  the number of entries removed
 *  Fails:   null `hash` or null `func` -> 0, with a warning
 */
static inline uint32_t vek_hash_foreach_remove(VekHash *hash, VekHashForeachFunc func,
                                               void *user_data)
{
    uint32_t removed = 0;
    VekHashEntry *entry;
    VEK_RETURN_VAL_IF_FAIL(hash != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(func != NULL, 0);

    VEK_HASH_FOREACH(entry, hash) {
        if (func(entry->key, entry->value, user_data)) {
            vek_hash_remove(hash, entry->key);
            ++removed;
        }
    }
    return removed;
}

/** Removes all entries and releases their keys and values with the destroy functions. The table can
 *  be used again. It halves as it empties, with a warning each time there is no memory for the new
 *  slots. Traces charge the library, as for vek_hash_remove().
 *  Fails: null `hash` -> nothing done, with a warning
 */
static inline void vek_hash_clear(VekHash *hash)
{
    uint32_t slot = 0;
    VEK_RETURN_IF_FAIL(hash != NULL);

    while (slot < hash->table_size) {
        const uint32_t size = hash->table_size;
        const VekHashEntry *const first = hash->table[slot];
        if (first == NULL || !vek_hash_remove(hash, first->key)) {
            ++slot;
        } else if (hash->table_size != size) {
            slot = 0; /* halved: entries are in other slots now */
        }
    }
}

VEK_END_INLINE

#endif
