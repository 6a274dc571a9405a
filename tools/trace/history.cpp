// SPDX-License-Identifier: MIT
#include "history.h"

namespace vektrace {

class History::Impl {
public:
    Totals totals;
};

History::History() : impl_(std::make_unique<Impl>()) {}
History::~History() = default;
History::History(History &&) noexcept = default;
History &History::operator=(History &&) noexcept = default;

void History::add(const Event &) {}

void History::at_time(uint64_t) {}

void History::finish() {}

const Totals &History::totals() const
{
    return impl_->totals;
}

std::span<const StackTotals> History::stacks() const
{
    return {};
}

std::span<const Fault> History::faults() const
{
    return {};
}

std::span<const Moment> History::moments() const
{
    return {};
}

} // namespace vektrace
