// SPDX-License-Identifier: MIT
#include "patterns.h"

#include <algorithm>

#include "input.h"

namespace vektrace {

namespace {

/// Bytes of a name that a filter sees: the C++ library's search needs stack for each.
constexpr size_t most_searched = 4096;
/// Bytes of a filter: to compile it needs stack for each parenthesis.
constexpr size_t longest_filter = 1000;

std::regex compiled(const std::string &text)
{
    if (text.size() > longest_filter) {
        throw InputError("the filter is too long");
    }
    try {
        return std::regex(text, std::regex::ECMAScript | std::regex::optimize);
    } catch (const std::regex_error &) {
        throw InputError("'" + text + "' is no regular expression that can be used as a filter");
    }
}

} // namespace

Pattern::Pattern(std::string_view text) : at_begin_(text.starts_with('^')), at_end_(false)
{
    text.remove_prefix(at_begin_ ? 1 : 0);
    at_end_ = text.ends_with('$');
    text.remove_suffix(at_end_ ? 1 : 0);
    for (size_t star = text.find('*'); star != text.npos; star = text.find('*')) {
        pieces_.emplace_back(text.substr(0, star));
        text.remove_prefix(star + 1);
    }
    pieces_.emplace_back(text);
}

// The first place where a piece fits is as good as any later one, except for a last piece that
// has to end the text.
bool Pattern::matches(std::string_view text) const
{
    size_t begin = 0;
    for (size_t i = 0; i < pieces_.size(); i++) {
        const std::string &piece = pieces_[i];
        const bool is_last = i + 1 == pieces_.size();
        size_t found = text.find(piece, begin);
        if (is_last && at_end_) {
            found = text.size() >= begin + piece.size() && text.ends_with(piece)
                        ? text.size() - piece.size()
                        : text.npos;
        }
        if (found == text.npos || (i == 0 && at_begin_ && found != 0)) {
            return false;
        }
        begin = found + piece.size();
    }
    return true;
}

std::vector<std::string> read_suppressions(const std::string &path)
{
    Input input(path);
    std::string text;
    std::vector<char> chunk(65536);
    while (const size_t count = input.read(chunk)) {
        text.append(chunk.data(), count);
    }
    std::vector<std::string> patterns;
    size_t number = 0;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        std::string_view line(text.data() + begin, end - begin);
        begin = end + 1;
        number++;
        const auto first = std::min(line.find_first_not_of(" \t\r"), line.size());
        line.remove_prefix(first);
        line = line.substr(0, line.find_last_not_of(" \t\r") + 1);
        if (line.empty() || line.starts_with('#')) {
            continue;
        }
        if (!line.starts_with("leak:") || line.size() == 5) {
            throw InputError(input.name() + ", line " + std::to_string(number) + ": '" +
                             printable(line) + "' is neither leak:PATTERN nor a comment");
        }
        patterns.emplace_back(line.substr(5));
    }
    return patterns;
}

Filter::Filter(const std::string &text) : expression_(compiled(text)) {}

bool Filter::matches(const std::string &text) const
{
    return std::regex_search(text.substr(0, most_searched), expression_);
}

} // namespace vektrace
