/* SPDX-License-Identifier: MIT */
/* Defines an entry point that never calls the library's original. */
#include <stdlib.h>

#include <veklib/veklib.h>

void *vek_malloc(size_t size) { return malloc(size); }

int main(void)
{
    char *const copy = vek_strdup("text");
    vek_free(vek_calloc(1, 3));
    return copy == NULL;
}
