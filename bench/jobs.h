/* SPDX-License-Identifier: MIT */
/* How jobs are named and registered: "job/size/who". The same job of the library ("veklib") and of its
 * peers does the same work on the same keys; what counts is the ratio of their times. */
#ifndef VEKLIB_BENCH_JOBS_H
#define VEKLIB_BENCH_JOBS_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {

using Job = void(benchmark::State &state, int size);

/** Registers one contender of a job for each size. */
inline int add(const char *job, const char *who, Job *run, std::initializer_list<int> sizes)
{
    for (const int size : sizes) {
        const std::string name = std::string(job) + "/" + std::to_string(size) + "/" + who;
        benchmark::RegisterBenchmark(name.c_str(), run, size);
    }
    return 0;
}

inline void *word(intptr_t number) { return reinterpret_cast<void *>(number); }

/** `count` texts of the kind that programs use as keys. */
inline const std::vector<std::string> &texts(int count)
{
    static std::vector<std::string> all;
    for (int i = static_cast<int>(all.size()); i < count; ++i) {
        all.push_back(std::string(1, static_cast<char>('a' + i % 26)) + "-interface-" + std::to_string(i * 7919) +
                      ".state");
    }
    return all;
}

/** Goes round and round from 0 to `size` - 1. */
class Round {
public:
    explicit Round(int size) : size_(size) {}
    int next() { return at_ = at_ + 1 < size_ ? at_ + 1 : 0; }

private:
    int size_;
    int at_ = -1;
};

} // namespace bench

#endif
