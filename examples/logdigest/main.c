/* SPDX-License-Identifier: MIT */
/* logdigest: what an operator wants to know of a log first. */
#include "digest.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <veklib/vekmemory.h>
#include <veklib/vekstrdict.h>

enum { longest_line = 65536, largest_count = 1000000 };

/** Reads the next line into `buffer` (longest_line + 1 bytes), without its newline.
 *  @param number  the line's number
 *  @param end     set at the end of the file */
static VekError *read_line(FILE *file, char *buffer, unsigned long number, int *end)
{
    size_t length = 0;
    int c;
    while ((c = getc_unlocked(file)) != EOF && c != '\n') {
        if (c == '\0') {
            return VEK_ERROR_CREATE(VEK_ERROR_BAD_INPUT,
                                    "line %lu: not a text file: it has a NUL byte", number);
        }
        if (length == longest_line) {
            return VEK_ERROR_CREATE(VEK_ERROR_BAD_INPUT,
                                    "line %lu: longer than %d bytes, not a line of a log", number,
                                    longest_line);
        }
        buffer[length++] = (char)c;
    }
    if (ferror(file)) {
        return VEK_ERROR_CREATE(VEK_ERROR_IO, "%s", strerror(errno));
    }
    buffer[length] = '\0';
    *end = c == EOF && length == 0;
    return NULL;
}

static VekError *digest_lines(FILE *file, struct digest *digest)
{
    char *const buffer = vek_malloc(longest_line + 1);
    if (buffer == NULL) {
        return VEK_ERROR_CREATE(VEK_ERROR_OUT_OF_MEMORY, "out of memory");
    }
    int end = 0;
    VekError *err;
    while ((err = read_line(file, buffer, digest->lines + 1, &end)) == NULL && !end) {
        err = digest_add_line(digest, buffer);
        if (err != NULL) {
            break;
        }
    }
    vek_free(buffer);
    if (err == NULL && digest->lines == 0) {
        return VEK_ERROR_CREATE(VEK_ERROR_BAD_INPUT, "empty");
    }
    if (err == NULL && digest->unreadable == digest->lines) {
        return VEK_ERROR_CREATE(VEK_ERROR_BAD_INPUT, "no line could be read as a log line");
    }
    return err;
}

static VekError *digest_file(FILE *file, const char *name, const VekDict *settings)
{
    struct digest digest;
    VekError *err = digest_init(&digest, settings);
    if (err == NULL) {
        err = digest_lines(file, &digest);
    }
    if (err == NULL) {
        err = digest_print(&digest, name, stdout);
    }
    if (err == NULL && fflush(stdout) != 0) {
        err = VEK_ERROR_CREATE(VEK_ERROR_IO, "standard output: %s", strerror(errno));
    }
    digest_release(&digest);
    return err;
}

static VekError *digest_path(const char *path, const VekDict *settings)
{
    FILE *const file = fopen(path, "r");
    if (file == NULL) {
        return VEK_ERROR_CREATE(VEK_ERROR_IO, "%s", strerror(errno));
    }
    VekError *const err = digest_file(file, path, settings);
    fclose(file);
    return err;
}

/* Reads "-n COUNT" and "-e COUNT" into the settings; returns the next argument's number, 0 for a
 * fault. */
static int read_options(int argc, char **argv, VekDict *settings)
{
    int next = 1;
    for (; next < argc && argv[next][0] == '-' && argv[next][1] != '\0'; next += 2) {
        const int busiest = strcmp(argv[next], "-n") == 0;
        if ((!busiest && strcmp(argv[next], "-e") != 0) || next + 1 == argc) {
            return 0;
        }
        char *end;
        const unsigned long count = strtoul(argv[next + 1], &end, 10);
        if (end == argv[next + 1] || *end != '\0' || count > largest_count ||
            !vek_str_dict_put_int(settings, busiest ? "busiest" : "unreadable", (int32_t)count)) {
            return 0;
        }
    }
    return argc - next <= 1 ? next : 0;
}

static int usage(void)
{
    fputs("usage: logdigest [-n COUNT] [-e COUNT] [FILE]\n"
          "Reads a log (syslog or dpkg) from FILE or standard input; prints the COUNT busiest\n"
          "programs or packages (-n) and the first COUNT lines that it cannot read (-e).\n",
          stderr);
    return 2;
}

int main(int argc, char **argv)
{
    VekDict *const settings = digest_settings();
    const int next = settings != NULL ? read_options(argc, argv, settings) : 0;
    if (next == 0) {
        vek_dict_destroy(settings);
        return usage();
    }
    const int from_input = next == argc || strcmp(argv[next], "-") == 0;
    const char *const name = from_input ? "standard input" : argv[next];
    VekError *const err =
        from_input ? digest_file(stdin, name, settings) : digest_path(name, settings);
    if (err != NULL) {
        fprintf(stderr, "logdigest: %s: %s\n", name, vek_error_get_msg(err));
    }
    vek_error_destroy(err);
    vek_dict_destroy(settings);
    return err != NULL ? EXIT_FAILURE : EXIT_SUCCESS;
}
