/* SPDX-License-Identifier: MIT */
/* Loads the library while it runs. */
#include <dlfcn.h>
#include <stddef.h>

int main(int argc, char **argv)
{
    void *const library = argc > 1 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    void *(*allocate)(size_t size);
    if (library == NULL) { return 1; }
    *(void **)&allocate = dlsym(library, "vek_malloc");
    return allocate(77) == NULL;
}
