/* SPDX-License-Identifier: MIT */
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekstrfuncs.h>

#include "support/support.h"

#include <algorithm>
#include <cstring>

using namespace vektest;

namespace {

std::vector<intptr_t> keys_in_order(VekHash *hash)
{
    std::vector<intptr_t> keys;
    const auto note = [](void *key, void *, void *into) {
        return static_cast<decltype(keys) *>(into)->push_back(reinterpret_cast<intptr_t>(key)), 0;
    };
    vek_hash_foreach(hash, note, &keys);
    return keys;
}

/* Functions for string keys: all keys share a chain. Counts the calls of the hash function. */
unsigned hashed = 0;

uint32_t poor_hash(const void *)
{
    ++hashed;
    return 4294967295u;
}

VekHash *owner = nullptr;           ///< the table that release_text() looks into
const void *searched_key = nullptr; ///< the key that must be searched, or null

int equal_text(const void *stored, const void *searched)
{
    if (searched_key != nullptr) { EXPECT_EQ(searched, searched_key); }
    return strcmp(static_cast<const char *>(stored), static_cast<const char *>(searched)) == 0;
}

std::string released; ///< texts released, each with what "a" had at that time

void release_text(void *text)
{
    const auto *const stored = static_cast<const char *>(vek_hash_lookup(owner, "a"));
    released += std::string(static_cast<char *>(text)) + (stored != nullptr ? stored : "-") + " ";
    vek_free(text);
}

/** A table with `count` keys, 0 and the multiples of `step`; each key is its own value. */
VekHash *table_of(VekHashFunc hash_func, uintptr_t count, uintptr_t step = 1)
{
    VekHash *const hash = vek_hash_new_full(hash_func, vek_hash_int_equal_func, nullptr, nullptr);
    for (uintptr_t i = 0; i < count; ++i) {
        void *const key = reinterpret_cast<void *>(i * step);
        vek_hash_insert(hash, key, key);
    }
    return hash;
}

} // namespace

TEST(Hash, GrowsAndShrinksByTheRules)
{
    Allocator allocator;
    VekHash *const hash = vek_hash_new();
    std::vector<std::pair<uint32_t, uint32_t>> changes; ///< entries and new size, at each change
    uint32_t size = 8;
    const auto expect_done = [&](int done) {
        EXPECT_EQ(done, 1);
        if (hash->table_size != size) { changes.emplace_back(hash->entry_count, hash->table_size); }
        size = hash->table_size;
    };
    for (intptr_t i = 0; i <= 1024; ++i) { expect_done(vek_hash_insert(hash, word(i), word(~i))); }
    for (intptr_t i = 1024; i >= 0; --i) {
        EXPECT_EQ(vek_hash_lookup(hash, word(i)), word(~i));
        expect_done(vek_hash_remove(hash, word(i)));
        EXPECT_EQ(vek_hash_find(hash, word(i)), nullptr);
        EXPECT_EQ(vek_hash_remove(hash, word(i)), 0);
    }
    const decltype(changes) expected = {{25, 16},   {97, 32},  {257, 64}, {513, 128}, {1025, 256},
                                        {255, 128}, {127, 64}, {63, 32},  {31, 16},   {15, 8}};
    EXPECT_EQ(changes, expected);
    vek_hash_destroy(hash);
}

TEST(Hash, OrderFollowsTheChains)
{
    Allocator allocator;
    VekHash *const hash = vek_hash_new();
    for (const intptr_t i : {0, 8, 1, -1, 16}) { vek_hash_insert(hash, word(i), nullptr); }
    EXPECT_EQ(keys_in_order(hash), (std::vector<intptr_t>{0, 8, 16, 1, -1}));
    vek_hash_insert(hash, word(8), word(5)); // only the value is new
    EXPECT_EQ(vek_hash_lookup(hash, word(8)), word(5));
    vek_hash_insert(hash, word(24), nullptr); // fourth in its chain: 16 slots, chains reversed
    EXPECT_EQ(hash->table_size, 16u);
    EXPECT_EQ(keys_in_order(hash), (std::vector<intptr_t>{16, 0, 1, 24, 8, -1}));
    int calls = 0;
    const auto stop = [](void *, void *, void *count) { return ++*static_cast<int *>(count); };
    vek_hash_foreach(hash, stop, &calls);
    EXPECT_EQ(calls, 1);
    vek_hash_destroy(hash);
}

TEST(Hash, OwnsWhatItDestroys)
{
    Allocator allocator;
    VekHash *const hash = vek_hash_new_full(poor_hash, equal_text, release_text, release_text);
    owner = hash;
    released.clear();
    const auto insert = [&](const char *text, const char *value) {
        EXPECT_EQ(vek_hash_insert(hash, vek_strdup(text), vek_strdup(value)), 1);
    };
    insert("a", "1");
    insert("b", "2");
    insert("a", "3");
    EXPECT_EQ(released, "a3 13 ");
    EXPECT_EQ(hash->entry_count, 2u);
    searched_key = "a";
    EXPECT_STREQ(static_cast<char *>(vek_hash_lookup(hash, searched_key)), "3");
    EXPECT_STREQ(static_cast<char *>(vek_hash_find(hash, searched_key)->value), "3");
    searched_key = nullptr;
    EXPECT_EQ(vek_hash_remove(hash, "c"), 0);
    EXPECT_EQ(vek_hash_remove(hash, "a"), 1);
    EXPECT_EQ(released, "a3 13 a- 3- ");
    insert("a", "4");
    insert("d", "5");
    hashed = 0;
    insert("e", "6"); // joins a chain of 3: one call for the key, four for the rehash
    EXPECT_EQ(hash->table_size, 16u);
    EXPECT_EQ(hashed, 5u);
    released.clear();
    vek_hash_destroy(hash);
    EXPECT_EQ(released, "e4 64 d4 54 a- 4- b- 2- ");

    // One of the two functions may be the library's own.
    char key[] = "x";
    searched_key = key;
    hashed = 0;
    const std::pair<VekHashFunc, VekEqualFunc> mixtures[] = {
        {poor_hash, vek_hash_int_equal_func},
        {poor_hash, vek_hash_string_equal_func},
        {vek_hash_int_hash_func, equal_text},
        {vek_hash_string_hash_func, equal_text},
    };
    for (const auto &[hash_func, equal_func] : mixtures) {
        VekHash *const mixed = vek_hash_new_full(hash_func, equal_func, nullptr, nullptr);
        vek_hash_insert(mixed, key, key);
        EXPECT_EQ(vek_hash_lookup(mixed, key), key);
        vek_hash_destroy(mixed);
    }
    searched_key = nullptr;
    EXPECT_EQ(hashed, 4u);
}

TEST(Hash, ClearEndsThoughAKeyDoesNotEqualItself)
{
    const auto never = [](const void *, const void *) { return 0; };
    VekHash *const hash = vek_hash_new_full(poor_hash, never, nullptr, nullptr);
    vek_hash_insert(hash, word(1), nullptr);
    vek_hash_clear(hash);
    EXPECT_EQ(vek_hash_get_count(hash), 1u);
    vek_hash_destroy(hash);
}

TEST(Hash, IntegersHashToThemselves)
{
    for (const intptr_t i : {0, 123456, INT32_MAX, -2, INT32_MIN}) {
        EXPECT_EQ(vek_hash_int_hash_func(word(i)), static_cast<uint32_t>(i));
    }
    EXPECT_EQ(VEK_POINTER_TO_INT(word(static_cast<intptr_t>(UINT32_MAX))), -1);
    EXPECT_EQ(VEK_INT_TO_POINTER(UINT32_MAX), word(-1));
    constexpr int half = sizeof(intptr_t) * 4; // bits above the lowest 32 are folded in
    EXPECT_EQ(vek_hash_int_hash_func(word(intptr_t{1} << half)), half == 32 ? 1u : 1u << half);
}

TEST(Hash, PointerHashMixesAllBits)
{
    constexpr unsigned bits = sizeof(intptr_t) * 8;
    for (unsigned shift = 0; shift < bits - 10; ++shift) { // 1,000 keys
        for (const uintptr_t upper : {uintptr_t{0}, uintptr_t{1} << bits / 2}) {
            VekHash *const hash =
                table_of(vek_hash_pointer_hash_func, 1000, (uintptr_t{1} << shift) + upper);
            EXPECT_EQ(vek_hash_get_count(hash), 1000u);
            EXPECT_LE(hash->table_size, 512u) << shift;
            EXPECT_GE(hash->table_size, 128u) << shift;
            vek_hash_destroy(hash);
        }
    }
}

TEST(Hash, StringsHashToTheirReferenceValues)
{
    const std::pair<const char *, uint32_t> rows[] = {
        {nullptr, 0},
        {"", 1382415303},
        {"hello world", 1868332526},
        {"abcdefghijkl", 1397356752},
        {"abcdefghijklmnopqrstuvwxyz", 813469812},
        {"abcdef", 1016827662},
        {"abcdefgh\xff", 1580619107},
        {"\xc3\xa4\xff", 681082550},
    };
    for (const auto &[text, hash] : rows) {
        EXPECT_EQ(vek_hash_string_hash_func(text), hash) << (text != nullptr ? text : "null");
        const std::string copy = text != nullptr ? text : "";
        EXPECT_EQ(vek_hash_string_equal_func(text, copy.c_str()), text != nullptr);
        EXPECT_EQ(vek_hash_string_equal_func(copy.c_str(), text), text != nullptr);
        EXPECT_EQ(vek_hash_string_equal_func(text, "hello"), 0);
    }
    EXPECT_EQ(vek_hash_string_equal_func(nullptr, nullptr), 1);
}

TEST(Hash, StringKeysAreEqualByTheirText)
{
    Allocator allocator;
    VekHash *const hash = vek_hash_new_full(vek_hash_string_hash_func, vek_hash_string_equal_func,
                                            vek_free, vek_free);
    const auto fill = [hash] { // each key twice, through several rehashes
        for (int i = 0; i < 200; ++i) {
            vek_hash_insert(hash, vek_strdup_printf("%d", i % 100), vek_strdup_printf("%d", i % 3));
        }
    };
    const auto value_of = [hash](const char *key) {
        return static_cast<const char *>(vek_hash_lookup(hash, key));
    };
    fill();
    EXPECT_EQ(vek_hash_remove(hash, nullptr), 0);
    vek_hash_insert(hash, nullptr, vek_strdup("none")); // null is a key like others
    EXPECT_STREQ(value_of(nullptr), "none");
    EXPECT_EQ(value_of(""), nullptr);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(value_of(std::to_string(i).c_str()), std::to_string((i + 100) % 3));
    }
    const auto has_value = [](void *, void *value, void *searched) {
        return vek_hash_string_equal_func(value, searched);
    };
    char one[] = "1";
    for (const uint32_t removed : {34u, 0u}) {
        EXPECT_EQ(vek_hash_foreach_remove(hash, has_value, one), removed);
        EXPECT_EQ(vek_hash_get_count(hash), 67u);
    }
    EXPECT_EQ(vek_hash_remove(hash, ""), 0);
    EXPECT_EQ(vek_hash_remove(hash, nullptr), 1);
    for (int i = 0; i < 2; ++i) { // the second time it is empty already
        vek_hash_clear(hash);
        EXPECT_EQ(vek_hash_get_count(hash), 0u);
        EXPECT_EQ(hash->table_size, 8u);
    }
    fill();
    for (int i = 99; i >= 50; --i) { // from within the chains
        EXPECT_EQ(vek_hash_remove(hash, std::to_string(i).c_str()), 1);
    }
    EXPECT_EQ(vek_hash_get_count(hash), 50u);
    vek_hash_destroy(hash);
}

TEST(Hash, WalksAreLoops)
{
    VekHash *const tens = table_of(vek_hash_int_hash_func, 10);
    VekHash *const threes = table_of(vek_hash_int_hash_func, 3);
    VekHash none = {};
    VekHashEntry *outer;
    VekHashEntry *inner;
    VEK_HASH_FOREACH(outer, &none) { ADD_FAILURE(); }
    std::string pairs;
    VEK_HASH_FOREACH(outer, tens) {
        if (outer->key == word(1)) { continue; }
        if (outer->key == word(3)) { break; }
        VEK_HASH_FOREACH(inner, threes) {
            pairs += std::to_string(VEK_POINTER_TO_INT(outer->value) * 10 +
                                    VEK_POINTER_TO_INT(inner->value)) +
                     " ";
        }
        EXPECT_EQ(inner, nullptr);
    }
    EXPECT_EQ(outer, vek_hash_find(tens, word(3)));
    EXPECT_EQ(pairs, "0 1 2 80 81 82 90 91 92 20 21 22 "); // 0 and 8, 1 and 9 share a slot
    vek_hash_destroy(tens);
    vek_hash_destroy(threes);
}

TEST(Hash, DumpPrintsTheChains)
{
    VekHash *const hash = vek_hash_new();
    vek_hash_insert(hash, word(1), nullptr);
    char address[32];
    snprintf(address, sizeof address, "%p\t", static_cast<void *>(hash->table[1]));
    std::string expected;
    for (int i = 0; i < 8; ++i) {
        expected += "Bucket; " + std::to_string(i) + "\t" + (i == 1 ? address : "") + "\n";
    }
    EXPECT_EQ(captured(1, [&] { _vek_hash_dump(hash); }), expected);
    vek_hash_destroy(hash);
}

TEST(Hash, ChecksNameTheFault)
{
    VekHash none = {};
    EXPECT_REFUSE(nullptr, "hash != NULL", vek_hash_destroy, vek_hash_insert, vek_hash_lookup,
                  vek_hash_remove, vek_hash_foreach, _vek_hash_dump, vek_hash_find,
                  vek_hash_get_count, vek_hash_clear, vek_hash_foreach_remove);
    EXPECT_REFUSE(&none, "hash->table_size > 0", vek_hash_insert, vek_hash_lookup, vek_hash_remove,
                  vek_hash_find);
    EXPECT_REFUSE(&none, "func != NULL", vek_hash_foreach, vek_hash_foreach_remove);
    EXPECT_REFUSE(nullptr, "hash_func != NULL", vek_hash_new_full);
    EXPECT_REFUSE(poor_hash, "equal_func != NULL", vek_hash_new_full);
    expect_warnings({{"VEK_HASH_FOREACH", "hash != NULL"}}, [] {
        VekHashEntry *entry;
        VEK_HASH_FOREACH(entry, nullptr) { ADD_FAILURE(); }
    });
}

TEST(Hash, WarnsWithoutMemoryForItsSlots)
{
    fail_each_allocation([](Allocator &failing) {
        VekHash *const empty = vek_hash_new();
        EXPECT_EQ(empty == nullptr, failing.just_failed());
        if (empty != nullptr) { vek_hash_destroy(empty); }
    });
    Allocator allocator;
    VekHash *const hash = table_of(vek_hash_int_hash_func, 3, 8);
    const auto expect_refusal = [&](unsigned n, uint32_t size, auto change) {
        allocator.fail_nth(n);
        const std::string text = captured(2, [&] { EXPECT_EQ(change(), 1); });
        EXPECT_EQ(without_lines(text), "veklib/vekhash.cpp:L: WARNING: failed to allocate new hash "
                                       "table in rehash\n\n");
        EXPECT_EQ(hash->table_size, size);
    };
    expect_refusal(2, 8, [&] { return vek_hash_insert(hash, word(24), nullptr); });
    vek_hash_insert(hash, word(32), nullptr); // doubles it
    expect_refusal(1, 16, [&] { return vek_hash_remove(hash, word(32)); });
    vek_hash_destroy(hash);
}
