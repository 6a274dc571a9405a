/* SPDX-License-Identifier: MIT */
/* Has the library read each of its environment variables, and starts a program that lists the files
 * it inherits. Exits with 0 if it has more privileges than its user, otherwise with 77, unless
 * VEK_FATAL_WARNINGS ends it. */
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
    if (system("ls -l /proc/self/fd") != 0) { // what is started inherits no file
        return 1;
    }
    vek_debug_finalize();
    fflush(stdout);
    VEK_WARNING("fatal if the environment says so");
    return getauxval(AT_SECURE) != 0 ? 0 : 77;
}
