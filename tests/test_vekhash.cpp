/* SPDX-License-Identifier: MIT */
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekstrfuncs.h>

#include "support/support.h"

#include <cstdint>
#include <cstring>

namespace {

void *key(intptr_t number) { return reinterpret_cast<void *>(number); }

std::vector<intptr_t> keys_in_order(VekHash *hash)
{
    std::vector<intptr_t> keys;
    vek_hash_foreach(
        hash,
        [](void *found, void *, void *into) {
            static_cast<std::vector<intptr_t> *>(into)->push_back(reinterpret_cast<intptr_t>(found));
            return 0;
        },
        &keys);
    return keys;
}

/* String keys that all share a chain, and count how often they are hashed. */
unsigned hashed = 0;

uint32_t poor_hash(const void *)
{
    ++hashed;
    return 4294967295u;
}

const void *searched_key = nullptr; ///< the key searched for, if a test watches it

int equal_text(const void *stored, const void *searched)
{
    if (searched_key != nullptr) { EXPECT_EQ(searched, searched_key); }
    return strcmp(static_cast<const char *>(stored), static_cast<const char *>(searched)) == 0;
}

std::string released; ///< what the destroy functions were called with

void release_text(void *text)
{
    released += static_cast<char *>(text);
    released += ' ';
    vek_free(text);
}

} // namespace

TEST(Hash, GrowsAndShrinksByTheRules)
{
    vektest::Allocator allocator;
    VekHash *const hash = vek_hash_new();
    EXPECT_EQ(hash->table_size, 8u);
    uint32_t size = 8;
    std::vector<std::pair<intptr_t, uint32_t>> growth;
    for (intptr_t i = 0; i <= 1024; ++i) {
        EXPECT_EQ(vek_hash_insert(hash, key(i), key(i + 1)), 1);
        if (hash->table_size != size) { growth.emplace_back(i, size = hash->table_size); }
    }
    const std::vector<std::pair<intptr_t, uint32_t>> expected_growth = {
        {24, 16}, {96, 32}, {256, 64}, {512, 128}, {1024, 256}};
    EXPECT_EQ(growth, expected_growth);

    std::vector<std::pair<uint32_t, uint32_t>> shrink;
    for (intptr_t i = 1024; i >= 0; --i) {
        EXPECT_EQ(vek_hash_lookup(hash, key(i)), key(i + 1));
        EXPECT_EQ(vek_hash_remove(hash, key(i)), 1);
        EXPECT_EQ(vek_hash_remove(hash, key(i)), 0);
        if (hash->table_size != size) { shrink.emplace_back(hash->entry_count, size = hash->table_size); }
    }
    const std::vector<std::pair<uint32_t, uint32_t>> expected_shrink = {
        {255, 128}, {127, 64}, {63, 32}, {31, 16}, {15, 8}};
    EXPECT_EQ(shrink, expected_shrink);
    vek_hash_destroy(hash);
}

TEST(Hash, OrderFollowsTheChains)
{
    vektest::Allocator allocator;
    VekHash *const hash = vek_hash_new();
    for (const intptr_t i : {0, 8, 1, 16}) { vek_hash_insert(hash, key(i), nullptr); }
    EXPECT_EQ(keys_in_order(hash), (std::vector<intptr_t>{0, 8, 16, 1}));
    vek_hash_insert(hash, key(24), nullptr); // the fourth in its chain: 16 slots, chains reversed
    EXPECT_EQ(hash->table_size, 16u);
    EXPECT_EQ(keys_in_order(hash), (std::vector<intptr_t>{16, 0, 1, 24, 8}));
    int calls = 0;
    vek_hash_foreach(
        hash, [](void *, void *, void *count) { return ++*static_cast<int *>(count); }, &calls);
    EXPECT_EQ(calls, 1);
    vek_hash_destroy(hash);
}

TEST(Hash, OwnsWhatItDestroys)
{
    vektest::Allocator allocator;
    VekHash *const hash = vek_hash_new_full(poor_hash, equal_text, release_text, release_text);
    released.clear();
    const auto insert = [&](const char *text, const char *value) {
        EXPECT_EQ(vek_hash_insert(hash, vek_strdup(text), vek_strdup(value)), 1);
    };
    insert("a", "1");
    insert("b", "2");
    insert("a", "3");
    EXPECT_EQ(released, "a 1 ");
    EXPECT_EQ(hash->entry_count, 2u);
    searched_key = "a";
    EXPECT_STREQ(static_cast<char *>(vek_hash_lookup(hash, searched_key)), "3");
    searched_key = nullptr;
    EXPECT_EQ(vek_hash_remove(hash, "c"), 0);
    EXPECT_EQ(vek_hash_remove(hash, "b"), 1);
    EXPECT_EQ(released, "a 1 b 2 ");
    insert("c", "4");
    insert("d", "5");
    hashed = 0;
    insert("e", "6"); // joins a chain of 3: one call for the key, four for the rehash
    EXPECT_EQ(hash->table_size, 16u);
    EXPECT_EQ(hashed, 5u);
    released.clear();
    vek_hash_destroy(hash);
    EXPECT_EQ(released, "e 6 d 5 c 4 a 3 ");
}

TEST(Hash, WhatIsReleasedMayLookItsKeyUp)
{
    vektest::Allocator allocator;
    static VekHash *hash;
    static std::string found;
    const auto look_up = [](void *text) {
        const void *const value = vek_hash_lookup(hash, "a");
        found += value != nullptr ? static_cast<const char *>(value) : "-";
        vek_free(text);
    };
    hash = vek_hash_new_full(poor_hash, equal_text, look_up, look_up);
    for (const char *value : {"1", "2"}) { vek_hash_insert(hash, vek_strdup("a"), vek_strdup(value)); }
    EXPECT_EQ(found, "22");
    vek_hash_remove(hash, "a");
    EXPECT_EQ(found, "22--");
    for (const char *key : {"e", "a"}) { vek_hash_insert(hash, vek_strdup(key), vek_strdup(key)); }
    vek_hash_destroy(hash); // one chain: "a" lies behind "e"
    EXPECT_EQ(found, "22--aa--");
}

TEST(Hash, ShrinksBeforeItReleases)
{
    static VekHash *hash; // the destroy function looks at it
    hash = vek_hash_new_full(vek_hash_int_hash_func, vek_hash_int_equal_func, nullptr,
                             [](void *) { EXPECT_EQ(hash->table_size, 8u); });
    for (const intptr_t i : {0, 8, 16, 24}) { vek_hash_insert(hash, key(i), nullptr); }
    EXPECT_EQ(hash->table_size, 16u);
    EXPECT_EQ(vek_hash_remove(hash, key(8)), 1);
    EXPECT_EQ(keys_in_order(hash), (std::vector<intptr_t>{24, 0, 16}));
    vek_hash_destroy(hash);
}

TEST(Hash, IntegersHashToThemselves)
{
    EXPECT_EQ(vek_hash_int_hash_func(key(0)), 0u);
    EXPECT_EQ(vek_hash_int_hash_func(key(123456)), 123456u);
    EXPECT_EQ(vek_hash_int_hash_func(key(INT32_MAX)), uint32_t{INT32_MAX});
    EXPECT_EQ(vek_hash_int_hash_func(key(-2)), 4294967294u);
    EXPECT_EQ(vek_hash_int_hash_func(key(INT32_MIN)), 2147483648u);
    EXPECT_EQ(vek_hash_int_equal_func(key(-1), key(-1)), 1);
    EXPECT_EQ(vek_hash_int_equal_func(key(-1), key(1)), 0);
}

TEST(Hash, DumpPrintsTheChains)
{
    VekHash *const hash = vek_hash_new();
    std::string expected;
    for (int i = 0; i < 8; ++i) { expected += "Bucket; " + std::to_string(i) + "\t\n"; }
    EXPECT_EQ(vektest::captured(1, [&] { _vek_hash_dump(hash); }), expected);
    vek_hash_insert(hash, key(1), nullptr);
    char address[32];
    snprintf(address, sizeof address, "1\t%p\t\n", static_cast<void *>(hash->table[1]));
    EXPECT_NE(vektest::captured(1, [&] { _vek_hash_dump(hash); }).find(address), std::string::npos);
    vek_hash_destroy(hash);
}

TEST(Hash, ChecksNameTheFault)
{
    static VekHash none = {};
    const auto never = [](void *, void *, void *) {
        ADD_FAILURE();
        return 0;
    };
    EXPECT_FAILS("vek_hash_new_full", "hash_func != NULL", vek_hash_new_full(nullptr, nullptr, nullptr, nullptr),
                 nullptr);
    EXPECT_FAILS("vek_hash_new_full", "equal_func != NULL", vek_hash_new_full(poor_hash, nullptr, nullptr, nullptr),
                 nullptr);
    EXPECT_WARNS("vek_hash_destroy", "hash != NULL", vek_hash_destroy(nullptr));
    EXPECT_FAILS("vek_hash_insert", "hash != NULL", vek_hash_insert(nullptr, nullptr, nullptr), 0);
    EXPECT_FAILS("vek_hash_insert", "hash->table_size > 0", vek_hash_insert(&none, nullptr, nullptr), 0);
    EXPECT_FAILS("vek_hash_lookup", "hash != NULL", vek_hash_lookup(nullptr, nullptr), nullptr);
    EXPECT_FAILS("vek_hash_lookup", "hash->table_size > 0", vek_hash_lookup(&none, nullptr), nullptr);
    EXPECT_FAILS("vek_hash_remove", "hash != NULL", vek_hash_remove(nullptr, nullptr), 0);
    EXPECT_WARNS("vek_hash_foreach", "hash != NULL", vek_hash_foreach(nullptr, never, nullptr));
    EXPECT_WARNS("vek_hash_foreach", "func != NULL", vek_hash_foreach(&none, nullptr, nullptr));
    EXPECT_WARNS("_vek_hash_dump", "hash != NULL", _vek_hash_dump(nullptr));
}

TEST(Hash, FailCleanly)
{
    const std::string refused = "WARNING: failed to allocate new hash table in rehash\n\n";
    vektest::fail_each_allocation([&](vektest::Allocator &allocator) {
        VekHash *const hash = vek_hash_new();
        if (hash == nullptr) {
            EXPECT_TRUE(allocator.failed());
            return;
        }
        for (intptr_t i = 0; i < 25; ++i) {
            const uint32_t count = hash->entry_count;
            const uint32_t size = hash->table_size;
            const bool failed = allocator.failed();
            int inserted = -1;
            const std::string text = vektest::captured(2, [&] { inserted = vek_hash_insert(hash, key(i), key(i)); });
            EXPECT_EQ(hash->entry_count, count + (inserted ? 1 : 0));
            EXPECT_EQ(vek_hash_lookup(hash, key(i)), key(inserted ? i : 0));
            if (!inserted) {
                EXPECT_TRUE(allocator.failed());
                EXPECT_EQ(text, "");
            } else if (allocator.failed() && !failed) { // the entry is there, the larger table not
                EXPECT_EQ(text.substr(text.find(": ") + 2), refused);
                EXPECT_EQ(hash->table_size, size);
            }
        }
        EXPECT_EQ(keys_in_order(hash).size(), hash->entry_count);
        for (intptr_t i = 0; i < 25; ++i) {
            const uint32_t count = hash->entry_count;
            const uint32_t size = hash->table_size;
            const unsigned allocations = allocator.allocations();
            int removed = -1;
            const std::string text = vektest::captured(2, [&] { removed = vek_hash_remove(hash, key(i)); });
            EXPECT_EQ(hash->entry_count, count - (removed ? 1 : 0));
            // A smaller table was asked for: either it is there, or one warning tells.
            EXPECT_EQ(allocator.allocations() - allocations, (hash->table_size != size) + (text != "")) << text;
        }
        EXPECT_EQ(hash->entry_count, 0u);
        vek_hash_destroy(hash);
    });
}
