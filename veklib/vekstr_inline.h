/* SPDX-License-Identifier: MIT */
/** @file vekstr_inline.h
 *  More ways to append to a string; vekstr.h includes this header. The functions are compiled into
 *  the application, so traces charge the application for what they allocate. As with
 *  vek_str_append_c_str(), the caller's variable holds a new string on success, and is unchanged on
 *  failure.
 *
 *      VekStr *name = vek_str_create("eth");
 *      vek_str_append_printf(&name, "%d.%d", port, vlan);
 *
 *  Each call makes a new string. For a text of many pieces use the builder of vekstrbuilder.h.
 */
#ifndef VEKLIB_VEKSTR_INLINE_H
#define VEKLIB_VEKSTR_INLINE_H

#include <limits.h>
#include <stdarg.h>
#include <stddef.h>
#include <string.h>

#include <veklib/vekdiag.h>
#include <veklib/vekmacros.h>
#include <veklib/vekstr.h>

VEK_BEGIN_INLINE

/* Returns where a string's text can be written. Hides from compilers that VekStr declares only one
 * character of it: otherwise they would warn where more are written, or make the program stop. */
static inline char *_vek_str_text(VekStr *vekstr)
{
    char *text = (char *)vekstr + offsetof(VekStr, text);
    __asm__("" : "+r"(text));
    return text;
}

/* Returns the length of a text, at most `n`, as strnlen() does, which C99 does not have. */
static inline size_t _vek_text_length(const char *text, size_t n)
{
    /* Hides both from GCC, which would warn if `n` exceeds the array that the text is in. That is
     * allowed: the text ends before. */
    __asm__("" : "+r"(text), "+r"(n));
    const char *const end = (const char *)memchr(text, '\0', n);
    return end != NULL ? (size_t)(end - text) : n;
}

/** Appends a character.
 *  @param vekstr  address of the variable
 *  @param c       the character; a NUL adds nothing
 *  @return  1 on success
 *  Fails:   as vek_str_append_c_str()
 */
static inline int vek_str_append_char(VekStr **vekstr, char c)
{
    VEK_RETURN_VAL_IF_FAIL(vekstr != NULL, 0);

    const char text[2] = {c, '\0'};
    return vek_str_append_c_str(vekstr, text);
}

/** Appends the first characters of a text.
 *  @param vekstr  address of the variable
 *  @param text    the text, read up to `n` characters or its NUL; may be the string's own; may be
 *                 null if `n` is 0; copied
 *  @param n       number of characters
 *  @return  1 on success
 *  Fails:   as vek_str_append_c_str()
 */
static inline int vek_str_append_n(VekStr **vekstr, const char *text, size_t n)
{
    VEK_RETURN_VAL_IF_FAIL(vekstr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(n == 0 || text != NULL, 0);

    if (n == 0) {
        return vek_str_append_c_str(vekstr, "");
    }
    const size_t length = vek_strlen(*vekstr); /* warns about a null string */
    const size_t added = _vek_text_length(text, n);
    if (*vekstr == NULL || added > INT_MAX - length) {
        return 0;
    }
    VekStr *const longer = vek_str_ncreate((*vekstr)->text, (int)(length + added));
    if (longer == NULL) {
        return 0;
    }
    memcpy(_vek_str_text(longer) + length, text, added); /* a NUL already follows it */
    vek_str_unref(*vekstr);
    *vekstr = longer;
    return 1;
}

/** Like vek_str_append_printf(), but with an argument list, which is left unchanged. */
static inline VEK_PRINTF(2, 0) int vek_str_append_vprintf(VekStr **vekstr, const char *format,
                                                          va_list args)
{
    VEK_RETURN_VAL_IF_FAIL(vekstr != NULL, 0);
    VEK_RETURN_VAL_IF_FAIL(format != NULL, 0);

    if (*vekstr == NULL) {
        return vek_str_append_c_str(vekstr, ""); /* warns */
    }
    VekStr *const added = vek_str_create_vprintf(format, args);
    const int done = added != NULL && vek_str_append_vek_str(vekstr, added);
    vek_str_unref(added);
    return done;
}

/** Formats a text and appends it. The text may be empty; a NUL among the formatted characters ends
 *  it.
 *  @param vekstr  address of the variable
 *  @param format  printf format, followed by its values, which may be the string's own text;
 *                 borrowed
 *  @return  1 on success
 *  Fails:   a value that cannot be converted -> 0; else as vek_str_append_c_str(). The warning for
 *           a null argument names vek_str_append_vprintf
 */
static inline VEK_PRINTF(2, 3) int vek_str_append_printf(VekStr **vekstr, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int done = vek_str_append_vprintf(vekstr, format, args);
    va_end(args);
    return done;
}

VEK_END_INLINE

#include <veklib/vekstrbuilder.h>

#endif
