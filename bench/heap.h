/* SPDX-License-Identifier: MIT */
/* What a program takes from the C library's allocator, and anonymous memory that it maps by itself.
 * heap.c replaces malloc() and its kin, and mmap(), by functions that count, for programs of one
 * thread. It serves in two ways: linked into a program, which asks for the figure, and preloaded
 * into a program, which then reports its memory when it ends.
 *
 * A block counts with what malloc_usable_size() says, which includes the rounding, and with the
 * word that the allocator keeps in front of it. So large blocks that are mapped, and the blocks
 * that pools and slices cut up, count in full; gaps between blocks and blocks that are free do not.
 * mallinfo2() would count blocks in the thread's cache as used, which depends on what was released
 * before. Memory that a program maps by itself counts in full and for ever: munmap() is not
 * replaced. */
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
