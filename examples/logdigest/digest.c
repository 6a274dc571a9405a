/* SPDX-License-Identifier: MIT */
#include "digest.h"

#include "debug.h"
#include "parse.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

enum { excerpt_length = 48 };

static VekError *out_of_memory(void)
{
    return VEK_ERROR_CREATE(VEK_ERROR_OUT_OF_MEMORY, "out of memory");
}

VekError *digest_init(struct digest *digest, const VekDict *settings)
{
    memset(digest, 0, sizeof *digest);
    digest->settings = settings;
    digest->names = vek_name_table_create(NULL);
    /* Not a dictionary: that is searched item by item, and a log may name thousands of packages. */
    digest->counts =
        vek_hash_new_full(vek_hash_pointer_hash_func, vek_hash_int_equal_func, NULL, NULL);
    return digest->names != NULL && digest->counts != NULL ? NULL : out_of_memory();
}

static void destroy_error(void *element)
{
    vek_error_destroy(element);
}

void digest_release(struct digest *digest)
{
    if (digest->counts != NULL) {
        vek_hash_destroy(digest->counts); /* its keys are the table's names */
    }
    vek_name_table_destroy(&digest->names);
    vek_slist_free(digest->errors, destroy_error);
    vek_free(digest->first_stamp);
    vek_free(digest->last_stamp);
}

/* Completes what is wrong with a line by the line itself. */
static void describe_line(VekError *err, unsigned long number, const char *line)
{
    char excerpt[excerpt_length + 1];
    vek_strlcpy(excerpt, line, sizeof excerpt);
    for (char *c = excerpt; *c != '\0'; ++c) {
        if (!isprint((unsigned char)*c)) {
            *c = '?';
        }
    }
    vek_error_append_msg(err, " in line %lu: \"%s\"", number, excerpt);
    VEK_ERROR_ADD_CALLSTACK_ENTRY(err);
}

/* Keeps the first errors, as many as are to be printed, and counts them all. */
static VekError *keep_error(struct digest *digest, VekError *err, const char *line)
{
    if (vek_error_get_type(err) != VEK_ERROR_BAD_INPUT) {
        return err;
    }
    VEK_DEBUG(debug_parse, DEBUG_FAULTS, "line %lu: %s\n", digest->lines, vek_error_get_msg(err));
    const int kept = vek_str_dict_get_int_or(digest->settings, "unreadable", 5);
    if (digest->unreadable++ >= (unsigned long)kept) {
        if (!vek_str_dict_get_int_or(digest->settings, "leak", 0)) {
            vek_error_destroy(err);
        }
        return NULL;
    }
    describe_line(err, digest->lines, line);
    VekSList *const node = vek_slist_insert_after(digest->last_error, err);
    if (node == NULL) {
        vek_error_destroy(err);
        return out_of_memory();
    }
    digest->last_error = node;
    if (digest->errors == NULL) {
        digest->errors = node;
    }
    return NULL;
}

static VekError *count_subject(struct digest *digest, const struct record *record)
{
    char *const text = vek_strndup(record->subject, record->subject_length);
    if (text == NULL) {
        return out_of_memory();
    }
    VekName *const name = vek_name_from_string(digest->names, text, 0);
    vek_free(text);
    if (name == NULL) {
        return out_of_memory();
    }
    const int count = VEK_POINTER_TO_INT(vek_hash_lookup(digest->counts, name)) + 1;
    return vek_hash_insert(digest->counts, name, VEK_INT_TO_POINTER(count)) ? NULL
                                                                            : out_of_memory();
}

static VekError *replace_stamp(char **stamp, const char *line, const struct record *record)
{
    char *const copy = vek_strndup(line, record->stamp_length);
    if (copy == NULL) {
        return out_of_memory();
    }
    vek_free(*stamp);
    *stamp = copy;
    return NULL;
}

/* The time of a record, with years counted where the log has none. */
static int64_t time_of(struct digest *digest, const struct record *record)
{
    if (record->year != 0) {
        return record->seconds;
    }
    if (digest->month == 12 && record->month == 1) {
        ++digest->year;
    }
    digest->month = record->month;
    return record->seconds +
           (days_from_date(2000 + digest->year, 1, 1) - days_from_date(2000, 1, 1)) * 86400;
}

static VekError *extend_span(struct digest *digest, const char *line, const struct record *record)
{
    const int64_t seconds = time_of(digest, record);
    VekError *err = NULL;
    if (digest->first_stamp == NULL || seconds < digest->first_seconds) {
        digest->first_seconds = seconds;
        err = replace_stamp(&digest->first_stamp, line, record);
    }
    if (err == NULL && (digest->last_stamp == NULL || seconds >= digest->last_seconds)) {
        digest->last_seconds = seconds;
        err = replace_stamp(&digest->last_stamp, line, record);
    }
    return err;
}

VekError *digest_add_line(struct digest *digest, const char *line)
{
    struct record record;
    ++digest->lines;
    VekError *err = parse_line(line, &record);
    if (err != NULL) {
        return keep_error(digest, err, line);
    }
    VEK_DEBUG(debug_parse, DEBUG_LINES, "line %lu: %.*s\n", digest->lines,
              (int)record.subject_length, record.subject);
    err = extend_span(digest, line, &record);
    return err != NULL ? err : count_subject(digest, &record);
}

/* One program or package, to be sorted. */
struct count {
    const char *name;
    int lines;
};

static int busier_first(const void *a, const void *b)
{
    const struct count *const first = a;
    const struct count *const second = b;
    if (first->lines != second->lines) {
        return first->lines < second->lines ? 1 : -1;
    }
    return strcmp(first->name, second->name);
}

static int collect_count(void *name, void *lines, void *user_data)
{
    struct count **const next = user_data;
    (*next)->name = vek_name_to_string(name);
    (*next)->lines = VEK_POINTER_TO_INT(lines);
    ++*next;
    return 0;
}

static VekError *print_busiest(const struct digest *digest, FILE *out)
{
    const uint32_t number = digest->counts->entry_count;
    const int top = vek_str_dict_get_int_or(digest->settings, "busiest", 10);
    struct count *const counts = vek_calloc(number, sizeof *counts);
    if (counts == NULL) {
        return out_of_memory();
    }
    struct count *next = counts;
    vek_hash_foreach(digest->counts, collect_count, &next);
    qsort(counts, number, sizeof *counts, busier_first);
    fprintf(out, "busiest     of %u programs or packages\n", number);
    for (uint32_t i = 0; i < number && i < (uint32_t)top; ++i) {
        VEK_DEBUG(debug_report, DEBUG_RANKING, "rank %u: %s\n", i + 1, counts[i].name);
        fprintf(out, "  %10d  %s\n", counts[i].lines, counts[i].name);
    }
    vek_free(counts);
    return NULL;
}

static void print_span(const struct digest *digest, FILE *out)
{
    const int64_t seconds = digest->last_seconds - digest->first_seconds;
    fprintf(out, "span        %s to %s (%ld d %02d:%02d:%02d)\n", digest->first_stamp,
            digest->last_stamp, (long)(seconds / 86400), (int)(seconds / 3600 % 24),
            (int)(seconds / 60 % 60), (int)(seconds % 60));
}

static void print_unreadable(const struct digest *digest, FILE *out)
{
    const VekSList *node;
    fprintf(out, "unreadable  %lu lines\n", digest->unreadable);
    VEK_SLIST_FOREACH(node, digest->errors) {
        const VekError *const err = node->data;
        fprintf(out, "  %s, says %s()\n", vek_error_get_msg(err),
                vek_error_get_callstack_func(err, 0));
    }
    const unsigned kept = vek_slist_get_length(digest->errors);
    if (kept > 0 && kept < digest->unreadable) {
        fprintf(out, "  and %lu more\n", digest->unreadable - kept);
    }
}

VekError *digest_print(const struct digest *digest, const char *name, FILE *out)
{
    VEK_DEBUG(debug_report, DEBUG_SUMMARY, "%lu lines, %u names, %lu faults\n", digest->lines,
              digest->counts->entry_count, digest->unreadable);
    fprintf(out, "log         %s\n", name);
    fprintf(out, "lines       %lu\n", digest->lines);
    print_span(digest, out);
    VekError *const err = print_busiest(digest, out);
    if (err == NULL) {
        print_unreadable(digest, out);
    }
    return err;
}
