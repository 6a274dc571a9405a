/* SPDX-License-Identifier: MIT */
/* A plug-in whose cleanup handlers run while the stack is unwound. */
#include <pthread.h>
#include <unistd.h>

static void note(void *cleaned) { *(int *)cleaned = 1; }

void *wait_for_ever(void *cleaned);
void *wait_for_ever(void *cleaned)
{
    pthread_cleanup_push(note, cleaned);
    for (;;) { pause(); }
    pthread_cleanup_pop(0);
    return NULL;
}
