/* SPDX-License-Identifier: MIT */
/* Interning of strings. */
#include "jobs.h"

#include <unordered_set>

#include <glib.h>
#include <veklib/vekname.h>

using bench::Round;

namespace {

struct Vek {
    VekNameTable *table = vek_name_table_create(nullptr);
    ~Vek() { vek_name_table_destroy(&table); }
    const void *intern(const char *text) { return vek_name_from_string(table, text, 0); }
};

/** There is one table in the process, and it only grows. */
struct Glib {
    static const void *intern(const char *text) { return g_intern_string(text); }
};

struct Std {
    std::unordered_set<std::string> table;
    const void *intern(const char *text) { return &*table.emplace(text).first; }
};

template <class Names>
void existing(benchmark::State &state, int size)
{
    const std::vector<std::string> stored = bench::texts(size);
    const std::vector<std::string> copies = stored;
    const std::vector<const char *> searched = bench::pointers(copies);
    Names names;
    for (const char *text : bench::pointers(stored)) { names.intern(text); }
    Round round(size);
    for (auto _ : state) { benchmark::DoNotOptimize(names.intern(searched[round.next()])); }
}

/** Texts that the process has not seen before. */
std::vector<std::string> unseen(int size)
{
    static int first = 1'000'000;
    first += size;
    return bench::texts(size, first - size);
}

/** A table, if there is more than one, and the texts that it is to hold. */
template <class Names>
struct Task {
    Names names;
    std::vector<std::string> texts;
};

template <class Names>
void fresh(benchmark::State &state, int size)
{
    bench::timed<Task<Names>>(
        state, size, [size](Task<Names> &task) { task.texts = unseen(size); },
        [](Task<Names> &task) {
            for (const std::string &text : task.texts) { benchmark::DoNotOptimize(task.names.intern(text.c_str())); }
        });
}

template <class Names>
int add(const char *who)
{
    bench::add("intern existing", who, existing<Names>, {10, 100, 1000, 100000});
    for (const int size : {10, 100, 1000, 100000}) {
        // A fixed number, for what one peer takes in it never gives back.
        benchmark::RegisterBenchmark(bench::name_of("intern new", size, who).c_str(), fresh<Names>, size)
            ->UseManualTime()
            ->Iterations(size <= 1000 ? 5 : 1);
    }
    return 0;
}

[[maybe_unused]] const int registered[] = {
    add<Vek>("veklib"),
    add<Glib>("g_intern_string"),
    add<Std>("std::unordered_set"),
};

} // namespace
