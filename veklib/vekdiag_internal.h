/* SPDX-License-Identifier: MIT */
/* What vekdiag offers to the library's other families: argument checks in the library's own form,
 * and numbers from the environment. Use the checks in .cpp files only: the path that they print is
 * that of the source being compiled. */
#ifndef VEKLIB_VEKDIAG_INTERNAL_H
#define VEKLIB_VEKDIAG_INTERNAL_H

#include "veklib/vekcompiler_internal.h"
#include "veklib/vekdiag.h"

/* The function below has no symbol. If it had a stack frame, every fatal report would show a frame
 * without a name between the check and the warning. GCC therefore leaves it by a jump where it can,
 * although the library is compiled without such jumps. Clang has no attribute for that, so Clang
 * inlines the function; builds without optimisation do, too. */
#if defined(__clang__) || !defined(__OPTIMIZE__)
#define VEK_WITHOUT_FRAME __attribute__((always_inline)) inline
#else
#define VEK_WITHOUT_FRAME __attribute__((cold, noinline, optimize("optimize-sibling-calls")))
#endif

/** vek_warn_failed_assertion() for the checks of one source; it supplies the path of the source. */
[[maybe_unused]] VEK_WITHOUT_FRAME static void vek_failed_check(const char *condition, int line,
                                                                const char *function)
{
    vek_warn_failed_assertion(__BASE_FILE__, line, function, condition);
}

/* Inside the library the checks call vek_failed_check() without the path: one argument fewer per
 * check makes the library 5 % smaller. */
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

/** Reads an environment variable as a decimal number. Leading blanks and a sign are accepted, and
 *  what follows the digits is ignored; text without digits gives 0. Numbers beyond the range of int
 *  give the nearest limit, even if long is wider. errno stays unchanged.
 *  Fails: variable not set, or a program with more rights than its user -> `otherwise`
 */
VEK_HIDDEN int vek_environment_number(const char *name, int otherwise);

#endif
