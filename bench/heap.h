/* SPDX-License-Identifier: MIT */
/* What a program takes from the C library's allocator. heap.c replaces malloc() and its kin by
 * functions that count. It serves in two ways: linked into a program, which asks for the figure,
 * and preloaded into any program, which then reports its peak when it ends.
 *
 * A block counts with what malloc_usable_size() says, which includes the rounding, and with the
 * word that the allocator keeps in front of it. So large blocks that are mapped, and the pages of
 * pools and slices, count in full; gaps between blocks and blocks that are free do not. mallinfo2()
 * would count blocks in the thread's cache as used, which depends on what was released before. */
#ifndef VEKLIB_BENCH_HEAP_H
#define VEKLIB_BENCH_HEAP_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Returns the bytes of all blocks that are in use. */
size_t heap_bytes(void);

#ifdef __cplusplus
}
#endif

#endif
