/* SPDX-License-Identifier: MIT */
/** @file vekcallbacks.h
 *  The functions that containers are given for their elements, which they hold as plain pointers.
 */
#ifndef VEKLIB_VEKCALLBACKS_H
#define VEKLIB_VEKCALLBACKS_H

/** Releases one element. */
typedef void (*VekDestroyFunc)(void *element);

/** Returns the copy of one element, which belongs to whoever asked for it. */
typedef void *(*VekCopyFunc)(void *element);

/** Returns nonzero when two elements are equal. */
typedef int (*VekEqualFunc)(const void *a, const void *b);

/** Returns a negative number when `a` comes before `b`, a positive one when it comes after it, and
 *  0 when their order does not matter. */
typedef int (*VekCompareFunc)(const void *a, const void *b);

#endif
