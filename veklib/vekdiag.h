/* SPDX-License-Identifier: MIT */
/** @file vekdiag.h
 *  Diagnostics: warnings, fatal errors, argument checks and stack back-traces.
 *
 *  Warnings go to the standard error stream. A process-wide setting (or the environment variable
 *  VEK_FATAL_WARNINGS) turns them into fatal errors. A fatal error calls the abort handler, which
 *  ends the process. Nothing here allocates memory, so reports also work when memory has run out. A
 *  program with more rights than its user (set-user-id, set-group-id, file capabilities) ignores
 *  the environment variables that are named here.
 *
 *      VEK_RETURN_VAL_IF_FAIL(name != NULL, -1);       // in a function of your own
 *      VEK_WARNING("cannot open %s", path);
 *
 *  Every function may be called from any thread. A warning is written in three pieces (place,
 *  message, newline), so the pieces of warnings from different threads may be mixed.
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
 *  A handler must not return, and must not leave by longjmp() or an exception. If it returns, the
 *  library calls abort().
 */
typedef void (*VekAbortHandler)(const char *file, int line, const char *message);

/** Sets the function that ends the process after a fatal error. Call this when the program starts:
 *  a report that another thread has already begun may still use the old handler.
 *  @param handler  the new handler; null restores the default one, which writes the line
 *                  "----- ERROR -----", "file:line: message" (the message alone if there is no
 *                  file) and a back-trace to the standard error stream, and ends the process with
 *                  SIGABRT
 */
VEK_API void vek_set_abort_handler(VekAbortHandler handler);

/** Ends the process through the abort handler, which gets a null file, line 0 and the message
 *  "[no info]". */
VEK_API VEK_NORETURN VEK_COLD void vek_abort(void);

/** Returns whether warnings are fatal. The setting is negative at first. While it is negative, the
 *  environment variable VEK_FATAL_WARNINGS decides: a decimal number other than 0 makes warnings
 *  fatal; 0, text without digits or an unset variable does not. The number (0 if there is none)
 *  becomes the setting, so the variable is read only once. A negative number also makes warnings
 *  fatal, but is read again each time.
 *  @return  1 if they are fatal, 0 if not
 */
VEK_API int vek_get_warnings_fatal(void);

/** Sets whether warnings are fatal, whatever the environment says. Call this when the program
 *  starts, like vek_set_abort_handler().
 *  @param fatal  0: not fatal; positive: fatal; negative: the environment decides again
 */
VEK_API void vek_set_warnings_fatal(int fatal);

/** Writes a warning to the standard error stream: "file:line: ", the message and a newline. If
 *  warnings are fatal, it does the same as _vek_error() and does not return.
 *  @param file    source path; borrowed
 *  @param line    source line
 *  @param format  printf format of the message, of any length; borrowed. A newline is added, so a
 *                 message that ends in one is followed by an empty line
 */
VEK_API VEK_COLD VEK_PRINTF(3, 4) void _vek_warning(const char *file, int line, const char *format,
                                                    ...);

/** _vek_warning() with an argument list, for which the caller calls va_end(). */
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

/** Warns about an argument check that failed; the macros below call it. The warning reads
 *  "file:line: function: assertion "condition" failed" and is followed by an empty line. If
 *  warnings are fatal, the call does not return.
 *  @param file       source path of the check; borrowed
 *  @param line       line of the check
 *  @param function   name of the function that checks; borrowed
 *  @param condition  source text of the condition; borrowed
 */
VEK_API VEK_COLD void vek_warn_failed_assertion(const char *file, int line, const char *function,
                                                const char *condition);

/** Writes the caller's stack to a file descriptor, one line per frame, innermost first, in the
 *  format of backtrace_symbols_fd(). The frame of the caller itself and the two outermost ones are
 *  left out. The code on the stack must have unwind tables (for ARM, GCC writes them only with
 *  -funwind-tables or -fexceptions), and the call needs some 20 KB of stack. The environment
 *  variable VEK_BACKTRACE_SIZE limits the number of frames and is read once: 1 to 100; anything
 *  else means 100. If the stack is deeper, the innermost frames are shown.
 *  @param fd  file descriptor, open for writing; stays open
 */
VEK_API void vek_dump_backtrace(int fd);

/** For a function without a result: returns if the condition does not hold, with a warning that
 *  names the file, the line, the function and the condition as written. */
#define VEK_RETURN_IF_FAIL(condition)                                                              \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            vek_warn_failed_assertion(__FILE__, __LINE__, __func__, #condition);                   \
            return;                                                                                \
        }                                                                                          \
    } while (0)

/** VEK_RETURN_IF_FAIL() for a function with a result: returns `value` if the condition does not
 *  hold. */
#define VEK_RETURN_VAL_IF_FAIL(condition, value)                                                   \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            vek_warn_failed_assertion(__FILE__, __LINE__, __func__, #condition);                   \
            return value;                                                                          \
        }                                                                                          \
    } while (0)

/** _vek_warning() with the file and line of the call: VEK_WARNING(format, ...). */
#define VEK_WARNING(...) _vek_warning(__FILE__, __LINE__, __VA_ARGS__)

/** _vek_error() with the file and line of the call: VEK_FATAL_ERROR(format, ...); does not return.
 */
#define VEK_FATAL_ERROR(...) _vek_error(__FILE__, __LINE__, __VA_ARGS__)

VEK_END_DECLS

#endif
