/* SPDX-License-Identifier: MIT */
/* Lists.
 *
 * Nodes are blocks of their own; a list is the address of its first node, and nothing else is
 * stored. Functions never touch elements, except through the functions that they are passed. */
#include "veklib/vekslist.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekmemory.h"
#include "veklib/vekmemory_internal.h"

namespace {

/** Makes a node, whose block is charged to the code at `caller`; null without memory. */
VekSList *new_node(void *data, VekSList *next, void *caller)
{
    auto *const node = vek_new_for<VekSList>(caller);
    if (node == nullptr) {
        return nullptr;
    }
    node->data = data;
    node->next = next;
    return node;
}

/** Releases a node. The function's name is interface because a failed check prints it. */
void slist_destroy(VekSList *slist)
{
    VEK_RETURN_IF_FAIL(slist != NULL);

    vek_free(slist);
}

/* The public vek_slist_remove_link() that also reports whether it removed the target. It has the
 * public name because its checks print that name, even when vek_slist_delete_link() was called. */
VekSList *vek_slist_remove_link(VekSList *slist, VekSList *target, bool &removed)
{
    removed = false;
    VEK_RETURN_VAL_IF_FAIL(slist != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(target != NULL, nullptr);

    VekSList *rest = slist;
    if (target == slist) {
        rest = target->next;
    } else {
        VekSList *before = slist;
        while (before != nullptr && before->next != target) {
            before = before->next;
        }
        VEK_RETURN_VAL_IF_FAIL(before != NULL, slist);
        before->next = target->next;
    }
    target->next = nullptr;
    removed = true;
    return rest;
}

} // namespace

/* ---- Create and release ---- */

VEK_ENTRY VekSList *vek_slist_prepend(VekSList *slist, void *data)
{
    return new_node(data, slist, VEK_CALLER);
}

VEK_ENTRY VekSList *vek_slist_append(VekSList *slist, void *data)
{
    VekSList **end = &slist;
    while (*end != nullptr) {
        end = &(*end)->next;
    }
    *end = new_node(data, nullptr, VEK_CALLER);
    return slist;
}

VEK_ENTRY VekSList *vek_slist_insert_after(VekSList *slist, void *data)
{
    VekSList *const node = new_node(data, nullptr, VEK_CALLER);
    if (node != nullptr && slist != nullptr) {
        node->next = slist->next;
        slist->next = node;
    }
    return node;
}

VekSList *vek_slist_dup(VekSList *slist, VekCopyFunc copy)
{
    // All nodes are made before any copy: if one failed later, nobody could release the copies that
    // were made. They come from the public function, so that a trace charges them to this one.
    VekSList *result = nullptr;
    VekSList **link = &result;
    for (const VekSList *node = slist; node != nullptr; node = node->next) {
        *link = vek_slist_prepend(nullptr, copy == nullptr ? node->data : nullptr);
        if (*link == nullptr) {
            vek_slist_free(result, nullptr);
            return nullptr;
        }
        link = &(*link)->next;
    }
    if (copy == nullptr) {
        return result;
    }
    const VekSList *source = slist; // `copy` may have shortened it
    for (VekSList *target = result; target != nullptr && source != nullptr; target = target->next) {
        target->data = copy(source->data);
        source = source->next;
    }
    return result;
}

void vek_slist_free(VekSList *slist, VekDestroyFunc destroy)
{
    while (slist != nullptr) {
        if (destroy != nullptr) {
            destroy(slist->data);
        }
        VekSList *const next = slist->next;
        vek_free(slist);
        slist = next;
    }
}

/* ---- Read ---- */

void *vek_slist_data(const VekSList *slist)
{
    VEK_RETURN_VAL_IF_FAIL(slist != NULL, nullptr);

    return slist->data;
}

VekSList *vek_slist_next(const VekSList *slist)
{
    VEK_RETURN_VAL_IF_FAIL(slist != NULL, nullptr);

    return slist->next;
}

VekSList *vek_slist_find(VekSList *slist, const void *data)
{
    while (slist != nullptr && slist->data != data) {
        slist = slist->next;
    }
    return slist;
}

int vek_slist_equal(const VekSList *a, const VekSList *b, VekEqualFunc equal)
{
    if (a == b) {
        return 1;
    }
    for (; a != nullptr && b != nullptr; a = a->next, b = b->next) {
        const bool same = a->data == b->data;
        if (!same && (equal == nullptr || !equal(a->data, b->data))) {
            return 0;
        }
    }
    return a == b;
}

unsigned int vek_slist_get_length(const VekSList *slist)
{
    unsigned int length = 0;
    for (; slist != nullptr; slist = slist->next) {
        ++length;
    }
    return length;
}

/* ---- Change ---- */

void vek_slist_set_data(VekSList *slist, void *data)
{
    VEK_RETURN_IF_FAIL(slist != NULL);

    slist->data = data;
}

VekSList *vek_slist_remove_link(VekSList *slist, VekSList *target)
{
    bool removed;
    return vek_slist_remove_link(slist, target, removed);
}

VekSList *vek_slist_delete_link(VekSList *slist, VekSList *target)
{
    bool removed;
    VekSList *const rest = vek_slist_remove_link(slist, target, removed);
    // A target that is not in this list may be in another one, so it is not released.
    if (removed || target == nullptr) {
        slist_destroy(target);
    }
    return rest;
}
