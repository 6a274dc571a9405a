/* SPDX-License-Identifier: MIT */
#include "jobs.h"

#include <glib.h>
#include <veklib/vekerror.h>
#include <veklib/vekstr.h>

namespace {

const char *const text = "interface-7919.state";

void create_veklib(benchmark::State &state, int)
{
    for (auto _ : state) {
        VekStr *vekstr = vek_str_create(text);
        benchmark::DoNotOptimize(vekstr);
        vek_str_unref(vekstr);
    }
}

void create_glib(benchmark::State &state, int)
{
    for (auto _ : state) {
        char *string = g_ref_string_new(text);
        benchmark::DoNotOptimize(string);
        g_ref_string_release(string);
    }
}

void ref_veklib(benchmark::State &state, int)
{
    VekStr *const vekstr = vek_str_create(text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(vek_str_ref(vekstr));
        vek_str_unref(vekstr);
    }
    vek_str_unref(vekstr);
}

void ref_glib(benchmark::State &state, int)
{
    char *const string = g_ref_string_new(text);
    for (auto _ : state) {
        benchmark::DoNotOptimize(g_ref_string_acquire(string));
        g_ref_string_release(string);
    }
    g_ref_string_release(string);
}

void format_veklib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        VekStr *vekstr = vek_str_create_printf("%s-%d", text, size);
        benchmark::DoNotOptimize(vekstr);
        vek_str_unref(vekstr);
    }
}

void format_glib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        char *string = g_strdup_printf("%s-%d", text, size);
        benchmark::DoNotOptimize(string);
        g_free(string);
    }
}

void append_veklib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        VekStr *vekstr = vek_str_create("");
        for (int i = 0; i < size; ++i) { vek_str_append_c_str(&vekstr, "eth0,"); }
        benchmark::DoNotOptimize(vekstr);
        vek_str_unref(vekstr);
    }
}

void append_glib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        char *string = g_strdup("");
        for (int i = 0; i < size; ++i) {
            char *const longer = g_strconcat(string, "eth0,", nullptr);
            g_free(string);
            string = longer;
        }
        benchmark::DoNotOptimize(string);
        g_free(string);
    }
}

void error_veklib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        VekError *const err = VEK_ERROR_CREATE(VEK_ERROR_IO, "no file %d", size);
        vek_error_append_msg(err, " in %s", text);
        vek_error_destroy(err);
    }
}

void error_glib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        GError *error = g_error_new(1, VEK_ERROR_IO, "no file %d", size);
        g_prefix_error(&error, "in %s: ", text);
        g_error_free(error);
    }
}

[[maybe_unused]] const int registered[] = {
    bench::add("string create+unref", "veklib", create_veklib, {20}),
    bench::add("string create+unref", "GRefString", create_glib, {20}),
    bench::add("string ref+unref", "veklib", ref_veklib, {20}),
    bench::add("string ref+unref", "GRefString", ref_glib, {20}),
    bench::add("printf-create", "veklib", format_veklib, {20}),
    bench::add("printf-create", "g_strdup_printf", format_glib, {20}),
    bench::add("append", "veklib", append_veklib, {4, 64}),
    bench::add("append", "g_strconcat", append_glib, {4, 64}),
    bench::add("error create+append+destroy", "veklib", error_veklib, {1}),
    bench::add("error create+append+destroy", "GError", error_glib, {1}),
};

} // namespace
