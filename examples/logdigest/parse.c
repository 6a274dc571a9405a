/* SPDX-License-Identifier: MIT */
#include "parse.h"

#include <stdbool.h>
#include <stdio.h>
#include <string.h>

static const int year_without_one = 2000; /* a leap year, because 29 February may occur */

int64_t days_from_date(int year, int month, int day)
{
    /* Years that begin in March have their leap day at the end. */
    const int64_t y = year - (month <= 2);
    const int64_t day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return y * 365 + y / 4 - y / 100 + y / 400 + day_of_year - 719468;
}

static bool set_time(struct record *record, int year, int month, int day, int hour, int minute,
                     int second)
{
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 23 || minute < 0 ||
        minute > 59 || second < 0 || second > 60 || year < 0) {
        return false;
    }
    record->year = year;
    record->month = month;
    record->seconds = days_from_date(year != 0 ? year : year_without_one, month, day) * 86400 +
                      ((int64_t)hour * 60 + minute) * 60 + second;
    return true;
}

/* Reads a time stamp "2026-11-22 22:04:01" with `separator` between date and time. Returns the
 * number of its characters, 0 if there is no such time stamp. */
static size_t parse_full_stamp(const char *line, char separator, struct record *record)
{
    int year, month, day, hour, minute, second, length = 0;
    char between;
    const int found = sscanf(line, "%4d-%2d-%2d%c%2d:%2d:%2d%n", &year, &month, &day, &between,
                             &hour, &minute, &second, &length);
    if (found != 7 || between != separator || year == 0 ||
        !set_time(record, year, month, day, hour, minute, second)) {
        return 0;
    }
    return (size_t)length;
}

/* Reads a fraction and a zone (".52+01:00", "Z") at `text`, and subtracts the zone's offset from
 * the record's time. Returns the number of characters. */
static size_t parse_fraction_and_zone(const char *text, struct record *record)
{
    size_t length = 0;
    if (text[0] == '.') {
        length = 1 + strspn(text + 1, "0123456789");
    }
    if (text[length] == 'Z') {
        return length + 1;
    }
    int hours, minutes, zone_length = 0;
    if ((text[length] == '+' || text[length] == '-') &&
        sscanf(text + length + 1, "%2d:%2d%n", &hours, &minutes, &zone_length) == 2) {
        const int offset = (hours * 60 + minutes) * 60;
        record->seconds += text[length] == '+' ? -offset : offset;
        length += 1 + (size_t)zone_length;
    }
    return length;
}

static size_t parse_classic_stamp(const char *line, struct record *record)
{
    static const char months[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    char name[4];
    int day, hour, minute, second, length = 0;
    if (sscanf(line, "%3[A-Za-z] %2d %2d:%2d:%2d%n", name, &day, &hour, &minute, &second,
               &length) != 5) {
        return 0;
    }
    const char *const found = strlen(name) == 3 ? strstr(months, name) : NULL;
    if (found == NULL || (found - months) % 3 != 0 ||
        !set_time(record, 0, (int)(found - months) / 3 + 1, day, hour, minute, second)) {
        return 0;
    }
    return (size_t)length;
}

static const char *next_word(const char *text)
{
    text += strcspn(text, " ");
    return text + strspn(text, " ");
}

/* "host program[pid]: message" */
static VekError *parse_program(const char *text, struct record *record)
{
    const char *const tag = next_word(text);
    const size_t length = strcspn(tag, " [:");
    if (length == 0 || (tag[length] != '[' && tag[length] != ':')) {
        return VEK_ERROR_CREATE(VEK_ERROR_BAD_INPUT, "no program name");
    }
    record->subject = tag;
    record->subject_length = length;
    return NULL;
}

/* "install libc6:amd64 2.36", "status installed libc6:amd64 2.36", "startup archives unpack" */
static VekError *parse_package(const char *text, struct record *record)
{
    if (strncmp(text, "startup ", 8) == 0) {
        record->subject = "(dpkg itself)";
        record->subject_length = strlen(record->subject);
        return NULL;
    }
    const char *name = next_word(text);
    if (strncmp(text, "status ", 7) == 0) {
        name = next_word(name);
    }
    record->subject = name;
    record->subject_length = strcspn(name, " :");
    if (record->subject_length == 0) {
        return VEK_ERROR_CREATE(VEK_ERROR_BAD_INPUT, "no package name");
    }
    return NULL;
}

VekError *parse_line(const char *line, struct record *record)
{
    size_t length = parse_full_stamp(line, ' ', record);
    const bool package = length != 0;
    if (length == 0) {
        length = parse_full_stamp(line, 'T', record);
        if (length != 0) {
            length += parse_fraction_and_zone(line + length, record);
        }
    }
    if (length == 0) {
        length = parse_classic_stamp(line, record);
    }
    if (length == 0 || line[length] != ' ') {
        return VEK_ERROR_CREATE(VEK_ERROR_BAD_INPUT, "no time stamp");
    }
    record->stamp_length = length;
    const char *const rest = line + length + strspn(line + length, " ");
    return package ? parse_package(rest, record) : parse_program(rest, record);
}
