/* SPDX-License-Identifier: MIT */
/* For families that allocate on behalf of their callers, and for those that open files. */
#ifndef VEKLIB_VEKMEMORY_INTERNAL_H
#define VEKLIB_VEKMEMORY_INTERNAL_H

#include <stdio.h>

#include "veklib/vekmemory.h"

/* An entry point that hands on its caller's address. Inlined into another function of the library
 * it would hand on the address of that function's caller. */
#define VEK_ENTRY __attribute__((noinline))

/* The address that the entry point returns to: the code that asked. */
#define VEK_CALLER __builtin_return_address(0)

/** A block for one T, charged to the code at `caller`; null without memory. */
template <typename T>
[[gnu::always_inline]] inline T *vek_new_for(void *caller)
{
    return static_cast<T *>(vek_malloc_with_return(sizeof(T), caller));
}

/** A block for one T, charged to the function that this stands in; null without memory. */
template <typename T>
[[gnu::always_inline]] inline T *vek_new()
{
    return static_cast<T *>(vek_malloc(sizeof(T)));
}

/** fopen(), for a file that programs started by this one do not inherit. */
FILE *vek_open_file(const char *path, const char *mode);

#endif
