/* SPDX-License-Identifier: MIT */
/* Long random sequences of operations against plain models, with allocations that fail at random:
 * an operation that fails leaves everything as it was, one that succeeds does what the model does.
 */
#include <veklib/vekstr.h>
#include <veklib/vekstrdict.h>

#include "support/support.h"

#include <algorithm>
#include <random>

namespace {

constexpr int steps = 20000;

/** The test conditions: a fixed seed, and every now and then an allocation that fails. */
class Model : public testing::Test {
protected:
    unsigned pick(unsigned n) { return static_cast<unsigned>(random()) % n; }

    void maybe_fail() { allocator.fail_nth(pick(4) == 0 ? 1 + pick(3) : 0); }

    /** An operation succeeds unless it meets a failing allocation. */
    void expect_reason(bool succeeded) { EXPECT_EQ(succeeded, !allocator.failed()); }

    std::mt19937 random{20260101};
    vektest::Allocator allocator;
};

} // namespace

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
            } else {
                done = 0;
            }
            break;
        default: // in place: for all who share it
            vek_str_char_swap(strings[a], letter, 'z');
            for (unsigned i = 0; i < holders; ++i) {
                if (strings[i] == strings[a]) { std::ranges::replace(model[i], letter, 'z'); }
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
    using Item = std::pair<std::string, int>;
    std::vector<Item> model; ///< in the order of insertion
    VekDict *dict = vek_str_dict_create(3);
    for (int step = 0; step < steps && !HasFailure(); ++step) {
        const std::string key = std::to_string(pick(70));
        const auto found = std::ranges::find(model, key, &Item::first);
        maybe_fail();
        const unsigned action = pick(300);
        if (action == 0) {
            vek_dict_clear(dict);
            model.clear();
        } else if (action < 4 && !model.empty()) { // the copy or the moved one takes over
            VekDict *const other =
                action == 1 ? vek_dict_dup_and_clear(dict) : vek_dict_copy(dict, 2);
            expect_reason(other != nullptr);
            if (other != nullptr) {
                vek_dict_destroy(dict);
                dict = other;
            }
        } else if (action < 200) {
            const std::string text = std::to_string(step);
            const int stored =
                action % 2 ? vek_str_dict_put_int(dict, key.c_str(), step)
                           : vek_str_dict_dup_and_put_string(dict, key.c_str(), text.c_str());
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
    const auto compare = [](VekValue *key, VekValue *, void *place) {
        EXPECT_EQ(vek_value_get_string(key), (*static_cast<decltype(next) *>(place))++->first);
        return 0;
    };
    vek_dict_foreach(dict, compare, &next);
    EXPECT_EQ(next, model.end());
    vek_dict_destroy(dict);
}
