/* SPDX-License-Identifier: MIT */
/* Assertions of invariants. Include this header last: it enables assert() in every build type. */
#ifndef VEKLIB_VEKASSERT_INTERNAL_H
#define VEKLIB_VEKASSERT_INTERNAL_H

#undef NDEBUG // <assert.h> declares __assert_fail() only without it
#include <assert.h>

/** Ends the process through the platform's assertion facility if an invariant does not hold, in
 *  every build type. Prints the condition as it is written, and the plain name of the function,
 *  where assert() in C++ prints more than the name. */
#define VEK_ASSERT(condition)                                                                      \
    ((condition) ? static_cast<void>(0) : __assert_fail(#condition, __FILE__, __LINE__, __func__))

#endif
