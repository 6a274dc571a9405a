// SPDX-License-Identifier: MIT
#include "report.h"

namespace vektrace {

Difference compare(const Report &, const Report &)
{
    return {};
}

std::string format_text(const Difference &, const TextOptions &)
{
    return {};
}

std::string format_json(const Difference &)
{
    return {};
}

} // namespace vektrace
