/* SPDX-License-Identifier: MIT */
#include <veklib/vekdict.h>
#include <veklib/vekmemory.h>
#include <veklib/vekstrfuncs.h>
#include <veklib/vekvalue.h>

#include "support/support.h"

#include <cmath>

using namespace vektest;

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

private:
    VekValue value = {};
};

Value string_value(const char *text) { return {vek_value_set_string, text}; }

/** A value as text. Expects the same in both forms, and null without memory. */
std::string text_of(const VekValue *value)
{
    std::string result;
    fail_each_allocation([&](Allocator &allocator) {
        char *const text = vek_value_get_as_string(value);
        EXPECT_EQ(text == nullptr, allocator.just_failed());
        result = text != nullptr ? text : "";
        VekStr *const vekstr = vek_value_get_as_vekstr(value);
        EXPECT_EQ(vekstr == nullptr, allocator.just_failed());
        EXPECT_TRUE(allocator.failed() || result == vek_str_to_c_str(vekstr));
        vek_free(text);
        vek_str_unref(vekstr);
    });
    return result;
}

std::string address(const char *type, const void *payload)
{
    char text[64];
    snprintf(text, sizeof text, "%s(%p)", type, payload);
    return text;
}

VekName name = {7, const_cast<char *>("eth0")};
VekStr shared = {1, ""}; ///< in the end it has this reference alone

const char digits[] = "0x1A";
VekSList words = {&name, nullptr};
VekSList no_text = {nullptr, nullptr};
VekSList texts = {&shared, &no_text};

template <auto set, auto argument>
void make(VekValue *value)
{
    set(value, argument);
}

void make_slist_of_value(VekValue *value)
{
    Value three(vek_value_set_int, 3);
    VekSList last = {three, nullptr};
    VekSList list = {three, &last};
    vek_value_set_slist_of_value(value, &list);
}

void make_dict(VekValue *value) { vek_value_take_dict(value, _vek_dict_create(1, VEK_VALUE_INT)); }

#define TYPE(name) VEK_VALUE_##name, "VEK_VALUE_" #name

/** Every type, and what makes a record a value of it, with a payload if there is memory for it. */
const struct Type {
    VekValueType type;
    const char *text;
    void (*make)(VekValue *value);
    void (*take)(VekValue *value, VekSList *list) = nullptr; ///< for types of lists
} types[] = {
    {TYPE(INT), make<vek_value_set_int, -5>},
    {TYPE(DOUBLE), make<vek_value_set_double, INT32_MAX>},
    {TYPE(VEKSTR), make<vek_value_set_vekstr, &shared>},
    {TYPE(STRING), make<vek_value_set_string, digits>},
    {TYPE(POINTER), make<vek_value_set_pointer, &name>},
    {TYPE(NAME), make<vek_value_set_name, &name>},
    {TYPE(SLIST_OF_INT), make<vek_value_set_slist_of_int, &words>, vek_value_take_slist_of_int},
    {TYPE(SLIST_OF_STRING), make<vek_value_set_slist_of_str, &texts>, vek_value_take_slist_of_str},
    {TYPE(SLIST_OF_POINTER), make<vek_value_set_slist_of_ptr, &words>, vek_value_take_slist_of_ptr},
    {TYPE(SLIST_OF_VALUE), make_slist_of_value, vek_value_take_slist_of_value},
    {TYPE(DICT), make_dict},
};

} // namespace

TEST(Value, EveryTypeCopiesComparesAndReleases)
{
    const Check no_list = {"vek_value_take_slist", "type >= VEK_VALUE_SLIST_OF_INT && "
                                                   "type <= VEK_VALUE_SLIST_OF_VALUE"};
    fail_each_allocation([&](Allocator &allocator) {
        for (const auto &[type, text, make, take] : types) {
            VekValue value;
            make(&value);
            EXPECT_EQ(vek_value_get_type(&value), type);
            const bool made = !allocator.just_failed();
            EXPECT_TRUE(type <= VEK_VALUE_DOUBLE || made == (value.payload.pointer != nullptr));

            VekValue copy = {};
            const int copied = vek_value_copy(&copy, &value);
            EXPECT_EQ(copied, allocator.just_failed() ? 0 : 1);
            EXPECT_EQ(vek_value_get_type(&copy), type);
            EXPECT_TRUE(copied ? vek_value_equal(&value, &copy) : copy.payload.pointer == nullptr);
            VekValue *dup = nullptr;
            expect_warnings({}, [&] { dup = vek_value_dup(&value); });
            EXPECT_EQ(dup == nullptr, allocator.just_failed());
            EXPECT_TRUE(dup == nullptr || vek_value_equal(dup, &value));
            EXPECT_EQ(VEK_VALUE_IS_SLIST(&value), take != nullptr);
            if (type == VEK_VALUE_STRING && made) {
                char *const string = vek_value_dup_string(&value);
                EXPECT_STREQ(string, allocator.just_failed() ? nullptr : digits);
                vek_free(string);
            }
            VekValue by_number = {};
            if (take != nullptr) {
                VekSList *const list = vek_value_dup_slist(&value);
                EXPECT_EQ(list == nullptr, allocator.just_failed() || !made);
                VekValue taken;
                take(&taken, list);
                EXPECT_EQ(vek_value_get_slist(&taken), list);
                EXPECT_EQ(vek_value_equal(&taken, &value), list != nullptr || !made);
                expect_warnings({},
                                [&, type = type] { vek_value_take_slist(&by_number, type, list); });
                EXPECT_TRUE(vek_value_equal(&by_number, &taken));
                vek_value_release(&taken); // releases the elements, too
            } else {
                expect_warnings({no_list}, [&, type = type] {
                    vek_value_take_slist(&by_number, type, nullptr);
                });
                EXPECT_EQ(by_number.vt, nullptr);
            }
            Value other(vek_value_set_pointer, &value);
            EXPECT_EQ(vek_value_equal(&value, other), 0);

            vek_value_destroy(dup);
            vek_value_release(&copy);
            vek_value_release(&value);
            vek_value_release(&value); // once is enough, twice is harmless
            EXPECT_EQ(shared.count, 1u);
        }
    });
}

TEST(Value, EqualityHasItsCorners)
{
    const auto text = [] { return vek_str_create("x"); };
    const auto list = [text] { return vek_slist_prepend(nullptr, text()); };
    struct {
        Value first;
        Value second;
        int equal;
    } rows[] = {
        {{vek_value_set_double, NAN}, {vek_value_set_double, NAN}, 0},
        {{vek_value_set_double, 0.0}, {vek_value_set_double, -0.0}, 1},
        {{vek_value_set_double, 5.0}, {vek_value_set_int, 5}, 0},
        {string_value(nullptr), string_value(nullptr), 1},
        {string_value(nullptr), string_value(""), 0},
        {string_value("ab"), string_value("ac"), 0},
        {{vek_value_take_vekstr, text()}, {vek_value_take_vekstr, text()}, 1},
        {{vek_value_take_slist_of_str, list()}, {vek_value_take_slist_of_str, list()}, 1},
    };
    for (auto &[first, second, equal] : rows) {
        EXPECT_EQ(vek_value_equal(first, second), equal);
        EXPECT_EQ(vek_value_equal(second, first), equal);
        EXPECT_EQ(vek_value_equal(first, first), 1); // the same record
        EXPECT_EQ(vek_value_equal(first, nullptr), 0);
        EXPECT_EQ(vek_value_equal(nullptr, first), 0);
    }

    VekValue empty = {};
    EXPECT_EQ(vek_value_equal(&empty, &empty), 1);
    VekValue garbage; // the integer is only 32 bits; the others do not count
    garbage.payload.pointer = &garbage;
    vek_value_set_int(&garbage, 5);
    EXPECT_EQ(vek_value_equal(Value(vek_value_set_int, 5), &garbage), 1);
    vek_value_init(&garbage, VEK_VALUE_POINTER);
    EXPECT_EQ(vek_value_get_pointer(&garbage), nullptr);
    vek_value_init(&garbage, VEK_VALUE_DOUBLE);
    EXPECT_EQ(vek_value_get_double(&garbage), 0.0);
}

TEST(Value, ConvertsToNumbers)
{
    enum Fault { none, nothing, range }; // no number in the text; a number out of range
    const struct {
        const char *text;
        int32_t integer;
        double real;
        Fault integer_fault = none;
        Fault real_fault = none;
    } rows[] = {
        {"0x1A", 26, 26},
        {"0X1a", 26, 26},
        {"010", 8, 10},
        {"0b11", 0, 0},
        {"\t-0x10", -16, -16},
        {"+0x10", 16, 16},
        {"0", 0, 0},
        {"-3.9", -3, -3.9},
        {"abc", 0, 0, nothing, nothing},
        {"", 0, 0, nothing, nothing},
        {"2147483648", INT32_MAX, 2147483648.0, range, none},
        {"-99999999999", INT32_MIN, -99999999999.0, range, none},
        {"1e400", 1, HUGE_VAL, none, range},
        {nullptr, 0, 0},
    };
    for (const auto &row : rows) {
        const auto reported = [&](Fault fault, const char *number) {
            if (fault == none) { return std::string(); }
            const std::string what = std::string(" string \"") + row.text + "\" to " + number;
            return fault == nothing ? "Can't convert" + what + "\n"
                                    : "Error converting" + what + ": " + strerror(ERANGE) + "\n";
        };
        Value string = string_value(row.text);
        Value vekstr(vek_value_take_vekstr, vek_str_create(row.text));
        for (VekValue *const value : std::initializer_list<VekValue *>{string, vekstr}) {
            const std::string text = captured(1, [&] {
                errno = EDOM; // an older error is not the conversion's
                EXPECT_EQ(vek_value_get_as_int(value), row.integer);
                errno = EDOM;
                EXPECT_EQ(vek_value_get_as_double(value), row.real);
            });
            EXPECT_EQ(text, reported(row.integer_fault, "an integer") +
                                reported(row.real_fault, "a double"));
        }
    }
    for (const auto &[real, integer] : {std::pair<double, int32_t>{2.9, 2},
                                        {-2.9, -2},
                                        {NAN, 0},
                                        {1e20, INT32_MAX},
                                        {2147483647.9, INT32_MAX},
                                        {-HUGE_VAL, INT32_MIN}}) {
        Value value(vek_value_set_double, real);
        EXPECT_EQ(vek_value_get_as_int(value), integer);
        EXPECT_TRUE(std::isnan(real) || vek_value_get_as_double(value) == real);
    }
    EXPECT_EQ(vek_value_get_as_int(Value(vek_value_set_int, INT32_MIN)), INT32_MIN);
    EXPECT_EQ(vek_value_get_as_double(Value(vek_value_set_int, INT32_MIN)), -2147483648.0);
}

TEST(Value, ConvertsToText)
{
    EXPECT_EQ(text_of(Value(vek_value_set_int, -5)), "-5");
    EXPECT_EQ(text_of(Value(vek_value_set_double, 1e20)), "1e+20");
    EXPECT_EQ(text_of(string_value("")), "");
    EXPECT_EQ(text_of(string_value(nullptr)), "(nul)");
    EXPECT_EQ(text_of(Value(vek_value_init, VEK_VALUE_VEKSTR)), "(nul)");
    EXPECT_EQ(text_of(Value(vek_value_set_name, &name)), "eth0");
    EXPECT_EQ(text_of(Value(vek_value_set_pointer, &name)), address("VEK_VALUE_POINTER", &name));
    for (const Type &row : types) {
        if (row.type > VEK_VALUE_NAME) {
            EXPECT_EQ(text_of(Value(vek_value_init, row.type)), address(row.text, nullptr));
        }
    }
    Value text(vek_value_take_vekstr, vek_str_create("17"));
    EXPECT_EQ(text_of(text), "17");
    VekStr *const same = vek_value_get_as_vekstr(text);
    EXPECT_EQ(same, vek_value_get_vekstr(text));
    EXPECT_EQ(_vek_str_get_ref_count(same), 2u);
    EXPECT_EQ(vek_value_get_as_pointer(text), same);
    vek_str_unref(same);
}

TEST(Value, OwnershipFollowsTheVerb)
{
    Allocator allocator;
    VekDict *const dict = _vek_dict_create(1, VEK_VALUE_INT);
    VekValue value;
    vek_value_set_vekstr(&value, &shared);
    EXPECT_EQ(vek_value_dup_vekstr(&value), &shared);
    EXPECT_EQ(vek_value_steal_vekstr(&value), &shared);
    EXPECT_EQ(vek_value_get_vekstr(&value), nullptr);
    EXPECT_EQ(shared.count, 3u);
    vek_str_unref(&shared);
    vek_value_take_vekstr(&value, &shared);
    vek_value_release(&value);
    EXPECT_EQ(shared.count, 1u);

    vek_value_set_dict(&value, dict);
    EXPECT_EQ(vek_value_dup_dict(&value), dict);
    EXPECT_EQ(_vek_dict_get_ref_count(dict), 3);
    vek_value_release(&value);
    for (int i = 0; i < 2; ++i) { vek_dict_destroy(dict); }

    vek_value_take_string(&value, vek_strdup("text"));
    char *const copy = vek_value_dup_string(&value);
    char *const stolen = vek_value_steal_string(&value);
    EXPECT_STREQ(copy, stolen);
    EXPECT_EQ(vek_value_get_string(&value), nullptr);
    vek_value_take_string(&value, stolen);
    EXPECT_STREQ(vek_value_get_string(&value), "text");
    EXPECT_EQ(vek_value_get_as_pointer(&value), stolen);
    vek_value_release(&value);
    vek_free(copy);

    vek_value_set_pointer(&value, &allocator);
    EXPECT_EQ(vek_value_get_pointer(&value), &allocator);
    EXPECT_EQ(vek_value_steal_pointer(&value), &allocator);
    EXPECT_EQ(vek_value_get_pointer(&value), nullptr);
}

TEST(Value, AccessNamesTheFault)
{
    EXPECT_REFUSE(nullptr, "vekvalue != NULL", vek_value_init, vek_value_release, vek_value_set_int,
                  vek_value_set_double, vek_value_set_vekstr, vek_value_set_string,
                  vek_value_set_pointer, vek_value_set_name, vek_value_set_slist_of_int,
                  vek_value_set_slist_of_str, vek_value_set_slist_of_ptr,
                  vek_value_set_slist_of_value, vek_value_set_dict, vek_value_take_vekstr,
                  vek_value_take_string, vek_value_take_slist_of_int, vek_value_take_slist_of_str,
                  vek_value_take_slist_of_ptr, vek_value_take_slist_of_value, vek_value_take_dict,
                  vek_value_get_int, vek_value_get_double, vek_value_get_string,
                  vek_value_get_vekstr, vek_value_get_pointer, vek_value_get_name,
                  vek_value_get_dict, vek_value_get_slist, vek_value_dup_string,
                  vek_value_dup_vekstr, vek_value_dup_dict, vek_value_dup_slist,
                  vek_value_steal_string, vek_value_steal_vekstr, vek_value_get_as_pointer);
    EXPECT_REFUSE(nullptr, "value != NULL", vek_value_steal_pointer, vek_value_get_as_int,
                  vek_value_get_as_double, vek_value_get_as_string, vek_value_get_as_vekstr);
    expect_warnings({{"vek_value_take_slist", "vekvalue != NULL"}},
                    [] { vek_value_take_slist(nullptr, VEK_VALUE_SLIST_OF_INT, nullptr); });
    VekValue empty = {};
    Value list(vek_value_init, VEK_VALUE_SLIST_OF_INT);
    Value number(vek_value_init, VEK_VALUE_INT);
    Value real(vek_value_init, VEK_VALUE_DOUBLE);
    for (VekValue *const other :
         std::initializer_list<VekValue *>{&empty, list}) { // without a type, of another type
        const std::string type = "vekvalue->vt->type == VEK_VALUE_";
        EXPECT_REFUSE(other, type + "INT", vek_value_get_int);
        EXPECT_REFUSE(other, type + "DOUBLE", vek_value_get_double);
        EXPECT_REFUSE(other, type + "STRING", vek_value_get_string, vek_value_dup_string,
                      vek_value_steal_string);
        EXPECT_REFUSE(other, type + "VEKSTR", vek_value_get_vekstr, vek_value_dup_vekstr,
                      vek_value_steal_vekstr);
        EXPECT_REFUSE(other, type + "POINTER", vek_value_get_pointer);
        EXPECT_REFUSE(other, "value->vt->type == VEK_VALUE_POINTER", vek_value_steal_pointer);
        EXPECT_REFUSE(other, type + "NAME", vek_value_get_name);
        EXPECT_REFUSE(other, type + "DICT", vek_value_get_dict, vek_value_dup_dict);
    }
    for (VekValue *const other : std::initializer_list<VekValue *>{&empty, number, real}) {
        const char *const no_number =
            "vekvalue->vt->type != VEK_VALUE_INT && vekvalue->vt->type != VEK_VALUE_DOUBLE";
        EXPECT_REFUSE(other, no_number, vek_value_get_as_pointer);
    }
    const char *const is_list = "VEK_VALUE_IS_SLIST(vekvalue)";
    EXPECT_REFUSE(static_cast<VekValue *>(number), is_list, vek_value_get_slist,
                  vek_value_dup_slist);

    // The test for a list asks for the type four times, a conversion twice; text_of() makes twelve.
    const Check no_type = {"vek_value_get_type", "value->vt != NULL"};
    expect_warnings({no_type, no_type, no_type, no_type, {"vek_value_get_slist", is_list}},
                    [&] { EXPECT_EQ(vek_value_get_slist(&empty), nullptr); });
    expect_warnings(std::vector(24, no_type), [&] {
        EXPECT_EQ(text_of(&empty), address("[unknown VekValueType]", nullptr));
    });
    const VekValueVtable foreign = {VEK_VALUE_MAX, nullptr, nullptr, nullptr};
    VekValue strange = {&foreign, {}};
    Value named(vek_value_set_name, &name);
    for (const auto &[value, type] : std::initializer_list<std::pair<VekValue *, std::string>>{
             {named, "VEK_VALUE_NAME"}, {&strange, "[unknown VekValueType]"}}) {
        const std::string refused = captured(2, [value = value] {
            EXPECT_EQ(vek_value_get_as_int(value), 0);
            EXPECT_EQ(vek_value_get_as_double(value), 0.0);
        });
        const std::string text = "veklib/vekvalue_convert.cpp:L: Can't coerce " + type + " to ";
        EXPECT_EQ(without_lines(refused), text + "int\n" + text + "double\n");
    }
    const std::string no_types = captured(2, [&] {
        EXPECT_EQ(vek_value_get_as_int(&empty), 0);
        EXPECT_EQ(vek_value_get_as_double(&empty), 0.0);
    });
    EXPECT_EQ(lines_of(no_types).size(), 10u); // each asks twice
}

TEST(Value, ChecksNameTheFault)
{
    EXPECT_REFUSE(nullptr, "dest != NULL", vek_value_copy);
    Value number(vek_value_set_int, 1);
    VekValue empty = {};
    expect_warnings({{"vek_value_init", "type < VEK_VALUE_MAX"},
                     {"vek_value_init", "type != VEK_VALUE_INVALID"},
                     {"vek_value_init", "type > VEK_VALUE_INVALID"}},
                    [&] {
                        for (const int type : {11, -1, -1000}) {
                            vek_value_init(number, static_cast<VekValueType>(type));
                            EXPECT_EQ(vek_value_get_int(number), 1);
                        }
                    });
    expect_warnings({}, [&] { vek_value_release(&empty), vek_value_destroy(nullptr); });
    EXPECT_FAILS("value != NULL", vek_value_get_type(nullptr), VEK_VALUE_INVALID);
    EXPECT_FAILS("value->vt != NULL", vek_value_get_type(&empty), VEK_VALUE_INVALID);
    EXPECT_REFUSE(&empty, "src != NULL", vek_value_copy);
    EXPECT_FAILS("src->vt != NULL", vek_value_copy(number, &empty), 0);
    expect_warnings({{"vek_value_copy", "src != NULL"}},
                    [] { EXPECT_EQ(vek_value_dup(nullptr), nullptr); });
    EXPECT_FAILS("val1->vt != NULL", vek_value_equal(&empty, number), 0);
    EXPECT_FAILS("val2->vt != NULL", vek_value_equal(number, &empty), 0);
}
