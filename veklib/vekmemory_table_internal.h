/* SPDX-License-Identifier: MIT */
/* What the three sources of vekmemory share. vekmemory.cpp keeps the tables and serves the calls;
 * vekmemory_trace.cpp writes lines and wraps tables; vekmemory_queries.cpp asks the kernel. Only
 * vekmemory.cpp writes to a table. A slot is read and written as a whole word, by load() and
 * store(): allocations of other threads may race with the first use.
 */
#ifndef VEKLIB_VEKMEMORY_TABLE_INTERNAL_H
#define VEKLIB_VEKMEMORY_TABLE_INTERNAL_H

#include <stdint.h>

#include "veklib/vekmemory.h"

namespace vekmemory {

constexpr size_t unknown_size = SIZE_MAX;

/* Force-inlined: at -Os the compiler emits a call, and the entry points lose their tail jump. */
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

/** What the application installed; the default table until then. Empty until the first use, and
 *  never holds a wrapper. Declared hidden, so that ARM needs no relocation for its address. */
[[gnu::visibility("hidden")]] extern VekMemoryVtable installed;

/** Makes the first-use installation, or waits until the thread that makes it is done. */
void complete_first_use();

/** Brings the active table in line with the installed one and the trace switch. During the
 *  first-use installation it does nothing: the installation ends with it, so that no call of a
 *  racing thread is served between the table and its tracing. */
void publish();

/* ---- vekmemory_trace.cpp ---- */

/** Puts the wrappers into the allocating and releasing slots of `table` if tracing is on. */
void wrap_if_tracing(VekMemoryVtable &table);

/* Each writes the line of a request that the error state refuses, and returns null. Cold, so that
 * the functions that call them remain a test and a jump. */
[[gnu::cold]] void *refuse_malloc(size_t size, void *return_address);
[[gnu::cold]] void *refuse_calloc(size_t count, size_t size, void *return_address);
[[gnu::cold]] void *refuse_realloc(void *block, size_t size, void *return_address);
[[gnu::cold]] void *refuse_malloc_if_possible(size_t size, void *return_address);

/* ---- vekmemory_queries.cpp ---- */

/* The machine's memory in bytes. They leave errno alone.
 * Fails: "/proc/meminfo" cannot be read, or the number is not in it, or it does not fit a size ->
 *        `unknown_size` */
size_t query_total_bytes();
size_t query_free_bytes();

} // namespace vekmemory

#endif
