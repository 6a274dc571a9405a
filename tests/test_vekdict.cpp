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

int collect(VekValue *key, VekValue *, void *into)
{
    static_cast<Numbers *>(into)->push_back(vek_value_get_as_int(key));
    return 0;
}

Numbers keys_of(VekDict *dict)
{
    Numbers keys;
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
#define FUNCTIONS_OF(prefix, test_for_key)                                                         \
    struct Of_##prefix {                                                                           \
        static constexpr const char *name = #prefix;                                               \
        static constexpr auto exists = test_for_key;                                               \
        static constexpr auto create = prefix##_create;                                            \
        static constexpr auto put_vekstr = prefix##_put_vekstr;                                    \
        static constexpr auto put_string = prefix##_dup_and_put_string;                            \
        static constexpr auto put_int = prefix##_put_int;                                          \
        static constexpr auto put_double = prefix##_put_double;                                    \
        static constexpr auto put_pointer = prefix##_put_persistent_pointer;                       \
        static constexpr auto put_value = prefix##_put_value;                                      \
        static constexpr auto put_dict = prefix##_put_dict;                                        \
        static constexpr auto put_slist = prefix##_put_slist;                                      \
        static constexpr auto get_value = prefix##_get_value;                                      \
        static constexpr auto get_pointer = prefix##_get_pointer;                                  \
        static constexpr auto get_vekstr = prefix##_get_vekstr;                                    \
        static constexpr auto get_string = prefix##_get_string;                                    \
        static constexpr auto get_int = prefix##_get_int;                                          \
        static constexpr auto get_double = prefix##_get_double;                                    \
        static constexpr auto get_dict = prefix##_get_dict;                                        \
        static constexpr auto get_slist = prefix##_get_slist;                                      \
        static constexpr auto int_or = prefix##_get_int_or;                                        \
        static constexpr auto double_or = prefix##_get_double_or;                                  \
        static constexpr auto string_or = prefix##_get_string_or;                                  \
    }
FUNCTIONS_OF(vek_str_dict, vek_str_dict_get_value);
FUNCTIONS_OF(vek_int_dict, vek_int_dict_key_exists);
FUNCTIONS_OF(vek_name_dict, vek_name_dict_key_exists);

/** Stores and replaces every kind of datum through a typed dictionary. */
template <typename Of>
void store_every_kind(auto key, auto other_key)
{
    SCOPED_TRACE(Of::name);
    fail_each_allocation([&](Allocator &allocator) {
        VekStr shared = {1, ""};
        VekDict *const dict = Of::create(1);
        if (dict == nullptr) { return; }
        const auto stored = [&](int result) {
            EXPECT_EQ(result, allocator.just_failed() ? 0 : 1);
            return result;
        };
        EXPECT_EQ(Of::get_int(dict, key), 0); // absent
        EXPECT_EQ(Of::get_double(dict, key), 0.0);
        EXPECT_EQ(Of::get_pointer(dict, key), nullptr);
        EXPECT_EQ(Of::get_string(dict, key), nullptr);
        EXPECT_FALSE(Of::exists(dict, key));
        stored(Of::put_int(dict, other_key, 1)); // leaves no free slot

        if (stored(Of::put_vekstr(dict, key, vek_str_ref(&shared)))) {
            EXPECT_EQ(Of::get_vekstr(dict, key), &shared);
            EXPECT_EQ(Of::get_string(dict, key), shared.text);
            EXPECT_TRUE(Of::exists(dict, key));
        } else { // the reference is still the caller's
            EXPECT_EQ(shared.count, 2u);
            vek_str_unref(&shared);
        }
        if (stored(Of::put_string(dict, key, "text"))) {
            EXPECT_STREQ(Of::get_string(dict, key), "text");
            EXPECT_EQ(shared.count, 1u);
        }
        if (stored(Of::put_double(dict, key, 0.5))) {
            EXPECT_EQ(Of::get_double(dict, key), 0.5);
            expect_warnings({{"vek_value_get_int", "vekvalue->vt->type == VEK_VALUE_INT"}},
                            [&] { EXPECT_EQ(Of::get_int(dict, key), 0); });
        }
        if (stored(Of::put_pointer(dict, key, &allocator))) {
            EXPECT_EQ(Of::get_pointer(dict, key), &allocator);
        }
        VekValue value;
        vek_value_set_slist_of_ptr(&value, nullptr);
        const int put = stored(Of::put_value(dict, key, &value));
        EXPECT_EQ(value.vt == nullptr, put == 1);
        if (put) {
            EXPECT_EQ(vek_value_get_type(Of::get_value(dict, key)), VEK_VALUE_SLIST_OF_POINTER);
        }
        if (stored(Of::put_int(dict, key, -7))) { EXPECT_EQ(Of::get_int(dict, key), -7); }
        EXPECT_TRUE(vek_dict_get_len(dict) == 2 || allocator.failed());
        EXPECT_EQ(Of::put_string(dict, key, nullptr), 0);
        vek_dict_destroy(dict);
    });
}

/** Stores a datum of every type that has a convenience, and reads each with all conveniences. */
template <typename Of>
void read_with_fallbacks(auto key, const char *null_check)
{
    SCOPED_TRACE(Of::name);
    static VekStr text = {0, ""}; // a persistent string
    static VekDict *child;
    static VekSList *list;
    child = vek_int_dict_create(1);
    list = vek_slist_prepend(nullptr, nullptr);
    const struct {
        void (*set)(VekValue *datum);
        Check other_type;
    } rows[] = {{[](VekValue *datum) { vek_value_set_int(datum, 0); },
                 {"vek_value_get_int", "vekvalue->vt->type == VEK_VALUE_INT"}},
                {[](VekValue *datum) { vek_value_set_double(datum, 0.0); },
                 {"vek_value_get_double", "vekvalue->vt->type == VEK_VALUE_DOUBLE"}},
                {[](VekValue *datum) { vek_value_take_vekstr(datum, &text); },
                 {"vek_value_get_vekstr", "vekvalue->vt->type == VEK_VALUE_VEKSTR"}},
                {[](VekValue *datum) { vek_value_take_dict(datum, child); },
                 {"vek_value_get_dict", "vekvalue->vt->type == VEK_VALUE_DICT"}},
                {[](VekValue *datum) { vek_value_take_slist_of_int(datum, list); },
                 {"vek_value_get_slist", "VEK_VALUE_IS_SLIST(vekvalue)"}}};
    VekDict *const dict = Of::create(1);
    const auto expect_reads = [&](const VekDict *from, int row, std::vector<Check> warnings) {
        expect_warnings(warnings, [&] {
            EXPECT_EQ(Of::int_or(from, key, 5), row == 0 ? 0 : 5);
            EXPECT_EQ(Of::double_or(from, key, 2.5), row == 1 ? 0.0 : 2.5);
            EXPECT_STREQ(Of::string_or(from, key, "none"), row == 2 ? "" : "none");
            EXPECT_EQ(Of::get_dict(from, key), row == 3 ? child : nullptr);
            EXPECT_EQ(Of::get_slist(from, key), row == 4 ? list : nullptr);
        });
    };
    const std::string get_value = std::string(Of::name) + "_get_value";
    expect_reads(nullptr, -1, std::vector<Check>(5, {get_value, null_check}));
    expect_reads(dict, -1, {}); // absent
    for (int row = 0; row < 5; ++row) {
        VekValue datum;
        rows[row].set(&datum);
        EXPECT_EQ(Of::put_value(dict, key, &datum), 1);
        std::vector<Check> warnings;
        for (const auto &other : rows) {
            if (&other != &rows[row]) { warnings.push_back(other.other_type); }
        }
        expect_reads(dict, row, warnings);
    }
    vek_dict_destroy(dict);
}

/** Stores a dictionary and a list of each type; releases here what a put does not take. */
template <typename Of>
void put_nested(auto key, auto other_key)
{
    SCOPED_TRACE(Of::name);
    const struct {
        VekValueType type;
        void *(*make)();
        VekDestroyFunc release;
    } rows[] = {{VEK_VALUE_SLIST_OF_INT, [] { return word(1); }, nullptr},
                {VEK_VALUE_SLIST_OF_STRING, []() -> void * { return vek_str_create("text"); },
                 [](void *text) { vek_str_unref(static_cast<VekStr *>(text)); }},
                {VEK_VALUE_SLIST_OF_POINTER, [] { return word(2); }, nullptr},
                {VEK_VALUE_SLIST_OF_VALUE, [] { return vek_calloc(1, sizeof(VekValue)); },
                 [](void *value) { vek_value_destroy(static_cast<VekValue *>(value)); }}};
    fail_each_allocation([&](Allocator &allocator) {
        VekDict *const dict = Of::create(1);
        if (dict == nullptr) { return; }
        Of::put_int(dict, other_key, 1); // leaves no free slot
        VekDict *const child = Of::create(1);
        allocator.just_failed();
        if (const int stored = Of::put_dict(dict, key, child); stored) {
            EXPECT_EQ(Of::get_dict(dict, key), child);
        } else {
            EXPECT_TRUE(allocator.just_failed());
            vek_dict_destroy(child);
        }
        for (const auto &[type, make, release] : rows) {
            void *const element = make();
            VekSList *const list = vek_slist_prepend(nullptr, element);
            if (list == nullptr && release != nullptr) { release(element); }
            allocator.just_failed();
            if (const int stored = Of::put_slist(dict, key, type, list); stored) {
                EXPECT_EQ(vek_value_get_type(Of::get_value(dict, key)), type);
                EXPECT_EQ(Of::get_slist(dict, key), list);
            } else {
                EXPECT_TRUE(allocator.just_failed());
                vek_slist_free(list, release);
            }
        }
        vek_dict_destroy(dict);
    });

    VekDict *const dict = Of::create(1);
    VekSList node = {};
    const std::string put_slist = std::string(Of::name) + "_put_slist";
    expect_warnings({{put_slist, "list_type >= VEK_VALUE_SLIST_OF_INT"},
                     {put_slist, "list_type <= VEK_VALUE_SLIST_OF_VALUE"}},
                    [&] {
                        EXPECT_EQ(Of::put_slist(dict, key, VEK_VALUE_NAME, &node), 0);
                        EXPECT_EQ(Of::put_slist(dict, key, VEK_VALUE_DICT, &node), 0);
                    });
    EXPECT_EQ(vek_dict_get_len(dict), 0);
    vek_dict_destroy(dict);
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

TEST(Dict, CopiesAndMoves)
{
    fail_each_allocation([](Allocator &allocator) {
        VekDict *const dict = squares(2, 13);
        if (dict == nullptr) { return; }
        const Numbers keys = keys_of(dict);
        EXPECT_EQ(keys == up_to(13), !allocator.just_failed());
        const auto expect_copy = [&](VekDict *copy, int slots) {
            EXPECT_EQ(copy == nullptr, allocator.just_failed());
            if (copy == nullptr) { return false; }
            EXPECT_EQ(keys_of(copy), keys);
            EXPECT_EQ(vek_dict_get_key_type(copy), VEK_VALUE_INT);
            EXPECT_EQ(copy->first_seg.count, slots);
            EXPECT_EQ(copy->first_seg.next, nullptr);
            vek_dict_destroy(copy);
            return true;
        };
        const int len = vek_dict_get_len(dict);
        for (const int init_count : {2, 50}) {
            expect_copy(vek_dict_copy(dict, init_count), std::max(init_count, len));
        }
        EXPECT_EQ(keys_of(dict), keys);
        if (len > 0) {
            const bool moved = expect_copy(vek_dict_dup_and_clear(dict), len);
            EXPECT_EQ(keys_of(dict), moved ? Numbers() : keys);
            EXPECT_TRUE(!moved || dict->first_seg.next == nullptr);
        }
        vek_dict_destroy(dict);
    });
}

TEST(Dict, WalksStopWhenTheFunctionSaysSo)
{
    Allocator allocator;
    Numbers seen;
    const auto note_id = [](VekValue *key, VekValue *, void *into) -> int {
        const int32_t id = vek_name_get_id(vek_value_get_name(key));
        static_cast<Numbers *>(into)->push_back(id);
        return id == 2;
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
        [](VekValue *key) { vek_value_take_vekstr(key, vek_str_create("1")); },
        [](VekValue *key) { vek_value_set_pointer(key, &names[1]); },
        [](VekValue *key) { vek_value_set_name(key, &names[1]); },
    };
    for (const bool backward : {false, true}) { // each key is once before each other one
        VekDict *const dict = _vek_dict_create(1, VEK_VALUE_INT);
        for (const int round : {0, 1}) { // the second finds what the first put
            for (int i = 0; i < 8; ++i) {
                VekValue key;
                VekValue data;
                keys[backward ? 7 - i : i](&key);
                vek_value_set_int(&data, round);
                EXPECT_EQ(_vek_dict_get_value(dict, &key) != nullptr, round == 1);
                EXPECT_EQ(_vek_dict_put_value(dict, &key, &data), 1);
                EXPECT_EQ(key.vt, nullptr);
            }
        }
        EXPECT_EQ(vek_dict_get_len(dict), 8);
        vek_dict_destroy(dict);
    }
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

TEST(TypedDicts, StoreAndReplaceEveryKindOfDatum)
{
    store_every_kind<Of_vek_str_dict>("one", "two");
    store_every_kind<Of_vek_int_dict>(1, 2);
    store_every_kind<Of_vek_name_dict>(&names[1], &names[2]);
}

TEST(TypedDicts, ReadWithFallbacks)
{
    Allocator allocator;
    read_with_fallbacks<Of_vek_str_dict>("one", "dict != NULL");
    read_with_fallbacks<Of_vek_int_dict>(1, "vekdict_ptr != NULL");
    read_with_fallbacks<Of_vek_name_dict>(&names[1], "vekdict_ptr != NULL");
}

TEST(TypedDicts, HoldDictionariesAndLists)
{
    put_nested<Of_vek_str_dict>("one", "two");
    put_nested<Of_vek_int_dict>(1, 2);
    put_nested<Of_vek_name_dict>(&names[1], &names[2]);
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

    // If the key passed or stored is empty, the query for its type warns first.
    const auto expect_twice = [&](VekValue *key, const char *condition) {
        const Check first = {"vek_value_get_type", "value->vt != NULL"};
        VekValue data = one;
        expect_warnings({first, {"_vek_dict_put_value", condition}},
                        [&] { EXPECT_EQ(_vek_dict_put_value(dict, key, &data), 0); });
        expect_warnings({first, {"_vek_dict_get_value", condition}},
                        [&] { EXPECT_EQ(_vek_dict_get_value(dict, key), nullptr); });
    };
    expect_twice(&empty, "vek_value_get_type(key) != VEK_VALUE_INVALID");
    vek_value_release(&dict->first_seg.items[0].key);
    expect_twice(&one, "vek_value_get_type(&(cur_seg_ptr->items[i].key)) != VEK_VALUE_INVALID");
    vek_dict_clear(dict);
    expect_warnings({no_slots}, [&] { EXPECT_EQ(vek_dict_dup_and_clear(dict), nullptr); });
    vek_dict_destroy(dict);
}
