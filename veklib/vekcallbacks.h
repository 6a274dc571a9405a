/* SPDX-License-Identifier: MIT */
/** @file vekcallbacks.h
 *  Types of functions that an application gives to containers. A container holds its elements as
 *  plain pointers, and calls these functions to release, copy or compare them.
 */
#ifndef VEKLIB_VEKCALLBACKS_H
#define VEKLIB_VEKCALLBACKS_H

/** Releases one element. */
typedef void (*VekDestroyFunc)(void *element);

/** Returns a copy of one element. The copy belongs to whoever requested it. */
typedef void *(*VekCopyFunc)(void *element);

/** Returns nonzero if two elements are equal. */
typedef int (*VekEqualFunc)(const void *a, const void *b);

/** Returns a negative number if `a` comes before `b`, a positive one if `a` comes after `b`, and 0
 *  if their order does not matter. */
typedef int (*VekCompareFunc)(const void *a, const void *b);

#endif
