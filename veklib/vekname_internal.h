/* SPDX-License-Identifier: MIT */
/* The library's string hash, for the tables of other families. */
#ifndef VEKLIB_VEKNAME_INTERNAL_H
#define VEKLIB_VEKNAME_INTERNAL_H

#include <stdint.h>

/** Hashes a NUL-terminated string: Jenkins' lookup2 over its bytes, as a number that is not
 * negative when read as signed (but for the most negative one). */
uint32_t name_hash_func(const void *key);

/** Returns 1 when two NUL-terminated strings are equal, else 0. */
int name_equal_func(const void *a, const void *b);

#endif
