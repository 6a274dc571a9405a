/* SPDX-License-Identifier: MIT */
/* logdigest: what an operator wants to know of a log first. */
#include "digest.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <veklib/vekmemory.h>

enum { longest_line = 65536, default_top = 10 };

static const char no_memory[] = "out of memory";

static int fail(const char *name, unsigned long line, const char *reason)
{
    if (line != 0) {
        fprintf(stderr, "logdigest: %s: line %lu: %s\n", name, line, reason);
    } else {
        fprintf(stderr, "logdigest: %s: %s\n", name, reason);
    }
    return EXIT_FAILURE;
}

/** Reads a line into `buffer` (longest_line + 1 bytes), without its newline.
 *  @return  1 for a line, 0 at the end, -1 with `reason` filled in */
static int read_line(FILE *file, char *buffer, const char **reason)
{
    size_t length = 0;
    int c;
    while ((c = getc_unlocked(file)) != EOF && c != '\n') {
        if (c == '\0') {
            *reason = "not a text file: it has a NUL byte";
            return -1;
        }
        if (length == longest_line) {
            *reason = "longer than 65536 bytes, not a line of a log";
            return -1;
        }
        buffer[length++] = (char)c;
    }
    if (ferror(file)) {
        *reason = strerror(errno);
        return -1;
    }
    buffer[length] = '\0';
    return c != EOF || length > 0;
}

static int digest_file(FILE *file, const char *name, char *buffer, unsigned top,
                       struct digest *digest)
{
    const char *reason = NULL;
    int result;
    while ((result = read_line(file, buffer, &reason)) > 0) {
        if (!digest_add_line(digest, buffer)) {
            return fail(name, 0, no_memory);
        }
    }
    if (result < 0) {
        return fail(name, ferror(file) ? 0 : digest->lines + 1, reason);
    }
    if (digest->lines == 0) {
        return fail(name, 0, "empty");
    }
    if (digest->unreadable == digest->lines) {
        return fail(name, 0, "no line could be read as a log line");
    }
    if (!digest_print(digest, name, top, stdout)) {
        return fail(name, 0, no_memory);
    }
    return fflush(stdout) == 0 ? EXIT_SUCCESS : fail("standard output", 0, strerror(errno));
}

static int run(FILE *file, const char *name, unsigned top)
{
    struct digest digest;
    char *const buffer = vek_malloc(longest_line + 1);
    int status = EXIT_FAILURE;
    if (buffer != NULL && digest_init(&digest)) {
        status = digest_file(file, name, buffer, top, &digest);
        digest_release(&digest);
    } else {
        fail(name, 0, no_memory);
    }
    vek_free(buffer);
    return status;
}

static int usage(void)
{
    fputs("usage: logdigest [-n COUNT] [FILE]\n"
          "Reads a log (syslog or dpkg) from FILE or standard input; prints the COUNT busiest.\n",
          stderr);
    return 2;
}

int main(int argc, char **argv)
{
    unsigned long top = default_top;
    int next = 1;
    if (next + 1 < argc && strcmp(argv[next], "-n") == 0) {
        char *end;
        top = strtoul(argv[next + 1], &end, 10);
        if (*end != '\0' || top == 0 || top > 1000000) {
            return usage();
        }
        next += 2;
    }
    if (argc - next > 1 || (next < argc && argv[next][0] == '-' && argv[next][1] != '\0')) {
        return usage();
    }
    if (next == argc || strcmp(argv[next], "-") == 0) {
        return run(stdin, "standard input", (unsigned)top);
    }
    FILE *const file = fopen(argv[next], "r");
    if (file == NULL) {
        return fail(argv[next], 0, strerror(errno));
    }
    const int status = run(file, argv[next], (unsigned)top);
    fclose(file);
    return status;
}
