// SPDX-License-Identifier: MIT
// Return addresses to functions, files and lines.
#ifndef VEKTRACE_SYMBOLS_H
#define VEKTRACE_SYMBOLS_H

#include <cstdint>
#include <string>
#include <vector>

#include "stacks.h"

namespace vektrace {

/** A place in the source. What is unknown is empty or 0. */
struct Place {
    std::string function; ///< demangled
    std::string file;     ///< as the debug information has it
    unsigned line = 0;
    bool operator==(const Place &) const = default;
};

/** A frame's code: the function that contains the call, then the functions that it was inlined
 *  into, if any. Never empty; if nothing is known, it is one empty place. */
using Places = std::vector<Place>;

struct SymbolOptions {
    std::string sysroot;                 ///< goes before the paths of modules; may be empty
    std::vector<std::string> debug_dirs; ///< folders with .build-id/ or .debug files
    /// The program's file, if it is elsewhere. It stands for the modules with its build-id, else
    /// for the first one that is a program; and for addresses without a module.
    std::string exe;
};

/** Why a module has no symbols or less than there could be. */
struct ModuleProblem {
    ModuleId module;
    std::string text; ///< for a person: "PATH has build-id Y, wanted is X"
    bool operator==(const ModuleProblem &) const = default;
};

struct Symbols {
    std::vector<Places> places;          ///< by FrameId
    std::vector<ModuleProblem> problems; ///< of modules that have frames
};

/** Finds the places of all frames. It never fails as a whole: frames that cannot be resolved have
 *  an empty place, and a problem says why. */
Symbols resolve(const Stacks &stacks, const SymbolOptions &options);

/** A place as "module+0x1234" where there is no symbol; the module by its last name. */
std::string raw_place(const Stacks &stacks, FrameId frame);

/** Whether it is the library itself, by its file's name. */
bool is_library(const Module &module);

} // namespace vektrace

#endif
