/* SPDX-License-Identifier: MIT */
/* Interning of strings. One peer has a single table, which only grows. So run "intern new" once per
 * process (--benchmark_min_time=0), as ./dev bench does. */
#include "jobs.h"

#include <climits>
#include <memory>
#include <string_view>
#include <unordered_set>

#include <glib.h>
#include <malloc.h>
#include <veklib/vekname.h>

using bench::Round;

namespace {

struct Vek {
    VekNameTable *table = vek_name_table_create(nullptr);
    ~Vek() { vek_name_table_destroy(&table); }
    const void *intern(const char *text) { return vek_name_from_string(table, text, 0); }
};

/** GLib has one table per process, which only grows. */
struct Glib {
    static const void *intern(const char *text) { return g_intern_string(text); }
};

struct Std {
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const
        {
            return std::hash<std::string_view>()(text);
        }
    };
    std::unordered_set<std::string, Hash, std::equal_to<>> table;
    const void *intern(const char *text)
    {
        const auto found = table.find(std::string_view(text));
        return found != table.end() ? &*found : &*table.emplace(text).first;
    }
};

template <class Names>
void existing(benchmark::State &state, int size)
{
    const std::vector<std::string> stored = bench::texts(size);
    const std::vector<std::string> copies = stored;
    const std::vector<const char *> searched = bench::shuffled(bench::pointers(copies));
    Names names;
    for (const char *text : bench::pointers(stored)) { names.intern(text); }
    Round round(size);
    for (auto _ : state) { benchmark::DoNotOptimize(names.intern(searched[round.next()])); }
}

/** Texts that a contender has not seen before. */
template <class Names>
std::vector<std::string> unseen(int size)
{
    static int first = 0;
    first += size;
    return bench::texts(size, first - size);
}

/** A contender's table, if it can have several, and the texts to intern in it. */
template <class Names>
struct Task {
    Names names;
    std::vector<std::string> texts;
};

/** Touches the memory that the names will take, so that the process gets no new pages while the
 *  clock runs. */
void warm_heap()
{
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    std::vector<std::unique_ptr<char[]>> blocks(300'000);
    for (auto &block : blocks) { block = std::make_unique<char[]>(100); }
}

template <class Names>
void fresh(benchmark::State &state, int size)
{
    warm_heap();
    bench::timed<Task<Names>>(
        state, size, [size](Task<Names> &task) { task.texts = unseen<Names>(size); },
        [](Task<Names> &task) {
            for (const std::string &text : task.texts) {
                benchmark::DoNotOptimize(task.names.intern(text.c_str()));
            }
        });
}

template <class Names>
int add(const char *who)
{
    bench::add("intern existing", who, existing<Names>, {10, 100, 1000, 100000});
    return bench::add("intern new", who, fresh<Names>, {10, 100, 1000, 100000},
                      bench::Runs::timed_by_job);
}

[[maybe_unused]] const int registered[] = {
    add<Vek>("veklib"),
    add<Glib>("g_intern_string"),
    add<Std>("std::unordered_set"),
};

} // namespace
