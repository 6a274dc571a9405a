// SPDX-License-Identifier: MIT
#include "progress.h"

#include <cstdio>

#include <fmt/core.h>
#include <unistd.h>

namespace vektrace {

using namespace std::chrono_literals;

ProgressLine::ProgressLine() : enabled_(isatty(STDERR_FILENO) == 1) {}

void ProgressLine::show(const std::string &name, const Progress &progress)
{
    if (!enabled_) {
        return;
    }
    const auto now = Clock::now();
    if (name != name_) {
        name_ = name;
        start_ = now;
        last_ = now; // a short file shows nothing
    }
    if (now - last_ < 100ms) {
        return;
    }
    last_ = now;

    const double seconds = std::chrono::duration<double>(now - start_).count();
    const auto bytes = static_cast<double>(progress.bytes);
    std::string share;
    if (progress.size && *progress.size >= progress.bytes && *progress.size > 0) {
        share = fmt::format("{:3.0f} %  ", 100 * bytes / static_cast<double>(*progress.size));
    }
    show(fmt::format("reading {}: {}{:.1f} million lines, {:.0f} MB/s", name, share,
                     static_cast<double>(progress.events) / 1e6, bytes / 1e6 / seconds));
}

void ProgressLine::show(const std::string &text)
{
    if (enabled_) {
        // Cut at the terminal's right edge instead of wrapping.
        fmt::print(stderr, "\r\x1b[?7l{}\x1b[K\x1b[?7h", text);
        std::fflush(stderr);
        shown_ = true;
    }
}

void ProgressLine::clear()
{
    if (shown_) {
        fmt::print(stderr, "\r\x1b[K");
        std::fflush(stderr);
        shown_ = false;
    }
}

} // namespace vektrace
