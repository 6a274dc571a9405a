/* SPDX-License-Identifier: MIT */
/* The search of a hash table, for families that know their keys: without an indirect call for each entry,
 * and one search where a look-up is followed by an insertion. */
#ifndef VEKLIB_VEKHASH_INTERNAL_H
#define VEKLIB_VEKHASH_INTERNAL_H

#include "veklib/vekhash.h"

/** Where a key is, or where it would go. */
struct VekHashPlace {
    VekHashEntry **link; ///< points at the entry, or is the null link that ends the chain
    VekHashEntry *entry; ///< the entry, or null
    uint32_t position;   ///< entries passed in the chain
};

/** The slot of a key with this hash: the remainder, which a mask gives for the table's powers of two. */
inline VekHashEntry **vek_hash_slot(const VekHash *hash, uint32_t key_hash)
{
    return &hash->table[key_hash & (hash->table_size - 1)];
}

/** Walks a slot's chain to the first entry whose key `equal` takes for `key`. */
template <typename Equal>
VekHashPlace vek_hash_walk_chain(VekHashEntry **slot, const void *key, Equal equal)
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

/** Links a new entry, whose key and value are set, at the place of its key, which is absent; the table
 *  takes it, and grows if it is crowded. */
void vek_hash_link(VekHash *hash, VekHashPlace place, VekHashEntry *entry);

#endif
