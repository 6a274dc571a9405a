/* SPDX-License-Identifier: MIT */
/* Long random sequences of operations against plain models, with allocations that fail at random:
 * an operation that fails leaves everything as it was, one that succeeds does what the model does.
 */
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekslist.h>
#include <veklib/vekstr.h>
#include <veklib/vekstrdict.h>

#include "support/support.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>

namespace {

constexpr int steps = 20000;

/** The test conditions: a fixed seed, and every now and then an allocation that fails. */
class Model : public testing::Test {
protected:
    unsigned pick(unsigned n) { return static_cast<unsigned>(random()) % n; }

    void maybe_fail() { allocator.fail_nth(pick(4) == 0 ? 1 + pick(3) : 0); }

    /** An operation that did not succeed must have met a failing allocation. */
    void expect_reason(bool succeeded) { EXPECT_TRUE(succeeded || allocator.failed()); }

    std::mt19937 random{20260101};
    vektest::Allocator allocator;
};

void *word(intptr_t number) { return reinterpret_cast<void *>(number); }

} // namespace

TEST_F(Model, HashTable)
{
    std::map<intptr_t, intptr_t> model;
    VekHash *const hash = vek_hash_new();
    const std::string warnings = vektest::captured(2, [&] {
        for (int step = 0; step < steps && !HasFailure(); ++step) {
            const intptr_t key = pick(step / 4000 % 2 ? 40 : 4000); // phases of growth and shrinking
            maybe_fail();
            if (pick(step / 4000 % 2 ? 3 : 2) == 0) {
                const int inserted = vek_hash_insert(hash, word(key), word(step + 1));
                expect_reason(inserted);
                if (inserted) { model[key] = step + 1; }
            } else {
                const auto victim = model.lower_bound(key);
                const intptr_t gone = victim != model.end() && pick(2) ? victim->first : key;
                EXPECT_EQ(vek_hash_remove(hash, word(gone)), model.erase(gone) ? 1 : 0);
            }
            EXPECT_EQ(hash->entry_count, model.size());
            const auto found = model.find(key);
            EXPECT_EQ(vek_hash_lookup(hash, word(key)), found != model.end() ? word(found->second) : nullptr);
        }
    });
    for (const auto &[key, value] : model) { EXPECT_EQ(vek_hash_lookup(hash, word(key)), word(value)); }
    vek_hash_destroy(hash);
}

TEST_F(Model, List)
{
    std::vector<intptr_t> model;
    VekSList *list = nullptr;
    for (int step = 0; step < steps && !HasFailure(); ++step) {
        const size_t place = model.empty() ? 0 : pick(static_cast<unsigned>(model.size()));
        VekSList *node = list;
        for (size_t i = 0; i < place; ++i) { node = node->next; }
        maybe_fail();
        switch (model.size() > 60 ? 3 : pick(5)) {
        case 0:
            if (VekSList *const longer = vek_slist_prepend(list, word(step))) {
                list = longer;
                model.insert(model.begin(), step);
            }
            break;
        case 1: {
            list = vek_slist_append(list, word(step));
            if (!allocator.failed()) { model.push_back(step); }
            break;
        }
        case 2:
            if (node != nullptr && vek_slist_insert_after(node, word(step)) != nullptr) {
                model.insert(model.begin() + static_cast<ptrdiff_t>(place) + 1, step);
            }
            break;
        case 3:
            if (node != nullptr) {
                list = vek_slist_delete_link(list, node);
                model.erase(model.begin() + static_cast<ptrdiff_t>(place));
            }
            break;
        default:
            VekSList *const copy = vek_slist_dup(list, nullptr);
            expect_reason(copy != nullptr || list == nullptr);
            EXPECT_TRUE(copy == nullptr || vek_slist_equal(copy, list, nullptr));
            vek_slist_free(copy, nullptr);
        }
        EXPECT_EQ(vek_slist_get_length(list), model.size());
        EXPECT_EQ(vek_slist_find(list, word(step)) != nullptr,
                  std::find(model.begin(), model.end(), step) != model.end());
    }
    for (const VekSList *node = list; node != nullptr; node = node->next) {
        EXPECT_EQ(node->data, word(model.front()));
        model.erase(model.begin());
    }
    vek_slist_free(list, nullptr);
}

TEST_F(Model, Strings)
{
    constexpr unsigned holders = 6;
    std::string model[holders]; ///< what each holder reads
    VekStr *strings[holders];
    for (VekStr *&vekstr : strings) { vekstr = vek_str_create(""); }
    for (int step = 0; step < steps && !HasFailure(); ++step) {
        const unsigned a = pick(holders);
        const unsigned b = pick(holders);
        const char letter = static_cast<char>('a' + pick(26));
        maybe_fail();
        int done = 1;
        std::string edited = model[a];
        switch (model[a].size() > 200 ? 4 : pick(6)) {
        case 0:
            done = vek_str_append_vek_str(&strings[a], strings[b]);
            edited = model[a] + model[b];
            break;
        case 1:
            done = vek_str_prepend_char(&strings[a], letter);
            edited = letter + model[a];
            break;
        case 2:
            done = vek_str_prepend_c_str(&strings[a], "xy");
            edited = "xy" + model[a];
            break;
        case 3:
            vek_str_assign(&strings[a], &strings[b]);
            edited = model[b];
            break;
        case 4:
            if (VekStr *const fresh = vek_str_create_printf("%c%d", letter, step)) {
                vek_str_unref(strings[a]);
                strings[a] = fresh;
                edited = letter + std::to_string(step);
            }
            break;
        default: // in place: for all who share it
            vek_str_char_swap(strings[a], letter, 'z');
            for (unsigned i = 0; i < holders; ++i) {
                if (strings[i] == strings[a]) { std::replace(model[i].begin(), model[i].end(), letter, 'z'); }
            }
            edited = model[a];
        }
        expect_reason(done);
        if (done) { model[a] = edited; }
        EXPECT_EQ(vek_str_to_c_str(strings[a]), model[a]);
        EXPECT_EQ(vek_str_to_c_str(strings[b]), model[b]);
    }
    for (VekStr *vekstr : strings) { vek_str_unref(vekstr); }
}

TEST_F(Model, Dictionary)
{
    std::vector<std::pair<std::string, int>> model; ///< in the order of insertion
    VekDict *dict = vek_str_dict_create(3);
    for (int step = 0; step < steps && !HasFailure(); ++step) {
        const std::string key = std::to_string(pick(70));
        const auto found =
            std::find_if(model.begin(), model.end(), [&](const auto &item) { return item.first == key; });
        maybe_fail();
        const unsigned action = pick(300);
        if (action == 0) {
            vek_dict_clear(dict);
            model.clear();
        } else if (action < 4 && !model.empty()) { // the copy or the moved one takes over
            VekDict *const other = action == 1 ? vek_dict_dup_and_clear(dict) : vek_dict_copy(dict, 2);
            expect_reason(other != nullptr);
            if (other != nullptr) {
                vek_dict_destroy(dict);
                dict = other;
            }
        } else if (action < 200) {
            const int stored = action % 2
                                   ? vek_str_dict_put_int(dict, key.c_str(), step)
                                   : vek_str_dict_dup_and_put_string(dict, key.c_str(), std::to_string(step).c_str());
            expect_reason(stored);
            if (stored && found != model.end()) {
                found->second = step;
            } else if (stored) {
                model.emplace_back(key, step);
            }
        } else {
            const VekValue *const value = vek_str_dict_get_value(dict, key.c_str());
            EXPECT_EQ(value != nullptr, found != model.end());
            EXPECT_TRUE(value == nullptr || vek_value_get_as_int(value) == found->second);
        }
        EXPECT_EQ(vek_dict_get_len(dict), static_cast<int>(model.size()));
    }
    auto next = model.begin();
    vek_dict_foreach(
        dict,
        [](VekValue *key, VekValue *, void *into) {
            auto &item = *static_cast<std::vector<std::pair<std::string, int>>::iterator *>(into);
            EXPECT_EQ(vek_value_get_string(key), item->first);
            ++item;
            return 0;
        },
        &next);
    EXPECT_EQ(next, model.end());
    vek_dict_destroy(dict);
}
