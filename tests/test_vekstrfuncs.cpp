/* SPDX-License-Identifier: MIT */
#include <veklib/vekmemory.h>
#include <veklib/vekstrfuncs.h>

#include "support/support.h"

#include <cstring>
#include <cwchar>

using namespace vektest;

namespace {

/** Compares a new string with the expected one (null: none) and releases it. */
void expect_text(char *text, const char *expected)
{
    EXPECT_STREQ(text, expected);
    vek_free(text);
}

/** The text of a list of arguments, which is left as it was. */
char *format(const char *text, ...)
{
    va_list args;
    va_start(args, text);
    char *const first = vek_strdup_vprintf(text, args);
    expect_text(vek_strdup_vprintf(text, args), first);
    va_end(args);
    return first;
}

} // namespace

TEST(StrFuncs, Copy)
{
    Allocator allocator;
    const std::string brief(255, 'b');
    const std::string longer(256, 'l');
    expect_text(vek_strdup("text"), "text");
    expect_text(vek_strdup(""), "");
    expect_text(vek_strndup("abcdef", 3), "abc");
    expect_text(vek_strndup("ab", 10), "ab");
    expect_text(vek_strndup("", 1), "");
    expect_text(vek_strdup_printf("%d-%s", 7, "x"), "7-x");
    for (const std::string &text : {brief, longer}) {
        expect_text(vek_strdup_printf("%s", text.c_str()), text.c_str());
        expect_text(format("%s", text.c_str()), text.c_str());
    }
    allocator.fail_nth(0);
    expect_text(vek_strndup("abc", 0), nullptr);
    expect_text(vek_strdup_printf("%s", ""), nullptr);
    EXPECT_EQ(allocator.allocations(), 0u);

    const char bytes[] = {1, 0, 2};
    void *const copy = vek_memdup(bytes, sizeof bytes);
    EXPECT_EQ(memcmp(copy, bytes, sizeof bytes), 0);
    vek_free(copy);
}

TEST(StrFuncs, BoundedCopy)
{
    const struct {
        size_t size;
        const char *text;
    } rows[] = {{0, "######"}, {1, ""}, {4, "hel"}, {5, "hell"}, {6, "hello"}, {7, "hello"}};
    for (const auto &row : rows) {
        char buffer[8] = "######";
        EXPECT_EQ(vek_strlcpy(buffer, "hello", row.size), 5u);
        EXPECT_STREQ(buffer, row.text);
    }
}

TEST(StrFuncs, ChecksNameTheFault)
{
    expect_warnings({}, [] {
        EXPECT_EQ(vek_memdup(nullptr, 0), nullptr);
        EXPECT_EQ(vek_strndup(nullptr, 0), nullptr);
        EXPECT_EQ(vek_strlcpy(nullptr, "hello", 0), 5u);
        EXPECT_EQ(vek_strdup_printf("%lc", wint_t{0x7fffffff}), nullptr); // cannot be converted
    });
    EXPECT_FAILS("byte_size == 0 || mem != NULL", vek_memdup(nullptr, 4), nullptr);
    EXPECT_REFUSE(nullptr, "s != NULL", vek_strdup);
    EXPECT_FAILS("n == 0 || s != NULL", vek_strndup(nullptr, 1), nullptr);
    EXPECT_FAILS("format != NULL", vek_strdup_printf(null_format), nullptr);
    const Check no_format = {"vek_strdup_vprintf_with_return", "format != NULL"};
    expect_warnings({no_format, no_format}, [] { EXPECT_EQ(format(nullptr), nullptr); });
    EXPECT_FAILS("src != NULL", vek_strlcpy(nullptr, nullptr, 4), 0u);
    EXPECT_FAILS("dest != NULL || destlen == 0", vek_strlcpy(nullptr, "x", 4), 0u);
}

TEST(StrFuncs, GiveNullWithoutMemory)
{
    fail_each_allocation([](Allocator &allocator) {
        for (const auto &make : std::initializer_list<void *(*)()>{
                 [] { return vek_memdup("x", 1); },
                 []() -> void * { return vek_strdup("x"); },
                 []() -> void * { return vek_strndup("x", 1); },
                 []() -> void * { return vek_strdup_printf("x"); },
                 []() -> void * { return vek_strdup_printf("%300d", 1); },
             }) {
            void *const copy = make();
            EXPECT_EQ(copy == nullptr, allocator.just_failed());
            vek_free(copy);
        }
    });
}
