/* SPDX-License-Identifier: MIT */
/* Long random sequences of operations against plain models, with allocations that fail at random:
 * an operation that fails leaves everything as it was, one that succeeds does what the model does.
 */
#include <veklib/vekstrdict.h>

#include "support/support.h"

#include <algorithm>
#include <random>

using namespace vektest;

TEST(Model, Dictionary)
{
    std::mt19937 random(20260101);
    const auto pick = [&](unsigned n) { return static_cast<unsigned>(random()) % n; };
    Allocator allocator;
    using Item = std::pair<std::string, int>;
    std::vector<Item> model; ///< in the order of insertion
    VekDict *dict = vek_str_dict_create(3);
    for (int step = 0; step < 20000 && !HasFailure(); ++step) {
        const std::string key = std::to_string(pick(70));
        const auto found = std::ranges::find(model, key, &Item::first);
        allocator.fail_nth(pick(4) == 0 ? 1 + pick(3) : 0);
        const unsigned action = pick(300);
        if (action == 0) {
            vek_dict_clear(dict);
            model.clear();
        } else if (action < 4 && !model.empty()) { // the copy or the moved one takes over
            VekDict *const other =
                action == 1 ? vek_dict_dup_and_clear(dict) : vek_dict_copy(dict, 2);
            EXPECT_EQ(other == nullptr, allocator.failed());
            if (other != nullptr) {
                vek_dict_destroy(dict);
                dict = other;
            }
        } else if (action < 200) {
            const std::string text = std::to_string(step);
            const int stored =
                action % 2 ? vek_str_dict_put_int(dict, key.c_str(), step)
                           : vek_str_dict_dup_and_put_string(dict, key.c_str(), text.c_str());
            EXPECT_EQ(stored == 0, allocator.failed());
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
