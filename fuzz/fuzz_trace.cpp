/* SPDX-License-Identifier: MIT */
/* Reads fuzzed input as vek-trace does and writes every report about it. The input's first byte
 * says what it is: trace lines, a recording, a copy of /proc/PID/maps, or an ELF file that such a
 * copy names. */
#include "input.h"
#include "reader.h"
#include "report.h"

#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

using namespace vektrace;

namespace {

/* Paths of modules lead nowhere: whatever they name, this machine's files are not read. */
constexpr const char *nowhere = "/nonexistent";

void require(bool condition)
{
    if (!condition) { abort(); }
}

/** A file in memory, with a path of its own. */
class File {
public:
    explicit File(std::span<const char> content)
    {
        require(write(fd_, content.data(), content.size()) == static_cast<ssize_t>(content.size()));
    }
    ~File() { close(fd_); }
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_ = memfd_create("input", 0);
};

void write_reports(Process process, const Stacks &stacks)
{
    process.history.finish();
    std::vector<Process> processes;
    processes.push_back(std::move(process));
    SymbolOptions symbols;
    symbols.sysroot = nowhere;
    const Symbols found = resolve(stacks, symbols);
    for (const Grouping by : {Grouping::site, Grouping::stack}) {
        ReportOptions options;
        options.by = by;
        const Report report = make_report(processes, stacks, found, options);
        const std::string text = format_text(report, {}) + format_json(report) +
                                 format_html(report) + format_folded(report) +
                                 format_massif(report) + format_text(compare(report, report), {});
        require(!text.empty());
    }
}

void read_input(char kind, std::span<const char> content)
{
    Stacks stacks;
    Process process;
    Input input(content);
    switch (kind) {
    case 'l': process.facts = read_lines(input, {}, stacks, process.history); break;
    case 'r': process.facts = read_recording(input, stacks, process.history); break;
    case 'm': {
        const File maps(content);
        const ModuleMap modules = read_modules(maps.path(), nowhere, stacks);
        static constexpr char lines[] = "0x1234: vek_malloc(1) => 0x1 [#1]\n"
                                        "0x7f0000001234: vek_malloc(1) => 0x2 [#2]\n";
        Input trace(std::span<const char>{lines, sizeof lines - 1});
        process.facts = read_lines(trace, modules, stacks, process.history);
        break;
    }
    case 'e': {
        const File program(content);
        const std::string line = "400000-401000 r-xp 00000000 00:01 1 " + program.path() + "\n";
        read_modules(File(line).path(), "", stacks);
        return;
    }
    default: return;
    }
    write_reports(std::move(process), stacks);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size)
{
    if (size > 0) {
        try {
            read_input(static_cast<char>(data[0]),
                       {reinterpret_cast<const char *>(data) + 1, size - 1});
        } catch (const InputError &) { // a message for the user
        }
    }
    return 0;
}
