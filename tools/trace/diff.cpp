// SPDX-License-Identifier: MIT
// Two reports side by side. Lines move between versions of a program: rows are matched by function,
// file and line first, and what is left by function and file, in the order of the lines.
#include <algorithm>
#include <map>
#include <tuple>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "terminal.h"
#include "words.h"

namespace vektrace {

namespace {

/** Places of a report, as they are compared: without addresses. */
struct Side {
    std::vector<SourceFrame> frames;
    Numbers numbers;
};
using Sides = std::vector<const Side *>;
using Key = std::vector<std::string>;

/** What is compared of a row's frames. The module counts only where there is no file: the name of a
 *  shared object may carry its version. */
Key key_of(const Side &side, bool with_lines)
{
    Key key;
    for (const SourceFrame &frame : side.frames) {
        key.push_back(frame.function);
        key.push_back(frame.file.empty() ? frame.module : frame.file);
        key.push_back(with_lines ? std::to_string(frame.line) : "");
    }
    return key;
}

Key lines_of(const Side &side)
{
    Key key;
    for (const SourceFrame &frame : side.frames) {
        key.push_back(fmt::format("{:010}", frame.line));
    }
    return key;
}

/** Rows with one key, in the order of their lines, not matched yet. */
using Candidates = std::map<Key, Sides>;

Candidates candidates(const Sides &rows, bool with_lines)
{
    Candidates result;
    for (const Side *row : rows) {
        result[key_of(*row, with_lines)].push_back(row);
    }
    for (auto &[key, same] : result) {
        std::stable_sort(same.begin(), same.end(),
                         [](const Side *a, const Side *b) { return lines_of(*a) < lines_of(*b); });
    }
    return result;
}

void add(Numbers &sum, const Numbers &numbers)
{
    const bool is_first = sum.total.blocks == 0;
    if (numbers.total.blocks != 0) {
        sum.smallest = is_first ? numbers.smallest : std::min(sum.smallest, numbers.smallest);
        sum.largest = std::max(sum.largest, numbers.largest);
    }
    for (Amount Numbers::*const amount : {&Numbers::live, &Numbers::at_peak, &Numbers::total}) {
        (sum.*amount).blocks += (numbers.*amount).blocks;
        (sum.*amount).bytes += (numbers.*amount).bytes;
    }
    sum.short_lived += numbers.short_lived;
    sum.failed += numbers.failed;
    sum.refused += numbers.refused;
}

/** The rows of a report. All unknown functions of a module are one place: their addresses say
 *  nothing in another build. What is suppressed counts like the rest. */
std::vector<Side> sides_of(const Report &report)
{
    std::vector<Side> sides;
    std::map<Key, size_t> numbers;
    for (const Row &row : report.rows) {
        Side side = {row.frames, {}};
        for (SourceFrame &frame : side.frames) {
            if (is_raw(frame)) {
                frame.function = "unknown function";
            }
        }
        const auto [place, is_new] = numbers.try_emplace(key_of(side, true), sides.size());
        if (is_new) {
            sides.push_back(std::move(side));
        }
        add(sides[place->second].numbers, row.numbers);
    }
    return sides;
}

uint64_t distance(uint64_t a, uint64_t b)
{
    return a > b ? a - b : b - a;
}

class Comparison {
public:
    Comparison(const Report &before, const Report &after)
        : sort_(after.sort), old_(sides_of(before)), fresh_(sides_of(after))
    {
        difference_.before = before.totals;
        difference_.after = after.totals;
        difference_.by = after.by;
        difference_.sort = after.sort;
        for (const Side &side : old_) {
            before_.push_back(&side);
        }
        for (const Side &side : fresh_) {
            after_.push_back(&side);
        }
    }

    Difference compare()
    {
        match(true);
        match(false);
        for (const Side *row : before_) {
            add(row, nullptr);
        }
        for (const Side *row : after_) {
            add(nullptr, row);
        }
        std::stable_sort(difference_.changes.begin(), difference_.changes.end(),
                         [this](const Change &a, const Change &b) { return size(a) > size(b); });
        return std::move(difference_);
    }

private:
    /** Pairs what has the same key; what has no partner stays in before_ and after_. */
    void match(bool with_lines)
    {
        Candidates old = candidates(before_, with_lines);
        const Candidates fresh = candidates(after_, with_lines);
        before_.clear();
        after_.clear();
        for (const auto &[key, rows] : fresh) {
            Sides &partners = old[key];
            const size_t pairs = std::min(rows.size(), partners.size());
            for (size_t i = 0; i < pairs; i++) {
                add(partners[i], rows[i]);
            }
            partners.erase(partners.begin(), partners.begin() + static_cast<ptrdiff_t>(pairs));
            after_.insert(after_.end(), rows.begin() + static_cast<ptrdiff_t>(pairs), rows.end());
        }
        for (const auto &[key, rows] : old) {
            before_.insert(before_.end(), rows.begin(), rows.end());
        }
    }

    // A place comes if it had nothing before: one that allocated without a leak, and now leaks, is
    // as new to the reader as one that was not there.
    void add(const Side *before, const Side *after)
    {
        Change change = {};
        change.frames = (after != nullptr ? after : before)->frames;
        change.before = before != nullptr ? before->numbers : Numbers();
        change.after = after != nullptr ? after->numbers : Numbers();
        const uint64_t was = figure(change.before, sort_);
        const uint64_t is = figure(change.after, sort_);
        if (was == is) {
            return;
        }
        change.kind = was == 0   ? Change::Kind::came
                      : is == 0  ? Change::Kind::went
                      : is > was ? Change::Kind::grew
                                 : Change::Kind::shrank;
        difference_.changes.push_back(std::move(change));
    }

    uint64_t size(const Change &change) const
    {
        return distance(figure(change.before, sort_), figure(change.after, sort_));
    }

    Order sort_;
    std::vector<Side> old_;
    std::vector<Side> fresh_;
    Difference difference_;
    Sides before_;
    Sides after_;
};

std::string amount(uint64_t value, Order order)
{
    return counts_blocks(order) ? format_count(value) : format_bytes(value);
}

/** "+1.50 KiB", "-12", "0" */
std::string change_of(uint64_t before, uint64_t after, bool is_count)
{
    const uint64_t by = distance(before, after);
    return (after > before   ? "+"
            : after < before ? "-"
                             : "") +
           (is_count ? format_count(by) : format_bytes(by));
}

void add_summary(Page &page, const Difference &difference)
{
    const Totals &before = difference.before;
    const Totals &after = difference.after;
    struct Line {
        const char *title;
        uint64_t before;
        uint64_t after;
        bool is_count;
    };
    const Line lines[] = {{"bytes live at the end", before.live.bytes, after.live.bytes, false},
                          {"blocks live at the end", before.live.blocks, after.live.blocks, true},
                          {"peak", before.peak.bytes, after.peak.bytes, false},
                          {"bytes allocated", before.total.bytes, after.total.bytes, false},
                          {"allocations", before.allocations, after.allocations, true},
                          {"failed requests", before.failed, after.failed, true},
                          {"faults", before.faults, after.faults, true}};
    Table table({"before", "after", "change", "summary"});
    for (const Line &line : lines) {
        const auto text = [&](uint64_t value) {
            return line.is_count ? format_count(value) : format_bytes(value);
        };
        table.add({text(line.before), text(line.after),
                   change_of(line.before, line.after, line.is_count)});
    }
    page.line(page.dim(table.head()));
    for (size_t i = 0; i < table.size(); i++) {
        page.row(table, i, {lines[i].title});
    }
}

std::vector<std::string> lines_of(const Page &page, const Change &change, size_t room)
{
    std::vector<std::string> lines;
    for (const SourceFrame &frame : change.frames) {
        const std::string prefix = lines.empty()                   ? ""
                                   : change.frames.front().inlined ? "  in "
                                                                   : "  ";
        for (const std::string &line : place_lines(frame, room - prefix.size())) {
            lines.push_back(lines.empty() ? line : page.dim(prefix + line));
        }
    }
    return lines;
}

void add_changes(Page &page, const Difference &difference, size_t top)
{
    const std::vector<Change> &changes = difference.changes;
    const size_t shown = std::min(changes.size(), top);
    Table table({"change", "before", "after", "", std::string(name(difference.by))});
    for (size_t i = 0; i < shown; i++) {
        const uint64_t before = figure(changes[i].before, difference.sort);
        const uint64_t after = figure(changes[i].after, difference.sort);
        table.add({change_of(before, after, counts_blocks(difference.sort)),
                   amount(before, difference.sort), amount(after, difference.sort),
                   std::string(name(changes[i].kind))});
    }
    page.line(page.dim(table.head()));
    for (size_t i = 0; i < shown; i++) {
        page.row(table, i, lines_of(page, changes[i], page.room(table)));
    }
    if (shown < changes.size()) {
        page.line(fmt::format("… and {} (--top 0 shows all)",
                              format_count(changes.size() - shown, "more change")));
    }
}

using Json = nlohmann::ordered_json;

Json to_json(const Amount &amount)
{
    return {{"blocks", amount.blocks}, {"bytes", amount.bytes}};
}

Json to_json(const Totals &totals)
{
    return {{"allocations", totals.allocations}, {"resizes", totals.resizes},
            {"releases", totals.releases},       {"failed", totals.failed},
            {"refused", totals.refused},         {"faults", totals.faults},
            {"live", to_json(totals.live)},      {"peak", to_json(totals.peak)},
            {"total", to_json(totals.total)}};
}

Json to_json(const Numbers &numbers)
{
    return {{"live", to_json(numbers.live)},   {"at_peak", to_json(numbers.at_peak)},
            {"total", to_json(numbers.total)}, {"short_lived", numbers.short_lived},
            {"failed", numbers.failed},        {"refused", numbers.refused}};
}

Json to_json(const SourceFrame &frame)
{
    Json json = Json::object();
    for (const auto &[key, text] :
         {std::pair("function", &frame.function), std::pair("file", &frame.file),
          std::pair("module", &frame.module)}) {
        if (!text->empty()) {
            json[key] = *text;
        }
    }
    if (frame.line != 0) {
        json["line"] = frame.line;
    }
    if (frame.inlined) {
        json["inlined"] = true;
    }
    return json;
}

Json to_json(const Change &change)
{
    Json frames = Json::array();
    for (const SourceFrame &frame : change.frames) {
        frames.push_back(to_json(frame));
    }
    return {{"kind", name(change.kind)},
            {"frames", frames},
            {"before", to_json(change.before)},
            {"after", to_json(change.after)}};
}

} // namespace

Difference compare(const Report &before, const Report &after)
{
    return Comparison(before, after).compare();
}

std::string format_text(const Difference &difference, const TextOptions &options)
{
    Page page(options);
    page.heading("Before and after");
    add_summary(page, difference);
    page.heading(fmt::format("What changed in {}", words(difference.sort)));
    if (difference.changes.empty()) {
        page.line("nothing");
    } else {
        add_changes(page, difference, options.top == 0 ? difference.changes.size() : options.top);
    }
    return page.take();
}

std::string format_json(const Difference &difference)
{
    Json json = {{"format", "vek-trace-diff"},
                 {"version", 1},
                 {"by", name(difference.by)},
                 {"sort", name(difference.sort)},
                 {"before", to_json(difference.before)},
                 {"after", to_json(difference.after)},
                 {"changes", Json::array()}};
    for (const Change &change : difference.changes) {
        json["changes"].push_back(to_json(change));
    }
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + '\n';
}

} // namespace vektrace
