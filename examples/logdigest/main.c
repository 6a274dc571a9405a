/* SPDX-License-Identifier: MIT */
/* logdigest: what an operator wants to know of a log first. */
#include "debug.h"
#include "digest.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

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

/* What the command line asks for. */
struct options {
    VekDict *settings;        /* -n COUNT, -e COUNT, -l: see struct digest */
    const char *debug_config; /* -d FILE */
    int own_function;         /* -p */
    const char *path;         /* null: standard input */
};

static int read_count(VekDict *settings, const char *name, const char *text)
{
    char *end;
    const unsigned long count = strtoul(text, &end, 10);
    return end != text && *end == '\0' && count <= largest_count &&
           vek_str_dict_put_int(settings, name, (int32_t)count);
}

/* Returns 0 for a fault. */
static int read_options(int argc, char **argv, struct options *options)
{
    int understood = 1;
    int option;
    while (understood && (option = getopt(argc, argv, "n:e:d:lp")) != -1) {
        switch (option) {
        case 'n':
            understood = read_count(options->settings, "busiest", optarg);
            break;
        case 'e':
            understood = read_count(options->settings, "unreadable", optarg);
            break;
        case 'd':
            options->debug_config = optarg;
            break;
        case 'l':
            understood = vek_str_dict_put_int(options->settings, "leak", 1);
            break;
        case 'p':
            options->own_function = 1;
            break;
        default:
            understood = 0;
        }
    }
    const char *const path = optind < argc ? argv[optind] : "-";
    options->path = strcmp(path, "-") != 0 ? path : NULL;
    return understood && argc - optind <= 1;
}

static int usage(void)
{
    fputs("usage: logdigest [-n COUNT] [-e COUNT] [-d CONFIG] [-l] [-p] [FILE]\n"
          "Reads a log (syslog or dpkg) from FILE or standard input; prints the COUNT busiest\n"
          "programs or packages (-n) and the first COUNT lines that it cannot read (-e). Debug\n"
          "output is configured by CONFIG (-d) and VEK_DEBUG_CONFIG; -p sends the domain\n"
          "\"report\" through a function of the program. -l leaks memory, to try out tools.\n",
          stderr);
    return 2;
}

static int run(const struct options *options)
{
    if (debug_start(options->debug_config, options->own_function) != 0) {
        fputs("logdigest: out of memory\n", stderr);
        return EXIT_FAILURE;
    }
    const char *const name = options->path != NULL ? options->path : "standard input";
    VekError *const err = options->path != NULL ? digest_path(options->path, options->settings)
                                                : digest_file(stdin, name, options->settings);
    if (err != NULL) {
        fprintf(stderr, "logdigest: %s: %s\n", name, vek_error_get_msg(err));
    }
    const int status = err != NULL ? EXIT_FAILURE : EXIT_SUCCESS;
    vek_error_destroy(err);
    debug_stop();
    return status;
}

int main(int argc, char **argv)
{
    struct options options = {.settings = vek_str_dict_create(2)};
    int status;
    if (options.settings != NULL && read_options(argc, argv, &options)) {
        status = run(&options);
    } else {
        status = usage();
    }
    vek_dict_destroy(options.settings);
    return status;
}
