/* SPDX-License-Identifier: MIT */
/* For families that allocate on behalf of their callers, and for those that open files. */
#ifndef VEKLIB_VEKMEMORY_INTERNAL_H
#define VEKLIB_VEKMEMORY_INTERNAL_H

#include <stdio.h>

#include "veklib/vekcompiler_internal.h"
#include "veklib/vekmemory.h"

/* An entry point that passes on its return address as VEK_CALLER. If it were inlined into another
 * function of the library, it would pass on the return address of that function. */
#define VEK_ENTRY __attribute__((noinline))

/* The address that the entry point returns to; it lies in the calling code. */
#define VEK_CALLER __builtin_return_address(0)

/** Allocates a block for one T, charged to the code at `caller`; null without memory. */
template <typename T>
[[gnu::always_inline]] inline T *vek_new_for(void *caller)
{
    return static_cast<T *>(vek_malloc_with_return(sizeof(T), caller));
}

/** Allocates a block for one T, charged to the function that calls this; null without memory. */
template <typename T>
[[gnu::always_inline]] inline T *vek_new()
{
    return static_cast<T *>(vek_malloc(sizeof(T)));
}

/** fopen() for a file that is closed on exec: programs started by this one do not inherit it. */
VEK_HIDDEN FILE *vek_open_file(const char *path, const char *mode);

#endif
