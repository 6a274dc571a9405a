/* SPDX-License-Identifier: MIT */
/* How jobs are named, registered and timed. A job is "job/size/who": the library ("veklib") and its peers do
 * the same work on the same keys, and what counts is the ratio of their times. */
#ifndef VEKLIB_BENCH_JOBS_H
#define VEKLIB_BENCH_JOBS_H

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

using Job = void(benchmark::State &state, int size);

inline std::string name_of(const std::string &job, int size, const char *who)
{
    return job + "/" + std::to_string(size) + "/" + who;
}

/** Registers one contender of a job for each size. */
inline int add(const std::string &job, const char *who, Job *run, std::initializer_list<int> sizes)
{
    for (const int size : sizes) { benchmark::RegisterBenchmark(name_of(job, size, who).c_str(), run, size); }
    return 0;
}

/** Registers one contender of a job that times its work with timed(). */
inline int add_timed(const std::string &job, const char *who, Job *run, std::initializer_list<int> sizes)
{
    for (const int size : sizes) {
        benchmark::RegisterBenchmark(name_of(job, size, who).c_str(), run, size)->UseManualTime();
    }
    return 0;
}

/** Times `work` alone: not `prepare`, nor the making and destruction of the subjects. There are so many of
 *  them at a time that reading the clock does not count. The result is the time of one of the `size` elements
 *  of a subject. */
template <typename Subject, typename Prepare, typename Work>
void timed(benchmark::State &state, int size, Prepare prepare, Work work)
{
    using clock = std::chrono::steady_clock;
    const int count = std::max(1, 1000 / size);
    for (auto _ : state) {
        std::vector<Subject> subjects(static_cast<size_t>(count));
        for (Subject &subject : subjects) { prepare(subject); }
        const clock::time_point start = clock::now();
        for (Subject &subject : subjects) { work(subject); }
        state.SetIterationTime(std::chrono::duration<double>(clock::now() - start).count());
    }
    state.SetItemsProcessed(state.iterations() * count * size);
}

/** An integer as a key or a datum of a list or a table. */
inline void *word(intptr_t number) { return reinterpret_cast<void *>(number); }

/** Texts of the kind that programs use as keys: `count` of them, from number `first` on. */
inline std::vector<std::string> texts(int count, int first = 0)
{
    std::vector<std::string> result;
    for (int i = first; i < first + count; ++i) {
        result.push_back(std::string(1, static_cast<char>('a' + i % 26)) + "-interface-" + std::to_string(i * 7919L) +
                         ".state");
    }
    return result;
}

inline std::vector<const char *> pointers(const std::vector<std::string> &strings)
{
    std::vector<const char *> result;
    for (const std::string &string : strings) { result.push_back(string.c_str()); }
    return result;
}

/** Goes round and round from 0 to `size` - 1. */
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
