/* SPDX-License-Identifier: MIT */
/* The allocator's tables, their first use, and the entry points.
 *
 * Every call goes through the `active` table. At load its slots hold first-use functions;
 * afterwards it always holds the operations of the `installed` table, or wrappers around them if
 * tracing is on. Only publish() makes the two tables agree. The first call that needs them (an
 * allocation, a query, or one that switches tracing on) completes the first-use installation before
 * anything else happens, and racing threads wait for it. If a table is installed before that, no
 * first-use installation is made. `installed` never holds a first-use function or a wrapper, so
 * neither can run on top of a table that was installed later.
 *
 * An entry point that allocates or releases tests for zero (realloc does not) and jumps through the
 * active table, without further ordering. CMakeLists.txt compiles this source so that its calls in
 * return position become jumps, and so that it calls the allocator's functions through the dynamic
 * symbol table. */
#include "veklib/vekmemory.h"

#include "veklib/vekdiag_internal.h"
#include "veklib/vekmemory_internal.h"
#include "veklib/vekmemory_table_internal.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>

#include <pthread.h>

using namespace vekmemory;

namespace {

/* ---- The default table ---- */

/* Changed only while no other thread allocates, so allocations can read it as a plain variable. */
constinit uint8_t error_state = 0;

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

int default_get_error()
{
    return load(error_state);
}

void default_set_error(int error)
{
    store(error_state, static_cast<uint8_t>(error));
}

/* Filled on first use, so it needs no relocations. Call on_first_use() before reading it. */
constinit VekMemoryVtable default_table = {};

/* ---- The active table and its first use ----
 *
 * The calls of a first use that an allocation makes, in their order. The calls that a function
 * makes are indented below it:
 *
 *   vek_malloc()                                  jumps through active.malloc
 *     FirstUse<malloc>::entry()
 *       table_after_first_use()
 *         complete_first_use()
 *           install_for_first_use()               once; other threads wait here for its end
 *             fill_in_default()                   installed = default table
 *             vek_set_memory_vtable()             the application's, if it defines one; else:
 *               on_first_use()                    does nothing: this thread is installing
 *               store_table()                     installed = default table
 *               publish()                         does nothing yet
 *               vek_memory_enable_trace()         if VEK_MALLOC_TRACE says so: tracing = true
 *                 publish()                       does nothing yet
 *             publish()                           active = installed, under wrappers if tracing
 *       active.malloc()                           serves the request
 *
 * Calls of the optional operations, except `mark`, take the same way. vek_get_memory_vtable() and
 * vek_memory_enable_trace() start at complete_first_use(). If an application calls
 * vek_set_memory_vtable() first, its on_first_use() runs fill_in_default() as the one-time work,
 * and nothing is left to install.
 */

/* What the active table holds at load in place of one required operation. */
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

/* The thread that is making the first-use installation; 0 if there is none. */
constinit std::atomic<pthread_t> installer{0};

/* The active table no longer holds first-use entries. */
constinit std::atomic<bool> published{false};

bool installing_here()
{
    return installer.load(std::memory_order_relaxed) == pthread_self();
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

/* Runs inside pthread_once(), so waiting threads see a complete table. */
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
        .get_total_bytes = query_total_bytes,
        .get_free_bytes = query_free_bytes,
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

/** Runs `routine` if the first use is still to come; waits while another thread makes it. Does
 *  nothing when the installation itself gets here, as it does through vek_set_memory_vtable(). */
void on_first_use(void (*routine)())
{
    if (!installing_here()) {
        pthread_once(&first_use_once, routine);
    }
}

/** Returns the table that serves a call which came in through a first-use entry: the active table.
 *  For a call from within the installation it is the installed one, because the active table still
 *  holds that entry. */
const VekMemoryVtable &table_after_first_use()
{
    complete_first_use();
    return published.load(std::memory_order_acquire) ? active : installed;
}

/* ---- Optional operations ---- */

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

/* ---- How a request is served: a zero test and a jump through the active table ---- */

/* Force-inlined, with the return address as an argument: it is fetched before the active table is
 * read, so that the entry points end in one jump through memory. */
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

/* ---- For the other sources ---- */

constinit VekMemoryVtable vekmemory::installed = {};

void vekmemory::complete_first_use()
{
    on_first_use(install_for_first_use);
}

void vekmemory::publish()
{
    if (installing_here()) {
        return;
    }
    VekMemoryVtable next = installed;
    wrap_if_tracing(next);
    store_table(active, next);
    published.store(true, std::memory_order_release);
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
    on_first_use(fill_in_default); // this may be the first use: no entry installs over it later
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
