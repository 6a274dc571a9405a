/* SPDX-License-Identifier: MIT */
/* The keys of all measurements. */
#ifndef VEKLIB_BENCH_KEYS_H
#define VEKLIB_BENCH_KEYS_H

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace bench {

/** An integer as a list's element, or a table's key or datum. */
inline void *word(intptr_t number) { return reinterpret_cast<void *>(number); }

/** `count` texts like those that programs use as keys, from number `first` on. Some begin alike.
 *  Jobs store one copy and search with another, so that no comparison ends early because the
 *  addresses are equal. */
inline std::vector<std::string> texts(int count, int first = 0)
{
    constexpr const char *kinds[] = {"interface", "route",  "sensor", "timer",
                                     "input",     "bridge", "status", "uplink"};
    std::vector<std::string> result;
    for (int i = first; i < first + count; ++i) {
        result.push_back(std::string(kinds[i % 8]) + "-" + std::to_string(i * 7919L) + ".state");
    }
    return result;
}

/** The elements in another order, which is the same in each run: no job searches keys in the order
 *  in which they were stored. */
template <typename Element>
std::vector<Element> shuffled(std::vector<Element> elements)
{
    std::shuffle(elements.begin(), elements.end(), std::mt19937(1));
    return elements;
}

inline std::vector<const char *> pointers(const std::vector<std::string> &strings)
{
    std::vector<const char *> result;
    for (const std::string &string : strings) { result.push_back(string.c_str()); }
    return result;
}

} // namespace bench

#endif
