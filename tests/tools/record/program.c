/* SPDX-License-Identifier: MIT */
/* What the tests of vek-record run: the first argument says what it does. */
#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <veklib/veklib.h>

static void *volatile kept;

static int every_operation(void)
{
    char *block = vek_malloc(10);
    void *const cells = vek_calloc(3, 7);
    block = vek_realloc(block, 50);
    vek_free(cells);
    kept = vek_realloc(block, 0);
    vek_free(vek_realloc(NULL, 5));
    vek_free(vek_malloc_if_possible(11));
    vek_free(vek_malloc_if_available(12));
    kept = vek_malloc(SIZE_MAX / 2);
    vek_malloc_set_error(1);
    kept = vek_malloc(9);
    vek_malloc_set_error(0);
    return 3;
}

/* Has no unwind tables on x86-64: an unwinder may follow the register that points to no frame. */
#ifdef __x86_64__
void *allocate_with_frame(uintptr_t frame);
__asm__(".text\nallocate_with_frame:\n"
        "push %rbp\nmov %rdi, %rbp\nmov $24, %edi\ncall vek_malloc@PLT\npop %rbp\nret\n");
#else
static void *allocate_with_frame(uintptr_t frame) { return vek_malloc(frame != 0 ? 24 : 25); }
#endif

static void *allocate_with_frames(void *unreadable)
{
    for (uintptr_t i = 0; i != 500; ++i) {
        vek_free(allocate_with_frame(i));
        vek_free(allocate_with_frame((uintptr_t)unreadable));
    }
    return NULL;
}

static int hostile(void)
{
    clearenv();
    int files[2];
    char text[8];
    vek_free(vek_malloc(1));
    for (int fd = 3; fd != 1024; ++fd) { close(fd); }
    if (pipe(files) != 0 || write(files[1], "abcdefg", 8) != 8) { return 1; }
    pthread_t thread;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 16384);
    void *const unreadable = mmap(NULL, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pthread_create(&thread, &attributes, allocate_with_frames, unreadable) != 0) { return 2; }
    if (syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0) == 0) { /* a child that no handler hears of */
        for (int i = 0; i != 1000; ++i) { kept = vek_malloc(1); }
        _exit(0);
    }
    pthread_join(thread, NULL);
    return read(files[0], text, 8) == 8 && memcmp(text, "abcdefg", 8) == 0 ? 0 : 3;
}

static int children(const char *self)
{
    kept = vek_malloc(1);
    if (fork() == 0) {
        kept = vek_malloc(1000);
        execl(self, self, "table", (char *)NULL);
    }
    wait(NULL);
    kept = vek_malloc(2);
    execl(self, self, "every_operation", (char *)NULL);
    return 1;
}

/* Each plug-in is gone when the next one comes, often to the same place. */
static int plugins(char **paths)
{
    for (; *paths != NULL; ++paths) {
        void *const plugin = dlopen(*paths, RTLD_NOW);
        void (*allocate)(void);
        *(void **)&allocate = dlsym(plugin, "allocate");
        allocate();
        allocate();
        dlclose(plugin);
    }
    return 0;
}

static void *work(void *unused)
{
    for (size_t i = 1; i <= 20000; ++i) { vek_free(vek_malloc(i)); }
    return unused;
}

static int threads(void)
{
    pthread_t all[4];
    for (int i = 0; i != 4; ++i) { pthread_create(&all[i], NULL, work, NULL); }
    for (int i = 0; i != 4; ++i) { pthread_join(all[i], NULL); }
    return 0;
}

/* A table whose operation uses the library itself. */
static VekMemoryVtable own;
static void *own_realloc(void *block, size_t size, void *return_address)
{
    void *const moved = vek_malloc_with_return(size, return_address);
    vek_free_with_return(block, return_address);
    return moved;
}

static int table(void)
{
    own = *vek_get_memory_vtable();
    own.realloc = own_realloc;
    vek_set_memory_vtable(&own);
    const bool is_own = memcmp(vek_get_memory_vtable(), &own, sizeof own) == 0;
    kept = vek_realloc(vek_malloc(8), 16);
    vek_set_memory_vtable(NULL);
    vek_free(kept);
    return !is_own || vek_get_memory_vtable()->realloc == own_realloc;
}

/* Fills more than one window, after closing files that it does not know, as daemons do. */
static int many(void)
{
    kept = vek_malloc(1);
    for (int fd = 3; fd != 1024; ++fd) { close(fd); }
    vek_free(kept);
    for (size_t i = 0; i != 200000; ++i) { vek_free(vek_malloc(i % 1000 + 1)); }
    return 7;
}

/* Waits for a signal, once it can come. */
static int waiting(void)
{
    kept = vek_malloc(1);
    puts("ready");
    fflush(stdout);
    return pause();
}

static int usual_signals(void)
{
    return signal(SIGINT, SIG_DFL) != SIG_DFL || signal(SIGQUIT, SIG_DFL) != SIG_DFL;
}

int main(int argc, char **argv)
{
    const char *const mode = argc > 1 ? argv[1] : "";
#define MODE(name) strcmp(mode, #name) == 0
    return MODE(every_operation) ? every_operation()
           : MODE(hostile)       ? hostile()
           : MODE(children)      ? children(argv[0])
           : MODE(plugins)       ? plugins(argv + 2)
           : MODE(threads)       ? threads()
           : MODE(table)         ? table()
           : MODE(many)          ? many()
           : MODE(waiting)       ? waiting()
           : MODE(usual_signals) ? usual_signals()
                                 : 2;
}
