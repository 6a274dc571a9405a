/* SPDX-License-Identifier: MIT */
/* A program whose leaks are known: leaky [plugin FILE] [maps FILE] [exec] [fork] [kill]
 *
 * A comment that begins with "expect:" says what a report has for its line:
 *
 *     expect: live WHAT FUNCTION BLOCKS       blocks that are live at the end
 *     expect: short-lived WHAT FUNCTION COUNT blocks that were released at once; none is live
 *     expect: inlined-into WHAT FUNCTION      the line that calls the inlined function above
 *     expect: twice WHAT FUNCTION ROLE        a double release: allocated, first, again
 *
 * FUNCTION contains the line. No call here is the last thing that its function does: it would be a
 * jump, and leave no trace of the function. `plugin` opens leaky_plugin.so and closes it again,
 * `maps` copies /proc/self/maps to FILE, `exec` runs this program as a child, `fork` has a child
 * that no report shows, `kill` ends the process by SIGKILL. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <dlfcn.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <veklib/veklib.h>

#include "leaky.h"

KEPT int numbers[200];
KEPT VekSList *readings;
KEPT VekDict *settings;
KEPT char *names[5];
KEPT VekStr *titles[3];
KEPT char *history;
KEPT void *parts[8];
static VekMemoryVtable previous;
static void *quarantined;

/* The second release of a block would end the process. This block is never really released. */
static void careful_free(void *block, void *return_address)
{
    if (block != quarantined) { previous.free(block, return_address); }
}

static void install_table(void)
{
    previous = *vek_get_memory_vtable();
    VekMemoryVtable table = previous;
    table.free = careful_free;
    vek_set_memory_vtable(&table);
}

static NOINLINE void add_reading(int i)
{
    numbers[i] = i;
    readings = vek_slist_prepend(readings, &numbers[i]); /* expect: live list add_reading 200 */
}

static NOINLINE void set_number(const char *name, int value)
{
    const int stored =
        vek_str_dict_put_int(settings, name, value); /* expect: live dictionary set_number some */
    if (!stored) { abort(); }
}

static NOINLINE void read_settings(void)
{
    settings = vek_str_dict_create(8); /* expect: live dictionary read_settings some */
    for (int i = 0; i < 50; ++i) {
        char name[16];
        snprintf(name, sizeof name, "setting%d", i);
        set_number(name, i);
    }
}

static inline ALWAYS_INLINE char *copy_bytes(const char *bytes, size_t size)
{
    char *copy = vek_malloc(size); /* expect: live inlined copy_bytes 5 */
    return copy != NULL ? memcpy(copy, bytes, size) : NULL;
}

static inline ALWAYS_INLINE char *copy_name(const char *name)
{
    return copy_bytes(name, strlen(name) + 1); /* expect: inlined-into inlined copy_name */
}

static NOINLINE void keep_name(int i, const char *name)
{
    names[i] = copy_name(name); /* expect: inlined-into inlined keep_name */
}

static NOINLINE void keep_title(int i)
{
    titles[i] = vek_str_create_printf("title %d", i); /* expect: live string keep_title some */
}

static NOINLINE void grow_history(void)
{
    for (size_t size = 16; size <= 4096; size *= 2) {
        char *grown = vek_realloc(history, size); /* expect: live growing grow_history 1 */
        if (grown == NULL) { abort(); }
        history = grown;
    }
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

static NOINLINE void work_in_child(void)
{
    for (int i = 0; i < 8; ++i) {
        parts[i] = vek_malloc(48); /* expect: live child work_in_child 8 */
    }
}

static void leak(void)
{
    for (int i = 0; i < 200; ++i) { add_reading(i); }
    read_settings();
    for (int i = 0; i < 5; ++i) { keep_name(i, "a name"); }
    for (int i = 0; i < 3; ++i) { keep_title(i); }
    grow_history();
    for (int i = 0; i < 1000; ++i) { format_line(); }
    release_twice();
    leak_in_cpp();
}

static void use_plugin(const char *file)
{
    void *plugin = dlopen(file, RTLD_NOW);
    /* ISO C has no conversion from an object's address to a function's. */
    void (*function)(void) = NULL;
    if (plugin != NULL) { *(void **)&function = dlsym(plugin, "leak_in_plugin"); }
    if (function == NULL) {
        fprintf(stderr, "leaky: %s\n", dlerror());
        exit(2);
    }
    function();
    dlclose(plugin);
}

static void copy_maps(const char *file)
{
    FILE *in = fopen("/proc/self/maps", "r");
    FILE *out = fopen(file, "w");
    if (in == NULL || out == NULL) {
        perror(file);
        exit(2);
    }
    for (int c = getc(in); c != EOF; c = getc(in)) { putc(c, out); }
    fclose(in);
    fclose(out);
}

static void wait_for_child(pid_t child)
{
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
        fprintf(stderr, "leaky: the child failed\n");
        exit(2);
    }
}

int main(int argc, char **argv)
{
    install_table();
    if (argc == 2 && strcmp(argv[1], "child") == 0) {
        work_in_child();
        return 0;
    }
    leak();
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "plugin") == 0 && i + 1 < argc) {
            use_plugin(argv[++i]);
        } else if (strcmp(argv[i], "maps") == 0 && i + 1 < argc) {
            copy_maps(argv[++i]);
        } else if (strcmp(argv[i], "exec") == 0) {
            const pid_t child = fork();
            if (child == 0) {
                execl(argv[0], argv[0], "child", (char *)NULL);
                _exit(127);
            }
            wait_for_child(child);
        } else if (strcmp(argv[i], "fork") == 0) {
            /* A recording does not follow it: these blocks are in no report. */
            const pid_t child = fork();
            if (child == 0) {
                work_in_child();
                _exit(0);
            }
            wait_for_child(child);
        } else if (strcmp(argv[i], "kill") == 0) {
            raise(SIGKILL);
        } else {
            fprintf(stderr, "usage: leaky [plugin FILE] [maps FILE] [exec] [fork] [kill]\n");
            return 2;
        }
    }
    return 0;
}
