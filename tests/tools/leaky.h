/* SPDX-License-Identifier: MIT */
#ifndef LEAKY_H
#define LEAKY_H

#include <veklib/vekmacros.h>

#ifdef __clang__
#define NOINLINE __attribute__((noinline))
#else
#define NOINLINE __attribute__((noinline, noclone))
#endif
#define ALWAYS_INLINE __attribute__((always_inline))
/* Variables that are written and never read. */
#define KEPT static __attribute__((used))

VEK_BEGIN_DECLS
void leak_in_cpp(void);
void leak_in_plugin(void);
VEK_END_DECLS

#endif
