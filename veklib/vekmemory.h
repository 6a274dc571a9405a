/* SPDX-License-Identifier: MIT */
/** @file vekmemory.h
 *  Memory: every allocation of the library goes through one process-wide table of allocator
 *  operations, which the application can replace. Every allocation and release can be traced.
 *
 *  The default table uses the C library's allocator. An application can install a table of its own
 *  with vek_set_memory_vtable(), or replace a single entry point by defining a function of the same
 *  name. The library calls its own entry points through the dynamic symbol table, so it uses such a
 *  definition too. The definition can call the original, whose name is `__vek_default_...`. The
 *  plain and the `_with_return` forms do not call each other, and the library uses both. If the
 *  application's definitions do not call the originals in the end, it must define all entry points
 *  that allocate, resize or release, in both forms.
 *
 *      char *copy = vek_malloc(size);
 *      ...
 *      vek_free(copy);
 *
 *  Every entry point passes its return address, which lies in the calling code, to the table; trace
 *  lines print it. The `_with_return` forms take that address as an argument, for functions that
 *  allocate on behalf of their callers. What is charged to whom:
 *
 *      the caller    blocks of the functions below; all that vekstrfuncs.h makes; the nodes of
 *                    vek_slist_prepend(), _append() and _insert_after(); the entries of
 *                    vek_hash_insert(); every VekStr that vekstr.h and vek_name_to_vek_str() make;
 *                    each VekNameTable
 *      the library   the nodes of vek_slist_dup() and of stacks; each VekHash and its slots; names,
 *                    with their texts and entries; all that values, dictionaries, errors and debug
 *                    output allocate, including the texts that vekvalue.h makes for its caller
 *
 *  A release is charged to the code that calls vek_free() or vek_realloc(). That is the library,
 *  except for blocks that the application releases itself.
 *
 *  Threads: allocating and releasing is as thread-safe as the operations of the table; those of the
 *  default table are thread-safe. Install tables, change the error state and switch tracing only
 *  while no other thread allocates through the library. The first use may happen in several threads
 *  at once: one of them installs the table through vek_set_memory_vtable(), and the others wait. If
 *  the application defines that function itself, its definition may allocate during this call, but
 *  it must return and must not wait for other threads; the application prepares what its table
 *  needs before it starts threads.
 *
 *  Environment: if VEK_MALLOC_TRACE is a decimal number other than 0, tracing is switched on
 *  whenever a table is installed (the first use installs one), even if it was switched off before.
 *  VEK_MALLOC_TRACE_FILE names a file to which trace lines go instead of the standard error stream.
 *  It is read once, when the first line is written. The file is emptied, receives each line as soon
 *  as the line is complete, stays open, and is closed on exec. If it cannot be opened, one message
 *  says so and the lines go to the standard error stream; without that stream the first line is a
 *  fatal error. A program with more rights than its user (set-user-id, set-group-id, file
 *  capabilities) ignores both variables.
 *
 *  If the file is a named pipe, opening it waits until another process opens the pipe for reading,
 *  and a line that is written after the reader has closed it raises SIGPIPE. A line that exceeds a
 *  limit on the size of files raises SIGXFSZ. Both signals end a process that neither ignores nor
 *  handles them.
 *
 *  Tools may rely on the format of trace lines. Addresses look as "%p" prints them, null as
 *  "(nil)". Sizes are printed as signed numbers of the machine's width, so a size in the upper half
 *  of the range is negative:
 *
 *      0x401136: vek_malloc(16) => 0x1f2e2a0 [#1]
 *      0x401144: vek_calloc(2, 8) => 0x1f2e2c0 [#2]
 *      0x401152: vek_realloc(0x1f2e2a0, 32) => 0x1f2e2e0 [#3]
 *      0x401160: vek_free(0x1f2e2e0)
 *      0x40116e: vek_malloc(64) => NULL, in error state
 *      0x40116e: vek_malloc(64) => (nil) [#4]
 *
 *  Lines of vek_malloc_if_possible and vek_malloc_if_available look like those of vek_malloc. The
 *  line of an allocation is written after the operation, that of a release before it; lines of
 *  different threads come in any order. A request that is refused in the error state has a line of
 *  its own without a number, even while tracing is off. While tracing is on, the line of the
 *  allocation follows it.
 */
#ifndef VEKLIB_VEKMEMORY_H
#define VEKLIB_VEKMEMORY_H

#include <stddef.h>

#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** The allocator operations. `return_address` is always an address in the calling code. */
typedef struct VekMemoryVtable {
    /** Returns a block of `size` bytes (never 0 here), or null. Required. */
    void *(*malloc)(size_t size, void *return_address);
    /** Returns a zero-filled block of `count` times `size` bytes, or null. The product is never 0
     *  here. If it exceeds SIZE_MAX, the result is null. Required. */
    void *(*calloc)(size_t count, size_t size, void *return_address);
    /** Resizes `block` (null: a new block) to `size` bytes and returns it, or returns null and
     *  leaves the block unchanged. Size 0 releases the block. `block` may be null and `size` 0 in
     *  the same call. Required. */
    void *(*realloc)(void *block, size_t size, void *return_address);
    /** Releases `block`, which is never null here. Required. */
    void (*free)(void *block, void *return_address);
    /** What vek_mark() calls. May be null. */
    void (*mark)(void);
    /** Like `malloc`, for memory that the caller can do without. Required. */
    void *(*malloc_if_possible)(size_t size, void *return_address);
    /** Like `malloc`, for a request to be served as long as there is any memory. Required. */
    void *(*malloc_if_available)(size_t size, void *return_address);
    /** Returns the machine's memory in bytes, SIZE_MAX if unknown. May be null. */
    size_t (*get_total_bytes)(void);
    /** Returns the machine's free memory in bytes, SIZE_MAX if unknown. May be null. */
    size_t (*get_free_bytes)(void);
    /** Returns the error state, 0 if there is none. May be null. */
    int (*get_error)(void);
    /** Enters (`error` not 0) or leaves (0) the error state. May be null. */
    void (*set_error)(int error);
} VekMemoryVtable;

/* ---- The allocator table ---- */

/** Returns the table that was installed last, at first the default one. It never holds tracing
 *  wrappers. If nothing has used the allocator yet, this call is the first use, which applies
 *  VEK_MALLOC_TRACE.
 *  @return  the library's own storage, borrowed, valid for the life of the process. It changes when
 *           a table is installed, so copy it if you want to restore it later
 */
VEK_API const VekMemoryVtable *vek_get_memory_vtable(void);

/** Installs an allocator table, then switches tracing on if VEK_MALLOC_TRACE asks for it. If
 *  tracing is on already, it stays on and traces the new table.
 *  @param table  the table, copied; null installs the default table
 *  Blocks that exist are resized and released through the new table. Install it before the first
 *  allocation, unless its operations can handle the blocks of the old table.
 */
VEK_API void vek_set_memory_vtable(const VekMemoryVtable *table);

/* ---- Release and resize ---- */

/** Releases a block that any of the functions below returned.
 *  @param block  the block, taken; null does nothing
 */
VEK_API void vek_free(void *block);

/** vek_free() on behalf of the code at `return_address`. */
VEK_API void vek_free_with_return(void *block, void *return_address);

/** Resizes a block.
 *  @param block  the block, taken on success; null allocates a new one
 *  @param size   new size in bytes; 0 releases the block
 *  @return  the resized block, which may have moved; release with vek_free()
 *  Fails:   no memory or error state -> null, and the block is unchanged. Size 0 -> null, and the
 *           block is released, even in the error state. For a null block with size 0 the table
 *           decides: the default one returns a block, which must be released
 */
VEK_API VEK_MUST_USE VEK_SIZED_BY(2) void *vek_realloc(void *block, size_t size);

/** vek_realloc() on behalf of the code at `return_address`. */
VEK_SIZED_BY(2)
VEK_API VEK_MUST_USE void *vek_realloc_with_return(void *block, size_t size, void *return_address);

/* ---- Allocation ---- */

/** A function whose result is released with vek_free(); GCC warns if free() or the like is used
 *  instead. The functions that resize are not named here: GCC would then also warn if a block is
 *  released after an attempt to resize it failed. */
#define VEK_RELEASED_WITH_FREE VEK_RELEASED_WITH(vek_free) VEK_RELEASED_WITH(vek_free_with_return)

/** A function that returns null or a new block. */
#define VEK_NEW_BLOCK VEK_NEW VEK_RELEASED_WITH_FREE

/** VEK_NEW_BLOCK for a block of as many bytes as one argument says, or as the product of two. */
#define VEK_NEW_BLOCK_OF(...) VEK_NEW_BLOCK VEK_SIZED_BY(__VA_ARGS__)

/** Allocates a block.
 *  @param size  bytes
 *  @return  the block, uninitialised; release with vek_free()
 *  Fails:   size 0 -> null, without a call to the table; no memory or error state -> null
 */
VEK_API VEK_NEW_BLOCK_OF(1) void *vek_malloc(size_t size);

/** vek_malloc() on behalf of the code at `return_address`. */
VEK_API VEK_NEW_BLOCK_OF(1) void *vek_malloc_with_return(size_t size, void *return_address);

/** Allocates a zero-filled block.
 *  @param count  number of elements
 *  @param size   bytes of one element
 *  @return  the block; release with vek_free()
 *  Fails:   count times size is 0 -> null, without a call to the table; no memory, more than
 *           SIZE_MAX bytes, or error state -> null
 */
VEK_API VEK_NEW_BLOCK_OF(1, 2) void *vek_calloc(size_t count, size_t size);

/** vek_calloc() on behalf of the code at `return_address`. */
VEK_NEW_BLOCK_OF(1, 2)
VEK_API void *vek_calloc_with_return(size_t count, size_t size, void *return_address);

/** vek_malloc() for memory that the caller can do without; a table may refuse such a request
 *  earlier. The default table treats both alike. */
VEK_API VEK_NEW_BLOCK_OF(1) void *vek_malloc_if_possible(size_t size);

/** vek_malloc_if_possible() on behalf of the code at `return_address`. */
VEK_NEW_BLOCK_OF(1)
VEK_API void *vek_malloc_if_possible_with_return(size_t size, void *return_address);

/** vek_malloc() for a request that the default table serves even in the error state. */
VEK_API VEK_NEW_BLOCK_OF(1) void *vek_malloc_if_available(size_t size);

/** vek_malloc_if_available() on behalf of the code at `return_address`. */
VEK_NEW_BLOCK_OF(1)
VEK_API void *vek_malloc_if_available_with_return(size_t size, void *return_address);

/* ---- Queries and the error state ---- */

/** Returns the machine's memory in bytes, SIZE_MAX if unknown. The default table reads it from
 *  "/proc/meminfo" and leaves errno unchanged. */
VEK_API size_t vek_malloc_get_total_bytes(void);

/** Returns the machine's free memory in bytes; its whole memory if the table reports only that;
 *  SIZE_MAX if unknown. The default table reads it from "/proc/meminfo" and leaves errno unchanged.
 */
VEK_API size_t vek_malloc_get_free_bytes(void);

/** Returns the error state, 0 if there is none. The default table returns the byte that was set. If
 *  the table has no error state, the result is 0. */
VEK_API int vek_malloc_get_error(void);

/** Enters or leaves the error state. In this state the default table refuses all requests for
 *  memory except those of vek_malloc_if_available(), and writes a trace line for each; it still
 *  releases blocks.
 *  @param error  0 leaves it, anything else enters it; nothing happens if the table has no error
 *                state. The default table stores only the lowest byte, so 256 leaves it too
 */
VEK_API void vek_malloc_set_error(int error);

/** Calls the table's `mark` operation, if there is one. The library itself never does so. */
VEK_API void vek_mark(void);

/* ---- Tracing ---- */

/** Switches tracing on; does nothing if it is on already. If nothing has been allocated yet, the
 *  very first allocation is traced too. Each allocation that reaches the table then writes one
 *  line, even if it fails: an address in the calling code, the operation, the result and a running
 *  number. Each release writes a line without result and number.
 */
VEK_API void vek_memory_enable_trace(void);

/** Switches tracing off; does nothing if it is off already. The table that was installed last stays
 *  in force. When tracing is switched on again, the lines go to the same destination and the
 *  numbers continue. */
VEK_API void vek_memory_disable_trace(void);

/* ---- The originals, for applications that define an entry point of their own ----
 * (An application can define the two trace switches too; their originals have no other name.) */

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
