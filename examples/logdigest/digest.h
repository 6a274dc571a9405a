/* SPDX-License-Identifier: MIT */
/* What is known of a log after reading its lines. */
#ifndef LOGDIGEST_DIGEST_H
#define LOGDIGEST_DIGEST_H

#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>

#include <veklib/vekhash.h>
#include <veklib/vekslist.h>

/** The digest of one log. Zero-initialised it is not ready: see digest_init(). */
struct digest {
    unsigned long lines;
    unsigned long unreadable;
    VekHash *counts;   /**< the name of a program or package -> its struct count, owned */
    VekSList *samples; /**< the first unreadable lines: struct sample, owned */
    VekSList *last_sample;
    char *first_stamp; /**< time stamp of the earliest line, owned; null before the first one */
    char *last_stamp;  /**< of the latest line */
    int64_t first_seconds;
    int64_t last_seconds;
    int year;  /**< passed New Years of a log without years */
    int month; /**< of the last line without a year; 0 before it */
};

/** Makes an empty digest; release it with digest_release(). False: no memory, nothing to release.
 */
bool digest_init(struct digest *digest);
void digest_release(struct digest *digest);

/** Adds a line (NUL-terminated, without its newline). False: no memory. */
bool digest_add_line(struct digest *digest, const char *line);

/** Prints the digest: lines, span, the `top` busiest programs or packages, unreadable lines. False:
 *  no memory. */
bool digest_print(const struct digest *digest, const char *name, unsigned top, FILE *out);

#endif
