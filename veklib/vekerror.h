/* SPDX-License-Identifier: MIT */
/** @file vekerror.h
 *  Error objects. An error is made where a failure is found, and passed up to the callers. It holds
 *  a type, a message of limited length and the places in the source that it passed through. Making
 *  one never fails: without memory the caller gets a shared, read-only error that says so.
 *
 *      VekError *err = VEK_ERROR_CREATE(VEK_ERROR_IO, "cannot open %s", path);   // here
 *      VEK_ERROR_ADD_CALLSTACK_ENTRY(err);                                       // a level higher
 *      vek_error_print(err, stderr);                                             // at the top
 *      vek_error_destroy(err);
 *
 *  By convention, a function that returns a pointer to a VekError returns null for success. The
 *  functions that read an error accept null too.
 *  Threads: an error is used by one thread at a time, the shared one by any number of threads.
 */
#ifndef VEKLIB_VEKERROR_H
#define VEKLIB_VEKERROR_H

#include <stdint.h>
#include <stdio.h>

#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** The type of an error. An application may use other numbers, which print as "Unknown Error". */
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
    int32_t type;         /**< a VekErrorType, or a number of the application's own */
    uint32_t msg_pos;     /**< length of the message */
    char msg[VEK_ERROR_MSG_SIZE]; /**< the message, at most 4094 characters */
    int32_t callstack_count;      /**< places in use */
    VekErrorCallstackEntry callstack[VEK_ERROR_CALLSTACK_SIZE]; /**< first: where it was made */
} VekError;

/* ---- Create and release ---- */

/** Releases an error.
 *  @param err  the error, taken; null or the shared error does nothing
 */
VEK_API void vek_error_destroy(VekError *err);

/** Makes an error.
 *  @param type    a VekErrorType, or a number of the application's own
 *  @param func    the calling function; borrowed for the error's life; null: "--unknown--"
 *  @param file    its source file; borrowed for the error's life; null: "--unknown--"
 *  @param line    its source line
 *  @param format  printf format of the message, which is cut after 4094 characters, or at a NUL
 *                 among the formatted characters. If it is null or empty, or a value cannot be
 *                 converted, there is no message
 *  @return  the error, never null; release with vek_error_destroy()
 *  Fails:   no memory -> the shared error of type VEK_ERROR_OUT_OF_MEMORY, with the message "Out of
 *           Memory"; the functions below accept it and never change it
 */
VEK_API VEK_MUST_USE VEK_NEVER_NULL VEK_PRINTF(5, 6) VekError *vek_error_create(
    int type, const char *func, const char *file, int line, const char *format, ...);

/** vek_error_create() with the place of the call: VEK_ERROR_CREATE(type, format, ...). */
#define VEK_ERROR_CREATE(type, ...)                                                                \
    vek_error_create(type, __func__, __FILE__, __LINE__, __VA_ARGS__)

/* ---- Change ---- */

/** Adds text to the message. Characters beyond 4094 are dropped, and so are those after a NUL among
 *  the formatted characters; text that is added later starts where that NUL was.
 *  @param err     the error; null ends the process through the platform's assertion facility
 *  @param format  printf format; null or empty: nothing is added. None of the values may point into
 *                 this error's own message
 *  @return  the same error
 *  Fails:   a value that cannot be converted, or a text of more than INT_MAX characters -> the same
 *           error, with the message unchanged
 */
VEK_API VEK_NEVER_NULL VEK_PRINTF(2, 3) VekError *vek_error_append_msg(VekError *err,
                                                                       const char *format, ...);

/** Adds a place; an error that already has 30 places stays unchanged.
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
 * Index 0 is the place where the error was made; the last index is the count minus 1. For a null
 * error, or an index that is not in use, the result is 0, an empty message or "--unknown--",
 * without a warning. */

/** Returns the type. */
VEK_API int vek_error_get_type(const VekError *err);
/** Returns the message, borrowed. It is part of the error, so later additions appear in it. */
VEK_API VEK_NEVER_NULL const char *vek_error_get_msg(const VekError *err);
/** Returns the number of places. */
VEK_API int vek_error_get_callstack_count(const VekError *err);
/** Returns the function of a place, borrowed: the pointer that was passed in. */
VEK_API VEK_NEVER_NULL const char *vek_error_get_callstack_func(const VekError *err, int index);
/** Returns the source file of a place, borrowed: the pointer that was passed in. */
VEK_API VEK_NEVER_NULL const char *vek_error_get_callstack_file(const VekError *err, int index);
/** Returns the source line of a place. */
VEK_API int vek_error_get_callstack_line(const VekError *err, int index);

/** Prints an error, without flushing. The lines of a missing message or of missing places are left
 *  out.
 *
 *      ** Error 2: I/O Error
 *      cannot open /etc/gateway.conf
 *      ------ Call Stack: ------
 *       0: read_settings() in settings.c:41
 *       1: main() in main.c:12
 *
 *  @param err     the error; null prints nothing
 *  @param stream  the output stream; null: standard output
 */
VEK_API void vek_error_print(const VekError *err, FILE *stream);

/** Returns the text of a type, a constant; "Unknown Error" if it is not a VekErrorType. */
VEK_API VEK_NEVER_NULL const char *_vek_error_get_string(int type);

VEK_END_DECLS

#endif
