/* SPDX-License-Identifier: MIT */
/* Reads one line of a log:
 *
 *     Nov 22 22:04:01 host cron[712]: message                 classic syslog
 *     2026-11-22T22:04:01.52+01:00 host cron[712]: message    syslog with full time stamps
 *     2026-11-22 22:04:01 install libc6:amd64 2.36            Debian's package manager
 */
#ifndef LOGDIGEST_PARSE_H
#define LOGDIGEST_PARSE_H

#include <stddef.h>
#include <stdint.h>

#include <veklib/vekerror.h>

/** What a line says. The texts point into the line. */
struct record {
    int year; /**< 0 when the time stamp has none */
    int month;
    int64_t seconds;     /**< since 1970; year 0 counts as 2000 */
    size_t stamp_length; /**< the time stamp is the line's start */
    const char *subject; /**< the program or package */
    size_t subject_length;
};

/** Reads a line (NUL-terminated, without its newline).
 *  @return  null if `record` is filled in, else an error; release with vek_error_destroy()
 */
VekError *parse_line(const char *line, struct record *record);

/** Days from 1970-01-01 to a date of the Gregorian calendar. */
int64_t days_from_date(int year, int month, int day);

#endif
