/* SPDX-License-Identifier: MIT */
/* How the time of an operation grows with the number of elements, here and in the best peers. The
 * sizes end early for operations that walk all elements. Each contender hashes texts with its own
 * library's function. A plus marks the library's other way to do a job. */
#include "contenders.h"
#include "jobs.h"

#include <forward_list>
#include <type_traits>
#include <unordered_map>

#include <tsl/robin_map.h>
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekslist.h>
#include <veklib/vekstr.h>
#include <veklib/vekstrbuilder.h>
#include <veklib/vekstrfuncs.h>
#include <veklib/vekvalue.h>

using bench::Owner;
using bench::word;

namespace {

using Sizes = std::initializer_list<int>;
constexpr Sizes to_10_000 = {10, 30, 100, 300, 1000, 3000, 10'000};
constexpr Sizes to_30_000 = {10, 30, 100, 300, 1000, 3000, 10'000, 30'000};
constexpr Sizes to_1_000_000 = {10,     30,     100,     300,     1000,     3000,
                                10'000, 30'000, 100'000, 300'000, 1'000'000};

/* ---- Keys ---- */

using Integer = int;
using Text = const char *;

template <class Key>
constexpr bool is_text = std::is_same_v<Key, Text>;

/** Two copies of as many texts as the largest size needs, made only once. */
const std::vector<std::string> &all_texts(size_t copy)
{
    static const std::vector<std::string> copies[] = {bench::texts(1'000'000),
                                                      bench::texts(1'000'000)};
    return copies[copy];
}

template <class Key>
std::vector<Key> some_keys(int size, size_t copy)
{
    std::vector<Key> keys;
    for (int i = 0; i < size; ++i) {
        if constexpr (is_text<Key>) {
            keys.push_back(all_texts(copy)[static_cast<size_t>(i)].c_str());
        } else {
            keys.push_back(i);
        }
    }
    return keys;
}

template <class Key>
std::vector<Key> stored_keys(int size)
{
    return some_keys<Key>(size, 0);
}

/** The same keys in another order. */
template <class Key>
std::vector<Key> searched_keys(int size)
{
    return bench::shuffled(some_keys<Key>(size, 1));
}

/** A key as C tables take it. */
void *pointer(Integer key) { return word(key); }
void *pointer(Text key) { return const_cast<char *>(key); }

/* ---- Hash tables, which neither copy nor own keys and values ---- */

/** The functions that release values, and texts where the table owns its keys. */
template <class Key>
VekHash *new_vek_hash(VekDestroyFunc free_text, VekDestroyFunc free_value)
{
    return is_text<Key> ? vek_hash_new_full(vek_hash_string_hash_func, vek_hash_string_equal_func,
                                            free_text, free_value)
                        : vek_hash_new_full(vek_hash_int_hash_func, vek_hash_int_equal_func,
                                            nullptr, free_value);
}

template <class Key>
GHashTable *new_g_hash(GDestroyNotify free_text, GDestroyNotify free_value)
{
    return is_text<Key> ? g_hash_table_new_full(g_str_hash, g_str_equal, free_text, free_value)
                        : g_hash_table_new_full(nullptr, nullptr, nullptr, free_value);
}

template <class Key>
struct VekTable : Owner {
    VekHash *hash = new_vek_hash<Key>(nullptr, nullptr);
    ~VekTable() { vek_hash_destroy(hash); }
    void put(Key key) { vek_hash_insert(hash, pointer(key), word(1)); }
    void *get(Key key) const { return vek_hash_lookup(hash, pointer(key)); }
};

template <class Key>
struct GlibTable : Owner {
    GHashTable *hash = new_g_hash<Key>(nullptr, nullptr);
    ~GlibTable() { g_hash_table_destroy(hash); }
    void put(Key key) { g_hash_table_insert(hash, pointer(key), word(1)); }
    void *get(Key key) const { return g_hash_table_lookup(hash, pointer(key)); }
};

struct TextEqual {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const { return a == b; }
};

template <class Key>
using Hash = std::conditional_t<is_text<Key>, bench::TextHash, std::hash<Key>>;
template <class Key>
using Equal = std::conditional_t<is_text<Key>, TextEqual, std::equal_to<Key>>;

/** A table of C++, which searches texts without making a std::string of them. The job searches only
 *  keys that are present. */
template <class Map, class Key>
struct MapOf {
    using Searched = std::conditional_t<is_text<Key>, std::string_view, Key>;
    Map map;
    void put(Key key) { map.try_emplace(key, 1); }
    auto get(Key key) const
    {
        const auto &value = map.find(Searched(key))->second;
        if constexpr (std::is_same_v<typename Map::mapped_type, bench::Variant>) {
            return std::get<int>(value);
        } else {
            return value;
        }
    }
};

/** Hashes are stored where comparisons are slow. */
template <class Key>
constexpr bool stores_hash = is_text<Key>;
template <class Key, class Stored, class Value>
using RobinMap = tsl::robin_map<Stored, Value, Hash<Key>, Equal<Key>,
                                std::allocator<std::pair<Stored, Value>>, stores_hash<Key>>;

template <class Key>
using StdTable = MapOf<std::unordered_map<Key, intptr_t, Hash<Key>, Equal<Key>>, Key>;
template <class Key>
using RobinTable = MapOf<RobinMap<Key, Key, intptr_t>, Key>;

/* ---- Dictionaries, which copy texts and own values of several types ---- */

template <class Key>
using VekDictionary = std::conditional_t<is_text<Key>, bench::VekTexts, bench::VekIntegers>;

/** What the library has for more items: a hash table that owns values. */
template <class Key>
struct VekTableOfValues : Owner {
    VekHash *hash = new_vek_hash<Key>(vek_free, destroy);
    ~VekTableOfValues() { vek_hash_destroy(hash); }
    static void destroy(void *value)
    {
        vek_value_release(static_cast<VekValue *>(value));
        vek_free(value);
    }
    static void *copy(Integer key) { return word(key); }
    static void *copy(Text key) { return vek_strdup(key); }
    void put(Key key)
    {
        auto *const value = static_cast<VekValue *>(vek_malloc(sizeof(VekValue)));
        vek_value_set_int(value, 1);
        vek_hash_insert(hash, copy(key), value);
    }
    int get(Key key) const
    {
        return vek_value_get_int(static_cast<VekValue *>(vek_hash_lookup(hash, pointer(key))));
    }
};

template <class Key>
struct GlibTableOfValues : Owner {
    GHashTable *hash = new_g_hash<Key>(g_free, bench::free_gvalue);
    ~GlibTableOfValues() { g_hash_table_destroy(hash); }
    static void *copy(Integer key) { return word(key); }
    static void *copy(Text key) { return g_strdup(key); }
    void put(Key key) { g_hash_table_insert(hash, copy(key), bench::new_gvalue(1)); }
    int get(Key key) const
    {
        return g_value_get_int(static_cast<GValue *>(g_hash_table_lookup(hash, pointer(key))));
    }
};

template <class Key>
using RobinTableOfVariants =
    MapOf<RobinMap<Key, std::conditional_t<is_text<Key>, std::string, Key>, bench::Variant>, Key>;

/* ---- Names ---- */

/** Unlike g_intern_string(), it releases its texts, all at once. */
struct GlibNames : Owner {
    GStringChunk *chunk = g_string_chunk_new(4096);
    ~GlibNames() { g_string_chunk_free(chunk); }
    const void *intern(Text text) { return g_string_chunk_insert_const(chunk, text); }
};

/** Names as a table: interning finds a text or stores it. */
template <class Names>
struct TableOfNames : Names {
    void put(Text text) { this->intern(text); }
    const void *get(Text text) { return this->intern(text); }
};

/* ---- Jobs of tables, dictionaries and names ---- */

/** The largest structure takes less. */
void prepare_heap() { bench::prepare_heap(256 << 20); }

template <class Table, class Key>
void get(benchmark::State &state, int size)
{
    const std::vector<Key> stored = stored_keys<Key>(size);
    const std::vector<Key> searched = searched_keys<Key>(size);
    prepare_heap();
    Table table;
    for (const Key key : stored) { table.put(key); }
    for (auto _ : state) {
        for (const Key key : searched) { benchmark::DoNotOptimize(table.get(key)); }
    }
    state.SetItemsProcessed(state.iterations() * size);
}

/** Times what creates and fills a structure of `size` elements. */
template <class Structure, class Work>
void make(benchmark::State &state, int size, Work work)
{
    prepare_heap();
    bench::timed_from_construction<Structure>(state, size, work);
}

template <class Table, class Key>
void fill(benchmark::State &state, int size)
{
    const std::vector<Key> keys = stored_keys<Key>(size);
    make<Table>(state, size, [&keys](Table &table) {
        for (const Key key : keys) { table.put(key); }
    });
}

template <template <class> class Table>
int add_table(const std::string &job, const char *who, Sizes sizes)
{
    const auto by_job = bench::Runs::timed_by_job;
    bench::add(job + " get, integers", who, get<Table<Integer>, Integer>, sizes);
    bench::add(job + " get, strings", who, get<Table<Text>, Text>, sizes);
    bench::add(job + " fill, integers", who, fill<Table<Integer>, Integer>, sizes, by_job);
    return bench::add(job + " fill, strings", who, fill<Table<Text>, Text>, sizes, by_job);
}

template <class Names>
int add_names(const char *who)
{
    using Table = TableOfNames<Names>;
    bench::add("intern existing", who, get<Table, Text>, to_1_000_000);
    return bench::add("intern new", who, fill<Table, Text>, to_1_000_000,
                      bench::Runs::timed_by_job);
}

/* ---- Lists, built in order ---- */

struct VekList : Owner {
    VekSList *list = nullptr;
    ~VekList() { vek_slist_free(list, nullptr); }
};

struct AppendedToFirst : VekList {
    void build(int size)
    {
        for (int i = 0; i < size; ++i) { list = vek_slist_append(list, word(i)); }
    }
};

struct InsertedAfterLast : VekList {
    void build(int size)
    {
        list = vek_slist_prepend(nullptr, word(0));
        VekSList *last = list;
        for (int i = 1; i < size; ++i) { last = vek_slist_insert_after(last, word(i)); }
    }
};

/** It knows its last node. */
struct GlibList : Owner {
    GQueue list = G_QUEUE_INIT;
    ~GlibList() { g_queue_clear(&list); }
    void build(int size)
    {
        for (int i = 0; i < size; ++i) { g_queue_push_tail(&list, word(i)); }
    }
};

struct StdList {
    std::forward_list<void *> list;
    void build(int size)
    {
        auto last = list.before_begin();
        for (int i = 0; i < size; ++i) { last = list.insert_after(last, word(i)); }
    }
};

struct StdVector {
    std::vector<void *> list;
    void build(int size)
    {
        for (int i = 0; i < size; ++i) { list.push_back(word(i)); }
    }
};

/* ---- Texts, built piece by piece ---- */

constexpr Text piece = "eth0,";

struct VekText : Owner {
    VekStr *text = nullptr;
    ~VekText() { vek_str_unref(text); }
};

struct Longer : VekText {
    void build(int size)
    {
        text = vek_str_create("");
        for (int i = 0; i < size; ++i) { vek_str_append_c_str(&text, piece); }
    }
};

struct FromBuilder : VekText {
    void build(int size)
    {
        VekStrBuilder builder = VEK_STR_BUILDER_INIT;
        for (int i = 0; i < size; ++i) { vek_str_builder_append(&builder, piece); }
        text = vek_str_builder_steal_vekstr(&builder);
    }
};

struct GlibText : Owner {
    GString *text = g_string_new(nullptr);
    ~GlibText() { g_string_free(text, TRUE); }
    void build(int size)
    {
        for (int i = 0; i < size; ++i) { g_string_append(text, piece); }
    }
};

struct StdText {
    std::string text;
    void build(int size)
    {
        for (int i = 0; i < size; ++i) { text += piece; }
    }
};

template <class Built>
void build(benchmark::State &state, int size)
{
    make<Built>(state, size, [size](Built &built) { built.build(size); });
}

template <class Built>
int add_built(const char *job, const char *who, Sizes sizes = to_1_000_000)
{
    return bench::add(job, who, build<Built>, sizes, bench::Runs::timed_by_job);
}

[[maybe_unused]] const int registered[] = {
    add_table<VekTable>("hash", "VekHash", to_1_000_000),
    add_table<GlibTable>("hash", "GHashTable", to_1_000_000),
    add_table<StdTable>("hash", "std::unordered_map", to_1_000_000),
    add_table<RobinTable>("hash", "tsl::robin_map", to_1_000_000),
    add_table<VekDictionary>("dictionary", "VekDict", to_10_000),
    add_table<VekTableOfValues>("dictionary", "+ VekHash", to_10_000),
    add_table<GlibTableOfValues>("dictionary", "GHashTable", to_10_000),
    add_table<RobinTableOfVariants>("dictionary", "tsl::robin_map", to_10_000),
    add_names<bench::VekNames>("VekName"),
    add_names<GlibNames>("GStringChunk"),
    add_names<bench::StdNames>("std::unordered_set"),
    add_built<InsertedAfterLast>("list build", "vek_slist_insert_after"),
    add_built<AppendedToFirst>("list build", "+ vek_slist_append", to_30_000),
    add_built<GlibList>("list build", "GQueue"),
    add_built<StdList>("list build", "std::forward_list"),
    add_built<StdVector>("list build", "std::vector"),
    add_built<FromBuilder>("text build", "VekStrBuilder"),
    add_built<Longer>("text build", "+ vek_str_append_c_str", to_30_000),
    add_built<GlibText>("text build", "GString"),
    add_built<StdText>("text build", "std::string"),
};

} // namespace
