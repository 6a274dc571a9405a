// SPDX-License-Identifier: MIT
#include "report.h"

namespace vektrace {

std::string format_text(const Report &, const TextOptions &)
{
    return {};
}

} // namespace vektrace
