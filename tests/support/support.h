/* SPDX-License-Identifier: MIT */
/* What the tests of all families share: capture of the output streams, one process a case, and an
 * allocator that counts, poisons and fails on request. */
#ifndef VEKLIB_TESTS_SUPPORT_H
#define VEKLIB_TESTS_SUPPORT_H

#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace vektest {

/** What `body` writes to a stream's descriptor (1 or 2). */
std::string captured(int fd, const std::function<void()> &body);

/** How a child process ended. */
struct Ended {
    std::string out;
    std::string err;
    int exit_code; ///< -1 when a signal ended it
    int signal;    ///< 0 when it exited
};

/** Runs `body` in a forked process whose library is as it was loaded, as long as the parent does
 * not use it. The child exits with 1 when an expectation in `body` failed. */
Ended in_child(const std::function<void()> &body);

/** in_child() that expects a clean exit. */
Ended in_clean_child(const std::function<void()> &body);

std::vector<std::string> lines_of(const std::string &text);

/** `text` with each `prefix` that a run of `characters` follows replaced, run included. */
std::string masked(const std::string &text, const std::string &prefix, const char *characters,
                   const std::string &replacement);

std::string content_of(const std::string &path);

/** A failed check: function and condition. */
using Check = std::pair<std::string, std::string>;

/** Expects `body` to write exactly these failed-check warnings, in this order, of a source of the library
 *  (null: of any). */
void expect_warnings(const char *source, const std::vector<Check> &checks, const std::function<void()> &body);

/** Expects the call to give `value`, with the warning that one check of `function` failed. */
#define EXPECT_FAILS(function, condition, call, value)                                                                 \
    vektest::expect_warnings(nullptr, {{function, condition}}, [&] { EXPECT_EQ(call, value); })

/** EXPECT_FAILS() for a call without a result. */
#define EXPECT_WARNS(function, condition, call)                                                                        \
    vektest::expect_warnings(nullptr, {{function, condition}}, [&] { call; })

/** What every fopen() of the process goes through, the library's included; null: straight on. */
extern std::function<FILE *(const char *path, const char *mode)> open_hook;

/** Called in the middle of every fread() of the process, the library's included; null: not at all. */
extern std::function<void(FILE *file)> read_hook;

/** The platform's own fopen(). */
FILE *plain_open(const char *path, const char *mode);

/** The allocator table under test conditions, installed for the life of the object (one at a time).
 *  Blocks are poisoned when handed out and when released; a release of anything else than a live
 *  block is a failure, and so is a block that is live at the end. */
class Allocator {
public:
    Allocator();
    ~Allocator();
    Allocator(const Allocator &) = delete;
    Allocator &operator=(const Allocator &) = delete;

    /** Lets the n-th allocation from now fail (0: none); with `onward` all later ones too. */
    void fail_nth(unsigned n, bool onward = false);
    bool failed() const;          ///< an allocation has failed since fail_nth()
    unsigned allocations() const; ///< allocations asked for since fail_nth()
    size_t live() const;          ///< blocks that are not released
};

/** Runs `scenario` with the first allocation failing, then the second, and so on until a run meets
 *  no failure; each once alone and once with all later ones failing too. A scenario checks what is
 *  documented for failure and success and releases everything. */
void fail_each_allocation(const std::function<void(Allocator &)> &scenario);

} // namespace vektest

#endif
