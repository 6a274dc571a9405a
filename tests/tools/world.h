// SPDX-License-Identifier: MIT
// Processes, and symbols for them, that tests make up.
#ifndef VEKTRACE_TESTS_WORLD_H
#define VEKTRACE_TESTS_WORLD_H

#include <string>
#include <utility>
#include <vector>

#include "report.h"

namespace vektrace {

class World {
public:
    FrameId frame(const std::string &module, const Places &places)
    {
        symbols.places.push_back(places);
        return stacks.frame({stacks.module({module, ""}), 16 * symbols.places.size()});
    }

    StackId chain(const std::vector<FrameId> &frames, ChainEnd end = ChainEnd::whole)
    {
        return stacks.stack({frames.front(), frames, end});
    }

    StackId address(FrameId frame) { return stacks.stack({frame, {}, ChainEnd::none}); }

    Process &process(const std::string &recording)
    {
        Process &process = processes.emplace_back();
        process.input = recording + "/app.7.vekrec";
        process.recording = recording;
        process.facts.is_recording = true;
        process.facts.command = {"app", "the file"};
        process.facts.pid = 7;
        return process;
    }

    /** Adds what happens next in the last process, which has times if it is a recording. */
    void add(Event event)
    {
        Process &process = processes.back();
        event.line = ++process.facts.lines;
        if (process.facts.is_recording) { process.history.at_time(event.line * 100); }
        process.history.add(event);
    }
    uint64_t allocate(StackId stack, uint64_t bytes)
    {
        end_ += 0x100;
        add({Operation::malloc, false, false, stack, 0, bytes, end_, 0});
        return end_;
    }
    void release(StackId stack, uint64_t block)
    {
        add({Operation::free, false, false, stack, block, 0, 0, 0});
    }

    Report report(const ReportOptions &options = {})
    {
        for (; finished_ < processes.size(); finished_++) { processes[finished_].history.finish(); }
        return make_report(processes, stacks, symbols, options);
    }

    Stacks stacks;
    Symbols symbols;
    std::vector<Process> processes;

private:
    uint64_t end_ = 0xffff80001000; ///< of the blocks
    size_t finished_ = 0;
};

} // namespace vektrace

#endif
