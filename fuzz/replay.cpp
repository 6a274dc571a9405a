/* SPDX-License-Identifier: MIT */
/* Runs a fuzz target as a test, without libFuzzer: `replay FOLDER COUNT` runs so many inputs, which
 * are the files of the folder, then changed copies of them. It silences the target. A failure says
 * how to repeat the input: `replay FOLDER 0 NUMBER` runs the one that failed, with output. */
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
std::vector<Bytes> files;

/** The beginning of one file and the end of another, with some bytes changed. */
Bytes changed(std::mt19937 random)
{
    const Bytes &end = files[random() % files.size()];
    Bytes bytes = files[random() % files.size()];
    bytes.resize(random() % (bytes.size() + 1));
    bytes.insert(bytes.end(), end.end() - static_cast<ptrdiff_t>(random() % (end.size() + 1)),
                 end.end());
    for (auto i = random() % 9; i > 0 && !bytes.empty(); --i) {
        bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
    }
    return bytes;
}

int run(size_t number)
{
    const Bytes bytes = number < files.size() ? files[number] : changed(std::mt19937(number));
    return LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 3) { return 2; }
    std::vector<std::filesystem::path> paths(std::filesystem::directory_iterator(argv[1]), {});
    std::sort(paths.begin(), paths.end());
    for (const auto &path : paths) {
        std::ifstream file(path, std::ios::binary);
        files.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    if (argc > 3) { return run(std::stoul(argv[3])); }

    const size_t count = std::stoul(argv[2]);
    void *const shared =
        mmap(nullptr, sizeof count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    std::atomic<size_t> &done = *new (shared) std::atomic<size_t>(0);
    if (fork() == 0) {
        static_cast<void>(freopen("/dev/null", "w", stdout) && freopen("/dev/null", "w", stderr));
        for (; done < count; ++done) { run(done); }
        exit(0); // as the counters of a coverage build need
    }
    int status = 0;
    wait(&status);
    if (status == 0 && done == count) { return 0; }
    printf("Status %#x. To repeat it: %s %s 0 %zu\n", static_cast<unsigned>(status), argv[0],
           argv[1], done.load());
    return 1;
}
