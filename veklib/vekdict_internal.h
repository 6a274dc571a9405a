/* SPDX-License-Identifier: MIT */
/* The search of a dictionary. It compares keys of a known type without a function call per item. */
#ifndef VEKLIB_VEKDICT_INTERNAL_H
#define VEKLIB_VEKDICT_INTERNAL_H

#include "veklib/vekcompiler_internal.h"
#include "veklib/vekdict.h"
#include "veklib/vekvalue_internal.h"

#include <algorithm>
#include <cstring>

/** What a search found. */
struct VekDictPlace {
    VekDictItem *item;    ///< the key's item, or null
    VekDictSegment *last; ///< for an absent key: the last segment that holds items
    int32_t used;         ///< for an absent key: number of slots in use in that segment
    bool failed;          ///< whether the search met an empty stored key, of which it has warned
};

/** Warns of an empty stored key; the warning names `function`. */
[[gnu::cold]] VEK_HIDDEN void vek_dict_report_empty_key(const VekValue *key, const char *function);

/** The datum of an integer key in any dictionary, or null: the search of _vek_dict_get_value(), but
 *  without a record for the key. */
VEK_HIDDEN VekValue *vek_dict_find_int(const VekDict *dict, int32_t key);

/** Finds the first item in use for whose key `matches` returns true; it must return false for an
 *  empty key. The search ends with the last segment; a dictionary that is being cleared may have
 *  fewer slots than `len`. search_int() in vekdict.cpp walks the segments likewise. */
template <typename Matches>
VekDictPlace vek_dict_search(const VekDict *dict, const char *function, Matches matches)
{
    auto *segment = const_cast<VekDictSegment *>(&dict->first_seg);
    for (int32_t left = dict->len;; segment = segment->next) {
        const int32_t used = std::min(segment->count, left);
        for (VekDictItem *item = segment->items; item != segment->items + used; ++item) {
            if (vek_is_rare(matches(item->key))) {
                return {item, nullptr, 0, false};
            }
            if (vek_is_rare(item->key.vt == nullptr)) {
                vek_dict_report_empty_key(&item->key, function);
                return {nullptr, nullptr, 0, true};
            }
        }
        left -= used;
        if (segment->next == nullptr) {
            return {nullptr, segment, used, false};
        }
    }
}

/* The functions that match keys of other types than integers, which have a search of their own.
 * They match the same keys as vek_value_equal(). */

inline auto vek_dict_match_string(const char *key)
{
    // Works like vek_is_same_text(), but reads the key's first byte only once, not for each item: a
    // search through 50 items is an eighth faster. -1 is no byte, so a null key equals no text.
    const int first = key != nullptr ? static_cast<unsigned char>(*key) : -1;
    return [key, first](const VekValue &stored) {
        if (!vek_value_is(&stored, VEK_VALUE_STRING)) {
            return false;
        }
        const char *const text = stored.payload.string;
        if (text == nullptr) {
            return key == nullptr;
        }
        return vek_is_rare(static_cast<unsigned char>(*text) == first) && strcmp(text, key) == 0;
    };
}

inline auto vek_dict_match_name(const VekName *key)
{
    return [key](const VekValue &stored) {
        return vek_is_rare(stored.payload.name == key) && vek_value_is(&stored, VEK_VALUE_NAME);
    };
}

#endif
