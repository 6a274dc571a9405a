/* SPDX-License-Identifier: MIT */
/* Interning of strings. One peer has a single table, which only grows. So run "intern new" once per
 * process (--benchmark_min_time=0), as ./dev bench does. */
#include "contenders.h"
#include "jobs.h"

using bench::Round;

namespace {

/** GLib has one table per process, which only grows. */
struct Glib {
    static const void *intern(const char *text) { return g_intern_string(text); }
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

template <class Names>
void fresh(benchmark::State &state, int size)
{
    bench::prepare_heap(32 << 20);
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
    add<bench::VekNames>("veklib"),
    add<Glib>("g_intern_string"),
    add<bench::StdNames>("std::unordered_set"),
};

} // namespace
