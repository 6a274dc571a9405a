/* SPDX-License-Identifier: MIT */
#include "digest.h"

#include "parse.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#include <veklib/vekmemory.h>
#include <veklib/vekstrfuncs.h>

enum { samples_kept = 5, excerpt_length = 48 };

/** One program or package; the table's key is its name. */
struct count {
    char *name;
    unsigned long lines;
};

/** One line that could not be read. */
struct sample {
    unsigned long line;
    const char *reason;
    char *excerpt;
};

static void free_count(void *element)
{
    struct count *const count = element;
    vek_free(count->name);
    vek_free(count);
}

static void free_sample(void *element)
{
    struct sample *const sample = element;
    vek_free(sample->excerpt);
    vek_free(sample);
}

static uint32_t hash_name(const void *key)
{
    uint32_t hash = 2166136261u; /* FNV-1a */
    for (const unsigned char *c = key; *c != '\0'; ++c) {
        hash = (hash ^ *c) * 16777619u;
    }
    return hash;
}

static int equal_names(const void *a, const void *b)
{
    return strcmp(a, b) == 0;
}

bool digest_init(struct digest *digest)
{
    memset(digest, 0, sizeof *digest);
    digest->counts = vek_hash_new_full(hash_name, equal_names, NULL, free_count);
    return digest->counts != NULL;
}

void digest_release(struct digest *digest)
{
    vek_hash_destroy(digest->counts);
    vek_slist_free(digest->samples, free_sample);
    vek_free(digest->first_stamp);
    vek_free(digest->last_stamp);
}

static bool keep_sample(struct digest *digest, const char *line, const char *reason)
{
    ++digest->unreadable;
    if (digest->unreadable > samples_kept) {
        return true;
    }
    struct sample *const sample = vek_malloc(sizeof *sample);
    if (sample == NULL) {
        return false;
    }
    sample->line = digest->lines;
    sample->reason = reason;
    sample->excerpt = vek_strdup_printf("\"%.*s\"", excerpt_length, line);
    VekSList *const node =
        sample->excerpt != NULL ? vek_slist_insert_after(digest->last_sample, sample) : NULL;
    if (node == NULL) {
        free_sample(sample);
        return false;
    }
    for (char *c = sample->excerpt; *c != '\0'; ++c) {
        if (!isprint((unsigned char)*c)) {
            *c = '?';
        }
    }
    digest->last_sample = node;
    if (digest->samples == NULL) {
        digest->samples = node;
    }
    return true;
}

static bool count_subject(struct digest *digest, const struct record *record)
{
    char *const name = vek_strndup(record->subject, record->subject_length);
    if (name == NULL) {
        return false;
    }
    struct count *count = vek_hash_lookup(digest->counts, name);
    if (count != NULL) {
        vek_free(name);
        ++count->lines;
        return true;
    }
    count = vek_malloc(sizeof *count);
    if (count == NULL) {
        vek_free(name);
        return false;
    }
    count->name = name;
    count->lines = 1;
    if (!vek_hash_insert(digest->counts, name, count)) {
        free_count(count);
        return false;
    }
    return true;
}

static bool replace_stamp(char **stamp, const char *line, const struct record *record)
{
    char *const copy = vek_strndup(line, record->stamp_length);
    if (copy == NULL) {
        return false;
    }
    vek_free(*stamp);
    *stamp = copy;
    return true;
}

static bool extend_span(struct digest *digest, const char *line, const struct record *record)
{
    int64_t seconds = record->seconds;
    if (record->year == 0) {
        if (digest->month == 12 && record->month == 1) {
            ++digest->year;
        }
        digest->month = record->month;
        seconds +=
            days_from_date(2000 + digest->year, 1, 1) * 86400 - days_from_date(2000, 1, 1) * 86400;
    }
    if (digest->first_stamp == NULL || seconds < digest->first_seconds) {
        digest->first_seconds = seconds;
        if (!replace_stamp(&digest->first_stamp, line, record)) {
            return false;
        }
    }
    if (digest->last_stamp == NULL || seconds >= digest->last_seconds) {
        digest->last_seconds = seconds;
        return replace_stamp(&digest->last_stamp, line, record);
    }
    return true;
}

bool digest_add_line(struct digest *digest, const char *line)
{
    struct record record;
    ++digest->lines;
    const char *const reason = parse_line(line, &record);
    if (reason != NULL) {
        return keep_sample(digest, line, reason);
    }
    return extend_span(digest, line, &record) && count_subject(digest, &record);
}

static int busier_first(const void *a, const void *b)
{
    const struct count *const first = *(struct count *const *)a;
    const struct count *const second = *(struct count *const *)b;
    if (first->lines != second->lines) {
        return first->lines < second->lines ? 1 : -1;
    }
    return strcmp(first->name, second->name);
}

static int collect_count(void *key, void *value, void *user_data)
{
    struct count ***const next = user_data;
    (void)key;
    *(*next)++ = value;
    return 0;
}

static bool print_busiest(const struct digest *digest, unsigned top, FILE *out)
{
    const size_t number = digest->counts->entry_count;
    struct count **const counts = vek_calloc(number, sizeof *counts);
    if (counts == NULL) {
        return false;
    }
    struct count **next = counts;
    vek_hash_foreach(digest->counts, collect_count, &next);
    qsort(counts, number, sizeof *counts, busier_first);
    for (size_t i = 0; i < number && i < top; ++i) {
        fprintf(out, "  %10lu  %s\n", counts[i]->lines, counts[i]->name);
    }
    vek_free(counts);
    return true;
}

static void print_span(const struct digest *digest, FILE *out)
{
    const int64_t seconds = digest->last_seconds - digest->first_seconds;
    fprintf(out, "span        %s to %s (%ld d %02d:%02d:%02d)\n", digest->first_stamp,
            digest->last_stamp, (long)(seconds / 86400), (int)(seconds / 3600 % 24),
            (int)(seconds / 60 % 60), (int)(seconds % 60));
}

bool digest_print(const struct digest *digest, const char *name, unsigned top, FILE *out)
{
    fprintf(out, "log         %s\n", name);
    fprintf(out, "lines       %lu\n", digest->lines);
    print_span(digest, out);
    fprintf(out, "busiest     of %lu programs or packages\n",
            (unsigned long)digest->counts->entry_count);
    if (!print_busiest(digest, top, out)) {
        return false;
    }
    fprintf(out, "unreadable  %lu lines\n", digest->unreadable);
    for (const VekSList *node = digest->samples; node != NULL; node = node->next) {
        const struct sample *const sample = node->data;
        fprintf(out, "  line %5lu  %s: %s\n", sample->line, sample->reason, sample->excerpt);
    }
    if (digest->unreadable > samples_kept) {
        fprintf(out, "  and %lu more\n", digest->unreadable - samples_kept);
    }
    return true;
}
