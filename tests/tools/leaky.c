/* SPDX-License-Identifier: MIT */
/* A program whose leaks are known: leaky [kill|FILE]
 *
 * A comment that begins with "expect:" says what a report has for its line:
 *
 *     expect: live WHAT FUNCTION BLOCKS       blocks that are live at the end
 *     expect: short-lived WHAT FUNCTION COUNT blocks that were released at once; none is live
 *     expect: inlined-into WHAT FUNCTION      the line that calls the inlined function above
 *     expect: twice WHAT FUNCTION ROLE        a double release: allocated, first, again
 *
 * FUNCTION contains the line. No call here is the last thing that its function does: it would be a
 * jump, and leave no trace of the function. `kill` ends the process by SIGKILL; FILE gets a copy of
 * /proc/self/maps. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <signal.h>

#include <veklib/veklib.h>

#define NOINLINE __attribute__((noinline))
/* Variables that are written and never read. */
#define KEPT static __attribute__((used))

KEPT int numbers[200];
KEPT VekSList *readings;
KEPT VekDict *settings;
KEPT char *names[5];
static VekMemoryVtable previous;
static void *quarantined;

/* The second release of a block would end the process. This block is never really released. */
static void careful_free(void *block, void *return_address)
{
    if (block != quarantined) { previous.free(block, return_address); }
}

static NOINLINE void add_reading(int i)
{
    numbers[i] = i;
    readings = vek_slist_prepend(readings, &numbers[i]); /* expect: live list add_reading 200 */
}

static NOINLINE void read_settings(void)
{
    settings = vek_str_dict_create(8); /* expect: live dictionary read_settings some */
    for (int i = 0; i < 50; ++i) {
        char name[16];
        snprintf(name, sizeof name, "setting%d", i);
        vek_str_dict_put_int(settings, name, i); /* expect: live dictionary read_settings some */
    }
}

static inline __attribute__((always_inline)) char *copy_bytes(const char *bytes, size_t size)
{
    char *copy = vek_malloc(size); /* expect: live inlined copy_bytes 5 */
    return copy != NULL ? memcpy(copy, bytes, size) : NULL;
}

static inline __attribute__((always_inline)) char *copy_name(const char *name)
{
    return copy_bytes(name, strlen(name) + 1); /* expect: inlined-into inlined copy_name */
}

static NOINLINE void keep_name(int i, const char *name)
{
    names[i] = copy_name(name); /* expect: inlined-into inlined keep_name */
}

static NOINLINE void format_line(void)
{
    volatile char *line = vek_malloc(80); /* expect: short-lived line format_line 1000 */
    line[0] = '\0';
    vek_free((void *)line);
    numbers[0] = 3;
}

static NOINLINE void *make_part(void)
{
    char *part = vek_malloc(24); /* expect: twice part make_part allocated */
    part[0] = 'p';
    return part;
}

static NOINLINE void release_part(void *part)
{
    vek_free(part); /* expect: twice part release_part first */
    numbers[0] = 0;
}

static NOINLINE void release_part_again(void *part)
{
    vek_free(part); /* expect: twice part release_part_again again */
    numbers[0] = 1;
}

static NOINLINE void release_twice(void)
{
    void *volatile part = make_part();
    quarantined = part;
    release_part(part);
    release_part_again(part);
    numbers[0] = 2;
}

static void leak(void)
{
    for (int i = 0; i < 200; ++i) { add_reading(i); }
    read_settings();
    for (int i = 0; i < 5; ++i) { keep_name(i, "a name"); }
    for (int i = 0; i < 1000; ++i) { format_line(); }
    release_twice();
}

static void copy_maps(const char *file)
{
    FILE *in = fopen("/proc/self/maps", "r");
    FILE *out = fopen(file, "w");
    if (in == NULL || out == NULL) { abort(); }
    for (int c = getc(in); c != EOF; c = getc(in)) { putc(c, out); }
    fclose(in);
    fclose(out);
}

int main(int argc, char **argv)
{
    previous = *vek_get_memory_vtable();
    VekMemoryVtable table = previous;
    table.free = careful_free;
    vek_set_memory_vtable(&table);
    leak();
    if (argc == 2 && strcmp(argv[1], "kill") == 0) { raise(SIGKILL); }
    if (argc == 2) { copy_maps(argv[1]); }
    return 0;
}
