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

/* On 32-bit ARM, mmap64() has a wider offset; otherwise both are the same. */
void *mmap64(void *address, size_t size, int access, int flags, int file, off64_t offset)
{
    typedef void *Map(void *, size_t, int, int, int, off64_t);
    static Map *map;
    if (map == NULL) { *(void **)&map = dlsym(RTLD_NEXT, "mmap64"); }
    void *const mapped = map(address, size, access, flags, file, offset);
    if (mapped != MAP_FAILED && (flags & MAP_ANONYMOUS) != 0) { add(size); }
    return mapped;
}

void *mmap(void *address, size_t size, int access, int flags, int file, off_t offset)
{
    return mmap64(address, size, access, flags, file, offset);
}

size_t heap_bytes(void) { return in_use; }

#ifdef HEAP_REPORT

/* From now on the C library keeps the pages of blocks that are released. So the process has as many
 * pages at its end, when report() counts them, as at its peak. */
__attribute__((constructor)) static void keep_pages(void) { mallopt(M_TRIM_THRESHOLD, -1); }

static long field(const char *text, const char *name)
{
    const char *const found = strstr(text, name);
    return found != NULL ? strtol(found + strlen(name), NULL, 10) : 0;
}

/* Writes to the standard error stream: the heap's peak in bytes; in KB, the memory that the process
 * has changed (the kernel calls it anonymous), and its resident memory, which includes the pages of
 * files that it shares. The kernel counts pages exactly here, unlike in /proc/self/status. */
__attribute__((destructor)) static void report(void)
{
    char text[4096] = "";
    const size_t heap_peak = peak;
    const int file = open("/proc/self/smaps_rollup", O_RDONLY);
    if (read(file, text, sizeof text - 1) < 0) { text[0] = '\0'; }
    close(file);
    dprintf(STDERR_FILENO, "peaks %zu %ld %ld\n", heap_peak, field(text, "Anonymous:"),
            field(text, "Rss:"));
}
#endif
