/* SPDX-License-Identifier: MIT */
/* Compiled as two modules, which differ in their name and this one size. */
#include <veklib/vekmemory.h>

static void *volatile kept;

void allocate(void);
void allocate(void) { kept = vek_malloc(PLUGIN_SIZE); }
