/* SPDX-License-Identifier: MIT */
/* Values, and dictionaries of them with string and with integer keys. */
#include "contenders.h"
#include "jobs.h"

#include <cstdio>
#include <cstdlib>
#include <map>

#include <apr_general.h>
#include <apr_tables.h>
#include <json-c/json.h>

using bench::Round;
using bench::Variant;

namespace {

/* ---- Each contender puts an integer under a key, which it copies, and gets the integer ---- */

struct GlibStrings : bench::Owner {
    GHashTable *table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, bench::free_gvalue);
    ~GlibStrings() { g_hash_table_destroy(table); }
    void put(const char *key, int value)
    {
        g_hash_table_insert(table, g_strdup(key), bench::new_gvalue(value));
    }
    int get(const char *key) const
    {
        return g_value_get_int(static_cast<GValue *>(g_hash_table_lookup(table, key)));
    }
};

struct GlibIntegers : bench::Owner {
    GHashTable *table = g_hash_table_new_full(nullptr, nullptr, nullptr, bench::free_gvalue);
    ~GlibIntegers() { g_hash_table_destroy(table); }
    void put(int key, int value)
    {
        g_hash_table_insert(table, bench::word(key), bench::new_gvalue(value));
    }
    int get(int key) const
    {
        return g_value_get_int(static_cast<GValue *>(g_hash_table_lookup(table, bench::word(key))));
    }
};

/** APR's table, whose values can only be texts. */
struct AprStrings : bench::Owner {
    apr_pool_t *pool = [] {
        static const apr_status_t started = apr_initialize();
        apr_pool_t *made = nullptr;
        apr_pool_create(&made, nullptr);
        return started == 0 ? made : nullptr;
    }();
    apr_table_t *table = apr_table_make(pool, 10);
    ~AprStrings() { apr_pool_destroy(pool); }
    void put(const char *key, int value)
    {
        char text[12];
        snprintf(text, sizeof text, "%d", value);
        apr_table_set(table, key, text);
    }
    int get(const char *key) const { return atoi(apr_table_get(table, key)); }
};

struct JsonStrings : bench::Owner {
    json_object *object = json_object_new_object();
    ~JsonStrings() { json_object_put(object); }
    void put(const char *key, int value)
    {
        json_object_object_add(object, key, json_object_new_int(value));
    }
    int get(const char *key) const
    {
        json_object *found = nullptr;
        json_object_object_get_ex(object, key, &found);
        return json_object_get_int(found);
    }
};

struct StdStrings {
    std::map<std::string, Variant, std::less<>> map;
    void put(const char *key, int value)
    {
        const auto found = map.find(key);
        if (found != map.end()) {
            found->second = value;
        } else {
            map.emplace(key, value);
        }
    }
    int get(const char *key) const { return std::get<int>(map.find(key)->second); }
};

struct StdIntegers {
    std::map<int, Variant> map;
    void put(int key, int value) { map[key] = value; }
    int get(int key) const { return std::get<int>(map.find(key)->second); }
};

struct TextKeys {
    std::vector<std::string> strings;
    std::vector<const char *> all;
    explicit TextKeys(int size) : strings(bench::texts(size)), all(bench::pointers(strings)) {}
};

struct IntegerKeys {
    std::vector<int> all;
    explicit IntegerKeys(int size)
    {
        for (int i = 0; i < size; ++i) { all.push_back(i); }
    }
};

template <class Dict, class Keys>
void put_all(Dict &dict, const Keys &keys)
{
    int value = 0;
    for (const auto key : keys.all) { dict.put(key, ++value); }
}

template <class Dict, class Keys>
void get(benchmark::State &state, int size)
{
    const Keys stored(size);
    const Keys others(size);
    const auto searched = bench::shuffled(others.all);
    Dict dict;
    put_all(dict, stored);
    Round round(size);
    for (auto _ : state) { benchmark::DoNotOptimize(dict.get(searched[round.next()])); }
}

template <class Dict, class Keys>
void fill(benchmark::State &state, int size)
{
    const Keys keys(size);
    bench::timed<Dict>(
        state, size, [](Dict &) {}, [&keys](Dict &dict) { put_all(dict, keys); });
}

template <class Dict, class Keys>
void replace(benchmark::State &state, int size)
{
    const Keys stored(size);
    const Keys searched(size);
    bench::timed<Dict>(
        state, size, [&stored](Dict &dict) { put_all(dict, stored); },
        [&searched](Dict &dict) { put_all(dict, searched); });
}

template <class Dict, class Keys>
int add(const char *who)
{
    const std::string by = std::is_same_v<Keys, TextKeys> ? " by string" : " by integer";
    const auto sizes = {5, 10, 50, 200};
    bench::add("dictionary get" + by, who, get<Dict, Keys>, sizes);
    bench::add("dictionary fill" + by, who, fill<Dict, Keys>, sizes, bench::Runs::timed_by_job);
    return bench::add("dictionary replace" + by, who, replace<Dict, Keys>, sizes,
                      bench::Runs::timed_by_job);
}

/* ---- Values ---- */

void copy_veklib(benchmark::State &state, int)
{
    VekValue value;
    vek_value_set_string(&value, "interface-7919.state");
    for (auto _ : state) {
        VekValue copy;
        vek_value_copy(&copy, &value);
        benchmark::DoNotOptimize(vek_value_equal(&copy, &value));
        vek_value_release(&copy);
    }
    vek_value_release(&value);
}

void copy_glib(benchmark::State &state, int)
{
    GValue value = G_VALUE_INIT;
    g_value_set_string(g_value_init(&value, G_TYPE_STRING), "interface-7919.state");
    for (auto _ : state) {
        GValue copy = G_VALUE_INIT;
        g_value_copy(&value, g_value_init(&copy, G_TYPE_STRING));
        benchmark::DoNotOptimize(g_strcmp0(g_value_get_string(&copy), g_value_get_string(&value)));
        g_value_unset(&copy);
    }
    g_value_unset(&value);
}

void copy_json(benchmark::State &state, int)
{
    json_object *const value = json_object_new_string("interface-7919.state");
    for (auto _ : state) {
        json_object *copy = nullptr;
        json_object_deep_copy(value, &copy, nullptr);
        benchmark::DoNotOptimize(json_object_equal(copy, value));
        json_object_put(copy);
    }
    json_object_put(value);
}

void copy_std(benchmark::State &state, int)
{
    const Variant value = "interface-7919.state";
    for (auto _ : state) {
        Variant copy = value;
        benchmark::DoNotOptimize(copy);
        benchmark::DoNotOptimize(copy == value);
    }
}

[[maybe_unused]] const int registered[] = {
    add<bench::VekTexts, TextKeys>("veklib"),
    add<GlibStrings, TextKeys>("GHashTable of GValue"),
    add<AprStrings, TextKeys>("apr_table"),
    add<JsonStrings, TextKeys>("json-c"),
    add<StdStrings, TextKeys>("std::map"),
    add<bench::VekIntegers, IntegerKeys>("veklib"),
    add<GlibIntegers, IntegerKeys>("GHashTable of GValue"),
    add<StdIntegers, IntegerKeys>("std::map"),
    bench::add("value copy+compare", "veklib", copy_veklib, {1}),
    bench::add("value copy+compare", "GValue", copy_glib, {1}),
    bench::add("value copy+compare", "json-c", copy_json, {1}),
    bench::add("value copy+compare", "std::variant", copy_std, {1}),
};

} // namespace
