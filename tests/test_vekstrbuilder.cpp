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

TEST(StrBuilder, AppendsOrRemembersTheFailure)
{
#define EDIT(edit, ...) [](VekStrBuilder *b) { return vek_str_builder_##edit(b, __VA_ARGS__); }
    const std::pair<int (*)(VekStrBuilder *), const char *> rows[] = {
        // each with what it makes of the text "@": either "mid" or a text that fills its block
        {EDIT(append, ""), "@"},
        {EDIT(append, "post"), "@post"},
        {EDIT(append, b->str->text), "@@"},
        {EDIT(append_n, "post", 2), "@po"},
        {EDIT(append_n, "post", SIZE_MAX), "@post"},
        {EDIT(append_n, b->str->text + 1, 2), "@id"},
        {EDIT(append_n, nullptr, 0), "@"},
        {EDIT(append_char, '>'), "@>"},
        {EDIT(append_char, '\0'), "@"},
        {EDIT(append_printf, "%d", 7), "@7"},
        {EDIT(append_printf, "%s", ""), "@"},
        {EDIT(append_printf, "%c.", '\0'), "@"},
        {EDIT(append_printf, "<%s%s>", b->str->text, b->str->text), "@<@@>"},
    };
    for (const std::string &start : {std::string("mid"), "mid" + std::string(56, '.')}) {
        fail_each_allocation([&](Allocator &allocator) {
            for (const auto &[edit, result] : rows) {
                VekStrBuilder builder = {};
                const bool done = vek_str_builder_append(&builder, start.c_str()) &&
                                  edit(&builder) && vek_str_builder_append_char(&builder, '!');
                EXPECT_TRUE(allocator.just_failed() || done);
                EXPECT_EQ(vek_str_builder_failed(&builder), !done);
                EXPECT_EQ(vek_str_builder_append(&builder, ""), done);
                const std::string text = vek_str_builder_get_text(&builder);
                const std::string whole = masked(result, "@", start.c_str()) + "!";
                EXPECT_EQ(text, done ? whole : whole.substr(0, text.size()));
                EXPECT_EQ(vek_str_builder_get_length(&builder), text.size());
                EXPECT_EQ(handed_over(&builder, result[1] == '\0'), done ? whole : "(null)");
                static_cast<void>(
                    allocator.just_failed()); // a block that cannot be shrunk is no failure
            }
            for (const bool as_vekstr : {false, true}) {
                VekStrBuilder empty = {};
                const std::string text = handed_over(&empty, as_vekstr);
                EXPECT_EQ(text, allocator.just_failed() ? "(null)" : "");
            }
        });
    }
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
    });
}
