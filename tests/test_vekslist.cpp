/* SPDX-License-Identifier: MIT */
#include <veklib/vekslist.h>

#include "support/support.h"

#include <algorithm>
#include <bit>
#include <random>
#include <tuple>

using namespace vektest;

namespace {

using Numbers = std::vector<intptr_t>;

intptr_t number_of(const void *data) { return reinterpret_cast<intptr_t>(data); }

VekSList *list_of(const Numbers &numbers)
{
    VekSList *list = nullptr;
    for (const intptr_t number : numbers) { list = vek_slist_append(list, word(number)); }
    return list;
}

Numbers numbers_of(const VekSList *list)
{
    Numbers numbers;
    for (; list != nullptr; list = list->next) { numbers.push_back(number_of(list->data)); }
    return numbers;
}

Numbers seen; ///< what a callback was called with

void note(void *data) { seen.push_back(number_of(data)); }

unsigned compared; ///< how often by_tens() was called

/** Compares without the last digit, by which the test tells equal elements apart. */
int by_tens(const void *a, const void *b)
{
    ++compared;
    return static_cast<int>(number_of(a) / 10 - number_of(b) / 10);
}

} // namespace

TEST(SList, KeepsItsOrder)
{
    Allocator allocator;
    VekSList *list = vek_slist_prepend(list_of({1, 2, 3}), word(0));
    vek_slist_insert_after(list, word(9));
    EXPECT_EQ(numbers_of(list), (Numbers{0, 9, 1, 2, 3}));
    EXPECT_EQ(vek_slist_get_length(list), 5u);
    vek_slist_set_data(vek_slist_next(list), word(8));
    EXPECT_EQ(vek_slist_data(vek_slist_find(list, word(8))), word(8));
    EXPECT_EQ(vek_slist_find(list, word(9)), nullptr);

    VekSList *const first = list;
    list = vek_slist_remove_link(list, first);
    EXPECT_EQ(first->next, nullptr);
    VekSList *const middle = vek_slist_find(list, word(1));
    EXPECT_EQ(vek_slist_remove_link(list, middle), list);
    EXPECT_EQ(middle->next, nullptr);
    list = vek_slist_delete_link(list, vek_slist_find(list, word(3)));
    EXPECT_EQ(numbers_of(list), (Numbers{8, 2}));

    VekSList *const alone = vek_slist_insert_after(nullptr, word(4));
    seen.clear();
    for (VekSList *each : {first, middle, alone, list}) { vek_slist_free(each, note); }
    EXPECT_EQ(seen, (Numbers{0, 1, 4, 8, 2}));
}

TEST(SList, Compares)
{
    Allocator allocator;
    VekSList *const list = list_of({1, 2, 3});
    const auto same_parity = [](const void *a, const void *b) -> int {
        return (number_of(a) - number_of(b)) % 2 == 0;
    };
    const std::tuple<Numbers, int, int> rows[] = {{{1, 2, 3}, 1, 1},    {{1, 2}, 0, 0},
                                                  {{1, 2, 3, 4}, 0, 0}, {{3, 4, 5}, 0, 1},
                                                  {{1, 3, 3}, 0, 0},    {{}, 0, 0}};
    for (const auto &[numbers, identical, equal] : rows) {
        VekSList *const other = list_of(numbers);
        EXPECT_EQ(vek_slist_equal(list, other, nullptr), identical);
        EXPECT_EQ(vek_slist_equal(list, other, same_parity), equal);
        vek_slist_free(other, nullptr);
    }
    EXPECT_EQ(vek_slist_equal(list, list, [](const void *, const void *) { return 0; }), 1);

    vek_slist_free(list, nullptr);
}

TEST(SList, ChecksNameTheFault)
{
    VekSList other = {nullptr, nullptr};
    VekSList list = {nullptr, nullptr};
    EXPECT_REFUSE(nullptr, "slist != NULL", vek_slist_set_data, vek_slist_data, vek_slist_next,
                  vek_slist_remove_link);
    EXPECT_REFUSE(&list, "target != NULL", vek_slist_remove_link);
    EXPECT_FAILS("before != NULL", vek_slist_remove_link(&list, &other), &list);
    EXPECT_FAILS("before != NULL", vek_slist_insert_before(&list, &other, nullptr), nullptr);
    EXPECT_FAILS("compare != NULL", vek_slist_insert_sorted(&list, &other, nullptr), nullptr);
    EXPECT_FAILS("compare != NULL", vek_slist_sort(&list, nullptr), &list);
    EXPECT_EQ(list.next, nullptr);
    expect_warnings({}, [] { // null is the empty list
        EXPECT_EQ(vek_slist_get_length(nullptr), 0u);
        EXPECT_EQ(vek_slist_find(nullptr, nullptr), nullptr);
        EXPECT_EQ(vek_slist_dup(nullptr, nullptr), nullptr);
        EXPECT_EQ(vek_slist_equal(nullptr, nullptr, nullptr), 1);
        EXPECT_EQ(vek_slist_remove(nullptr, nullptr), nullptr);
        vek_slist_free(nullptr, note);
    });
    expect_warnings({{"vek_slist_remove_link", "target != NULL"},
                     {"slist_destroy", "slist != NULL"},
                     {"vek_slist_remove_link", "before != NULL"},
                     {"vek_slist_remove_link", "slist != NULL"}},
                    [&] {
                        EXPECT_EQ(vek_slist_delete_link(&list, nullptr), nullptr);
                        EXPECT_EQ(vek_slist_delete_link(&list, &other), &list); // not released
                        EXPECT_EQ(vek_slist_delete_link(nullptr, &other), nullptr);
                    });
}

TEST(SList, TheCopierMayChangeTheList)
{
    static VekSList *shrinking = list_of({1, 2, 3}); // by the function that copies its elements
    VekSList *const copy = vek_slist_dup(shrinking, [](void *data) {
        shrinking = vek_slist_remove(shrinking, word(number_of(data) + 1));
        return data;
    });
    EXPECT_EQ(numbers_of(copy), (Numbers{1, 3, 0}));
    for (VekSList *each : {shrinking, copy}) { vek_slist_free(each, nullptr); }
    static VekSList *growing = list_of({1});
    VekSList *const shorter = vek_slist_dup(growing, [](void *data) {
        vek_slist_insert_after(growing, data);
        return data;
    });
    EXPECT_EQ(numbers_of(shorter), (Numbers{1})); // what was there before
    for (VekSList *each : {growing, shorter}) { vek_slist_free(each, nullptr); }
}

TEST(SList, LoopsMayStopAndRemove)
{
    Allocator allocator;
    VekSList *list = list_of({2, 1, 2, 3, 4});
    VekSList *node;
    VekSList *next;
    Numbers walked;
    VEK_SLIST_FOREACH(node, list) {
        if (node->data == word(3)) break;
        if (node->data == word(1)) continue;
        walked.push_back(number_of(node->data));
    }
    EXPECT_EQ(walked, (Numbers{2, 2}));
    VEK_SLIST_FOREACH_SAFE(node, next, list) {
        if (number_of(node->data) % 2 == 0) { list = vek_slist_delete_link(list, node); }
    }
    EXPECT_EQ(numbers_of(list), (Numbers{1, 3}));
    for (const auto &[number, left] : {std::pair{7, Numbers{1, 3}}, {3, {1}}, {1, {}}, {1, {}}}) {
        list = vek_slist_remove(list, word(number));
        EXPECT_EQ(numbers_of(list), left);
    }
}

TEST(SList, SortsInPlaceWithFewComparisons)
{
    Allocator allocator;
    std::mt19937 random(1);
    for (unsigned length = 0; length <= 100; ++length) {
        Numbers model(length);
        for (intptr_t &number : model) { number = static_cast<intptr_t>(random() % 200); }
        VekSList *list = list_of(model);
        VekSList *const other = list_of(model);
        std::ranges::stable_sort(model, {}, [](intptr_t number) { return number / 10; });
        allocator.fail_nth(0);
        compared = 0;
        list = vek_slist_sort(list, by_tens);
        EXPECT_EQ(numbers_of(list), model);
        EXPECT_EQ(allocator.allocations(), 0u);
        EXPECT_LE(compared, length * std::bit_width(length));

        for (unsigned i = 0; i < length; ++i) {
            EXPECT_EQ(vek_slist_nth_data(list, i), word(model[i]));
        }
        EXPECT_EQ(vek_slist_nth_data(list, length), nullptr);
        EXPECT_EQ(vek_slist_last(list), length > 0 ? vek_slist_nth(list, length - 1) : nullptr);
        list = vek_slist_concat(list, other);
        EXPECT_EQ(vek_slist_get_length(list), 2 * length);
        EXPECT_EQ(vek_slist_nth(list, length), other);
        EXPECT_EQ(vek_slist_nth(list, 2 * length), nullptr);
        vek_slist_free(list, nullptr);
    }
}
