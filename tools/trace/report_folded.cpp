// SPDX-License-Identifier: MIT
// Folded stacks, as flame graph tools read them.
#include <algorithm>

#include "words.h"

namespace vektrace {

namespace {

uint64_t figure(const CallNode &node, Order order)
{
    Numbers numbers;
    numbers.live = node.live;
    numbers.at_peak = node.at_peak;
    numbers.total = node.total;
    numbers.short_lived = node.short_lived;
    return vektrace::figure(numbers, order);
}

/** A function's name as a part of a line: the last blank ends the stack, ";" its frames. */
std::string folded_name(const CallNode &node)
{
    std::string name(node.function);
    std::replace_if(
        name.begin(), name.end(),
        [](char byte) { return byte == ';' || static_cast<unsigned char>(byte) < ' '; }, ':');
    return name;
}

void add_lines(const CallNode &node, const std::string &path, Order order, std::string &text)
{
    uint64_t own = figure(node, order);
    for (const CallNode &child : node.children) {
        own -= figure(child, order);
    }
    if (own != 0) {
        text += (path.empty() ? "unknown" : path) + ' ' + std::to_string(own) + '\n';
    }
    for (const CallNode &child : node.children) {
        add_lines(child, path.empty() ? folded_name(child) : path + ';' + folded_name(child), order,
                  text);
    }
}

} // namespace

std::string format_folded(const Report &report)
{
    std::string text;
    add_lines(report.calls, {}, report.sort, text);
    return text;
}

} // namespace vektrace
