/* SPDX-License-Identifier: MIT */
/* The one body behind the dictionaries with typed keys. `Keys` tells how a key becomes a record:
 *
 *     Keys::Key                    the type that callers pass
 *     Keys::store(record, key)     a record that the dictionary may keep; false without memory
 *     Keys::match(key)             what matches a stored key, for the search
 */
#ifndef VEKLIB_VEKTYPEDDICT_INTERNAL_H
#define VEKLIB_VEKTYPEDDICT_INTERNAL_H

#include "veklib/vekdict_internal.h"

template <typename Keys>
struct TypedDict {
    using Key = typename Keys::Key;

    /** Moves `data` into the dictionary; on failure it stays the caller's. */
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

    /** Stores what `set` makes of `datum`, which must own nothing but what it adopts: after a
     * failed put the record is dropped, and the datum is the caller's again. */
    template <auto set, typename Datum>
    static int put(VekDict *dict, Key key, Datum datum)
    {
        VekValue data;
        set(&data, datum);
        return put_value(dict, key, &data);
    }

    /** Stores a new VekStr of a text through `put_vekstr`, the facade's own function. */
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

    /** The stored record, or null: _vek_dict_get_value() without a record for the key. */
    static VekValue *get_value(const VekDict *dict, Key key)
    {
        VekDictItem *const item =
            vek_dict_search(dict, "_vek_dict_get_value", Keys::match(key)).item;
        return item != nullptr ? &item->data : nullptr;
    }

    /** What `get` reads from the stored record, or `absent`. */
    template <auto get, typename Result>
    static Result read(const VekDict *dict, Key key, Result absent)
    {
        const VekValue *const data = get_value(dict, key);
        return data != nullptr ? get(data) : absent;
    }
};

#endif
