// SPDX-License-Identifier: MIT
// Which files on this machine belong to a module of the device.
#ifndef VEKTRACE_ELF_FILES_H
#define VEKTRACE_ELF_FILES_H

#include <string>

#include "stacks.h"
#include "symbols.h"

namespace vektrace {

struct ModuleFiles {
    std::string elf; ///< the program or shared object, or its debug file alone; empty if not found
    std::string debug;    ///< its separate debug information; empty if none was found by name
    std::string build_id; ///< of both; empty if the files have none
    /// Why `elf` is empty; else which debug files were refused, empty if none was.
    std::string problem;
};

/** Looks for a module's files. `exe` is the file that the user named for this module, or empty. */
ModuleFiles find_files(const Module &module, const SymbolOptions &options, const std::string &exe);

/** Returns the build-id of a file; empty if it has none or cannot be read. */
std::string build_id_of(const std::string &path);

} // namespace vektrace

#endif
