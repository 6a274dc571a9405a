/* SPDX-License-Identifier: MIT */
/* Records which calls were refused. refusals.py links this to the test programs, whose support
 * calls it at the moment of each refusal. A refusal becomes one line of the file that REFUSALS_LOG
 * names: how it was refused, what was asked for, and the innermost return addresses, each as the
 * object ("L": the library, "X": the program, "?": another) and the offset in it. The file is open
 * from the start, because tests count descriptors; children write to the same one. */
#define _GNU_SOURCE
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { depth = 30 };

static int log_fd = -1;

__attribute__((constructor)) static void open_log(void)
{
    const char *const path = getenv("REFUSALS_LOG");
    if (path != NULL) {
        log_fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666);
    }
    void *frame;
    backtrace(&frame, 1); /* the first call allocates */
}

/** An address, and where it lies. */
struct place {
    uintptr_t address;
    uintptr_t offset;
    char object;
};

static int find_object(struct dl_phdr_info *info, size_t size, void *data)
{
    struct place *const place = data;
    (void)size;
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) *const segment = &info->dlpi_phdr[i];
        const uintptr_t start = info->dlpi_addr + segment->p_vaddr;
        if (segment->p_type == PT_LOAD && place->address - start < segment->p_memsz) {
            place->offset = place->address - info->dlpi_addr;
            place->object = info->dlpi_name[0] == '\0'                     ? 'X'
                            : strstr(info->dlpi_name, "libveklib") != NULL ? 'L'
                                                                           : '?';
            return 1;
        }
    }
    return 0;
}

void vektest_refused(const char *request, int onward)
{
    if (log_fd < 0) {
        return;
    }
    void *frames[depth];
    const int count = backtrace(frames, depth);
    char line[64 + depth * 20];
    int length = snprintf(line, 64, "%s %s", onward ? "onward" : "once", request);
    for (int i = 0; i < count; ++i) {
        struct place place = {(uintptr_t)frames[i], 0, '?'};
        dl_iterate_phdr(find_object, &place);
        length += snprintf(line + length, 20, " %c%jx", place.object, (uintmax_t)place.offset);
    }
    line[length++] = '\n';
    if (write(log_fd, line, (size_t)length) != length) {
        abort();
    }
}
