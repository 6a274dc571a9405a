/* SPDX-License-Identifier: MIT */
/* Collects what the lines of a log say, and prints it. */
#ifndef LOGDIGEST_DIGEST_H
#define LOGDIGEST_DIGEST_H

#include <stdint.h>
#include <stdio.h>

#include <veklib/veklib.h>

/** The digest of one log. */
struct digest {
    /** Borrowed. "busiest" and "unreadable": how many lines to print; "leak": not 0 if errors that
     *  are not printed shall be leaked on purpose. */
    const VekDict *settings;
    unsigned long lines;
    unsigned long unreadable;
    VekNameTable *names; /**< of the programs or packages */
    VekHash *counts;     /**< the number of lines of each name */
    VekSList *errors;    /**< the faults of the first unreadable lines: VekError, owned */
    VekSList *last_error;
    char *first_stamp; /**< time stamp of the earliest line, owned; null before the first one */
    char *last_stamp;  /**< of the latest line */
    int64_t first_seconds;
    int64_t last_seconds;
    int year;  /**< New Years passed in a log without years */
    int month; /**< of the last line without a year; 0 before it */
};

/* Functions that can fail return an error, or null; release the error with vek_error_destroy(). */

/** Makes an empty digest; release it with digest_release(), also after a failure. */
VekError *digest_init(struct digest *digest, const VekDict *settings);
void digest_release(struct digest *digest);

/** Adds a line (NUL-terminated, without its newline). */
VekError *digest_add_line(struct digest *digest, const char *line);

/** Prints the digest: lines, span, the busiest programs or packages, unreadable lines. */
VekError *digest_print(const struct digest *digest, const char *name, FILE *out);

#endif
