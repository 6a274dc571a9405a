// SPDX-License-Identifier: MIT
#include "report.h"

namespace vektrace {

std::string format_massif(const Report &)
{
    return {};
}

} // namespace vektrace
