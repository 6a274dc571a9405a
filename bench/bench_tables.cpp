/* SPDX-License-Identifier: MIT */
/* Hash tables with integer and with string keys. All use the same hash and equality functions for
 * texts, except APR and uthash, which bring their own. In the jobs with own functions, veklib and
 * GLib use theirs, too, and veklib's are also passed in where it cannot recognise them. */
#include "jobs.h"

#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include <apr_general.h>
#include <apr_hash.h>
#include <glib.h>
#include <uthash.h>
#include <veklib/vekhash.h>

using bench::Round;
using bench::word;

namespace {

/** FNV-1a. Its low bits vary, as tables need whose sizes are powers of two. */
uint32_t hash_text(const void *key)
{
    uint32_t hash = 2166136261;
    for (auto *c = static_cast<const unsigned char *>(key); *c != '\0'; ++c) {
        hash = (hash ^ *c) * 16777619;
    }
    return hash;
}

int equal_text(const void *a, const void *b)
{
    return strcmp(static_cast<const char *>(a), static_cast<const char *>(b)) == 0;
}

/* The library's own functions at other addresses. The equality function is written out, so that a
 * comparison costs no more calls than with the original. */

uint32_t passed_hash(const void *key) { return vek_hash_string_hash_func(key); }

int passed_equal(const void *a, const void *b)
{
    if (a == nullptr || b == nullptr) { return a == b; }
    return *static_cast<const char *>(a) == *static_cast<const char *>(b) && equal_text(a, b);
}

/* Each contender puts, gets and removes keys, and adds up the values. Keys are numbers, or pointers
 * to texts. */

template <VekHashFunc hash_func, VekEqualFunc equal_func>
struct Vek {
    VekHash *hash = vek_hash_new_full(hash_func, equal_func, nullptr, nullptr);
    ~Vek() { vek_hash_destroy(hash); }
    void put(void *key, void *value) { vek_hash_insert(hash, key, value); }
    void *get(void *key) const { return vek_hash_lookup(hash, key); }
    void remove(void *key) { vek_hash_remove(hash, key); }
    intptr_t sum() const
    {
        intptr_t result = 0;
        vek_hash_foreach(
            hash,
            [](void *, void *value, void *into) {
                *static_cast<intptr_t *>(into) += reinterpret_cast<intptr_t>(value);
                return 0;
            },
            &result);
        return result;
    }
};

template <GHashFunc hash_func, GEqualFunc equal_func>
struct Glib {
    GHashTable *hash = g_hash_table_new(hash_func, equal_func);
    ~Glib() { g_hash_table_destroy(hash); }
    void put(void *key, void *value) { g_hash_table_insert(hash, key, value); }
    void *get(void *key) const { return g_hash_table_lookup(hash, key); }
    void remove(void *key) { g_hash_table_remove(hash, key); }
    intptr_t sum() const
    {
        intptr_t result = 0;
        g_hash_table_foreach(
            hash,
            [](void *, void *value, void *into) {
                *static_cast<intptr_t *>(into) += reinterpret_cast<intptr_t>(value);
            },
            &result);
        return result;
    }
};

template <bool of_text>
struct Apr {
    static constexpr bool keys_by_address = !of_text;
    static constexpr apr_ssize_t length = of_text ? APR_HASH_KEY_STRING : sizeof(intptr_t);
    apr_pool_t *pool = [] {
        static const apr_status_t started = apr_initialize();
        apr_pool_t *made = nullptr;
        apr_pool_create(&made, nullptr);
        return started == 0 ? made : nullptr;
    }();
    apr_hash_t *hash = apr_hash_make(pool);
    ~Apr() { apr_pool_destroy(pool); }
    void put(void *key, void *value) { apr_hash_set(hash, key, length, value); }
    void *get(void *key) const { return apr_hash_get(hash, key, length); }
    void remove(void *key) { apr_hash_set(hash, key, length, nullptr); }
    intptr_t sum() const
    {
        intptr_t result = 0;
        apr_hash_do(
            [](void *into, const void *, apr_ssize_t, const void *value) {
                *static_cast<intptr_t *>(into) += reinterpret_cast<intptr_t>(value);
                return 1;
            },
            &result, hash);
        return result;
    }
};

template <bool of_text>
struct Std {
    struct Equal {
        bool operator()(const void *a, const void *b) const
        {
            return of_text ? equal_text(a, b) : a == b;
        }
    };
    struct Hash {
        // If this is noexcept, the nodes do not store the hash; for texts they should store it.
        size_t operator()(const void *key) const noexcept(!of_text)
        {
            return of_text ? hash_text(key) : reinterpret_cast<size_t>(key);
        }
    };
    std::unordered_map<const void *, void *, Hash, Equal> hash;
    void put(void *key, void *value) { hash[key] = value; }
    void *get(void *key) const
    {
        const auto found = hash.find(key);
        return found != hash.end() ? found->second : nullptr;
    }
    void remove(void *key) { hash.erase(key); }
    intptr_t sum() const
    {
        intptr_t result = 0;
        for (const auto &[key, value] : hash) { result += reinterpret_cast<intptr_t>(value); }
        return result;
    }
};

template <bool of_text>
struct Ut {
    struct Entry {
        void *key;
        void *value;
        UT_hash_handle hh;
    };
    Entry *hash = nullptr;
    ~Ut()
    {
        Entry *entry;
        Entry *next;
        HASH_ITER(hh, hash, entry, next)
        {
            HASH_DEL(hash, entry);
            free(entry);
        }
    }
    static const void *bytes(void *const &key) { return of_text ? key : &key; }
    static size_t length(void *const &key)
    {
        return of_text ? strlen(static_cast<char *>(key)) : sizeof key;
    }
    Entry *find(void *key) const
    {
        const size_t size = length(key);
        Entry *found;
        HASH_FIND(hh, hash, bytes(key), size, found);
        return found;
    }
    void put(void *key, void *value)
    {
        const size_t size = length(key);
        unsigned hashed;
        HASH_VALUE(bytes(key), size, hashed);
        Entry *entry;
        HASH_FIND_BYHASHVALUE(hh, hash, bytes(key), size, hashed, entry);
        if (entry == nullptr) {
            entry = static_cast<Entry *>(malloc(sizeof *entry));
            entry->key = key;
            HASH_ADD_KEYPTR_BYHASHVALUE(hh, hash, bytes(entry->key), size, hashed, entry);
        }
        entry->value = value;
    }
    void *get(void *key) const
    {
        const Entry *const found = find(key);
        return found != nullptr ? found->value : nullptr;
    }
    void remove(void *key)
    {
        Entry *const found = find(key);
        HASH_DEL(hash, found);
        free(found);
    }
    intptr_t sum() const
    {
        intptr_t result = 0;
        for (const Entry *entry = hash; entry != nullptr;
             entry = static_cast<Entry *>(entry->hh.next)) {
            result += reinterpret_cast<intptr_t>(entry->value);
        }
        return result;
    }
};

/** The heap of each contender begins in the same state: large tables take twice the time in a heap
 *  that others have cut up. */
void prepare_heap() { bench::prepare_heap(64 << 20); }

/** `size` keys, from number `first` on, in the form that a contender takes. Each object of this
 *  class has copies of its own. */
template <class Table, bool of_text>
struct Keys {
    std::vector<std::string> strings;
    std::vector<intptr_t> numbers;
    std::vector<void *> all;

    explicit Keys(int size, int first = 0)
    {
        if (of_text) { strings = bench::texts(size, first); }
        for (int i = first; i < first + size; ++i) { numbers.push_back(i); }
        for (size_t i = 0; i < numbers.size(); ++i) {
            if constexpr (of_text) {
                all.push_back(strings[i].data());
            } else if constexpr (requires { Table::keys_by_address; }) {
                all.push_back(&numbers[i]);
            } else {
                all.push_back(word(numbers[i]));
            }
        }
    }
};

template <class Table, bool of_text>
void look_up(benchmark::State &state, int size, int first_searched)
{
    prepare_heap();
    const Keys<Table, of_text> stored(size);
    const Keys<Table, of_text> others(size, first_searched);
    const std::vector<void *> searched = bench::shuffled(others.all);
    Table table;
    for (void *key : stored.all) { table.put(key, &table); }
    Round round(size);
    for (auto _ : state) { benchmark::DoNotOptimize(table.get(searched[round.next()])); }
}

template <class Table, bool of_text>
void hit(benchmark::State &state, int size)
{
    look_up<Table, of_text>(state, size, 0);
}

template <class Table, bool of_text>
void miss(benchmark::State &state, int size)
{
    look_up<Table, of_text>(state, size, size);
}

template <class Table, bool of_text>
void insert(benchmark::State &state, int size)
{
    prepare_heap();
    const Keys<Table, of_text> stored(size);
    bench::timed<Table>(
        state, size, [](Table &) {},
        [&stored](Table &table) {
            for (void *key : stored.all) { table.put(key, &table); }
        });
}

template <class Table, bool of_text>
void remove(benchmark::State &state, int size)
{
    prepare_heap();
    const Keys<Table, of_text> stored(size);
    const std::vector<void *> removed = bench::shuffled(stored.all);
    bench::timed<Table>(
        state, size,
        [&stored](Table &table) {
            for (void *key : stored.all) { table.put(key, &table); }
        },
        [&removed](Table &table) {
            for (void *key : removed) { table.remove(key); }
        });
}

template <class Table, bool of_text>
void walk(benchmark::State &state, int size)
{
    prepare_heap();
    const Keys<Table, of_text> stored(size);
    bench::timed<Table>(
        state, size,
        [&stored](Table &table) {
            for (void *key : stored.all) { table.put(key, &table); }
        },
        [](const Table &table) { benchmark::DoNotOptimize(table.sum()); });
}

template <class Table, bool of_text>
int add(const char *who, const std::string &keys)
{
    const auto sizes = {10, 100, 1000, 100000};
    bench::add("hash hit, " + keys, who, hit<Table, of_text>, sizes);
    bench::add("hash miss, " + keys, who, miss<Table, of_text>, sizes);
    bench::add("hash insert, " + keys, who, insert<Table, of_text>, sizes,
               bench::Runs::timed_by_job);
    bench::add("hash remove, " + keys, who, remove<Table, of_text>, sizes,
               bench::Runs::timed_by_job);
    return bench::add("hash walk, " + keys, who, walk<Table, of_text>, sizes,
                      bench::Runs::timed_by_job);
}

constexpr const char *numbers = "integers";
constexpr const char *texts = "strings";
constexpr const char *own = "own functions for strings";

[[maybe_unused]] const int registered[] = {
    add<Vek<vek_hash_int_hash_func, vek_hash_int_equal_func>, false>("veklib", numbers),
    add<Vek<hash_text, equal_text>, true>("veklib", texts),
    add<Vek<vek_hash_string_hash_func, vek_hash_string_equal_func>, true>("veklib", own),
    add<Vek<passed_hash, passed_equal>, true>("passed in", own),
    add<Glib<nullptr, nullptr>, false>("GHashTable", numbers),
    add<Glib<hash_text, equal_text>, true>("GHashTable", texts),
    add<Glib<g_str_hash, g_str_equal>, true>("GHashTable", own),
    add<Apr<false>, false>("apr_hash", numbers),
    add<Apr<true>, true>("apr_hash", texts),
    add<Ut<false>, false>("uthash", numbers),
    add<Ut<true>, true>("uthash", texts),
    add<Std<false>, false>("std::unordered_map", numbers),
    add<Std<true>, true>("std::unordered_map", texts),
};

} // namespace
