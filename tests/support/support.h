/* SPDX-License-Identifier: MIT */
/* What the tests of all families share: capture of the output streams, a process for each case, and
 * an allocator that counts, poisons and fails on request. */
#ifndef VEKLIB_TESTS_SUPPORT_H
#define VEKLIB_TESTS_SUPPORT_H

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace vektest {

/** Returns what `body` writes to a stream's descriptor (1 or 2). */
std::string captured(int fd, const std::function<void()> &body);

/** How a child process ended. */
struct Ended {
    std::string out;
    std::string err;
    int exit_code; ///< -1 when a signal ended it
    int signal;    ///< 0 when it exited
};

/** Runs `body` in a forked process. As long as the parent does not use the library, the child's
 *  library is as it was loaded. The child exits with 1 if an expectation in `body` failed. */
Ended in_child(const std::function<void()> &body);

/** in_child() that expects a clean exit. */
Ended in_clean_child(const std::function<void()> &body);

/** A test whose body runs in a process of its own, with in_clean_child(). */
#define CHILD_TEST(suite, name)                                                                    \
    static void suite##_##name();                                                                  \
    TEST(suite, name) { vektest::in_clean_child(suite##_##name); }                                 \
    static void suite##_##name()

std::vector<std::string> lines_of(const std::string &text);

/** Returns `text` with everything replaced that matches `pattern`, a regular expression. */
std::string masked(const std::string &text, const char *pattern, const char *replacement);

/** Returns a diagnostic with "L" in place of its line numbers. */
std::string without_lines(const std::string &text);

std::string content_of(const std::string &path);

inline bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

/** A number as the pointer that generic containers hold. */
inline void *word(intptr_t number) { return reinterpret_cast<void *>(number); }

/** A format that the compiler must not recognise as null. */
inline const char *const null_format = nullptr;

/** Calls `function` with a format and an argument list, and returns its result. */
template <auto function>
auto with_list(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const auto result = function(format, args);
    va_end(args);
    return result;
}

/** A failed check: function and condition. */
using Check = std::pair<std::string, std::string>;

/** Expects `body` to write exactly these failed-check warnings, in this order. */
void expect_warnings(const std::vector<Check> &checks, const std::function<void()> &body);

/** Returns a check for each function named in `functions` (a list, or a call), with the condition
 *  that all of them check. */
std::vector<Check> same_check(const std::string &functions, const std::string &condition);

/** Calls a function with `first`, then null and zeros as arguments; expects null or 0. */
template <typename Result, typename First, typename... Rest>
void call_for_nothing(std::type_identity_t<First> first, Result (*function)(First, Rest...))
{
    if constexpr (std::is_void_v<Result>) {
        function(first, Rest{}...);
    } else {
        EXPECT_EQ(function(first, Rest{}...), Result{});
    }
}

template <typename First, typename... Functions>
void expect_refusals(First first, const std::vector<Check> &checks, Functions... functions)
{
    expect_warnings(checks, [&] { (call_for_nothing(first, functions), ...); });
}

/** Expects each function, called with `first` and otherwise null and zeros, to return null or 0 and
 *  to warn that this check failed. */
#define EXPECT_REFUSE(first, condition, ...)                                                       \
    vektest::expect_refusals(first, vektest::same_check(#__VA_ARGS__, condition), __VA_ARGS__)

/** Expects the call to return `value` and to warn that this check failed. */
#define EXPECT_FAILS(condition, call, value)                                                       \
    vektest::expect_warnings(vektest::same_check(#call, condition), [&] { EXPECT_EQ(call, value); })

/** Called in place of every fopen() of the process, the library's included; null: the platform's
 *  fopen() is called. */
extern std::function<FILE *(const char *path, const char *mode)> open_hook;

/** The platform's own fopen(). */
FILE *plain_open(const char *path, const char *mode);

/** What fail_nth() lets fail unless it names a file function. */
inline constexpr const char memory[] = "memory";
inline constexpr const char everything[] = "everything";

/** The allocator table under test conditions, installed for the life of the object (one at a time).
 *  Blocks are poisoned when handed out and when released. The test fails if anything but a live
 *  block is released, or if a block is still live at the end. */
class Allocator {
public:
    Allocator();
    ~Allocator();
    Allocator(const Allocator &) = delete;
    Allocator &operator=(const Allocator &) = delete;

    /** Lets the n-th request from now fail (0: none), with `onward` all later ones, too. Requests
     *  are allocations, or the library's calls of the C library's function `request`; some builds
     *  call another function in its place, and then none fails. */
    static void fail_nth(unsigned n, bool onward = false, const char *request = memory);
    static bool failed();          ///< whether a request has failed since fail_nth()
    static unsigned allocations(); ///< number of requests since fail_nth()
    static size_t live();          ///< number of blocks that are not released
    /** Returns whether a request has failed since the last call. Call it in a statement of its
     *  own: in one statement with the operation, either may be evaluated first. */
    static bool just_failed();
};

/** Runs `body` with the first request failing, then with the second, and so on until a run meets no
 *  failure; for each, once with this request alone failing and once with all later ones failing,
 *  too. After each operation `body` asks whether a request failed in it, and expects what is
 *  documented for that case. At its end it releases everything. */
void fail_each(const char *request, const std::function<void()> &body);

/** fail_each() for allocations, with an allocator. */
void fail_each_allocation(const std::function<void(Allocator &)> &scenario);

} // namespace vektest

#endif
