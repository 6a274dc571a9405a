// SPDX-License-Identifier: MIT
// Resolves the code addresses on standard input (hexadecimal, one a line), as addr2line -fiC does,
// so that both can be compared: trace_symbols FILE <ADDRESSES
#include <cstdio>
#include <iostream>
#include <string>

#include "symbols.h"

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fputs("usage: trace_symbols FILE <ADDRESSES\n", stderr);
        return 2;
    }
    vektrace::Stacks stacks;
    const vektrace::ModuleId module = stacks.module({argv[1], {}});
    std::vector<vektrace::FrameId> frames;
    for (std::string line; std::getline(std::cin, line);) {
        // A return address is one byte after the last byte of the call.
        frames.push_back(stacks.frame({module, std::stoull(line, nullptr, 16) + 1}));
    }
    const vektrace::Symbols symbols = vektrace::resolve(stacks, {});
    for (const vektrace::FrameId frame : frames) {
        for (const vektrace::Place &place : symbols.places[frame]) {
            std::printf("%s\n%s:%u\n", place.function.empty() ? "??" : place.function.c_str(),
                        place.file.empty() ? "??" : place.file.c_str(), place.line);
        }
    }
    for (const vektrace::ModuleProblem &problem : symbols.problems) {
        std::fprintf(stderr, "%s\n", problem.text.c_str());
    }
    return 0;
}
