/* SPDX-License-Identifier: MIT */
/* What the library's other families share with vekdiag: argument checks in the library's own form,
 * and numbers from the environment. */
#ifndef VEKLIB_VEKDIAG_INTERNAL_H
#define VEKLIB_VEKDIAG_INTERNAL_H

#include "veklib/vekdiag.h"

/* The function below has no name to show and is kept out of fatal reports: GCC lets it end in a
 * jump, where the target's calls allow that, although the library is compiled without such jumps;
 * Clang, which cannot be told so, and builds that do not optimise have it inline. */
#if defined(__clang__) || !defined(__OPTIMIZE__)
#define VEK_WITHOUT_FRAME __attribute__((always_inline)) inline
#else
#define VEK_WITHOUT_FRAME __attribute__((cold, noinline, optimize("optimize-sibling-calls")))
#endif

/** vek_warn_failed_assertion() for the checks of one source, whose path it knows. */
[[maybe_unused]] VEK_WITHOUT_FRAME static void vek_failed_check(const char *condition, int line,
                                                                const char *function)
{
    vek_warn_failed_assertion(__BASE_FILE__, line, function, condition);
}

/* Inside the library the checks do what vekdiag.h says, through that function: an argument less at
 * each of hundreds of checks makes the library smaller by a twentieth. They stand in sources only,
 * for the path is the source's. */
#undef VEK_RETURN_IF_FAIL
#undef VEK_RETURN_VAL_IF_FAIL

#define VEK_RETURN_IF_FAIL(condition)                                                              \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            vek_failed_check(#condition, __LINE__, __func__);                                      \
            return;                                                                                \
        }                                                                                          \
    } while (0)

#define VEK_RETURN_VAL_IF_FAIL(condition, value)                                                   \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            vek_failed_check(#condition, __LINE__, __func__);                                      \
            return value;                                                                          \
        }                                                                                          \
    } while (0)

/** Reads an environment variable as a decimal number; a program with more rights than its user
 *  reads none. Leading blanks and a sign are accepted, what follows the digits is ignored, no
 *  digits give 0. Numbers beyond the range of int give the nearest limit, on platforms with a
 *  wider long as well. Leaves errno alone.
 *  Fails: variable not set -> `otherwise`
 */
int vek_environment_number(const char *name, int otherwise);

#endif
