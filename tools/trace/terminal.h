// SPDX-License-Identifier: MIT
// Lines and tables for a terminal: cut to its width, coloured if asked, safe with any text.
#ifndef VEKTRACE_TERMINAL_H
#define VEKTRACE_TERMINAL_H

#include <string>
#include <string_view>
#include <vector>

#include "report.h"

namespace vektrace {

/** Text from an input without what could command a terminal: control characters and bytes that are
 *  no UTF-8 become "?". */
std::string clean(std::string_view text);
/** Columns that clean text takes. */
size_t columns(std::string_view text);
/** Keeps the end, or the beginning, of a clean text that is too long. */
std::string keep_end(std::string_view text, size_t room);
std::string keep_begin(std::string_view text, size_t room);

/** Joins clean pieces to lines; a piece that is too long keeps its beginning. */
std::vector<std::string> wrap(const std::vector<std::string> &pieces, std::string_view separator,
                              size_t room);

/** A place in one line, or in two if it does not fit: the function, then file, line and module. */
std::vector<std::string> place_lines(const SourceFrame &frame, size_t room);

/** Numbers in columns, right-aligned, then one column of text that may have several lines. */
class Table {
public:
    /** The last head is that of the text. */
    explicit Table(std::vector<std::string> heads);
    void add(std::vector<std::string> cells);
    size_t size() const { return rows_.size(); }

    // After the last row:
    std::string head() const;
    std::string row(size_t number) const; ///< with the blanks before the text
    size_t indent() const;                ///< where the text begins

private:
    std::string line(const std::vector<std::string> &cells) const;

    std::vector<std::string> heads_;
    std::vector<std::vector<std::string>> rows_;
    std::vector<size_t> widths_;
};

class Page {
public:
    explicit Page(const TextOptions &options);

    /** A bold line after an empty one. */
    void heading(std::string_view text);
    /** A line without the blanks at its end. */
    void line(std::string_view text);
    /** As many lines as the text needs, broken at blanks. */
    void paragraph(std::string_view text);
    /** A row of a table with the lines of its text. */
    void row(const Table &table, size_t number, const std::vector<std::string> &lines);
    void gap();

    std::string bold(std::string_view text) const { return coloured("1", text); }
    std::string dim(std::string_view text) const { return coloured("2", text); }
    std::string red(std::string_view text) const { return coloured("31", text); }

    size_t width() const { return width_; }
    /** Columns for the text of a table. */
    size_t room(const Table &table) const;
    std::string take() { return std::move(text_); }

private:
    std::string coloured(std::string_view code, std::string_view text) const;

    bool colour_;
    size_t width_;
    std::string text_;
};

} // namespace vektrace

#endif
