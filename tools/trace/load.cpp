// SPDX-License-Identifier: MIT
#include "load.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <tuple>
#include <utility>

#include <fmt/core.h>

namespace vektrace {

namespace fs = std::filesystem;

namespace {

class Loader {
public:
    Loader(const ModuleMap &modules, Stacks &stacks, const LoadProgress &progress)
        : modules_(modules), stacks_(stacks), progress_(progress)
    {
    }

    void load(const std::string &input)
    {
        std::error_code error;
        if (input != "-" && fs::is_directory(input, error)) {
            load_folder(input);
        } else {
            load_file(input, input, is_recording(input));
        }
    }

    std::vector<Process> take() { return std::move(processes_); }

private:
    void load_folder(const std::string &folder)
    {
        const std::vector<std::string> files = files_of(folder);
        if (files.empty()) {
            throw InputError(fmt::format(
                "{}: no recording: the folder has no file whose name ends in .vekrec", folder));
        }
        const size_t first = processes_.size();
        std::vector<std::string> empty;
        for (const std::string &file : files) {
            if (is_empty(file)) {
                empty.push_back(file);
            } else {
                load_file(file, folder, true);
            }
        }
        if (processes_.size() == first) {
            throw InputError(empty.front() + empty_file);
        }
        for (const std::string &file : empty) {
            processes_[first].facts.notes.push_back(file + empty_file);
        }
        read_status(folder, first);
    }

    static constexpr const char *empty_file =
        " is empty: the process ended before its first event, or the disk was full";

    /** Whether the file was made, but not even its header was written. */
    static bool is_empty(const std::string &file)
    {
        Input input(file);
        char first = '\0';
        return input.read({&first, 1}) == 0 || first == '\0';
    }

    void load_file(const std::string &file, const std::string &recording, bool binary)
    {
        Process process;
        process.input = file;
        process.recording = recording;
        const auto show = [&](const Progress &progress) { progress_(file, progress); };
        Input input(file);
        process.facts = binary ? read_recording(input, stacks_, process.history, show)
                               : read_lines(input, modules_, stacks_, process.history, show);
        process.history.finish();
        const InputFacts &facts = process.facts;
        if (!binary && facts.lines == facts.foreign_lines + !facts.torn.empty()) {
            throw InputError(no_trace(input.name(), facts));
        }
        if (process.facts.exit_status) {
            process.status = *process.facts.exit_status & 0xff;
        }
        processes_.push_back(std::move(process));
    }

    static std::string no_trace(const std::string &name, const InputFacts &facts)
    {
        if (facts.lines == 0) {
            return name + ": empty: neither a recording nor trace lines (run the program with "
                          "vek-record, or with VEK_MALLOC_TRACE=1)";
        }
        const std::string &first =
            facts.first_foreign.empty() ? facts.torn : facts.first_foreign[0].text;
        if (first.starts_with("VEKREC")) {
            return name + ": a recording can be read only from its file or folder";
        }
        return fmt::format("{}: neither a recording nor trace lines: none of its {} lines is one. "
                           "The first is: {}",
                           name, facts.lines, first);
    }

    // The script's file knows how the process that it started ended, even by a signal. After exec,
    // that is the last recording of this number. Where the times of two are the same, only the last
    // one can have reached exit(), and its file has the longer name if the command is the same.
    void read_status(const std::string &folder, size_t first)
    {
        std::ifstream file(fs::path(folder) / "status");
        uint32_t pid = 0;
        unsigned status = 0;
        if (!(file >> pid >> status)) {
            return;
        }
        const auto rank = [](const Process &process) {
            return std::tuple(process.facts.start, process.facts.exit_status.has_value(),
                              process.input.size());
        };
        Process *last = nullptr;
        for (size_t i = first; i < processes_.size(); ++i) {
            Process &process = processes_[i];
            if (process.facts.pid == pid && (last == nullptr || rank(process) > rank(*last))) {
                last = &process;
            }
        }
        if (last != nullptr) {
            last->status = status;
        }
    }

    const ModuleMap &modules_;
    Stacks &stacks_;
    const LoadProgress &progress_;
    std::vector<Process> processes_;
};

} // namespace

std::vector<std::string> files_of(const std::string &folder)
{
    std::vector<std::string> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().extension() == ".vekrec") {
            files.push_back(entry->path().string());
        }
    }
    if (error) {
        throw InputError(folder + ": " + error.message());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<Process> load(const std::vector<std::string> &inputs, const ModuleMap &modules,
                          Stacks &stacks, const LoadProgress &progress)
{
    Loader loader(modules, stacks, progress);
    for (const std::string &input : inputs) {
        loader.load(input);
    }
    return loader.take();
}

} // namespace vektrace
