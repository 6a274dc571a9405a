/* SPDX-License-Identifier: MIT */
#include "jobs.h"

#include <cstdio>
#include <cstdlib>

#include <talloc.h>
#include <veklib/vekdebug.h>
#include <veklib/vekmemory.h>

#include <glib.h>

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

/* The trace goes to the file that the environment names (see ./dev bench); the peer writes the same two
 * lines to a line-buffered file. */
void traced(benchmark::State &state, int size)
{
    vek_memory_enable_trace();
    pairs<vek_malloc, vek_free>(state, size);
    vek_memory_disable_trace();
}

void two_lines(benchmark::State &state, int size)
{
    FILE *const file = tmpfile();
    setlinebuf(file);
    for (auto _ : state) {
        void *block = malloc(static_cast<size_t>(size));
        benchmark::DoNotOptimize(block);
        fputs("0x55fd7b1c30a7: vek_malloc(16) => 0x55fd7c2d42a0 [#1234567]\n", file);
        fputs("0x55fd7b1c30b9: vek_free(0x55fd7c2d42a0)\n", file);
        free(block);
    }
    fclose(file);
}

const char *const flags[] = {"on", "off", nullptr};

/** A domain whose flag 0 writes to a file. */
VekDebugDomain *debug_domain()
{
    static VekDebugDomain *const domain = [] {
        vek_debug_initialize(nullptr, nullptr);
        vek_debug_add_domain("bench", flags);
        vek_debug_set_output_setting("on", "/dev/null");
        return vek_debug_get_domain("bench");
    }();
    return domain;
}

void debug_off(benchmark::State &state, int size)
{
    const VekDebugDomain *const domain = debug_domain();
    for (auto _ : state) { vek_debug_print(domain, 2, "%d bytes to %s\n", size, "gateway"); }
}

void debug_off_glib(benchmark::State &state, int size)
{
    for (auto _ : state) { g_debug("%d bytes to %s\n", size, "gateway"); }
}

void debug_on(benchmark::State &state, int size)
{
    const VekDebugDomain *const domain = debug_domain();
    for (auto _ : state) { vek_debug_print(domain, 1, "%d bytes to %s\n", size, "gateway"); }
}

void debug_on_stdio(benchmark::State &state, int size)
{
    FILE *const file = fopen("/dev/null", "w");
    for (auto _ : state) {
        fprintf(file, "%d bytes to %s\n", size, "gateway");
        fflush(file);
    }
    fclose(file);
}

[[maybe_unused]] const int registered[] = {
    bench::add("malloc+free", "veklib", pairs<vek_malloc, vek_free>, {16, 64, 256}),
    bench::add("malloc+free", "libc", pairs<malloc, free>, {16, 64, 256}),
    bench::add("malloc+free", "talloc", pairs<talloc_block, talloc_release>, {16, 64, 256}),
    bench::add("traced malloc+free", "veklib", traced, {16}),
    bench::add("traced malloc+free", "fputs", two_lines, {16}),
    bench::add("debug print, off", "veklib", debug_off, {1}),
    bench::add("debug print, off", "g_debug", debug_off_glib, {1}),
    bench::add("debug print, to a file", "veklib", debug_on, {1}),
    bench::add("debug print, to a file", "fprintf", debug_on_stdio, {1}),
};

} // namespace
