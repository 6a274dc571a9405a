// SPDX-License-Identifier: MIT
#include "report.h"

namespace vektrace {

std::string format_json(const Report &)
{
    return {};
}

} // namespace vektrace
