/* SPDX-License-Identifier: MIT */
#include "jobs.h"

#include <forward_list>
#include <unordered_map>

#include <apr_general.h>
#include <apr_hash.h>
#include <glib.h>
#include <veklib/vekhash.h>
#include <veklib/vekname.h>
#include <veklib/vekslist.h>

using bench::Round;
using bench::texts;
using bench::word;

namespace {

/* ---- Lists: built by prepending, walked, released ---- */

void list_veklib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        VekSList *list = nullptr;
        for (int i = 0; i < size; ++i) { list = vek_slist_prepend(list, word(i)); }
        intptr_t sum = 0;
        for (const VekSList *node = list; node != nullptr; node = node->next) {
            sum += reinterpret_cast<intptr_t>(node->data);
        }
        benchmark::DoNotOptimize(sum);
        vek_slist_free(list, nullptr);
    }
}

void list_glib(benchmark::State &state, int size)
{
    for (auto _ : state) {
        GSList *list = nullptr;
        for (int i = 0; i < size; ++i) { list = g_slist_prepend(list, word(i)); }
        intptr_t sum = 0;
        for (const GSList *node = list; node != nullptr; node = node->next) {
            sum += reinterpret_cast<intptr_t>(node->data);
        }
        benchmark::DoNotOptimize(sum);
        g_slist_free(list);
    }
}

void list_std(benchmark::State &state, int size)
{
    for (auto _ : state) {
        std::forward_list<void *> list;
        for (int i = 0; i < size; ++i) { list.push_front(word(i)); }
        intptr_t sum = 0;
        for (void *data : list) { sum += reinterpret_cast<intptr_t>(data); }
        benchmark::DoNotOptimize(sum);
    }
}

/* ---- Hash tables. Each contender: make, put, get, release; integer and string keys. ---- */

// The same hash and equality for all: those of GLib, whose types fit.
constexpr auto hash_text = g_str_hash;
constexpr auto equal_text = g_str_equal;

template <bool of_text>
struct Vek {
    VekHash *hash = of_text ? vek_hash_new_full(hash_text, equal_text, nullptr, nullptr) : vek_hash_new();
    ~Vek() { vek_hash_destroy(hash); }
    void put(void *key, void *value) { vek_hash_insert(hash, key, value); }
    void *get(void *key) { return vek_hash_lookup(hash, key); }
};

template <bool of_text>
struct Glib {
    GHashTable *hash = of_text ? g_hash_table_new(hash_text, equal_text) : g_hash_table_new(nullptr, nullptr);
    ~Glib() { g_hash_table_destroy(hash); }
    void put(void *key, void *value) { g_hash_table_insert(hash, key, value); }
    void *get(void *key) { return g_hash_table_lookup(hash, key); }
};

template <bool of_text>
struct Apr {
    apr_pool_t *pool = [] {
        static const apr_status_t started = apr_initialize();
        apr_pool_t *made = nullptr;
        apr_pool_create(&made, nullptr);
        return started == 0 ? made : nullptr;
    }();
    apr_hash_t *hash = apr_hash_make(pool);
    ~Apr() { apr_pool_destroy(pool); }
    /* Keys are stored by address: integers lie in an array of their own. */
    static void *stored(void *key)
    {
        static std::vector<intptr_t> integers;
        if (of_text) { return key; }
        const auto number = reinterpret_cast<intptr_t>(key);
        while (static_cast<intptr_t>(integers.size()) < 100000) {
            integers.push_back(static_cast<intptr_t>(integers.size()));
        }
        return &integers[static_cast<size_t>(number)];
    }
    static constexpr apr_ssize_t length = of_text ? APR_HASH_KEY_STRING : sizeof(intptr_t);
    void put(void *key, void *value) { apr_hash_set(hash, stored(key), length, value); }
    void *get(void *key) { return apr_hash_get(hash, stored(key), length); }
};

template <bool of_text>
struct Std {
    struct Equal {
        bool operator()(const void *a, const void *b) const { return of_text ? equal_text(a, b) : a == b; }
    };
    struct Hash {
        size_t operator()(const void *key) const { return of_text ? hash_text(key) : reinterpret_cast<size_t>(key); }
    };
    std::unordered_map<const void *, void *, Hash, Equal> hash;
    void put(void *key, void *value) { hash[key] = value; }
    void *get(void *key)
    {
        const auto found = hash.find(key);
        return found != hash.end() ? found->second : nullptr;
    }
};

/** The keys, as pointers. For strings they are stored and searched in different copies. */
template <bool of_text>
std::vector<void *> keys(int size, const std::vector<std::string> &copies)
{
    std::vector<void *> result;
    for (int i = 0; i < size; ++i) {
        result.push_back(of_text ? const_cast<char *>(copies[static_cast<size_t>(i)].c_str()) : word(i));
    }
    return result;
}

template <template <bool> class Table, bool of_text>
void hit(benchmark::State &state, int size)
{
    const std::vector<std::string> copies = texts(size);
    const std::vector<void *> stored = keys<of_text>(size, texts(size));
    const std::vector<void *> searched = keys<of_text>(size, copies);
    Table<of_text> table;
    for (void *key : stored) { table.put(key, &table); }
    Round round(size);
    for (auto _ : state) { benchmark::DoNotOptimize(table.get(searched[static_cast<size_t>(round.next())])); }
}

template <template <bool> class Table, bool of_text>
void fill(benchmark::State &state, int size)
{
    const std::vector<void *> stored = keys<of_text>(size, texts(size));
    for (auto _ : state) {
        Table<of_text> table;
        for (void *key : stored) { table.put(key, &table); }
        benchmark::DoNotOptimize(table.hash);
    }
}

/* ---- Interning ---- */

void intern_veklib(benchmark::State &state, int size)
{
    VekNameTable *table = vek_name_table_create(nullptr);
    for (int i = 0; i < size; ++i) { vek_name_from_string(table, texts(size)[static_cast<size_t>(i)].c_str(), i); }
    Round round(size);
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            vek_name_from_string(table, texts(size)[static_cast<size_t>(round.next())].c_str(), 0));
    }
    vek_name_table_destroy(&table);
}

void intern_glib(benchmark::State &state, int size)
{
    for (int i = 0; i < size; ++i) { g_intern_string(texts(size)[static_cast<size_t>(i)].c_str()); }
    Round round(size);
    for (auto _ : state) {
        benchmark::DoNotOptimize(g_intern_string(texts(size)[static_cast<size_t>(round.next())].c_str()));
    }
}

[[maybe_unused]] const int registered[] = {
    bench::add("list", "veklib", list_veklib, {10, 100, 1000}),
    bench::add("list", "GSList", list_glib, {10, 100, 1000}),
    bench::add("list", "std::forward_list", list_std, {10, 100, 1000}),
#define HASH_JOBS(job, run, of_text)                                                                                   \
    bench::add(job, "veklib", run<Vek, of_text>, {10, 100, 1000, 100000}),                                             \
        bench::add(job, "GHashTable", run<Glib, of_text>, {10, 100, 1000, 100000}),                                    \
        bench::add(job, "apr_hash", run<Apr, of_text>, {10, 100, 1000, 100000}),                                       \
        bench::add(job, "std::unordered_map", run<Std, of_text>, {10, 100, 1000, 100000})
    HASH_JOBS("hash hit, integers", hit, false),
    HASH_JOBS("hash hit, strings", hit, true),
    HASH_JOBS("hash fill, integers", fill, false),
    bench::add("intern existing", "veklib", intern_veklib, {10, 100, 1000, 100000}),
    bench::add("intern existing", "g_intern_string", intern_glib, {10, 100, 1000, 100000}),
};

} // namespace
