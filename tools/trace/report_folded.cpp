// SPDX-License-Identifier: MIT
#include "report.h"

namespace vektrace {

std::string format_folded(const Report &)
{
    return {};
}

} // namespace vektrace
