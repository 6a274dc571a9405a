/* SPDX-License-Identifier: MIT */
/* The search of a hash table, for families that know the type of their keys. It saves them the
 * indirect call for each entry, and a second search when an insertion follows a look-up. */
#ifndef VEKLIB_VEKHASH_INTERNAL_H
#define VEKLIB_VEKHASH_INTERNAL_H

#include "veklib/vekcompiler_internal.h"
#include "veklib/vekhash.h"
#include "veklib/vekstrfuncs_internal.h"

/** Where a key is, or where it would go. */
struct VekHashPlace {
    VekHashEntry **link; ///< points at the entry, or is the null link that ends the chain
    VekHashEntry *entry; ///< the entry, or null
    uint32_t position;   ///< number of entries before it in the chain
};

/** The slot of a key with this hash: the remainder, which a mask computes because the number of
 *  slots is a power of two. Written in steps because GCC then needs one instruction less.
 *  Force-inlined: at -Os the compiler emits a call. */
[[gnu::always_inline]] inline VekHashEntry **vek_hash_slot(const VekHash *hash, uint32_t key_hash)
{
    VekHashEntry **const table = hash->table;
    uint32_t slot = hash->table_size - 1;
    slot &= key_hash;
    return &table[slot];
}

/** Walks a slot's chain to the first entry whose key equals `key`. Force-inlined so that the place
 *  stays in registers: the search for a name that is present takes a seventh fewer instructions. */
template <typename Equal>
[[gnu::always_inline]] inline VekHashPlace vek_hash_walk_chain(VekHashEntry **slot, const void *key,
                                                               Equal equal)
{
    VekHashEntry **link = slot;
    VekHashEntry *entry = *link;
    uint32_t position = 0;
    for (; entry != nullptr && !equal(entry->key, key); entry = *link) {
        link = &entry->next;
        ++position;
    }
    return {link, entry, position};
}

/** Searches a table whose hash and equality functions are the library's own for strings. */
[[gnu::always_inline]] inline VekHashPlace vek_hash_find_string(const VekHash *hash,
                                                                const void *key)
{
    const auto equal = [](const void *a, const void *b) {
        return vek_is_same_text(static_cast<const char *>(a), static_cast<const char *>(b));
    };
    return vek_hash_walk_chain(vek_hash_slot(hash, vek_hash_string_hash_func(key)), key, equal);
}

/** Links a new entry, whose key and value are set, into the table at `place`, where the search for
 *  its absent key ended. The table owns the entry from then on, and doubles if it is crowded. */
VEK_HIDDEN void vek_hash_link(VekHash *hash, VekHashPlace place, VekHashEntry *entry);

#endif
