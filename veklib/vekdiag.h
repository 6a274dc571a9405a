/* SPDX-License-Identifier: MIT */
/** @file vekdiag.h
 *  Diagnostics: warnings, fatal errors, argument checks and stack back-traces.
 *
 *  Warnings go to the standard error stream. A process-wide setting (or the environment variable
 *  VEK_FATAL_WARNINGS) turns them into fatal errors, which reach the abort handler and end the
 *  process. Nothing here allocates memory, so reporting works when memory has run out. A program
 *  with more rights than its user (set-user-id, set-group-id, file capabilities) ignores the
 *  environment variables that are named here.
 *
 *      VEK_RETURN_VAL_IF_FAIL(name != NULL, -1);       // in a function of your own
 *      VEK_WARNING("cannot open %s", path);
 *
 *  Every function may be called from any thread. A warning is written in three pieces (place,
 *  message, newline), so warnings of different threads may interleave between them.
 */
#ifndef VEKLIB_VEKDIAG_H
#define VEKLIB_VEKDIAG_H

#include <stdarg.h>
#include <stddef.h>

#include <veklib/vekmacros.h>

VEK_BEGIN_DECLS

/** Ends the process after a fatal error.
 *  @param file     source path of the report; may be null; borrowed
 *  @param line     line of the report, 0 if unknown
 *  @param message  the report; borrowed, valid during the call
 *  Must not return, nor leave by longjmp() or an exception. If it returns, the library calls
 *  abort().
 */
typedef void (*VekAbortHandler)(const char *file, int line, const char *message);

/** Sets the function that every fatal error ends in. Call it at start: a report that another thread
 *  has begun may still use the old handler.
 *  @param handler  the new handler; null restores the default one, which writes the line
 *                  "----- ERROR -----", "file:line: message" (the message alone if there is no
 *                  file) and a back-trace to the standard error stream, and ends the process with
 *                  SIGABRT
 */
VEK_API void vek_set_abort_handler(VekAbortHandler handler);

/** Ends the process through the abort handler, with a null file, line 0 and "[no info]". */
VEK_API VEK_NORETURN VEK_COLD void vek_abort(void);

/** Returns whether warnings are fatal. While the setting is negative, as at start, the environment
 *  variable VEK_FATAL_WARNINGS decides: a decimal number other than 0 makes them fatal; 0, text
 *  without digits or an unset variable does not. Its number becomes the setting, so it is read
 *  once; a negative number, which also makes them fatal, is read again each time.
 *  @return  1 if they are fatal, 0 if not
 */
VEK_API int vek_get_warnings_fatal(void);

/** Decides whether warnings are fatal, whatever the environment says. Call it at start, as
 *  vek_set_abort_handler().
 *  @param fatal  0: they are not; positive: they are; negative: the environment decides again
 */
VEK_API void vek_set_warnings_fatal(int fatal);

/** Writes a warning to the standard error stream: "file:line: ", the message, a newline. When
 *  warnings are fatal this is _vek_error() with the same arguments, and does not return.
 *  @param file    source path; borrowed
 *  @param line    source line
 *  @param format  printf format of the message, of any length; borrowed. A newline is added, so a
 *                 message that ends in one is followed by an empty line
 */
VEK_API VEK_COLD VEK_PRINTF(3, 4) void _vek_warning(const char *file, int line, const char *format,
                                                    ...);

/** _vek_warning() with an argument list, which the caller ends. */
VEK_API VEK_COLD VEK_PRINTF(3, 0) void _vek_warning_va(const char *file, int line,
                                                       const char *format, va_list args);

/** Reports a fatal error to the abort handler; does not return.
 *  @param file    source path; may be null; borrowed
 *  @param line    source line
 *  @param format  printf format of the message, which is cut after 254 characters; borrowed
 */
VEK_API VEK_NORETURN VEK_COLD VEK_PRINTF(3, 4) void _vek_error(const char *file, int line,
                                                               const char *format, ...);

/** _vek_error() with an argument list. */
VEK_API VEK_NORETURN VEK_COLD VEK_PRINTF(3, 0) void _vek_error_va(const char *file, int line,
                                                                  const char *format, va_list args);

/** Warns about an argument check that failed; the checks below call it. The warning reads
 *  "file:line: function: assertion "condition" failed" and is followed by an empty line. When
 *  warnings are fatal the call does not return.
 *  @param file       source path of the check; borrowed
 *  @param line       line of the check
 *  @param function   name of the function that checks; borrowed
 *  @param condition  source text of the condition; borrowed
 */
VEK_API VEK_COLD void vek_warn_failed_assertion(const char *file, int line, const char *function,
                                                const char *condition);

/** Writes the caller's stack to a file descriptor, one line per frame, innermost first, in the form
 *  of backtrace_symbols_fd(). The frame of the caller itself and the two outermost ones are left
 *  out. Needs unwind tables in the code that is walked (GCC writes them on ARM only with
 *  -funwind-tables) and some 20 KB of stack. The environment variable VEK_BACKTRACE_SIZE (1 to 100,
 *  else 100) limits the number of frames; it is read once. Of a deeper stack the innermost frames
 *  are shown.
 *  @param fd  file descriptor open for writing; stays open
 */
VEK_API void vek_dump_backtrace(int fd);

/** Returns from a function without a result when the condition does not hold, with a warning that
 *  names file, line, function and the condition as written. */
#define VEK_RETURN_IF_FAIL(condition)                                                              \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            vek_warn_failed_assertion(__FILE__, __LINE__, __func__, #condition);                   \
            return;                                                                                \
        }                                                                                          \
    } while (0)

/** VEK_RETURN_IF_FAIL() for a function with a result: returns `value` on failure. */
#define VEK_RETURN_VAL_IF_FAIL(condition, value)                                                   \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            vek_warn_failed_assertion(__FILE__, __LINE__, __func__, #condition);                   \
            return value;                                                                          \
        }                                                                                          \
    } while (0)

/** _vek_warning() with the place of the call: VEK_WARNING(format, ...). */
#define VEK_WARNING(...) _vek_warning(__FILE__, __LINE__, __VA_ARGS__)

/** _vek_error() with the place of the call: VEK_FATAL_ERROR(format, ...); does not return. */
#define VEK_FATAL_ERROR(...) _vek_error(__FILE__, __LINE__, __VA_ARGS__)

VEK_END_DECLS

#endif
