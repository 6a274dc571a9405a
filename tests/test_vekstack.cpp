/* SPDX-License-Identifier: MIT */
#include <veklib/vekstack.h>

#include "support/support.h"

using namespace vektest;

namespace {

using Numbers = std::vector<intptr_t>;

Numbers seen; ///< what a callback was called with

void note(void *data) { seen.push_back(reinterpret_cast<intptr_t>(data)); }

} // namespace

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
    for (const bool onward : {false, true}) {
        allocator.fail_nth(1, onward);
        const std::string text = captured(2, [&] { vek_stack_push(&stack, word(2)); });
        EXPECT_TRUE(contains(text, "vek_stack_push: no memory, the element was not pushed\n"));
    }
    EXPECT_EQ(vek_stack_pop(&stack), nullptr);
    EXPECT_EQ(vek_stack_is_empty(&stack), 1);
}

TEST(Stack, ChecksNameTheFault)
{
    VekStack empty = {nullptr};
    const Check no_top = {"vek_slist_data", "slist != NULL"};
    const Check no_list = {"vek_slist_remove_link", "slist != NULL"};
    const Check no_node = {"slist_destroy", "slist != NULL"};
    expect_warnings({no_top}, [&] { EXPECT_EQ(vek_stack_peek(&empty), nullptr); });
    expect_warnings({no_top, no_list, no_node}, [&] { EXPECT_EQ(vek_stack_pop(&empty), nullptr); });
    EXPECT_REFUSE(nullptr, "stack != NULL", vek_stack_foreach);
    EXPECT_REFUSE(&empty, "func != NULL", vek_stack_foreach);
}
