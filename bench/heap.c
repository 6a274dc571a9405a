/* SPDX-License-Identifier: MIT */
#include "heap.h"

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <malloc.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

/* The C library's own functions, under the names that it exports for replacements like these. */
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);

/* For one thread, as the programs here have. While realloc() moves a block, the peak lacks the
 * other copy. */
static size_t in_use, peak;

static size_t bytes_of(void *block)
{
    return block != NULL ? malloc_usable_size(block) + sizeof(size_t) : 0;
}

static void add(size_t bytes)
{
    in_use += bytes;
    peak = in_use > peak ? in_use : peak;
}

static void *count(void *block)
{
    add(bytes_of(block));
    return block;
}

void *malloc(size_t size) { return count(__libc_malloc(size)); }
void *calloc(size_t number, size_t size) { return count(__libc_calloc(number, size)); }
void *memalign(size_t alignment, size_t size) { return count(__libc_memalign(alignment, size)); }
void *aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }

int posix_memalign(void **block, size_t alignment, size_t size)
{
    void *const made = memalign(alignment, size);
    if (made == NULL) { return ENOMEM; }
    *block = made;
    return 0;
}

void *realloc(void *block, size_t size)
{
    const size_t before = bytes_of(block);
    void *const resized = __libc_realloc(block, size);
    if (resized == NULL && size != 0) { return NULL; }
    in_use -= before;
    return count(resized);
}

void free(void *block)
{
    in_use -= bytes_of(block);
    __libc_free(block);
}

/* Memory that a library maps by itself, as APR does for its pools. No program here unmaps it. */
typedef void *Map(void *address, size_t size, int access, int flags, int file, off_t offset);

void *mmap(void *address, size_t size, int access, int flags, int file, off_t offset)
{
    static Map *map;
    if (map == NULL) { *(void **)&map = dlsym(RTLD_NEXT, "mmap"); }
    void *const mapped = map(address, size, access, flags, file, offset);
    if (mapped != MAP_FAILED && (flags & MAP_ANONYMOUS) != 0) { add(size); }
    return mapped;
}

size_t heap_bytes(void) { return in_use; }

#ifdef HEAP_REPORT
/* Writes the heap's peak in bytes and the peak of resident memory in KB to the standard error
 * stream. Not taken from getrusage(), whose figure includes the process that started this one. */
__attribute__((destructor)) static void report(void)
{
    char status[4096] = "";
    const size_t heap_peak = peak;
    const int file = open("/proc/self/status", O_RDONLY);
    const ssize_t length = read(file, status, sizeof status - 1);
    const char *const resident = length > 0 ? strstr(status, "VmHWM:") : NULL;
    close(file);
    dprintf(STDERR_FILENO, "peaks %zu %ld\n", heap_peak,
            resident != NULL ? strtol(resident + 6, NULL, 10) : 0);
}
#endif
