/* SPDX-License-Identifier: MIT */
#include <veklib/vekstrbuilder.h>

#include "support/support.h"

#include <climits>
#include <cwchar>

using namespace vektest;

namespace {

/** What a builder hands over, in either form; "(null)" for nothing. Expects it to be empty. */
std::string handed_over(VekStrBuilder *builder, bool as_vekstr)
{
    VekStr *const vekstr = as_vekstr ? vek_str_builder_steal_vekstr(builder) : nullptr;
    char *const string = as_vekstr ? nullptr : vek_str_builder_steal_string(builder);
    if (vekstr != nullptr) { EXPECT_EQ(_vek_str_get_ref_count(vekstr), 1u); }
    const char *const text = as_vekstr ? vek_str_to_c_str(vekstr) : string;
    const std::string result = text != nullptr ? text : "(null)";
    vek_str_unref(vekstr);
    vek_free(string);
    EXPECT_EQ(vek_str_builder_failed(builder), 0);
    EXPECT_STREQ(vek_str_builder_get_text(builder), "");
    return result;
}

} // namespace

/* The fuzz target `edits` compares what appends make, and how failures are remembered, with a
 * model. */

TEST(StrBuilder, FailsWithoutMemoryForItsFirstText)
{
    const std::pair<int (*)(VekStrBuilder *), std::string> rows[] = {
        {[](VekStrBuilder *b) { return vek_str_builder_append_n(b, nullptr, 0); }, ""},
        {[](VekStrBuilder *b) { return vek_str_builder_append_printf(b, "%0300d", 0); },
         std::string(300, '0')}};
    fail_each_allocation([&](Allocator &allocator) {
        for (const auto &[append, text] : rows) {
            VekStrBuilder builder = {};
            const bool done = append(&builder);
            const bool was_refused = allocator.just_failed();
            EXPECT_TRUE(done || was_refused);
            const std::string result = handed_over(&builder, false);
            EXPECT_EQ(result, done ? text : "(null)");
            allocator.just_failed(); // the block need not be shrunk
        }
    });
}

TEST(StrBuilder, DoublesItsBlock)
{
    Allocator allocator;
    VekStrBuilder builder = {};
    for (const bool as_vekstr : {false, true}) { // the same builder again
        allocator.fail_nth(0);
        for (int i = 0; i < 10000; ++i) { vek_str_builder_append_char(&builder, 'x'); }
        EXPECT_LE(allocator.allocations(), 9u);
        EXPECT_EQ(handed_over(&builder, as_vekstr), std::string(10000, 'x'));
    }
    // Without memory for twice the block, one that is just large enough will do.
    vek_str_builder_append(&builder, std::string(60, 'x').c_str());
    for (const bool onward : {false, true}) {
        allocator.fail_nth(1, onward);
        EXPECT_EQ(vek_str_builder_append_char(&builder, 'x'), !onward);
        EXPECT_EQ(vek_str_builder_get_length(&builder), 61u);
    }
    allocator.fail_nth(0);
    vek_str_builder_release(&builder);
    vek_str_builder_append(&builder, "abandoned");
    vek_str_builder_release(&builder);
    EXPECT_EQ(handed_over(&builder, true), "");
}

TEST(StrBuilder, FaultsAreFailures)
{
    EXPECT_REFUSE(nullptr, "builder != NULL", vek_str_builder_append, vek_str_builder_append_n,
                  vek_str_builder_append_char, vek_str_builder_append_vprintf,
                  vek_str_builder_get_length, vek_str_builder_failed, vek_str_builder_release,
                  vek_str_builder_steal_string, vek_str_builder_steal_vekstr);
    expect_warnings({{"vek_str_builder_get_text", "builder != NULL"}},
                    [] { EXPECT_STREQ(vek_str_builder_get_text(nullptr), ""); });

    Allocator allocator;
    VekStrBuilder builder = {};
    EXPECT_REFUSE(&builder, "text != NULL", vek_str_builder_append);
    EXPECT_EQ(handed_over(&builder, false), "(null)");
    EXPECT_FAILS("n == 0 || text != NULL", vek_str_builder_append_n(&builder, nullptr, 1), 0);
    EXPECT_EQ(handed_over(&builder, true), "(null)");
    EXPECT_REFUSE(&builder, "format != NULL", vek_str_builder_append_vprintf);
    EXPECT_EQ(handed_over(&builder, false), "(null)");
    expect_warnings({}, [&] {
        for (const char *const kept : {"", "kept"}) {
            if (*kept != '\0') { vek_str_builder_append(&builder, kept); }
            EXPECT_EQ(vek_str_builder_append_printf(&builder, "x%lc", wint_t{0x7fffffff}), 0);
            EXPECT_EQ(vek_str_builder_append_printf(&builder, "x"), 0); // as all later appends
            EXPECT_STREQ(vek_str_builder_get_text(&builder), kept);
            EXPECT_EQ(handed_over(&builder, true), "(null)");
        }
        VekStrBuilder full = {nullptr, INT_MAX - 1, INT_MAX, 0}; // claims 2 GB that do not exist
        EXPECT_EQ(vek_str_builder_append(&full, "xx"), 0);
        EXPECT_EQ(vek_str_builder_failed(&full), 1);
        full = {vek_str_create("x"), INT_MAX - 1, INT_MAX, 0};
        allocator.fail_nth(1); // the largest block of all; no second attempt
        EXPECT_EQ(vek_str_builder_append(&full, "x"), 0);
        EXPECT_EQ(allocator.allocations(), 1u);
        vek_str_unref(full.str);
    });
}
