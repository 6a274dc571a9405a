/* SPDX-License-Identifier: MIT */
#ifndef __clang__ // GCC's warning is wrong about <regex> under the sanitizers
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif
#include "support.h"

#include <veklib/vekdiag.h>
#include <veklib/vekmemory.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <regex>
#include <sstream>
#include <unordered_map>

#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

/* Defined by the proof that every request is refused, which notes from where the call came. */
extern "C" [[gnu::weak]] void vektest_refused(const char *request, int onward);

/* Defined in the test program, these functions take the place of the platform's. A call that fails
 * sets errno and returns `failure`. fclose() closes the file all the same; fread() reads half. */
static bool refuses_call(const char *request, void *caller);
#define MAY_FAIL(result, name, failure, parameters, arguments)                                     \
    extern "C" result failing_##name parameters __asm__(#name);                                    \
    result failing_##name parameters                                                               \
    {                                                                                              \
        static const auto plain =                                                                  \
            reinterpret_cast<decltype(&failing_##name)>(dlsym(RTLD_NEXT, #name));                  \
        return refuses_call(#name, __builtin_return_address(0)) ? failure : plain arguments;       \
    }
MAY_FAIL(int, fclose, (plain(file), errno = ENOSPC, EOF), (FILE * file), (file))
MAY_FAIL(int, fflush, file != nullptr ? EOF : plain(file), (FILE * file), (file))
MAY_FAIL(int, fputs, EOF, (const char *text, FILE *file), (text, file))
MAY_FAIL(int, fstat, -1, (int fd, struct stat *into), (fd, into))
MAY_FAIL(int, stat, -1, (const char *path, struct stat *into), (path, into))
MAY_FAIL(int, vfprintf, -1, (FILE * file, const char *format, va_list args), (file, format, args))
MAY_FAIL(int, vprintf, -1, (const char *format, va_list args), (format, args))
MAY_FAIL(char *, fgets, nullptr, (char *text, int size, FILE *file), (text, size, file))
MAY_FAIL(size_t, fread, (count = plain(bytes, size, count / 2, file), fputc(0, file), count),
         (void *bytes, size_t size, size_t count, FILE *file), (bytes, size, count, file))
MAY_FAIL(size_t, fwrite, 0, (const void *bytes, size_t size, size_t count, FILE *file),
         (bytes, size, count, file))

static FILE *open_or_fail(const char *path, const char *mode, void *caller)
{
    if (refuses_call("fopen", caller)) { return nullptr; }
    return vektest::open_hook ? vektest::open_hook(path, mode) : vektest::plain_open(path, mode);
}
extern "C" FILE *fopen(const char *path, const char *mode)
{
    return open_or_fail(path, mode, __builtin_return_address(0));
}
#ifndef fopen64
extern "C" FILE *fopen64(const char *path, const char *mode)
{
    return open_or_fail(path, mode, __builtin_return_address(0));
}
#endif

namespace vektest {

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

/* Which requests fail, and what has become of them. */
constinit struct {
    const char *request = memory;
    unsigned asked = 0;
    unsigned failing = 0;
    bool onward = false;
    bool failed = false;
    bool just_failed = false;
} state;

std::unordered_map<void *, size_t> blocks;

bool refuses(const char *request)
{
    if (strcmp(state.request, request) != 0 && state.request != everything) { return false; }
    ++state.asked;
    if (state.asked != state.failing && !(state.failed && state.onward)) { return false; }
    state.failed = state.just_failed = true;
    if (vektest_refused) { vektest_refused(request, state.onward); }
    errno = ENOSPC;
    return true;
}

void *allocate(size_t size, void *)
{
    if (refuses(memory)) { return nullptr; }
    void *const block = malloc(size);
    memset(block, 0xA5, size);
    blocks.emplace(block, size);
    return block;
}

void release(void *block, void *)
{
    const auto found = blocks.find(block);
    if (found == blocks.end()) {
        ADD_FAILURE() << "release of a block that is not live";
        return;
    }
    memset(block, 0xDD, found->second);
    blocks.erase(found);
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
    const auto old = blocks.find(block);
    if (moved != nullptr && old != blocks.end()) {
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
        Allocator::fail_nth(0); // counts of the coverage are written at the exit
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
    VekMemoryVtable table = {}; // the operations that the library and its headers call
    table.malloc = allocate;
    table.calloc = allocate_zeros;
    table.realloc = reallocate;
    table.free = release;
    vek_set_memory_vtable(&table);
}

Allocator::~Allocator()
{
    EXPECT_EQ(blocks.size(), 0u) << "blocks are not released";
    vek_set_memory_vtable(nullptr);
    fail_nth(0);
}

void Allocator::fail_nth(unsigned n, bool onward, const char *request)
{
    state = {request, 0, n, onward, false, false};
}

bool Allocator::failed() { return state.failed; }

bool Allocator::just_failed() { return std::exchange(state.just_failed, false); }

unsigned Allocator::allocations() { return state.asked; }

size_t Allocator::live() { return blocks.size(); }

void fail_each(const char *request, const std::function<void()> &body)
{
    for (const bool onward : {false, true}) {
        bool failed = true;
        for (unsigned n = 1; failed && !testing::Test::HasFailure(); ++n) {
            SCOPED_TRACE(testing::Message() << request << " " << n << (onward ? " and on" : ""));
            Allocator::fail_nth(n, onward, request);
            body();
            failed = Allocator::failed();
            EXPECT_EQ(Allocator::live(), 0u);
        }
    }
    Allocator::fail_nth(0);
}

void fail_each_allocation(const std::function<void(Allocator &)> &scenario)
{
    Allocator allocator;
    fail_each(memory, [&] { scenario(allocator); });
}

} // namespace vektest

/** Whether a call of a file function is to fail: one that the library makes. */
static bool refuses_call(const char *request, void *caller)
{
    Dl_info library;
    Dl_info from;
    return vektest::state.failing != 0 &&
           dladdr(reinterpret_cast<void *>(vek_dump_backtrace), &library) != 0 &&
           dladdr(caller, &from) != 0 && from.dli_fbase == library.dli_fbase &&
           vektest::refuses(request);
}
