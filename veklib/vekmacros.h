/* SPDX-License-Identifier: MIT */
/** @file vekmacros.h
 *  What every public header of veklib is written with: C linkage, export, and the attributes by
 *  which GCC and Clang check the callers of the library. Also the library's version, and integers
 *  carried in pointers.
 */
#ifndef VEKLIB_VEKMACROS_H
#define VEKLIB_VEKMACROS_H

#include <stdint.h>

/* The version of these headers, which is that of the library that they came with. */
#define VEKLIB_VERSION_MAJOR 1
#define VEKLIB_VERSION_MINOR 0
#define VEKLIB_VERSION_PATCH 0

/** The version as one number, to compare with: 1.2.3 is 10203. */
#define VEKLIB_VERSION                                                                             \
    (VEKLIB_VERSION_MAJOR * 10000 + VEKLIB_VERSION_MINOR * 100 + VEKLIB_VERSION_PATCH)

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

/** A function whose result must be used: who drops it leaks memory or loses a list. */
#define VEK_MUST_USE __attribute__((__warn_unused_result__))

/** A function that never returns null. */
#define VEK_NEVER_NULL __attribute__((__returns_nonnull__))

/** A function that returns null or a new object: nothing else points at it, and nothing in it
 *  points at another object. */
#define VEK_NEW __attribute__((__malloc__)) VEK_MUST_USE

/** A function whose result has as many bytes as its argument says (or as two say, multiplied).
 *  Arguments count from 1. */
#define VEK_SIZED_BY(...) __attribute__((__alloc_size__(__VA_ARGS__)))

/** A function whose result is released with `function`, which takes it as its first argument; GCC
 *  then warns of another release. */
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ >= 11
#define VEK_RELEASED_WITH(function) __attribute__((__malloc__(function, 1)))
#else
#define VEK_RELEASED_WITH(function)
#endif

/** A printf-like function: argument `text` is its format, the values start at argument `values`
 *  (0 for an argument list). Both count from 1. */
#define VEK_PRINTF(text, values) __attribute__((__format__(__printf__, text, values)))

/** The type behind an enumeration whose values travel through plain integers: in C++ every int is
 *  then a valid value of it, as in C. */
#ifdef __cplusplus
#define VEK_INT_ENUM : int
#else
#define VEK_INT_ENUM
#endif

/** A 32-bit integer as the pointer that lists, stacks and hash tables hold. */
#define VEK_INT_TO_POINTER(integer) ((void *)(intptr_t)(int32_t)(integer))

/** The integer in a pointer of VEK_INT_TO_POINTER(). */
#define VEK_POINTER_TO_INT(pointer) ((int32_t)(intptr_t)(pointer))

#endif
