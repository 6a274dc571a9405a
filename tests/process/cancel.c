/* SPDX-License-Identifier: MIT */
/* usage: cancel PLUGIN - checks that a thread that is cancelled during a warning releases the
 * stream's lock, and that cleanup handlers run, those of a plug-in included. Written in C, because
 * a program that needs libgcc_s itself would load it first in any case. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <pthread.h>
#include <stdio.h>
#include <unistd.h>

#include <veklib/vekdiag.h>

static void *warn_for_ever(void *unused)
{
    for (;;) { VEK_WARNING("again"); }
    return unused;
}

static void cancel_after(useconds_t microseconds, void *(*run)(void *), void *argument)
{
    pthread_t thread;
    pthread_create(&thread, NULL, run, argument);
    usleep(microseconds);
    pthread_cancel(thread);
    pthread_join(thread, NULL);
}

int main(int argc, char **argv)
{
    void *const plugin = argc == 2 ? dlopen(argv[1], RTLD_NOW) : NULL;
    void *(*wait_for_ever)(void *) = NULL;
    if (plugin == NULL) { return 2; }
    *(void **)&wait_for_ever = dlsym(plugin, "wait_for_ever");
    int cleaned = 0;
    cancel_after(1000, wait_for_ever, &cleaned);
    if (!cleaned) {
        puts("the plug-in's cleanup handler did not run");
        return 1;
    }

    alarm(30); /* a lock that stayed held would block the program for ever */
    vek_set_warnings_fatal(0);
    if (freopen("/dev/null", "w", stderr) == NULL) { return 2; }
    for (int round = 0; round < 500; ++round) {
        cancel_after(200, warn_for_ever, NULL);
        fprintf(stderr, "round %d\n", round);
    }
    return 0;
}
