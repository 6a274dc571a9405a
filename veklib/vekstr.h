/* SPDX-License-Identifier: MIT */
/** @file vekstr.h
 *  Reference-counted strings. A VekStr is one block that holds a count and the text; its holders
 *  add and release references instead of copying the text. References to a persistent string are
 *  not counted; only vek_str_force_destroy() releases it. The functions that change a text in place
 *  change it for every holder. The functions that make a text longer put a new string into the
 *  caller's variable; other holders keep the old one.
 *
 *      VekStr *name = vek_str_create("eth");
 *      vek_str_append_c_str(&name, "0");
 *      puts(vek_str_to_c_str(name));
 *      name = vek_str_unref(name);
 *
 *  vekstr_inline.h has more ways to append, and vekstrbuilder.h a builder for texts of many pieces;
 *  this header includes both.
 *
 *  Texts are bytes without an encoding; the case functions follow the current locale.
 *  Threads: counts are plain integers, so holders on several threads must serialise their calls.
 */
#ifndef VEKLIB_VEKSTR_H
#define VEKLIB_VEKSTR_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** A string. */
typedef struct VekStr {
    uint32_t count; /**< references; 0 marks a persistent string */
    char text[1];   /**< all bytes of the text and their terminating NUL */
} VekStr;

/* ---- Create ---- */

/** Makes a string from the first characters of a text.
 *  @param cstr  the text, read up to `len` characters or its NUL; may be null if `len` is 0; copied
 *  @param len   number of characters; the string has space for that many even if the text is
 *               shorter (NULs fill the rest)
 *  @return  the string, with one reference for the caller; release it with vek_str_unref()
 *  Fails:   no memory -> null; negative `len`, or null `cstr` with characters to copy -> null, with
 *           a warning
 */
VEK_API VEK_NEW VekStr *vek_str_ncreate(const char *cstr, int len);

/** Makes a string from a whole text.
 *  @param cstr  the text, of at most INT_MAX characters; copied
 *  @return  the string, with one reference for the caller; release it with vek_str_unref()
 *  Fails:   null `cstr`, a longer text or no memory -> null, without a warning
 */
VEK_API VEK_NEW VekStr *vek_str_create(const char *cstr);

/** Formats a new string, which may be empty. A NUL among the formatted characters ends the text,
 *  but the block has space for all of them.
 *  @param format  printf format, followed by its values; borrowed
 *  @return  the string, with one reference for the caller; release it with vek_str_unref()
 *  Fails:   a value that cannot be converted, or no memory -> null; null `format` -> null, with a
 *           warning that names vek_str_create_vprintf_with_return
 */
VEK_API VEK_NEW VEK_PRINTF(1, 2) VekStr *vek_str_create_printf(const char *format, ...);

/** Like vek_str_create_printf(), but with an argument list, which is left unchanged. */
VEK_API VEK_NEW VEK_PRINTF(1, 0) VekStr *vek_str_create_vprintf(const char *format, va_list args);

/* ---- References ---- */

/** Adds a reference. References to a persistent string are not counted.
 *  @param vekstr  the string; null gives null
 *  @return  the same string; release the reference with vek_str_unref()
 *  Fails:   the count is at its limit (UINT_MAX - 1) -> null, with a warning
 */
VEK_API VekStr *vek_str_ref(VekStr *vekstr);

/** Releases a reference, and with the last one the string. Does nothing to a persistent string.
 *  @param vekstr  the string, whose reference is taken; null does nothing
 *  @return  always null, so that the caller can clear its variable with it
 */
VEK_API VekStr *vek_str_unref(VekStr *vekstr);

/** Makes a string persistent: its references are no longer counted, and only
 *  vek_str_force_destroy() releases it.
 *  Fails: null `str` -> nothing done, with a warning
 */
VEK_API void vek_str_make_persistent(VekStr *str);

/** Releases a persistent string; for any other string, releases a reference.
 *  @param vekstr  the string, taken; null does nothing
 */
VEK_API void vek_str_force_destroy(VekStr *vekstr);

/** Makes one variable refer to another variable's string: adds a reference to that string, and
 *  releases the one that the changed variable held.
 *  @param dest  address of the variable to change; not null. The variable may hold null
 *  @param src   address of the other variable; not null; may be the same. It may hold null
 *  @return  the new content of the changed variable
 *  Fails:   the reference is refused (see vek_str_ref()) -> null, which the changed variable then
 *           holds, too
 */
VEK_API VekStr *vek_str_assign(VekStr **dest, VekStr *const *src);

/* ---- Read and compare ---- */

/** Returns the text, borrowed: valid until the string is released; null for null. */
VEK_API const char *vek_str_to_c_str(const VekStr *vekstr);

/** Returns the number of characters before the NUL; counts them on each call.
 *  Fails: null `vekstr` -> 0, with a warning
 */
VEK_API unsigned int vek_strlen(const VekStr *vekstr);

/** Compares two texts as strcmp() does. A string compared with itself gives 0, as do two nulls; if
 *  only the first is null the result is -1, if only the second is null it is 1. */
VEK_API int vek_strcmp(const VekStr *s1, const VekStr *s2);

/** Like vek_strcmp(), but compares at most `n` characters. */
VEK_API int vek_strncmp(const VekStr *s1, const VekStr *s2, size_t n);

/** Returns 1 when two texts are equal or both strings are null, else 0. */
VEK_API int vek_str_eq(const VekStr *s1, const VekStr *s2);

/** Returns 1 when the text of `s1` equals `s2`, else 0.
 *  Fails: null `s1` or null `s2` -> 0, with a warning
 */
VEK_API int vek_str_eq_c_str(const VekStr *s1, const char *s2);

/** Returns 1 when the text of `s1` equals `s2` in the first `n` characters, else 0 ("neq" means "n
 *  equal", not "not equal"). `s2` may be null if `n` is 0.
 *  Fails: null `s1`, or null `s2` with characters to compare -> 0, with a warning
 */
VEK_API int vek_str_neq_c_str(const VekStr *s1, const char *s2, size_t n);

/* ---- Change in place, for every holder ---- */

/** Changes every lower-case letter to upper case.
 *  Fails: null `vekstr` -> nothing done, with a warning
 */
VEK_API void vek_str_toupper(VekStr *vekstr);

/** Changes every upper-case letter to lower case.
 *  Fails: null `vekstr` -> nothing done, with a warning
 */
VEK_API void vek_str_tolower(VekStr *vekstr);

/** Changes the first letter of each word to upper case. A word begins at the start of the text and
 *  after white space.
 *  Fails: null `vekstr` -> nothing done, with a warning
 */
VEK_API void vek_str_capitalize(VekStr *vekstr);

/** Replaces every character `from` with `to`. If `to` is NUL, the text ends at the first `from`. A
 *  null `vekstr` does nothing. */
VEK_API void vek_str_char_swap(VekStr *vekstr, char from, char to);

/* ---- Change by replacement: a new string in the caller's variable ----
 *
 * On success the caller's reference to the old string is released, and the variable holds a new
 * string with one reference. On failure the variable and its string are unchanged.
 *
 * @return  1 on success
 *
 * Fails: no memory, or a new text of more than INT_MAX characters -> 0; a null argument -> 0, with
 * a warning; a variable that holds null -> 0, with a warning that names vek_strlen. */

/** Puts a character in front of the text.
 *  @param vekstr  address of the variable
 *  @param c       the character; a NUL makes a string that reads as empty
 */
VEK_API int vek_str_prepend_char(VekStr **vekstr, char c);

/** Puts another text in front of the text.
 *  @param vekstr  address of the variable
 *  @param c       the other text, which may be the string's own; copied
 */
VEK_API int vek_str_prepend_c_str(VekStr **vekstr, const char *c);

/** Appends a text.
 *  @param vekstr  address of the variable
 *  @param c       the text, which may be the string's own; copied
 */
VEK_API int vek_str_append_c_str(VekStr **vekstr, const char *c);

/** Appends a string's text.
 *  @param vekstr1  address of the variable
 *  @param vekstr   the string, which may be the one in the variable; copied
 */
VEK_API int vek_str_append_vek_str(VekStr **vekstr1, const VekStr *vekstr);

/* ---- Diagnostics ---- */

/** Returns the number of references, 0 for a persistent string.
 *  Fails: null `vekstr` -> 0, with a warning
 */
VEK_API unsigned int _vek_str_get_ref_count(const VekStr *vekstr);

VEK_END_DECLS

#include <veklib/vekstr_inline.h>

#endif
