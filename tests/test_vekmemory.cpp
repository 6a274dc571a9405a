/* SPDX-License-Identifier: MIT */
/* Every case runs in a process of its own, because most cases test what happens at first use. */
#include <veklib/vekdiag.h>
#include <veklib/vekmemory.h>

#include "support/support.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>
#include <thread>

#include <dlfcn.h>
#include <malloc.h>
#include <unistd.h>

using namespace vektest;

static std::atomic<void (*)()> after_the_first_use{nullptr};

/** The C library's pthread_once(); after the one-time work it calls what a test has set. */
extern "C" int pthread_once(pthread_once_t *once, void (*routine)())
{
    const auto original =
        reinterpret_cast<decltype(&pthread_once)>(dlsym(RTLD_NEXT, "pthread_once"));
    const int result = original(once, routine);
    if (const auto fill = after_the_first_use.exchange(nullptr)) { fill(); }
    return result;
}

namespace {

/** Trace lines without their addresses: "vek_malloc(16) => P [#1]". */
std::string plain(const std::string &text)
{
    return masked(masked(text, "0x[0-9a-f]+", "P"), "P: ", "");
}

/** Makes the memory queries read `text` instead of the kernel's. */
void serve_meminfo(const char *text)
{
    open_hook = [text](const char *path, const char *mode) -> FILE * {
        if (strcmp(path, "/proc/meminfo") != 0) { return plain_open(path, mode); }
        return fmemopen(const_cast<char *>(text), strlen(text), mode);
    };
}

/* Variables, because compilers warn of such arguments when they are constants. */
void *volatile no_block = word(0xabc);
volatile size_t largest_size = SIZE_MAX;

int own_allocations = 0;
int own_releases = 0;

/* The table is not copied from the one in force: asking for that would already be the first use. */
void install_own_table()
{
    VekMemoryVtable table = {};
    table.malloc = [](size_t size, void *) { return ++own_allocations, malloc(size); };
    table.free = [](void *block, void *) { ++own_releases, free(block); };
    vek_set_memory_vtable(&table);
}

} // namespace

CHILD_TEST(Memory, ZeroSizesDoNotReachTheTable)
{
    Allocator allocator;
    EXPECT_EQ(vek_malloc(0), nullptr);
    EXPECT_EQ(vek_calloc(0, 16), nullptr);
    EXPECT_EQ(vek_calloc(16, 0), nullptr);
    EXPECT_EQ(vek_calloc(largest_size / 2 + 1, 2), nullptr); // wraps to 0
    EXPECT_EQ(vek_malloc_if_possible(0), nullptr);
    EXPECT_EQ(vek_malloc_if_available(0), nullptr);
    for (const auto allocate : {vek_malloc_with_return, vek_malloc_if_possible_with_return,
                                vek_malloc_if_available_with_return}) {
        EXPECT_EQ(allocate(0, nullptr), nullptr);
    }
    EXPECT_EQ(vek_calloc_with_return(0, 1, nullptr), nullptr);
    vek_free(nullptr);
    vek_free_with_return(nullptr, nullptr);
    EXPECT_EQ(allocator.allocations(), 0u);
}

CHILD_TEST(Memory, TheDefaultTableGivesBack)
{
    vek_free(vek_malloc(1000));
    const auto before = mallinfo2().uordblks;
    vek_free(vek_malloc(1000));
    EXPECT_EQ(mallinfo2().uordblks, before);
}

TEST(Memory, ErrorStateRefusesWithALine)
{
    void *const there = word(0x1234);
    const auto ended = in_clean_child([&] {
        vek_malloc_set_error(258);                       // as the very first call
        EXPECT_EQ(vek_malloc_get_error(), 2);            // it is one byte
        void *const block = vek_malloc_if_available(10); // it is not refused
        EXPECT_EQ(vek_malloc_with_return(10, there), nullptr);
        EXPECT_EQ(vek_calloc_with_return(2, 5, there), nullptr);
        EXPECT_EQ(vek_realloc_with_return(no_block, 20, there), nullptr);
        EXPECT_EQ(vek_malloc_if_possible_with_return(3, there), nullptr);
        EXPECT_EQ(vek_realloc(block, 0), nullptr); // this releases it
        vek_memory_enable_trace();
        EXPECT_EQ(vek_malloc_with_return(largest_size, there), nullptr);
        vek_malloc_set_error(0);
        EXPECT_EQ(vek_malloc_get_error(), 0);
        vek_memory_disable_trace();
        vek_free(vek_malloc(1));
    });
    EXPECT_EQ(ended.err, "0x1234: vek_malloc(10) => NULL, in error state\n"
                         "0x1234: vek_calloc(2, 5) => NULL, in error state\n"
                         "0x1234: vek_realloc(0xabc, 20) => NULL, in error state\n"
                         "0x1234: vek_malloc_if_possible(3) => NULL, in error state\n"
                         "0x1234: vek_malloc(-1) => NULL, in error state\n"
                         "0x1234: vek_malloc(-1) => (nil) [#1]\n");
}

TEST(Memory, QueriesReadMeminfo)
{
    const std::string late = "Noise: " + std::string(200, 'x') + "\nMemTotal:       5 kB\n";
    const struct {
        const char *text; ///< empty: the file cannot be opened
        size_t total;
        const char *message;
    } rows[] = {
        {"MemTotal: 2048 kB\nMemFree: 3 kB\n", 2097152, ""},
        {"MemTotal: 7 MB\n", 7168, "unknown unit M in /proc/meminfo\n"},
        {late.c_str(), 5120, ""},
        {"MemTotal: -1 kB\n", SIZE_MAX, ""},
        {"MemTotal: 2147483647 kB\n", sizeof(size_t) == 4 ? SIZE_MAX : size_t{2147483647} << 10,
         ""},
        {"MemTotal: much\n", SIZE_MAX, ""},
        {"", SIZE_MAX, ""},
    };
    for (const auto &row : rows) {
        const auto ended = in_clean_child([&] {
            setenv("VEK_MALLOC_TRACE", "99999999999999999999", 1); // out of range: errno must stay
            serve_meminfo(row.text);
            Allocator::fail_nth(*row.text == '\0', false, "fopen");
            errno = EDOM;
            EXPECT_EQ(vek_malloc_get_total_bytes(), row.total) << row.text;
            vek_malloc_get_free_bytes();
            EXPECT_EQ(errno, EDOM);
        });
        EXPECT_EQ(ended.err, row.message);
    }
    in_clean_child([&] {
        const int next = dup(STDIN_FILENO);
        close(next);
        vek_malloc_get_total_bytes();
        EXPECT_EQ(dup(STDIN_FILENO), next); // nothing has stayed open
        serve_meminfo(rows[1].text);
        stderr = nullptr;
        EXPECT_EQ(vek_malloc_get_total_bytes(), rows[1].total);
    });
    in_clean_child([&] {
        serve_meminfo(rows[0].text);
        EXPECT_EQ(vek_malloc_get_free_bytes(), 3072u); // as the very first call
        VekMemoryVtable table = *vek_get_memory_vtable();
        table.get_free_bytes = nullptr;
        vek_set_memory_vtable(&table);
        EXPECT_EQ(vek_malloc_get_free_bytes(), 2097152u);
        table.get_total_bytes = nullptr;
        table.get_error = nullptr;
        table.set_error = nullptr;
        vek_set_memory_vtable(&table);
        EXPECT_EQ(vek_malloc_get_free_bytes(), SIZE_MAX);
        vek_malloc_set_error(1);
        EXPECT_EQ(vek_malloc_get_error(), 0);
        static int marks;
        table.mark = [] { ++marks; };
        vek_mark();
        vek_set_memory_vtable(&table);
        vek_mark();
        EXPECT_EQ(marks, 1);
    });
}

TEST(Trace, WritesOneLineAnOperation)
{
    const auto ended = in_clean_child([] {
        void *const there = word(0x1234);
        setenv("VEK_MALLOC_TRACE", "0", 1);
        vek_set_memory_vtable(nullptr);
        vek_free(vek_malloc(1)); // not traced
        vek_memory_enable_trace();
        vek_memory_enable_trace();
        void *block = vek_malloc_with_return(16, there);
        block = vek_realloc_with_return(block, 32, there);
        EXPECT_EQ(vek_realloc_with_return(block, 0, there), nullptr);
        vek_memory_disable_trace();
        vek_free(vek_malloc(1));
        setenv("VEK_MALLOC_TRACE", "1", 1);
        vek_set_memory_vtable(nullptr);
        vek_free_with_return(vek_calloc_with_return(3, 4, there), there);
        vek_free(nullptr);
        vek_free_with_return(vek_malloc_if_possible_with_return(5, there), there);
        vek_free_with_return(vek_malloc_if_available_with_return(6, there), there);
        errno = EDOM;
        vek_free_with_return(vek_malloc_with_return(7, there), there);
        EXPECT_EQ(errno, EDOM);
    });
    EXPECT_EQ(masked(ended.err, "([(>] ?)0x[0-9a-f]+", "$1P"),
              "0x1234: vek_malloc(16) => P [#1]\n"
              "0x1234: vek_realloc(P, 32) => P [#2]\n"
              "0x1234: vek_realloc(P, 0) => (nil) [#3]\n"
              "0x1234: vek_calloc(3, 4) => P [#4]\n0x1234: vek_free(P)\n"
              "0x1234: vek_malloc_if_possible(5) => P [#5]\n0x1234: vek_free(P)\n"
              "0x1234: vek_malloc_if_available(6) => P [#6]\n0x1234: vek_free(P)\n"
              "0x1234: vek_malloc(7) => P [#7]\n0x1234: vek_free(P)\n");
}

TEST(Trace, PrintsNumbersAsPrintfDoes)
{
    std::vector<size_t> numbers = {0};
    for (size_t ten = 1; ten <= SIZE_MAX / 10; ten *= 10) {
        numbers.insert(numbers.end(), {ten, 10 * ten - 1});
    }
    for (size_t two = 1; two != 0; two *= 2) {
        numbers.insert(numbers.end(), {two, two - 1, 0 - two});
    }
    const auto pointer = [](size_t number) { return reinterpret_cast<void *>(number); };

    const auto ended = in_clean_child([&] {
        VekMemoryVtable table = {};
        table.realloc = [](void *block, size_t, void *) { return block; };
        vek_set_memory_vtable(&table);
        vek_memory_enable_trace();
        for (const size_t number : numbers) {
            void *const block = pointer(number);
            EXPECT_EQ(vek_realloc_with_return(block, number, pointer(~number)), block);
        }
    });
    std::string expected;
    int count = 0;
    for (const size_t number : numbers) {
        char line[200];
        snprintf(line, sizeof line, "%p: vek_realloc(%p, %zd) => %p [#%d]\n", pointer(~number),
                 pointer(number), static_cast<ssize_t>(number), pointer(number), ++count);
        expected += line;
    }
    EXPECT_EQ(ended.err, expected);
}

TEST(Trace, GoesWhereTheEnvironmentSays)
{
    const std::string path = testing::TempDir() + "/veklib-trace-" + std::to_string(getpid());
    const std::string lines = "vek_malloc(16) => P [#1]\nvek_free(P)\n";
    const struct {
        const char *request; ///< what fails, the first time or always
        bool onward;
        std::string in_file;
        std::string on_stderr = "";
        size_t total = 2097152; ///< what the query then finds
        std::string file = "";  ///< in place of `path`
    } rows[] = {
        {"none", false, lines},
        {"none", false, "old", "/nonexistent/trace: No such file or directory\n" + lines, 2097152,
         "/nonexistent/trace"},
        {"none", false, "old", "", 2097152, "/dev/full"},
        {"fopen", false, "old", path + ": No space left on device\n" + lines},
        {"fopen", true, "old", path + ": No space left on device\n" + lines, SIZE_MAX},
        {"fwrite", false, "vek_free(P)\n"},
        {"fwrite", true, ""},
        {"fgets", false, lines, "", SIZE_MAX},
        {"fgets", true, lines, "", SIZE_MAX},
        {"fclose", false, lines},
        {"fclose", true, lines},
    };
    for (const auto &row : rows) {
        std::ofstream(path) << "old"; // a trace empties the file
        const auto ended = in_clean_child([&] {
            setenv("VEK_MALLOC_TRACE", "1", 1);
            setenv("VEK_MALLOC_TRACE_FILE", (row.file.empty() ? path : row.file).c_str(), 1);
            serve_meminfo("MemTotal: 2048 kB\n");
            Allocator::fail_nth(1, row.onward, row.request);
            errno = EDOM;
            void *const block = vek_malloc(16);
            EXPECT_NE(block, nullptr);
            vek_free(block);
            EXPECT_EQ(vek_malloc_get_total_bytes(), row.total);
            EXPECT_EQ(errno, EDOM);
            EXPECT_EQ(plain(content_of(path)), row.in_file); // each line is in the file at once
        });
        EXPECT_EQ(plain(ended.err), row.on_stderr) << row.request;
    }
    unlink(path.c_str());

    const auto lost = in_child([] {
        setenv("VEK_MALLOC_TRACE_FILE", "/nonexistent/trace", 1);
        stderr = nullptr;
        vek_memory_enable_trace();
        vek_set_abort_handler([](const char *file, int, const char *message) {
            vek_set_abort_handler(nullptr);
            printf("%s: %s", file, message);
            fflush(stdout);
        });
        vek_free(vek_malloc(1));
    });
    EXPECT_EQ(lost.out, "veklib/vekmemory_trace.cpp: Assertion trace_destination failed.\n");
    EXPECT_EQ(lost.signal, SIGABRT);
}

/* In whatever order a program does these things first, allocations are always served by the table
 * that was installed last, and are traced exactly while tracing is on. */
TEST(FirstUse, AnyOrderServesOneAllocatorAndItsTracing)
{
    const struct Step {
        const char *name;
        void (*take)();
        std::optional<bool> own = {};     ///< whether the own table is then in force
        std::optional<bool> tracing = {}; ///< whether tracing is then on
    } steps[] = {
        {"allocate", [] {}}, // as after every other step
        {"enable", vek_memory_enable_trace, {}, true},
        {"disable", vek_memory_disable_trace, {}, false},
        {"own table", install_own_table, true},
        {"default table", [] { vek_set_memory_vtable(nullptr); }, false},
        {"query", [] { vek_malloc_get_error(); }},
    };
    for (const Step &a : steps) {
        for (const Step &b : steps) {
            for (const Step &c : steps) {
                SCOPED_TRACE(testing::Message() << a.name << ", " << b.name << ", " << c.name);
                const auto ended = in_clean_child([&] {
                    bool own = false;
                    bool tracing = false;
                    int served = 0; // by the own table
                    int traced = 0;
                    for (const Step *const step : {&a, &b, &c}) {
                        step->take();
                        own = step->own.value_or(own);
                        tracing = step->tracing.value_or(tracing);
                        served += own;
                        traced += 2 * tracing;
                        vek_free(vek_malloc(8));
                        EXPECT_EQ(own_allocations, served);
                        EXPECT_EQ(own_releases, served);
                    }
                    printf("%d", traced);
                });
                EXPECT_EQ(std::to_string(lines_of(ended.err).size()), ended.out);
            }
        }
    }
}

CHILD_TEST(FirstUse, ExchangeThatComesFirstLeavesNoGap)
{
    after_the_first_use = [] {
        std::thread([] {
            EXPECT_NE(vek_get_memory_vtable()->malloc, nullptr);
            void *const block = vek_malloc(8);
            EXPECT_NE(block, nullptr);
            vek_free(block);
        }).join();
    };
    vek_set_memory_vtable(nullptr);
    EXPECT_EQ(after_the_first_use.load(), nullptr);
}

TEST(FirstUse, RacingThreadsAreServedAfterTheInstallation)
{
    constexpr int threads = 8;
    constexpr int calls = 50;
    for (int round = 0; round < 20; ++round) {
        const auto ended = in_clean_child([] {
            setenv("VEK_MALLOC_TRACE", "1", 1);
            std::atomic<int> waiting{threads};
            std::vector<std::thread> racers;
            for (int i = 0; i < threads; ++i) {
                racers.emplace_back([&] {
                    for (waiting.fetch_sub(1); waiting.load() > 0;) {}
                    for (int call = 0; call < calls; ++call) { vek_free(vek_calloc(1, 8)); }
                });
            }
            for (std::thread &racer : racers) { racer.join(); }
        });
        std::set<std::string> numbers;
        for (const std::string &line : lines_of(plain(ended.err))) {
            if (line != "vek_free(P)") { EXPECT_TRUE(numbers.insert(line).second) << line; }
        }
        EXPECT_EQ(numbers.size(), size_t{threads * calls});
        EXPECT_EQ(lines_of(ended.err).size(), size_t{2 * threads * calls});
    }
}

TEST(Trace, WritesAReleaseBeforeItIsMade)
{
    const auto ended = in_clean_child([] {
        VekMemoryVtable table = *vek_get_memory_vtable(); // as the very first call
        EXPECT_NE(table.malloc, nullptr);
        table.free = [](void *, void *) { fputs("released\n", stderr); };
        vek_set_memory_vtable(&table);
        vek_memory_enable_trace();
        EXPECT_EQ(vek_get_memory_vtable()->free, table.free); // the table itself, not the wrappers
        vek_free_with_return(no_block, word(0x1234));
    });
    EXPECT_EQ(ended.err, "0x1234: vek_free(0xabc)\nreleased\n");
}
