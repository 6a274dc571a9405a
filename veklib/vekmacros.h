/* SPDX-License-Identifier: MIT */
/** @file vekmacros.h
 *  The macros that the public headers of veklib use: C linkage, export, and the attributes with
 *  which GCC and Clang check code that calls the library. Also the version of the library, and
 *  macros that store an integer in a pointer.
 */
#ifndef VEKLIB_VEKMACROS_H
#define VEKLIB_VEKMACROS_H

#include <stdint.h>

/* The version of these headers, and of the library that they came with. */
#define VEKLIB_VERSION_MAJOR 1
#define VEKLIB_VERSION_MINOR 0
#define VEKLIB_VERSION_PATCH 0

/** The version as one number, for comparisons: 1.2.3 is 10203. */
#define VEKLIB_VERSION                                                                             \
    (VEKLIB_VERSION_MAJOR * 10000 + VEKLIB_VERSION_MINOR * 100 + VEKLIB_VERSION_PATCH)

#ifdef __cplusplus
#define VEK_BEGIN_DECLS extern "C" {
#define VEK_END_DECLS }
#else
#define VEK_BEGIN_DECLS
#define VEK_END_DECLS
#endif

/* Around inline functions: C linkage, and none of the warnings that applications may have switched
 * on about code that must be both C and C++. */
#ifdef __cplusplus
#define VEK_BEGIN_INLINE                                                                           \
    _Pragma("GCC diagnostic push") _Pragma("GCC diagnostic ignored \"-Wold-style-cast\"")          \
        _Pragma("GCC diagnostic ignored \"-Wzero-as-null-pointer-constant\"") VEK_BEGIN_DECLS
#define VEK_END_INLINE VEK_END_DECLS _Pragma("GCC diagnostic pop")
#else
#define VEK_BEGIN_INLINE                                                                           \
    _Pragma("GCC diagnostic push")                                                                 \
        _Pragma("GCC diagnostic ignored \"-Wdeclaration-after-statement\"")
#define VEK_END_INLINE _Pragma("GCC diagnostic pop")
#endif

/** An exported function. */
#define VEK_API __attribute__((__visibility__("default")))

/** A function that does not return to its caller. */
#define VEK_NORETURN __attribute__((__noreturn__))

/** A function that is seldom called, such as one that reports a failed check. The compiler keeps it
 *  apart from the code that usually runs. */
#define VEK_COLD __attribute__((__cold__))

/** A function whose result must be used: dropping it leaks memory or loses a list. */
#define VEK_MUST_USE __attribute__((__warn_unused_result__))

/** A function that never returns null. */
#define VEK_NEVER_NULL __attribute__((__returns_nonnull__))

/** A function that returns null or a new object. Nothing else points to the object, and nothing in
 *  it points to another object. */
#define VEK_NEW __attribute__((__malloc__)) VEK_MUST_USE

/** A function whose result has as many bytes as one argument says, or as the product of two. The
 *  parameters are the numbers of these arguments; the first argument is number 1. */
#define VEK_SIZED_BY(...) __attribute__((__alloc_size__(__VA_ARGS__)))

/** A function whose result is released with `function`, which takes it as its first argument. GCC
 *  11 and later warn if the result is released in another way. */
#if defined(__GNUC__) && !defined(__clang__) && __GNUC__ >= 11
#define VEK_RELEASED_WITH(function) __attribute__((__malloc__(function, 1)))
#else
#define VEK_RELEASED_WITH(function)
#endif

/** A printf-like function. `text` is the number of the argument that is the format, `values` that
 *  of the first value to format, or 0 if the function takes an argument list. The first argument is
 *  number 1. */
#define VEK_PRINTF(text, values) __attribute__((__format__(__printf__, text, values)))

/** The underlying type of an enumeration whose values are also passed as plain integers. With it,
 *  every int is a valid value of the enumeration in C++, as in C. */
#ifdef __cplusplus
#define VEK_INT_ENUM : int
#else
#define VEK_INT_ENUM
#endif

/** VEK_INT_TO_POINTER(): a 32-bit integer as the pointer that lists, stacks and hash tables hold.
 *  VEK_POINTER_TO_INT(): the integer in such a pointer. */
#ifdef __cplusplus
#define VEK_INT_TO_POINTER(integer)                                                                \
    reinterpret_cast<void *>(static_cast<intptr_t>(static_cast<int32_t>(integer)))
#define VEK_POINTER_TO_INT(pointer) static_cast<int32_t>(reinterpret_cast<intptr_t>(pointer))
#else
#define VEK_INT_TO_POINTER(integer) ((void *)(intptr_t)(int32_t)(integer))
#define VEK_POINTER_TO_INT(pointer) ((int32_t)(intptr_t)(pointer))
#endif

#endif
