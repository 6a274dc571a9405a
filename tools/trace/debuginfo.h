// SPDX-License-Identifier: MIT
// What a module's DWARF says about addresses: functions, inlined functions, files and lines.
#ifndef VEKTRACE_DEBUGINFO_H
#define VEKTRACE_DEBUGINFO_H

#include <cstdint>
#include <span>

#include <elfutils/libdw.h>

#include "symbols.h"

namespace vektrace {

/** A call whose place is wanted. */
struct Call {
    uint64_t address; ///< the last byte of the call instruction, as DWARF counts addresses
    FrameId frame;
    Places places; ///< empty as long as nothing is known
};

struct DebugFacts {
    bool has_units = false;
    bool lacks_split_units = false; ///< some .dwo files are missing
};

/** Finds the places of calls, which are sorted by address. A place may lack the function, if the
 *  debug information does not name it. */
DebugFacts find_places(Dwarf *dwarf, std::span<Call> calls);

/** Returns a function's name as people know it: demangled, without what the compiler appends to the
 *  names of parts and variants of functions (".cold", ".constprop.0"). */
std::string readable_name(const char *linkage_name);

} // namespace vektrace

#endif
