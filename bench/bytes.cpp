/* SPDX-License-Identifier: MIT */
/* Prints the heap bytes of one element of each structure, the allocator's overhead included
 * (heap.h), as lines of structure|size|maker|bytes. Each measurement has a process of its own. It
 * makes as many structures of the size as hold `elements` elements in all, so that the first block
 * of a pool or of a peer's own allocator hardly counts. For names it makes one structure, because
 * GLib has only one table of names. What an element refers to exists before: data, the texts of
 * string keys, and the integer keys of those peers that take their addresses. Only tables of names
 * and dictionaries copy texts. Nothing is released. */
#include "heap.h"
#include "keys.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include <veklib/vekdebug.h>
#include <veklib/vekerror.h>
#include <veklib/vekhash.h>
#include <veklib/vekintdict.h>
#include <veklib/vekname.h>
#include <veklib/vekslist.h>
#include <veklib/vekstr.h>
#include <veklib/vekstrdict.h>

#ifdef BENCH_PEERS
#include <exception>
#include <forward_list>
#include <map>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <variant>

#include <apr_general.h>
#include <apr_hash.h>
#include <apr_strings.h>
#include <apr_tables.h>
#include <glib-object.h>
#include <json-c/json.h>
#include <talloc.h>
#include <uthash.h>
#include <utlist.h>
#endif

namespace {

/** Makes one structure of `size` elements. */
using Make = void(int size);

struct Job {
    const char *structure;
    std::vector<int> sizes;
    const char *maker;
    Make *make;
    int elements = 100'000; // one_structure: as many as the structure has
};

constexpr int one_structure = 0;
const std::vector<int> list_sizes = {100'000};
const std::vector<int> hash_sizes = {10, 100, 1000, 100'000};
const std::vector<int> name_sizes = {10, 1000, 10'000, 100'000};
const std::vector<int> dictionary_sizes = {5, 10, 50, 200};

constexpr int longest = 100'000;
std::vector<std::string> texts;
std::vector<intptr_t> numbers;
char datum;

void prepare()
{
    texts = bench::texts(longest);
    for (int i = 0; i < longest; ++i) { numbers.push_back(i); }
}

char *text(int i) { return texts[static_cast<size_t>(i)].data(); }

/** Takes what a job makes; otherwise the compiler may leave out what nobody reads. */
void keep(const void *made)
{
    static const void *volatile last;
    last = made;
    static_cast<void>(last);
}

template <int length>
const char *text_of()
{
    static char characters[length + 1];
    memset(characters, 'x', length);
    return characters;
}

/* ---- The library ---- */

void vek_list(int size)
{
    VekSList *list = nullptr;
    for (int i = 0; i < size; ++i) { list = vek_slist_prepend(list, &datum); }
}

void vek_integers(int size)
{
    VekHash *const hash = vek_hash_new();
    for (int i = 0; i < size; ++i) { vek_hash_insert(hash, bench::word(i), &datum); }
}

void vek_strings(int size)
{
    VekHash *const hash =
        vek_hash_new_full(vek_hash_string_hash_func, vek_hash_string_equal_func, nullptr, nullptr);
    for (int i = 0; i < size; ++i) { vek_hash_insert(hash, text(i), &datum); }
}

template <int length>
void vek_string(int)
{
    keep(vek_str_create(text_of<length>()));
}

void vek_names(int size)
{
    VekNameTable *const table = vek_name_table_create(nullptr);
    for (int i = 0; i < size; ++i) { vek_name_from_string(table, text(i), i); }
}

void vek_integer_items(int size)
{
    VekDict *const dict = vek_int_dict_create(10);
    for (int i = 0; i < size; ++i) { vek_int_dict_put_int(dict, i, i); }
}

void vek_string_items(int size)
{
    VekDict *const dict = vek_str_dict_create(10);
    for (int i = 0; i < size; ++i) { vek_str_dict_put_int(dict, text(i), i); }
}

#define MESSAGE "cannot open %s: %s", "/etc/gateway/routes.conf", "Permission denied"

void vek_error(int) { keep(VEK_ERROR_CREATE(VEK_ERROR_IO, MESSAGE)); }

void vek_domain(int)
{
    static const char *const flags[] = {"a", "b", "c", "d", "e", "f", "g", "h", nullptr};
    static int number;
    vek_debug_add_domain(text(number++), flags);
}

#ifdef BENCH_PEERS

/* ---- GLib ---- */

void glib_list(int size)
{
    GSList *list = nullptr;
    for (int i = 0; i < size; ++i) { list = g_slist_prepend(list, &datum); }
}

void glib_integers(int size)
{
    GHashTable *const hash = g_hash_table_new(nullptr, nullptr);
    for (int i = 0; i < size; ++i) { g_hash_table_insert(hash, bench::word(i), &datum); }
}

void glib_strings(int size)
{
    GHashTable *const hash = g_hash_table_new(g_str_hash, g_str_equal);
    for (int i = 0; i < size; ++i) { g_hash_table_insert(hash, text(i), &datum); }
}

template <int length>
void glib_string(int)
{
    keep(g_ref_string_new(text_of<length>()));
}

void glib_names(int size)
{
    for (int i = 0; i < size; ++i) { g_intern_string(text(i)); }
}

void glib_chunk(int size)
{
    GStringChunk *const chunk = g_string_chunk_new(1024);
    for (int i = 0; i < size; ++i) { g_string_chunk_insert_const(chunk, text(i)); }
}

GValue *gvalue(int number)
{
    auto *const value = g_new0(GValue, 1);
    g_value_set_int(g_value_init(value, G_TYPE_INT), number);
    return value;
}

void glib_integer_items(int size)
{
    GHashTable *const table = g_hash_table_new(nullptr, nullptr);
    for (int i = 0; i < size; ++i) { g_hash_table_insert(table, bench::word(i), gvalue(i)); }
}

void glib_string_items(int size)
{
    GHashTable *const table = g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free);
    for (int i = 0; i < size; ++i) { g_hash_table_insert(table, g_strdup(text(i)), gvalue(i)); }
}

void glib_error(int)
{
    keep(g_error_new(g_quark_from_static_string("bytes-error"), VEK_ERROR_IO, MESSAGE));
}

/* ---- APR, all structures in one pool ---- */

apr_pool_t *pool()
{
    static apr_pool_t *const made = [] {
        apr_pool_t *result = nullptr;
        return apr_initialize() == 0 && apr_pool_create(&result, nullptr) == 0 ? result : nullptr;
    }();
    return made;
}

void apr_integers(int size)
{
    apr_hash_t *const hash = apr_hash_make(pool());
    for (int i = 0; i < size; ++i) {
        apr_hash_set(hash, &numbers[static_cast<size_t>(i)], sizeof(intptr_t), &datum);
    }
}

void apr_strings(int size)
{
    apr_hash_t *const hash = apr_hash_make(pool());
    for (int i = 0; i < size; ++i) { apr_hash_set(hash, text(i), APR_HASH_KEY_STRING, &datum); }
}

template <int length>
void apr_string(int)
{
    keep(apr_pstrdup(pool(), text_of<length>()));
}

/** The values of this table are texts. */
void apr_string_items(int size)
{
    apr_table_t *const table = apr_table_make(pool(), 10);
    for (int i = 0; i < size; ++i) {
        apr_table_setn(table, apr_pstrdup(pool(), text(i)), apr_itoa(pool(), i));
    }
}

/* ---- json-c ---- */

void json_hash(lh_table *table, int size, bool of_text)
{
    for (int i = 0; i < size; ++i) {
        lh_table_insert(table, of_text ? text(i) : bench::word(i), &datum);
    }
}

void json_integers(int size) { json_hash(lh_kptr_table_new(16, nullptr), size, false); }
void json_strings(int size) { json_hash(lh_kchar_table_new(16, nullptr), size, true); }

template <int length>
void json_string(int)
{
    keep(json_object_new_string(text_of<length>()));
}

void json_string_items(int size)
{
    json_object *const object = json_object_new_object();
    for (int i = 0; i < size; ++i) {
        json_object_object_add(object, text(i), json_object_new_int(i));
    }
}

/* ---- talloc ---- */

template <int length>
void talloc_string(int)
{
    keep(talloc_strdup(nullptr, text_of<length>()));
}

/* ---- uthash and utlist ---- */

void ut_list(int size)
{
    struct Node {
        void *data;
        Node *next;
    };
    Node *list = nullptr;
    for (int i = 0; i < size; ++i) {
        auto *const node = static_cast<Node *>(malloc(sizeof(Node)));
        node->data = &datum;
        LL_PREPEND(list, node);
    }
    keep(list);
}

struct UtEntry {
    void *key;
    void *value;
    UT_hash_handle hh;
};

UtEntry *ut_entry(void *key)
{
    auto *const entry = static_cast<UtEntry *>(malloc(sizeof(UtEntry)));
    entry->key = key;
    entry->value = &datum;
    return entry;
}

void ut_integers(int size)
{
    UtEntry *hash = nullptr;
    for (int i = 0; i < size; ++i) {
        UtEntry *const entry = ut_entry(bench::word(i));
        HASH_ADD_PTR(hash, key, entry);
    }
}

void ut_strings(int size)
{
    UtEntry *hash = nullptr;
    for (int i = 0; i < size; ++i) {
        UtEntry *const entry = ut_entry(text(i));
        HASH_ADD_KEYPTR(hh, hash, text(i), strlen(text(i)), entry);
    }
}

/* ---- The C++ library ---- */

/** Makes a container that is never released. */
template <class Container>
Container &container()
{
    auto *const made = new Container;
    keep(made);
    return *made;
}

void std_list(int size)
{
    auto &list = container<std::forward_list<void *>>();
    for (int i = 0; i < size; ++i) { list.push_front(&datum); }
}

void std_integers(int size)
{
    auto &hash = container<std::unordered_map<intptr_t, void *>>();
    for (int i = 0; i < size; ++i) { hash[i] = &datum; }
}

void std_strings(int size)
{
    auto &hash = container<std::unordered_map<std::string_view, void *>>();
    for (int i = 0; i < size; ++i) { hash[text(i)] = &datum; }
}

template <int length>
void std_string(int)
{
    using Handle = std::shared_ptr<std::string>;
    alignas(Handle) static char handle[sizeof(Handle)]; // never destroyed
    keep(new (handle) Handle(std::make_shared<std::string>(text_of<length>())));
}

void std_names(int size)
{
    auto &table = container<std::unordered_set<std::string>>();
    for (int i = 0; i < size; ++i) { table.emplace(text(i)); }
}

using Variant = std::variant<int, double, void *, std::string>;

void std_integer_items(int size)
{
    auto &map = container<std::map<int, Variant>>();
    for (int i = 0; i < size; ++i) { map[i] = i; }
}

void std_string_items(int size)
{
    auto &map = container<std::map<std::string, Variant>>();
    for (int i = 0; i < size; ++i) { map[text(i)] = i; }
}

#endif

/* ---- All jobs ---- */

/* GLib has two peers: one table whose names nobody can release, and tables that can be released. */
const char *const beside_quarks = "name (g_intern_string)";
const char *const beside_chunk = "name (GStringChunk)";

const Job jobs[] = {
    {"list node", list_sizes, "veklib", vek_list},
    {"hash entry, integer keys", hash_sizes, "veklib", vek_integers},
    {"hash entry, string keys", hash_sizes, "veklib", vek_strings},
    {"string of 8 characters", {1}, "veklib", vek_string<8>},
    {"string of 64 characters", {1}, "veklib", vek_string<64>},
    {beside_quarks, name_sizes, "veklib", vek_names, one_structure},
    {beside_chunk, name_sizes, "veklib", vek_names, one_structure},
    {"dictionary item, integer keys", dictionary_sizes, "veklib", vek_integer_items},
    {"dictionary item, string keys", dictionary_sizes, "veklib", vek_string_items},
    {"error", {1}, "veklib", vek_error, 1000},
    {"debug domain of 8 flags", {1}, "veklib", vek_domain, 100},
#ifdef BENCH_PEERS
    {"list node", list_sizes, "GLib", glib_list},
    {"list node", list_sizes, "uthash", ut_list},
    {"list node", list_sizes, "C++", std_list},
    {"hash entry, integer keys", hash_sizes, "GLib", glib_integers},
    {"hash entry, integer keys", hash_sizes, "APR", apr_integers},
    {"hash entry, integer keys", hash_sizes, "json-c", json_integers},
    {"hash entry, integer keys", hash_sizes, "uthash", ut_integers},
    {"hash entry, integer keys", hash_sizes, "C++", std_integers},
    {"hash entry, string keys", hash_sizes, "GLib", glib_strings},
    {"hash entry, string keys", hash_sizes, "APR", apr_strings},
    {"hash entry, string keys", hash_sizes, "json-c", json_strings},
    {"hash entry, string keys", hash_sizes, "uthash", ut_strings},
    {"hash entry, string keys", hash_sizes, "C++", std_strings},
    {"string of 8 characters", {1}, "GLib", glib_string<8>},
    {"string of 8 characters", {1}, "APR", apr_string<8>},
    {"string of 8 characters", {1}, "json-c", json_string<8>},
    {"string of 8 characters", {1}, "talloc", talloc_string<8>},
    {"string of 8 characters", {1}, "C++", std_string<8>},
    {"string of 64 characters", {1}, "GLib", glib_string<64>},
    {"string of 64 characters", {1}, "APR", apr_string<64>},
    {"string of 64 characters", {1}, "json-c", json_string<64>},
    {"string of 64 characters", {1}, "talloc", talloc_string<64>},
    {"string of 64 characters", {1}, "C++", std_string<64>},
    {beside_quarks, name_sizes, "GLib", glib_names, one_structure},
    {beside_quarks, name_sizes, "C++", std_names, one_structure},
    {beside_chunk, name_sizes, "GLib", glib_chunk, one_structure},
    {beside_chunk, name_sizes, "C++", std_names, one_structure},
    {"dictionary item, integer keys", dictionary_sizes, "GLib", glib_integer_items},
    {"dictionary item, integer keys", dictionary_sizes, "C++", std_integer_items},
    {"dictionary item, string keys", dictionary_sizes, "GLib", glib_string_items},
    {"dictionary item, string keys", dictionary_sizes, "APR", apr_string_items},
    {"dictionary item, string keys", dictionary_sizes, "json-c", json_string_items},
    {"dictionary item, string keys", dictionary_sizes, "C++", std_string_items},
    {"error", {1}, "GLib", glib_error, 1000},
#endif
};

void measure(const Job &job, int size)
{
    const int count = job.elements == one_structure ? 1 : job.elements / size;
    const size_t before = heap_bytes();
    for (int i = 0; i < count; ++i) { job.make(size); }
    const double bytes = static_cast<double>(heap_bytes() - before);
    printf("%s|%d|%s|%.1f\n", job.structure, size, job.maker, bytes / (count * size));
}

/** Measures in a child, so that no measurement finds what another one left. */
bool measure_alone(const Job &job, int size)
{
    const pid_t child = fork();
    if (child == 0) {
        measure(job, size);
        fflush(stdout);
        _exit(0);
    }
    int status = 1;
    return waitpid(child, &status, 0) == child && status == 0;
}

} // namespace

int main()
{
    prepare();
    vek_debug_initialize(nullptr, nullptr);
    for (const Job &job : jobs) {
        for (const int size : job.sizes) {
            if (!measure_alone(job, size)) { return 1; }
        }
    }
    return 0;
}
