/* SPDX-License-Identifier: MIT */
/* Formatting on behalf of a caller, and the comparison of texts. */
#ifndef VEKLIB_VEKSTRFUNCS_INTERNAL_H
#define VEKLIB_VEKSTRFUNCS_INTERNAL_H

#include <stdarg.h>
#include <stddef.h>
#include <string.h>

#include "veklib/vekcompiler_internal.h"
#include "veklib/vekmacros.h"

/** vek_strdup_vprintf() on behalf of the code at `return_address`: same result, same failures. */
VEK_PRINTF(1, 0)
VEK_HIDDEN char *vek_strdup_vprintf_with_return(const char *format, va_list args,
                                                void *return_address);

/** Returns whether two texts are equal, or both null. Most texts that differ do so in their first
 *  byte; comparing it needs no call. */
inline bool vek_is_same_text(const char *a, const char *b)
{
    if (a == nullptr || b == nullptr) {
        return a == b;
    }
    return *a == *b && strcmp(a, b) == 0;
}

/** Formats a text into a new block, after a header of `header` bytes.
 *  @param shortest  the number of characters that the text must have at least
 *  @return  the block, its header uninitialised; release with vek_free()
 *  Fails:   a shorter text, a value that cannot be converted, or no memory -> null
 */
VEK_PRINTF(3, 0)
VEK_HIDDEN char *vek_format_block(size_t header, int shortest, const char *format, va_list args,
                                  void *return_address);

#endif
