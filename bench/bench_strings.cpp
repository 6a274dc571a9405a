/* SPDX-License-Identifier: MIT */
/* Shared strings. */
#include "jobs.h"

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <glib.h>
#include <talloc.h>
#include <veklib/vekstr.h>

namespace {

const char *const text = "interface-7919.state";

/* ---- Create and release ---- */

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

void create_talloc(benchmark::State &state, int)
{
    for (auto _ : state) {
        char *string = talloc_strdup(nullptr, text);
        benchmark::DoNotOptimize(string);
        talloc_free(string);
    }
}

void create_std(benchmark::State &state, int)
{
    for (auto _ : state) {
        auto string = std::make_shared<std::string>(text);
        benchmark::DoNotOptimize(string);
    }
}

/* ---- One more reference and back ---- */

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

void ref_std(benchmark::State &state, int)
{
    const auto string = std::make_shared<std::string>(text);
    for (auto _ : state) {
        auto other = string;
        benchmark::DoNotOptimize(other);
    }
}

/* ---- Formatting ---- */

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

void format_libc(benchmark::State &state, int size)
{
    for (auto _ : state) {
        char *string = nullptr;
        if (asprintf(&string, "%s-%d", text, size) < 0) { abort(); }
        benchmark::DoNotOptimize(string);
        free(string);
    }
}

void format_talloc(benchmark::State &state, int size)
{
    for (auto _ : state) {
        char *string = talloc_asprintf(nullptr, "%s-%d", text, size);
        benchmark::DoNotOptimize(string);
        talloc_free(string);
    }
}

/* ---- Appending, `size` times to an empty string ---- */

void append_veklib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        VekStr *vekstr = vek_str_create("");
        for (int i = 0; i < size; ++i) { vek_str_append_c_str(&vekstr, "eth0,"); }
        benchmark::DoNotOptimize(vekstr);
        vek_str_unref(vekstr);
    }
    state.SetItemsProcessed(state.iterations() * size);
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
    state.SetItemsProcessed(state.iterations() * size);
}

void append_talloc(benchmark::State &state, int size)
{
    for (auto _ : state) {
        char *string = talloc_strdup(nullptr, "");
        for (int i = 0; i < size; ++i) { string = talloc_strdup_append(string, "eth0,"); }
        benchmark::DoNotOptimize(string);
        talloc_free(string);
    }
    state.SetItemsProcessed(state.iterations() * size);
}

[[maybe_unused]] const int registered[] = {
    bench::add("string create+unref", "veklib", create_veklib, {20}),
    bench::add("string create+unref", "GRefString", create_glib, {20}),
    bench::add("string create+unref", "talloc_strdup", create_talloc, {20}),
    bench::add("string create+unref", "std::shared_ptr", create_std, {20}),
    bench::add("string ref+unref", "veklib", ref_veklib, {20}),
    bench::add("string ref+unref", "GRefString", ref_glib, {20}),
    bench::add("string ref+unref", "std::shared_ptr", ref_std, {20}),
    bench::add("printf-create", "veklib", format_veklib, {20}),
    bench::add("printf-create", "g_strdup_printf", format_glib, {20}),
    bench::add("printf-create", "asprintf", format_libc, {20}),
    bench::add("printf-create", "talloc_asprintf", format_talloc, {20}),
    bench::add("append", "veklib", append_veklib, {4, 16, 64}),
    bench::add("append", "g_strconcat", append_glib, {4, 16, 64}),
    bench::add("append", "talloc_strdup_append", append_talloc, {4, 16, 64}),
};

} // namespace
