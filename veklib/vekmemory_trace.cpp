/* SPDX-License-Identifier: MIT */
/* Trace lines, the wrappers that write them, and their switch.
 *
 * A wrapper calls the installed table and passes on the return address. All trace lines are written
 * here, including those of refusals; each reaches its destination in one write, so lines of
 * different threads never mix. The destination is chosen once, the counter never goes back, and
 * errno stays as the traced operation left it. Nothing here writes to a table, except that
 * wrap_if_tracing() changes the one that it is given. Nothing allocates through the library.
 */
#include "veklib/vekcompiler_internal.h"
#include "veklib/vekdiag.h"
#include "veklib/vekmemory_internal.h"
#include "veklib/vekmemory_table_internal.h"

#include <atomic>
#include <bit>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

#include <fcntl.h>
#include <pthread.h>
#include <sys/types.h>

using namespace vekmemory;

namespace {

/* ---- The trace writer ---- */

/* The longest line. Every other has a shorter text or fewer numbers. */
constexpr char longest_trace_line[] =
    "0xffffffffffffffff: vek_calloc(-9223372036854775808, -9223372036854775808) => "
    "0xffffffffffffffff [#-2147483648]\n";

constinit FILE *trace_destination = nullptr;
constinit pthread_once_t trace_destination_once = PTHREAD_ONCE_INIT;

void choose_trace_destination()
{
    const char *const path = secure_getenv("VEK_MALLOC_TRACE_FILE");
    if (path != nullptr) {
        trace_destination = vek_open_file(path, "wb");
        if (trace_destination != nullptr) {
            setlinebuf(trace_destination);
            return;
        }
        if (stderr != nullptr) {
            perror(path);
        }
    }
    trace_destination = stderr;
}

/* Lines are composed here, because most of a traced call was spent in snprintf(). The functions
 * append to a line and return its new end. */

/** Appends the last `count` digits of `number`. */
template <unsigned base>
char *append_digits(char *end, uintptr_t number, int count)
{
    for (char *digit = end + count; digit != end; number /= base) {
        *--digit = "0123456789abcdef"[number % base];
    }
    return end + count;
}

char *append_address(char *end, const void *address)
{
    if (address == nullptr) {
        return stpcpy(end, "(nil)");
    }
    const auto number = reinterpret_cast<uintptr_t>(address);
    const int bits = std::numeric_limits<uintptr_t>::digits - std::countl_zero(number);
    return append_digits<16>(stpcpy(end, "0x"), number, (bits + 3) / 4);
}

char *append_decimal(char *end, ssize_t number)
{
    auto magnitude = static_cast<size_t>(number);
    if (number < 0) {
        *end++ = '-';
        magnitude = 0 - magnitude;
    }
    int count = 1;
    for (size_t rest = magnitude; rest >= 10; rest /= 10) {
        ++count;
    }
    return append_digits<10>(end, magnitude, count);
}

/** Writes a line, which begins with the return address, and a newline in one write. `format` may
 *  contain only "%p" and "%zd". The first line chooses the destination.
 *  Fails: there is no destination at all -> a fatal error */
VEK_PRINTF(1, 2) void write_trace(const char *format, ...)
{
    const int saved_errno = errno;

    char line[sizeof longest_trace_line];
    char *end = line;
    va_list args;
    va_start(args, format);
    while (const char c = *format++) {
        if (!vek_is_rare(c == '%')) {
            *end++ = c;
        } else if (*format == 'p') {
            format += 1;
            end = append_address(end, va_arg(args, void *));
        } else {
            format += 2; // "zd"
            end = append_decimal(end, va_arg(args, ssize_t));
        }
    }
    va_end(args);
    *end++ = '\n';

    pthread_once(&trace_destination_once, choose_trace_destination);
    if (trace_destination == nullptr) {
        _vek_error(__FILE__, __LINE__, "Assertion %s failed.\n", "trace_destination");
    }
    fwrite(line, 1, static_cast<size_t>(end - line), trace_destination);
    errno = saved_errno;
}

/* Lines show sizes as signed numbers; that is interface. */
ssize_t as_signed(size_t size)
{
    return static_cast<ssize_t>(size);
}

/* ---- The wrappers ---- */

constinit std::atomic<unsigned> allocation_counter{0};
constinit std::atomic<bool> tracing{false};

/** Returns the installed table. The fence orders reading it after reading the wrapper, which calls
 *  this, from the active table. */
const VekMemoryVtable &traced_table()
{
    std::atomic_thread_fence(std::memory_order_acquire);
    return installed;
}

/* Lines show the number as an int, which becomes negative after INT_MAX. */
ssize_t next_allocation_number()
{
    return static_cast<int>(allocation_counter.fetch_add(1, std::memory_order_relaxed) + 1);
}

void *traced_malloc(size_t size, void *return_address)
{
    void *const result = load(traced_table().malloc)(size, return_address);
    write_trace("%p: vek_malloc(%zd) => %p [#%zd]", return_address, as_signed(size), result,
                next_allocation_number());
    return result;
}

void *traced_calloc(size_t count, size_t size, void *return_address)
{
    void *const result = load(traced_table().calloc)(count, size, return_address);
    write_trace("%p: vek_calloc(%zd, %zd) => %p [#%zd]", return_address, as_signed(count),
                as_signed(size), result, next_allocation_number());
    return result;
}

void *traced_realloc(void *block, size_t size, void *return_address)
{
    // For the line: once the block has been resized, the old pointer must not be used any more.
    const auto old_address = reinterpret_cast<uintptr_t>(block);
    void *const result = load(traced_table().realloc)(block, size, return_address);
    write_trace("%p: vek_realloc(%p, %zd) => %p [#%zd]", return_address,
                reinterpret_cast<void *>(old_address), as_signed(size), result,
                next_allocation_number());
    return result;
}

/* The line comes first: once the block is released, another thread may get it and write a line. */
void traced_free(void *block, void *return_address)
{
    write_trace("%p: vek_free(%p)", return_address, block);
    load(traced_table().free)(block, return_address);
}

void *traced_malloc_if_possible(size_t size, void *return_address)
{
    void *const result = load(traced_table().malloc_if_possible)(size, return_address);
    write_trace("%p: vek_malloc_if_possible(%zd) => %p [#%zd]", return_address, as_signed(size),
                result, next_allocation_number());
    return result;
}

void *traced_malloc_if_available(size_t size, void *return_address)
{
    void *const result = load(traced_table().malloc_if_available)(size, return_address);
    write_trace("%p: vek_malloc_if_available(%zd) => %p [#%zd]", return_address, as_signed(size),
                result, next_allocation_number());
    return result;
}

} // namespace

/* ---- For the other sources ---- */

void vekmemory::wrap_if_tracing(VekMemoryVtable &table)
{
    if (tracing.load(std::memory_order_relaxed)) {
        table.malloc = traced_malloc;
        table.calloc = traced_calloc;
        table.realloc = traced_realloc;
        table.free = traced_free;
        table.malloc_if_possible = traced_malloc_if_possible;
        table.malloc_if_available = traced_malloc_if_available;
    }
}

void *vekmemory::refuse_malloc(size_t size, void *return_address)
{
    write_trace("%p: vek_malloc(%zd) => NULL, in error state", return_address, as_signed(size));
    return nullptr;
}

void *vekmemory::refuse_calloc(size_t count, size_t size, void *return_address)
{
    write_trace("%p: vek_calloc(%zd, %zd) => NULL, in error state", return_address,
                as_signed(count), as_signed(size));
    return nullptr;
}

void *vekmemory::refuse_realloc(void *block, size_t size, void *return_address)
{
    write_trace("%p: vek_realloc(%p, %zd) => NULL, in error state", return_address, block,
                as_signed(size));
    return nullptr;
}

void *vekmemory::refuse_malloc_if_possible(size_t size, void *return_address)
{
    write_trace("%p: vek_malloc_if_possible(%zd) => NULL, in error state", return_address,
                as_signed(size));
    return nullptr;
}

FILE *vek_open_file(const char *path, const char *mode)
{
    FILE *const file = fopen(path, mode);
    if (file != nullptr) {
        fcntl(fileno(file), F_SETFD, FD_CLOEXEC);
    }
    return file;
}

/* ---- The switch ---- */

/* An application may define both functions itself. They have no weak names, but the library's call
 * goes through the dynamic symbol table. */

void vek_memory_enable_trace()
{
    complete_first_use();
    if (!tracing.exchange(true, std::memory_order_acq_rel)) {
        publish();
    }
}

void vek_memory_disable_trace()
{
    // A thread that sees tracing on also sees the table that was installed before.
    if (tracing.exchange(false, std::memory_order_acq_rel)) {
        publish();
    }
}
