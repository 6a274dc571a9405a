// SPDX-License-Identifier: MIT
// The hash of the tables of addresses and numbers.
#ifndef VEKTRACE_HASH_H
#define VEKTRACE_HASH_H

#include <cstddef>
#include <cstdint>

namespace vektrace {

/** Adds a value to a hash. The upper half of the product depends on all bits. */
inline uint64_t mix(uint64_t hash, uint64_t value)
{
    hash = (hash ^ value) * 0x9e3779b97f4a7c15U;
    return hash ^ (hash >> 32);
}

/** Addresses are multiples of 8 or 16: they are no hash themselves. */
struct AddressHash {
    size_t operator()(uint64_t address) const { return mix(0, address); }
};

} // namespace vektrace

#endif
