/* SPDX-License-Identifier: MIT */
#include "jobs.h"

#include <apr_general.h>
#include <apr_tables.h>
#include <glib-object.h>
#include <json-c/json.h>
#include <veklib/vekintdict.h>
#include <veklib/vekstrdict.h>

using bench::Round;
using bench::texts;

namespace {

GHashTable *table_of_values(bool of_text, int size)
{
    GHashTable *const table = of_text ? g_hash_table_new(g_str_hash, g_str_equal) : g_hash_table_new(nullptr, nullptr);
    for (int i = 0; i < size; ++i) {
        auto *const value = g_new0(GValue, 1);
        g_value_set_int(g_value_init(value, G_TYPE_INT), i);
        void *const key = of_text ? const_cast<char *>(texts(size)[static_cast<size_t>(i)].c_str()) : bench::word(i);
        g_hash_table_insert(table, key, value);
    }
    return table;
}

void get_by_string_veklib(benchmark::State &state, int size)
{
    const std::vector<std::string> copies = texts(size);
    VekDict *const dict = vek_str_dict_create(size);
    for (int i = 0; i < size; ++i) { vek_str_dict_put_int(dict, copies[static_cast<size_t>(i)].c_str(), i); }
    Round round(size);
    for (auto _ : state) {
        benchmark::DoNotOptimize(vek_str_dict_get_int(dict, copies[static_cast<size_t>(round.next())].c_str()));
    }
    vek_dict_destroy(dict);
}

void get_by_string_glib(benchmark::State &state, int size)
{
    const std::vector<std::string> copies = texts(size);
    GHashTable *const table = table_of_values(true, size);
    Round round(size);
    for (auto _ : state) {
        const void *const key = copies[static_cast<size_t>(round.next())].c_str();
        benchmark::DoNotOptimize(g_value_get_int(static_cast<GValue *>(g_hash_table_lookup(table, key))));
    }
    g_hash_table_destroy(table);
}

void get_by_string_apr(benchmark::State &state, int size)
{
    const std::vector<std::string> copies = texts(size);
    static const apr_status_t started = apr_initialize();
    apr_pool_t *pool = nullptr;
    if (started != 0 || apr_pool_create(&pool, nullptr) != 0) { return; }
    apr_table_t *const table = apr_table_make(pool, size);
    for (int i = 0; i < size; ++i) { apr_table_set(table, copies[static_cast<size_t>(i)].c_str(), "1"); }
    Round round(size);
    for (auto _ : state) {
        benchmark::DoNotOptimize(apr_table_get(table, copies[static_cast<size_t>(round.next())].c_str()));
    }
    apr_pool_destroy(pool);
}

void get_by_string_json(benchmark::State &state, int size)
{
    const std::vector<std::string> copies = texts(size);
    json_object *const object = json_object_new_object();
    for (int i = 0; i < size; ++i) {
        json_object_object_add(object, copies[static_cast<size_t>(i)].c_str(), json_object_new_int(i));
    }
    Round round(size);
    for (auto _ : state) {
        json_object *found = nullptr;
        json_object_object_get_ex(object, copies[static_cast<size_t>(round.next())].c_str(), &found);
        benchmark::DoNotOptimize(json_object_get_int(found));
    }
    json_object_put(object);
}

void get_by_integer_veklib(benchmark::State &state, int size)
{
    VekDict *const dict = vek_int_dict_create(size);
    for (int i = 0; i < size; ++i) { vek_int_dict_put_int(dict, i, i); }
    Round round(size);
    for (auto _ : state) { benchmark::DoNotOptimize(vek_int_dict_get_int(dict, round.next())); }
    vek_dict_destroy(dict);
}

void get_by_integer_glib(benchmark::State &state, int size)
{
    GHashTable *const table = table_of_values(false, size);
    Round round(size);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            g_value_get_int(static_cast<GValue *>(g_hash_table_lookup(table, bench::word(round.next())))));
    }
    g_hash_table_destroy(table);
}

void copy_veklib(benchmark::State &state, int size)
{
    VekValue value;
    vek_value_set_string(&value, texts(size)[0].c_str());
    for (auto _ : state) {
        VekValue copy;
        vek_value_copy(&copy, &value);
        benchmark::DoNotOptimize(vek_value_equal(&copy, &value));
        vek_value_release(&copy);
    }
    vek_value_release(&value);
}

void copy_glib(benchmark::State &state, int size)
{
    GValue value = G_VALUE_INIT;
    g_value_set_string(g_value_init(&value, G_TYPE_STRING), texts(size)[0].c_str());
    for (auto _ : state) {
        GValue copy = G_VALUE_INIT;
        g_value_copy(&value, g_value_init(&copy, G_TYPE_STRING));
        benchmark::DoNotOptimize(g_strcmp0(g_value_get_string(&copy), g_value_get_string(&value)));
        g_value_unset(&copy);
    }
    g_value_unset(&value);
}

[[maybe_unused]] const int registered[] = {
    bench::add("dictionary get by string", "veklib", get_by_string_veklib, {5, 10, 50, 200}),
    bench::add("dictionary get by string", "GHashTable of GValue", get_by_string_glib, {5, 10, 50, 200}),
    bench::add("dictionary get by string", "apr_table", get_by_string_apr, {5, 10, 50, 200}),
    bench::add("dictionary get by string", "json-c", get_by_string_json, {5, 10, 50, 200}),
    bench::add("dictionary get by integer", "veklib", get_by_integer_veklib, {5, 10, 50, 200}),
    bench::add("dictionary get by integer", "GHashTable of GValue", get_by_integer_glib, {5, 10, 50, 200}),
    bench::add("value copy+compare", "veklib", copy_veklib, {1}),
    bench::add("value copy+compare", "GValue", copy_glib, {1}),
};

} // namespace
