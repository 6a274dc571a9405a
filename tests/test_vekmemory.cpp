/* SPDX-License-Identifier: MIT */
/* Every case runs in a process of its own: what happens at first use is most of what is tested. */
#include <veklib/vekdiag.h>
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekname.h>
#include <veklib/vekstack.h>
#include <veklib/vekstr.h>
#include <veklib/vekstrfuncs.h>

#include "support/support.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <thread>

#include <dlfcn.h>
#include <unistd.h>

using vektest::in_clean_child;
using vektest::lines_of;

static std::atomic<void (*)()> behind_the_first_use{nullptr};

/** The C library's, with a gap behind the one-time work that a test can fill. */
extern "C" int pthread_once(pthread_once_t *once, void (*routine)())
{
    const auto original = reinterpret_cast<decltype(&pthread_once)>(dlsym(RTLD_NEXT, "pthread_once"));
    const int result = original(once, routine);
    if (const auto fill = behind_the_first_use.exchange(nullptr)) { fill(); }
    return result;
}

namespace {

/** A trace line without its addresses: "vek_malloc(16) => P [#1]". */
std::string plain(const std::string &line)
{
    return vektest::masked(line.substr(line.find(": ") + 2), "0x", "0123456789abcdef", "P");
}

std::vector<std::string> plain_lines(const std::string &text)
{
    std::vector<std::string> lines = lines_of(text);
    for (std::string &line : lines) { line = plain(line); }
    return lines;
}

using Lines = std::vector<std::string>;

/** Lets the memory queries read `text` instead of the kernel's; empty: the file cannot be opened. */
void serve_meminfo(const char *text)
{
    vektest::open_hook = [text](const char *path, const char *mode) -> FILE * {
        if (strcmp(path, "/proc/meminfo") != 0) { return vektest::plain_open(path, mode); }
        errno = ENOENT;
        return *text != '\0' ? fmemopen(const_cast<char *>(text), strlen(text), mode) : nullptr;
    };
}

/* A table of the application's own; its blocks carry a mark in front, so that a block of another
 * allocator is noticed. */
struct Block {
    alignas(std::max_align_t) uint32_t mark;
};
constexpr uint32_t own_mark = 0x4b454b45;
unsigned own_allocations = 0;

void *own_malloc(size_t size, void *)
{
    ++own_allocations;
    auto *const block = static_cast<Block *>(malloc(sizeof(Block) + size));
    block->mark = own_mark;
    return block + 1;
}

void own_free(void *memory, void *)
{
    Block *const block = static_cast<Block *>(memory) - 1;
    EXPECT_EQ(block->mark, own_mark) << "a block of another allocator";
    free(block);
}

/* Filled in by hand: asking for the table in force would already be the first use. */
VekMemoryVtable own_table()
{
    VekMemoryVtable table = {};
    table.malloc = own_malloc;
    table.free = own_free;
    return table;
}

} // namespace

TEST(Memory, ZeroSizesDoNotReachTheTable)
{
    in_clean_child([] {
        vektest::Allocator allocator;
        EXPECT_EQ(vek_malloc(0), nullptr);
        EXPECT_EQ(vek_calloc(0, 16), nullptr);
        EXPECT_EQ(vek_calloc(16, 0), nullptr);
        EXPECT_EQ(vek_calloc(SIZE_MAX / 2 + 1, 2), nullptr); // wraps to 0
        EXPECT_EQ(vek_malloc_if_possible(0), nullptr);
        EXPECT_EQ(vek_malloc_if_available_with_return(0, nullptr), nullptr);
        vek_free(nullptr);
        EXPECT_EQ(allocator.allocations(), 0u);
    });
}

TEST(Memory, ErrorStateRefusesWithALine)
{
    const auto ended = in_clean_child([] {
        EXPECT_EQ(vek_malloc_get_error(), 0);
        void *const block = vek_malloc(10);
        vek_malloc_set_error(258);
        EXPECT_EQ(vek_malloc_get_error(), 2); // one byte
        EXPECT_EQ(vek_malloc(10), nullptr);
        EXPECT_EQ(vek_calloc(2, 5), nullptr);
        EXPECT_EQ(vek_realloc(block, 20), nullptr);
        EXPECT_EQ(vek_malloc_if_possible(3), nullptr);
        vek_free(vek_malloc_if_available(10));
        EXPECT_EQ(vek_realloc(block, 0), nullptr); // releases
        vek_memory_enable_trace();
        EXPECT_EQ(vek_malloc(SIZE_MAX), nullptr);
        vek_malloc_set_error(0);
        vek_memory_disable_trace();
        vek_free(vek_malloc(1));
    });
    const Lines expected = {
        "vek_malloc(10) => NULL, in error state",     "vek_calloc(2, 5) => NULL, in error state",
        "vek_realloc(P, 20) => NULL, in error state", "vek_malloc_if_possible(3) => NULL, in error state",
        "vek_malloc(-1) => NULL, in error state",     "vek_malloc(-1) => (nil) [#1]"};
    EXPECT_EQ(plain_lines(ended.err), expected);
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
        {"MemTotal: 2147483647 kB\n", sizeof(size_t) == 4 ? SIZE_MAX : size_t{2147483647} << 10, ""},
        {"MemTotal: much\n", SIZE_MAX, ""},
        {"", SIZE_MAX, ""},
    };
    for (const auto &row : rows) {
        const auto ended = in_clean_child([&] {
            setenv("VEK_MALLOC_TRACE", "99999999999999999999", 1); // out of range: errno must stay
            serve_meminfo(row.text);
            errno = EDOM;
            EXPECT_EQ(vek_malloc_get_total_bytes(), row.total) << row.text;
            vek_malloc_get_free_bytes();
            EXPECT_EQ(errno, EDOM);
        });
        EXPECT_EQ(ended.err, row.message);
    }
    in_clean_child([&] {
        serve_meminfo(rows[0].text);
        VekMemoryVtable table = *vek_get_memory_vtable();
        EXPECT_EQ(vek_malloc_get_free_bytes(), 3072u);
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
        vek_memory_enable_trace(); // ahead of the first allocation
        vek_memory_enable_trace();
        void *block = vek_malloc(16);
        block = vek_realloc(block, 32);
        EXPECT_EQ(vek_realloc(block, 0), nullptr);
        vek_memory_disable_trace();
        vek_free(vek_malloc(1));
        vek_memory_enable_trace();
        vek_free(vek_calloc(3, 4));
        vek_free(nullptr);
        vek_free(vek_malloc_if_possible(5));
        vek_free(vek_malloc_if_available(6));
        errno = EDOM;
        vek_free(vek_malloc(7));
        EXPECT_EQ(errno, EDOM);
    });
    const Lines expected = {"vek_malloc(16) => P [#1]",
                            "vek_realloc(P, 32) => P [#2]",
                            "vek_realloc(P, 0) => (nil) [#3]",
                            "vek_calloc(3, 4) => P [#4]",
                            "vek_free(P)",
                            "vek_malloc_if_possible(5) => P [#5]",
                            "vek_free(P)",
                            "vek_malloc_if_available(6) => P [#6]",
                            "vek_free(P)",
                            "vek_malloc(7) => P [#7]",
                            "vek_free(P)"};
    EXPECT_EQ(plain_lines(ended.err), expected);
}

TEST(Trace, GoesWhereTheEnvironmentSays)
{
    const std::string path = testing::TempDir() + "/veklib-trace-" + std::to_string(getpid());
    const auto traced = [](const char *file) {
        return in_clean_child([&] {
            setenv("VEK_MALLOC_TRACE", "1", 1);
            setenv("VEK_MALLOC_TRACE_FILE", file, 1);
            errno = EDOM;
            vek_free(vek_malloc(16));
            EXPECT_EQ(errno, EDOM);
            _exit(testing::Test::HasFailure()); // a line is in the file at its newline
        });
    };
    const Lines expected = {"vek_malloc(16) => P [#1]", "vek_free(P)"};
    EXPECT_EQ(traced(path.c_str()).err, "");
    EXPECT_EQ(traced(path.c_str()).err, ""); // empties the file
    EXPECT_EQ(plain_lines(vektest::content_of(path)), expected);
    unlink(path.c_str());

    Lines lines = lines_of(traced("/nonexistent/trace").err);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "/nonexistent/trace: No such file or directory");
    EXPECT_EQ(plain(lines[1]), expected[0]);

    const auto lost = vektest::in_child([] {
        setenv("VEK_MALLOC_TRACE_FILE", "/nonexistent/trace", 1);
        stderr = nullptr;
        vek_memory_enable_trace();
        vek_set_abort_handler([](const char *file, int, const char *message) {
            vek_set_abort_handler(nullptr);
            printf("%s: %s", file, message);
            fflush(stdout);
        });
        vek_malloc(1);
    });
    EXPECT_EQ(lost.out, "veklib/vekmemory.cpp: Assertion trace_destination failed.\n");
    EXPECT_EQ(lost.signal, SIGABRT);
}

/* Any order of the things that a program may do first: allocations are always served by the table
 * installed last, and traced exactly while tracing is on. */
TEST(FirstUse, AnyOrderServesOneAllocatorAndItsTracing)
{
    enum Action { allocate, enable, disable, install_own, install_default, query, actions };
    for (int sequence = 0; sequence < actions * actions * actions; ++sequence) {
        const auto ended = in_clean_child([&] {
            bool own = false;
            for (int rest = sequence; rest != 0; rest /= actions) {
                const VekMemoryVtable table = rest % actions == install_own ? own_table() : VekMemoryVtable{};
                switch (rest % actions) {
                case enable: vek_memory_enable_trace(); break;
                case disable: vek_memory_disable_trace(); break;
                case install_own:
                    vek_set_memory_vtable(&table);
                    own = true;
                    break;
                case install_default:
                    vek_set_memory_vtable(nullptr);
                    own = false;
                    break;
                case query: vek_malloc_get_error(); break;
                default: break;
                }
                const unsigned before = own_allocations;
                vek_free(vek_malloc(8));
                EXPECT_EQ(own_allocations - before, own ? 1u : 0u) << "sequence " << sequence;
            }
        });
        size_t traced = 0;
        bool tracing = false;
        for (int rest = sequence; rest != 0; rest /= actions) {
            tracing = rest % actions == enable || (tracing && rest % actions != disable);
            traced += tracing ? 2 : 0;
        }
        ASSERT_EQ(lines_of(ended.err).size(), traced) << "sequence " << sequence;
    }
}

TEST(FirstUse, ExchangeThatComesFirstLeavesNoGap)
{
    in_clean_child([] {
        behind_the_first_use = [] {
            std::thread([] {
                EXPECT_NE(vek_get_memory_vtable()->malloc, nullptr);
                void *const block = vek_malloc(8);
                EXPECT_NE(block, nullptr);
                vek_free(block);
            }).join();
        };
        vek_set_memory_vtable(nullptr);
        EXPECT_EQ(behind_the_first_use.load(), nullptr);
    });
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
        for (const std::string &line : plain_lines(ended.err)) {
            if (line != "vek_free(P)") { EXPECT_TRUE(numbers.insert(line).second) << line; }
        }
        EXPECT_EQ(numbers.size(), size_t{threads * calls});
        EXPECT_EQ(lines_of(ended.err).size(), size_t{2 * threads * calls});
    }
}

/* Every operation that allocates, asked for by one function that the trace must name. */
extern "C" __attribute__((noinline)) void *asker(int operation, ...)
{
    static VekHash *hash;
    static VekStr persistent = {0, ""};
    static VekName name = {0, const_cast<char *>("x")};
    VekStr *variable = &persistent;
    VekStr **const text = &variable;
    va_list args;
    va_start(args, operation);
    void *volatile result = nullptr; // keeps every call from being a tail call
    // clang-format off
    switch (operation) {
    
    case 0: result = vek_malloc(1); break;
    case 1: result = vek_calloc(1, 1); break;
    case 2: result = vek_realloc(nullptr, 1); break;
    case 3: result = vek_malloc_if_possible(1); break;
    case 4: result = vek_malloc_if_available(1); break;
    case 5: result = vek_memdup("x", 2); break;
    case 6: result = vek_strdup("x"); break;
    case 7: result = vek_strndup("x", 1); break;
    case 8: result = vek_strdup_printf("%s", "x"); break;
    case 9: result = vek_strdup_printf("%300d", 1); break;
    case 10: result = vek_strdup_vprintf("%d", args); break;
    case 11: result = vek_slist_prepend(nullptr, nullptr); break;
    case 12: result = vek_slist_append(nullptr, nullptr); break;
    case 13: result = vek_slist_insert_after(nullptr, nullptr); break;
    case 14: vek_memory_disable_trace(), hash = vek_hash_new(), vek_memory_enable_trace(); result = reinterpret_cast<void *>(intptr_t{vek_hash_insert(hash, nullptr, nullptr)}); break;
    case 15: result = vek_str_create("x"); break;
    case 16: result = vek_str_ncreate("x", 1); break;
    case 17: result = vek_str_create_printf("%s", "x"); break;
    case 18: result = vek_str_create_printf("%300d", 1); break;
    case 19: result = vek_str_create_vprintf("%d", args); break;
    case 20: vek_str_prepend_char(text, 'x'); result = *text; break;
    case 21: vek_str_prepend_c_str(text, "x"); result = *text; break;
    case 22: vek_str_append_c_str(text, "x"); result = *text; break;
    case 23: vek_str_append_vek_str(text, *text); result = *text; break;
    case 24: result = vek_name_to_vek_str(&name); break;
    default: break;
    }
    // clang-format on
    va_end(args);
    return result;
}

TEST(Trace, AttributesToTheCodeThatAsked)
{
    static VekSList list = {nullptr, nullptr};
    static VekStack stack;
    struct Row {
        std::function<void *()> request;
        std::string name;
    };
    std::vector<Row> rows;
    for (int operation = 0; operation < 25; ++operation) {
        rows.push_back({[=] { return asker(operation, 5); }, "asker"});
    }
    rows.push_back({[] { return vek_slist_dup(&list, nullptr); }, "vek_slist_dup"});
    rows.push_back({[] {
                        vek_stack_push(&stack, nullptr);
                        return stack.top;
                    },
                    "vek_stack_push"});
    for (const Row &row : rows) {
        const auto ended = in_clean_child([&] {
            const std::string text = vektest::captured(STDERR_FILENO, [&] {
                vek_memory_enable_trace();
                static std::vector<void *> kept; // the block is left behind
                kept.push_back(row.request());
                vek_memory_disable_trace();
            });
            Dl_info info = {};
            dladdr(reinterpret_cast<void *>(strtoull(text.c_str(), nullptr, 16)), &info);
            EXPECT_STREQ(info.dli_sname, row.name.c_str()) << text;
            EXPECT_EQ(lines_of(text).size(), 1u);
            _exit(testing::Test::HasFailure());
        });
    }
}

TEST(Trace, TellsOfAReleaseBeforeItIsMade)
{
    const auto ended = in_clean_child([] {
        VekMemoryVtable table = *vek_get_memory_vtable();
        table.free = [](void *block, void *) {
            fputs("released\n", stderr);
            free(block);
        };
        vek_set_memory_vtable(&table);
        vek_memory_enable_trace();
        EXPECT_EQ(vek_get_memory_vtable()->free, table.free); // the table, not its wrappers
        vek_free(vek_calloc(1, 1));
    });
    const Lines lines = lines_of(ended.err);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(plain(lines[1]), "vek_free(P)");
    EXPECT_EQ(lines[2], "released");
}

TEST(Trace, HandsOnTheAddressGiven)
{
    const auto ended = in_clean_child([] {
        void *const there = reinterpret_cast<void *>(0x1234);
        setenv("VEK_MALLOC_TRACE", "0", 1);
        vek_set_memory_vtable(nullptr);
        vek_free(vek_malloc(1)); // not traced
        setenv("VEK_MALLOC_TRACE", "1", 1);
        vek_set_memory_vtable(nullptr);
        vek_free_with_return(vek_malloc_with_return(1, there), there);
        vek_free_with_return(vek_calloc_with_return(1, 1, there), there);
        vek_free_with_return(vek_realloc_with_return(nullptr, 1, there), there);
        vek_free_with_return(vek_malloc_if_possible_with_return(1, there), there);
        vek_free_with_return(vek_malloc_if_available_with_return(1, there), there);
        vek_malloc_set_error(1);
        vek_malloc_with_return(1, there);
        void *const block = vek_malloc_if_available_with_return(1, there); // not refused
        EXPECT_NE(block, nullptr);
        printf("0x1234: vek_free(%p)\n", block);
        vek_free_with_return(block, there);
    });
    const Lines lines = lines_of(ended.err);
    EXPECT_EQ(lines.size(), 14u);
    EXPECT_EQ(lines.back() + "\n", ended.out);
    for (const std::string &line : lines) { EXPECT_EQ(line.rfind("0x1234: ", 0), 0u) << line; }
}
