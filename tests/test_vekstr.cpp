/* SPDX-License-Identifier: MIT */
#include <veklib/vekmemory.h>
#include <veklib/vekname.h>
#include <veklib/vekstr.h>

#include "support/support.h"

#include <climits>
#include <cstring>
#include <cwchar>

#include <sys/mman.h>
#include <unistd.h>

using namespace vektest;

namespace {

constexpr wint_t unconvertible = 0x7fffffff; // for "%lc"

} // namespace

/* The fuzz target `edits` compares what edits make of texts, and who shares them, with a model. */

TEST(Str, SharedUntilEdited)
{
    Allocator allocator;
    VekStr *name = with_list<vek_str_create_vprintf>("%0300d", 0);
    VekStr *const holder = vek_str_ref(name);
    EXPECT_EQ(vek_str_append_c_str(&name, "+"), 1);
    EXPECT_EQ(vek_str_to_c_str(name), std::string(300, '0') + "+");
    EXPECT_EQ(vek_str_to_c_str(holder), std::string(300, '0'));
    EXPECT_EQ(vek_strcmp(nullptr, name), -1);
    EXPECT_EQ(vek_strcmp(name, nullptr), 1);
    EXPECT_EQ(vek_strncmp(nullptr, name, 0), -1);
    vek_str_unref(name);
    vek_str_unref(holder);

    VekStr *const parts = vek_str_create("a.b.c");
    vek_str_char_swap(parts, '.', '\0');
    EXPECT_EQ(memcmp(parts->text, "a\0b\0c", 6), 0); // those after the new end, too
    vek_str_unref(parts);
}

/* The same 16 MB again and again, until a page of zeros ends the text. */
TEST(Str, ATextOfTwoGigabytesIsTooLong)
{
    if (sizeof(size_t) == 4) { GTEST_SKIP() << "there is no space for the text"; }
    const std::string part(size_t{1} << 24, 'x');
    const size_t size = size_t{INT_MAX} + 1;
    const int file = memfd_create("text", 0);
    ASSERT_EQ(write(file, part.data(), part.size()), static_cast<ssize_t>(part.size()));
    char *const text = static_cast<char *>(
        mmap(nullptr, size + 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    for (size_t at = 0; at < size; at += part.size()) {
        ASSERT_NE(mmap(text + at, part.size(), PROT_READ, MAP_SHARED | MAP_FIXED, file, 0),
                  MAP_FAILED);
    }
    VekStr *vekstr = vek_str_create("x");
    EXPECT_EQ(vek_str_create(text), nullptr);
    EXPECT_EQ(vek_str_append_n(&vekstr, text, INT_MAX), 0);
    EXPECT_STREQ(vek_str_to_c_str(vekstr), "x");
    vek_str_unref(vekstr);
    munmap(text, size + 4096);
    close(file);
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
