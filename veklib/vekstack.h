/* SPDX-License-Identifier: MIT */
/** @file vekstack.h
 *  A stack of untyped pointers, built on the singly linked list. The caller places the record; a
 *  zero-initialised one is an empty stack. The stack owns its nodes, but not the elements.
 *
 *      VekStack stack = {NULL};
 *      vek_stack_push(&stack, element);
 *      element = vek_stack_pop(&stack);
 *      vek_stack_free(&stack, NULL);
 *
 *  Threads: a stack is used by one thread at a time.
 */
#ifndef VEKLIB_VEKSTACK_H
#define VEKLIB_VEKSTACK_H

#include <veklib/vekslist.h>

VEK_BEGIN_DECLS

/** A stack. */
typedef struct VekStack {
    VekSList *top; /**< the elements, top first; null when the stack is empty */
} VekStack;

/** Receives an element and the caller's data; a nonzero result stops the walk. */
typedef int (*VekStackForeachFunc)(void *element, void *user_data);

/* ---- Release ---- */

/** Releases the nodes. The stack is then empty and can be used again. The record stays the
 *  caller's.
 *  @param stack    the stack; not null
 *  @param destroy  called for each element from the top down; must not use the stack; may be null
 */
VEK_API void vek_stack_free(VekStack *stack, VekDestroyFunc destroy);

/* ---- Change ---- */

/** Puts an element on top.
 *  @param stack  the stack; not null
 *  @param data   the element; stored, and released only by the `destroy` of vek_stack_free(). May
 *                be null: vek_stack_is_empty() distinguishes a null on top from an empty stack
 *  Fails: no memory -> the stack is unchanged and the element stays the caller's, with a warning
 */
VEK_API void vek_stack_push(VekStack *stack, void *data);

/** Removes the top element.
 *  @param stack  the stack; not null
 *  @return  the element, to which the stack no longer refers
 *  Fails:   empty stack -> null, with three warnings
 */
VEK_API void *vek_stack_pop(VekStack *stack);

/* ---- Read ---- */

/** Returns the top element, which stays in place.
 *  @param stack  the stack; not null
 *  @return  the element, borrowed
 *  Fails:   empty stack -> null, with a warning
 */
VEK_API void *vek_stack_peek(const VekStack *stack);

/** Returns 1 when the stack (not null) is empty, else 0. */
VEK_API int vek_stack_is_empty(const VekStack *stack);

/** Returns the number of elements of the stack (not null); walks them all. */
VEK_API unsigned int vek_stack_get_depth(const VekStack *stack);

/* ---- Walk ---- */

/** Calls a function for each element from the top down until it returns nonzero.
 *  @param stack      the stack
 *  @param func       the function; must not remove elements from the stack
 *  @param user_data  passed to the function; may be null; borrowed
 *  Fails: null `stack` or null `func` -> nothing called, with a warning
 */
VEK_API void vek_stack_foreach(VekStack *stack, VekStackForeachFunc func, void *user_data);

VEK_END_DECLS

#endif
