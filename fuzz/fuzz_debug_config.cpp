/* SPDX-License-Identifier: MIT */
/* Runs debug output from start to stop with a fuzzed configuration: a part of it is in a file, the
 * rest in the environment. The input's first byte says how much is in the file. */
#include <veklib/vekdebug.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

/* Settings name files to write to. Whatever the names are, writing goes to the null device. (The
 * fuzzer itself writes its findings in mode "wb".) */
extern "C" FILE *fopen(const char *path, const char *mode)
{
    static const auto original =
        reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "fopen"));
    return original(strcmp(mode, "w") == 0 ? "/dev/null" : path, mode);
}

namespace {

void require(bool condition)
{
    if (!condition) {
        abort();
    }
}

void live(const std::string &path)
{
    static const char *const flags[] = {"a", "b", "net", nullptr};
    require(vek_debug_initialize(path.c_str(), nullptr) == 0);
    vek_debug_add_domain("one", flags);
    vek_debug_add_domain("two", flags + 1);
    vek_debug_print(vek_debug_get_domain("one"), 4, "%s", "text");
    vek_debug_print(nullptr, 0, "%s", "text");
    vek_debug_set_output_setting("a", "b");
    require(vek_debug_reload_config() == 0);
    vek_debug_print(vek_debug_get_domain("two"), 1, "%s", "text");
    vek_debug_finalize();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size)
{
    static const int file = memfd_create("configuration", 0);
    static const int first_free = dup(file);
    close(first_free);
    if (size == 0) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const size_t length = text.size() * data[0] / 255;
    require(ftruncate(file, 0) == 0);
    require(pwrite(file, text.data(), length, 0) == static_cast<ssize_t>(length));
    setenv("VEK_DEBUG_CONFIG", text.c_str() + length, 1);
    live("/proc/self/fd/" + std::to_string(file));

    const int next_free = dup(file); // a descriptor that was left open would raise it
    require(next_free == first_free);
    close(next_free);
    return 0;
}
