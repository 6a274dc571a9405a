/* SPDX-License-Identifier: MIT */
/* The library's jobs next to what people use instead, in one process and one run. Each job and its
 * peer do the same work; read their ratio, not the times. */
#include <veklib/vekhash.h>
#include <veklib/vekmemory.h>
#include <veklib/vekslist.h>

#include <cstdint>
#include <cstdlib>
#include <forward_list>
#include <unordered_map>

#include <benchmark/benchmark.h>

namespace {

void *element(intptr_t number)
{
    return reinterpret_cast<void *>(number);
}

template <auto allocate, auto release>
void pair(benchmark::State &state)
{
    const auto size = static_cast<size_t>(state.range(0));
    for (auto _ : state) {
        void *block = allocate(size);
        benchmark::DoNotOptimize(block);
        release(block);
    }
}

void list_of_veklib(benchmark::State &state)
{
    for (auto _ : state) {
        VekSList *list = nullptr;
        for (intptr_t i = 0; i < state.range(0); ++i) {
            list = vek_slist_prepend(list, element(i));
        }
        intptr_t sum = 0;
        for (const VekSList *node = list; node != nullptr; node = node->next) {
            sum += reinterpret_cast<intptr_t>(node->data);
        }
        benchmark::DoNotOptimize(sum);
        vek_slist_free(list, nullptr);
    }
}

void list_of_std(benchmark::State &state)
{
    for (auto _ : state) {
        std::forward_list<void *> list;
        for (intptr_t i = 0; i < state.range(0); ++i) {
            list.push_front(element(i));
        }
        intptr_t sum = 0;
        for (void *data : list) {
            sum += reinterpret_cast<intptr_t>(data);
        }
        benchmark::DoNotOptimize(sum);
    }
}

void hash_of_veklib(benchmark::State &state)
{
    VekHash *const hash = vek_hash_new();
    for (intptr_t i = 0; i < state.range(0); ++i) {
        vek_hash_insert(hash, element(i), element(i));
    }
    intptr_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(vek_hash_lookup(hash, element(i)));
        i = i + 1 < state.range(0) ? i + 1 : 0;
    }
    vek_hash_destroy(hash);
}

void hash_of_std(benchmark::State &state)
{
    std::unordered_map<intptr_t, void *> hash;
    for (intptr_t i = 0; i < state.range(0); ++i) {
        hash.emplace(i, element(i));
    }
    intptr_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(hash.find(i)->second);
        i = i + 1 < state.range(0) ? i + 1 : 0;
    }
}

} // namespace

BENCHMARK(pair<vek_malloc, vek_free>)->Name("malloc_free/veklib")->Arg(16)->Arg(256);
BENCHMARK(pair<malloc, free>)->Name("malloc_free/libc")->Arg(16)->Arg(256);
BENCHMARK(list_of_veklib)->Name("list/veklib")->Arg(10)->Arg(1000);
BENCHMARK(list_of_std)->Name("list/forward_list")->Arg(10)->Arg(1000);
BENCHMARK(hash_of_veklib)->Name("hash_hit/veklib")->Arg(10)->Arg(1000);
BENCHMARK(hash_of_std)->Name("hash_hit/unordered_map")->Arg(10)->Arg(1000);

BENCHMARK_MAIN();
