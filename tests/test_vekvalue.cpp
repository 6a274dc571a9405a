/* SPDX-License-Identifier: MIT */
#include <veklib/vekdict.h>
#include <veklib/vekmemory.h>
#include <veklib/vekvalue.h>

#include "support/support.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>

using vektest::captured;

namespace {

/** A value for one expression, released at its end. */
class Value {
public:
    template <typename Set, typename Argument>
    Value(Set set, Argument argument)
    {
        set(&value, argument);
    }
    ~Value() { vek_value_release(&value); }
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;
    operator VekValue *() { return &value; }
    VekValue *operator->() { return &value; }

private:
    VekValue value = {};
};

Value string_value(const char *text) { return {vek_value_set_string, text}; }

std::string text_of(const VekValue *value)
{
    char *const text = vek_value_get_as_string(value);
    VekStr *const vekstr = vek_value_get_as_vekstr(value);
    EXPECT_STREQ(text, vek_str_to_c_str(vekstr));
    std::string result = text;
    vek_free(text);
    vek_str_unref(vekstr);
    return result;
}

std::string address(const char *type, const void *payload)
{
    char text[64];
    snprintf(text, sizeof text, "%s(%p)", type, payload);
    return text;
}

/** Fills a record with a value of each type in turn; null when it cannot be made. */
void make(VekValue *value, int type)
{
    static VekName name = {7, const_cast<char *>("eth0")};
    static VekSList words = {&name, nullptr};
    VekStr *const vekstr = vek_str_create("17");
    VekValue number;
    vek_value_set_int(&number, 3);
    VekSList strings = {vekstr, nullptr};
    VekSList second = {&number, nullptr};
    VekSList values = {&number, &second};
    VekDict *const dict = _vek_dict_create(1, VEK_VALUE_INT);
    // clang-format off
    switch (type) {
    case VEK_VALUE_INT: vek_value_set_int(value, -5); break;
    case VEK_VALUE_DOUBLE: vek_value_set_double(value, 0.5); break;
    case VEK_VALUE_VEKSTR: vek_value_set_vekstr(value, vekstr); break;
    case VEK_VALUE_STRING: vek_value_set_string(value, "0x1A"); break;
    case VEK_VALUE_POINTER: vek_value_set_pointer(value, &name); break;
    case VEK_VALUE_NAME: vek_value_set_name(value, &name); break;
    case VEK_VALUE_SLIST_OF_INT: vek_value_set_slist_of_int(value, &words); break;
    case VEK_VALUE_SLIST_OF_STRING: vek_value_set_slist_of_str(value, &strings); break;
    case VEK_VALUE_SLIST_OF_POINTER: vek_value_set_slist_of_ptr(value, &words); break;
    case VEK_VALUE_SLIST_OF_VALUE: vek_value_set_slist_of_value(value, &values); break;
    default: vek_value_set_dict(value, dict); break;
    }
    // clang-format on
    vek_str_unref(vekstr);
    vek_dict_destroy(dict);
}

} // namespace

TEST(Value, EveryTypeCopiesComparesAndReleases)
{
    vektest::fail_each_allocation([](vektest::Allocator &allocator) {
        for (int type = VEK_VALUE_INT; type < VEK_VALUE_MAX; ++type) {
            VekValue value;
            VekValue copy = {};
            make(&value, type);
            EXPECT_EQ(vek_value_get_type(&value), type);
            EXPECT_TRUE(type <= VEK_VALUE_DOUBLE || value.payload.pointer != nullptr || allocator.failed());
            const int copied = vek_value_copy(&copy, &value);
            EXPECT_EQ(vek_value_get_type(&copy), type);
            EXPECT_TRUE(copied || (allocator.failed() && copy.payload.pointer == nullptr));
            EXPECT_TRUE(!copied || vek_value_equal(&value, &copy));
            VekValue *const dup = vek_value_dup(&value);
            EXPECT_TRUE(dup != nullptr ? vek_value_equal(dup, &value) : allocator.failed());
            VekSList *const list = VEK_VALUE_IS_SLIST(&value) ? vek_value_dup_slist(&value) : nullptr;
            Value other(vek_value_set_pointer, &value);
            EXPECT_EQ(vek_value_equal(&value, other), 0);

            vek_slist_free(
                list, type == VEK_VALUE_SLIST_OF_STRING ? [](void *s) { vek_str_unref(static_cast<VekStr *>(s)); }
                      : type == VEK_VALUE_SLIST_OF_VALUE
                          ? [](void *v) { vek_value_destroy(static_cast<VekValue *>(v)); }
                          : [](void *) {});
            vek_value_destroy(dup);
            vek_value_release(&copy);
            vek_value_release(&value);
            vek_value_release(&value); // once is enough, twice is harmless
        }
    });
}

TEST(Value, EqualityHasItsCorners)
{
    Value zero(vek_value_set_double, 0.0);
    Value minus_zero(vek_value_set_double, -0.0);
    Value nan(vek_value_set_double, std::numeric_limits<double>::quiet_NaN());
    Value nan_again(vek_value_set_double, std::numeric_limits<double>::quiet_NaN());
    Value null_string = string_value(nullptr);
    Value null_again = string_value(nullptr);
    Value five(vek_value_set_int, 5);
    Value five_real(vek_value_set_double, 5.0);
    Value text = string_value("");
    EXPECT_EQ(vek_value_equal(zero, minus_zero), 1);
    EXPECT_EQ(vek_value_equal(nan, nan_again), 0);
    EXPECT_EQ(vek_value_equal(nan, nan), 1); // the same record
    EXPECT_EQ(vek_value_equal(null_string, null_again), 1);
    EXPECT_EQ(vek_value_equal(null_string, text), 0);
    EXPECT_EQ(vek_value_equal(five, five_real), 0);
    EXPECT_EQ(vek_value_equal(five, nullptr), 0);
    Value shared(vek_value_take_vekstr, vek_str_create("x"));
    Value same_text(vek_value_take_vekstr, vek_str_create("x"));
    EXPECT_EQ(vek_value_equal(shared, same_text), 1);
    VekValue empty = {};
    EXPECT_EQ(vek_value_equal(&empty, &empty), 1);
    VekValue copy;
    EXPECT_EQ(vek_value_copy(&copy, null_string), 1);
    EXPECT_EQ(vek_value_get_string(&copy), nullptr);
    VekValue garbage; // 32 bits are the whole integer, whatever lies beside them
    garbage.payload.pointer = &garbage;
    vek_value_set_int(&garbage, 5);
    EXPECT_EQ(vek_value_equal(five, &garbage), 1);
}

TEST(Value, ConvertsToNumbers)
{
    const std::string range = strerror(ERANGE);
    const auto cannot = [](const std::string &text, const char *number) {
        return "Can't convert string \"" + text + "\" to " + number + "\n";
    };
    const auto error = [&](const std::string &text, const char *number) {
        return "Error converting string \"" + text + "\" to " + number + ": " + range + "\n";
    };
    const struct {
        const char *text;
        int32_t integer;
        std::string integer_message;
        double real;
        std::string real_message;
    } rows[] = {
        {"0x1A", 26, "", 26, ""},
        {"010", 8, "", 10, ""},
        {"0b11", 0, "", 0, ""},
        {"\t-0x10", -16, "", -16, ""},
        {"12abc", 12, "", 12, ""},
        {" 7", 7, "", 7, ""},
        {"0", 0, "", 0, ""},
        {"-3.9", -3, "", -3.9, ""},
        {"abc", 0, cannot("abc", "an integer"), 0, cannot("abc", "a double")},
        {"", 0, cannot("", "an integer"), 0, cannot("", "a double")},
        {"2147483648", INT32_MAX, error("2147483648", "an integer"), 2147483648.0, ""},
        {"-99999999999", INT32_MIN, error("-99999999999", "an integer"), -99999999999.0, ""},
        {"1e400", 1, "", HUGE_VAL, error("1e400", "a double")},
        {nullptr, 0, "", 0, ""},
    };
    for (const auto &row : rows) {
        VekStr *const vekstr = vek_str_create(row.text);
        Value string = string_value(row.text);
        Value shared(vek_value_take_vekstr, vekstr);
        for (VekValue *value : {static_cast<VekValue *>(string), static_cast<VekValue *>(shared)}) {
            errno = EDOM; // a stale error is not the conversion's
            EXPECT_EQ(captured(1, [&] { EXPECT_EQ(vek_value_get_as_int(value), row.integer); }), row.integer_message);
            errno = EDOM;
            EXPECT_EQ(captured(1, [&] { EXPECT_EQ(vek_value_get_as_double(value), row.real); }), row.real_message);
        }
    }
    const std::pair<double, int32_t> doubles[] = {{2.9, 2},
                                                  {-2.9, -2},
                                                  {1e20, INT32_MAX},
                                                  {-1e20, INT32_MIN},
                                                  {2147483647.9, INT32_MAX},
                                                  {std::numeric_limits<double>::quiet_NaN(), 0},
                                                  {-HUGE_VAL, INT32_MIN}};
    for (const auto &[real, integer] : doubles) {
        Value value(vek_value_set_double, real);
        EXPECT_EQ(vek_value_get_as_int(value), integer);
    }
    Value integer(vek_value_set_int, INT32_MIN);
    EXPECT_EQ(vek_value_get_as_int(integer), INT32_MIN);
    EXPECT_EQ(vek_value_get_as_double(integer), -2147483648.0);
}

TEST(Value, ConvertsToText)
{
    VekName name = {7, const_cast<char *>("eth0")};
    VekDict *const dict = _vek_dict_create(1, VEK_VALUE_INT);
    Value large(vek_value_set_double, 1e20);
    Value null_shared(vek_value_set_vekstr, static_cast<VekStr *>(nullptr));
    Value named(vek_value_set_name, &name);
    Value pointer(vek_value_set_pointer, &name);
    Value list(vek_value_set_slist_of_ptr, static_cast<VekSList *>(nullptr));
    Value taken(vek_value_take_dict, dict);
    EXPECT_EQ(text_of(large), "1e+20");
    EXPECT_EQ(text_of(string_value("")), "");
    EXPECT_EQ(text_of(string_value(nullptr)), "(nul)");
    EXPECT_EQ(text_of(null_shared), "(nul)");
    EXPECT_EQ(text_of(named), "eth0");
    EXPECT_EQ(text_of(pointer), address("VEK_VALUE_POINTER", &name));
    EXPECT_EQ(text_of(list), address("VEK_VALUE_SLIST_OF_POINTER", nullptr));
    const std::pair<VekValueType, const char *> lists[] = {{VEK_VALUE_SLIST_OF_INT, "VEK_VALUE_SLIST_OF_INT"},
                                                           {VEK_VALUE_SLIST_OF_STRING, "VEK_VALUE_SLIST_OF_STRING"},
                                                           {VEK_VALUE_SLIST_OF_VALUE, "VEK_VALUE_SLIST_OF_VALUE"}};
    for (const auto &[type, text] : lists) {
        Value typed(vek_value_init, type);
        EXPECT_EQ(text_of(typed), address(text, nullptr));
    }
    EXPECT_EQ(text_of(taken), address("VEK_VALUE_DICT", dict));
    VekValue value;
    make(&value, VEK_VALUE_VEKSTR);
    VekStr *const same = vek_value_get_as_vekstr(&value);
    EXPECT_EQ(same, vek_value_get_vekstr(&value));
    EXPECT_EQ(_vek_str_get_ref_count(same), 2u);
    EXPECT_EQ(vek_value_get_as_pointer(&value), same);
    vek_str_unref(same);
    vek_value_release(&value);
}

TEST(Value, OwnershipFollowsTheVerb)
{
    vektest::Allocator allocator;
    VekStr *const vekstr = vek_str_create("a");
    VekDict *const dict = _vek_dict_create(1, VEK_VALUE_INT);
    VekValue value;
    vek_value_set_vekstr(&value, vekstr);
    EXPECT_EQ(_vek_str_get_ref_count(vekstr), 2u);
    EXPECT_EQ(vek_str_unref(vek_value_dup_vekstr(&value)), nullptr);
    EXPECT_EQ(vek_value_steal_vekstr(&value), vekstr);
    EXPECT_EQ(vek_value_get_vekstr(&value), nullptr);
    vek_str_unref(vekstr);
    vek_value_take_vekstr(&value, vekstr);
    vek_value_release(&value);

    vek_value_set_dict(&value, dict);
    VekDict *const again = vek_value_dup_dict(&value);
    EXPECT_EQ(again, dict);
    EXPECT_EQ(_vek_dict_get_ref_count(dict), 3);
    vek_dict_destroy(again);
    vek_value_release(&value);
    EXPECT_EQ(_vek_dict_get_ref_count(dict), 1);
    vek_dict_destroy(dict);

    EXPECT_EQ(vek_value_set_string(&value, "text"), 1);
    char *const copy = vek_value_dup_string(&value);
    char *const stolen = vek_value_steal_string(&value);
    EXPECT_STREQ(copy, "text");
    EXPECT_STREQ(stolen, "text");
    EXPECT_EQ(vek_value_get_type(&value), VEK_VALUE_STRING);
    vek_value_release(&value);
    vek_value_take_string(&value, stolen);
    EXPECT_EQ(vek_value_get_string(&value), stolen);
    EXPECT_EQ(vek_value_get_as_pointer(&value), stolen);
    vek_value_release(&value);
    vek_free(copy);

    vek_value_set_pointer(&value, &allocator);
    EXPECT_EQ(vek_value_get_pointer(&value), &allocator);
    EXPECT_EQ(vek_value_steal_pointer(&value), &allocator);
    EXPECT_EQ(vek_value_get_pointer(&value), nullptr);

    VekSList *const nodes = vek_slist_prepend(nullptr, &value);
    vek_value_take_slist_of_ptr(&value, nodes);
    EXPECT_EQ(vek_value_get_slist(&value), nodes);
    vek_value_release(&value);
    vek_value_take_slist_of_str(&value, vek_slist_prepend(nullptr, vek_str_create("a")));
    vek_value_release(&value);
    vek_value_take_slist_of_value(&value, vek_slist_prepend(nullptr, vek_calloc(1, sizeof value)));
    vek_value_release(&value);
    const std::pair<void (*)(VekValue *, VekSList *), VekValueType> lists[] = {
        {vek_value_take_slist_of_int, VEK_VALUE_SLIST_OF_INT},
        {vek_value_take_slist_of_str, VEK_VALUE_SLIST_OF_STRING},
        {vek_value_take_slist_of_ptr, VEK_VALUE_SLIST_OF_POINTER},
        {vek_value_take_slist_of_value, VEK_VALUE_SLIST_OF_VALUE}};
    for (const auto &[take, type] : lists) {
        take(&value, nullptr);
        EXPECT_EQ(vek_value_get_type(&value), type);
        vek_value_release(&value);
    }
}

TEST(Value, ListsAreCopiedWholeOrNotAtAll)
{
    vektest::Allocator allocator;
    VekStr *const limited = vek_str_create("x");
    limited->count = UINT_MAX - 1; // refuses a reference
    VekValue copy;
    captured(2, [&] {
        Value strings(vek_value_take_slist_of_str, vek_slist_prepend(nullptr, limited));
        EXPECT_EQ(vek_value_copy(&copy, strings), 0);
        EXPECT_EQ(vek_value_get_slist(&copy), nullptr);
        limited->count = 1;
        Value values(vek_value_take_slist_of_value, vek_slist_prepend(nullptr, vek_calloc(1, sizeof(VekValue))));
        EXPECT_EQ(vek_value_dup(values), nullptr);
    });
}

TEST(Value, ChecksNameTheFault)
{
    static VekValue empty;
    static VekValue number;
    static VekValue name;
    empty = {};
    vek_value_set_int(&number, 1);
    vek_value_set_name(&name, nullptr);
    const auto init = [](int type) {
        VekValue before = number;
        vek_value_init(&number, static_cast<VekValueType>(type));
        EXPECT_EQ(memcmp(&before, &number, sizeof before), 0);
    };
    const vektest::Check no_type = {"vek_value_get_type", "value->vt != NULL"};
    EXPECT_WARNS("vek_value_init", "vekvalue != NULL", vek_value_init(nullptr, VEK_VALUE_MAX));
    EXPECT_WARNS("vek_value_init", "type < VEK_VALUE_MAX", init(11));
    EXPECT_WARNS("vek_value_init", "type != VEK_VALUE_INVALID", init(-1));
    EXPECT_WARNS("vek_value_init", "type > VEK_VALUE_INVALID", init(-1000));
    EXPECT_WARNS("vek_value_release", "vekvalue != NULL", vek_value_release(nullptr));
    vektest::expect_warnings("vekvalue.cpp", {}, [&] { vek_value_release(&empty), vek_value_destroy(nullptr); });
    EXPECT_FAILS("vek_value_get_type", "value != NULL", vek_value_get_type(nullptr), VEK_VALUE_INVALID);
    vektest::expect_warnings("vekvalue.cpp", {no_type},
                             [&] { EXPECT_EQ(vek_value_get_type(&empty), VEK_VALUE_INVALID); });
    EXPECT_FAILS("vek_value_copy", "dest != NULL", vek_value_copy(nullptr, nullptr), 0);
    EXPECT_FAILS("vek_value_copy", "src != NULL", vek_value_copy(&empty, nullptr), 0);
    EXPECT_FAILS("vek_value_copy", "src->vt != NULL", vek_value_copy(&number, &empty), 0);
    EXPECT_FAILS("vek_value_copy", "src != NULL", vek_value_dup(nullptr), nullptr);
    EXPECT_FAILS("vek_value_equal", "val1->vt != NULL", vek_value_equal(&empty, &number), 0);
    EXPECT_FAILS("vek_value_equal", "val2->vt != NULL", vek_value_equal(&number, &empty), 0);
    EXPECT_WARNS("vek_value_set_int", "vekvalue != NULL", vek_value_set_int(nullptr, 1));
    EXPECT_FAILS("vek_value_set_string", "vekvalue != NULL", vek_value_set_string(nullptr, "x"), 0);
    EXPECT_WARNS("vek_value_take_dict", "vekvalue != NULL", vek_value_take_dict(nullptr, nullptr));
    EXPECT_FAILS("vek_value_get_int", "vekvalue != NULL", vek_value_get_int(nullptr), 0);
    EXPECT_FAILS("vek_value_get_int", "vekvalue->vt->type == VEK_VALUE_INT", vek_value_get_int(&empty), 0);
    EXPECT_FAILS("vek_value_get_double", "vekvalue->vt->type == VEK_VALUE_DOUBLE", vek_value_get_double(&number), 0.0);
    EXPECT_FAILS("vek_value_get_string", "vekvalue->vt->type == VEK_VALUE_STRING", vek_value_get_string(&number),
                 nullptr);
    EXPECT_FAILS("vek_value_dup_string", "vekvalue->vt->type == VEK_VALUE_STRING", vek_value_dup_string(&number),
                 nullptr);
    EXPECT_FAILS("vek_value_steal_vekstr", "vekvalue->vt->type == VEK_VALUE_VEKSTR", vek_value_steal_vekstr(&number),
                 nullptr);
    EXPECT_FAILS("vek_value_get_pointer", "vekvalue->vt->type == VEK_VALUE_POINTER", vek_value_get_pointer(&number),
                 nullptr);
    EXPECT_FAILS("vek_value_steal_pointer", "value != NULL", vek_value_steal_pointer(nullptr), nullptr);
    EXPECT_FAILS("vek_value_steal_pointer", "value->vt->type == VEK_VALUE_POINTER", vek_value_steal_pointer(&number),
                 nullptr);
    EXPECT_FAILS("vek_value_get_vekstr", "vekvalue->vt->type == VEK_VALUE_VEKSTR", vek_value_get_vekstr(&number),
                 nullptr);
    EXPECT_FAILS("vek_value_get_dict", "vekvalue->vt->type == VEK_VALUE_DICT", vek_value_get_dict(&number), nullptr);
    EXPECT_FAILS("vek_value_get_name", "vekvalue->vt->type == VEK_VALUE_NAME", vek_value_get_name(&number), nullptr);
    vektest::expect_warnings(
        "vekvalue.cpp", {no_type, no_type, no_type, no_type, {"vek_value_get_slist", "VEK_VALUE_IS_SLIST(vekvalue)"}},
        [&] { EXPECT_EQ(vek_value_get_slist(&empty), nullptr); });
    EXPECT_FAILS("vek_value_dup_slist", "VEK_VALUE_IS_SLIST(vekvalue)", vek_value_dup_slist(&number), nullptr);
    EXPECT_FAILS("vek_value_dup_dict", "vekvalue->vt->type == VEK_VALUE_DICT", vek_value_dup_dict(&number), nullptr);
    vektest::expect_warnings("vekvalue.cpp",
                             {{"vek_value_get_as_pointer", "vekvalue->vt->type != VEK_VALUE_INT && "
                                                           "vekvalue->vt->type != VEK_VALUE_DOUBLE"}},
                             [&] { EXPECT_EQ(vek_value_get_as_pointer(&number), nullptr); });
    EXPECT_FAILS("vek_value_get_as_string", "value != NULL", vek_value_get_as_string(nullptr), nullptr);
    vektest::expect_warnings("vekvalue.cpp", {no_type, no_type, no_type, no_type},
                             [&] { EXPECT_EQ(text_of(&empty), address("[unknown VekValueType]", nullptr)); });
    const std::string refused = captured(2, [] {
        EXPECT_EQ(vek_value_get_as_int(&name), 0);
        EXPECT_EQ(vek_value_get_as_double(&name), 0.0);
    });
    EXPECT_EQ(vektest::masked(refused, ".cpp:", "0123456789", ".cpp:L"),
              "veklib/vekvalue.cpp:L: Can't coerce VEK_VALUE_NAME to int\n"
              "veklib/vekvalue.cpp:L: Can't coerce VEK_VALUE_NAME to double\n");
}
