/* SPDX-License-Identifier: MIT */
/* What the three sources of vekmemory share. vekmemory.cpp keeps the tables and serves the calls;
 * vekmemory_trace.cpp writes trace lines and puts wrappers into tables; vekmemory_queries.cpp asks
 * the kernel. Only vekmemory.cpp writes to the shared tables. A pointer in a table is read and
 * written as a whole word, by load() and store(), because allocations of other threads may race
 * with the first use.
 */
#ifndef VEKLIB_VEKMEMORY_TABLE_INTERNAL_H
#define VEKLIB_VEKMEMORY_TABLE_INTERNAL_H

#include <stdint.h>

#include "veklib/vekmemory.h"

/* Hidden where they are declared, too: calls and addresses then need no linkage table. */
#pragma GCC visibility push(hidden)

namespace vekmemory {

constexpr size_t unknown_size = SIZE_MAX;

/* Force-inlined: otherwise the compiler emits a call at -Os, and the entry points cannot end in a
 * jump. */
template <typename Slot>
[[gnu::always_inline]] inline Slot load(const Slot &slot)
{
    return __atomic_load_n(&slot, __ATOMIC_RELAXED);
}

template <typename Slot>
inline void store(Slot &slot, Slot value)
{
    __atomic_store_n(&slot, value, __ATOMIC_RELEASE);
}

/* ---- vekmemory.cpp ---- */

/** The table that the application installed; the default table until then. It is empty until the
 *  first use, and never holds a wrapper. */
extern VekMemoryVtable installed;

/** Makes the first-use installation, or waits until the thread that makes it is done. */
void complete_first_use();

/** Makes the active table agree with the installed one and the trace switch. Does nothing during
 *  the first-use installation, which calls it at its end: no call of a racing thread is served
 *  after the table is installed but before it is traced. */
void publish();

/* ---- vekmemory_trace.cpp ---- */

/** If tracing is on, replaces the operations of `table` that allocate or release by wrappers. */
void wrap_if_tracing(VekMemoryVtable &table);

/* Each writes the trace line of a request that is refused in the error state, and returns null.
 * Cold, so that the functions that call them remain a test and a jump. */
[[gnu::cold]] void *refuse_malloc(size_t size, void *return_address);
[[gnu::cold]] void *refuse_calloc(size_t count, size_t size, void *return_address);
[[gnu::cold]] void *refuse_realloc(void *block, size_t size, void *return_address);
[[gnu::cold]] void *refuse_malloc_if_possible(size_t size, void *return_address);

/* ---- vekmemory_queries.cpp ---- */

/* Return the machine's memory, and how much of it is free, in bytes. errno stays unchanged.
 * Fails: "/proc/meminfo" cannot be read, or the number is not in it, or its bytes do not fit into
 *        a size_t -> `unknown_size`. A number of 2^31 kilobytes or more is not read correctly. */
size_t query_total_bytes();
size_t query_free_bytes();

} // namespace vekmemory

#pragma GCC visibility pop

#endif
