// SPDX-License-Identifier: MIT
// What the command line names, to processes: opens recordings and traces and has them read.
#ifndef VEKTRACE_LOAD_H
#define VEKTRACE_LOAD_H

#include <functional>
#include <string>
#include <vector>

#include "input.h"
#include "reader.h"
#include "report.h"
#include "stacks.h"

namespace vektrace {

/** Called with the name of the file that is being read. */
using LoadProgress = std::function<void(const std::string &name, const Progress &progress)>;

/** The files of a recording, sorted by name. Throws InputError. */
std::vector<std::string> files_of(const std::string &folder);

/** Reads recordings (folders, or single files of one) and files of trace lines; "-" is the
 *  standard input. `modules` says where the processes of trace lines had their modules. Throws
 *  InputError. */
std::vector<Process> load(const std::vector<std::string> &inputs, const ModuleMap &modules,
                          Stacks &stacks, const LoadProgress &progress);

} // namespace vektrace

#endif
