/* SPDX-License-Identifier: MIT */
/* A module that leaks and is unloaded. */
#include <veklib/veklib.h>

#include "leaky.h"

KEPT void *buffers[3];

static NOINLINE void open_channel(int i)
{
    buffers[i] = vek_malloc(512); /* expect: live plugin open_channel 3 */
}

void leak_in_plugin(void)
{
    for (int i = 0; i < 3; ++i) { open_channel(i); }
}
