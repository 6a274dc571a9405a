/* SPDX-License-Identifier: MIT */
#include <veklib/vekdiag.h>
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekstr.h>
#include <veklib/vekstrdict.h>

#include "support/support.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include <malloc.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace vektest;

namespace {

/** Prints what it was given and leaves the process with exit code 42. */
void reporting_handler(const char *file, int line, const char *message)
{
    printf("[%s|%d|%s]", file != nullptr ? file : "null", line, message);
    exit(42);
}

} // namespace

TEST(Warnings, AreFatalAsTheEnvironmentSays)
{
    const struct {
        const char *environment;
        int answer;
        int answer_once_unset; ///< the environment is read once, unless its number is negative
    } rows[] = {
        {nullptr, 0, 0}, {"0", 0, 0},  {"no", 0, 0},          {"1", 1, 1},
        {" +7x", 1, 1},  {"-3", 1, 0}, {"99999999999", 1, 1}, {"4294967296", 1, 1},
    };
    for (const auto &row : rows) {
        in_clean_child([&] {
            if (row.environment != nullptr) { setenv("VEK_FATAL_WARNINGS", row.environment, 1); }
            EXPECT_EQ(vek_get_warnings_fatal(), row.answer) << row.environment;
            unsetenv("VEK_FATAL_WARNINGS");
            EXPECT_EQ(vek_get_warnings_fatal(), row.answer_once_unset) << row.environment;
            vek_set_warnings_fatal(0);
            setenv("VEK_FATAL_WARNINGS", "1", 1);
            EXPECT_EQ(vek_get_warnings_fatal(), 0);
            vek_set_warnings_fatal(-1);
            EXPECT_EQ(vek_get_warnings_fatal(), 1);
        });
    }
}

TEST(Warnings, AreThreeWritesOfAnyLength)
{
    const std::string text(5000, 'x');
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
    in_clean_child([&] {
        vek_set_warnings_fatal(0);
        dup2(ends[0], STDERR_FILENO);
        _vek_warning("dir/file.c", 7, "%s", text.c_str());
    });
    close(ends[0]);
    for (const std::string &expected : {std::string("dir/file.c:7: "), text, std::string("\n")}) {
        std::string datagram(10000, '\0');
        const ssize_t length = recv(ends[1], datagram.data(), datagram.size(), MSG_DONTWAIT);
        datagram.resize(length > 0 ? static_cast<size_t>(length) : 0);
        EXPECT_EQ(datagram, expected);
    }
    close(ends[1]);
}

TEST(Fatal, ReachesTheHandler)
{
    const struct {
        std::function<void()> report;
        std::string expected;
    } rows[] = {
        {[] { vek_abort(); }, "[null|0|[no info]]"},
        {[] { _vek_error("f.c", 3, "%0300d", 0); }, "[f.c|3|" + std::string(254, '0') + "]"},
        {[] {
             setenv("VEK_FATAL_WARNINGS", "7", 1);
             vek_warn_failed_assertion("f.c", 4, "function", "x > 0");
         },
         "[f.c|4|function: assertion \"x > 0\" failed\n]"},
    };
    for (const auto &row : rows) {
        const auto ended = in_child([&] {
            vek_set_abort_handler(reporting_handler);
            row.report();
        });
        EXPECT_EQ(ended.exit_code, 42);
        EXPECT_EQ(ended.out, row.expected);
        EXPECT_EQ(ended.err, "");
    }
}

TEST(Fatal, NeverReturns)
{
    for (const auto &report : std::initializer_list<void (*)()>{
             [] { vek_abort(); }, [] { VEK_FATAL_ERROR("gone"); },
             [] { vek_set_warnings_fatal(1), VEK_WARNING("gone"); }}) {
        const auto ended = in_child([&] {
            vek_set_abort_handler([](const char *, int, const char *) {});
            report();
        });
        EXPECT_EQ(ended.signal, SIGABRT);
        EXPECT_FALSE(contains(ended.err, "gone"));
    }
}

TEST(Fatal, DefaultHandlerPrintsAndAborts)
{
    const auto ended = in_child([] {
        vek_set_abort_handler(reporting_handler);
        vek_set_abort_handler(nullptr);
        setvbuf(stderr, nullptr, _IOFBF, 4096);
        _vek_error("f.c", 3, "%s", "broken");
    });
    EXPECT_EQ(ended.signal, SIGABRT);
    EXPECT_EQ(ended.err.rfind("\n----- ERROR -----\nf.c:3: broken\n", 0), 0u) << ended.err;
    EXPECT_TRUE(contains(ended.err, "TestBody")) << "no back-trace: " << ended.err;
    const auto unnamed = in_child([] { vek_abort(); });
    EXPECT_EQ(unnamed.err.rfind("\n----- ERROR -----\n[no info]\n", 0), 0u) << unnamed.err;
    const auto silent = in_child([] {
        stderr = nullptr;
        VEK_WARNING("lost");
        vek_abort();
    });
    EXPECT_EQ(silent.signal, SIGABRT);
}

/* The report shows the functions that the test called and those that the library called in turn. */
TEST(Fatal, ShowsTheCallsThatLedThere)
{
    static VekStr *no_string;
    const struct {
        const char *function;
        void (*call)();
    } rows[] = {
        {"vek_str_append_c_str", [] { vek_str_append_c_str(&no_string, "text"); }},
        {"vek_dict_print",
         [] {
             VekDict *const dict = vek_str_dict_create(1);
             vek_str_dict_put_int(dict, "key", 1);
             *vek_str_dict_get_value(dict, "key") = {};
             vek_dict_print(dict);
         }},
        {"vek_hash_lookup",
         [] {
             const auto hash = [](const void *) { return VEK_WARNING("hash"), uint32_t{0}; };
             vek_hash_lookup(vek_hash_new_full(hash, vek_hash_int_equal_func, nullptr, nullptr),
                             nullptr);
         }},
    };
    for (const auto &row : rows) {
        const auto ended = in_child([&] {
            vek_set_warnings_fatal(1);
            row.call();
        });
        EXPECT_TRUE(contains(ended.err, std::string("(") + row.function + "+")) << ended.err;
    }
}

/* A chain of frames that the back-trace names: descend(n) calls descend(n - 1). The call goes
 * through a pointer, so that no compiler unrolls it. */
extern "C" int descend(int depth);
int (*volatile descend_further)(int) = descend;

extern "C" __attribute__((noinline)) int descend(int depth)
{
    if (depth == 0) {
        vek_dump_backtrace(STDOUT_FILENO);
    } else {
        descend_further(depth - 1);
    }
    return getpid(); // prevents a tail call
}

extern "C" void *dump_at_once(void *)
{
    vek_dump_backtrace(STDOUT_FILENO);
    return nullptr;
}

TEST(Backtrace, LeavesOutTheCallerAndTheOutermostFrames)
{
    const struct {
        const char *size;
        size_t frames;
    } rows[] = {{nullptr, 100}, {"0", 100}, {"abc", 100}, {"101", 100},
                {"-5", 100},    {"5", 5},   {"1", 1},     {"100", 100}};
    for (const auto &row : rows) {
        const auto ended = in_clean_child([&] {
            if (row.size != nullptr) { setenv("VEK_BACKTRACE_SIZE", row.size, 1); }
            descend(150);
            setenv("VEK_BACKTRACE_SIZE", "3", 1); // too late
            descend(150);
        });
        const auto frames = lines_of(ended.out);
        EXPECT_EQ(frames.size(), 2 * row.frames);
        for (const auto &frame : frames) { EXPECT_TRUE(contains(frame, "descend")) << frame; }
    }
    // On a short stack, the innermost of the 11 frames of descend(), the caller, is left out.
    const auto frames = lines_of(in_clean_child([] { descend(10); }).out);
    const auto is_named = [](const std::string &line) { return contains(line, "descend"); };
    EXPECT_EQ(std::ranges::count_if(frames, is_named), 10);
    EXPECT_FALSE(contains(frames.back(), "_start"));
    const auto started = in_clean_child([] { // with less than the frames that are left out
        pthread_t thread;
        pthread_create(&thread, nullptr, dump_at_once, nullptr);
        pthread_join(thread, nullptr);
    });
    EXPECT_FALSE(contains(started.out, "dump_at_once")) << started.out;
}

CHILD_TEST(Diagnostics, AllocateNothing)
{
    const auto before = mallinfo2().uordblks;
    vek_warn_failed_assertion("f.c", 1, "f", "c");
    vek_dump_backtrace(STDERR_FILENO);
    EXPECT_EQ(mallinfo2().uordblks, before);
}
