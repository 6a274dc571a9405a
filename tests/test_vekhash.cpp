/* SPDX-License-Identifier: MIT */
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekstrfuncs.h>

#include "support/support.h"

#include <cstring>

using namespace vektest;

namespace {

std::vector<intptr_t> keys_in_order(VekHash *hash)
{
    std::vector<intptr_t> keys;
    const auto note = [](void *key, void *, void *into) {
        static_cast<decltype(keys) *>(into)->push_back(reinterpret_cast<intptr_t>(key));
        return 0;
    };
    vek_hash_foreach(hash, note, &keys);
    return keys;
}

/* String keys that all share a chain, and count how often they are hashed. */
unsigned hashed = 0;

uint32_t poor_hash(const void *)
{
    ++hashed;
    return 4294967295u;
}

VekHash *owner = nullptr;           ///< whose functions these are
const void *searched_key = nullptr; ///< the key searched for, if a test watches it

int equal_text(const void *stored, const void *searched)
{
    if (searched_key != nullptr) { EXPECT_EQ(searched, searched_key); }
    return strcmp(static_cast<const char *>(stored), static_cast<const char *>(searched)) == 0;
}

std::string released; ///< what was released, each with what was stored under "a" at that time

void release_text(void *text)
{
    const auto *const stored = static_cast<const char *>(vek_hash_lookup(owner, "a"));
    released += std::string(static_cast<char *>(text)) + (stored != nullptr ? stored : "-") + " ";
    vek_free(text);
}

} // namespace

TEST(Hash, GrowsAndShrinksByTheRules)
{
    Allocator allocator;
    VekHash *const hash = vek_hash_new();
    std::vector<std::pair<uint32_t, uint32_t>> changes; ///< the entries and the new size, at each
    uint32_t size = 8;
    const auto watch = [&] {
        if (hash->table_size != size) { changes.emplace_back(hash->entry_count, hash->table_size); }
        size = hash->table_size;
    };
    for (intptr_t i = 0; i <= 1024; ++i) {
        EXPECT_EQ(vek_hash_insert(hash, word(i), word(i + 1)), 1);
        watch();
    }
    for (intptr_t i = 1024; i >= 0; --i) {
        EXPECT_EQ(vek_hash_lookup(hash, word(i)), word(i + 1));
        EXPECT_EQ(vek_hash_remove(hash, word(i)), 1);
        EXPECT_EQ(vek_hash_remove(hash, word(i)), 0);
        watch();
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
    vek_hash_insert(hash, word(24), nullptr); // the fourth in its chain: 16 slots, chains reversed
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

    // Either function may be the library's own.
    VekHash *const mixed = vek_hash_new_full(poor_hash, vek_hash_int_equal_func, nullptr, nullptr);
    hashed = 0;
    vek_hash_insert(mixed, word(1), word(1));
    EXPECT_EQ(hashed, 1u);
    vek_hash_destroy(mixed);
}

TEST(Hash, IntegersHashToThemselves)
{
    for (const intptr_t i : {0, 123456, INT32_MAX, -2, INT32_MIN}) {
        EXPECT_EQ(vek_hash_int_hash_func(word(i)), static_cast<uint32_t>(i));
        EXPECT_EQ(vek_hash_int_equal_func(word(i), word(i)), 1);
        EXPECT_EQ(vek_hash_int_equal_func(word(i), word(1)), 0);
    }
    constexpr int half = sizeof(intptr_t) * 4; // what lies beyond 32 bits is folded in
    EXPECT_EQ(vek_hash_int_hash_func(word(intptr_t{1} << half)), half == 32 ? 1u : 1u << half);
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
                  vek_hash_remove, vek_hash_foreach, _vek_hash_dump);
    EXPECT_REFUSE(&none, "hash->table_size > 0", vek_hash_insert, vek_hash_lookup, vek_hash_remove);
    EXPECT_REFUSE(&none, "func != NULL", vek_hash_foreach);
    EXPECT_REFUSE(nullptr, "hash_func != NULL", vek_hash_new_full);
    EXPECT_REFUSE(poor_hash, "equal_func != NULL", vek_hash_new_full);
}

TEST(Hash, KeepsItsEntriesAndItsSizeWithoutMemory)
{
    const std::string refused =
        "veklib/vekhash.cpp:L: WARNING: failed to allocate new hash table in rehash\n\n";
    fail_each_allocation([&](Allocator &allocator) {
        VekHash *const hash = vek_hash_new();
        EXPECT_EQ(hash == nullptr, allocator.just_failed());
        if (hash == nullptr) { return; }
        std::vector<intptr_t> stored;
        for (int step = 0; step < 50; ++step) { // 25 come, which grows the table; 25 go
            const intptr_t i = step % 25;
            const bool inserting = step < 25;
            const uint32_t size = hash->table_size;
            int done = 0;
            const std::string text = captured(2, [&] {
                done = inserting ? vek_hash_insert(hash, word(i), word(i))
                                 : vek_hash_remove(hash, word(i));
            });
            const bool failed = allocator.just_failed();
            EXPECT_EQ(without_lines(text), failed && done ? refused : "");
            EXPECT_TRUE(!failed || hash->table_size == size);
            if (inserting && (!failed || text != "")) { stored.push_back(i); }
            if (!inserting) { std::erase(stored, i); }
            EXPECT_EQ(hash->entry_count, stored.size());
            for (const intptr_t key : stored) {
                EXPECT_EQ(vek_hash_lookup(hash, word(key)), word(key));
            }
        }
        vek_hash_destroy(hash);
    });
}
