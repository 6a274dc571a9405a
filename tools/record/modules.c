/* SPDX-License-Identifier: MIT */
/* The loaded objects. A list of them is made in memory of its own while the loader keeps them from
 * changing; files are looked at only afterwards. Two lists are compared to find what came or went.
 */
#include <elf.h>
#include <limits.h>
#include <link.h>
#include <stdlib.h>
#include <string.h>

#include <sys/mman.h>
#include <unistd.h>

#include "record.h"

enum { LONGEST_ID = 64 };

struct Module {
    uintptr_t bias, low;
    size_t size;
    uint8_t id[LONGEST_ID];
    uint8_t id_size;
    uint32_t name_size;
    char name[]; /* as the loader knows it; empty for the program */
};

struct ModuleList {
    size_t capacity, used; /* bytes of this list */
    struct ModuleChanges changes;
    bool is_complete;
    uintptr_t modules[]; /* aligned for them */
};

static struct ModuleList *known; /* what has been written */

/* ---- What changed ---- */

static int read_changes(struct dl_phdr_info *info, size_t size, void *data)
{
    (void)size;
    struct ModuleChanges *const changes = data;
    changes->loaded = info->dlpi_adds;
    changes->unloaded = info->dlpi_subs;
    return 1;
}

struct ModuleChanges module_changes(void)
{
    struct ModuleChanges changes = {0, 0};
    dl_iterate_phdr(read_changes, &changes);
    return changes;
}

/* ---- Making a list ---- */

static size_t bytes_of(uint32_t name_size)
{
    const size_t alignment = sizeof(uintptr_t);
    return (sizeof(struct Module) + name_size + alignment - 1) / alignment * alignment;
}

static const struct Module *next_of(const struct Module *module)
{
    return (const void *)((const char *)module + bytes_of(module->name_size));
}

static const struct Module *end_of(const struct ModuleList *list)
{
    return (const void *)((const char *)list + list->used);
}

static const struct Module *first_of(const struct ModuleList *list)
{
    return (const void *)list->modules;
}

static void find_build_id(struct Module *module, const ElfW(Phdr) * notes)
{
    const char *at = (const char *)(module->bias + notes->p_vaddr);
    const char *const end = at + notes->p_memsz;
    const size_t alignment = notes->p_align == 8 ? 8 : 4;
    while ((size_t)(end - at) >= sizeof(ElfW(Nhdr))) {
        const ElfW(Nhdr) *const note = (const void *)at;
        const char *const name = at + sizeof *note;
        const size_t name_end =
            (sizeof *note + note->n_namesz + alignment - 1) / alignment * alignment;
        const size_t size = (name_end + note->n_descsz + alignment - 1) / alignment * alignment;
        if (name_end + note->n_descsz > (size_t)(end - at)) {
            return;
        }
        if (note->n_type == NT_GNU_BUILD_ID && note->n_namesz == 4 && memcmp(name, "GNU", 4) == 0 &&
            note->n_descsz <= LONGEST_ID) {
            memcpy(module->id, at + name_end, note->n_descsz);
            module->id_size = (uint8_t)note->n_descsz;
            return;
        }
        at += size < (size_t)(end - at) ? size : (size_t)(end - at);
    }
}

static void describe(struct Module *module, const struct dl_phdr_info *info)
{
    uintptr_t low = UINTPTR_MAX;
    uintptr_t high = 0;
    module->bias = info->dlpi_addr;
    module->id_size = 0;
    for (size_t i = 0; i != info->dlpi_phnum; ++i) {
        const ElfW(Phdr) *const part = &info->dlpi_phdr[i];
        if (part->p_type == PT_LOAD) {
            low = part->p_vaddr < low ? part->p_vaddr : low;
            high = part->p_vaddr + part->p_memsz > high ? part->p_vaddr + part->p_memsz : high;
        } else if (part->p_type == PT_NOTE && module->id_size == 0) {
            find_build_id(module, part);
        }
    }
    module->low = module->bias + (low <= high ? low : 0);
    module->size = low <= high ? high - low : 0;
}

static int add_module(struct dl_phdr_info *info, size_t size, void *data)
{
    (void)size;
    struct ModuleList *const list = data;
    const size_t length = strnlen(info->dlpi_name, PATH_MAX);
    list->changes.loaded = info->dlpi_adds;
    list->changes.unloaded = info->dlpi_subs;
    if (list->capacity - list->used < bytes_of((uint32_t)length)) {
        list->is_complete = false;
        return 1;
    }
    struct Module *const module = (void *)((char *)list + list->used);
    module->name_size = (uint32_t)length;
    memcpy(module->name, info->dlpi_name, length);
    describe(module, info);
    list->used += bytes_of(module->name_size);
    return 0;
}

struct ModuleList *list_modules(void)
{
    for (size_t capacity = 1 << 16; capacity <= 1 << 24; capacity *= 4) {
        struct ModuleList *const list =
            mmap(NULL, capacity, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (list == MAP_FAILED) {
            return NULL;
        }
        list->capacity = capacity;
        list->used = offsetof(struct ModuleList, modules);
        list->is_complete = true;
        dl_iterate_phdr(add_module, list);
        if (list->is_complete) {
            return list;
        }
        release_modules(list);
    }
    return NULL;
}

void release_modules(struct ModuleList *list)
{
    if (list != NULL) {
        munmap(list, list->capacity);
    }
}

/* ---- Writing ---- */

static bool contains(const struct ModuleList *list, const struct Module *module)
{
    for (const struct Module *other = first_of(list); other != end_of(list);
         other = next_of(other)) {
        if (other->bias == module->bias && other->low == module->low &&
            other->size == module->size && other->id_size == module->id_size &&
            memcmp(other->id, module->id, module->id_size) == 0 &&
            other->name_size == module->name_size &&
            memcmp(other->name, module->name, module->name_size) == 0) {
            return true;
        }
    }
    return false;
}

static char path[PATH_MAX]; /* not on the stack, because threads and signals may have small ones */

/* Finds the path of the file, without links if the file can be found. Returns its length. */
static size_t find_path(const struct Module *module)
{
    static char name[PATH_MAX + 1];
    if (module->name_size == 0) {
        const ssize_t length = readlink("/proc/self/exe", path, PATH_MAX);
        return length > 0 ? (size_t)length : 0;
    }
    memcpy(name, module->name, module->name_size);
    name[module->name_size] = '\0';
    /* A name without a slash is no file's: the kernel gives such a module to every process. */
    if (strchr(name, '/') != NULL && realpath(name, path) != NULL) {
        return strlen(path);
    }
    const size_t length = module->name_size < PATH_MAX ? module->name_size : PATH_MAX;
    memcpy(path, name, length);
    return length;
}

static void write_module(const struct Module *module)
{
    const size_t length = find_path(module);
    if (begin_record(5 * NUMBER_ROOM + LONGEST_ID + length)) {
        put_number(module->bias);
        put_number(module->low);
        put_number(module->size);
        put_text((const char *)module->id, module->id_size);
        put_text(path, length);
        end_record(VEKRECORD_MODULE);
    }
}

static void write_unloaded(const struct Module *module)
{
    if (begin_record(NUMBER_ROOM)) {
        put_number(module->low);
        end_record(VEKRECORD_UNLOADED);
    }
}

bool write_modules(struct ModuleList *list)
{
    bool is_missing = false;
    if (known != NULL && list->changes.loaded + list->changes.unloaded <
                             known->changes.loaded + known->changes.unloaded) {
        release_modules(list); /* another thread was faster */
        return false;
    }
    if (known != NULL) {
        for (const struct Module *old = first_of(known); old != end_of(known); old = next_of(old)) {
            if (!contains(list, old)) {
                write_unloaded(old);
                is_missing = true;
            }
        }
    }
    for (const struct Module *new = first_of(list); new != end_of(list); new = next_of(new)) {
        if (known == NULL || !contains(known, new)) {
            write_module(new);
        }
    }
    release_modules(known);
    known = list;
    return is_missing;
}
