/* SPDX-License-Identifier: MIT */
#include <veklib/vekmemory.h>
#include <veklib/vekslist.h>
#include <veklib/vekstack.h>

#include "support/support.h"

#include <tuple>

using namespace vektest;

namespace {

using Numbers = std::vector<intptr_t>;

VekSList *list_of(const Numbers &numbers)
{
    VekSList *list = nullptr;
    for (const intptr_t number : numbers) { list = vek_slist_append(list, word(number)); }
    return list;
}

Numbers numbers_of(const VekSList *list)
{
    Numbers numbers;
    for (; list != nullptr; list = list->next) {
        numbers.push_back(reinterpret_cast<intptr_t>(list->data));
    }
    return numbers;
}

Numbers seen; ///< what a callback was called with

void note(void *data) { seen.push_back(reinterpret_cast<intptr_t>(data)); }

const Check no_list = {"vek_slist_remove_link", "slist != NULL"};
const Check no_node = {"slist_destroy", "slist != NULL"};

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
    EXPECT_EQ(numbers_of(alone), (Numbers{4}));
    for (VekSList *each : {first, middle, alone}) { vek_slist_free(each, nullptr); }
    seen.clear();
    vek_slist_free(list, note);
    EXPECT_EQ(seen, (Numbers{8, 2}));
}

TEST(SList, Compares)
{
    Allocator allocator;
    VekSList *const list = list_of({1, 2, 3});
    const auto same_parity = [](const void *a, const void *b) -> int {
        return (reinterpret_cast<intptr_t>(a) - reinterpret_cast<intptr_t>(b)) % 2 == 0;
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
    expect_warnings({}, [] { // null is the empty list
        EXPECT_EQ(vek_slist_get_length(nullptr), 0u);
        EXPECT_EQ(vek_slist_find(nullptr, nullptr), nullptr);
        EXPECT_EQ(vek_slist_dup(nullptr, nullptr), nullptr);
        EXPECT_EQ(vek_slist_equal(nullptr, nullptr, nullptr), 1);
        vek_slist_free(nullptr, note);
    });
    const Check not_in_list = {"vek_slist_remove_link", "before != NULL"};
    const Check no_target = {"vek_slist_remove_link", "target != NULL"};
    expect_warnings({no_target, no_node, not_in_list, no_list}, [&] {
        EXPECT_EQ(vek_slist_delete_link(&list, nullptr), nullptr);
        EXPECT_EQ(vek_slist_delete_link(&list, &other), &list); // and `other` is left alone
        EXPECT_EQ(vek_slist_delete_link(nullptr, &other), nullptr);
    });
}

TEST(SList, DuplicatesWholeOrNotAtAll)
{
    fail_each_allocation([](Allocator &allocator) {
        VekSList *list = nullptr;
        Numbers expected;
        for (const intptr_t number : {1, 2, 3}) {
            list = vek_slist_append(list, word(number));
            if (!allocator.just_failed()) { expected.push_back(number); }
        }
        EXPECT_EQ(numbers_of(list), expected);
        VekSList *const shared = vek_slist_dup(list, nullptr);
        EXPECT_EQ(numbers_of(shared), allocator.just_failed() ? Numbers() : expected);
        seen.clear();
        VekSList *const copy = vek_slist_dup(list, [](void *data) {
            note(data);
            return word(-reinterpret_cast<intptr_t>(data));
        });
        // Nothing is copied that nobody could release.
        if (allocator.just_failed()) { expected.clear(); }
        EXPECT_EQ(seen, expected);
        for (intptr_t &number : expected) { number = -number; }
        EXPECT_EQ(numbers_of(copy), expected);
        for (VekSList *each : {list, shared, copy}) { vek_slist_free(each, nullptr); }
    });
}

TEST(Stack, IsLastInFirstOut)
{
    Allocator allocator;
    VekStack stack = {nullptr};
    EXPECT_EQ(vek_stack_is_empty(&stack), 1);
    for (const intptr_t number : {1, 2, 3}) { vek_stack_push(&stack, word(number)); }
    EXPECT_EQ(vek_stack_get_depth(&stack), 3u);
    EXPECT_EQ(vek_stack_peek(&stack), word(3));
    const auto note_until = [](void *data, void *stop) -> int {
        note(data);
        return data == stop;
    };
    for (const auto &[stop, walked] : {std::pair{2, Numbers{3, 2}}, {9, {3, 2, 1}}}) {
        seen.clear();
        vek_stack_foreach(&stack, note_until, word(stop));
        EXPECT_EQ(seen, walked);
    }
    EXPECT_EQ(vek_stack_pop(&stack), word(3));
    seen.clear();
    vek_stack_free(&stack, note);
    EXPECT_EQ(seen, (Numbers{2, 1}));
    EXPECT_EQ(stack.top, nullptr);

    vek_stack_push(&stack, nullptr);
    EXPECT_EQ(vek_stack_is_empty(&stack), 0);
    allocator.fail_nth(1);
    const std::string text = captured(2, [&] { vek_stack_push(&stack, word(2)); });
    EXPECT_TRUE(contains(text, "vek_stack_push: no memory, the element was not pushed\n")) << text;
    EXPECT_EQ(vek_stack_pop(&stack), nullptr);
    EXPECT_EQ(vek_stack_is_empty(&stack), 1);
}

TEST(Stack, ChecksNameTheFault)
{
    VekStack empty = {nullptr};
    const Check no_top = {"vek_slist_data", "slist != NULL"};
    expect_warnings({no_top}, [&] { EXPECT_EQ(vek_stack_peek(&empty), nullptr); });
    expect_warnings({no_top, no_list, no_node}, [&] { EXPECT_EQ(vek_stack_pop(&empty), nullptr); });
    EXPECT_REFUSE(nullptr, "stack != NULL", vek_stack_foreach);
    EXPECT_REFUSE(&empty, "func != NULL", vek_stack_foreach);
}
