/* SPDX-License-Identifier: MIT */
/* Runs a fuzz target as a test, without libFuzzer. With a folder and a count it runs each file of
 * the folder, then so many changed copies, without their output; a failure says how to repeat it:
 * with a file alone, or with the folder, 0 and the seed of a copy. */
#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

using Bytes = std::vector<uint8_t>;

Bytes content_of(const std::filesystem::path &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** The beginning of one file and the end of another, with some bytes changed. */
Bytes changed(const std::vector<std::filesystem::path> &files, unsigned seed)
{
    std::mt19937 random(seed);
    const Bytes end = content_of(files[random() % files.size()]);
    Bytes bytes = content_of(files[random() % files.size()]);
    bytes.resize(random() % (bytes.size() + 1));
    bytes.insert(bytes.end(), end.begin() + static_cast<ptrdiff_t>(random() % (end.size() + 1)),
                 end.end());
    for (auto i = random() % 9; i > 0 && !bytes.empty(); --i) {
        bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
    }
    return bytes;
}

int run(const Bytes &bytes) { return LLVMFuzzerTestOneInput(bytes.data(), bytes.size()); }

} // namespace

int main(int argc, char **argv)
{
    const std::filesystem::path path = argc > 1 ? argv[1] : "";
    if (!std::filesystem::is_directory(path)) { return argc == 2 ? run(content_of(path)) : 2; }
    std::vector<std::filesystem::path> files(std::filesystem::directory_iterator(path), {});
    std::sort(files.begin(), files.end());
    if (files.empty() || argc < 3) { return 2; }
    if (argc > 3) { return run(changed(files, static_cast<unsigned>(std::stoul(argv[3])))); }

    const size_t count = files.size() + std::stoul(argv[2]);
    void *const shared =
        mmap(nullptr, sizeof count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    std::atomic<size_t> &done = *new (shared) std::atomic<size_t>(0);
    const pid_t child = fork();
    if (child == 0) {
        static_cast<void>(freopen("/dev/null", "w", stdout) && freopen("/dev/null", "w", stderr));
        for (size_t i = 0; i < count; done = ++i) {
            run(i < files.size() ? content_of(files[i])
                                 : changed(files, static_cast<unsigned>(i - files.size())));
        }
        exit(0); // as the counters of a coverage build need
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (status == 0 && done == count) { return 0; }
    const bool is_file = done < files.size();
    printf("Status %#x. To repeat it: %s %s%s\n", static_cast<unsigned>(status), argv[0],
           is_file ? files[done].c_str() : path.c_str(),
           is_file ? "" : (" 0 " + std::to_string(done - files.size())).c_str());
    return 1;
}
