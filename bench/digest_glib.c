/* SPDX-License-Identifier: MIT */
/* usage: digest_glib [FILE] - examples/logdigest written with GLib, for a comparison of time and
 * memory. Of a log that can be read it prints the same report. It has no options and no debug
 * output, and is written as one writes with GLib: it reads with getline(), searches one table for
 * each line, and copies only new names. It prints with printf(), because g_print() alone would take
 * 33 KB of heap and half a megabyte in all. */
#include <errno.h>
#include <glib.h>
#include <stdio.h>
#include <string.h>

enum { longest_line = 65536, busiest = 10, kept_faults = 5, excerpt_length = 48 };

/* ---- Lines ---- */

/* What cannot be read; logdigest says which of its functions found it. */
typedef enum { NO_STAMP, NO_PROGRAM, NO_PACKAGE, BAD_FILE } LineError;
static const char *const finders[] = {"parse_line", "parse_program", "parse_package"};

static GQuark line_error_quark(void) { return g_quark_from_static_string("line-error-quark"); }

typedef struct {
    int year; /* 0 when the time stamp has none */
    int month;
    gint64 seconds;
    gsize stamp_length;
    char *subject; /* the program or package, a part of the line */
    gsize subject_length;
} Record;

/* As in logdigest, and not with GDate, which refuses dates that logdigest accepts. */
static gint64 days_from_date(int year, int month, int day)
{
    const gint64 y = year - (month <= 2);
    const gint64 day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    return y * 365 + y / 4 - y / 100 + y / 400 + day_of_year - 719468;
}

static gboolean set_time(Record *record, int year, int month, int day, int hour, int minute,
                         int second)
{
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 || hour > 23 || minute < 0 ||
        minute > 59 || second < 0 || second > 60 || year < 0) {
        return FALSE;
    }
    record->year = year;
    record->month = month;
    /* 29 February may occur in a log without years. */
    record->seconds = days_from_date(year != 0 ? year : 2000, month, day) * 86400 +
                      (hour * 60 + minute) * 60 + second;
    return TRUE;
}

/* The parse_*_stamp() functions return the number of characters, 0 if there is no time stamp. */

static int parse_full_stamp(const char *line, char separator, Record *record)
{
    int year, month, day, hour, minute, second, length = 0;
    char between;
    const int found = sscanf(line, "%4d-%2d-%2d%c%2d:%2d:%2d%n", &year, &month, &day, &between,
                             &hour, &minute, &second, &length);
    return found == 7 && between == separator && year != 0 &&
                   set_time(record, year, month, day, hour, minute, second)
               ? length
               : 0;
}

static int parse_zoned_stamp(const char *line, Record *record)
{
    int length = parse_full_stamp(line, 'T', record);
    if (length != 0 && line[length] == '.') {
        length += 1 + (int)strspn(line + length + 1, "0123456789");
    }
    const char sign = line[length];
    int hours, minutes, zone_length = 0;
    if (length == 0 || sign == 'Z') { return length != 0 ? length + 1 : 0; }
    if ((sign == '+' || sign == '-') &&
        sscanf(line + length + 1, "%2d:%2d%n", &hours, &minutes, &zone_length) == 2) {
        record->seconds += (hours * 60 + minutes) * (sign == '+' ? -60 : 60);
        length += 1 + zone_length;
    }
    return length;
}

static int parse_classic_stamp(const char *line, Record *record)
{
    static const char months[] = "JanFebMarAprMayJunJulAugSepOctNovDec";
    char name[4];
    int day, hour, minute, second, length = 0;
    if (sscanf(line, "%3[A-Za-z] %2d %2d:%2d:%2d%n", name, &day, &hour, &minute, &second,
               &length) != 5) {
        return 0;
    }
    const char *const found = strlen(name) == 3 ? strstr(months, name) : NULL;
    return found != NULL && (found - months) % 3 == 0 &&
                   set_time(record, 0, (int)(found - months) / 3 + 1, day, hour, minute, second)
               ? length
               : 0;
}

static char *next_word(char *text)
{
    text += strcspn(text, " ");
    return text + strspn(text, " ");
}

static gboolean parse_program(char *text, Record *record, GError **error)
{
    record->subject = next_word(text);
    record->subject_length = strcspn(record->subject, " [:");
    const char end = record->subject[record->subject_length];
    if (record->subject_length == 0 || (end != '[' && end != ':')) {
        g_set_error_literal(error, line_error_quark(), NO_PROGRAM, "no program name");
        return FALSE;
    }
    return TRUE;
}

static gboolean parse_package(char *text, Record *record, GError **error)
{
    static char itself[] = "(dpkg itself)";
    if (g_str_has_prefix(text, "startup ")) {
        record->subject = itself;
        record->subject_length = strlen(itself);
        return TRUE;
    }
    record->subject = next_word(text);
    if (g_str_has_prefix(text, "status ")) { record->subject = next_word(record->subject); }
    record->subject_length = strcspn(record->subject, " :");
    if (record->subject_length == 0) {
        g_set_error_literal(error, line_error_quark(), NO_PACKAGE, "no package name");
        return FALSE;
    }
    return TRUE;
}

static gboolean parse_line(char *line, Record *record, GError **error)
{
    int length = parse_full_stamp(line, ' ', record);
    const gboolean package = length != 0;
    if (length == 0) { length = parse_zoned_stamp(line, record); }
    if (length == 0) { length = parse_classic_stamp(line, record); }
    if (length == 0 || line[length] != ' ') {
        g_set_error_literal(error, line_error_quark(), NO_STAMP, "no time stamp");
        return FALSE;
    }
    record->stamp_length = (gsize)length;
    char *const rest = line + length + strspn(line + length, " ");
    return package ? parse_package(rest, record, error) : parse_program(rest, record, error);
}

/* ---- The digest ---- */

typedef struct {
    char *name;
    int lines;
} Count;

typedef struct {
    gulong lines;
    gulong unreadable;
    GHashTable *counts; /* from the name to its Count */
    GQueue faults;      /* texts about the first unreadable lines */
    GString *first_stamp;
    GString *last_stamp;
    gint64 first_seconds;
    gint64 last_seconds;
    int year; /* New Years passed in a log without years */
    int month;
} Digest;

static void count_free(void *element)
{
    Count *const count = element;
    g_free(count->name);
    g_free(count);
}

static void digest_init(Digest *digest)
{
    *digest = (Digest){.counts = g_hash_table_new_full(g_str_hash, g_str_equal, NULL, count_free),
                       .first_stamp = g_string_new(NULL),
                       .last_stamp = g_string_new(NULL)};
    g_queue_init(&digest->faults);
}

static void digest_clear(Digest *digest)
{
    g_hash_table_destroy(digest->counts);
    g_queue_clear_full(&digest->faults, g_free);
    g_string_free(digest->first_stamp, TRUE);
    g_string_free(digest->last_stamp, TRUE);
}

static void keep_fault(Digest *digest, const GError *error, const char *line)
{
    if (digest->unreadable++ >= kept_faults) { return; }
    char *const excerpt = g_strndup(line, excerpt_length);
    for (char *c = excerpt; *c != '\0'; ++c) {
        if (!g_ascii_isprint(*c)) { *c = '?'; }
    }
    g_queue_push_tail(&digest->faults,
                      g_strdup_printf("%s in line %lu: \"%s\", says %s()", error->message,
                                      digest->lines, excerpt, finders[error->code]));
    g_free(excerpt);
}

static void count_subject(Digest *digest, const Record *record)
{
    char *const end = record->subject + record->subject_length;
    const char after = *end;
    *end = '\0';
    Count *count = g_hash_table_lookup(digest->counts, record->subject);
    if (count == NULL) {
        count = g_new0(Count, 1);
        count->name = g_strdup(record->subject);
        g_hash_table_insert(digest->counts, count->name, count);
    }
    *end = after;
    ++count->lines;
}

static void extend_span(Digest *digest, const char *line, const Record *record)
{
    gint64 seconds = record->seconds;
    if (record->year == 0) {
        if (digest->month == 12 && record->month == 1) { ++digest->year; }
        digest->month = record->month;
        seconds += (days_from_date(2000 + digest->year, 1, 1) - days_from_date(2000, 1, 1)) * 86400;
    }
    if (digest->first_stamp->len == 0 || seconds < digest->first_seconds) {
        digest->first_seconds = seconds;
        g_string_truncate(digest->first_stamp, 0);
        g_string_append_len(digest->first_stamp, line, (gssize)record->stamp_length);
    }
    if (digest->last_stamp->len == 0 || seconds >= digest->last_seconds) {
        digest->last_seconds = seconds;
        g_string_truncate(digest->last_stamp, 0);
        g_string_append_len(digest->last_stamp, line, (gssize)record->stamp_length);
    }
}

static void add_line(Digest *digest, char *line)
{
    Record record;
    GError *error = NULL;
    ++digest->lines;
    if (parse_line(line, &record, &error)) {
        extend_span(digest, line, &record);
        count_subject(digest, &record);
    } else {
        keep_fault(digest, error, line);
        g_error_free(error);
    }
}

static gboolean read_lines(FILE *file, Digest *digest, GError **error)
{
    char *line = NULL;
    size_t size = 0;
    ssize_t length;
    while ((length = getline(&line, &size, file)) > 0) {
        if (line[length - 1] == '\n') { line[--length] = '\0'; }
        if (length > longest_line || strlen(line) != (size_t)length) {
            g_set_error(error, line_error_quark(), BAD_FILE, "line %lu: not a line of a log",
                        digest->lines + 1);
            break;
        }
        add_line(digest, line);
    }
    free(line);
    if (length > 0) { return FALSE; }
    if (ferror(file)) {
        g_set_error_literal(error, G_FILE_ERROR, (int)g_file_error_from_errno(errno),
                            g_strerror(errno));
    } else if (digest->unreadable == digest->lines) {
        g_set_error_literal(error, line_error_quark(), BAD_FILE,
                            "no line could be read as a log line");
    }
    return !ferror(file) && digest->unreadable != digest->lines;
}

/* ---- The report ---- */

static int busier_first(const void *a, const void *b)
{
    const Count *const first = a;
    const Count *const second = b;
    return first->lines != second->lines ? second->lines - first->lines
                                         : strcmp(first->name, second->name);
}

static void print_busiest(const Digest *digest)
{
    GList *const counts = g_list_sort(g_hash_table_get_values(digest->counts), busier_first);
    int rank = 0;
    printf("busiest     of %u programs or packages\n", g_hash_table_size(digest->counts));
    for (const GList *node = counts; node != NULL && rank < busiest; node = node->next, ++rank) {
        const Count *const count = node->data;
        printf("  %10d  %s\n", count->lines, count->name);
    }
    g_list_free(counts);
}

static void print_digest(const Digest *digest, const char *name)
{
    const gint64 seconds = digest->last_seconds - digest->first_seconds;
    printf("log         %s\n", name);
    printf("lines       %lu\n", digest->lines);
    printf("span        %s to %s (%ld d %02d:%02d:%02d)\n", digest->first_stamp->str,
           digest->last_stamp->str, (long)(seconds / 86400), (int)(seconds / 3600 % 24),
           (int)(seconds / 60 % 60), (int)(seconds % 60));
    print_busiest(digest);
    printf("unreadable  %lu lines\n", digest->unreadable);
    for (const GList *node = digest->faults.head; node != NULL; node = node->next) {
        printf("  %s\n", (const char *)node->data);
    }
    if (digest->unreadable > kept_faults) {
        printf("  and %lu more\n", digest->unreadable - kept_faults);
    }
}

int main(int argc, char **argv)
{
    const char *const name = argc > 1 ? argv[1] : "standard input";
    FILE *const file = argc > 1 ? fopen(name, "r") : stdin;
    if (file == NULL) {
        g_printerr("digest_glib: %s: %s\n", name, g_strerror(errno));
        return 1;
    }
    Digest digest;
    GError *error = NULL;
    digest_init(&digest);
    const gboolean is_read = read_lines(file, &digest, &error);
    if (is_read) {
        print_digest(&digest, name);
    } else {
        g_printerr("digest_glib: %s: %s\n", name, error->message);
        g_error_free(error);
    }
    digest_clear(&digest);
    fclose(file);
    return is_read ? 0 : 1;
}
