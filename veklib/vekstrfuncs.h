/* SPDX-License-Identifier: MIT */
/** @file vekstrfuncs.h
 *  Copies of memory and of NUL-terminated strings. Every new copy is charged to the calling code
 *  and belongs to it; release it with vek_free().
 *
 *      char *label = vek_strdup_printf("%s-%d", name, number);
 *      ...
 *      vek_free(label);
 *
 *  Threads: there is no shared state. Any thread may call any function, as far as the allocator
 *  table allows.
 */
#ifndef VEKLIB_VEKSTRFUNCS_H
#define VEKLIB_VEKSTRFUNCS_H

#include <stdarg.h>
#include <stddef.h>

#include <veklib/vekmacros.h>
#include <veklib/vekmemory.h>

VEK_BEGIN_DECLS

/** Copies a block of memory.
 *  @param mem        the block; may be null if `byte_size` is 0; borrowed
 *  @param byte_size  bytes to copy
 *  @return  the copy; release with vek_free()
 *  Fails:   `byte_size` 0 -> null; no memory -> null; null `mem` with bytes to copy -> null, with
 *           a warning
 */
VEK_MUST_USE VEK_SIZED_BY(2) VEK_RELEASED_WITH_FREE VEK_API
    void *vek_memdup(const void *mem, size_t byte_size);

/** Copies a string.
 *  @param s  the string; borrowed
 *  @return  the copy (one byte for the empty string); release with vek_free()
 *  Fails:   no memory -> null; null `s` -> null, with a warning
 */
VEK_API VEK_NEW_BLOCK char *vek_strdup(const char *s);

/** Copies at most the first `n` characters of a string.
 *  @param s  the string, read up to `n` characters; may be null if `n` is 0; borrowed
 *  @param n  characters
 *  @return  the copy, NUL-terminated; release with vek_free()
 *  Fails:   `n` 0 -> null, not an empty string; no memory -> null; null `s` otherwise -> null,
 *           with a warning
 */
VEK_API VEK_NEW_BLOCK char *vek_strndup(const char *s, size_t n);

/** Formats a new string.
 *  @param format  printf format, followed by its values; borrowed
 *  @return  the text; release with vek_free()
 *  Fails:   empty result -> null, not an empty string; a value that cannot be converted, or more
 *           than INT_MAX characters -> null; no memory -> null; null `format` -> null, with a
 *           warning
 */
VEK_API VEK_NEW_BLOCK VEK_PRINTF(1, 2) char *vek_strdup_printf(const char *format, ...);

/** Formats a new string from an argument list.
 *  @param format  printf format; borrowed
 *  @param args    its values; left unchanged; the caller calls va_end()
 *  @return  the text; release with vek_free()
 *  Fails:   as vek_strdup_printf(), but the warning for a null `format` names an internal function,
 *           vek_strdup_vprintf_with_return
 */
VEK_API VEK_NEW_BLOCK VEK_PRINTF(1, 0) char *vek_strdup_vprintf(const char *format, va_list args);

/** Copies as much of a string as fits into a buffer, and always terminates the copy with a NUL.
 *  @param dest     the buffer; may be null if `destlen` is 0
 *  @param src      the string; borrowed
 *  @param destlen  size of the buffer in bytes; 0 writes nothing
 *  @return  the length of `src`; if that is `destlen` or more, the copy was cut short
 *  Fails:   null `src`, or null `dest` while `destlen` is not 0 -> 0, with a warning
 */
VEK_API size_t vek_strlcpy(char *dest, const char *src, size_t destlen);

VEK_END_DECLS

#endif
