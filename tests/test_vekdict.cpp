/* SPDX-License-Identifier: MIT */
#include <veklib/vekdict.h>
#include <veklib/vekintdict.h>
#include <veklib/vekmemory.h>
#include <veklib/veknamedict.h>
#include <veklib/vekstrdict.h>

#include "support/support.h"

#include <climits>
#include <utility>

using vektest::captured;

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

/** A dictionary with the keys 1 to `len`, each with its square as text. */
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

int stop_at_two(VekValue *key, VekValue *data, void *into)
{
    collect(key, data, into);
    return vek_value_get_int(key) == 2;
}

/* What the three facades have in common, for the tests that run over all of them. */
#define FACADE(Name, prefix, key_expression, exists)                                                                   \
    struct Name {                                                                                                      \
        static auto key(int i) { return key_expression; }                                                              \
        static constexpr auto create = prefix##_create;                                                                \
        static constexpr auto put_int = prefix##_put_int;                                                              \
        static constexpr auto put_double = prefix##_put_double;                                                        \
        static constexpr auto put_vekstr = prefix##_put_vekstr;                                                        \
        static constexpr auto put_string = prefix##_dup_and_put_string;                                                \
        static constexpr auto put_pointer = prefix##_put_persistent_pointer;                                           \
        static constexpr auto put_value = prefix##_put_value;                                                          \
        static constexpr auto get_value = prefix##_get_value;                                                          \
        static constexpr auto get_int = prefix##_get_int;                                                              \
        static constexpr auto get_double = prefix##_get_double;                                                        \
        static constexpr auto get_vekstr = prefix##_get_vekstr;                                                        \
        static constexpr auto get_string = prefix##_get_string;                                                        \
        static constexpr auto get_pointer = prefix##_get_pointer;                                                      \
        static constexpr auto key_exists = exists;                                                                     \
    }

VekName names[] = {{0, nullptr}, {1, const_cast<char *>("one")}, {2, const_cast<char *>("two")}};

FACADE(StrFacade, vek_str_dict, i == 1 ? "one" : "two",
       [](const VekDict *dict, const char *key) { return vek_str_dict_get_value(dict, key) != nullptr; });
FACADE(IntFacade, vek_int_dict, i, vek_int_dict_key_exists);
FACADE(NameFacade, vek_name_dict, &names[i], vek_name_dict_key_exists);

template <typename F>
class TypedDict : public testing::Test {
};
using Facades = testing::Types<StrFacade, IntFacade, NameFacade>;
TYPED_TEST_SUITE(TypedDict, Facades);

} // namespace

TEST(Dict, GrowsBySegmentsAndKeepsItsOrder)
{
    vektest::Allocator allocator;
    VekDict *const dict = squares(1, 1);
    const VekValue *const first = vek_int_dict_get_value(dict, 1);
    allocator.fail_nth(0);
    for (int key = 2; key <= 12; ++key) {
        vek_int_dict_put_int(dict, key, key);
        EXPECT_EQ(allocator.allocations(), key < 12 ? 1u : 2u); // segments of ten
    }
    EXPECT_EQ(vek_int_dict_get_value(dict, 1), first); // slots never move
    EXPECT_EQ(keys_of(dict), up_to(12));
    EXPECT_EQ(vek_dict_get_len(dict), 12);
    Numbers seen;
    vek_dict_foreach(dict, stop_at_two, &seen);
    EXPECT_EQ(seen, up_to(2));

    EXPECT_EQ(vek_dict_clear(vek_dict_ref(dict)), dict);
    EXPECT_EQ(_vek_dict_get_ref_count(dict), 2);
    EXPECT_EQ(vek_dict_get_len(dict), 0);
    EXPECT_EQ(dict->first_seg.next, nullptr);
    vek_int_dict_put_int(dict, 5, 5);
    EXPECT_EQ(vek_value_get_int(&dict->first_seg.items[0].key), 5);
    vek_dict_destroy(dict);
    EXPECT_EQ(keys_of(dict), (Numbers{5}));
    vek_dict_destroy(dict);
    vek_dict_destroy(nullptr);
    EXPECT_EQ(vek_dict_ref(nullptr), nullptr);
}

TEST(Dict, PutTakesTheRecordsOrLeavesThem)
{
    vektest::fail_each_allocation([](vektest::Allocator &allocator) {
        VekDict *const dict = _vek_dict_create(1, VEK_VALUE_STRING);
        if (dict == nullptr) { return; }
        for (const char *text : {"a", "b", "a"}) {
            VekValue key;
            VekValue data;
            vek_value_set_string(&key, text);
            vek_value_set_string(&data, text);
            const bool complete = vek_value_get_string(&key) && vek_value_get_string(&data);
            const int stored = complete && _vek_dict_put_value(dict, &key, &data);
            EXPECT_TRUE(stored || allocator.failed());
            if (stored) {
                EXPECT_EQ(key.vt, nullptr);
                EXPECT_EQ(data.vt, nullptr);
                EXPECT_EQ(data.payload.pointer, nullptr);
            } else if (complete) {
                EXPECT_STREQ(vek_value_get_string(&key), text);
                EXPECT_STREQ(vek_value_get_string(&data), text);
            }
            vek_value_release(&key);
            vek_value_release(&data);
        }
        EXPECT_TRUE(vek_dict_get_len(dict) == 2 || allocator.failed());
        vek_dict_destroy(dict);
    });
}

TEST(Dict, CopiesAndMoves)
{
    vektest::fail_each_allocation([](vektest::Allocator &allocator) {
        VekDict *const dict = squares(2, 12);
        if (dict == nullptr) { return; }
        const Numbers keys = keys_of(dict);
        EXPECT_TRUE(keys == up_to(12) || allocator.failed());
        for (const int init_count : {2, 50}) {
            VekDict *const copy = vek_dict_copy(dict, init_count);
            EXPECT_TRUE(copy != nullptr || allocator.failed());
            if (copy != nullptr) {
                EXPECT_EQ(keys_of(copy), keys);
                EXPECT_EQ(copy->first_seg.count, std::max(init_count, vek_dict_get_len(dict)));
                EXPECT_EQ(copy->first_seg.next, nullptr);
            }
            vek_dict_destroy(copy);
        }
        EXPECT_EQ(keys_of(dict), keys);
        VekDict *const moved = keys.empty() ? nullptr : vek_dict_dup_and_clear(dict);
        if (moved != nullptr) {
            EXPECT_EQ(keys_of(moved), keys);
            EXPECT_EQ(vek_dict_get_key_type(moved), VEK_VALUE_INT);
            EXPECT_EQ(moved->first_seg.count, vek_dict_get_len(moved));
        }
        EXPECT_EQ(keys_of(dict), moved != nullptr ? Numbers() : keys);
        EXPECT_TRUE(moved == nullptr || dict->first_seg.next == nullptr);
        vek_dict_destroy(moved);
        vek_dict_destroy(dict);
    });
}

TEST(Dict, DestroyFunctionSeesTheItemsAtTheEnd)
{
    vektest::Allocator allocator;
    Numbers seen;
    VekDict *const dict = vek_name_dict_create_full(1, stop_at_two, &seen);
    for (const int key : {1, 2, 3}) {
        VekValue record;
        VekValue data;
        vek_value_set_int(&record, key); // the generic functions take any key
        vek_value_set_string(&data, "x");
        _vek_dict_put_value(dict, &record, &data);
    }
    VekValue real;
    VekValue data;
    vek_value_set_double(&real, 1.0); // another key than the integer 1
    vek_value_set_int(&data, 1);
    _vek_dict_put_value(dict, &real, &data);
    EXPECT_EQ(vek_dict_get_len(dict), 4);
    vek_dict_ref(dict);
    vek_dict_destroy(dict);
    EXPECT_EQ(seen, Numbers());
    vek_dict_destroy(dict); // all are released, though the function stopped at the second
    EXPECT_EQ(seen, up_to(2));
}

/* A nested dictionary whose end looks into the outer one. */
int walk_outer(VekValue *, VekValue *, void *outer)
{
    keys_of(*static_cast<VekDict **>(outer));
    vek_int_dict_get_int(*static_cast<VekDict **>(outer), 99);
    return 0;
}

TEST(Dict, WhatIsReleasedMayLookAtTheRest)
{
    vektest::Allocator allocator;
    for (const bool clear : {true, false}) {
        VekDict *outer = squares(1, 30);
        for (const int key : {1, 5, 15, 30}) { // in each of the segments
            VekDict *const nested = _vek_dict_create_full(1, VEK_VALUE_INT, walk_outer, &outer);
            vek_int_dict_put_int(nested, 1, 1);
            VekValue value;
            vek_value_take_dict(&value, nested);
            vek_int_dict_put_value(outer, key, &value);
        }
        captured(2, [&] {
            if (clear) { vek_dict_clear(outer); }
            vek_dict_destroy(outer);
        });
    }
}

TEST(Dict, WhatIsReplacedMayLookItsKeyUp)
{
    vektest::Allocator allocator;
    VekDict *outer = squares(1, 1);
    const auto look_up = [](VekValue *, VekValue *, void *dict) {
        EXPECT_EQ(vek_int_dict_get_int(static_cast<VekDict *>(dict), 1), 7);
        return 0;
    };
    VekDict *const nested = _vek_dict_create_full(1, VEK_VALUE_INT, look_up, outer);
    vek_int_dict_put_int(nested, 1, 1);
    VekValue value;
    vek_value_take_dict(&value, nested);
    vek_int_dict_put_value(outer, 1, &value);
    vek_int_dict_put_int(outer, 1, 7);
    vek_dict_destroy(outer);
}

/** A key that is a list of 1 and, if not null, a dictionary. */
VekValue list_key(VekDict *last)
{
    VekValue element;
    VekValue key;
    vek_value_set_int(&element, 1);
    VekSList *list = vek_slist_append(nullptr, vek_value_dup(&element));
    if (last != nullptr) {
        vek_value_take_dict(&element, last);
        list = vek_slist_append(list, vek_value_dup(&element));
        vek_value_release(&element);
    }
    vek_value_take_slist_of_value(&key, list);
    return key;
}

TEST(Dict, AKeyThatIsBeingReleasedIsNotCompared)
{
    vektest::Allocator allocator;
    VekDict *const outer = _vek_dict_create(1, VEK_VALUE_SLIST_OF_VALUE);
    const auto look_up = [](VekValue *, VekValue *, void *dict) {
        VekValue key = list_key(nullptr);
        EXPECT_EQ(_vek_dict_get_value(static_cast<VekDict *>(dict), &key), nullptr);
        vek_value_release(&key);
        return 0;
    };
    VekDict *const nested = _vek_dict_create_full(1, VEK_VALUE_INT, look_up, outer);
    vek_int_dict_put_int(nested, 1, 1);
    VekValue key = list_key(nested);
    VekValue datum;
    vek_value_set_int(&datum, 1);
    _vek_dict_put_value(outer, &key, &datum);
    vektest::expect_warnings(
        nullptr,
        {{"vek_value_get_type", "value->vt != NULL"},
         {"_vek_dict_get_value", "vek_value_get_type(&(cur_seg_ptr->items[i].key)) != VEK_VALUE_INVALID"}},
        [outer] { vek_dict_destroy(outer); });
}

TEST(Dict, WalksPast65535Items)
{
    constexpr int items = 65600;
    VekDict *const dict = vek_int_dict_create(items - 15);
    for (int i = 0; i < items; ++i) { // each put would search them all
        VekDictSegment *segment = &dict->first_seg;
        int slot = i;
        for (; slot >= segment->count && segment->next != nullptr; segment = segment->next) { slot -= segment->count; }
        if (slot >= segment->count) {
            vek_int_dict_put_int(dict, i, i);
        } else {
            vek_value_set_int(&segment->items[slot].key, i);
            vek_value_set_int(&segment->items[slot].data, i);
            ++dict->len;
        }
    }
    const Numbers keys = keys_of(dict);
    EXPECT_EQ(keys.size(), size_t{items});
    EXPECT_EQ(keys.back(), items - 1);
    VekDict *const copy = vek_dict_copy(dict, 1);
    EXPECT_EQ(keys_of(copy), keys);
    vek_dict_destroy(copy);
    vek_dict_destroy(dict);
}

TEST(Dict, Prints)
{
    VekDict *const dict = vek_str_dict_create(1);
    EXPECT_EQ(captured(1, [&] { vek_dict_print(dict); }), "");
    vek_str_dict_put_int(dict, "a", 1);
    vek_str_dict_put_double(dict, "b", 0.5);
    const char *const expected = "Key: a\tValue:1\nKey: b\tValue:0.5\n";
    EXPECT_EQ(captured(1, [&] { vek_dict_print(dict); }), expected);
    vek_dict_destroy(dict);
    vektest::fail_each_allocation([&](vektest::Allocator &allocator) {
        VekDict *const one = _vek_dict_create(1, VEK_VALUE_INT);
        if (one != nullptr) {
            vek_int_dict_put_int(one, 1, 2);
            const std::string text = captured(1, [&] { vek_dict_print(one); });
            EXPECT_TRUE(text == "Key: 1\tValue:2\n" || allocator.failed()) << text;
        }
        vek_dict_destroy(one);
    });
}

TYPED_TEST(TypedDict, StoresAndReplacesEveryKindOfDatum)
{
    using F = TypeParam;
    vektest::fail_each_allocation([](vektest::Allocator &allocator) {
        VekDict *const dict = F::create(1);
        VekStr *const vekstr = vek_str_create("shared");
        if (dict == nullptr || vekstr == nullptr) {
            vek_dict_destroy(dict);
            vek_str_unref(vekstr);
            return;
        }
        const auto key = F::key(1);
        EXPECT_EQ(F::get_int(dict, key), 0); // absent
        EXPECT_EQ(F::get_string(dict, key), nullptr);
        EXPECT_EQ(F::key_exists(dict, key), 0);
        F::put_int(dict, F::key(2), 1); // leaves no free slot
        const int len = vek_dict_get_len(dict);

        if (F::put_vekstr(dict, key, vek_str_ref(vekstr))) {
            EXPECT_EQ(F::get_vekstr(dict, key), vekstr);
            EXPECT_STREQ(F::get_string(dict, key), "shared");
            EXPECT_EQ(F::key_exists(dict, key), 1);
        } else { // the reference stayed here
            EXPECT_TRUE(allocator.failed());
            EXPECT_EQ(_vek_str_get_ref_count(vekstr), 2u);
            vek_str_unref(vekstr);
        }
        if (F::put_string(dict, key, "text")) { EXPECT_STREQ(F::get_string(dict, key), "text"); }
        EXPECT_EQ(_vek_str_get_ref_count(vekstr),
                  vek_dict_get_len(dict) > len && F::get_vekstr(dict, key) == vekstr ? 2u : 1u);
        if (F::put_double(dict, key, 0.5)) { EXPECT_EQ(F::get_double(dict, key), 0.5); }
        if (F::put_pointer(dict, key, &allocator)) { EXPECT_EQ(F::get_pointer(dict, key), &allocator); }
        VekValue value;
        vek_value_set_slist_of_ptr(&value, nullptr);
        if (F::put_value(dict, key, &value)) {
            EXPECT_EQ(value.vt, nullptr);
            EXPECT_EQ(vek_value_get_type(F::get_value(dict, key)), VEK_VALUE_SLIST_OF_POINTER);
        }
        vek_value_release(&value);
        EXPECT_TRUE(F::put_int(dict, key, -7) ? F::get_int(dict, key) == -7 : allocator.failed());
        EXPECT_TRUE(vek_dict_get_len(dict) == 2 || allocator.failed());
        EXPECT_EQ(F::put_string(dict, key, nullptr), 0);
        vek_str_unref(vekstr);
        vek_dict_destroy(dict);
    });
}

TEST(Dict, ChecksNameTheFault)
{
    static VekDict *dict;
    static VekValue empty;
    static VekValue number;
    dict = squares(1, 1);
    empty = {};
    vek_value_set_int(&number, 1);
    EXPECT_FAILS("_vek_dict_create_full", "init_count > 0", _vek_dict_create(0, VEK_VALUE_INT), nullptr);
    EXPECT_FAILS("_vek_dict_create_full", "init_count > 0", vek_name_dict_create(-1), nullptr);
    EXPECT_FAILS("vek_dict_get_key_type", "vekdict != NULL", vek_dict_get_key_type(nullptr), VEK_VALUE_INVALID);
    EXPECT_FAILS("vek_dict_get_len", "vekdict != NULL", vek_dict_get_len(nullptr), 0);
    EXPECT_FAILS("_vek_dict_put_value", "vekdict_ptr != NULL", _vek_dict_put_value(nullptr, nullptr, nullptr), 0);
    EXPECT_FAILS("_vek_dict_put_value", "key != NULL", _vek_dict_put_value(dict, nullptr, nullptr), 0);
    EXPECT_FAILS("_vek_dict_put_value", "data != NULL", _vek_dict_put_value(dict, &number, nullptr), 0);
    EXPECT_FAILS("_vek_dict_get_value", "vekdict_ptr != NULL", _vek_dict_get_value(nullptr, nullptr), nullptr);
    EXPECT_FAILS("_vek_dict_get_value", "key != NULL", _vek_dict_get_value(dict, nullptr), nullptr);
    EXPECT_FAILS("vek_dict_clear", "vekdict_ptr != NULL", vek_dict_clear(nullptr), nullptr);
    dict->ref_count = INT_MAX - 1;
    EXPECT_EQ(vek_dict_ref(dict), dict);
    EXPECT_FAILS("vek_dict_ref", "INT_MAX > dict->ref_count", vek_dict_ref(dict), nullptr);
    EXPECT_EQ(std::exchange(dict->ref_count, 1), INT_MAX);
    EXPECT_FAILS("vek_dict_copy", "orig_dict_ptr", vek_dict_copy(nullptr, 0), nullptr);
    EXPECT_FAILS("vek_dict_copy", "init_count > 0", vek_dict_copy(dict, 0), nullptr);
    EXPECT_FAILS("vek_dict_dup_and_clear", "orig_dict_ptr", vek_dict_dup_and_clear(nullptr), nullptr);
    EXPECT_WARNS("vek_dict_foreach", "vekdict != NULL", vek_dict_foreach(nullptr, nullptr, nullptr));
    EXPECT_WARNS("vek_dict_foreach", "func != NULL", vek_dict_foreach(dict, nullptr, nullptr));
    EXPECT_WARNS("vek_dict_print", "vekdict != NULL", vek_dict_print(nullptr));
    EXPECT_FAILS("_vek_dict_get_ref_count", "dict != NULL", _vek_dict_get_ref_count(nullptr), -1);

    // An empty key is told by the type query first, wherever it stands.
    const auto twice = [](const char *function, const char *condition) {
        return "veklib/vekvalue.cpp:L: vek_value_get_type: assertion \"value->vt != NULL\" "
               "failed\n\n"
               "veklib/vekdict.cpp:L: " +
               std::string(function) + ": assertion \"" + condition + "\" failed\n\n";
    };
    const auto told = [](const std::function<void()> &body) {
        return vektest::masked(captured(2, body), ".cpp:", "0123456789", ".cpp:L");
    };
    const char *const given = "vek_value_get_type(key) != VEK_VALUE_INVALID";
    const char *const stored = "vek_value_get_type(&(cur_seg_ptr->items[i].key)) != VEK_VALUE_INVALID";
    EXPECT_EQ(told([] { EXPECT_EQ(_vek_dict_put_value(dict, &empty, &number), 0); }),
              twice("_vek_dict_put_value", given));
    EXPECT_EQ(told([] { EXPECT_EQ(_vek_dict_get_value(dict, &empty), nullptr); }), twice("_vek_dict_get_value", given));
    vek_value_release(&dict->first_seg.items[0].key);
    VekValue data = number;
    EXPECT_EQ(told([&] { EXPECT_EQ(_vek_dict_put_value(dict, &number, &data), 0); }),
              twice("_vek_dict_put_value", stored));
    EXPECT_EQ(told([] { EXPECT_EQ(_vek_dict_get_value(dict, &number), nullptr); }),
              twice("_vek_dict_get_value", stored));
    vek_dict_clear(dict);
    EXPECT_NE(told([] {
                  EXPECT_EQ(vek_dict_dup_and_clear(dict), nullptr);
              }).find("_vek_dict_create_full: assertion \"init_count > 0\""),
              std::string::npos);
    vek_dict_destroy(dict);
}

TEST(TypedDicts, ChecksNameTheFault)
{
    static VekDict *other; // keyed by doubles: no facade's
    static VekDict *integers;
    other = _vek_dict_create(1, VEK_VALUE_DOUBLE);
    integers = vek_int_dict_create(1);
    struct Family {
        const char *source;
        std::string prefix;
        std::string parameter; ///< of most functions; get_int, get_double and key_exists have `dict`
        std::function<void(VekDict *, int)> call;
    };
    const char *const suffixes[] = {
        "put_vekstr", "dup_and_put_string", "put_int",     "put_double", "put_persistent_pointer",
        "put_value",  "get_value",          "get_pointer", "get_vekstr", "get_string",
        "get_int",    "get_double",         "key_exists"};
#define CALLS(prefix, key, ...)                                                                                        \
    [](VekDict *dict, int function) {                                                                                  \
        switch (function) {                                                                                            \
        case 0: EXPECT_EQ(prefix##_put_vekstr(dict, key, nullptr), 0); break;                                          \
        case 1: EXPECT_EQ(prefix##_dup_and_put_string(dict, key, "x"), 0); break;                                      \
        case 2: EXPECT_EQ(prefix##_put_int(dict, key, 1), 0); break;                                                   \
        case 3: EXPECT_EQ(prefix##_put_double(dict, key, 1), 0); break;                                                \
        case 4: EXPECT_EQ(prefix##_put_persistent_pointer(dict, key, nullptr), 0); break;                              \
        case 5: EXPECT_EQ(prefix##_put_value(dict, key, nullptr), 0); break;                                           \
        case 6: EXPECT_EQ(prefix##_get_value(dict, key), nullptr); break;                                              \
        case 7: EXPECT_EQ(prefix##_get_pointer(dict, key), nullptr); break;                                            \
        case 8: EXPECT_EQ(prefix##_get_vekstr(dict, key), nullptr); break;                                             \
        case 9: EXPECT_EQ(prefix##_get_string(dict, key), nullptr); break;                                             \
        case 10: EXPECT_EQ(prefix##_get_int(dict, key), 0); break;                                                     \
        case 11: EXPECT_EQ(prefix##_get_double(dict, key), 0.0); break;                                                \
        default: __VA_ARGS__;                                                                                          \
        }                                                                                                              \
    }
    const Family families[] = {
        {"vekstrdict.cpp", "vek_str_dict_", "dict", CALLS(vek_str_dict, "k", break)},
        {"vekintdict.cpp", "vek_int_dict_", "vekdict_ptr",
         CALLS(vek_int_dict, 1, EXPECT_EQ(vek_int_dict_key_exists(dict, 1), 0))},
        {"veknamedict.cpp", "vek_name_dict_", "vekdict_ptr",
         CALLS(vek_name_dict, nullptr, EXPECT_EQ(vek_name_dict_key_exists(dict, nullptr), 0))},
    };
    for (const Family &family : families) {
        for (int function = 0; function < (family.parameter == "dict" ? 12 : 13); ++function) {
            const std::string name = family.prefix + suffixes[function];
            const std::string parameter = function < 10 ? family.parameter : "dict";
            const bool bare = function == 10 || function == 11;
            vektest::expect_warnings(family.source, {{name, bare ? "dict" : parameter + " != NULL"}},
                                     [&] { family.call(nullptr, function); });
            vektest::expect_warnings(family.source, {{name, "DICT_TYPE_CHECK(" + parameter + ")"}},
                                     [&] { family.call(other, function); });
        }
    }
    vek_int_dict_put_double(integers, 1, 2.5);
    vektest::expect_warnings("vekvalue.cpp", {{"vek_value_get_int", "vekvalue->vt->type == VEK_VALUE_INT"}},
                             [] { EXPECT_EQ(vek_int_dict_get_int(integers, 1), 0); });
    vek_dict_destroy(other);
    vek_dict_destroy(integers);
}
