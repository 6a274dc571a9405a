/* SPDX-License-Identifier: MIT */
#include <veklib/vekmemory.h>
#include <veklib/vekname.h>
#include <veklib/vekstr.h>

#include "support/support.h"

#include <climits>
#include <cstring>
#include <cwchar>
#include <tuple>

using namespace vektest;

namespace {

constexpr wint_t unconvertible = 0x7fffffff; // for "%lc"

/** Compares a new string with the expected text (null: no string) and releases it. */
void expect_text(VekStr *vekstr, const char *expected)
{
    EXPECT_STREQ(vek_str_to_c_str(vekstr), expected);
    if (vekstr != nullptr) { EXPECT_EQ(_vek_str_get_ref_count(vekstr), 1u); }
    EXPECT_EQ(vek_str_unref(vekstr), nullptr);
}

} // namespace

TEST(Str, Create)
{
    Allocator allocator;
    expect_text(vek_str_create("text"), "text");
    expect_text(vek_str_create(""), "");
    expect_text(vek_str_ncreate("abc", 2), "ab");
    expect_text(vek_str_ncreate(nullptr, 0), "");
    expect_text(vek_str_create_printf("%d-%s", 7, "x"), "7-x");
    expect_text(vek_str_create_printf("%s", ""), "");
    expect_text(with_list<vek_str_create_vprintf>("%0300d", 0), std::string(300, '0').c_str());
    VekStr *const padded = vek_str_ncreate("abc", 5);
    EXPECT_EQ(memcmp(padded->text, "abc\0\0", 6), 0); // as much room as requested
    vek_str_unref(padded);
}

TEST(Str, ReferencesAndPersistence)
{
    Allocator allocator;
    VekStr *first = vek_str_create("a");
    VekStr *second = vek_str_ref(first);
    EXPECT_EQ(second, first);
    vek_str_force_destroy(first); // another holder: drops only a reference
    EXPECT_EQ(_vek_str_get_ref_count(second), 1u);
    EXPECT_EQ(vek_str_assign(&second, &second), second);
    EXPECT_EQ(_vek_str_get_ref_count(second), 1u);

    first = nullptr;
    EXPECT_EQ(vek_str_assign(&first, &second), second);
    vek_str_make_persistent(first);
    EXPECT_EQ(vek_str_ref(first), first);
    vek_str_unref(first);
    EXPECT_EQ(_vek_str_get_ref_count(first), 0u);
    EXPECT_EQ(vek_str_append_c_str(&second, "b"), 1); // the persistent string is unchanged
    expect_text(second, "ab");
    EXPECT_STREQ(vek_str_to_c_str(first), "a");
    vek_str_force_destroy(first);
    vek_str_force_destroy(nullptr);
}

TEST(Str, Compare)
{
    Allocator allocator;
    VekStr *const a = vek_str_create("hello");
    VekStr *const b = vek_str_create("help");
    EXPECT_LT(vek_strcmp(a, b), 0);
    EXPECT_EQ(vek_strncmp(a, b, 3), 0);
    EXPECT_EQ(vek_strcmp(nullptr, a), -1);
    EXPECT_EQ(vek_strncmp(nullptr, nullptr, 9), 0);
    EXPECT_EQ(vek_strncmp(nullptr, a, 0), -1);
    EXPECT_EQ(vek_strncmp(a, nullptr, 0), 1);
    EXPECT_EQ(vek_str_eq(nullptr, nullptr), 1);
    EXPECT_EQ(vek_str_eq(a, nullptr), 0);
    EXPECT_EQ(vek_str_eq_c_str(a, "hello"), 1);
    EXPECT_EQ(vek_str_neq_c_str(a, "x", 1), 0);
    EXPECT_EQ(vek_str_neq_c_str(a, "help", 3), 1);
    EXPECT_EQ(vek_str_neq_c_str(a, "help", 4), 0);
    EXPECT_EQ(vek_strlen(a), 5u);
    vek_str_unref(a);
    vek_str_unref(b);
}

TEST(Str, EditInPlace)
{
    Allocator allocator;
    const std::tuple<void (*)(VekStr *), const char *, const char *> rows[] = {
        {vek_str_toupper, "aBc1\xe4\xff", "ABC1\xe4\xff"},
        {vek_str_tolower, "aBC1\xc4", "abc1\xc4"},
        {vek_str_capitalize, "hello big\tworld  x", "Hello Big\tWorld  X"},
        {vek_str_capitalize, "", ""},
        {[](VekStr *s) { vek_str_char_swap(s, 'l', 'L'); }, "hello", "heLLo"},
        {[](VekStr *s) { vek_str_char_swap(s, '\0', 'x'); }, "hello", "hello"},
        {[](VekStr *s) { vek_str_char_swap(s, '.', '\0'); }, "a.b.c", "a\0b\0c"},
    };
    for (const auto &[edit, before, after] : rows) {
        VekStr *const vekstr = vek_str_create(before);
        edit(vekstr);
        const size_t size = strlen(before) + 1;
        EXPECT_EQ(std::string(vekstr->text, size), std::string(after, size));
        vek_str_unref(vekstr);
    }
    vek_str_char_swap(nullptr, 'a', 'b');
}

TEST(Str, ReplacingEditsLeaveOtherHoldersAlone)
{
    const std::pair<int (*)(VekStr **), const char *> edits[] = {
        // each with what it makes of "mid"
        {[](VekStr **s) { return vek_str_prepend_char(s, '<'); }, "<mid"},
        {[](VekStr **s) { return vek_str_prepend_c_str(s, "pre"); }, "premid"},
        {[](VekStr **s) { return vek_str_append_c_str(s, "post"); }, "midpost"},
        {[](VekStr **s) { return vek_str_append_c_str(s, vek_str_to_c_str(*s)); }, "midmid"},
        {[](VekStr **s) { return vek_str_append_vek_str(s, *s); }, "midmid"},
        {[](VekStr **s) { return vek_str_append_char(s, '>'); }, "mid>"},
        {[](VekStr **s) { return vek_str_append_char(s, '\0'); }, "mid"},
        {[](VekStr **s) { return vek_str_append_n(s, "xyz", 2); }, "midxy"},
        {[](VekStr **s) { return vek_str_append_n(s, vek_str_to_c_str(*s) + 1, 9); }, "midid"},
        {[](VekStr **s) { return vek_str_append_n(s, nullptr, 0); }, "mid"},
        {[](VekStr **s) { return vek_str_append_printf(s, "-%s", (*s)->text); }, "mid-mid"},
        {[](VekStr **s) { return vek_str_append_printf(s, "%s", ""); }, "mid"},
    };
    fail_each_allocation([&](Allocator &allocator) {
        for (const auto &[edit, result] : edits) {
            VekStr *variable = vek_str_create_printf("%s", "mid");
            EXPECT_EQ(variable == nullptr, allocator.just_failed());
            if (variable == nullptr) { continue; }
            VekStr *const holder = vek_str_ref(variable);
            const int done = edit(&variable);
            EXPECT_EQ(done, allocator.just_failed() ? 0 : 1);
            EXPECT_STREQ(vek_str_to_c_str(holder), "mid");
            EXPECT_STREQ(vek_str_to_c_str(variable), done ? result : "mid");
            EXPECT_EQ(_vek_str_get_ref_count(holder), done ? 1u : 2u);
            vek_str_unref(holder);
            vek_str_unref(variable);
        }
    });
}

TEST(Str, ChecksNameTheFault)
{
    VekStr *text = vek_str_create("x");
    VekStr *null = nullptr;
    EXPECT_FAILS("len >= 0", vek_str_ncreate("x", -1), nullptr);
    EXPECT_FAILS("len == 0 || cstr != NULL", vek_str_ncreate(nullptr, 1), nullptr);
    expect_warnings({}, [&] {
        EXPECT_EQ(vek_str_create(nullptr), nullptr);
        EXPECT_EQ(vek_str_neq_c_str(text, nullptr, 0), 1);
        EXPECT_EQ(vek_str_append_printf(&text, "%lc", unconvertible), 0);
        EXPECT_STREQ(vek_str_to_c_str(text), "x");
    });
    const Check no_format = {"vek_str_create_vprintf_with_return", "format != NULL"};
    expect_warnings({no_format, no_format}, [] {
        EXPECT_EQ(vek_str_create_printf(null_format), nullptr);
        EXPECT_EQ(with_list<vek_str_create_vprintf>(nullptr), nullptr);
    });
    EXPECT_REFUSE(nullptr, "str != NULL", vek_str_make_persistent);
    EXPECT_REFUSE(nullptr, "s1 != NULL", vek_str_eq_c_str, vek_str_neq_c_str);
    EXPECT_REFUSE(text, "s2 != NULL", vek_str_eq_c_str);
    EXPECT_FAILS("n==0 || s2 != NULL", vek_str_neq_c_str(text, nullptr, 1), 0);
    EXPECT_REFUSE(nullptr, "vekstr", vek_strlen, vek_str_toupper, vek_str_tolower,
                  vek_str_capitalize, _vek_str_get_ref_count);
    EXPECT_REFUSE(nullptr, "vekstr != NULL", vek_str_prepend_char, vek_str_prepend_c_str,
                  vek_str_append_c_str, vek_str_append_char, vek_str_append_n,
                  vek_str_append_vprintf);
    EXPECT_REFUSE(nullptr, "vekstr1 != NULL", vek_str_append_vek_str);
    EXPECT_REFUSE(&text, "c != NULL", vek_str_prepend_c_str, vek_str_append_c_str);
    EXPECT_REFUSE(&text, "vekstr != NULL", vek_str_append_vek_str);
    EXPECT_REFUSE(&text, "format != NULL", vek_str_append_vprintf);
    EXPECT_FAILS("n == 0 || text != NULL", vek_str_append_n(&text, nullptr, 1), 0);
    const Check no_text = {"vek_strlen", "vekstr"};
    expect_warnings({no_text, no_text, no_text, no_text, no_text, no_text, no_text},
                    [&] { // each edit of a null string
                        EXPECT_EQ(vek_str_prepend_char(&null, 'x'), 0);
                        EXPECT_EQ(vek_str_prepend_c_str(&null, "x"), 0);
                        EXPECT_EQ(vek_str_append_c_str(&null, "x"), 0);
                        EXPECT_EQ(vek_str_append_vek_str(&null, text), 0);
                        EXPECT_EQ(vek_str_append_char(&null, 'x'), 0);
                        EXPECT_EQ(vek_str_append_n(&null, "x", 1), 0);
                        EXPECT_EQ(vek_str_append_printf(&null, "x"), 0);
                    });
    EXPECT_EQ(null, nullptr);

    text->count = UINT_MAX - 2;
    EXPECT_EQ(vek_str_ref(text), text); // the last reference that is possible
    EXPECT_FAILS("UINT_MAX > vekstr->count + 1", vek_str_ref(text), nullptr);
    EXPECT_EQ(text->count, UINT_MAX - 1);
    VekStr *holder = vek_str_create("y");
    expect_warnings({{"vek_str_ref", "UINT_MAX > vekstr->count + 1"}},
                    [&] { EXPECT_EQ(vek_str_assign(&holder, &text), nullptr); });
    EXPECT_EQ(holder, nullptr);
    text->count = 1;
    vek_str_unref(text);
}
