/* SPDX-License-Identifier: MIT */
#include <veklib/vekdict.h>
#include <veklib/vekintdict.h>
#include <veklib/vekmemory.h>
#include <veklib/veknamedict.h>
#include <veklib/vekstrdict.h>

#include "support/support.h"

#include <climits>

using namespace vektest;

namespace {

using Numbers = std::vector<int32_t>;

Numbers keys_of(VekDict *dict)
{
    Numbers keys;
    const auto collect = [](VekValue *key, VekValue *, void *into) {
        return static_cast<Numbers *>(into)->push_back(vek_value_get_as_int(key)), 0;
    };
    vek_dict_foreach(dict, collect, &keys);
    return keys;
}

/** A dictionary with the keys 1 to `len`; the datum of each is its square as text. */
VekDict *squares(int init_count, int len)
{
    VekDict *const dict = vek_int_dict_create(init_count);
    for (int key = 1; dict != nullptr && key <= len; ++key) {
        vek_int_dict_dup_and_put_string(dict, key, std::to_string(key * key).c_str());
    }
    return dict;
}

Numbers up_to(int len)
{
    Numbers numbers;
    for (int i = 1; i <= len; ++i) { numbers.push_back(i); }
    return numbers;
}

VekName names[] = {{0, nullptr}, {1, const_cast<char *>("one")}, {2, const_cast<char *>("two")}};

/** A value with a dictionary whose release calls `look` once. */
VekValue nested(VekDictForeachFunc look)
{
    VekDict *const dict = _vek_dict_create_full(1, VEK_VALUE_INT, look, nullptr);
    vek_int_dict_put_int(dict, 1, 1);
    VekValue value;
    vek_value_take_dict(&value, dict);
    return value;
}

/* The check that each function of a typed dictionary makes of its dictionary, as it is printed. */
#define EXPECT_TYPED_REFUSE(dict, condition, condition_of_numbers, prefix)                         \
    EXPECT_REFUSE(dict, condition, prefix##_put_vekstr, prefix##_dup_and_put_string,               \
                  prefix##_put_int, prefix##_put_double, prefix##_put_persistent_pointer,          \
                  prefix##_put_value, prefix##_get_value, prefix##_get_pointer,                    \
                  prefix##_get_vekstr, prefix##_get_string);                                       \
    EXPECT_REFUSE(dict, condition_of_numbers, prefix##_get_int, prefix##_get_double)

/* The functions of a typed dictionary, for templates. */
#define TWO_OF(prefix, first, second)                                                              \
    static constexpr auto first = prefix##_##first;                                                \
    static constexpr auto second = prefix##_##second
#define FUNCTIONS_OF(prefix, test_for_key)                                                         \
    struct Of_##prefix {                                                                           \
        static constexpr const char *name = #prefix;                                               \
        static constexpr auto exists = test_for_key;                                               \
        static constexpr auto create = prefix##_create;                                            \
        TWO_OF(prefix, put_int, get_int);                                                          \
        TWO_OF(prefix, put_double, get_double);                                                    \
        TWO_OF(prefix, put_vekstr, get_vekstr);                                                    \
        TWO_OF(prefix, dup_and_put_string, get_string);                                            \
        TWO_OF(prefix, put_persistent_pointer, get_pointer);                                       \
        TWO_OF(prefix, put_value, get_value);                                                      \
        TWO_OF(prefix, put_dict, get_dict);                                                        \
        TWO_OF(prefix, put_slist, get_slist);                                                      \
        TWO_OF(prefix, get_int_or, get_double_or);                                                 \
        static constexpr auto get_string_or = prefix##_get_string_or;                              \
    }
FUNCTIONS_OF(vek_str_dict, vek_str_dict_get_value);
FUNCTIONS_OF(vek_int_dict, vek_int_dict_key_exists);
FUNCTIONS_OF(vek_name_dict, vek_name_dict_key_exists);

/** What is read from a datum of another kind: the fallbacks, and neither dictionary nor list. */
struct Reads {
    int32_t integer = 5;
    double real = 2.5;
    const char *text = "none";
    VekDict *dict = nullptr;
    VekSList *list = nullptr;
};

/** Stores every kind of datum through a typed dictionary: each in place of the one before, or, with
 *  `fresh`, each as an item that needs another segment. */
template <typename Of, bool fresh = false>
void store_every_kind(auto key, auto other_key, const char *null_check)
{
    SCOPED_TRACE(Of::name);
    const std::string type = "vekvalue->vt->type == VEK_VALUE_";
    const std::vector<Check> readers = {{"vek_value_get_int", type + "INT"},
                                        {"vek_value_get_double", type + "DOUBLE"},
                                        {"vek_value_get_vekstr", type + "VEKSTR"},
                                        {"vek_value_get_dict", type + "DICT"},
                                        {"vek_value_get_slist", "VEK_VALUE_IS_SLIST(vekvalue)"}};
    fail_each_allocation([&](Allocator &allocator) {
        VekStr shared = {1, ""};
        VekDict *const dict = Of::create(1);
        if (dict == nullptr) { return; }
        VekDict *const child = Of::create(1);
        VekSList *lists[4];
        for (VekSList *&list : lists) { list = vek_slist_prepend(nullptr, nullptr); }
        const auto expect_reads = [&](const VekDict *from, std::vector<Check> warnings,
                                      const Reads &expected) {
            expect_warnings(warnings, [&] {
                EXPECT_EQ(Of::get_int_or(from, key, 5), expected.integer);
                EXPECT_EQ(Of::get_double_or(from, key, 2.5), expected.real);
                EXPECT_STREQ(Of::get_string_or(from, key, "none"), expected.text);
                EXPECT_EQ(Of::get_dict(from, key), expected.dict);
                EXPECT_EQ(Of::get_slist(from, key), expected.list);
            });
        };
        const auto stored = [&](auto put, int reader, const Reads &expected) {
            if (fresh) { Of::put_int(vek_dict_clear(dict), other_key, -7); }
            allocator.just_failed();
            const int result = put();
            EXPECT_EQ(result, allocator.just_failed() ? 0 : 1);
            std::vector<Check> warnings = readers; // all others find another type
            if (reader >= 0) { warnings.erase(warnings.begin() + reader); }
            if (result) { expect_reads(dict, warnings, expected); }
            return result;
        };
        expect_reads(nullptr, {5, {std::string(Of::name) + "_get_value", null_check}}, {});
        expect_reads(dict, {}, {}); // absent
        EXPECT_EQ(Of::get_int(dict, key), 0);
        EXPECT_EQ(Of::get_double(dict, key), 0.0);
        EXPECT_EQ(Of::get_pointer(dict, key), nullptr);
        EXPECT_EQ(Of::get_string(dict, key), nullptr);
        EXPECT_FALSE(Of::exists(dict, key));
        allocator.just_failed();
        Of::put_int(dict, other_key, -7); // leaves no free slot
        EXPECT_EQ(Of::get_int(dict, other_key), allocator.just_failed() ? 0 : -7);

        // What a put does not take is still the caller's.
        if (!stored([&] { return Of::put_dict(dict, key, child); }, 3, {.dict = child})) {
            vek_dict_destroy(child);
        }
        for (int i = 0; i < 4; ++i) {
            const auto list_type = static_cast<VekValueType>(VEK_VALUE_SLIST_OF_INT + i);
            if (stored([&] { return Of::put_slist(dict, key, list_type, lists[i]); }, 4,
                       {.list = lists[i]})) {
                EXPECT_EQ(vek_value_get_type(Of::get_value(dict, key)), list_type);
            } else {
                vek_slist_free(lists[i], nullptr);
            }
        }
        if (stored([&] { return Of::put_vekstr(dict, key, vek_str_ref(&shared)); }, 2,
                   {.text = ""})) {
            EXPECT_EQ(Of::get_vekstr(dict, key), &shared);
            EXPECT_EQ(Of::get_string(dict, key), shared.text);
            EXPECT_TRUE(Of::exists(dict, key));
        } else {
            EXPECT_EQ(shared.count, 2u);
            vek_str_unref(&shared);
        }
        if (stored([&] { return Of::dup_and_put_string(dict, key, "text"); }, 2,
                   {.text = "text"})) {
            EXPECT_EQ(shared.count, 1u);
        }
        for (const double real : {0.5, 0.0}) {
            if (stored([&] { return Of::put_double(dict, key, real); }, 1, {.real = real})) {
                EXPECT_EQ(Of::get_double(dict, key), real);
            }
        }
        if (stored([&] { return Of::put_persistent_pointer(dict, key, &allocator); }, -1, {})) {
            EXPECT_EQ(Of::get_pointer(dict, key), &allocator);
        }
        VekValue value;
        vek_value_set_slist_of_ptr(&value, nullptr);
        const int put = stored([&] { return Of::put_value(dict, key, &value); }, 4, {});
        EXPECT_EQ(value.vt == nullptr, put == 1);
        stored([&] { return Of::put_int(dict, key, 0); }, 0, {.integer = 0});
        EXPECT_TRUE(vek_dict_get_len(dict) == 2 || allocator.failed());

        if (VekValue *const datum = Of::get_value(dict, key); datum != nullptr) {
            vek_value_release(datum); // an empty record is of none of the types
            const Check pointer = {"vek_value_get_pointer", type + "POINTER"};
            expect_warnings({readers[0], readers[0], readers[1], readers[2], readers[2], pointer},
                            [&] {
                                EXPECT_EQ(Of::get_int_or(dict, key, 5), 5);
                                EXPECT_EQ(Of::get_int(dict, key), 0);
                                EXPECT_EQ(Of::get_double(dict, key), 0.0);
                                EXPECT_EQ(Of::get_vekstr(dict, key), nullptr);
                                EXPECT_EQ(Of::get_string(dict, key), nullptr);
                                EXPECT_EQ(Of::get_pointer(dict, key), nullptr);
                            });
        }
        EXPECT_EQ(Of::dup_and_put_string(dict, key, nullptr), 0);
        const std::string put_slist = std::string(Of::name) + "_put_slist";
        expect_warnings({{put_slist, "list_type >= VEK_VALUE_SLIST_OF_INT"},
                         {put_slist, "list_type <= VEK_VALUE_SLIST_OF_VALUE"}},
                        [&] {
                            EXPECT_EQ(Of::put_slist(dict, key, VEK_VALUE_NAME, nullptr), 0);
                            EXPECT_EQ(Of::put_slist(dict, key, VEK_VALUE_DICT, nullptr), 0);
                        });
        vek_dict_destroy(dict);
    });
    if constexpr (!fresh) { store_every_kind<Of, true>(key, other_key, null_check); }
}

} // namespace

TEST(Dict, GrowsBySegmentsAndKeepsItsOrder)
{
    Allocator allocator;
    VekDict *const dict = squares(1, 1);
    const VekValue *const first = vek_int_dict_get_value(dict, 1);
    VekValue key;
    vek_value_set_int(&key, 2);
    VekValue data = key;
    allocator.fail_nth(1); // a put that fails leaves the records alone
    EXPECT_EQ(_vek_dict_put_value(dict, &key, &data), 0);
    EXPECT_EQ(vek_value_equal(&key, &data), 1);
    allocator.fail_nth(0);
    for (int i = 2; i <= 12; ++i) {
        vek_int_dict_put_int(dict, i, i);
        EXPECT_EQ(allocator.allocations(), i < 12 ? 1u : 2u); // a segment for each ten items
    }
    EXPECT_EQ(vek_int_dict_get_value(dict, 1), first); // slots never move
    EXPECT_EQ(keys_of(dict), up_to(12));
    EXPECT_EQ(vek_dict_get_len(dict), 12);

    EXPECT_EQ(vek_dict_clear(vek_dict_ref(dict)), dict);
    EXPECT_EQ(_vek_dict_get_ref_count(dict), 2);
    EXPECT_EQ(vek_dict_get_len(dict), 0);
    EXPECT_EQ(dict->first_seg.next, nullptr);
    vek_int_dict_put_int(dict, 5, 5);
    vek_dict_destroy(dict);
    EXPECT_EQ(keys_of(dict), (Numbers{5}));
    vek_dict_destroy(dict);
    vek_dict_destroy(nullptr);
    EXPECT_EQ(vek_dict_ref(nullptr), nullptr);
}

TEST(Dict, CopiesKeysAndDataOrNothing)
{
    fail_each_allocation([](Allocator &allocator) {
        VekDict *const dict = vek_str_dict_create(2);
        for (const char *const text : {"one", "two"}) {
            VekValue datum;
            vek_value_set_string(&datum, text);
            if (dict == nullptr || !vek_str_dict_put_value(dict, text, &datum)) {
                vek_value_release(&datum);
            }
        }
        allocator.just_failed();
        VekDict *const copy = dict != nullptr ? vek_dict_copy(dict, 1) : nullptr;
        EXPECT_EQ(copy == nullptr, dict == nullptr || allocator.just_failed());
        for (VekDict *const each : {dict, copy}) { vek_dict_destroy(each); }
    });
}

TEST(Dict, WalksStopWhenTheFunctionSaysSo)
{
    Allocator allocator;
    Numbers seen;
    const auto note_id = [](VekValue *key, VekValue *, void *into) -> int {
        auto &ids = *static_cast<Numbers *>(into);
        ids.push_back(vek_name_get_id(vek_value_get_name(key)));
        return ids.back() == 2;
    };
    VekDict *const dict = vek_name_dict_create_full(1, note_id, &seen);
    for (const int i : {1, 2, 0}) { vek_name_dict_dup_and_put_string(dict, &names[i], "x"); }
    vek_dict_foreach(dict, note_id, &seen);
    EXPECT_EQ(seen, up_to(2));
    seen.clear();
    vek_dict_ref(dict);
    vek_dict_destroy(dict);
    EXPECT_EQ(seen, Numbers());
    vek_dict_destroy(dict); // releases all, though the function stops at the second
    EXPECT_EQ(seen, up_to(2));
}

TEST(Dict, KeysAreEqualWithinTheirType)
{
    Allocator allocator;
    const std::function<void(VekValue *)> keys[] = {
        [](VekValue *key) { vek_value_set_int(key, 1); },
        [](VekValue *key) { vek_value_set_double(key, 1.0); },
        [](VekValue *key) { vek_value_set_string(key, "1"); },
        [](VekValue *key) { vek_value_set_string(key, ""); },
        [](VekValue *key) { vek_value_set_string(key, nullptr); },
        // the bits of the integer, in either byte order, at odd and at even places
        [](VekValue *key) { vek_value_set_pointer(key, nullptr), key->payload.integer = 1; },
        [](VekValue *key) { vek_value_set_name(key, nullptr), key->payload.integer = 1; },
        [](VekValue *key) { vek_value_take_vekstr(key, vek_str_create("1")); },
        [](VekValue *key) { vek_value_set_pointer(key, &names[1]); },
        [](VekValue *key) { vek_value_set_name(key, &names[1]); },
    };
    for (const bool backward : {false, true}) { // each key is once before each other one
        VekDict *const dict = _vek_dict_create(1, VEK_VALUE_INT);
        for (const int round : {0, 1}) { // the second finds what the first put
            for (int i = 0; i < 10; ++i) {
                VekValue key;
                VekValue data;
                keys[backward ? 9 - i : i](&key);
                vek_value_set_int(&data, round);
                EXPECT_EQ(_vek_dict_get_value(dict, &key) != nullptr, round == 1);
                EXPECT_EQ(_vek_dict_put_value(dict, &key, &data), 1);
                EXPECT_EQ(key.vt, nullptr);
            }
        }
        EXPECT_EQ(vek_dict_get_len(dict), 10);
        vek_dict_destroy(dict);
    }
}

TEST(Dict, SearchesEndAtTheKeyOrAtAnEmptyOneBeforeIt)
{
    const Check first = {"vek_value_get_type", "value->vt != NULL"};
    const Check get = {"_vek_dict_get_value", "vek_value_get_type(&(cur_seg_ptr->items[i].key)) != "
                                              "VEK_VALUE_INVALID"};
    const Check put = {"_vek_dict_put_value", get.second};
    for (const int init_count : {1, 2, 5}) {
        for (const int len : {1, 2, 5, 6}) {
            for (int emptied = 1; emptied <= len; ++emptied) {
                VekDict *const dict = squares(init_count, len);
                vek_dict_foreach(
                    dict,
                    [](VekValue *key, VekValue *, void *searched) {
                        const bool is_searched =
                            vek_value_get_int(key) == *static_cast<int *>(searched);
                        if (is_searched) { vek_value_release(key); }
                        return is_searched ? 1 : 0;
                    },
                    &emptied);
                for (int key = 1; key <= len + 1; ++key) {
                    const bool found = key < emptied;
                    const auto checks =
                        found ? std::vector<Check>{} : std::vector<Check>{first, get, first, put};
                    expect_warnings(checks, [&] {
                        EXPECT_EQ(vek_int_dict_key_exists(dict, key), found);
                        EXPECT_EQ(vek_int_dict_put_int(dict, key, 0), found);
                    });
                }
                vek_dict_destroy(dict);
            }
        }
    }
}

TEST(Dict, IntegersAreFoundAmongKeysThatLookLikeThem)
{
    VekDict *const dict = vek_int_dict_create(1);
    for (int number = 1; number <= 5; ++number) { // at odd and at even places
        VekValue pointer;
        vek_value_set_pointer(&pointer, nullptr);
        pointer.payload.integer = number; // the same bits, in either byte order
        VekValue data;
        vek_value_set_int(&data, 0);
        EXPECT_EQ(_vek_dict_put_value(dict, &pointer, &data), 1);
    }
    EXPECT_EQ(vek_int_dict_key_exists(dict, 5), 0);
    for (const int number : {1, 2, 3, 4, 5, 1, 2, 3, 4, 5}) {
        EXPECT_EQ(vek_int_dict_put_int(dict, number, number), 1);
    }
    for (int number = 1; number <= 5; ++number) {
        EXPECT_EQ(vek_int_dict_get_int(dict, number), number);
    }
    EXPECT_EQ(vek_dict_get_len(dict), 10);
    vek_dict_destroy(dict);
}

TEST(Dict, WhatIsReleasedMayLookIntoTheDictionary)
{
    Allocator allocator;
    static VekDict *outer;
    const auto walk = [](VekValue *, VekValue *, void *) {
        keys_of(outer);
        return vek_int_dict_get_int(outer, 99);
    };
    for (const bool clear : {true, false}) {
        outer = squares(1, 30);
        for (const int key : {1, 5, 15, 30}) { // in each of the segments
            VekValue data = nested(walk);
            vek_int_dict_put_value(outer, key, &data);
        }
        captured(2, [&] {
            if (clear) { vek_dict_clear(outer); }
            vek_dict_destroy(outer);
        });
    }

    outer = squares(1, 1);
    VekValue data = nested([](VekValue *, VekValue *, void *) {
        EXPECT_EQ(vek_int_dict_get_int(outer, 1), 7); // the new datum is in place already
        return 0;
    });
    vek_int_dict_put_value(outer, 1, &data);
    vek_int_dict_put_int(outer, 1, 7);
    vek_dict_destroy(outer);

    outer = _vek_dict_create(1, VEK_VALUE_DICT);
    VekValue key = nested([](VekValue *, VekValue *, void *) {
        VekValue other;
        vek_value_set_pointer(&other, &other);
        EXPECT_EQ(_vek_dict_get_value(outer, &other), nullptr);
        return 0;
    });
    vek_value_set_int(&data, 1);
    _vek_dict_put_value(outer, &key, &data);
    expect_warnings({{"vek_value_get_type", "value->vt != NULL"}, // a released key is not compared
                     {"_vek_dict_get_value",
                      "vek_value_get_type(&(cur_seg_ptr->items[i].key)) != VEK_VALUE_INVALID"}},
                    [] { vek_dict_destroy(outer); });
}

TEST(Dict, WalksPast65535Items)
{
    constexpr int items = 65600;
    VekDict *const dict = vek_int_dict_create(items);
    for (int i = 0; i < items; ++i) { // directly: each put would search all items
        vek_value_set_int(&dict->first_seg.items[i].key, i + 1);
    }
    dict->len = items;
    EXPECT_EQ(keys_of(dict), up_to(items));
    vek_dict_destroy(dict);
}

TEST(Dict, Prints)
{
    VekDict *const dict = vek_str_dict_create(1);
    EXPECT_EQ(captured(1, [&] { vek_dict_print(dict); }), "");
    vek_str_dict_put_int(dict, "", 1);
    vek_str_dict_put_double(dict, nullptr, 0.5); // null is a key like others
    EXPECT_EQ(vek_str_dict_get_double(dict, nullptr), 0.5);
    EXPECT_EQ(captured(1, [&] { vek_dict_print(dict); }),
              "Key: \tValue:1\nKey: (nul)\tValue:0.5\n");
    vek_dict_destroy(dict);
    fail_each_allocation([](Allocator &allocator) {
        VekDict *const one = squares(1, 0);
        if (one == nullptr) { return; }
        vek_int_dict_put_int(one, 7, 7);
        const std::string text = captured(1, [&] { vek_dict_print(one); });
        EXPECT_EQ(text == "Key: 7\tValue:7\n", !allocator.just_failed()) << text;
        EXPECT_TRUE(text == "" || masked(text, "\\(nul\\)", "7") == "Key: 7\tValue:7\n");
        vek_dict_destroy(one);
    });
}

TEST(TypedDicts, StoreEveryKindOfDatum)
{
    store_every_kind<Of_vek_str_dict>("one", "two", "dict != NULL");
    store_every_kind<Of_vek_int_dict>(1, 2, "vekdict_ptr != NULL");
    store_every_kind<Of_vek_name_dict>(&names[1], &names[2], "vekdict_ptr != NULL");
}

TEST(TypedDicts, ChecksNameTheFault)
{
    EXPECT_TYPED_REFUSE(nullptr, "dict != NULL", "dict", vek_str_dict);
    EXPECT_TYPED_REFUSE(nullptr, "vekdict_ptr != NULL", "dict", vek_int_dict);
    EXPECT_TYPED_REFUSE(nullptr, "vekdict_ptr != NULL", "dict", vek_name_dict);
    EXPECT_REFUSE(nullptr, "dict != NULL", vek_int_dict_key_exists, vek_name_dict_key_exists);

    VekDict *const of_doubles = _vek_dict_create(1, VEK_VALUE_DOUBLE); // not a typed one
    const char *const type = "DICT_TYPE_CHECK(dict)";
    const char *const type_of_ptr = "DICT_TYPE_CHECK(vekdict_ptr)";
    EXPECT_TYPED_REFUSE(of_doubles, type, type, vek_str_dict);
    EXPECT_TYPED_REFUSE(of_doubles, type_of_ptr, type, vek_int_dict);
    EXPECT_TYPED_REFUSE(of_doubles, type_of_ptr, type, vek_name_dict);
    EXPECT_REFUSE(of_doubles, type, vek_int_dict_key_exists, vek_name_dict_key_exists);
    vek_dict_destroy(of_doubles);
}

TEST(Dict, ChecksNameTheFault)
{
    VekDict *const dict = squares(1, 1);
    VekValue empty = {};
    VekValue one;
    vek_value_set_int(&one, 1);
    const Check no_slots = {"_vek_dict_create_full", "init_count > 0"};
    expect_warnings({no_slots, no_slots}, [] {
        EXPECT_EQ(_vek_dict_create(0, VEK_VALUE_INT), nullptr);
        EXPECT_EQ(vek_name_dict_create(-1), nullptr);
    });
    EXPECT_REFUSE(nullptr, "vekdict != NULL", vek_dict_get_len, vek_dict_foreach, vek_dict_print);
    EXPECT_REFUSE(nullptr, "vekdict_ptr != NULL", _vek_dict_put_value, _vek_dict_get_value,
                  vek_dict_clear);
    EXPECT_REFUSE(nullptr, "orig_dict_ptr", vek_dict_copy, vek_dict_dup_and_clear);
    EXPECT_FAILS("vekdict != NULL", vek_dict_get_key_type(nullptr), VEK_VALUE_INVALID);
    EXPECT_FAILS("dict != NULL", _vek_dict_get_ref_count(nullptr), -1);
    EXPECT_REFUSE(dict, "key != NULL", _vek_dict_put_value, _vek_dict_get_value);
    EXPECT_FAILS("data != NULL", _vek_dict_put_value(dict, &one, nullptr), 0);
    EXPECT_REFUSE(dict, "init_count > 0", vek_dict_copy);
    EXPECT_REFUSE(dict, "func != NULL", vek_dict_foreach);
    dict->ref_count = INT_MAX - 1;
    EXPECT_EQ(vek_dict_ref(dict), dict);
    EXPECT_FAILS("INT_MAX > dict->ref_count", vek_dict_ref(dict), nullptr);
    EXPECT_EQ(std::exchange(dict->ref_count, 1), INT_MAX);

    vek_value_release(vek_int_dict_get_value(dict, 1)); // an empty datum is of no type
    expect_warnings({{"vek_value_get_int", "vekvalue->vt->type == VEK_VALUE_INT"}},
                    [&] { EXPECT_EQ(vek_int_dict_get_int_or(dict, 1, 5), 5); });

    // If the key passed or stored is empty, the query for its type warns first.
    const auto expect_twice = [&](VekValue *key, const char *condition) {
        const Check first = {"vek_value_get_type", "value->vt != NULL"};
        const Check put = {"_vek_dict_put_value", condition};
        const Check get = {"_vek_dict_get_value", condition};
        expect_warnings({first, put, first, get}, [&] {
            EXPECT_EQ(_vek_dict_put_value(dict, key, &one), 0);
            EXPECT_EQ(_vek_dict_get_value(dict, key), nullptr);
        });
    };
    expect_twice(&empty, "vek_value_get_type(key) != VEK_VALUE_INVALID");
    vek_value_release(&dict->first_seg.items[0].key);
    VekValue other;
    vek_value_set_pointer(&other, dict);
    for (VekValue *const key : {&one, &other}) {
        expect_twice(key, "vek_value_get_type(&(cur_seg_ptr->items[i].key)) != VEK_VALUE_INVALID");
    }
    vek_dict_clear(dict);
    expect_warnings({no_slots}, [&] { EXPECT_EQ(vek_dict_dup_and_clear(dict), nullptr); });
    vek_dict_destroy(dict);
}
