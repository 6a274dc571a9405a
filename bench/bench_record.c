/* SPDX-License-Identifier: MIT */
/* usage: bench_record VEK-RECORD [ROUNDS]
 *
 * What watching costs: the processor time of an allocation and its release, and the bytes that are
 * written about them. The stack has 16 frames, those of main() and of its callers among them. The
 * program runs itself without anything, with trace lines in a file, and under vek-record, in turns,
 * and prints the lower quartiles.
 */
#include <fcntl.h>
#include <glob.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <veklib/veklib.h>

enum { DEPTH = 12, PAIRS = 300000, MOST_ROUNDS = 99 };

enum Way { PLAIN, TRACED, RECORDED, RECORDED_1, WAYS };
static const char *const way_names[WAYS] = {"plain", "trace lines", "vek-record",
                                            "vek-record --depth 1"};

/* ---- The work ---- */

static void *volatile kept;

__attribute__((noinline)) static double pairs_at(int frames)
{
    if (frames > 1) {
        const double nanoseconds = pairs_at(frames - 1);
        __asm__ volatile(""); /* not a jump: the frame is needed */
        return nanoseconds;
    }
    struct timespec start;
    struct timespec end;
    vek_free(vek_malloc(24)); /* the first use is not measured */
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &start);
    for (int i = 0; i != PAIRS; ++i) {
        kept = vek_malloc(24 + (size_t)i % 200);
        vek_free(kept);
    }
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &end);
    return ((double)(end.tv_sec - start.tv_sec) * 1e9 + (double)(end.tv_nsec - start.tv_nsec)) /
           PAIRS;
}

/* ---- The runs ---- */

static char folder[] = "/tmp/bench_record.XXXXXX";

static char *in_folder(const char *name)
{
    static char path[256];
    snprintf(path, sizeof path, "%s/%s", folder, name);
    return path;
}

static void clean(void)
{
    char pattern[300];
    glob_t found;
    snprintf(pattern, sizeof pattern, "%s/*", folder);
    if (glob(pattern, 0, NULL, &found) == 0) {
        for (size_t i = 0; i != found.gl_pathc; ++i) { remove(found.gl_pathv[i]); }
        globfree(&found);
    }
}

static double bytes_written(enum Way way)
{
    glob_t found;
    double bytes = 0;
    if (glob(in_folder(way == TRACED ? "trace" : "*.vekrec"), 0, NULL, &found) == 0) {
        struct stat status;
        bytes = stat(found.gl_pathv[0], &status) == 0 ? (double)status.st_size : 0;
        globfree(&found);
    }
    return bytes / PAIRS;
}

/* Runs this program's work in one of the ways; returns nanoseconds for a pair. */
static double run(enum Way way, const char *self, const char *recorder)
{
    clean();
    int ends[2];
    if (pipe(ends) != 0) { return 0; }
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        if (way == PLAIN) {
            execl(self, self, "--work", (char *)NULL);
        } else if (way == TRACED) {
            setenv("VEK_MALLOC_TRACE", "1", 1);
            setenv("VEK_MALLOC_TRACE_FILE", in_folder("trace"), 1);
            execl(self, self, "--work", (char *)NULL);
        } else {
            const int nowhere = open("/dev/null", O_WRONLY);
            dup2(nowhere, STDERR_FILENO);
            execl(recorder, recorder, "-o", folder, "--depth", way == RECORDED ? "16" : "1", self,
                  "--work", (char *)NULL);
        }
        _exit(127);
    }
    close(ends[1]);
    FILE *const output = fdopen(ends[0], "r");
    double nanoseconds = 0;
    if (output == NULL || fscanf(output, "%lf", &nanoseconds) != 1) {
        fprintf(stderr, "bench_record: no result of %s\n", way_names[way]);
        exit(1);
    }
    fclose(output);
    waitpid(child, NULL, 0);
    return nanoseconds;
}

static int by_value(const void *a, const void *b)
{
    const double x = *(const double *)a;
    const double y = *(const double *)b;
    return (x > y) - (x < y);
}

static void print_results(double times[WAYS][MOST_ROUNDS], const double bytes[WAYS], int rank)
{
    printf("%-24s %9s %9s %24s\n", "a pair at depth 16", "ns", "bytes", "time / trace lines' time");
    for (enum Way way = PLAIN; way != WAYS; ++way) {
        printf("%-24s %9.1f %9.1f %24.2f%s\n", way_names[way], times[way][rank], bytes[way],
               times[way][rank] / times[TRACED][rank],
               way == RECORDED ? "  (goals: 350 ns, 40 bytes, 0.50)" : "");
    }
}

int main(int argc, char **argv)
{
    if (argc == 2 && strcmp(argv[1], "--work") == 0) {
        printf("%f\n", pairs_at(DEPTH));
        return 0;
    }
    int rounds = argc > 2 ? atoi(argv[2]) : 21;
    if (argc < 2 || rounds < 1 || rounds > MOST_ROUNDS || mkdtemp(folder) == NULL) {
        fprintf(stderr, "usage: bench_record VEK-RECORD [ROUNDS]\n");
        return 2;
    }
    char self[256] = "";
    if (readlink("/proc/self/exe", self, sizeof self - 1) < 0) { return 1; }
    static double times[WAYS][MOST_ROUNDS];
    double bytes[WAYS] = {0};
    for (int round = 0; round != rounds; ++round) {
        for (enum Way way = PLAIN; way != WAYS; ++way) {
            times[way][round] = run(way, self, argv[1]);
            bytes[way] = way != PLAIN ? bytes_written(way) : 0;
        }
    }
    clean();
    rmdir(folder);
    for (enum Way way = PLAIN; way != WAYS; ++way) {
        qsort(times[way], (size_t)rounds, sizeof times[way][0], by_value);
    }
    print_results(times, bytes, rounds / 4);
    return 0;
}
