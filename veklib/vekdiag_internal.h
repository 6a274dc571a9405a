/* SPDX-License-Identifier: MIT */
/* What the library's other families share with vekdiag: numbers from the environment, and
 * assertions. */
#ifndef VEKLIB_VEKDIAG_INTERNAL_H
#define VEKLIB_VEKDIAG_INTERNAL_H

#undef NDEBUG // for the declaration of __assert_fail(); it makes assert() live, too
#include <assert.h>

#include <optional>

/** Ends the process through the platform's assertion facility when an invariant does not hold, in
 *  every build type. Prints the condition as it is written and the plain name of the function,
 * which assert() does not in C++. */
#define VEK_ASSERT(condition)                                                                      \
    ((condition) ? static_cast<void>(0) : __assert_fail(#condition, __FILE__, __LINE__, __func__))

/** Reads an environment variable as a decimal number: leading blanks and a sign are accepted, what
 *  follows the digits is ignored, no digits give 0. Numbers beyond the range of int give the
 *  nearest limit, on platforms with a wider long as well. Leaves errno alone.
 *  Fails: variable not set -> no value.
 */
std::optional<int> vek_environment_number(const char *name);

#endif
