// SPDX-License-Identifier: MIT
// The readers: a recording, or the library's trace lines, to events. They throw InputError for what
// they cannot use, and take any bytes.
#ifndef VEKTRACE_READER_H
#define VEKTRACE_READER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "event.h"
#include "input.h"
#include "stacks.h"

namespace vektrace {

/** A line that is no trace line. */
struct ForeignLine {
    uint64_t number;  ///< from 1
    std::string text; ///< at most 120 bytes, unprintable ones as "\x1b"
};

/** What a reader found beside events. */
struct InputFacts {
    bool is_recording = false;
    uint64_t lines = 0;                     ///< lines, or events of a recording
    uint64_t foreign_lines = 0;             ///< lines that are no trace lines
    std::vector<ForeignLine> first_foreign; ///< the first three of them
    std::string torn; ///< the last line, if it has no end and is no whole trace line by itself
    /// Numbers of trace lines that are missing between the lowest and the highest.
    uint64_t missing_numbers = 0;

    // Of a recording:
    std::vector<std::string> command; ///< the command and its arguments
    uint32_t pid = 0;
    uint64_t start = 0;                  ///< seconds since 1970
    std::optional<unsigned> exit_status; ///< the argument of exit()
    std::string broken;                  ///< why the recording ended before the process did
    std::vector<std::string> notes;      ///< what the recording does not contain
};

/** A module's place in a process: from `start` up to, not including, `end`. */
struct MappedModule {
    ModuleId module;
    uint64_t start;
    uint64_t end;
    uint64_t bias; ///< address in the process minus address in the file
};

/** Where a process had its modules. */
class ModuleMap {
public:
    void add(const MappedModule &module);
    /** Removes the module that starts there, if there is one. */
    void remove(uint64_t start);
    FrameId frame(Stacks &stacks, uint64_t address) const;

private:
    std::vector<MappedModule> modules_; ///< by start
};

/** Reads a copy of /proc/PID/maps. The biases come from the program headers of the files, which are
 *  looked for below `sysroot`; without the file, the lowest mapping of a path counts as its start.
 *  Throws InputError if no line can be used, and names the first line that is none. */
ModuleMap read_modules(const std::string &path, const std::string &sysroot, Stacks &stacks);

/** Reads trace lines to their end. */
InputFacts read_lines(Input &input, const ModuleMap &modules, Stacks &stacks, EventSink &sink,
                      const ProgressFunction &progress = {});

/** Reads one file of a recording. What follows the first thing that cannot be understood is left
 *  unread, and `broken` says so. Throws InputError if it is no recording, or of another version. */
InputFacts read_recording(Input &input, Stacks &stacks, EventSink &sink,
                          const ProgressFunction &progress = {});

/** Tells whether the file begins like a recording. */
bool is_recording(const std::string &path);

} // namespace vektrace

#endif
