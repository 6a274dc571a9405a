/* SPDX-License-Identifier: MIT */
/** @file vekslist.h
 *  A singly linked list of untyped pointers. A list is a pointer to its first node; null is the
 *  empty list. Functions that can change the first node return the new one, and the caller stores
 *  it. The caller owns the nodes. A list does not own its elements: they are released, copied and
 *  compared only by the callbacks that the caller passes.
 *
 *      VekSList *node, *paths = vek_slist_append(NULL, (void *)"/etc");
 *      VEK_SLIST_FOREACH(node, paths) puts(node->data);
 *      vek_slist_free(paths, NULL);
 *
 *  Loops, access by position, sorting and other conveniences are in vekslist_inline.h, which this
 *  header includes.
 *
 *  Threads: a list is used by one thread at a time; different threads may use different lists.
 */
#ifndef VEKLIB_VEKSLIST_H
#define VEKLIB_VEKSLIST_H

#include <veklib/vekcallbacks.h>
#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** One node of a list. */
typedef struct VekSList VekSList;
struct VekSList {
    void *data;     /**< the element; not owned by the list */
    VekSList *next; /**< the next node; null in the last one */
};

/* ---- Create and release ---- */

/** Puts an element in front of the others.
 *  @param slist  the list, taken on success; null is the empty list
 *  @param data   the element; may be null; stored
 *  @return  the new first node
 *  Fails:   no memory -> null; the list is unchanged, so keep its pointer until you have tested the
 *           result
 */
VEK_API VEK_MUST_USE VekSList *vek_slist_prepend(VekSList *slist, void *data);

/** Puts an element at the end; walks the whole list.
 *  @param slist  the list, taken; null is the empty list
 *  @param data   the element; may be null; stored
 *  @return  the first node; always store it, because an empty list gets a new one
 *  Fails:   no memory -> `slist`, unchanged (null for the empty list)
 */
VEK_API VEK_MUST_USE VekSList *vek_slist_append(VekSList *slist, void *data);

/** Puts an element after a node.
 *  @param slist  the node, borrowed; null makes a new list of one node
 *  @param data   the element; may be null; stored
 *  @return  the new node
 *  Fails:   no memory -> null; nothing is changed
 */
VEK_API VekSList *vek_slist_insert_after(VekSList *slist, void *data);

/** Copies a list: new nodes with the same elements, or with copies of them.
 *  @param slist  the list, borrowed; null gives null
 *  @param copy   called once for each element, first to last, after all nodes are allocated; its
 *                result is stored even if it is null. Must not change the list. May be null: both
 *                lists then hold the same elements
 *  @return  the new list; release it with vek_slist_free()
 *  Fails:   no memory for the nodes -> null; `copy` was not called, and nothing is left allocated
 *  Traces charge the nodes to this function, not to its caller.
 */
VEK_API VEK_MUST_USE VekSList *vek_slist_dup(VekSList *slist, VekCopyFunc copy);

/** Releases a list.
 *  @param slist    the list, taken; null does nothing
 *  @param destroy  called for each element, first to last, just before its node is released; may
 *                  be null
 */
VEK_API void vek_slist_free(VekSList *slist, VekDestroyFunc destroy);

/* ---- Read ---- */

/** Returns the element of a node.
 *  @param slist  the node, borrowed
 *  @return  the element, borrowed; may be null
 *  Fails:   null `slist` -> null, with a warning
 */
VEK_API void *vek_slist_data(const VekSList *slist);

/** Returns the node after a node.
 *  @param slist  the node, borrowed
 *  @return  the next node, borrowed; null after the last one
 *  Fails:   null `slist` -> null, with a warning
 */
VEK_API VekSList *vek_slist_next(const VekSList *slist);

/** Finds an element by its address.
 *  @param slist  the list, borrowed; null is the empty list
 *  @param data   the pointer to look for; may be null
 *  @return  the first node that holds it, borrowed; null if there is none
 */
VEK_API VekSList *vek_slist_find(VekSList *slist, const void *data);

/** Returns 1 when two lists have equal elements in the same order, else 0.
 *  @param a      a list, borrowed; null is the empty list
 *  @param b      another list, borrowed; null is the empty list
 *  @param equal  compares an element of `a` with one of `b` when they are different pointers; may
 *                be null: different pointers are then never equal
 */
VEK_API int vek_slist_equal(const VekSList *a, const VekSList *b, VekEqualFunc equal);

/** Returns the number of nodes of a list (borrowed; 0 for null); walks the whole list. */
VEK_API unsigned int vek_slist_get_length(const VekSList *slist);

/* ---- Change ---- */

/** Replaces the element of a node; the old element is not released.
 *  @param slist  the node, borrowed
 *  @param data   the element; may be null; stored
 *  Fails: null `slist` -> nothing stored, with a warning
 */
VEK_API void vek_slist_set_data(VekSList *slist, void *data);

/** Removes a node from a list without releasing it. The node becomes a list of its own, which the
 *  caller releases with vek_slist_free().
 *  @param slist   the list, taken on success
 *  @param target  the node, which belongs to the caller on success
 *  @return  the first node of the remaining list; null if no node remains
 *  Fails:   null `slist` or null `target` -> null, with a warning; `target` not in the list ->
 *           `slist`, with a warning. Nothing is changed. If `target` may be null, test it before
 *           you replace the list's pointer with the result
 */
VEK_API VEK_MUST_USE VekSList *vek_slist_remove_link(VekSList *slist, VekSList *target);

/** Removes a node from a list and releases it; its element is not released.
 *  @param slist   the list, taken on success
 *  @param target  the node, taken on success
 *  @return  the first node of the remaining list; null if no node remains
 *  Fails:   as vek_slist_remove_link(), with one more warning for a null `target`. A node that is
 *           not in the list is not released
 */
VEK_API VEK_MUST_USE VekSList *vek_slist_delete_link(VekSList *slist, VekSList *target);

VEK_END_DECLS

#include <veklib/vekslist_inline.h>

#endif
