/* SPDX-License-Identifier: MIT */
/** @file vekstrbuilder.h
 *  Builds a text from many pieces in one block, which doubles when it is full, and hands the text
 *  over as a plain string or as a VekStr. vekstr.h includes this header. A VekStrBuilder is a
 *  record that the caller places; a zero-initialised one is empty.
 *
 *      VekStrBuilder line = VEK_STR_BUILDER_INIT;
 *      for (int i = 0; i < count; ++i) {
 *          vek_str_builder_append_printf(&line, "%s%d", i != 0 ? ", " : "", numbers[i]);
 *      }
 *      char *text = vek_str_builder_steal_string(&line);
 *      if (text == NULL) {
 *          ...                       // an append failed; nothing is left to release
 *      }
 *
 *  An append returns 1 on success. It returns 0 if there is no memory, if the text would exceed
 *  INT_MAX characters, or, with a warning, if an argument is null. The builder remembers a failure:
 *  it keeps the text so far, further appends add nothing and return 0, and the steal functions
 *  return null. So one test at the end is enough. For a null builder, every function warns and
 *  returns 0 or null (vek_str_builder_get_text() an empty text).
 *
 *  The functions are compiled into the application, so traces charge the application for what they
 *  allocate.
 *  Threads: a builder is used by one thread at a time.
 */
#ifndef VEKLIB_VEKSTRBUILDER_H
#define VEKLIB_VEKSTRBUILDER_H

#include <limits.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <veklib/vekdiag.h>
#include <veklib/vekmacros.h>
#include <veklib/vekmemory.h>
#include <veklib/vekstr.h>
#include <veklib/vekstrfuncs.h>

VEK_BEGIN_INLINE

/** A builder; empty when it is zero-initialised. */
typedef struct VekStrBuilder {
    VekStr *str;   /**< the text, always NUL-terminated; its count is set when it is handed over */
    size_t length; /**< number of characters of the text */
    size_t size;   /**< number of characters that the block has space for, the NUL included */
    int failed;    /**< 1 after an append that failed, else 0 */
} VekStrBuilder;

/** The initialiser of an empty builder; zeros do as well. */
#define VEK_STR_BUILDER_INIT                                                                       \
    {                                                                                              \
        NULL, 0, 0, 0                                                                              \
    }

/* ---- Helpers ---- */

/* Remembers a failure. Returns 0, which is also what the append that failed returns. */
static inline int _vek_str_builder_fail(VekStrBuilder *builder)
{
    builder->failed = 1;
    return 0;
}

/* Enlarges the block to at least `size` characters, the NUL included. Below the limit it becomes at
 * least twice as large, so that a text of n characters costs about log n allocations. */
static inline int _vek_str_builder_grow(VekStrBuilder *builder, size_t size)
{
    const size_t largest = (size_t)INT_MAX + 1;
    const size_t header = offsetof(VekStr, text);
    size_t grown = builder->str != NULL ? 2 * builder->size : 64 - header;
    grown = grown < largest ? grown : largest;
    grown = grown > size ? grown : size;
    VekStr *str = (VekStr *)vek_realloc(builder->str, header + grown);
    if (str == NULL && grown > size) {
        grown = size; /* there may be memory for what is needed now */
        str = (VekStr *)vek_realloc(builder->str, header + grown);
    }
    if (str == NULL) {
        return _vek_str_builder_fail(builder);
    }
    builder->str = str;
    builder->size = grown;
    _vek_str_text(str)[builder->length] = '\0';
    return 1;
}

/* Makes space for `n` characters after the text, and for a NUL. */
static inline int _vek_str_builder_make_room(VekStrBuilder *builder, size_t n)
{
    if (builder->failed) {
        return 0;
    }
    if (n < builder->size - builder->length) {
        return 1;
    }
    if (n > INT_MAX - builder->length) {
        return _vek_str_builder_fail(builder);
    }
    return _vek_str_builder_grow(builder, builder->length + n + 1);
}

/* Appends `n` characters. They may lie in the builder's own block, which can move as it grows. */
static inline int _vek_str_builder_add(VekStrBuilder *builder, const char *text, size_t n)
{
    const uintptr_t offset = (uintptr_t)text - (uintptr_t)builder->str;
    const int is_own = offset < offsetof(VekStr, text) + builder->size;
    if (!_vek_str_builder_make_room(builder, n)) {
        return 0;
    }
    char *const end = _vek_str_text(builder->str) + builder->length;
    memcpy(end, is_own ? (const char *)builder->str + offset : text, n);
    end[n] = '\0';
    builder->length += n;
    return 1;
}

/* Empties the record, whose block has been released or handed over. */
static inline void _vek_str_builder_reset(VekStrBuilder *builder)
{
    builder->str = NULL;
    builder->length = 0;
    builder->size = 0;
    builder->failed = 0;
}

/* Empties a builder and returns its block, shrunk to `size` bytes. If the allocator cannot shrink
 * it, returns the larger block. */
static inline void *_vek_str_builder_detach(VekStrBuilder *builder, size_t size)
{
    void *const shrunk = vek_realloc(builder->str, size);
    void *const block = shrunk != NULL ? shrunk : builder->str;
    _vek_str_builder_reset(builder);
    return block;
}

/* ---- Append ---- */

/** Appends a text.
 *  @param builder  the builder; not null
 *  @param text     the text, which may be part of the builder's own; not null; copied
 *  @return  1, or 0 (see above)
 */
static inline int vek_str_builder_append(VekStrBuilder *builder, const char *text)
{
    VEK_RETURN_VAL_IF_FAIL(builder != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(text != NULL, _vek_str_builder_fail(builder));

    return _vek_str_builder_add(builder, text, strlen(text));
}

/** Appends the first characters of a text.
 *  @param builder  the builder; not null
 *  @param text     the text, read up to `n` characters or its NUL; may be part of the builder's
 *                  own; may be null if `n` is 0; copied
 *  @param n        number of characters
 *  @return  1, or 0 (see above)
 */
static inline int vek_str_builder_append_n(VekStrBuilder *builder, const char *text, size_t n)
{
    VEK_RETURN_VAL_IF_FAIL(builder != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(n == 0 || text != NULL, _vek_str_builder_fail(builder));

    return n != 0 ? _vek_str_builder_add(builder, text, _vek_text_length(text, n))
                  : _vek_str_builder_add(builder, "", 0);
}

/** Appends a character; a NUL adds nothing.
 *  @param builder  the builder; not null
 *  @return  1, or 0 (see above)
 */
static inline int vek_str_builder_append_char(VekStrBuilder *builder, char c)
{
    VEK_RETURN_VAL_IF_FAIL(builder != NULL, 0);

    if (!_vek_str_builder_make_room(builder, c != '\0')) {
        return 0;
    }
    char *const text = _vek_str_text(builder->str);
    text[builder->length] = c;
    builder->length += c != '\0';
    text[builder->length] = '\0';
    return 1;
}

/** Like vek_str_builder_append_printf(), but with an argument list, which is left unchanged. */
static inline VEK_PRINTF(2, 0) int vek_str_builder_append_vprintf(VekStrBuilder *builder,
                                                                  const char *format, va_list args)
{
    VEK_RETURN_VAL_IF_FAIL(builder != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(format != NULL, _vek_str_builder_fail(builder));

    if (!_vek_str_builder_make_room(builder, 0)) {
        return 0;
    }
    /* The values may be the text so far, so they are formatted into the space after its NUL. The
     * text stays whole until then. */
    char *const text = _vek_str_text(builder->str);
    const size_t end = builder->length;
    const size_t room = builder->size - end - 1;
    va_list copy;
    va_copy(copy, args);
    const int n = vsnprintf(text + end + 1, room, format, copy);
    va_end(copy);
    if (n < 0) {
        return _vek_str_builder_fail(builder);
    }
    if ((size_t)n < room) {
        memmove(text + end, text + end + 1, (size_t)n + 1);
        builder->length += strlen(text + end);
        return 1;
    }
    VekStr *const added = vek_str_create_vprintf(format, args);
    const int done = added != NULL ? vek_str_builder_append(builder, vek_str_to_c_str(added))
                                   : _vek_str_builder_fail(builder);
    vek_str_unref(added);
    return done;
}

/** Formats a text and appends it. The text may be empty; a NUL among the formatted characters ends
 *  it.
 *  @param builder  the builder; not null
 *  @param format   printf format, followed by its values, which may be the builder's own text; not
 *                  null; borrowed
 *  @return  1, or 0 (see above); also 0 if a value cannot be converted
 *  The warning for a null argument names vek_str_builder_append_vprintf.
 */
static inline VEK_PRINTF(2, 3) int vek_str_builder_append_printf(VekStrBuilder *builder,
                                                                 const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int done = vek_str_builder_append_vprintf(builder, format, args);
    va_end(args);
    return done;
}

/* ---- Read ---- */

/** Returns the text so far, borrowed: valid until another function changes the builder. It is empty
 *  for an empty builder, and, with a warning, for a null one. */
static inline VEK_NEVER_NULL const char *vek_str_builder_get_text(const VekStrBuilder *builder)
{
    VEK_RETURN_VAL_IF_FAIL(builder != NULL, "");

    return builder->str != NULL ? _vek_str_text(builder->str) : "";
}

/** Returns the number of characters so far. */
static inline size_t vek_str_builder_get_length(const VekStrBuilder *builder)
{
    VEK_RETURN_VAL_IF_FAIL(builder != NULL, 0);

    return builder->length;
}

/** Returns 1 if an append has failed since the builder was empty, else 0. */
static inline int vek_str_builder_failed(const VekStrBuilder *builder)
{
    VEK_RETURN_VAL_IF_FAIL(builder != NULL, 0);

    return builder->failed;
}

/* ---- Hand over and release ---- */

/** Releases the text and forgets any failure. The builder is then empty and can be used again.
 *  @param builder  the builder; not null
 */
static inline void vek_str_builder_release(VekStrBuilder *builder)
{
    VEK_RETURN_IF_FAIL(builder != NULL);

    vek_free(builder->str);
    _vek_str_builder_reset(builder);
}

/** Hands over the text as a plain string, which is empty for an empty builder. The builder is then
 *  empty and can be used again, even after a failure.
 *  @param builder  the builder; not null
 *  @return  the text; release it with vek_free()
 *  Fails:   an append has failed -> null, and the text so far is released; no memory for an empty
 *           text -> null
 */
static inline VEK_MUST_USE char *vek_str_builder_steal_string(VekStrBuilder *builder)
{
    VEK_RETURN_VAL_IF_FAIL(builder != NULL, NULL);

    if (builder->failed) {
        vek_str_builder_release(builder);
        return NULL;
    }
    if (builder->str == NULL) {
        return vek_strdup("");
    }
    const size_t size = builder->length + 1;
    memmove(builder->str, _vek_str_text(builder->str), size);
    return (char *)_vek_str_builder_detach(builder, size);
}

/** Hands over the text as a VekStr, which is empty for an empty builder. The builder is then empty
 *  and can be used again, even after a failure.
 *  @param builder  the builder; not null
 *  @return  the string, with one reference for the caller; release it with vek_str_unref()
 *  Fails:   an append has failed -> null, and the text so far is released; no memory for an empty
 *           text -> null
 */
static inline VEK_MUST_USE VekStr *vek_str_builder_steal_vekstr(VekStrBuilder *builder)
{
    VEK_RETURN_VAL_IF_FAIL(builder != NULL, NULL);

    if (builder->failed) {
        vek_str_builder_release(builder);
        return NULL;
    }
    if (builder->str == NULL) {
        return vek_str_create("");
    }
    builder->str->count = 1;
    return (VekStr *)_vek_str_builder_detach(builder, offsetof(VekStr, text) + builder->length + 1);
}

VEK_END_INLINE

#endif
