/* SPDX-License-Identifier: MIT */
/* Makes the library read its environment variables, and starts a program that lists the files that
 * it inherits. Exits with 0 if this program has more privileges than its user, otherwise with 77,
 * unless VEK_FATAL_WARNINGS ends it. */
#include <stdio.h>
#include <stdlib.h>
#include <sys/auxv.h>
#include <veklib/vekdebug.h>
#include <veklib/vekdiag.h>
#include <veklib/vekmemory.h>

int main(void)
{
    vek_free(vek_malloc(1));
    vek_debug_initialize(NULL, NULL);
    if (system("ls -l /proc/self/fd") != 0) { // test_privileged.sh searches this list
        return 1;
    }
    vek_debug_finalize();
    fflush(stdout);
    VEK_WARNING("fatal if the environment says so");
    return getauxval(AT_SECURE) != 0 ? 0 : 77;
}
