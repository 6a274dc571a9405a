/* SPDX-License-Identifier: MIT */
/* Dictionaries. What always holds:
 * - The items in use are the first `len` slots, counted through the segments in their order. Every
 *   segment but the last is full.
 * - Free slots are zero-filled. Releasing such empty records does nothing.
 * - A stored key is never empty, unless it is being released or the application has emptied it. A
 *   search that meets an empty key warns and fails.
 * - Slots never move: a borrowed datum stays where it is until its dictionary is cleared, emptied
 *   or released.
 * - Functions that the release of an item calls may search and walk the dictionary. So the items of
 *   a segment are released before the segment, and a dictionary that is being cleared may have
 *   fewer slots than `len`. */
#include "veklib/vekdict.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekdict_internal.h"
#include "veklib/vekmemory_internal.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace {

/* ---- Segments and slots ---- */

constexpr int32_t later_segment_slots = 10;

/** A zero-filled block of `header` bytes and `count` items, or null. */
void *new_items(size_t header, int32_t count)
{
    const auto slots = static_cast<size_t>(count);
    const bool fits = slots <= (SIZE_MAX - header) / sizeof(VekDictItem);
    return fits ? vek_calloc(1, header + slots * sizeof(VekDictItem)) : nullptr;
}

/** Moves a record by copying its bytes. The source is then zero-filled. */
void move(VekValue &to, VekValue &from)
{
    memcpy(&to, &from, sizeof to);
    memset(&from, 0, sizeof from);
}

/** Replaces a datum. The old one is released last, because its release may look the key up. */
void replace_datum(VekValue &stored, VekValue &from)
{
    if (!vek_value_owns(&stored)) {
        move(stored, from);
        return;
    }
    VekValue old = stored;
    move(stored, from);
    vek_value_release(&old);
}

/* ---- The walk over the items in use ---- */

/** Where a walk stands: at slot `index` of a segment, after `base` slots of earlier segments. */
struct VekDictIter {
    const VekDict *dict;
    VekDictSegment *segment;
    uint32_t base;
    uint32_t index;
};

/** The next item; null at the end. Reads the length each time, because callers may put items. */
VekDictItem *dict_iter_next(VekDictIter *iter)
{
    if (iter->base + iter->index >= static_cast<uint32_t>(iter->dict->len)) {
        return nullptr;
    }
    const auto count = static_cast<uint32_t>(iter->segment->count);
    if (iter->index == count) {
        if (iter->segment->next == nullptr) { // the dictionary is being cleared
            return nullptr;
        }
        iter->segment = iter->segment->next;
        iter->base += count;
        iter->index = 0;
    }
    return &iter->segment->items[iter->index++];
}

VekDictItem *dict_iter_first(VekDictIter *iter, const VekDict *dict)
{
    // The walk itself changes nothing. Its callers may, unless their dictionary is const.
    *iter = {dict, const_cast<VekDictSegment *>(&dict->first_seg), 0, 0};
    return dict_iter_next(iter);
}

/** Calls a function for each item. Its iterator is on the stack, while vek_dict_copy() and
 *  vek_dict_print() allocate theirs. The difference is interface: applications see the allocation,
 *  which can fail. */
void walk(const VekDict *dict, VekDictForeachFunc func, void *user_data)
{
    VekDictIter iter;
    for (VekDictItem *item = dict_iter_first(&iter, dict); item != nullptr;
         item = dict_iter_next(&iter)) {
        if (func(&item->key, &item->data, user_data)) {
            return;
        }
    }
}

/* ---- Search ---- */

/** Whether a search for an integer ends at this key: it is that integer, or is empty. The bits come
 *  first, because (same bits && an integer) || empty takes twice the time in the loop. */
[[gnu::always_inline]] inline bool ends_at(const VekValue &stored, int32_t key)
{
    return vek_is_rare(stored.payload.integer == key || stored.vt == nullptr) &&
           (vek_value_is(&stored, VEK_VALUE_INT) || stored.vt == nullptr);
}

/** The result of a search that ended at an integer or at an empty key. */
[[gnu::always_inline]] inline VekDictPlace found_at(VekDictItem *item, const char *function)
{
    if (vek_is_rare(item->key.vt == nullptr)) {
        vek_dict_report_empty_key(&item->key, function);
        return {nullptr, nullptr, 0, true};
    }
    return {item, nullptr, 0, false};
}

/** Works like vek_dict_search() for an integer, but looks at two items at a time. With 50 items
 *  that takes 0.7 of the time; with 5 it takes as long. Force-inlined: returning the place in
 *  memory would cost more than the pairs save. */
[[gnu::always_inline]] inline VekDictPlace search_int(const VekDict *dict, int32_t key,
                                                      const char *function)
{
    auto *segment = const_cast<VekDictSegment *>(&dict->first_seg);
    for (int32_t left = dict->len;; segment = segment->next) {
        const int32_t used = std::min(segment->count, left);
        VekDictItem *item = segment->items;
        const VekDictItem *const end = item + used;
        if (used % 2 != 0) {
            if (ends_at(item->key, key)) {
                return found_at(item, function);
            }
            ++item;
        }
        for (; item != end; item += 2) {
            if (ends_at(item[0].key, key)) {
                return found_at(&item[0], function);
            }
            if (ends_at(item[1].key, key)) {
                return found_at(&item[1], function);
            }
        }
        left -= used;
        if (segment->next == nullptr) {
            return {nullptr, segment, used, false};
        }
    }
}

/** Searches for a key. A warning about an empty stored key names `function`. */
VekDictPlace find_item(const VekDict *dict, const VekValue *key, const char *function)
{
    switch (key->vt->type) {
    case VEK_VALUE_INT:
        return search_int(dict, key->payload.integer, function);
    case VEK_VALUE_STRING:
        return vek_dict_search(dict, function, vek_dict_match_string(key->payload.string));
    case VEK_VALUE_NAME:
        return vek_dict_search(dict, function, vek_dict_match_name(key->payload.name));
    default:
        return vek_dict_search(dict, function, [key](const VekValue &stored) {
            return stored.vt != nullptr && vek_value_equal(key, &stored);
        });
    }
}

/** The slot after the items in use, in a new segment if the last one is full; null without memory
 *  for it. */
VekDictItem *next_slot(const VekDictPlace &search)
{
    VekDictSegment *const last = search.last;
    if (search.used < last->count) {
        return &last->items[search.used];
    }
    void *const block = new_items(offsetof(VekDictSegment, items), later_segment_slots);
    if (block == nullptr) {
        return nullptr;
    }
    last->next = static_cast<VekDictSegment *>(block);
    last->next->count = later_segment_slots;
    return last->next->items;
}

/** Writes both warnings of an empty key: that of the query for its type, and that of the check.
 *  Callers test `vt` first, so that valid keys cost no call. */
[[gnu::cold]] void report_empty_key(const VekValue *key, const char *condition, int line,
                                    const char *function)
{
    vek_value_get_type(key); // warns
    vek_failed_check(condition, line, function);
}

/* ---- Release ---- */

void release_items(VekDictSegment *segment)
{
    for (int32_t i = 0; i < segment->count; ++i) {
        vek_value_clear(&segment->items[i].key);
        vek_value_clear(&segment->items[i].data);
    }
}

/** Releases the items of a segment and of all segments after it. */
void release_items_from(VekDictSegment *segment)
{
    for (; segment != nullptr; segment = segment->next) {
        release_items(segment);
    }
}

void zero_first_items(VekDict *dict)
{
    VekDictSegment &first = dict->first_seg;
    memset(first.items, 0, static_cast<size_t>(first.count) * sizeof(VekDictItem));
    dict->len = 0;
}

void free_later_segments(VekDict *dict)
{
    VekDictSegment *segment = dict->first_seg.next;
    dict->first_seg.next = nullptr;
    while (segment != nullptr) {
        VekDictSegment *const next = segment->next;
        vek_free(segment);
        segment = next;
    }
}

/** Copies all items into the first segment; false, and stops, at one that cannot be copied. */
bool copy_items(VekDict *copy, const VekDict *source, VekDictIter *iter)
{
    bool copied = true;
    VekDictItem *slot = copy->first_seg.items;
    for (const VekDictItem *item = dict_iter_first(iter, source); item != nullptr && copied;
         item = dict_iter_next(iter), ++slot) {
        copied = vek_value_copy(&slot->key, &item->key) && vek_value_copy(&slot->data, &item->data);
    }
    return copied;
}

void print_item(const VekDictItem *item)
{
    char *const data = vek_value_get_as_string(&item->data);
    char *const key = vek_value_get_as_string(&item->key);
    fprintf(stdout, "Key: %s\tValue:%s\n", key != nullptr ? key : "(nul)",
            data != nullptr ? data : "(nul)");
    vek_free(key);
    vek_free(data);
}

} // namespace

void vek_dict_report_empty_key(const VekValue *key, const char *function)
{
    // The text is interface: products search their logs for it. Its variable names exist nowhere.
    report_empty_key(key, "vek_value_get_type(&(cur_seg_ptr->items[i].key)) != VEK_VALUE_INVALID",
                     __LINE__, function);
}

VekValue *vek_dict_find_int(const VekDict *dict, int32_t key)
{
    VekDictItem *const item = search_int(dict, key, "_vek_dict_get_value").item;
    return item != nullptr ? &item->data : nullptr;
}

/* ---- Create and release ---- */

VekDict *_vek_dict_create_full(int init_count, VekValueType key_type,
                               VekDictForeachFunc destroy_func, void *user_data)
{
    VEK_RETURN_VAL_IF_FAIL(init_count > 0, nullptr);

    constexpr size_t header = offsetof(VekDict, first_seg) + offsetof(VekDictSegment, items);
    auto *const dict = static_cast<VekDict *>(new_items(header, init_count));
    if (dict == nullptr) {
        return nullptr;
    }
    dict->first_seg.count = init_count;
    dict->key_type = key_type;
    dict->destroy_func = destroy_func;
    dict->user_data = user_data;
    dict->ref_count = 1;
    return dict;
}

VekDict *_vek_dict_create(int init_count, VekValueType key_type)
{
    return _vek_dict_create_full(init_count, key_type, nullptr, nullptr);
}

VekDict *vek_dict_ref(VekDict *dict)
{
    if (dict == nullptr) {
        return nullptr;
    }
    VEK_RETURN_VAL_IF_FAIL(INT_MAX > dict->ref_count, nullptr);

    ++dict->ref_count;
    return dict;
}

void vek_dict_destroy(VekDict *dict)
{
    if (dict == nullptr) {
        return;
    }
    if (dict->ref_count > 1) {
        --dict->ref_count;
        return;
    }
    if (dict->destroy_func != nullptr) {
        walk(dict, dict->destroy_func, dict->user_data);
    }
    release_items_from(&dict->first_seg);
    free_later_segments(dict);
    vek_free(dict);
}

VekDict *vek_dict_copy(const VekDict *orig_dict_ptr, int init_count)
{
    VEK_RETURN_VAL_IF_FAIL(orig_dict_ptr, nullptr);
    VEK_RETURN_VAL_IF_FAIL(init_count > 0, nullptr);

    VekDict *copy =
        _vek_dict_create(std::max(init_count, orig_dict_ptr->len), orig_dict_ptr->key_type);
    if (copy == nullptr) {
        return nullptr;
    }
    copy->len = orig_dict_ptr->len;
    auto *const iter = vek_new<VekDictIter>();
    if (iter == nullptr || !copy_items(copy, orig_dict_ptr, iter)) {
        vek_dict_destroy(copy);
        copy = nullptr;
    }
    vek_free(iter);
    return copy;
}

VekDict *vek_dict_dup_and_clear(VekDict *orig_dict_ptr)
{
    VEK_RETURN_VAL_IF_FAIL(orig_dict_ptr, nullptr);

    VekDict *const dict = _vek_dict_create(orig_dict_ptr->len, orig_dict_ptr->key_type);
    if (dict == nullptr) {
        return nullptr;
    }
    int32_t left = orig_dict_ptr->len;
    VekDictItem *slot = dict->first_seg.items;
    for (const VekDictSegment *segment = &orig_dict_ptr->first_seg; left > 0;
         segment = segment->next) {
        const int32_t used = std::min(segment->count, left);
        memcpy(slot, segment->items, static_cast<size_t>(used) * sizeof *slot);
        slot += used;
        left -= used;
    }
    dict->len = orig_dict_ptr->len;
    free_later_segments(orig_dict_ptr);
    zero_first_items(orig_dict_ptr);
    return dict;
}

/* ---- Read ---- */

VekValueType vek_dict_get_key_type(const VekDict *vekdict)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict != NULL, VEK_VALUE_INVALID);

    return vekdict->key_type;
}

int vek_dict_get_len(const VekDict *vekdict)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict != NULL, 0);

    return vekdict->len;
}

VekValue *_vek_dict_get_value(const VekDict *vekdict_ptr, const VekValue *key)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);
    VEK_RETURN_VAL_IF_FAIL(key != NULL, nullptr);
    if (key->vt == nullptr) {
        report_empty_key(key, "vek_value_get_type(key) != VEK_VALUE_INVALID", __LINE__, __func__);
        return nullptr;
    }

    VekDictItem *const item = find_item(vekdict_ptr, key, __func__).item;
    return item != nullptr ? &item->data : nullptr;
}

/* ---- Change ---- */

int _vek_dict_put_value(VekDict *vekdict_ptr, VekValue *key, VekValue *data)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(key != NULL, 0);
    if (key->vt == nullptr) {
        report_empty_key(key, "vek_value_get_type(key) != VEK_VALUE_INVALID", __LINE__, __func__);
        return 0;
    }
    VEK_RETURN_VAL_IF_FAIL(data != NULL, 0);

    const VekDictPlace search = find_item(vekdict_ptr, key, __func__);
    if (search.failed) {
        return 0;
    }
    if (search.item != nullptr) {
        replace_datum(search.item->data, *data);
        vek_value_clear(key);
        return 1;
    }
    VekDictItem *const slot = next_slot(search);
    if (slot == nullptr) {
        return 0;
    }
    move(slot->key, *key);
    move(slot->data, *data);
    ++vekdict_ptr->len;
    return 1;
}

VekDict *vek_dict_clear(VekDict *vekdict_ptr)
{
    VEK_RETURN_VAL_IF_FAIL(vekdict_ptr != NULL, nullptr);

    release_items_from(vekdict_ptr->first_seg.next);
    free_later_segments(vekdict_ptr);
    release_items(&vekdict_ptr->first_seg);
    zero_first_items(vekdict_ptr);
    return vekdict_ptr;
}

/* ---- Walk ---- */

void vek_dict_foreach(VekDict *vekdict, VekDictForeachFunc func, void *user_data)
{
    VEK_RETURN_IF_FAIL(vekdict != NULL);
    VEK_RETURN_IF_FAIL(func != NULL);

    walk(vekdict, func, user_data);
}

/* ---- Diagnostics ---- */

void vek_dict_print(const VekDict *vekdict)
{
    VEK_RETURN_IF_FAIL(vekdict != NULL);

    auto *const iter = vek_new<VekDictIter>();
    if (iter == nullptr) {
        return;
    }
    for (const VekDictItem *item = dict_iter_first(iter, vekdict); item != nullptr;
         item = dict_iter_next(iter)) {
        print_item(item);
    }
    vek_free(iter);
}

int _vek_dict_get_ref_count(const VekDict *dict)
{
    VEK_RETURN_VAL_IF_FAIL(dict != NULL, -1);

    return dict->ref_count;
}
