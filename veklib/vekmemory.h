/* SPDX-License-Identifier: MIT */
/** @file vekmemory.h
 *  Memory: one process-wide, replaceable table of allocator operations that every allocation of
 *  the library passes through, and tracing of every allocation and release.
 *
 *  The default table uses the C library's allocator. An application may install a table of its own
 *  (vek_set_memory_vtable), or replace a single entry point by defining a function of the same
 *  name: the library calls its own entry points through the dynamic symbol table, so such a
 *  definition serves the library too and reaches the original under the name `__vek_default_...`.
 *  The plain and the `_with_return` forms are independent of each other, and the library uses both:
 *  definitions that do not end in the originals must cover all of them, releases included.
 *
 *      char *copy = vek_malloc(size);
 *      ...
 *      vek_free(copy);
 *
 *  Every entry point hands the address that it returns to (the code that asked) to the table;
 *  traces print it. The `_with_return` forms take that address as an argument, for functions that
 *  allocate on behalf of their caller. Who is charged with what:
 *
 *      the caller    blocks of the functions below; all that vekstrfuncs.h makes; the nodes of
 *                    vek_slist_prepend(), _append() and _insert_after(); the entries of
 *                    vek_hash_insert(); every VekStr that vekstr.h and vek_name_to_vek_str() make;
 *                    the record of a name table
 *      the library   the nodes of vek_slist_dup() and of stacks; records and slots of hash tables;
 *                    names, with their texts and entries; all that values, dictionaries, errors and
 *                    debug output allocate, the texts included that vekvalue.h makes for its caller
 *
 *  A release is charged to the code that calls vek_free() or vek_realloc(): for all but blocks that
 *  the application releases itself, the library.
 *
 *  Threads: allocation is as thread-safe as the table's operations; the default ones are. Tables,
 *  the error state and tracing are switched while no other thread allocates through the library.
 *  The first use may be raced: one thread makes it, through vek_set_memory_vtable(), and the others
 *  wait. A definition of that name by the application may itself allocate then, but must not wait
 *  for other threads, must return, and prepares what its table needs before threads are started.
 *
 *  Environment: VEK_MALLOC_TRACE, a decimal number other than 0, switches tracing on whenever a
 *  table is installed, the first use included, also after an explicit switching off.
 *  VEK_MALLOC_TRACE_FILE names the file that trace lines go to, instead of the standard error
 *  stream. It is read once, when the first line is written. The file is emptied, receives each line
 *  as soon as it is complete, stays open, and is closed on exec. If it cannot be opened, one
 *  message says so and the lines go to the standard error stream; without any stream the first line
 *  is a fatal error. A program with more rights than its user (set-user-id, set-group-id, file
 *  capabilities) ignores both variables.
 *
 *  If the file is a named pipe, opening it waits until somebody opens it for reading, and a line
 *  written after the reader has gone raises SIGPIPE; a limit on the size of files raises SIGXFSZ.
 *  Both signals end a process that neither ignores nor handles them.
 *
 *  Trace lines, as tools may read them (addresses in the form of "%p", null as "(nil)", sizes as
 *  signed numbers of the machine's width: one beyond its half prints as negative):
 *
 *      0x401136: vek_malloc(16) => 0x1f2e2a0 [#1]
 *      0x401144: vek_calloc(2, 8) => 0x1f2e2c0 [#2]
 *      0x401152: vek_realloc(0x1f2e2a0, 32) => 0x1f2e2e0 [#3]
 *      0x401160: vek_free(0x1f2e2e0)
 *      0x40116e: vek_malloc(64) => NULL, in error state
 *      0x40116e: vek_malloc(64) => (nil) [#4]
 *
 *  vek_malloc_if_possible and vek_malloc_if_available look like vek_malloc. An allocation's line
 *  comes after the operation, a release's before it; lines of different threads come in any order.
 *  A refusal in the error state has a line of its own, without number, also while tracing is off;
 *  while it is on, the allocation's line follows.
 */
#ifndef VEKLIB_VEKMEMORY_H
#define VEKLIB_VEKMEMORY_H

#include <stddef.h>

#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** The allocator operations. `return_address` is always the address of the code that asked. */
typedef struct VekMemoryVtable {
    /** Returns a block of `size` bytes (never 0 here), or null. Required. */
    void *(*malloc)(size_t size, void *return_address);
    /** Returns a zero-filled block of `count` times `size` bytes, or null. The product is never 0
     *  here, but it may exceed SIZE_MAX: null then. Required. */
    void *(*calloc)(size_t count, size_t size, void *return_address);
    /** Resizes `block` (null: a new block) to `size` bytes and returns it, or null with the block
     *  unchanged; size 0 releases the block. Null and 0 may come together. Required. */
    void *(*realloc)(void *block, size_t size, void *return_address);
    /** Releases `block`, which is never null here. Required. */
    void (*free)(void *block, void *return_address);
    /** What vek_mark() calls. May be null. */
    void (*mark)(void);
    /** As malloc, for a request that the caller can do without. Required. */
    void *(*malloc_if_possible)(size_t size, void *return_address);
    /** As malloc, for a request to serve as long as there is any memory. Required. */
    void *(*malloc_if_available)(size_t size, void *return_address);
    /** Returns the machine's memory in bytes, all ones if unknown. May be null. */
    size_t (*get_total_bytes)(void);
    /** Returns the machine's free memory in bytes, all ones if unknown. May be null. */
    size_t (*get_free_bytes)(void);
    /** Returns the error state: 0 for none. May be null. */
    int (*get_error)(void);
    /** Enters (`error` not 0) or leaves (0) the error state. May be null. */
    void (*set_error)(int error);
} VekMemoryVtable;

/* ---- The allocator table ---- */

/** Returns the table that was installed last, the default one at start: never tracing wrappers.
 *  If nothing has used the allocator yet, this is the first use, which applies VEK_MALLOC_TRACE.
 *  @return  the library's own storage, borrowed, valid for the life of the process; it changes
 *           when a table is installed, so copy it to restore it later
 */
VEK_API const VekMemoryVtable *vek_get_memory_vtable(void);

/** Installs an allocator table, then switches tracing on if VEK_MALLOC_TRACE asks for it. Tracing
 *  that is on stays on and traces the new table.
 *  @param table  the table, copied; null installs the default table
 *  Blocks stay with the table that they came from: install before the first allocation, or a table
 *  whose operations understand the live blocks.
 */
VEK_API void vek_set_memory_vtable(const VekMemoryVtable *table);

/* ---- Release and resize ---- */

/** Releases a block of any of the functions below.
 *  @param block  the block, taken; null does nothing
 */
VEK_API void vek_free(void *block);

/** vek_free() on behalf of the code at `return_address`. */
VEK_API void vek_free_with_return(void *block, void *return_address);

/** Resizes a block.
 *  @param block  the block, taken on success; null allocates a new one
 *  @param size   new size in bytes; 0 releases the block
 *  @return  the resized block, which may have moved; release with vek_free()
 *  Fails:   no memory or error state -> null, the block is unchanged. A block with size 0 is
 *           released, also in the error state -> null. Null with size 0 is the table's choice: the
 *           default one returns a block to release
 */
VEK_API VEK_MUST_USE VEK_SIZED_BY(2) void *vek_realloc(void *block, size_t size);

/** vek_realloc() on behalf of the code at `return_address`. */
VEK_SIZED_BY(2)
VEK_API VEK_MUST_USE void *vek_realloc_with_return(void *block, size_t size, void *return_address);

/* ---- Allocation ---- */

/** A function whose result is released with vek_free(); GCC warns of free() and the like. The
 *  functions that resize are not named: GCC would warn of a block that is released after it could
 *  not be resized. */
#define VEK_RELEASED_WITH_FREE VEK_RELEASED_WITH(vek_free) VEK_RELEASED_WITH(vek_free_with_return)

/** A function that returns null or a new block. */
#define VEK_NEW_BLOCK VEK_NEW VEK_RELEASED_WITH_FREE

/** VEK_NEW_BLOCK for a block of as many bytes as an argument says, or as two say, multiplied. */
#define VEK_NEW_BLOCK_OF(...) VEK_NEW_BLOCK VEK_SIZED_BY(__VA_ARGS__)

/** Allocates a block.
 *  @param size  bytes
 *  @return  the block, uninitialised; release with vek_free()
 *  Fails:   size 0 -> null, without asking the table; no memory or error state -> null
 */
VEK_API VEK_NEW_BLOCK_OF(1) void *vek_malloc(size_t size);

/** vek_malloc() on behalf of the code at `return_address`. */
VEK_API VEK_NEW_BLOCK_OF(1) void *vek_malloc_with_return(size_t size, void *return_address);

/** Allocates a zero-filled block.
 *  @param count  number of elements
 *  @param size   bytes of one element
 *  @return  the block; release with vek_free()
 *  Fails:   count times size is 0 -> null, without asking the table; no memory, more than SIZE_MAX
 *           bytes, or error state -> null
 */
VEK_API VEK_NEW_BLOCK_OF(1, 2) void *vek_calloc(size_t count, size_t size);

/** vek_calloc() on behalf of the code at `return_address`. */
VEK_NEW_BLOCK_OF(1, 2)
VEK_API void *vek_calloc_with_return(size_t count, size_t size, void *return_address);

/** vek_malloc() for memory that the caller can do without; a table may refuse it earlier. The
 *  default table treats both alike. */
VEK_API VEK_NEW_BLOCK_OF(1) void *vek_malloc_if_possible(size_t size);

/** vek_malloc_if_possible() on behalf of the code at `return_address`. */
VEK_NEW_BLOCK_OF(1)
VEK_API void *vek_malloc_if_possible_with_return(size_t size, void *return_address);

/** vek_malloc() that the default table serves even in the error state. */
VEK_API VEK_NEW_BLOCK_OF(1) void *vek_malloc_if_available(size_t size);

/** vek_malloc_if_available() on behalf of the code at `return_address`. */
VEK_NEW_BLOCK_OF(1)
VEK_API void *vek_malloc_if_available_with_return(size_t size, void *return_address);

/* ---- Queries and the error state ---- */

/** Returns the machine's memory in bytes, all ones if unknown. The default table reads it from
 *  "/proc/meminfo" and leaves errno alone. */
VEK_API size_t vek_malloc_get_total_bytes(void);

/** Returns the machine's free memory in bytes; the total if the table has only that query; all ones
 *  if unknown. The default table reads it from "/proc/meminfo" and leaves errno alone. */
VEK_API size_t vek_malloc_get_free_bytes(void);

/** Returns the error state, 0 if there is none. The default table returns the byte that was set; a
 *  table without an error state gives 0. */
VEK_API int vek_malloc_get_error(void);

/** Enters or leaves the error state, in which the default table refuses new memory (all but
 *  vek_malloc_if_available) with a line on the trace destination, and still releases.
 *  @param error  0 leaves it, anything else enters it; nothing happens if the table has no error
 *                state. The default table keeps the lowest byte, so 256 leaves it, too
 */
VEK_API void vek_malloc_set_error(int error);

/** Calls the table's `mark` hook; does nothing if there is none. The library never calls it. */
VEK_API void vek_mark(void);

/* ---- Tracing ---- */

/** Switches tracing on, from the very first allocation if that is still to come; does nothing if it
 *  is on. Each allocation that reaches the table, failed ones included, then writes one line with
 *  the address that asked, the operation, the result and a running number; each release writes one
 *  without result and number.
 */
VEK_API void vek_memory_enable_trace(void);

/** Switches tracing off; does nothing if it is off. The table that was installed last stays in
 *  force, the destination stays chosen, and the numbers go on when tracing is switched on again. */
VEK_API void vek_memory_disable_trace(void);

/* ---- The originals, for applications that define an entry point of their own ----
 * (The two trace switches can be defined too, but have no second name.) */

VEK_API const VekMemoryVtable *__vek_default_get_memory_vtable(void);
VEK_API void __vek_default_set_memory_vtable(const VekMemoryVtable *table);
VEK_API VEK_NEW_BLOCK_OF(1) void *__vek_default_malloc(size_t size);
VEK_NEW_BLOCK_OF(1)
VEK_API void *__vek_default_malloc_with_return(size_t size, void *return_address);
VEK_API VEK_NEW_BLOCK_OF(1, 2) void *__vek_default_calloc(size_t count, size_t size);
VEK_NEW_BLOCK_OF(1, 2)
VEK_API void *__vek_default_calloc_with_return(size_t count, size_t size, void *return_address);
VEK_API VEK_MUST_USE VEK_SIZED_BY(2) void *__vek_default_realloc(void *block, size_t size);
VEK_SIZED_BY(2)
VEK_API VEK_MUST_USE void *__vek_default_realloc_with_return(void *block, size_t size,
                                                             void *return_address);
VEK_API VEK_NEW_BLOCK_OF(1) void *__vek_default_malloc_if_possible(size_t size);
VEK_NEW_BLOCK_OF(1)
VEK_API void *__vek_default_malloc_if_possible_with_return(size_t size, void *return_address);
VEK_API VEK_NEW_BLOCK_OF(1) void *__vek_default_malloc_if_available(size_t size);
VEK_NEW_BLOCK_OF(1)
VEK_API void *__vek_default_malloc_if_available_with_return(size_t size, void *return_address);
VEK_API void __vek_default_free(void *block);
VEK_API void __vek_default_free_with_return(void *block, void *return_address);
VEK_API size_t __vek_default_malloc_get_total_bytes(void);
VEK_API size_t __vek_default_malloc_get_free_bytes(void);
VEK_API int __vek_default_malloc_get_error(void);
VEK_API void __vek_default_malloc_set_error(int error);
VEK_API void __vek_default_mark(void);

VEK_END_DECLS

#endif
