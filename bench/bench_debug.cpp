/* SPDX-License-Identifier: MIT */
/* Debug output and errors. */
#include "jobs.h"

#include <cstdarg>
#include <cstdio>

#include <unistd.h>

#include <veklib/vekdebug.h>
#include <veklib/vekerror.h>

#define G_LOG_DOMAIN "bench"
#include <glib.h>

namespace {

enum : uint32_t { to_file = 1, is_off = 2 };
const char *const flags[] = {"on", "off", nullptr};

/** The path of a file that no other process uses. */
std::string file_for(const char *who)
{
    return std::string(g_get_tmp_dir()) + "/bench-debug-" + std::to_string(getpid()) + "-" + who;
}

/** A domain with a flag that writes to a file, and one that is off. */
VekDebugDomain *debug_domain()
{
    static VekDebugDomain *const domain = [] {
        vek_debug_initialize(nullptr, nullptr);
        vek_debug_add_domain("bench", flags);
        const std::string path = file_for("veklib");
        vek_debug_set_output_setting("on", path.c_str());
        remove(path.c_str());
        return vek_debug_get_domain("bench");
    }();
    return domain;
}

void off(benchmark::State &state, int size)
{
    const VekDebugDomain *const domain = debug_domain();
    for (auto _ : state) { vek_debug_print(domain, is_off, "%d bytes to %s\n", size, "gateway"); }
}

void off_glib(benchmark::State &state, int size)
{
    for (auto _ : state) { g_debug("%d bytes to %s\n", size, "gateway"); }
}

void on(benchmark::State &state, int size)
{
    const VekDebugDomain *const domain = debug_domain();
    for (auto _ : state) { vek_debug_print(domain, to_file, "%d bytes to %s\n", size, "gateway"); }
}

void on_stdio(benchmark::State &state, int size)
{
    const std::string path = file_for("stdio");
    FILE *const file = fopen(path.c_str(), "wb");
    remove(path.c_str());
    for (auto _ : state) {
        fprintf(file, "%d bytes to %s\n", size, "gateway");
        fflush(file);
    }
    fclose(file);
}

void take(const char *text, void *) { benchmark::DoNotOptimize(text); }

void function(benchmark::State &state, int size)
{
    VekDebugDomain *const domain = debug_domain();
    vek_debug_set_print_function(domain, take, nullptr);
    for (auto _ : state) { vek_debug_print(domain, to_file, "%d bytes to %s\n", size, "gateway"); }
    vek_debug_set_print_function(domain, nullptr, nullptr);
}

void function_glib(benchmark::State &state, int size)
{
    const guint handler = g_log_set_handler(
        "bench", G_LOG_LEVEL_DEBUG,
        [](const char *, GLogLevelFlags, const char *text, void *) { take(text, nullptr); },
        nullptr);
    for (auto _ : state) { g_debug("%d bytes to %s\n", size, "gateway"); }
    g_log_remove_handler("bench", handler);
}

[[gnu::noinline, gnu::format(printf, 1, 2)]] void format_and_take(const char *format, ...)
{
    char text[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    take(text, nullptr);
}

void function_stdio(benchmark::State &state, int size)
{
    for (auto _ : state) { format_and_take("%d bytes to %s\n", size, "gateway"); }
}

const char *const place = "interface-7919.state";

void error_veklib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        VekError *const err = VEK_ERROR_CREATE(VEK_ERROR_IO, "no file %d", size);
        vek_error_append_msg(err, " in %s", place);
        vek_error_destroy(err);
    }
}

void error_glib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        GError *error = g_error_new(1, VEK_ERROR_IO, "no file %d", size);
        g_prefix_error(&error, "in %s: ", place);
        g_error_free(error);
    }
}

[[maybe_unused]] const int registered[] = {
    bench::add("debug print, off", "veklib", off, {1}),
    bench::add("debug print, off", "g_debug", off_glib, {1}),
    bench::add("debug print, to a file", "veklib", on, {1}),
    bench::add("debug print, to a file", "fprintf", on_stdio, {1}),
    bench::add("debug print, to a function", "veklib", function, {1}),
    bench::add("debug print, to a function", "vsnprintf", function_stdio, {1}),
    bench::add("debug print, to a function", "g_log", function_glib, {1}),
    bench::add("error create+append+destroy", "veklib", error_veklib, {1}),
    bench::add("error create+append+destroy", "GError", error_glib, {1}),
};

} // namespace
