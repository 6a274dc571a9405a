/* SPDX-License-Identifier: MIT */
/** @file vekmacros.h
 *  What every public header of veklib is written with: C linkage, export and the compiler
 *  attributes that let GCC and Clang check the callers of the library.
 */
#ifndef VEKLIB_VEKMACROS_H
#define VEKLIB_VEKMACROS_H

#ifdef __cplusplus
#define VEK_BEGIN_DECLS extern "C" {
#define VEK_END_DECLS }
#else
#define VEK_BEGIN_DECLS
#define VEK_END_DECLS
#endif

/** An exported function. */
#define VEK_API __attribute__((__visibility__("default")))

/** A function that does not return to its caller. */
#define VEK_NORETURN __attribute__((__noreturn__))

/** A function on the failing side of a check: kept away from the code that runs every day. */
#define VEK_COLD __attribute__((__cold__))

/** The type behind an enumeration whose values travel through plain integers: in C++ every number
 * of an int is then a valid value of it, as in C. */
#ifdef __cplusplus
#define VEK_INT_ENUM : int
#else
#define VEK_INT_ENUM
#endif

/** A printf-like function: argument `text` is its format, the values start at argument `values`
 *  (0 for an argument list). Both count from 1. */
#define VEK_PRINTF(text, values) __attribute__((__format__(__printf__, text, values)))

#endif
