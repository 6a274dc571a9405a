// SPDX-License-Identifier: MIT
#include "report.h"

namespace vektrace {

std::string format_html(const Report &)
{
    return {};
}

} // namespace vektrace
