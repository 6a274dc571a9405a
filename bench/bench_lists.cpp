/* SPDX-License-Identifier: MIT */
/* Singly linked lists. All are walked by the same code, so that "list walk" shows where each
 * allocator puts the nodes. */
#include "jobs.h"

#include <cstdlib>
#include <forward_list>

#include <glib.h>
#include <utlist.h>
#include <veklib/vekslist.h>

using bench::word;

namespace {

struct VekList {
    VekSList *list = nullptr;
    ~VekList() { release(); }
    void prepend(void *data) { list = vek_slist_prepend(list, data); }
    void append(void *data) { list = vek_slist_append(list, data); }
    void copy(const VekList &from) { list = vek_slist_dup(from.list, nullptr); }
    void release()
    {
        vek_slist_free(list, nullptr);
        list = nullptr;
    }
    intptr_t sum() const
    {
        intptr_t result = 0;
        for (const VekSList *node = list; node != nullptr; node = node->next) {
            result += reinterpret_cast<intptr_t>(node->data);
        }
        return result;
    }
};

struct GlibList {
    GSList *list = nullptr;
    ~GlibList() { release(); }
    void prepend(void *data) { list = g_slist_prepend(list, data); }
    void append(void *data) { list = g_slist_append(list, data); }
    void copy(const GlibList &from) { list = g_slist_copy(from.list); }
    void release()
    {
        g_slist_free(list);
        list = nullptr;
    }
    intptr_t sum() const
    {
        intptr_t result = 0;
        for (const GSList *node = list; node != nullptr; node = node->next) {
            result += reinterpret_cast<intptr_t>(node->data);
        }
        return result;
    }
};

struct StdList {
    std::forward_list<void *> list;
    void prepend(void *data) { list.push_front(data); }
    void append(void *data)
    {
        auto last = list.before_begin();
        for (auto next = list.begin(); next != list.end(); ++next) { last = next; }
        list.insert_after(last, data);
    }
    void copy(const StdList &from) { list = from.list; }
    void release() { list.clear(); }
    intptr_t sum() const
    {
        intptr_t result = 0;
        for (void *data : list) { result += reinterpret_cast<intptr_t>(data); }
        return result;
    }
};

/** The macros of utlist.h with malloc() and free(): shows what a hand-written list costs. */
struct UtList {
    struct Node {
        void *data;
        Node *next;
    };
    Node *list = nullptr;
    ~UtList() { release(); }
    static Node *make(void *data)
    {
        auto *const node = static_cast<Node *>(malloc(sizeof(Node)));
        node->data = data;
        return node;
    }
    void prepend(void *data)
    {
        Node *const node = make(data);
        LL_PREPEND(list, node);
    }
    void append(void *data)
    {
        Node *const node = make(data);
        LL_APPEND(list, node);
    }
    void copy(const UtList &from)
    {
        Node **link = &list;
        for (const Node *node = from.list; node != nullptr; node = node->next) {
            *link = make(node->data);
            link = &(*link)->next;
        }
        *link = nullptr;
    }
    void release()
    {
        Node *node;
        Node *next;
        LL_FOREACH_SAFE(list, node, next) { free(node); }
        list = nullptr;
    }
    intptr_t sum() const
    {
        intptr_t result = 0;
        const Node *node;
        LL_FOREACH(list, node) { result += reinterpret_cast<intptr_t>(node->data); }
        return result;
    }
};

template <class List>
void fill(List &list, int size)
{
    for (int i = 0; i < size; ++i) { list.prepend(word(i)); }
}

template <class List>
void prepend(benchmark::State &state, int size)
{
    bench::timed<List>(
        state, size, [](List &) {}, [size](List &list) { fill(list, size); });
}

template <class List>
void append(benchmark::State &state, int size)
{
    bench::timed<List>(
        state, size, [](List &) {},
        [size](List &list) {
            for (int i = 0; i < size; ++i) { list.append(word(i)); }
        });
}

template <class List>
void walk(benchmark::State &state, int size)
{
    bench::timed<List>(
        state, size, [size](List &list) { fill(list, size); },
        [](const List &list) { benchmark::DoNotOptimize(list.sum()); });
}

template <class List>
void dup(benchmark::State &state, int size)
{
    List original;
    fill(original, size);
    bench::timed<List>(
        state, size, [](List &) {}, [&original](List &list) { list.copy(original); });
}

template <class List>
void release(benchmark::State &state, int size)
{
    bench::timed<List>(
        state, size, [size](List &list) { fill(list, size); }, [](List &list) { list.release(); });
}

template <class List>
int add(const char *who)
{
    bench::add("list prepend", who, prepend<List>, {10, 100, 1000, 100000},
               bench::Runs::timed_by_job);
    bench::add("list append", who, append<List>, {10, 100, 1000},
               bench::Runs::timed_by_job); // each append walks to the end
    bench::add("list walk", who, walk<List>, {10, 100, 1000, 100000}, bench::Runs::timed_by_job);
    bench::add("list dup", who, dup<List>, {10, 100, 1000, 100000}, bench::Runs::timed_by_job);
    return bench::add("list free", who, release<List>, {10, 100, 1000, 100000},
                      bench::Runs::timed_by_job);
}

[[maybe_unused]] const int registered[] = {
    add<VekList>("veklib"),
    add<GlibList>("GSList"),
    add<StdList>("std::forward_list"),
    add<UtList>("utlist"),
};

} // namespace
