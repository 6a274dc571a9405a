// SPDX-License-Identifier: MIT
// One line on a terminal that says how far long work is.
#ifndef VEKTRACE_PROGRESS_H
#define VEKTRACE_PROGRESS_H

#include <chrono>
#include <string>

#include "input.h"

namespace vektrace {

/** Shows progress on the standard error stream if that is a terminal; else does nothing. */
class ProgressLine {
public:
    ProgressLine();
    ~ProgressLine() { clear(); }
    ProgressLine(const ProgressLine &) = delete;
    ProgressLine &operator=(const ProgressLine &) = delete;

    void show(const std::string &name, const Progress &progress);
    void show(const std::string &text);
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    bool enabled_;
    bool shown_ = false;
    std::string name_;        ///< of the file that is being read
    Clock::time_point start_; ///< of reading it
    Clock::time_point last_;
};

} // namespace vektrace

#endif
