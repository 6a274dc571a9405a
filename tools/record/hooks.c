/* SPDX-License-Identifier: MIT */
/* Takes the allocator's table over. The library installs its table through functions that can be
 * replaced, also on first use. The ones in here install the same table with its allocating
 * operations wrapped. The application keeps seeing its own table.
 *
 * A table's operation may itself allocate through the library. Only the outermost operation of a
 * thread is recorded.
 */
#include <dlfcn.h>
#include <elf.h>
#include <errno.h>
#include <link.h>
#include <stdio.h>
#include <string.h>

#include <veklib/vekmemory.h>

#include "record.h"

typedef void SetTable(const VekMemoryVtable *table);
typedef const VekMemoryVtable *GetTable(void);

static SetTable *original_set; /* found last: with it, both are known */
static GetTable *original_get;

static VekMemoryVtable inner; /* the table that the application, or the library, installed */

/* ---- The operations ---- */

/* The frame of this thread's outermost operation, null if there is none. An operation that was left
 * by a jump leaves its frame here, until one begins that lies no deeper in the stack. */
static __thread const char *outermost;

static bool is_nested(const char *frame)
{
    return outermost != NULL && frame < outermost;
}

static uint8_t type_of(uint8_t type, const void *result)
{
    if (result != NULL) {
        return type;
    }
    const int error = errno;
    const bool is_refused = inner.get_error != NULL && inner.get_error() != 0;
    errno = error;
    return (uint8_t)(type + (is_refused ? VEKRECORD_REFUSED : VEKRECORD_FAILED));
}

static uint8_t with_result(unsigned fields, const void *result)
{
    return (uint8_t)(result != NULL ? fields | HAS_RESULT : fields);
}

/* Frames and return addresses must be those of the operations in the table. */
#define IN_OPERATION __attribute__((always_inline)) inline

/* Records an event that was charged to `charged`. Inlined, because each function between here and
 * the unwinder costs a frame. */
static IN_OPERATION void record(const struct Event *event, const void *charged)
{
    const int error = errno;
    if (begin_event()) {
        struct Chain chain;
        take_chain(&chain, charged, __builtin_return_address(0), look_at_modules());
        end_event(event, &chain);
    }
    errno = error;
}

typedef void *Allocate(size_t size, void *return_address);

static IN_OPERATION void *allocate(uint8_t type, Allocate *operation, size_t size, void *charged)
{
    const char *const frame = __builtin_frame_address(0);
    if (is_nested(frame)) {
        return operation(size, charged);
    }
    outermost = frame;
    void *const result = operation(size, charged);
    const struct Event event = {.type = type_of(type, result),
                                .fields = with_result(HAS_SIZE, result),
                                .size = size,
                                .result = result};
    record(&event, charged);
    outermost = NULL;
    return result;
}

static void *record_malloc(size_t size, void *charged)
{
    return allocate(VEKRECORD_MALLOC, inner.malloc, size, charged);
}

static void *record_malloc_if_possible(size_t size, void *charged)
{
    return allocate(VEKRECORD_MALLOC_IF_POSSIBLE, inner.malloc_if_possible, size, charged);
}

static void *record_malloc_if_available(size_t size, void *charged)
{
    return allocate(VEKRECORD_MALLOC_IF_AVAILABLE, inner.malloc_if_available, size, charged);
}

static void *record_calloc(size_t count, size_t size, void *charged)
{
    const char *const frame = __builtin_frame_address(0);
    if (is_nested(frame)) {
        return inner.calloc(count, size, charged);
    }
    outermost = frame;
    void *const result = inner.calloc(count, size, charged);
    const struct Event event = {.type = type_of(VEKRECORD_CALLOC, result),
                                .fields = with_result(HAS_COUNT | HAS_SIZE, result),
                                .count = count,
                                .size = size,
                                .result = result};
    record(&event, charged);
    outermost = NULL;
    return result;
}

static void *record_realloc(void *block, size_t size, void *charged)
{
    const char *const frame = __builtin_frame_address(0);
    if (is_nested(frame)) {
        return inner.realloc(block, size, charged);
    }
    outermost = frame;
    void *const result = inner.realloc(block, size, charged);
    const bool is_new = block == NULL;
    const uint8_t type = is_new ? VEKRECORD_REALLOC_NEW : VEKRECORD_REALLOC;
    const bool is_release = !is_new && size == 0 && result == NULL;
    const struct Event event = {
        .type = is_release ? (uint8_t)(type + VEKRECORD_FAILED) : type_of(type, result),
        .fields = with_result(is_new ? HAS_SIZE : HAS_BLOCK | HAS_SIZE, result),
        .block = block,
        .size = size,
        .result = result};
    record(&event, charged);
    outermost = NULL;
    return result;
}

static void record_free(void *block, void *charged)
{
    const char *const frame = __builtin_frame_address(0);
    if (is_nested(frame)) {
        inner.free(block, charged);
        return;
    }
    outermost = frame;
    const struct Event event = {.type = VEKRECORD_FREE, .fields = HAS_BLOCK, .block = block};
    record(&event, charged);
    inner.free(block, charged);
    outermost = NULL;
}

/* ---- Functions that the application defines itself ---- */

/* Whether `found`, which the program gets for `name`, is a definition of its own. In programs that
 * are not position-independent, the address of a function may lie in the program all the same. */
static bool is_own_definition(void *found, void *original)
{
    Dl_info info;
    const ElfW(Sym) *symbol = NULL;
    return found != NULL && original != NULL && found != original &&
           (dladdr1(found, &info, (void **)&symbol, RTLD_DL_SYMENT) == 0 || symbol == NULL ||
            symbol->st_shndx != SHN_UNDEF);
}

/* Notes which functions the application defines: its calls of them may never reach the table. */
static void note_own_definitions(void *library)
{
    static const char *const names[] = {"malloc",
                                        "malloc_with_return",
                                        "calloc",
                                        "calloc_with_return",
                                        "realloc",
                                        "realloc_with_return",
                                        "free",
                                        "free_with_return",
                                        "malloc_if_possible",
                                        "malloc_if_possible_with_return",
                                        "malloc_if_available",
                                        "malloc_if_available_with_return"};
    static char note[640] =
        "The program defines functions of the allocator itself. Their calls are "
        "recorded only if they reach the library's originals:";
    char *end = note + strlen(note);
    bool is_needed = false;
    for (size_t i = 0; i != sizeof names / sizeof *names; ++i) {
        char name[64];
        char original[64];
        snprintf(name, sizeof name, "vek_%s", names[i]);
        snprintf(original, sizeof original, "__vek_default_%s", names[i]);
        if (is_own_definition(dlsym(RTLD_DEFAULT, name), dlsym(library, original))) {
            end = stpcpy(stpcpy(end, is_needed ? ", " : " "), name);
            is_needed = true;
        }
    }
    if (is_needed) {
        stpcpy(end, ".");
        record_note_at_start(note);
    }
}

/* ---- The originals ---- */

static void find_originals_in(void *library)
{
    void *const get = dlsym(library, "__vek_default_get_memory_vtable");
    void *const set = dlsym(library, "__vek_default_set_memory_vtable");
    *(void **)&original_get = get;
    __atomic_store_n((void **)&original_set, set, __ATOMIC_RELEASE);
}

static bool has_originals(void)
{
    return __atomic_load_n(&original_set, __ATOMIC_ACQUIRE) != NULL;
}

/* At load, because a thread that looks names up waits for another one's dlopen(), which may wait
 * for the first use of the allocator. */
__attribute__((constructor)) static void find_originals(void)
{
    if (!has_originals()) {
        find_originals_in(RTLD_NEXT);
        if (has_originals()) {
            note_own_definitions(RTLD_NEXT);
        }
    }
}

/* If dlopen() brought the library, only its caller, or the library itself, can see it. */
static void find_originals_for(void *caller)
{
    if (!has_originals()) {
        find_originals(); /* a constructor that ran before the one above */
    }
    Dl_info info;
    if (!has_originals() && dladdr(caller, &info) != 0) {
        void *const library = dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD);
        if (library != NULL) {
            find_originals_in(library);
            note_own_definitions(library);
        }
    }
}

/* ---- The replaced functions ---- */

static void set_table(const VekMemoryVtable *table, void *caller)
{
    find_originals_for(caller);
    if (!has_originals()) {
        return; /* nobody's library: there is no table to set */
    }
    if (table == NULL || !is_recording()) {
        original_set(table);
        if (!is_recording()) {
            return;
        }
        table = original_get(); /* the default table */
    }
    if (table->malloc != record_malloc) { /* else it is the one that is installed */
        inner = *table;
    }
    VekMemoryVtable wrapped = inner;
    wrapped.malloc = record_malloc;
    wrapped.calloc = record_calloc;
    wrapped.realloc = record_realloc;
    wrapped.free = record_free;
    wrapped.malloc_if_possible = record_malloc_if_possible;
    wrapped.malloc_if_available = record_malloc_if_available;
    original_set(&wrapped);
}

static const VekMemoryVtable *get_table(void *caller)
{
    find_originals_for(caller);
    const VekMemoryVtable *const table = has_originals() ? original_get() : &inner;
    return table->malloc == record_malloc ? &inner : table;
}

void vek_set_memory_vtable(const VekMemoryVtable *table)
{
    set_table(table, __builtin_return_address(0));
}

void __vek_default_set_memory_vtable(const VekMemoryVtable *table)
{
    set_table(table, __builtin_return_address(0));
}

const VekMemoryVtable *vek_get_memory_vtable(void)
{
    return get_table(__builtin_return_address(0));
}

const VekMemoryVtable *__vek_default_get_memory_vtable(void)
{
    return get_table(__builtin_return_address(0));
}
