/* SPDX-License-Identifier: MIT */
/* Runs debug output from start to stop with a fuzzed configuration: a part of it is in a file, the
 * rest in the environment. The input's first byte says how much is in the file, the second which
 * request for memory fails (128 and above: it and all later ones), the third which fopen(). */
#include <veklib/vekdebug.h>
#include <veklib/vekmemory.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

unsigned asked;
unsigned failing_request; // counted from 1; 0: none
bool failing_onward;
unsigned live;
unsigned opened;
unsigned failing_open = UINT_MAX; // the fuzzer itself opens the null device

bool failed() { return failing_request != 0 && asked >= failing_request; }

void *allocate(size_t size, void *)
{
    ++asked;
    if (asked == failing_request || (failing_onward && failed())) { return nullptr; }
    ++live;
    return malloc(size);
}

void *allocate_zeros(size_t count, size_t size, void *caller)
{
    void *const block = allocate(count * size, caller);
    return block != nullptr ? memset(block, 0, count * size) : nullptr;
}

void release(void *block, void *)
{
    --live;
    free(block);
}

void *reallocate(void *block, size_t size, void *)
{
    void *const moved = allocate(size, nullptr);
    if (moved != nullptr && block != nullptr) {
        memcpy(moved, block, std::min(size, malloc_usable_size(block)));
        release(block, nullptr);
    }
    return moved;
}

} // namespace

/* Settings name files to write to. Whatever the names are, writing goes to the null device. (The
 * fuzzer itself writes its findings in mode "wb".) */
extern "C" FILE *fopen(const char *path, const char *mode)
{
    static const auto original =
        reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "fopen"));
    if (strcmp(mode, "w") != 0) { return original(path, mode); }
    return opened++ == failing_open ? nullptr : original("/dev/null", mode);
}

namespace {

void require(bool condition)
{
    if (!condition) { abort(); }
}

/** Requires that an operation succeeds, or returns 2 because a request has failed. */
void require_done(int status) { require(status == 0 || (status == 2 && failed())); }

void run(const std::string &path)
{
    static const char *const flags[] = {"a", "b", "net", nullptr};
    if (const int status = vek_debug_initialize(path.c_str(), nullptr); status != 0) {
        require_done(status);
        require(vek_debug_get_domain("one") == nullptr);
        return; // with nothing left to release
    }
    require_done(vek_debug_add_domain("one", flags));
    require_done(vek_debug_add_domain("two", flags + 1));
    vek_debug_print(vek_debug_get_domain("one"), 4, "%s", "text");
    vek_debug_print(nullptr, 0, "%s", "text");
    require_done(vek_debug_set_output_setting("a", "b"));
    require_done(vek_debug_reload_config());
    vek_debug_print(vek_debug_get_domain("two"), 1, "%s", "text");
    vek_debug_set_autoflush(false);
    vek_debug_flush(vek_debug_get_domain("one"), 2);
    require_done(vek_debug_set_config(nullptr, "."));
    require_done(vek_debug_reload_config());
    vek_debug_finalize();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size)
{
    static const int file = memfd_create("configuration", 0);
    static const int first_free = dup(file);
    close(first_free);
    if (size < 3) { return 0; }
    VekMemoryVtable table = {}; // the operations that the library calls
    table.malloc = allocate;
    table.calloc = allocate_zeros;
    table.realloc = reallocate;
    table.free = release;
    vek_set_memory_vtable(&table);
    asked = opened = 0;
    failing_request = data[1] % 128;
    failing_onward = data[1] >= 128;
    failing_open = data[2];
    const std::string text(reinterpret_cast<const char *>(data) + 3, size - 3);
    const size_t length = text.size() * data[0] / 255;
    require(ftruncate(file, 0) == 0);
    require(pwrite(file, text.data(), length, 0) == static_cast<ssize_t>(length));
    setenv("VEK_DEBUG_CONFIG", text.c_str() + length, 1);
    run("/proc/self/fd/" + std::to_string(file));
    require(live == 0);

    const int next_free = dup(file); // a descriptor that was left open would raise it
    require(next_free == first_free);
    close(next_free);
    return 0;
}
