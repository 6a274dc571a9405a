/* SPDX-License-Identifier: MIT */
/** @file vekvalue.h
 *  A value is a record that holds one datum of one of eleven types; functions convert between the
 *  types. The caller places the records: on the stack, in a structure, or on the heap with
 *  vek_value_dup(). A zero-filled record is empty. Five verbs say who owns what:
 *
 *    set    the value holds a copy or a new reference; the argument stays the caller's
 *    take   the value owns the argument from then on
 *    get    the caller borrows the datum, which is valid until the value is changed or released
 *    dup    the caller gets a copy or a new reference, and owns it
 *    steal  the caller gets the datum itself; the value keeps its type and then holds null
 *
 *      VekValue value;
 *      vek_value_set_string(&value, "42");
 *      int32_t number = vek_value_get_as_int(&value);
 *      vek_value_release(&value);
 *
 *  Functions that fill in a record (set, take, vek_value_init(), vek_value_copy()) do not release
 *  what it held: if it owns something, release it before you fill it in again. A record may be
 *  moved by copying its bytes; treat the source as empty from then on. To change a list that a
 *  value holds, take the changed list without first releasing the value: the value owns the nodes
 *  before and after.
 *
 *      list = vek_slist_append(vek_value_get_slist(&value), VEK_INT_TO_POINTER(7));
 *      vek_value_take_slist_of_int(&value, list);
 *
 *  Integers have 32 bits. For larger numbers, such as a number of bytes, use a string or a double.
 *  A double holds whole numbers up to 2^53 exactly, but its text has only six digits.
 *
 *  Lists of values may hold lists in turn; they are released, copied and compared by recursion. A
 *  stack of 64 KB was enough to release or compare some 700 levels and to copy 450, and one of 8 MB
 *  for 100,000 and 65,000 (x86-64, optimised; for dictionaries see vekdict.h). An application that
 *  builds such lists from data that comes from outside must limit their depth.
 *
 *  Threads: a value, and what it refers to, is used by one thread at a time.
 */
#ifndef VEKLIB_VEKVALUE_H
#define VEKLIB_VEKVALUE_H

#include <stdint.h>

#include <veklib/vekname.h>
#include <veklib/vekslist.h>
#include <veklib/vekstr.h>

VEK_BEGIN_DECLS

/** The types. Their numbers are part of the interface. */
typedef enum VekValueType VEK_INT_ENUM {
    VEK_VALUE_INVALID = -1,         /**< result of a failed query; never stored */
    VEK_VALUE_INT = 0,              /**< signed 32-bit integer */
    VEK_VALUE_DOUBLE = 1,           /**< double-precision number */
    VEK_VALUE_VEKSTR = 2,           /**< one reference to a VekStr; may be null */
    VEK_VALUE_STRING = 3,           /**< NUL-terminated string on the heap, owned; may be null */
    VEK_VALUE_POINTER = 4,          /**< untyped pointer, not owned */
    VEK_VALUE_NAME = 5,             /**< VekName, not owned */
    VEK_VALUE_SLIST_OF_INT = 6,     /**< list of integers carried in the pointers */
    VEK_VALUE_SLIST_OF_STRING = 7,  /**< list of VekStr references */
    VEK_VALUE_SLIST_OF_POINTER = 8, /**< list of untyped pointers, not owned */
    VEK_VALUE_SLIST_OF_VALUE = 9,   /**< list of VekValue records on the heap */
    VEK_VALUE_DICT = 10,            /**< one reference to a VekDict */
    VEK_VALUE_MAX = 11              /**< bound; not a type */
} VekValueType;

/** A dictionary; see vekdict.h. */
typedef struct VekDict VekDict;

/** The operations of a type. They receive the first word of a payload. */
typedef struct VekValueVtable {
    VekValueType type;                          /**< the type's number */
    void (*release)(void *payload);             /**< releases what is owned; null: owns nothing */
    int (*equal)(const void *a, const void *b); /**< 1 if equal; null for doubles */
    void *(*dup)(void *payload); /**< a copy or new reference, null on failure; null for doubles */
} VekValueVtable;

/** The datum of a value. */
typedef union VekValuePayload {
    int32_t integer;
    double real;
    void *pointer;
    char *string;
    VekStr *vekstr;
    VekName *name;
    VekSList *slist;
    VekDict *dict;
} VekValuePayload;

/** A value. Read and change it with the functions below. */
typedef struct VekValue {
    const VekValueVtable *vt; /**< the operations of its type; null in an empty record */
    VekValuePayload payload;  /**< the datum */
} VekValue;

/** Whether a record holds one of the four list types. The argument is evaluated up to four times; a
 *  null or empty record gives four warnings. */
#define VEK_VALUE_IS_SLIST(value)                                                                  \
    (vek_value_get_type(value) == VEK_VALUE_SLIST_OF_INT ||                                        \
     vek_value_get_type(value) == VEK_VALUE_SLIST_OF_STRING ||                                     \
     vek_value_get_type(value) == VEK_VALUE_SLIST_OF_POINTER ||                                    \
     vek_value_get_type(value) == VEK_VALUE_SLIST_OF_VALUE)

/* ---- Any type ---- */

/** Turns a record into a value of a type. The value holds 0 or null.
 *  @param vekvalue  the record; what it held is not released
 *  @param type      the type
 *  Fails: null record, or a number that is not a type -> nothing written, with a warning
 */
VEK_API void vek_value_init(VekValue *vekvalue, VekValueType type);

/** Releases what a value owns and leaves the record empty; an empty record stays empty.
 *  Fails: null record -> nothing done, with a warning
 */
VEK_API void vek_value_release(VekValue *vekvalue);

/** Releases a record on the heap and what it owns.
 *  @param value  the record, taken; made by vek_value_dup(), or by vek_calloc() and still empty or
 *                filled in since. May be null
 */
VEK_API void vek_value_destroy(VekValue *value);

/** Returns the type of a value.
 *  Fails: null or empty record -> VEK_VALUE_INVALID, with a warning
 */
VEK_API VekValueType vek_value_get_type(const VekValue *value);

/** Copies a value. Strings are copied; for a VekStr or a dictionary the copy holds a new reference.
 *  Lists get new nodes, and their elements are copied by the same rules (records on the heap with
 *  vek_value_dup()).
 *  @param dest  the record that becomes the copy; what it held is not released
 *  @param src   the value; borrowed
 *  @return  1 on success
 *  Fails:   no memory, a VekStr or dictionary that refuses a reference, or an element of a list
 *           that cannot be copied -> 0, and `dest` is a value of the same type, which holds null;
 *           null record or empty source -> 0, with a warning, and nothing is written
 */
VEK_API int vek_value_copy(VekValue *dest, const VekValue *src);

/** Copies a value into a new record on the heap.
 *  @param src  the value; borrowed
 *  @return  the record; release it with vek_value_destroy()
 *  Fails:   as vek_value_copy() -> null
 */
VEK_API VEK_MUST_USE VekValue *vek_value_dup(const VekValue *src);

/** Returns 1 when two values are equal, else 0. Values of different types are never equal. Strings
 *  are compared by their texts (null equals only null), lists by length and element by element,
 *  names and dictionaries by identity, doubles as numbers (two NaNs are not equal). A record equals
 *  itself, whatever it holds and even if it is empty. A null record equals only null.
 *  Fails: an empty record, compared with another record -> 0, with a warning
 */
VEK_API int vek_value_equal(const VekValue *val1, const VekValue *val2);

/* ---- set: the record becomes a value that holds a copy or a new reference ----
 *
 * Arguments stay the caller's; a null one gives a value that holds null.
 * Fails: null record -> nothing written, with a warning; an argument that cannot be copied or
 *        refuses a reference (see vek_value_copy()) -> a value of the function's type, which
 *        holds null. */

/** Stores an integer. */
VEK_API void vek_value_set_int(VekValue *vekvalue, int32_t value);
/** Stores a number. */
VEK_API void vek_value_set_double(VekValue *vekvalue, double value);
/** Stores a copy of a string.
 *  @return  1 on success
 *  Fails:   as above -> 0
 */
VEK_API int vek_value_set_string(VekValue *vekvalue, const char *value);
/** Stores a new reference to the VekStr. */
VEK_API void vek_value_set_vekstr(VekValue *vekvalue, VekStr *value);
/** Stores the pointer; the value does not own what it points to. */
VEK_API void vek_value_set_pointer(VekValue *vekvalue, void *value);
/** Stores the name, which its table still owns. */
VEK_API void vek_value_set_name(VekValue *vekvalue, VekName *value);
/** Stores new nodes with the same integers. */
VEK_API void vek_value_set_slist_of_int(VekValue *vekvalue, VekSList *value);
/** Stores new nodes with new references to the same VekStrs. */
VEK_API void vek_value_set_slist_of_str(VekValue *vekvalue, VekSList *value);
/** Stores new nodes with the same pointers. */
VEK_API void vek_value_set_slist_of_ptr(VekValue *vekvalue, VekSList *value);
/** Stores new nodes with copies of the VekValue records. */
VEK_API void vek_value_set_slist_of_value(VekValue *vekvalue, VekSList *value);
/** Stores a new reference to the dictionary. */
VEK_API void vek_value_set_dict(VekValue *vekvalue, VekDict *value);

/* ---- take: the record becomes a value that owns the argument ----
 *
 * Arguments may be null.
 * Fails: null record -> nothing taken, with a warning. */

/** Takes a string, which the value releases with vek_free(). */
VEK_API void vek_value_take_string(VekValue *vekvalue, char *value);
/** Takes the caller's reference. */
VEK_API void vek_value_take_vekstr(VekValue *vekvalue, VekStr *value);
/** Takes the nodes. */
VEK_API void vek_value_take_slist_of_int(VekValue *vekvalue, VekSList *value);
/** Takes the nodes and the VekStr references in them. */
VEK_API void vek_value_take_slist_of_str(VekValue *vekvalue, VekSList *value);
/** Takes the nodes. */
VEK_API void vek_value_take_slist_of_ptr(VekValue *vekvalue, VekSList *value);
/** Takes the nodes and the VekValue records in them, which the value releases with
 *  vek_value_destroy(). */
VEK_API void vek_value_take_slist_of_value(VekValue *vekvalue, VekSList *value);
/** Takes the caller's reference. */
VEK_API void vek_value_take_dict(VekValue *vekvalue, VekDict *value);

/* ---- get: the caller borrows ----
 *
 * A value that holds null gives null, without a warning.
 * Fails: null or empty record, or another type -> 0 or null, with a warning. */

/** Returns the integer. */
VEK_API int32_t vek_value_get_int(const VekValue *vekvalue);
/** Returns the number. */
VEK_API double vek_value_get_double(const VekValue *vekvalue);
/** Returns the string. */
VEK_API const char *vek_value_get_string(const VekValue *vekvalue);
/** Returns the VekStr. */
VEK_API VekStr *vek_value_get_vekstr(const VekValue *vekvalue);
/** Returns the pointer. */
VEK_API void *vek_value_get_pointer(const VekValue *vekvalue);
/** Returns the name. */
VEK_API VekName *vek_value_get_name(const VekValue *vekvalue);
/** Returns the list, of any of the four types. */
VEK_API VekSList *vek_value_get_slist(const VekValue *vekvalue);
/** Returns the dictionary. */
VEK_API VekDict *vek_value_get_dict(const VekValue *vekvalue);

/* ---- dup: a copy or a new reference for the caller ----
 *
 * A value that holds null gives null; only vek_value_dup_string() then warns.
 * Fails: a datum that cannot be copied or refuses a reference (see vek_value_copy()) -> null; null
 *        or empty record, or another type -> null, with a warning. */

/** Returns a copy of the string; release it with vek_free(). */
VEK_API VEK_NEW char *vek_value_dup_string(const VekValue *vekvalue);
/** Returns the VekStr with a new reference; release it with vek_str_unref(). */
VEK_API VEK_MUST_USE VekStr *vek_value_dup_vekstr(const VekValue *vekvalue);
/** Returns a copy of the list; release it with vek_slist_free() and the function that releases its
 *  elements: none, vek_str_unref() or vek_value_destroy(). */
VEK_API VEK_MUST_USE VekSList *vek_value_dup_slist(const VekValue *vekvalue);
/** Returns the dictionary with a new reference; release it with vek_dict_destroy(). */
VEK_API VEK_MUST_USE VekDict *vek_value_dup_dict(const VekValue *vekvalue);

/* ---- steal: the datum itself for the caller; the value then holds null ----
 *
 * Fails: null or empty record, or another type -> null, with a warning. */

/** Returns the string; release it with vek_free(). */
VEK_API VEK_MUST_USE char *vek_value_steal_string(VekValue *vekvalue);
/** Returns the VekStr with the value's reference; release it with vek_str_unref(). */
VEK_API VEK_MUST_USE VekStr *vek_value_steal_vekstr(VekValue *vekvalue);
/** Returns the pointer. */
VEK_API void *vek_value_steal_pointer(VekValue *value);

/* ---- Conversions from any type ----
 *
 * A text that does not begin with a number gives 0 and is reported on standard output: "Can't
 * convert string "abc" to an integer" (or "a double"). A number out of range is reported as "Error
 * converting string "9999999999" to an integer: " and the system's message. What follows a number
 * in a text is ignored. Reading a text changes errno. Texts of numbers follow the locale.
 * Fails: null or empty record -> 0 or null, with warnings, unless stated otherwise. */

/** Returns a datum that is stored as a pointer (string, VekStr, pointer, name, list or dictionary),
 *  borrowed.
 *  Fails: integer or double -> null, with a warning
 */
VEK_API void *vek_value_get_as_pointer(const VekValue *vekvalue);

/** Returns a value as an integer. Doubles are rounded towards zero. Texts are read as decimal, or
 *  as hexadecimal (prefix 0x) or octal (prefix 0). A number that exceeds 32 bits gives the nearest
 *  limit; a NaN or a null text gives 0.
 *  Fails: pointer, name, list or dictionary -> 0, with a warning
 */
VEK_API int32_t vek_value_get_as_int(const VekValue *value);

/** Returns a value as a number; a null text gives 0. A text out of range is reported and gives
 *  infinity, 0, or the nearest tiny number: "1e-320" gives 9.99989e-321.
 *  Fails: pointer, name, list or dictionary -> 0, with a warning
 */
VEK_API double vek_value_get_as_double(const VekValue *value);

/** Makes the text of a value. Numbers are formatted with "%d" and "%g". A string or VekStr gives
 *  its text ("(nul)" if it is null), a name its text, any other type its type and address, such as
 *  "VEK_VALUE_DICT(0x1234)".
 *  @param value  the value; borrowed
 *  @return  the text; release it with vek_free()
 *  Fails:   no memory -> null; a null name -> null, with warnings; an empty record -> "[unknown
 *           VekValueType]" and, as an address, what its payload holds, with warnings
 */
VEK_API VEK_NEW char *vek_value_get_as_string(const VekValue *value);

/** Makes a VekStr with the text of vek_value_get_as_string(). A value that holds a VekStr gives
 *  that string with a new reference.
 *  @param value  the value; borrowed
 *  @return  the string, with one reference for the caller; release it with vek_str_unref()
 *  Fails:   as vek_value_get_as_string(); a VekStr that refuses a reference -> null, with a warning
 */
VEK_API VEK_MUST_USE VekStr *vek_value_get_as_vekstr(const VekValue *value);

VEK_END_DECLS

#include <veklib/vekvalue_inline.h>

#endif
