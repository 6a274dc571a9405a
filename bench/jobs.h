/* SPDX-License-Identifier: MIT */
/* How jobs are named ("job/size/who"), registered and timed. The contenders, which are the library
 * ("veklib", or the name of its function or type) and its peers, do the same work on the same keys
 * (keys.h); the ratio of their times is the result. */
#ifndef VEKLIB_BENCH_JOBS_H
#define VEKLIB_BENCH_JOBS_H

#include "keys.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <malloc.h>

namespace bench {

using Job = void(benchmark::State &state, int size);

/** Who reads the clock: the benchmark library, for the whole job, or the job, for a part of it. */
enum class Runs { timed_by_library, timed_by_job };

/** Registers one contender of a job for each size; `timed_by_job` if the job uses timed(). It has a
 *  result so that an initialiser can call it. */
inline int add(const std::string &job, const char *who, Job *run, std::initializer_list<int> sizes,
               Runs runs = Runs::timed_by_library)
{
    for (const int size : sizes) {
        benchmark::internal::Benchmark *const registered = benchmark::RegisterBenchmark(
            (job + "/" + std::to_string(size) + "/" + who).c_str(), run, size);
        if (runs == Runs::timed_by_job) { registered->UseManualTime(); }
    }
    return 0;
}

/** Times `work` alone, without `prepare` and without the construction and destruction of the
 *  subjects. Each round has so many subjects that reading the clock hardly counts. Reports the time
 *  per element; a subject has `size` elements. */
template <typename Subject, typename Prepare, typename Work>
void timed(benchmark::State &state, int size, Prepare prepare, Work work)
{
    using clock = std::chrono::steady_clock;
    const int count = std::max(1, 5000 / size);
    // Only once, because a new large block in each round would disturb the heap.
    std::vector<std::optional<Subject>> subjects(static_cast<size_t>(count));
    for (auto _ : state) {
        for (auto &subject : subjects) { subject.reset(); }
        for (auto &subject : subjects) { prepare(subject.emplace()); }
        const clock::time_point start = clock::now();
        for (auto &subject : subjects) { work(*subject); }
        state.SetIterationTime(std::chrono::duration<double>(clock::now() - start).count());
    }
    state.SetItemsProcessed(state.iterations() * count * size);
}

/** Times the construction of the subjects and `work`, but not their destruction. */
template <typename Subject, typename Work>
void timed_from_construction(benchmark::State &state, int size, Work work)
{
    using Made = std::optional<Subject>;
    timed<Made>(
        state, size, [](Made &) {}, [work](Made &made) { work(made.emplace()); });
}

/** Prepares the heap for a job that needs up to `bytes`. Large blocks lie in it, too, and it keeps
 *  its pages, which the first call touches: no contender waits for new ones while the clock runs.
 *  The large block merges the free blocks, which the first contender with a large block of its own
 *  would do otherwise. */
inline void prepare_heap(size_t bytes)
{
    static bool is_first = true;
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    void *const block = malloc(bytes);
    if (is_first) { memset(block, 1, bytes); }
    is_first = false;
    benchmark::DoNotOptimize(block);
    free(block);
}

/** Counts from 0 to `size` - 1, again and again. */
class Round {
public:
    explicit Round(int size) : size_(static_cast<size_t>(size)) {}
    size_t next() { return at_ = at_ + 1 < size_ ? at_ + 1 : 0; }

private:
    size_t size_;
    size_t at_ = 0;
};

} // namespace bench

#endif
