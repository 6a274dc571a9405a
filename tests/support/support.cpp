/* SPDX-License-Identifier: MIT */
#ifndef __clang__ // GCC's warning is wrong about <regex> under the sanitizers
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include "support.h"

#include <veklib/vekmemory.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <unordered_map>

#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

/* Defined in the test program, this fopen() takes the place of the platform's. */
extern "C" FILE *fopen(const char *path, const char *mode)
{
    return vektest::open_hook ? vektest::open_hook(path, mode) : vektest::plain_open(path, mode);
}
#ifndef fopen64
extern "C" FILE *fopen64(const char *path, const char *mode) { return fopen(path, mode); }
#endif

extern "C" size_t fread(void *bytes, size_t size, size_t count, FILE *file)
{
    using Read = size_t(void *, size_t, size_t, FILE *);
    static Read *const plain_read = reinterpret_cast<Read *>(dlsym(RTLD_NEXT, "fread"));
    const size_t before = vektest::read_hook ? count / 2 : count;
    const size_t got = plain_read(bytes, size, before, file);
    if (before == count) { return got; }
    vektest::read_hook(file);
    return got + plain_read(static_cast<char *>(bytes) + got * size, size, count - before, file);
}

/* Defined by the proof that every request is refused, which notes from where the call came. */
extern "C" [[gnu::weak]] void vektest_refused(const char *request, int onward);

namespace vektest {

std::function<void(FILE *file)> read_hook;
std::function<FILE *(const char *path, const char *mode)> open_hook;

FILE *plain_open(const char *path, const char *mode)
{
    using Open = FILE *(const char *, const char *);
    return reinterpret_cast<Open *>(dlsym(RTLD_NEXT, "fopen64"))(path, mode);
}

namespace {

/* The library reads its variables when it is first used; each test sets those that it needs. */
[[gnu::constructor]] void clear_environment()
{
    for (const char *const variable :
         {"VEK_FATAL_WARNINGS", "VEK_BACKTRACE_SIZE", "VEK_MALLOC_TRACE", "VEK_MALLOC_TRACE_FILE",
          "VEK_DEBUG_CONFIG"}) {
        unsetenv(variable);
    }
}

/** Redirects a descriptor to a temporary file until the text is taken. */
class Redirected {
public:
    explicit Redirected(int fd) : fd_(fd), saved_(dup(fd)), file_(tmpfile())
    {
        fflush(nullptr);
        dup2(fileno(file_), fd_);
    }
    std::string take()
    {
        fflush(nullptr);
        dup2(saved_, fd_);
        close(saved_);
        const std::string text = content_of("/proc/self/fd/" + std::to_string(fileno(file_)));
        fclose(file_);
        return text;
    }

private:
    int fd_;
    int saved_;
    FILE *file_;
};

struct AllocatorState {
    std::unordered_map<void *, size_t> live;
    unsigned asked = 0;
    unsigned failing = 0;
    bool onward = false;
    bool failed = false;
    bool just_failed = false;
} state;

void *allocate(size_t size, void *)
{
    ++state.asked;
    if (state.asked == state.failing || (state.failed && state.onward)) {
        state.failed = state.just_failed = true;
        if (vektest_refused) { vektest_refused("memory", state.onward); }
        return nullptr;
    }
    void *const block = malloc(size);
    memset(block, 0xA5, size);
    state.live.emplace(block, size);
    return block;
}

void release(void *block, void *)
{
    const auto found = state.live.find(block);
    if (found == state.live.end()) {
        ADD_FAILURE() << "release of a block that is not live";
        return;
    }
    memset(block, 0xDD, found->second);
    state.live.erase(found);
    free(block);
}

void *allocate_zeros(size_t count, size_t size, void *)
{
    void *const block = allocate(count * size, nullptr);
    return block != nullptr ? memset(block, 0, count * size) : nullptr;
}

/** Always moves the block, so that the use of a pointer into the old one is detected. */
void *reallocate(void *block, size_t size, void *)
{
    void *const moved = allocate(size, nullptr);
    const auto old = state.live.find(block);
    if (moved != nullptr && old != state.live.end()) {
        memcpy(moved, block, std::min(size, old->second));
        release(block, nullptr);
    }
    return moved;
}

} // namespace

std::string captured(int fd, const std::function<void()> &body)
{
    Redirected stream(fd);
    body();
    return stream.take();
}

Ended in_child(const std::function<void()> &body)
{
    Redirected out(STDOUT_FILENO);
    Redirected err(STDERR_FILENO);
    const pid_t child = fork();
    if (child == 0) {
        const rlimit no_core = {0, 0};
        setrlimit(RLIMIT_CORE, &no_core);
        body();
        exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    const bool exited = WIFEXITED(status);
    return {out.take(), err.take(), exited ? WEXITSTATUS(status) : -1,
            exited ? 0 : WTERMSIG(status)};
}

Ended in_clean_child(const std::function<void()> &body)
{
    Ended ended = in_child(body);
    EXPECT_EQ(ended.exit_code, 0) << ended.out << ended.err;
    return ended;
}

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) { lines.push_back(line); }
    return lines;
}

std::string masked(const std::string &text, const char *pattern, const char *replacement)
{
    return std::regex_replace(text, std::regex(pattern), replacement);
}

std::string without_lines(const std::string &text) { return masked(text, "cpp:[0-9]+", "cpp:L"); }

std::string content_of(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void expect_warnings(const std::vector<Check> &checks, const std::function<void()> &body)
{
    std::string expected;
    for (const auto &[function, condition] : checks) {
        expected += "veklib/*:L: " + function + ": assertion \"" + condition + "\" failed\n\n";
    }
    const std::string text = captured(STDERR_FILENO, body);
    EXPECT_EQ(masked(text, "veklib/[a-z_]+[.](cpp|h):[0-9]+", "veklib/*:L"), expected);
}

std::vector<Check> same_check(const std::string &functions, const std::string &condition)
{
    std::vector<Check> checks;
    std::istringstream list(functions.substr(0, functions.find('(')));
    for (std::string name; std::getline(list >> std::ws, name, ',');) {
        checks.emplace_back(name, condition);
    }
    return checks;
}

Allocator::Allocator()
{
    state = {};
    VekMemoryVtable table = {}; // the operations that the library and its headers call
    table.malloc = allocate;
    table.calloc = allocate_zeros;
    table.realloc = reallocate;
    table.free = release;
    vek_set_memory_vtable(&table);
}

Allocator::~Allocator()
{
    EXPECT_EQ(state.live.size(), 0u) << "blocks are not released";
    vek_set_memory_vtable(nullptr);
}

void Allocator::fail_nth(unsigned n, bool onward)
{
    state.asked = 0;
    state.failing = n;
    state.onward = onward;
    state.failed = state.just_failed = false;
}

bool Allocator::failed() { return state.failed; }

bool Allocator::just_failed() { return std::exchange(state.just_failed, false); }

unsigned Allocator::allocations() { return state.asked; }

size_t Allocator::live() { return state.live.size(); }

void fail_each_allocation(const std::function<void(Allocator &)> &scenario)
{
    for (const bool onward : {false, true}) {
        bool failed = true;
        for (unsigned n = 1; failed && !testing::Test::HasFailure(); ++n) {
            SCOPED_TRACE(testing::Message() << "allocation " << n << (onward ? " and on" : ""));
            Allocator allocator;
            allocator.fail_nth(n, onward);
            scenario(allocator);
            failed = allocator.failed();
            EXPECT_EQ(allocator.live(), 0u);
        }
    }
}

} // namespace vektest
