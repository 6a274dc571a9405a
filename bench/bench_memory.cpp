/* SPDX-License-Identifier: MIT */
/* Allocation, plain and traced. The trace goes to the file that VEK_MALLOC_TRACE_FILE names, the
 * peer's lines to a file beside it. */
#include "jobs.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <glib.h>
#include <talloc.h>
#include <veklib/vekmemory.h>

namespace {

template <auto allocate, auto release>
void pairs(benchmark::State &state, int size)
{
    for (auto _ : state) {
        void *block = allocate(static_cast<size_t>(size));
        benchmark::DoNotOptimize(block);
        release(block);
    }
}

void *talloc_block(size_t size) { return talloc_size(nullptr, size); }
void talloc_release(void *block) { talloc_free(block); }

const char *trace_file() { return getenv("VEK_MALLOC_TRACE_FILE"); }

bool is_device() { return strncmp(trace_file(), "/dev/", 5) == 0; }

void traced(benchmark::State &state, int size)
{
    vek_memory_enable_trace();
    pairs<vek_malloc, vek_free>(state, size);
    vek_memory_disable_trace();
}

/** An allocation, its release, and the lines that report both, written to a line-buffered file. */
template <bool is_formatted>
void two_lines(benchmark::State &state, int size)
{
    static FILE *const file = [] {
        const std::string path = trace_file() + std::string(is_device() ? "" : ".peer");
        FILE *const opened = fopen(path.c_str(), "wb");
        setlinebuf(opened);
        return opened;
    }();
    int number = 0;
    for (auto _ : state) {
        void *block = malloc(static_cast<size_t>(size));
        benchmark::DoNotOptimize(block);
        if constexpr (is_formatted) {
            fprintf(file, "%p: vek_malloc(%d) => %p [#%d]\n", static_cast<void *>(&number), size,
                    block, ++number);
            fprintf(file, "%p: vek_free(%p)\n", static_cast<void *>(&number), block);
        } else {
            fputs("0x55fd7b1c30a7: vek_malloc(16) => 0x55fd7c2d42a0 [#123456]\n", file);
            fputs("0x55fd7b1c30b9: vek_free(0x55fd7c2d42a0)\n", file);
        }
        free(block);
    }
}

/** Registers the traced jobs if there is a trace file. The kind of the file is part of their names,
 *  because ./dev bench runs them for each kind. */
int add_traced()
{
    if (trace_file() == nullptr) { return 0; }
    const std::string job =
        is_device() ? "traced malloc+free, to the null device" : "traced malloc+free, to a file";
    bench::add(job, "veklib", traced, {16});
    bench::add(job, "fputs", two_lines<false>, {16});
    return bench::add(job, "fprintf", two_lines<true>, {16});
}

[[maybe_unused]] const int registered[] = {
    bench::add("malloc+free", "veklib", pairs<vek_malloc, vek_free>, {16, 64, 256}),
    bench::add("malloc+free", "libc", pairs<malloc, free>, {16, 64, 256}),
    bench::add("malloc+free", "GLib", pairs<g_malloc, g_free>, {16, 64, 256}),
    bench::add("malloc+free", "talloc", pairs<talloc_block, talloc_release>, {16, 64, 256}),
    add_traced(),
};

} // namespace
