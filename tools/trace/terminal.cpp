// SPDX-License-Identifier: MIT
#include "terminal.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "words.h"

namespace vektrace {

namespace {

constexpr std::string_view dots = "…";

bool is_continuation(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xc0U) == 0x80;
}

/** Bytes of the printable UTF-8 character that the text begins with; 0 if there is none. */
size_t character_size(std::string_view text)
{
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
        return first >= 0x20 && first != 0x7f ? 1 : 0;
    }
    const size_t size = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || text.size() < size ||
        !std::all_of(text.begin() + 1, text.begin() + static_cast<ptrdiff_t>(size),
                     is_continuation)) {
        return 0;
    }
    const bool is_control = first == 0xc2 && static_cast<unsigned char>(text[1]) < 0xa0;
    return is_control ? 0 : size;
}

} // namespace

std::string clean(std::string_view text)
{
    std::string result;
    while (!text.empty()) {
        const size_t size = character_size(text);
        result += size == 0 ? "?" : text.substr(0, size);
        text.remove_prefix(std::max<size_t>(size, 1));
    }
    return result;
}

size_t columns(std::string_view text)
{
    return text.size() -
           static_cast<size_t>(std::count_if(text.begin(), text.end(), is_continuation));
}

std::string keep_end(std::string_view text, size_t room)
{
    if (columns(text) <= room) {
        return std::string(text);
    }
    size_t begin = text.size();
    for (size_t left = std::max<size_t>(room, 1); left > 1; left--) {
        do {
            begin--;
        } while (is_continuation(text[begin]));
    }
    return std::string(dots).append(text.substr(begin));
}

std::string keep_begin(std::string_view text, size_t room)
{
    if (columns(text) <= room) {
        return std::string(text);
    }
    size_t end = 0;
    for (size_t left = std::max<size_t>(room, 1); left > 1; left--) {
        do {
            end++;
        } while (is_continuation(text[end]));
    }
    return std::string(text.substr(0, end)).append(dots);
}

std::vector<std::string> wrap(const std::vector<std::string> &pieces, std::string_view separator,
                              size_t room)
{
    std::vector<std::string> lines;
    for (const std::string &piece : pieces) {
        const size_t taken = columns(separator) + columns(piece);
        if (!lines.empty() && columns(lines.back()) + taken < room) {
            lines.back().append(separator).append(piece);
            continue;
        }
        if (!lines.empty()) {
            lines.back().append(separator);
        }
        lines.push_back(keep_begin(piece, room));
    }
    return lines;
}

std::vector<std::string> place_lines(const SourceFrame &frame, size_t room)
{
    const std::string whole = clean(place(frame));
    if (columns(whole) <= room) {
        return {whole};
    }
    if (frame.function.empty() || frame.file.empty()) {
        return {frame.function.empty() ? keep_end(whole, room) : keep_begin(whole, room)};
    }
    const std::string module = frame.module.empty() ? "" : clean(", " + frame.module);
    const size_t taken = columns(module) + 3;
    const std::string file =
        keep_end(clean(file_and_line(frame)), room > taken + 8 ? room - taken : room);
    return {keep_begin(clean(frame.function), room), keep_begin("at " + file + module, room)};
}

Table::Table(std::vector<std::string> heads) : heads_(std::move(heads))
{
    for (size_t i = 0; i + 1 < heads_.size(); i++) {
        widths_.push_back(columns(heads_[i]));
    }
}

void Table::add(std::vector<std::string> cells)
{
    for (size_t i = 0; i < widths_.size(); i++) {
        widths_[i] = std::max(widths_[i], columns(cells[i]));
    }
    rows_.push_back(std::move(cells));
}

std::string Table::line(const std::vector<std::string> &cells) const
{
    std::string line;
    for (size_t i = 0; i < widths_.size(); i++) {
        line += fmt::format("{:>{}}  ", cells[i], widths_[i]);
    }
    return line;
}

std::string Table::head() const
{
    return line(heads_) + heads_.back();
}

std::string Table::row(size_t number) const
{
    return line(rows_[number]);
}

size_t Table::indent() const
{
    size_t indent = 0;
    for (const size_t width : widths_) {
        indent += width + 2;
    }
    return indent;
}

Page::Page(const TextOptions &options)
    : colour_(options.colour), width_(std::clamp(options.width, 60U, 200U))
{
}

std::string Page::coloured(std::string_view code, std::string_view text) const
{
    return colour_ ? fmt::format("\x1b[{}m{}\x1b[0m", code, text) : std::string(text);
}

void Page::gap()
{
    if (!text_.empty() && !text_.ends_with("\n\n")) {
        text_ += '\n';
    }
}

void Page::heading(std::string_view text)
{
    gap();
    line(bold(keep_begin(text, width_)));
}

void Page::line(std::string_view text)
{
    text_.append(text.substr(0, text.find_last_not_of(' ') + 1)) += '\n';
}

void Page::paragraph(std::string_view text)
{
    std::vector<std::string> words;
    while (!text.empty()) {
        const size_t blank = std::min(text.find(' '), text.size());
        words.emplace_back(text.substr(0, blank));
        text.remove_prefix(std::min(blank + 1, text.size()));
    }
    for (const std::string &part : wrap(words, " ", width_)) {
        line(part);
    }
}

void Page::row(const Table &table, size_t number, const std::vector<std::string> &lines)
{
    line(table.row(number) + (lines.empty() ? "" : lines.front()));
    for (size_t i = 1; i < lines.size(); i++) {
        line(std::string(table.indent(), ' ') + lines[i]);
    }
}

size_t Page::room(const Table &table) const
{
    return width_ > table.indent() + 20 ? width_ - table.indent() : 20;
}

} // namespace vektrace
