/* SPDX-License-Identifier: MIT */
/** @file vekslist_inline.h
 *  Conveniences for lists: loops, access by position, sorting. vekslist.h includes this header.
 *  Null is the empty list everywhere. The functions are compiled into the application and use what
 *  vekslist.h offers; traces charge new nodes to the application.
 *
 *      VekSList *node;
 *      paths = vek_slist_sort(paths, compare_paths);
 *      VEK_SLIST_FOREACH(node, paths) puts(node->data);
 */
#ifndef VEKLIB_VEKSLIST_INLINE_H
#define VEKLIB_VEKSLIST_INLINE_H

#include <stddef.h>

#include <veklib/vekdiag.h>
#include <veklib/vekslist.h>

VEK_BEGIN_INLINE

/* ---- Walk ---- */

/** The head of a loop over the nodes of a list, first to last. `break` and `continue` work as in
 *  any loop. The body must not remove the current node.
 *  @param node  a variable of type VekSList * or const VekSList *; null after the last node
 *  @param list  the first node, or null; evaluated once
 */
#define VEK_SLIST_FOREACH(node, list) for ((node) = (list); (node) != NULL; (node) = (node)->next)

/** Like VEK_SLIST_FOREACH(), but the body may remove and release the current node. It must not
 *  remove the one after it.
 *  @param following  a second variable of the same type, which holds the next node of the loop
 */
#define VEK_SLIST_FOREACH_SAFE(node, following, list)                                              \
    for ((node) = (list); (node) != NULL && ((following) = (node)->next, 1); (node) = (following))

/* ---- Read ---- */

/** Returns the last node of a list (borrowed), null for the empty list; walks the whole list. */
static inline VekSList *vek_slist_last(VekSList *slist)
{
    VekSList *last = slist;
    while (slist != NULL) {
        last = slist;
        slist = slist->next;
    }
    return last;
}

/** Finds a node by its position.
 *  @param slist  the list, borrowed
 *  @param n      the position; the first node is at 0
 *  @return  the node, borrowed; null beyond the end
 */
static inline VekSList *vek_slist_nth(VekSList *slist, unsigned int n)
{
    for (; slist != NULL && n > 0; --n) {
        slist = slist->next;
    }
    return slist;
}

/** Finds an element by its position.
 *  @param slist  the list, borrowed
 *  @param n      the position; the first element is at 0
 *  @return  the element, borrowed; null beyond the end, without a warning
 */
static inline void *vek_slist_nth_data(const VekSList *slist, unsigned int n)
{
    for (; slist != NULL && n > 0; --n) {
        slist = slist->next;
    }
    return slist != NULL ? slist->data : NULL;
}

/* ---- Change ---- */

/** Puts an element before a node; walks the list up to it.
 *  @param slist    the list, taken on success
 *  @param sibling  the node, borrowed; null puts the element at the end
 *  @param data     the element; may be null; stored
 *  @return  the first node
 *  Fails:   no memory -> null; `sibling` not in the list -> null, with a warning. The list is
 *           unchanged, so keep its pointer until you have tested the result
 */
VEK_MUST_USE static inline VekSList *vek_slist_insert_before(VekSList *slist, VekSList *sibling,
                                                             void *data)
{
    VekSList *before = slist;
    if (slist == sibling) {
        return vek_slist_prepend(slist, data);
    }
    while (before != NULL && before->next != sibling) {
        before = before->next;
    }
    VEK_RETURN_VAL_IF_FAIL(before != NULL, NULL);
    return vek_slist_insert_after(before, data) != NULL ? slist : NULL;
}

/** Puts an element where it belongs in a sorted list, after the elements that are equal to it. To
 *  sort many elements, add each with vek_slist_prepend() and call vek_slist_sort() once.
 *  @param slist    the list, sorted by `compare`; taken on success
 *  @param data     the element; may be null; stored
 *  @param compare  the order; its first argument is an element of the list, the second is `data`
 *  @return  the first node
 *  Fails:   no memory -> null; null `compare` -> null, with a warning. The list is unchanged, so
 *           keep its pointer until you have tested the result
 */
VEK_MUST_USE static inline VekSList *vek_slist_insert_sorted(VekSList *slist, void *data,
                                                             VekCompareFunc compare)
{
    VekSList *before = NULL;
    VekSList *node = slist;
    VEK_RETURN_VAL_IF_FAIL(compare != NULL, NULL);

    while (node != NULL && compare(node->data, data) <= 0) {
        before = node;
        node = node->next;
    }
    if (before == NULL) {
        return vek_slist_prepend(slist, data);
    }
    return vek_slist_insert_after(before, data) != NULL ? slist : NULL;
}

/** Removes the first node that holds the given element, and releases the node; the element is not
 *  released.
 *  @param slist  the list, taken
 *  @param data   the pointer to look for; may be null
 *  @return  the first node of the remaining list; null if no node remains; `slist` when no node
 *           holds the pointer
 */
VEK_MUST_USE static inline VekSList *vek_slist_remove(VekSList *slist, const void *data)
{
    VekSList *const node = vek_slist_find(slist, data);
    return node != NULL ? vek_slist_delete_link(slist, node) : slist;
}

/** Joins two lists; walks the whole first one.
 *  @param a  a list, taken
 *  @param b  another list, taken, which shares no node with `a`
 *  @return  the first node of `a`, or of `b` when `a` is empty
 */
VEK_MUST_USE static inline VekSList *vek_slist_concat(VekSList *a, VekSList *b)
{
    VekSList **end = &a;
    while (*end != NULL) {
        end = &(*end)->next;
    }
    *end = b;
    return a;
}

/** Reverses the order of a list (taken); returns its new first node. */
VEK_MUST_USE static inline VekSList *vek_slist_reverse(VekSList *slist)
{
    VekSList *reversed = NULL;
    while (slist != NULL) {
        VekSList *const next = slist->next;
        slist->next = reversed;
        reversed = slist;
        slist = next;
    }
    return reversed;
}

/** Part of vek_slist_sort(): merges two sorted lists; of equal elements those of `a` come first. */
static inline VekSList *_vek_slist_merge(VekSList *a, VekSList *b, VekCompareFunc compare)
{
    VekSList *merged = NULL;
    VekSList **end = &merged;
    while (a != NULL && b != NULL) {
        VekSList **const from = compare(a->data, b->data) <= 0 ? &a : &b;
        *end = *from;
        end = &(*end)->next;
        *from = *end;
    }
    *end = a != NULL ? a : b;
    return merged;
}

/** Sorts a list; equal elements keep their order. It relinks the nodes, so it allocates nothing. It
 *  does not recurse, and its time grows as n log n.
 *  @param slist    the list, taken
 *  @param compare  the order of two elements; must not change the list
 *  @return  the new first node
 *  Fails:   null `compare` -> `slist`, unchanged, with a warning
 */
VEK_MUST_USE static inline VekSList *vek_slist_sort(VekSList *slist, VekCompareFunc compare)
{
    /* For i below `used`, runs[i] is null or a sorted run of 2^i nodes, as bit i of the number of
     * nodes so far is 0 or 1. Two runs of the same length are merged into one of twice the length.
     * A longer run holds earlier nodes. */
    VekSList *runs[8 * sizeof(void *)];
    size_t used = 0;
    size_t i;
    VekSList *sorted = NULL;
    VEK_RETURN_VAL_IF_FAIL(compare != NULL, slist);

    while (slist != NULL) {
        VekSList *run = slist;
        slist = slist->next;
        run->next = NULL;
        for (i = 0; i < used && runs[i] != NULL; ++i) {
            run = _vek_slist_merge(runs[i], run, compare);
            runs[i] = NULL;
        }
        runs[i] = run;
        used += i == used;
    }
    for (i = 0; i < used; ++i) {
        sorted = _vek_slist_merge(runs[i], sorted, compare);
    }
    return sorted;
}

VEK_END_INLINE

#endif
