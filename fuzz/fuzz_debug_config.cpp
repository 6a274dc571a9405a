/* SPDX-License-Identifier: MIT */
/* Runs debug output from start to stop with a fuzzed configuration: a part of it is in a file, the
 * rest in the environment. The input's first byte says how much is in the file, the second which
 * request for memory fails (128 and above: it and all later ones), the third which fopen(). */
#include <veklib/vekdebug.h>

#include "support.h"

#include <climits>

#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

using namespace fuzz;

static unsigned opened;
static unsigned failing_open = UINT_MAX; // the fuzzer itself opens the null device

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

/** Requires that an operation succeeds, or returns 2 because a request has been refused. */
void require_done(int status) { require(status == 0 || (status == 2 && refused)); }

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

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const int file = memfd_create("configuration", 0);
    static const int first_free = dup(file);
    close(first_free);
    Input input = {data, size};
    const size_t in_file = input.byte();
    const unsigned request = input.byte();
    use_memory();
    refuse(request % 128, request >= 128);
    failing_open = input.byte();
    opened = 0;
    const std::string text = input.text(input.left * in_file / 255);
    require(ftruncate(file, 0) == 0);
    require(pwrite(file, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    setenv("VEK_DEBUG_CONFIG", input.text(input.left).c_str(), 1);
    run("/proc/self/fd/" + std::to_string(file));
    require(live == 0);

    const int next_free = dup(file); // a descriptor that was left open would raise it
    require(next_free == first_free);
    close(next_free);
    return 0;
}
