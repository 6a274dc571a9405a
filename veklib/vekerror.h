/* SPDX-License-Identifier: MIT */
/** @file vekerror.h
 *  Error objects: a report that is made where a failure is found, and passed upwards. It carries a
 *  type, a message of bounded size and the places that it came through. Making one never fails:
 *  without memory the caller gets a shared, read-only error that says so.
 *
 *      VekError *err = VEK_ERROR_CREATE(VEK_ERROR_IO, "cannot open %s", path);   // here
 *      VEK_ERROR_ADD_CALLSTACK_ENTRY(err);                                       // a level higher
 *      vek_error_print(err, stderr);                                             // at the top
 *      vek_error_destroy(err);
 *
 *  By convention a function that returns a VekError returns null for success; the functions that
 *  read accept that null, too.
 *  Threads: an error is used by one thread at a time; the shared one by any number.
 */
#ifndef VEKLIB_VEKERROR_H
#define VEKLIB_VEKERROR_H

#include <stdint.h>
#include <stdio.h>

#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** The kind of error. An application may use numbers of its own, which print as "Unknown Error". */
typedef enum VekErrorType VEK_INT_ENUM {
    VEK_ERROR_SUCCESS = 0,       /**< "Success" */
    VEK_ERROR_OUT_OF_MEMORY = 1, /**< "Out of Memory Error" */
    VEK_ERROR_IO = 2,            /**< "I/O Error" */
    VEK_ERROR_BAD_INPUT = 3      /**< "Bad Input Data" */
} VekErrorType;

/** Sizes of an error. */
enum { VEK_ERROR_MSG_SIZE = 4096, VEK_ERROR_CALLSTACK_SIZE = 30 };

/** A place that an error came through. */
typedef struct VekErrorCallstackEntry {
    const char *func; /**< function; borrowed for the error's life */
    const char *file; /**< source file; borrowed for the error's life */
    int32_t line;     /**< source line */
} VekErrorCallstackEntry;

/** An error. The fields are for reading. */
typedef struct VekError {
    uint8_t is_allocated; /**< 0: the shared error for exhausted memory, which never changes */
    int32_t type;         /**< a VekErrorType, or the application's number */
    uint32_t msg_pos;     /**< length of the message */
    char msg[VEK_ERROR_MSG_SIZE]; /**< the message, at most 4094 characters */
    int32_t callstack_count;      /**< places in use */
    VekErrorCallstackEntry callstack[VEK_ERROR_CALLSTACK_SIZE]; /**< the first one made the error */
} VekError;

/* ---- Create and release ---- */

/** Releases an error.
 *  @param err  the error, taken; null or the shared error does nothing
 */
VEK_API void vek_error_destroy(VekError *err);

/** Makes an error.
 *  @param type    a VekErrorType, or a number of the application's
 *  @param func    function that makes it; borrowed for the error's life; null: "--unknown--"
 *  @param file    its source file; borrowed for the error's life; null: "--unknown--"
 *  @param line    its source line
 *  @param format  printf format of the message, which is cut after 4094 characters, or at a NUL
 *                 among the formatted ones; null, empty, or with a value that cannot be
 *                 converted: no message
 *  @return  the error, never null; release with vek_error_destroy()
 *  Fails:   no memory -> the shared error of type VEK_ERROR_OUT_OF_MEMORY, with the message "Out of
 *           Memory"; the functions below accept it and never change it
 */
VEK_API VEK_MUST_USE VEK_NEVER_NULL VEK_RELEASED_WITH(vek_error_destroy)
    VEK_PRINTF(5, 6) VekError *vek_error_create(int type, const char *func, const char *file,
                                                int line, const char *format, ...);

/** vek_error_create() at the place of the call: VEK_ERROR_CREATE(type, format, ...). */
#define VEK_ERROR_CREATE(type, ...)                                                                \
    vek_error_create(type, __func__, __FILE__, __LINE__, __VA_ARGS__)

/* ---- Change ---- */

/** Adds text to the message; what goes beyond 4094 characters, or follows a NUL among the formatted
 *  ones, is dropped. The next text starts where that NUL stood.
 *  @param err     the error; null ends the process through the platform's assertion facility
 *  @param format  printf format; null or empty: nothing is added. Its values must not be part of
 *                 the error's own message
 *  @return  the same error
 *  Fails:   a value that cannot be converted, or a text beyond INT_MAX -> the same error, with the
 *           message unchanged
 */
VEK_API VEK_NEVER_NULL VEK_PRINTF(2, 3) VekError *vek_error_append_msg(VekError *err,
                                                                       const char *format, ...);

/** Adds a place; dropped when there are 30.
 *  @param err   the error; null ends the process through the platform's assertion facility
 *  @param func  function; borrowed for the error's life; null: "--unknown--"
 *  @param file  source file; borrowed for the error's life; null: "--unknown--"
 *  @param line  source line
 */
VEK_API void _vek_error_add_callstack_entry(VekError *err, const char *func, const char *file,
                                            int line);

/** Adds the place of the call. */
#define VEK_ERROR_ADD_CALLSTACK_ENTRY(err)                                                         \
    _vek_error_add_callstack_entry(err, __func__, __FILE__, __LINE__)

/* ---- Read ----
 *
 * Indices count from 0, the place that made the error, to one less than the count. A null error, or
 * an index that is not in use, gives 0, an empty message or "--unknown--", without a warning. */

/** Returns the type. */
VEK_API int vek_error_get_type(const VekError *err);
/** Returns the message, borrowed: part of the error, so text that is added later shows up in it. */
VEK_API VEK_NEVER_NULL const char *vek_error_get_msg(const VekError *err);
/** Returns the number of places. */
VEK_API int vek_error_get_callstack_count(const VekError *err);
/** Returns the function of a place, borrowed: the pointer that was given. */
VEK_API VEK_NEVER_NULL const char *vek_error_get_callstack_func(const VekError *err, int index);
/** Returns the source file of a place, borrowed: the pointer that was given. */
VEK_API VEK_NEVER_NULL const char *vek_error_get_callstack_file(const VekError *err, int index);
/** Returns the source line of a place. */
VEK_API int vek_error_get_callstack_line(const VekError *err, int index);

/** Prints an error; without a message or places their lines are left out. Nothing is flushed.
 *
 *      ** Error 2: I/O Error
 *      cannot open /etc/gateway.conf
 *      ------ Call Stack: ------
 *       0: read_settings() in settings.c:41
 *       1: main() in main.c:12
 *
 *  @param err     the error; null prints nothing
 *  @param stream  where to; null: standard output
 */
VEK_API void vek_error_print(const VekError *err, FILE *stream);

/** Returns the text of a type, a constant; "Unknown Error" for any other number. */
VEK_API VEK_NEVER_NULL const char *_vek_error_get_string(int type);

VEK_END_DECLS

#endif
