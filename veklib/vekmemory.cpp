/* SPDX-License-Identifier: MIT */
#include "veklib/vekmemory.h"

#include "veklib/vekdiag.h"
#include "veklib/vekdiag_internal.h"
#include "veklib/vekmemory_internal.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <pthread.h>
#include <sys/types.h>

/* Two tables carry the state. `installed` is what the application installed, the default table
 * until then; it is empty until the first use fills it in, and never holds a wrapper. `active` is
 * what every call goes through: first-use entries at load, afterwards always `installed`, under
 * tracing wrappers if tracing is on. Whoever touches the tables first (an allocation, a query, the
 * trace switch) brings the first-use installation to its end before anything else happens; racing
 * threads wait for it. A table exchange that comes first takes its place.
 *
 * The slots are read and written one by one as whole words, because allocations on other threads
 * may race with the first-use installation. An entry point is a zero test and a jump through its
 * slot, without further ordering; the wrappers, which read `installed` as well, order themselves.
 */

namespace {

constexpr size_t unknown_size = SIZE_MAX;

/* Always inline: a call here, which compilers make of it when they save space, would cost the entry
 * points their tail jump. */
template <typename Slot>
[[gnu::always_inline]] inline Slot load(const Slot &slot)
{
    return __atomic_load_n(&slot, __ATOMIC_RELAXED);
}

template <typename Slot>
inline void store(Slot &slot, Slot value)
{
    __atomic_store_n(&slot, value, __ATOMIC_RELEASE);
}

void store_table(VekMemoryVtable &to, const VekMemoryVtable &from)
{
    store(to.malloc, from.malloc);
    store(to.calloc, from.calloc);
    store(to.realloc, from.realloc);
    store(to.free, from.free);
    store(to.mark, from.mark);
    store(to.malloc_if_possible, from.malloc_if_possible);
    store(to.malloc_if_available, from.malloc_if_available);
    store(to.get_total_bytes, from.get_total_bytes);
    store(to.get_free_bytes, from.get_free_bytes);
    store(to.get_error, from.get_error);
    store(to.set_error, from.set_error);
}

/* ---- The trace writer ---- */

constexpr size_t trace_buffer_size = 1024;
constexpr int trace_line_limit = 1021; // longer lines are dropped; scripts may rely on it

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

/** Writes a line, which begins with the address of the code that asked, and a newline in one write;
 * a line over the limit is dropped. The first line chooses the destination; if there is none at
 * all, that is fatal. Leaves errno as the traced operation left it. */
[[gnu::format(printf, 1, 2)]] void write_trace(const char *format, ...)
{
    const int saved_errno = errno;

    char line[trace_buffer_size];
    va_list args;
    va_start(args, format);
    const int length = vsnprintf(line, sizeof line, format, args);
    va_end(args);
    if (length < 0 || length > trace_line_limit) {
        errno = saved_errno;
        return;
    }
    line[length] = '\n';
    line[length + 1] = '\0';

    pthread_once(&trace_destination_once, choose_trace_destination);
    if (trace_destination == nullptr) {
        _vek_error(__FILE__, __LINE__, "Assertion %s failed.\n", "trace_destination");
    }
    fputs(line, trace_destination);
    errno = saved_errno;
}

/* Sizes are printed as signed numbers. */
ssize_t printed(size_t size)
{
    return static_cast<ssize_t>(size);
}

/* ---- The default table ---- */

/* Changed while no other thread allocates, so that allocations read it without further ado. */
constinit uint8_t error_state = 0;

/* Apart from the functions that call them, and cold, so that those remain a test and a jump. */
#define REFUSE [[gnu::cold, gnu::noinline]]

REFUSE void *refuse_malloc(size_t size, void *return_address)
{
    write_trace("%p: vek_malloc(%zd) => NULL, in error state", return_address, printed(size));
    return nullptr;
}

REFUSE void *refuse_calloc(size_t count, size_t size, void *return_address)
{
    write_trace("%p: vek_calloc(%zd, %zd) => NULL, in error state", return_address, printed(count),
                printed(size));
    return nullptr;
}

REFUSE void *refuse_realloc(void *block, size_t size, void *return_address)
{
    write_trace("%p: vek_realloc(%p, %zd) => NULL, in error state", return_address, block,
                printed(size));
    return nullptr;
}

REFUSE void *refuse_malloc_if_possible(size_t size, void *return_address)
{
    write_trace("%p: vek_malloc_if_possible(%zd) => NULL, in error state", return_address,
                printed(size));
    return nullptr;
}

void *default_malloc(size_t size, void *return_address)
{
    return error_state != 0 ? refuse_malloc(size, return_address) : malloc(size);
}

void *default_calloc(size_t count, size_t size, void *return_address)
{
    return error_state != 0 ? refuse_calloc(count, size, return_address) : calloc(count, size);
}

void *default_realloc(void *block, size_t size, void *return_address)
{
    // Size 0 is a release, and releases are never refused.
    return error_state != 0 && size != 0 ? refuse_realloc(block, size, return_address)
                                         : realloc(block, size);
}

void default_free(void *block, void *)
{
    free(block);
}

void *default_malloc_if_possible(size_t size, void *return_address)
{
    return error_state != 0 ? refuse_malloc_if_possible(size, return_address) : malloc(size);
}

void *default_malloc_if_available(size_t size, void *)
{
    return malloc(size);
}

/** The number of kilobytes in an open "/proc/meminfo" that the pattern asks for, in bytes. A line
 *  longer than the buffer arrives in pieces, each matched on its own.
 *  Fails: no line matches, or the bytes do not fit a size -> all ones. */
size_t read_meminfo(FILE *meminfo, const char *pattern)
{
    char piece[79];
    while (fgets(piece, sizeof piece, meminfo) != nullptr) {
        int number;
        char unit;
        if (sscanf(piece, pattern, &number, &unit) == 2) {
            if (unit != 'k' && stderr != nullptr) {
                fprintf(stderr, "unknown unit %c in /proc/meminfo\n", unit);
            }
            const int64_t bytes = static_cast<int64_t>(number) * 1024;
            return std::in_range<size_t>(bytes) ? static_cast<size_t>(bytes) : unknown_size;
        }
    }
    return unknown_size;
}

size_t query_meminfo(const char *pattern)
{
    const int saved_errno = errno;
    size_t bytes = unknown_size;
    FILE *const meminfo = vek_open_file("/proc/meminfo", "r");
    if (meminfo != nullptr) {
        bytes = read_meminfo(meminfo, pattern);
        fclose(meminfo);
    }
    errno = saved_errno;
    return bytes;
}

size_t default_get_total_bytes()
{
    return query_meminfo("MemTotal: %d %cB");
}

size_t default_get_free_bytes()
{
    return query_meminfo("MemFree: %d %cB");
}

int default_get_error()
{
    return load(error_state);
}

void default_set_error(int error)
{
    store(error_state, static_cast<uint8_t>(error));
}

/* Both are empty until the first use, which fills them in and so spares the loader: to be read
 * behind on_first_use() only. */
constinit VekMemoryVtable default_table = {};
constinit VekMemoryVtable installed = {};

/* ---- Tracing wrappers ---- */

constinit std::atomic<unsigned> allocation_counter{0};
constinit std::atomic<bool> tracing{false};

/** The installed table, read after the wrapper that asks for it was read from the active one. */
const VekMemoryVtable &traced_table()
{
    std::atomic_thread_fence(std::memory_order_acquire);
    return installed;
}

int next_allocation_number()
{
    return static_cast<int>(allocation_counter.fetch_add(1, std::memory_order_relaxed) + 1);
}

void *traced_malloc(size_t size, void *return_address)
{
    void *const result = load(traced_table().malloc)(size, return_address);
    write_trace("%p: vek_malloc(%zd) => %p [#%d]", return_address, printed(size), result,
                next_allocation_number());
    return result;
}

void *traced_calloc(size_t count, size_t size, void *return_address)
{
    void *const result = load(traced_table().calloc)(count, size, return_address);
    write_trace("%p: vek_calloc(%zd, %zd) => %p [#%d]", return_address, printed(count),
                printed(size), result, next_allocation_number());
    return result;
}

void *traced_realloc(void *block, size_t size, void *return_address)
{
    // The line shows where the block was, which is no longer a pointer once it has been resized.
    const auto old_address = reinterpret_cast<uintptr_t>(block);
    void *const result = load(traced_table().realloc)(block, size, return_address);
    write_trace("%p: vek_realloc(%p, %zd) => %p [#%d]", return_address,
                reinterpret_cast<void *>(old_address), printed(size), result,
                next_allocation_number());
    return result;
}

void traced_free(void *block, void *return_address)
{
    write_trace("%p: vek_free(%p)", return_address, block);
    load(traced_table().free)(block, return_address);
}

void *traced_malloc_if_possible(size_t size, void *return_address)
{
    void *const result = load(traced_table().malloc_if_possible)(size, return_address);
    write_trace("%p: vek_malloc_if_possible(%zd) => %p [#%d]", return_address, printed(size),
                result, next_allocation_number());
    return result;
}

void *traced_malloc_if_available(size_t size, void *return_address)
{
    void *const result = load(traced_table().malloc_if_available)(size, return_address);
    write_trace("%p: vek_malloc_if_available(%zd) => %p [#%d]", return_address, printed(size),
                result, next_allocation_number());
    return result;
}

/* ---- The active table and its first use ---- */

/** What the active table holds at load in place of one required slot: it installs the default
 *  table, then has the call served by the table in force. */
template <auto slot>
struct FirstUse;

const VekMemoryVtable &table_after_first_use();

template <typename Result, typename... Args, Result (*VekMemoryVtable::*slot)(Args...)>
struct FirstUse<slot> {
    static Result entry(Args... args) { return load(table_after_first_use().*slot)(args...); }
};

size_t first_use_get_total_bytes();
size_t first_use_get_free_bytes();
int first_use_get_error();
void first_use_set_error(int error);

constinit VekMemoryVtable active = {
    .malloc = FirstUse<&VekMemoryVtable::malloc>::entry,
    .calloc = FirstUse<&VekMemoryVtable::calloc>::entry,
    .realloc = FirstUse<&VekMemoryVtable::realloc>::entry,
    .free = FirstUse<&VekMemoryVtable::free>::entry,
    .mark = nullptr,
    .malloc_if_possible = FirstUse<&VekMemoryVtable::malloc_if_possible>::entry,
    .malloc_if_available = FirstUse<&VekMemoryVtable::malloc_if_available>::entry,
    .get_total_bytes = first_use_get_total_bytes,
    .get_free_bytes = first_use_get_free_bytes,
    .get_error = first_use_get_error,
    .set_error = first_use_set_error,
};

constinit pthread_once_t first_use_once = PTHREAD_ONCE_INIT;

/* The thread that makes the first-use installation, while it does; 0 is no thread. */
constinit std::atomic<pthread_t> installer{0};

/* The active table has lost its first-use entries. */
constinit std::atomic<bool> published{false};

bool installing_here()
{
    return installer.load(std::memory_order_relaxed) == pthread_self();
}

/** Brings the active table in line with the installed one and the trace switch. During the
 *  first-use installation it waits for the end, so that no call of a racing thread is served
 *  between the table and its tracing. */
void publish()
{
    if (installing_here()) {
        return;
    }
    VekMemoryVtable next = installed;
    if (tracing.load(std::memory_order_relaxed)) {
        next.malloc = traced_malloc;
        next.calloc = traced_calloc;
        next.realloc = traced_realloc;
        next.free = traced_free;
        next.malloc_if_possible = traced_malloc_if_possible;
        next.malloc_if_available = traced_malloc_if_available;
    }
    store_table(active, next);
    published.store(true, std::memory_order_release);
}

/* Within the one-time work, so that whoever waited for its end finds a table. */
void fill_in_default()
{
    default_table = {
        .malloc = default_malloc,
        .calloc = default_calloc,
        .realloc = default_realloc,
        .free = default_free,
        .mark = nullptr,
        .malloc_if_possible = default_malloc_if_possible,
        .malloc_if_available = default_malloc_if_available,
        .get_total_bytes = default_get_total_bytes,
        .get_free_bytes = default_get_free_bytes,
        .get_error = default_get_error,
        .set_error = default_set_error,
    };
    store_table(installed, default_table);
}

void install_for_first_use()
{
    installer.store(pthread_self(), std::memory_order_relaxed);
    fill_in_default(); // an application's own vek_set_memory_vtable() may allocate
    vek_set_memory_vtable(&default_table);
    installer.store(0, std::memory_order_relaxed);
    publish();
}

/** Runs `routine` unless the first use is over or, on another thread, under way, which is waited
 * for. An application's own vek_set_memory_vtable() may come back here while it is being called. */
void on_first_use(void (*routine)())
{
    if (!installing_here()) {
        pthread_once(&first_use_once, routine);
    }
}

void complete_first_use()
{
    on_first_use(install_for_first_use);
}

/** What serves a call that came in through a first-use entry. The active table still holds that
 * entry when the call comes from within the installation. */
const VekMemoryVtable &table_after_first_use()
{
    complete_first_use();
    return published.load(std::memory_order_acquire) ? active : installed;
}

/* ---- Optional slots ---- */

size_t get_total_bytes(const VekMemoryVtable &table)
{
    const auto query = load(table.get_total_bytes);
    return query != nullptr ? query() : unknown_size;
}

size_t get_free_bytes(const VekMemoryVtable &table)
{
    const auto query = load(table.get_free_bytes);
    return query != nullptr ? query() : get_total_bytes(table);
}

int get_error(const VekMemoryVtable &table)
{
    const auto query = load(table.get_error);
    return query != nullptr ? query() : 0;
}

void set_error(const VekMemoryVtable &table, int error)
{
    const auto change = load(table.set_error);
    if (change != nullptr) {
        change(error);
    }
}

size_t first_use_get_total_bytes()
{
    return get_total_bytes(table_after_first_use());
}

size_t first_use_get_free_bytes()
{
    return get_free_bytes(table_after_first_use());
}

int first_use_get_error()
{
    return get_error(table_after_first_use());
}

void first_use_set_error(int error)
{
    set_error(table_after_first_use(), error);
}

/* ---- How a request is served: a zero test and a jump through the active slot ---- */

/* Always inline, with the caller's address as an argument: it is fetched before the slot is read,
 * so that the entry points end in one jump through memory. */

#define SERVE [[gnu::always_inline]] inline

SERVE void *serve_malloc(size_t size, void *return_address)
{
    return size != 0 ? load(active.malloc)(size, return_address) : nullptr;
}

SERVE void *serve_calloc(size_t count, size_t size, void *return_address)
{
    return count * size != 0 ? load(active.calloc)(count, size, return_address) : nullptr;
}

SERVE void *serve_realloc(void *block, size_t size, void *return_address)
{
    return load(active.realloc)(block, size, return_address);
}

SERVE void *serve_malloc_if_possible(size_t size, void *return_address)
{
    return size != 0 ? load(active.malloc_if_possible)(size, return_address) : nullptr;
}

SERVE void *serve_malloc_if_available(size_t size, void *return_address)
{
    return size != 0 ? load(active.malloc_if_available)(size, return_address) : nullptr;
}

SERVE void serve_free(void *block, void *return_address)
{
    if (block != nullptr) {
        load(active.free)(block, return_address);
    }
}

} // namespace

FILE *vek_open_file(const char *path, const char *mode)
{
    FILE *const file = fopen(path, mode);
    if (file != nullptr) {
        fcntl(fileno(file), F_SETFD, FD_CLOEXEC);
    }
    return file;
}

/* ---- The entry points, each followed by its weak name ---- */

/* The name that applications and the library call, which an application may define itself. */
#define WEAK_NAME(name)                                                                            \
    extern "C" [[gnu::weak,                                                                        \
                 gnu::alias("__vek_default_" #name)]] decltype(__vek_default_##name) vek_##name

const VekMemoryVtable *__vek_default_get_memory_vtable()
{
    complete_first_use();
    return &installed;
}
WEAK_NAME(get_memory_vtable);

void __vek_default_set_memory_vtable(const VekMemoryVtable *table)
{
    on_first_use(fill_in_default); // this is the first use: no entry may install over it later
    store_table(installed, table != nullptr ? *table : default_table);
    publish();
    if (vek_environment_number("VEK_MALLOC_TRACE", 0) != 0) {
        vek_memory_enable_trace();
    }
}
WEAK_NAME(set_memory_vtable);

VEK_ENTRY void *__vek_default_malloc(size_t size)
{
    return serve_malloc(size, VEK_CALLER);
}
WEAK_NAME(malloc);

void *__vek_default_malloc_with_return(size_t size, void *return_address)
{
    return serve_malloc(size, return_address);
}
WEAK_NAME(malloc_with_return);

VEK_ENTRY void *__vek_default_calloc(size_t count, size_t size)
{
    return serve_calloc(count, size, VEK_CALLER);
}
WEAK_NAME(calloc);

void *__vek_default_calloc_with_return(size_t count, size_t size, void *return_address)
{
    return serve_calloc(count, size, return_address);
}
WEAK_NAME(calloc_with_return);

VEK_ENTRY void *__vek_default_realloc(void *block, size_t size)
{
    return serve_realloc(block, size, VEK_CALLER);
}
WEAK_NAME(realloc);

void *__vek_default_realloc_with_return(void *block, size_t size, void *return_address)
{
    return serve_realloc(block, size, return_address);
}
WEAK_NAME(realloc_with_return);

VEK_ENTRY void *__vek_default_malloc_if_possible(size_t size)
{
    return serve_malloc_if_possible(size, VEK_CALLER);
}
WEAK_NAME(malloc_if_possible);

void *__vek_default_malloc_if_possible_with_return(size_t size, void *return_address)
{
    return serve_malloc_if_possible(size, return_address);
}
WEAK_NAME(malloc_if_possible_with_return);

VEK_ENTRY void *__vek_default_malloc_if_available(size_t size)
{
    return serve_malloc_if_available(size, VEK_CALLER);
}
WEAK_NAME(malloc_if_available);

void *__vek_default_malloc_if_available_with_return(size_t size, void *return_address)
{
    return serve_malloc_if_available(size, return_address);
}
WEAK_NAME(malloc_if_available_with_return);

VEK_ENTRY void __vek_default_free(void *block)
{
    serve_free(block, VEK_CALLER);
}
WEAK_NAME(free);

void __vek_default_free_with_return(void *block, void *return_address)
{
    serve_free(block, return_address);
}
WEAK_NAME(free_with_return);

size_t __vek_default_malloc_get_total_bytes()
{
    return get_total_bytes(active);
}
WEAK_NAME(malloc_get_total_bytes);

size_t __vek_default_malloc_get_free_bytes()
{
    return get_free_bytes(active);
}
WEAK_NAME(malloc_get_free_bytes);

int __vek_default_malloc_get_error()
{
    return get_error(active);
}
WEAK_NAME(malloc_get_error);

void __vek_default_malloc_set_error(int error)
{
    set_error(active, error);
}
WEAK_NAME(malloc_set_error);

void __vek_default_mark()
{
    const auto hook = load(active.mark);
    if (hook != nullptr) {
        hook();
    }
}
WEAK_NAME(mark);

void vek_memory_enable_trace()
{
    complete_first_use();
    if (!tracing.exchange(true, std::memory_order_acq_rel)) {
        publish();
    }
}

void vek_memory_disable_trace()
{
    // Who sees that tracing is on sees the table, too, that was installed before.
    if (tracing.exchange(false, std::memory_order_acq_rel)) {
        publish();
    }
}
