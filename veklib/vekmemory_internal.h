/* SPDX-License-Identifier: MIT */
/* For families that allocate on behalf of their callers. */
#ifndef VEKLIB_VEKMEMORY_INTERNAL_H
#define VEKLIB_VEKMEMORY_INTERNAL_H

/* An entry point that hands on its caller's address. Inlined into another function of the library
 * it would hand on the address of that function's caller. */
#define VEK_ENTRY __attribute__((noinline))

/* The address that the entry point returns to: the code that asked. */
#define VEK_CALLER __builtin_return_address(0)

#endif
