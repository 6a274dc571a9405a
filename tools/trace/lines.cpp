// SPDX-License-Identifier: MIT
#include "reader.h"

namespace vektrace {

InputFacts read_lines(Input &, const ModuleMap &, Stacks &, EventSink &, const ProgressFunction &)
{
    return {};
}

} // namespace vektrace
