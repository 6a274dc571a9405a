/* SPDX-License-Identifier: MIT */
/* Stacks: lists whose first node is the top. The record belongs to the caller; the nodes come from
 * the list's functions and are charged to the library. */
#include "veklib/vekstack.h"

#include "veklib/vekdiag_internal.h"

/* ---- Release ---- */

void vek_stack_free(VekStack *stack, VekDestroyFunc destroy)
{
    vek_slist_free(stack->top, destroy);
    stack->top = nullptr;
}

/* ---- Change ---- */

void vek_stack_push(VekStack *stack, void *data)
{
    VekSList *const top = vek_slist_prepend(stack->top, data);
    if (top == nullptr) {
        VEK_WARNING("%s: no memory, the element was not pushed", __func__);
        return;
    }
    stack->top = top;
}

void *vek_stack_pop(VekStack *stack)
{
    void *const data = vek_slist_data(stack->top);
    stack->top = vek_slist_delete_link(stack->top, stack->top);
    return data;
}

/* ---- Read ---- */

void *vek_stack_peek(const VekStack *stack)
{
    return vek_slist_data(stack->top);
}

int vek_stack_is_empty(const VekStack *stack)
{
    return stack->top == nullptr;
}

unsigned int vek_stack_get_depth(const VekStack *stack)
{
    return vek_slist_get_length(stack->top);
}

/* ---- Walk ---- */

void vek_stack_foreach(VekStack *stack, VekStackForeachFunc func, void *user_data)
{
    VEK_RETURN_IF_FAIL(stack != NULL);
    VEK_RETURN_IF_FAIL(func != NULL);

    for (const VekSList *node = stack->top; node != nullptr; node = node->next) {
        if (func(node->data, user_data)) {
            return;
        }
    }
}
