/* SPDX-License-Identifier: MIT */
#include <veklib/vekerror.h>
#include <veklib/vekmemory.h>

#include "support/support.h"

#include <climits>
#include <csignal>
#include <cstring>

using namespace vektest;

namespace {

std::string printed(const VekError *err)
{
    return captured(1, [&] { vek_error_print(err, nullptr); });
}

} // namespace

TEST(Error, CarriesTypeMessageAndPlaces)
{
    Allocator allocator;
    VekError *const err = vek_error_create(VEK_ERROR_IO, "open", "io.c", 12, "no %s", "file");
    EXPECT_EQ(vek_error_append_msg(err, "%s %d", ", try", 3), err);
    vek_error_append_msg(err, null_format);
    for (const char *const format : {"", "%s"}) { vek_error_append_msg(err, format, ""); }
    _vek_error_add_callstack_entry(err, nullptr, nullptr, 7);
    EXPECT_EQ(allocator.allocations(), 1u);
    EXPECT_EQ(vek_error_get_type(err), VEK_ERROR_IO);
    EXPECT_STREQ(vek_error_get_msg(err), "no file, try 3");
    EXPECT_STREQ(vek_error_get_callstack_func(err, 0), "open");
    EXPECT_STREQ(vek_error_get_callstack_file(err, 0), "io.c");
    EXPECT_STREQ(vek_error_get_callstack_file(err, 2), "--unknown--");
    EXPECT_EQ(vek_error_get_callstack_line(err, 1), 7);
    EXPECT_EQ(printed(err), "** Error 2: I/O Error\nno file, try 3\n------ Call Stack: ------\n"
                            " 0: open() in io.c:12\n 1: --unknown--() in --unknown--:7\n");
    for (int i = 0; i < 31; ++i) { VEK_ERROR_ADD_CALLSTACK_ENTRY(err); }
    EXPECT_EQ(vek_error_get_callstack_count(err), 30);
    EXPECT_STREQ(vek_error_get_callstack_func(err, 29), __func__);
    EXPECT_STREQ(vek_error_get_callstack_func(err, 30), "--unknown--"); // an index not in use
    EXPECT_STREQ(vek_error_get_callstack_func(nullptr, 0), "--unknown--");
    EXPECT_EQ(vek_error_get_callstack_line(err, INT_MIN), 0);
    vek_error_destroy(err);

    VekError *const silent = vek_error_create(-1, "f", "f.c", 1, null_format);
    EXPECT_EQ(printed(silent), "** Error -1: Unknown Error\n------ Call Stack: ------\n"
                               " 0: f() in f.c:1\n");
    EXPECT_EQ(captured(2, [&] { vek_error_print(silent, stderr); }), printed(silent));
    vek_error_destroy(silent);
    EXPECT_EQ(printed(nullptr), "");
    EXPECT_EQ(vek_error_get_type(nullptr), 0);
    EXPECT_STREQ(vek_error_get_msg(nullptr), "");
    EXPECT_EQ(vek_error_get_callstack_count(nullptr), 0);
    vek_error_destroy(nullptr);
    EXPECT_STREQ(_vek_error_get_string(0), "Success");
    EXPECT_STREQ(_vek_error_get_string(3), "Bad Input Data");
}

TEST(Error, MessageIsCutConsistently)
{
    Allocator allocator;
    for (const size_t first : {size_t{0}, size_t{1}, size_t{4093}, size_t{4094}, size_t{9000}}) {
        for (const size_t second : {size_t{1}, size_t{4094}}) {
            const std::string a(first, 'a');
            const std::string b(second, 'b');
            VekError *const err = VEK_ERROR_CREATE(VEK_ERROR_BAD_INPUT, "%s", a.c_str());
            vek_error_append_msg(err, "%s", b.c_str());
            EXPECT_EQ(vek_error_get_msg(err), (a + b).substr(0, 4094));
            EXPECT_EQ(err->msg_pos, strlen(err->msg));
            vek_error_destroy(err);
        }
    }
    VekError *const err = VEK_ERROR_CREATE(VEK_ERROR_BAD_INPUT, "a%cb", '\0');
    vek_error_append_msg(err, "c");
    vek_error_append_msg(err, "xyz%lc", wint_t{0x7fffffff}); // cannot be converted
    EXPECT_STREQ(vek_error_get_msg(err), "ac");
    vek_error_destroy(err);
}

TEST(Error, WithoutMemoryIsShared)
{
    fail_each_allocation([](Allocator &allocator) {
        VekError *const err = VEK_ERROR_CREATE(VEK_ERROR_IO, "lost");
        if (allocator.failed()) {
            EXPECT_EQ(vek_error_append_msg(err, "more"), err);
            VEK_ERROR_ADD_CALLSTACK_ENTRY(err);
            EXPECT_EQ(printed(err), "** Error 1: Out of Memory Error\nOut of Memory\n");
            EXPECT_EQ(err->msg_pos, strlen(err->msg));
            vek_error_destroy(err);
        }
        vek_error_destroy(err);
    });
}

TEST(Error, NullAndBrokenRecordsAreAssertions)
{
    static VekError err = {};
    err.is_allocated = 1;
    const struct {
        const char *failed;
        void (*call)();
    } rows[] = {
        {"append_msg_va: Assertion `((void *)0) != err'",
         [] { vek_error_append_msg(nullptr, "x"); }},
        {"_vek_error_add_callstack_entry: Assertion `((void *)0) != err'",
         [] { VEK_ERROR_ADD_CALLSTACK_ENTRY(nullptr); }},
        {"append_msg_va: Assertion `err->msg_pos < sizeof(err->msg)'",
         [] { err.msg_pos = sizeof err.msg, vek_error_append_msg(&err, "x"); }},
        {"append_msg_va: Assertion `err->msg_pos == strlen(err->msg)'",
         [] { err.msg_pos = 1, vek_error_append_msg(&err, "x"); }},
    };
    for (const auto &row : rows) {
        const auto ended = in_child(row.call);
        EXPECT_EQ(ended.signal, SIGABRT);
        const std::string failed = std::string("veklib/vekerror.cpp:L: ") + row.failed + " failed.";
        EXPECT_TRUE(contains(without_lines(ended.err), failed)) << ended.err;
    }
    memset(err.msg, 'x', sizeof err.msg - 1); // the application itself has filled it
    err.msg_pos = sizeof err.msg - 1;
    EXPECT_EQ(vek_error_append_msg(&err, "y"), &err);
    EXPECT_EQ(err.msg_pos, strlen(err.msg));
}
