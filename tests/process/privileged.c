/* SPDX-License-Identifier: MIT */
/* Obeys every variable that the library reads, unless it runs with privileges; exits with 0 if it
 * does. Starts a program that lists the files it inherits. */
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
    if (system("ls -l /proc/self/fd") != 0) { // a program of its own, which inherits no file
        return 1;
    }
    vek_debug_finalize();
    fflush(stdout);
    VEK_WARNING("fatal if the environment says so");
    return getauxval(AT_SECURE) != 0 ? 0 : 77;
}
