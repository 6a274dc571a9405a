/* SPDX-License-Identifier: MIT */
#include <veklib/vekmemory.h>
#include <veklib/vekstrfuncs.h>

#include "support/support.h"

#include <cstring>
#include <cwchar>

using namespace vektest;

namespace {

/** Expects this text from an argument list, and that the list is not changed. */
void expect_text(const char *expected, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    for (int round = 0; round < 2; ++round) {
        char *const text = vek_strdup_vprintf(format, args);
        EXPECT_STREQ(text, expected);
        vek_free(text);
    }
    va_end(args);
}

} // namespace

/* The fuzz target `edits` compares copies with a model. */

TEST(StrFuncs, CopyTextsOfEveryLength)
{
    fail_each_allocation([](Allocator &allocator) {
        char *const text = with_list<vek_strdup_vprintf>("%s", "x");
        EXPECT_EQ(text == nullptr, allocator.just_failed());
        vek_free(text);
    });
    expect_text(std::string(255, '0').c_str(), "%0255d", 0);
    expect_text(std::string(256, '0').c_str(), "%0256d", 0);
    Allocator allocator; // an empty copy allocates nothing
    EXPECT_EQ(vek_strndup("abc", 0), nullptr);
    EXPECT_EQ(vek_strdup_printf("%s", ""), nullptr);
    EXPECT_EQ(allocator.allocations(), 0u);
}

TEST(StrFuncs, ATextThatChangesWhileItIsFormattedGivesNull)
{
    static std::string text(300, 'x');
    VekMemoryVtable table = {};
    table.malloc = [](size_t size, void *) { return text[0] = '\0', malloc(size); };
    table.free = [](void *block, void *) { free(block); };
    vek_set_memory_vtable(&table);
    EXPECT_EQ(vek_strdup_printf("%s", text.c_str()), nullptr);
    vek_set_memory_vtable(nullptr);
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
    expect_warnings({no_format, no_format}, [] { expect_text(nullptr, nullptr); });
    EXPECT_FAILS("src != NULL", vek_strlcpy(nullptr, nullptr, 4), 0u);
    EXPECT_FAILS("dest != NULL || destlen == 0", vek_strlcpy(nullptr, "x", 4), 0u);
}
