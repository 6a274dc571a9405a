/* SPDX-License-Identifier: MIT */
/* Warnings, fatal errors, back-traces.
 *
 * Nothing here allocates through the library or takes a lock of its own, so that a report can be
 * made from any thread, even when memory has run out. The three settings are single words, read and
 * written whole; nothing depends on the order in which threads see them change. Every fatal path
 * ends in end_process(), which does not return.
 */
#include "veklib/vekdiag.h"

#include "veklib/vekdiag_internal.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

#include <execinfo.h>

#define UNW_LOCAL_ONLY
#include <libunwind.h>

namespace {

constexpr int max_backtrace_depth = 100;

/* vek_dump_backtrace() leaves out its caller's frame and the two outermost ones. */
constexpr int frames_omitted_first = 1;
constexpr int frames_omitted = 3;

constexpr size_t error_message_size = 255;

void default_abort_handler(const char *file, int line, const char *message)
{
    if (stderr == nullptr) {
        abort();
    }
    fputs("\n----- ERROR -----\n", stderr);
    if (file != nullptr) {
        fprintf(stderr, "%s:%d: %s\n", file, line, message);
    } else {
        fprintf(stderr, "%s\n", message);
    }
    // Costs nothing on an unbuffered stream; an application that buffers it still gets its report.
    fflush(stderr);
    vek_dump_backtrace(fileno(stderr));
    abort();
}

constinit std::atomic<VekAbortHandler> abort_handler{nullptr}; // null: the default one
constinit std::atomic<int> warnings_fatal{-1};
constinit std::atomic<int> backtrace_depth{0};

/* Inline: a frame of its own would tell nothing, and VEK_BACKTRACE_SIZE may allow only a few. */
[[noreturn, gnu::always_inline]] inline void end_process(const char *file, int line,
                                                         const char *message)
{
    const VekAbortHandler handler = abort_handler.load(std::memory_order_relaxed);
    (handler != nullptr ? handler : default_abort_handler)(file, line, message);
    abort(); // a handler that returns must not lead back into the failing operation
}

int get_backtrace_depth()
{
    int depth = backtrace_depth.load(std::memory_order_relaxed);
    if (depth == 0) {
        depth = vek_environment_number("VEK_BACKTRACE_SIZE", max_backtrace_depth);
        if (depth < 1 || depth > max_backtrace_depth) {
            depth = max_backtrace_depth;
        }
        backtrace_depth.store(depth, std::memory_order_relaxed);
    }
    return depth;
}

} // namespace

int vek_environment_number(const char *name, int otherwise)
{
    const char *const text = secure_getenv(name);
    if (text == nullptr) {
        return otherwise;
    }
    const int saved_errno = errno;
    const long number = strtol(text, nullptr, 10);
    errno = saved_errno;
    return static_cast<int>(std::clamp<long>(number, INT_MIN, INT_MAX));
}

void vek_set_abort_handler(VekAbortHandler handler)
{
    abort_handler.store(handler, std::memory_order_relaxed);
}

void vek_abort()
{
    end_process(nullptr, 0, "[no info]");
}

int vek_get_warnings_fatal()
{
    int setting = warnings_fatal.load(std::memory_order_relaxed);
    if (setting >= 0) {
        return setting > 0;
    }
    const int fatal = vek_environment_number("VEK_FATAL_WARNINGS", 0);
    // Replace only an unknown setting: one that the application made meanwhile stays.
    warnings_fatal.compare_exchange_strong(setting, fatal, std::memory_order_relaxed);
    return fatal != 0;
}

void vek_set_warnings_fatal(int fatal)
{
    warnings_fatal.store(fatal, std::memory_order_relaxed);
}

void _vek_warning(const char *file, int line, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    _vek_warning_va(file, line, format, args);
    va_end(args);
}

void _vek_warning_va(const char *file, int line, const char *format, va_list args)
{
    if (vek_get_warnings_fatal()) {
        _vek_error_va(file, line, format, args);
    }
    if (stderr == nullptr) {
        return;
    }
    fprintf(stderr, "%s:%d: ", file, line);
    vfprintf(stderr, format, args);
    fputc('\n', stderr);
}

void _vek_error(const char *file, int line, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    _vek_error_va(file, line, format, args);
}

void _vek_error_va(const char *file, int line, const char *format, va_list args)
{
    char message[error_message_size];
    vsnprintf(message, sizeof message, format, args);
    end_process(file, line, message);
}

void vek_warn_failed_assertion(const char *file, int line, const char *function,
                               const char *condition)
{
    _vek_warning(file, line, "%s: assertion \"%s\" failed\n", function, condition);
}

void vek_dump_backtrace(int fd)
{
    const int wanted = get_backtrace_depth() + frames_omitted;
    void *frames[max_backtrace_depth + frames_omitted];
    int recorded = 0;

    unw_context_t context;
    unw_cursor_t cursor;
    unw_word_t address;
    const bool started = unw_getcontext(&context) == 0 && unw_init_local(&cursor, &context) == 0;
    while (started && recorded < wanted && unw_step(&cursor) > 0 &&
           unw_get_reg(&cursor, UNW_REG_IP, &address) == 0) {
        frames[recorded++] = reinterpret_cast<void *>(address);
    }
    if (recorded > frames_omitted) {
        backtrace_symbols_fd(frames + frames_omitted_first, recorded - frames_omitted, fd);
    }
}
