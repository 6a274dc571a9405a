/* SPDX-License-Identifier: MIT */
/* Hash tables. What always holds:
 * - The number of slots is a power of two, at least 8. An entry is in the chain of the slot that
 *   the lowest bits of its key's hash choose. Hashes are not stored; a rehash computes them again.
 * - No two keys are equal by the table's equality function. An insertion appends to a chain; a
 *   rehash reverses chains. What VEK_HASH_FOREACH() relies on is said at rehash().
 * - entry_count is the number of entries in all chains, except while a table is being released.
 * - A rehash moves the entries and allocates only the slots. Without memory for them the table
 *   keeps the old ones: it works with too few slots, only more slowly.
 * - The chains are up to date before a destroy function runs: it may look keys up. */
#include "veklib/vekhash.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekhash_internal.h"
#include "veklib/vekmemory.h"
#include "veklib/vekmemory_internal.h"

#include <cstdio>

namespace {

constexpr uint32_t smallest_size = 8;
constexpr uint32_t entries_per_slot = 8;

/* ---- Hash and search ---- */

/** The hash of a 32-bit integer, negative or not, is the integer itself. The upper half of a 64-bit
 *  pointer counts only where it differs from the sign extension of the lower one. */
uint32_t hash_int(const void *key)
{
    const auto integer = reinterpret_cast<uintptr_t>(key);
    const auto low = static_cast<uint32_t>(integer);
    if constexpr (sizeof integer > sizeof low) {
        return low ^ (static_cast<uint32_t>(integer >> 32) + (low >> 31));
    } else {
        return low;
    }
}

/** The hash of a key, for a rehash, which compares no keys. */
uint32_t hash_of(const VekHash *hash, const void *key)
{
    return hash->hash_func == vek_hash_int_hash_func ? hash_int(key) : hash->hash_func(key);
}

/* Whether both functions are the library's own, which need no indirect call. */

bool has_integer_keys(const VekHash *hash)
{
    return hash->hash_func == vek_hash_int_hash_func && hash->equal_func == vek_hash_int_equal_func;
}

bool has_string_keys(const VekHash *hash)
{
    return hash->hash_func == vek_hash_string_hash_func &&
           hash->equal_func == vek_hash_string_equal_func;
}

/* Force-inlined, so that look-ups, which ignore `position`, do not compute it. */

[[gnu::always_inline]] inline VekHashPlace find_integer(const VekHash *hash, const void *key)
{
    return vek_hash_walk_chain(vek_hash_slot(hash, hash_int(key)), key,
                               [](const void *a, const void *b) { return a == b; });
}

[[gnu::always_inline]] inline VekHashPlace find_with_functions(const VekHash *hash, const void *key)
{
    const auto equal = [hash](const void *a, const void *b) { return hash->equal_func(a, b); };
    return vek_hash_walk_chain(vek_hash_slot(hash, hash->hash_func(key)), key, equal);
}

[[gnu::always_inline]] inline VekHashPlace find_slot(const VekHash *hash, const void *key)
{
    return has_integer_keys(hash)  ? find_integer(hash, key)
           : has_string_keys(hash) ? vek_hash_find_string(hash, key)
                                   : find_with_functions(hash, key);
}

void *value_of(const VekHashEntry *entry)
{
    return entry != nullptr ? entry->value : nullptr;
}

/** Not inlined: its calls need saved registers, which a look-up of an integer key does not. */
[[gnu::noinline]] void *look_up_with_calls(const VekHash *hash, const void *key)
{
    return value_of(has_string_keys(hash) ? vek_hash_find_string(hash, key).entry
                                          : find_with_functions(hash, key).entry);
}

/* ---- Slots ---- */

VekHashEntry **new_slots(uint32_t size)
{
    return static_cast<VekHashEntry **>(vek_calloc(size, sizeof(VekHashEntry *)));
}

/** Moves the entries to another number of slots. Without memory for the slots it warns and moves
 *  nothing: the table is slower, but the insertion or removal has succeeded. Where warnings are
 *  fatal, this one ends the process all the same.
 *
 *  Each chain is moved from its head on, to the heads of the new chains. VEK_HASH_FOREACH(), which
 *  is compiled into applications, relies on the result: in a smaller table the entries of one old
 *  slot, among those of another, are in their old order or in reverse. It also relies on this: the
 *  lowest bits of the hash choose the slot; a rehash comes only with a change of entry_count; and a
 *  removal without a rehash leaves the other entries where they are. */
void rehash(VekHash *hash, uint32_t new_size)
{
    VekHashEntry **const slots = new_slots(new_size);
    if (slots == nullptr) {
        VEK_WARNING("WARNING: failed to allocate new hash table in rehash\n");
        return;
    }
    VekHashEntry **const old_slots = hash->table;
    const uint32_t old_size = hash->table_size;
    hash->table = slots;
    hash->table_size = new_size;
    for (uint32_t i = 0; i < old_size; ++i) {
        VekHashEntry *entry = old_slots[i];
        while (entry != nullptr) {
            VekHashEntry *const next = entry->next;
            VekHashEntry **const head = vek_hash_slot(hash, hash_of(hash, entry->key));
            entry->next = *head;
            *head = entry;
            entry = next;
        }
    }
    vek_free(old_slots);
}

/** Doubles a table that is crowded, as a whole or in the chain that a new entry has joined behind
 *  `position` others. */
void grow_if_crowded(VekHash *hash, uint32_t position)
{
    const uint64_t size = hash->table_size;
    if (hash->entry_count > entries_per_slot * size || 3 * uint64_t{position} >= size) {
        rehash(hash, hash->table_size * 2);
    }
}

void shrink_if_sparse(VekHash *hash)
{
    if (hash->table_size > smallest_size && hash->entry_count < hash->table_size) {
        rehash(hash, hash->table_size / 2);
    }
}

/* ---- Entries ---- */

void destroy_content(const VekHash *hash, const VekHashEntry *entry)
{
    if (hash->key_destroy_func != nullptr) {
        hash->key_destroy_func(entry->key);
    }
    if (hash->value_destroy_func != nullptr) {
        hash->value_destroy_func(entry->value);
    }
}

} // namespace

void vek_hash_link(VekHash *hash, VekHashPlace place, VekHashEntry *entry)
{
    entry->next = nullptr;
    *place.link = entry;
    ++hash->entry_count;
    grow_if_crowded(hash, place.position);
}

/* ---- Create and release ---- */

VekHash *vek_hash_new_full(VekHashFunc hash_func, VekEqualFunc equal_func,
                           VekDestroyFunc key_destroy_func, VekDestroyFunc value_destroy_func)
{
    VEK_RETURN_VAL_IF_FAIL(hash_func != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(equal_func != NULL, nullptr);

    auto *const hash = static_cast<VekHash *>(vek_calloc(1, sizeof(VekHash)));
    if (hash == nullptr) {
        return nullptr;
    }
    hash->table = new_slots(smallest_size);
    if (hash->table == nullptr) {
        vek_free(hash);
        return nullptr;
    }
    hash->table_size = smallest_size;
    hash->hash_func = hash_func;
    hash->equal_func = equal_func;
    hash->key_destroy_func = key_destroy_func;
    hash->value_destroy_func = value_destroy_func;
    return hash;
}

VekHash *vek_hash_new()
{
    return vek_hash_new_full(vek_hash_int_hash_func, vek_hash_int_equal_func, nullptr, nullptr);
}

void vek_hash_destroy(VekHash *hash)
{
    VEK_RETURN_IF_FAIL(hash != NULL);

    for (uint32_t i = 0; i < hash->table_size; ++i) {
        while (VekHashEntry *const entry = hash->table[i]) {
            hash->table[i] = entry->next; // destroy functions may look up the entries that remain
            destroy_content(hash, entry);
            vek_free(entry);
        }
    }
    vek_free(hash->table);
    vek_free(hash);
}

/* ---- Change ---- */

VEK_ENTRY int vek_hash_insert(VekHash *hash, void *key, void *value)
{
    VEK_RETURN_VAL_IF_FAIL(hash != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(hash->table_size > 0, 0);

    const VekHashPlace place = find_slot(hash, key);
    VekHashEntry *const present = place.entry;
    if (present != nullptr) {
        // The old key and value are released last: the destroy functions may look this key up.
        const VekHashEntry old = *present;
        present->key = key;
        present->value = value;
        destroy_content(hash, &old);
        return 1;
    }

    auto *const entry = vek_new_for<VekHashEntry>(VEK_CALLER);
    if (entry == nullptr) {
        return 0;
    }
    entry->key = key;
    entry->value = value;
    vek_hash_link(hash, place, entry);
    return 1;
}

int vek_hash_remove(VekHash *hash, const void *key)
{
    VEK_RETURN_VAL_IF_FAIL(hash != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(hash->table_size > 0, 0);

    const VekHashPlace place = find_slot(hash, key);
    VekHashEntry *const entry = place.entry;
    if (entry == nullptr) {
        return 0;
    }
    *place.link = entry->next;
    --hash->entry_count;
    shrink_if_sparse(hash);
    destroy_content(hash, entry);
    vek_free(entry);
    return 1;
}

/* ---- Read and walk ---- */

void *vek_hash_lookup(const VekHash *hash, const void *key)
{
    VEK_RETURN_VAL_IF_FAIL(hash != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(hash->table_size > 0, nullptr);

    return has_integer_keys(hash) ? value_of(find_integer(hash, key).entry)
                                  : look_up_with_calls(hash, key);
}

void vek_hash_foreach(VekHash *hash, VekHashForeachFunc func, void *user_data)
{
    VEK_RETURN_IF_FAIL(hash != NULL);
    VEK_RETURN_IF_FAIL(func != NULL);

    for (uint32_t i = 0; i < hash->table_size; ++i) {
        for (const VekHashEntry *entry = hash->table[i]; entry != nullptr; entry = entry->next) {
            if (func(entry->key, entry->value, user_data)) {
                return;
            }
        }
    }
}

/* ---- Integer keys ---- */

uint32_t vek_hash_int_hash_func(const void *key)
{
    return hash_int(key);
}

int vek_hash_int_equal_func(const void *a, const void *b)
{
    return a == b;
}

/* ---- Diagnostics ---- */

void _vek_hash_dump(const VekHash *hash)
{
    VEK_RETURN_IF_FAIL(hash != NULL);

    for (uint32_t i = 0; i < hash->table_size; ++i) {
        fprintf(stdout, "Bucket; %d\t", static_cast<int>(i));
        for (const VekHashEntry *entry = hash->table[i]; entry != nullptr; entry = entry->next) {
            fprintf(stdout, "%p\t", static_cast<const void *>(entry));
        }
        fputc('\n', stdout);
    }
}
