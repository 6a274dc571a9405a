// SPDX-License-Identifier: MIT
// Which stacks a report suppresses or shows: patterns and filters, for the texts of their frames.
#ifndef VEKTRACE_PATTERNS_H
#define VEKTRACE_PATTERNS_H

#include <regex>
#include <string>
#include <string_view>
#include <vector>

namespace vektrace {

/** The pattern of `leak:pattern`: * stands for any text, ^ and $ for the beginning and the end. */
class Pattern {
public:
    explicit Pattern(std::string_view text);
    /** Whether it matches anywhere in the text. */
    bool matches(std::string_view text) const;

private:
    std::vector<std::string> pieces_; ///< between the stars
    bool at_begin_;
    bool at_end_;
};

/** Reads `leak:pattern` lines and skips empty ones and comments, which begin with #. Throws
 *  InputError, which names the first line that is none of these. */
std::vector<std::string> read_suppressions(const std::string &path);

/** A regular expression (ECMAScript). */
class Filter {
public:
    /** Throws InputError if the text is no such expression, or too long. */
    explicit Filter(const std::string &text);
    /** Whether it matches somewhere in the text. */
    bool matches(const std::string &text) const;

private:
    std::regex expression_;
};

} // namespace vektrace

#endif
