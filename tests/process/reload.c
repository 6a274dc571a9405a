/* SPDX-License-Identifier: MIT */
/* usage: reload LIBRARY TRACE - a process that loads and unloads the library again and again keeps one trace. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

enum { rounds = 5 };

static int lowest_free_descriptor(void)
{
    const int fd = open("/dev/null", O_RDONLY);
    close(fd);
    return fd;
}

int main(int argc, char **argv)
{
    if (argc != 3) { return 2; }
    setenv("VEK_MALLOC_TRACE", "1", 1);
    setenv("VEK_MALLOC_TRACE_FILE", argv[2], 1);
    const int descriptor = lowest_free_descriptor(); /* the trace's, for good */
    for (int round = 0; round < rounds; ++round) {
        void *const library = dlopen(argv[1], RTLD_NOW);
        if (library == NULL) { return 2; }
        void *(*vek_malloc)(size_t) = NULL;
        *(void **)&vek_malloc = dlsym(library, "vek_malloc");
        free(vek_malloc(1));
        dlclose(library);
    }

    int lines = 0;
    FILE *const trace = fopen(argv[2], "r");
    for (int c; (c = trace != NULL ? fgetc(trace) : EOF) != EOF;) { lines += c == '\n'; }
    if (trace != NULL) { fclose(trace); }
    const int left_open = lowest_free_descriptor() - descriptor;
    if (lines != rounds || left_open != 1) {
        printf("%d lines of %d, %d descriptors left open\n", lines, rounds, left_open);
        return 1;
    }
    return 0;
}
