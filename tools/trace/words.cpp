// SPDX-License-Identifier: MIT
#include "words.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <fmt/format.h>

namespace vektrace {

// ---- Names ----

std::string_view name(Grouping by)
{
    switch (by) {
    case Grouping::site:
        return "site";
    case Grouping::function:
        return "function";
    case Grouping::file:
        return "file";
    case Grouping::module:
        return "module";
    case Grouping::stack:
        return "stack";
    }
    return {};
}

std::string_view name(Order order)
{
    switch (order) {
    case Order::live:
        return "live";
    case Order::peak:
        return "peak";
    case Order::total:
        return "total";
    case Order::count:
        return "count";
    case Order::short_lived:
        return "short-lived";
    }
    return {};
}

std::string_view name(FaultKind kind)
{
    switch (kind) {
    case FaultKind::released_twice:
        return "released_twice";
    case FaultKind::resized_after_release:
        return "resized_after_release";
    case FaultKind::released_unknown:
        return "released_unknown";
    case FaultKind::resized_unknown:
        return "resized_unknown";
    case FaultKind::allocated_while_live:
        return "allocated_while_live";
    case FaultKind::impossible_size:
        return "impossible_size";
    }
    return {};
}

std::string_view name(ChainEnd end)
{
    switch (end) {
    case ChainEnd::none:
        return "none";
    case ChainEnd::whole:
        return "whole";
    case ChainEnd::cut:
        return "cut";
    case ChainEnd::limited:
        return "limited";
    }
    return {};
}

std::string_view name(Change::Kind kind)
{
    switch (kind) {
    case Change::Kind::grew:
        return "grew";
    case Change::Kind::shrank:
        return "shrank";
    case Change::Kind::came:
        return "came";
    case Change::Kind::went:
        return "went";
    }
    return {};
}

// ---- Words ----

FaultWords words(FaultKind kind)
{
    switch (kind) {
    case FaultKind::released_twice:
        return {"released twice", "allocated by", "released first by", "released again by"};
    case FaultKind::resized_after_release:
        return {"resized after its release", "allocated by", "released by", "resized by"};
    case FaultKind::released_unknown:
        return {"released without having been allocated", "", "", "released by"};
    case FaultKind::resized_unknown:
        return {"resized without having been allocated", "", "", "resized by"};
    case FaultKind::allocated_while_live:
        return {"allocated while live", "allocated first by", "", "allocated again by"};
    case FaultKind::impossible_size:
        return {"impossible size", "", "", "requested by"};
    }
    return {};
}

std::string_view words(Order order)
{
    switch (order) {
    case Order::live:
        return "bytes live at the end";
    case Order::peak:
        return "bytes live at the peak";
    case Order::total:
        return "bytes allocated";
    case Order::count:
        return "blocks allocated";
    case Order::short_lived:
        return "short-lived blocks";
    }
    return {};
}

// A shell shows a signal as 128 + its number; an argument of exit() above 128 looks the same, but
// the recording has that.
std::string ending(const ProcessSummary &process)
{
    if (process.facts.exit_status) {
        return fmt::format("exited with {}", *process.facts.exit_status & 0xffU);
    }
    if (!process.status) {
        return process.facts.is_recording
                   ? "no end was recorded: killed, still running, or replaced by another program"
                   : "";
    }
    if (*process.status > 128) {
        const unsigned signal = *process.status - 128;
        const char *const signal_name = sigabbrev_np(static_cast<int>(signal));
        return signal_name != nullptr ? fmt::format("killed by SIG{} ({})", signal_name, signal)
                                      : fmt::format("killed by signal {}", signal);
    }
    return fmt::format("exited with {}", *process.status);
}

// ---- Numbers ----

std::string format_count(uint64_t number)
{
    std::string text = std::to_string(number);
    for (size_t end = text.size(); end > 3; end -= 3) {
        text.insert(end - 3, 1, ',');
    }
    return text;
}

std::string format_count(uint64_t number, std::string_view noun, std::string_view plural)
{
    std::string text = fmt::format("{} ", format_count(number));
    if (number == 1) {
        return text.append(noun);
    }
    return plural.empty() ? text.append(noun).append("s") : text.append(plural);
}

std::string format_bytes(uint64_t number)
{
    if (number < 1024) {
        return fmt::format("{} B", number);
    }
    constexpr std::array units = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double value = static_cast<double>(number) / 1024;
    size_t unit = 0;
    while (value >= 1023.5 && unit + 1 < units.size()) {
        value /= 1024;
        unit++;
    }
    const int digits = value < 9.995 ? 2 : value < 99.95 ? 1 : 0;
    return fmt::format("{:.{}f} {}", value, digits, units[unit]);
}

std::string format_percent(uint64_t part, uint64_t whole)
{
    if (whole == 0) {
        return "-";
    }
    const double value = 100 * static_cast<double>(part) / static_cast<double>(whole);
    return part != 0 && value < 0.1 ? "<0.1 %" : fmt::format("{:.1f} %", value);
}

std::string format_duration(uint64_t milliseconds)
{
    const uint64_t seconds = milliseconds / 1000;
    const uint64_t minutes = seconds / 60;
    if (milliseconds < 1000) {
        return fmt::format("{} ms", milliseconds);
    }
    if (minutes < 1) {
        return fmt::format("{}.{} s", seconds, milliseconds % 1000 / 100);
    }
    if (minutes < 60) {
        return fmt::format("{} min {:02} s", minutes, seconds % 60);
    }
    return fmt::format("{} h {:02} min", minutes / 60, minutes % 60);
}

// ---- Places ----

std::string file_and_line(const SourceFrame &frame)
{
    return frame.line == 0 ? frame.file : fmt::format("{}:{}", frame.file, frame.line);
}

std::string place(const SourceFrame &frame)
{
    std::string text = frame.function;
    if (!frame.file.empty()) {
        text += (text.empty() ? "" : " at ") + file_and_line(frame);
    }
    if (!frame.module.empty() && !is_raw(frame)) {
        text += (text.empty() ? "" : ", ") + frame.module;
    }
    return text.empty() ? "unknown" : text;
}

bool is_raw(const SourceFrame &frame)
{
    return frame.function.starts_with(frame.module.empty() ? "0x" : frame.module + "+0x");
}

// ---- What the formats have in common ----

bool counts_blocks(Order order)
{
    return order == Order::count || order == Order::short_lived;
}

uint64_t figure(const Numbers &numbers, Order order)
{
    switch (order) {
    case Order::live:
        return numbers.live.bytes;
    case Order::peak:
        return numbers.at_peak.bytes;
    case Order::total:
        return numbers.total.bytes;
    case Order::count:
        return numbers.total.blocks;
    case Order::short_lived:
        return numbers.short_lived;
    }
    return 0;
}

uint64_t mean(const Numbers &numbers)
{
    const uint64_t blocks = numbers.total.blocks;
    return blocks == 0
               ? 0
               : numbers.total.bytes / blocks + (numbers.total.bytes % blocks * 2 >= blocks);
}

size_t site_begin(const std::vector<SourceFrame> &stack)
{
    const auto found =
        std::find_if(stack.begin(), stack.end(), [](const auto &frame) { return !frame.library; });
    return found == stack.end() ? 0 : static_cast<size_t>(found - stack.begin());
}

} // namespace vektrace
