/* SPDX-License-Identifier: MIT */
/* The bodies of the typed dictionaries' functions. `Keys` says how a key is stored and found:
 *
 *     Keys::Key                    the type of the key that callers pass
 *     Keys::store(record, key)     fills in the record of a key to be stored; false without memory
 *     Keys::find(dict, key)        the datum of a key, or null; does the work of
 *                                  _vek_dict_get_value(), but needs no record for the key
 */
#ifndef VEKLIB_VEKTYPEDDICT_INTERNAL_H
#define VEKLIB_VEKTYPEDDICT_INTERNAL_H

#include "veklib/vekdict_internal.h"

/** Keys::find() with a function that matches keys. Force-inlined, so that a get is one search
 *  without a call. */
template <typename Matches>
[[gnu::always_inline]] inline VekValue *vek_dict_find(const VekDict *dict, Matches matches)
{
    // This name is interface: the warning about an empty stored key prints it.
    VekDictItem *const item = vek_dict_search(dict, "_vek_dict_get_value", matches).item;
    return item != nullptr ? &item->data : nullptr;
}

template <typename Keys>
struct TypedDict {
    using Key = typename Keys::Key;

    /** Moves `data` into the dictionary. On failure it stays the caller's. */
    static int put_value(VekDict *dict, Key key, VekValue *data)
    {
        VekValue record;
        if (!Keys::store(&record, key)) {
            return 0;
        }
        const int stored = _vek_dict_put_value(dict, &record, data);
        if (!stored) {
            vek_value_release(&record);
        }
        return stored;
    }

    /** Stores the record that `set` makes of `datum`. The record must own nothing but the datum:
     *  after a failure it is not released, and the datum stays the caller's. */
    template <auto set, typename Datum>
    static int put(VekDict *dict, Key key, Datum datum)
    {
        VekValue data;
        set(&data, datum);
        return put_value(dict, key, &data);
    }

    /** Stores a new VekStr with a copy of a text. `put_vekstr` is the public function of the same
     *  typed dictionary. */
    template <auto put_vekstr>
    static int dup_and_put_string(VekDict *dict, Key key, const char *string)
    {
        VekStr *const copy = vek_str_create(string);
        if (copy == nullptr) {
            return 0;
        }
        const int stored = put_vekstr(dict, key, copy);
        if (!stored) {
            vek_str_unref(copy);
        }
        return stored;
    }

    /** Returns what `get` reads from the stored record, or `absent` for an absent key. */
    template <auto get, typename Result>
    static Result read(const VekDict *dict, Key key, Result absent)
    {
        const VekValue *const data = Keys::find(dict, key);
        return data != nullptr ? get(data) : absent;
    }
};

#endif
