/* SPDX-License-Identifier: MIT */
/** @file vekstr.h
 *  Reference-counted strings. A VekStr is one block of a count and the text; its holders take and
 *  drop references instead of copying. A persistent string is not counted and lives until it is
 *  destroyed by force. The case functions change the text for every holder; the functions that make
 *  a longer text put a new string into the caller's variable and leave other holders alone.
 *
 *      VekStr *name = vek_str_create("eth");
 *      vek_str_append_c_str(&name, "0");
 *      puts(vek_str_to_c_str(name));
 *      name = vek_str_unref(name);
 *
 *  vekstr_inline.h has more ways to append, vekstrbuilder.h a builder for texts of many pieces;
 *  this header includes both.
 *
 *  Texts are bytes without an encoding; case functions follow the current locale.
 *  Threads: counts are plain integers; holders on several threads serialise what they do.
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
    char text[1];   /**< the bytes and their terminating NUL, as many as there are */
} VekStr;

/* ---- Create ---- */

/** Makes a string of the first characters of a text.
 *  @param cstr  the text, read up to `len` characters or its NUL; may be null if `len` is 0; copied
 *  @param len   characters; room for as many, also when the text is shorter (NULs fill it up)
 *  @return  the string, with one reference for the caller; drop it with vek_str_unref()
 *  Fails:   no memory -> null; negative `len`, or null `cstr` with characters to copy -> null, with
 *           a warning
 */
VEK_API VEK_NEW VekStr *vek_str_ncreate(const char *cstr, int len);

/** Makes a string of a whole text.
 *  @param cstr  the text, of at most INT_MAX characters; may be null; copied
 *  @return  the string, with one reference for the caller; drop it with vek_str_unref()
 *  Fails:   null `cstr`, a longer text or no memory -> null
 */
VEK_API VEK_NEW VekStr *vek_str_create(const char *cstr);

/** Formats a new string, which may be empty. A NUL among the formatted characters ends the text
 *  there; the block has room for all of them.
 *  @param format  printf format, followed by its values; borrowed
 *  @return  the string, with one reference for the caller; drop it with vek_str_unref()
 *  Fails:   a value that cannot be converted, or no memory -> null; null `format` -> null, with a
 *           warning that names vek_str_create_vprintf_with_return
 */
VEK_API VEK_NEW VEK_PRINTF(1, 2) VekStr *vek_str_create_printf(const char *format, ...);

/** vek_str_create_printf() with an argument list, which is left unchanged. */
VEK_API VEK_NEW VEK_PRINTF(1, 0) VekStr *vek_str_create_vprintf(const char *format, va_list args);

/* ---- References ---- */

/** Takes a reference.
 *  @param vekstr  the string; may be null
 *  @return  the same string; a persistent one is not counted. Drop it with vek_str_unref()
 *  Fails:   the count is at its limit (UINT_MAX - 1) -> null, with a warning
 */
VEK_API VekStr *vek_str_ref(VekStr *vekstr);

/** Drops a reference; the last one releases the string. A persistent string stays.
 *  @param vekstr  the reference, taken; null does nothing
 *  @return  always null, to clear the caller's variable with
 */
VEK_API VekStr *vek_str_unref(VekStr *vekstr);

/** Makes a string persistent: its references are no longer counted, and only
 *  vek_str_force_destroy() releases it.
 *  Fails: null `str` -> nothing done, with a warning
 */
VEK_API void vek_str_make_persistent(VekStr *str);

/** Releases a persistent string; of any other one drops a reference.
 *  @param vekstr  the string, taken; null does nothing
 */
VEK_API void vek_str_force_destroy(VekStr *vekstr);

/** Puts a reference to one variable's string into another variable, whose own reference is dropped.
 *  @param dest  address of the variable to change; not null; the string in it may be
 *  @param src   address of the variable to take from; not null; may be the same variable
 *  @return  the new content of the changed variable
 *  Fails:   the reference is refused (see vek_str_ref()) -> null, also in the variable
 */
VEK_API VekStr *vek_str_assign(VekStr **dest, VekStr *const *src);

/* ---- Read and compare ---- */

/** Returns the text, borrowed: valid as long as the string lives; null for null. */
VEK_API const char *vek_str_to_c_str(const VekStr *vekstr);

/** Returns the number of characters before the NUL; counts them.
 *  Fails: null `vekstr` -> 0, with a warning
 */
VEK_API unsigned int vek_strlen(const VekStr *vekstr);

/** Compares two texts as strcmp() does. The same string (both null included) gives 0; a null first
 *  string gives -1, a null second one 1. */
VEK_API int vek_strcmp(const VekStr *s1, const VekStr *s2);

/** vek_strcmp() over at most `n` characters. */
VEK_API int vek_strncmp(const VekStr *s1, const VekStr *s2, size_t n);

/** Returns 1 when two texts are equal (both strings null included), else 0. */
VEK_API int vek_str_eq(const VekStr *s1, const VekStr *s2);

/** Returns 1 when the text of `s1` equals `s2`, else 0.
 *  Fails: null `s1` or null `s2` -> 0, with a warning
 */
VEK_API int vek_str_eq_c_str(const VekStr *s1, const char *s2);

/** Returns 1 when the first `n` characters of the text of `s1` and of `s2` are equal ("n equal",
 *  not "not equal"), else 0. `s2` may be null if `n` is 0.
 *  Fails: null `s1`, or null `s2` with characters to compare -> 0, with a warning
 */
VEK_API int vek_str_neq_c_str(const VekStr *s1, const char *s2, size_t n);

/* ---- Change in place, for every holder ---- */

/** Turns every lower-case letter into upper case.
 *  Fails: null `vekstr` -> nothing done, with a warning
 */
VEK_API void vek_str_toupper(VekStr *vekstr);

/** Turns every upper-case letter into lower case.
 *  Fails: null `vekstr` -> nothing done, with a warning
 */
VEK_API void vek_str_tolower(VekStr *vekstr);

/** Turns the first letter of each word (what begins the text or follows white space) into upper
 *  case.
 *  Fails: null `vekstr` -> nothing done, with a warning
 */
VEK_API void vek_str_capitalize(VekStr *vekstr);

/** Replaces every character `from` by `to`; a NUL as `to` cuts the text. Null does nothing. */
VEK_API void vek_str_char_swap(VekStr *vekstr, char from, char to);

/* ---- Change by replacement: a new string in the caller's variable ----
 *
 * On success the caller's reference to the old string is dropped, and the variable holds a new
 * string with one reference. On failure the variable and its string are as before. A null string in
 * the variable is a failure, with a warning that names vek_strlen. */

/** Puts a character in front.
 *  @param vekstr  address of the variable
 *  @param c       the character; a NUL makes a string that reads as empty
 *  @return  1; 0 without memory, or, with a warning, without a variable or a string in it
 */
VEK_API int vek_str_prepend_char(VekStr **vekstr, char c);

/** Puts a text in front.
 *  @param vekstr  address of the variable
 *  @param c       the text, which may be the string's own; copied
 *  @return  1; 0 without memory, or, with a warning, without a text, a variable or a string in it
 */
VEK_API int vek_str_prepend_c_str(VekStr **vekstr, const char *c);

/** Puts a text at the end.
 *  @param vekstr  address of the variable
 *  @param c       the text, which may be the string's own; copied
 *  @return  1; 0 without memory, or, with a warning, without a text, a variable or a string in it
 */
VEK_API int vek_str_append_c_str(VekStr **vekstr, const char *c);

/** Puts a string's text at the end.
 *  @param vekstr1  address of the variable
 *  @param vekstr   the string, which may be the one in the variable; copied
 *  @return  1; 0 without memory, or, with a warning, without `vekstr`, a variable or a string in it
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
