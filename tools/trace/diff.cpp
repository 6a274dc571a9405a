// SPDX-License-Identifier: MIT
// Two reports side by side. Lines move between versions of a program. Where a function has as many
// rows as before, they are matched in the order of their lines: a line that was added above three
// allocations in a row would otherwise match each of them with its neighbour. Where it has more or
// fewer rows, those with the same line are matched first, then the others in their order.
#include <algorithm>
#include <map>
#include <unordered_map>

#include <fmt/format.h>

#include "json.h"
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

/** What is compared of a row's frames. The module counts only where there is no file: the name of a
 *  shared object may carry its version. */
std::string key_of(const Side &side, bool with_lines)
{
    std::string key;
    for (const SourceFrame &frame : side.frames) {
        key.append(frame.function) += '\0';
        key.append(frame.file.empty() ? frame.module : frame.file) += '\0';
        key.append(with_lines ? std::to_string(frame.line) : "") += '\0';
    }
    return key;
}

bool has_earlier_lines(const Side *a, const Side *b)
{
    return std::lexicographical_compare(
        a->frames.begin(), a->frames.end(), b->frames.begin(), b->frames.end(),
        [](const SourceFrame &x, const SourceFrame &y) { return x.line < y.line; });
}

/** Rows with one key, in the order of their lines, not matched yet. */
using Candidates = std::map<std::string, Sides>;

Candidates candidates(const Sides &rows, bool with_lines)
{
    Candidates result;
    for (const Side *row : rows) {
        result[key_of(*row, with_lines)].push_back(row);
    }
    for (auto &[key, same] : result) {
        std::stable_sort(same.begin(), same.end(), has_earlier_lines);
    }
    return result;
}

/** The rows of a report. All unknown functions of a module are one place: their addresses say
 *  nothing in another build. What is suppressed counts like the rest. */
std::vector<Side> sides_of(const Report &report)
{
    std::vector<Side> sides;
    std::unordered_map<std::string, size_t> numbers;
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
        sides[place->second].numbers += row.numbers;
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
        match(false, true);
        match(true, false);
        match(false, false);
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
    /** Pairs what has the same key, on demand only where both sides have equally many rows with it;
     *  what has no partner stays in before_ and after_. */
    void match(bool with_lines, bool only_equally_many)
    {
        Candidates old = candidates(before_, with_lines);
        const Candidates fresh = candidates(after_, with_lines);
        before_.clear();
        after_.clear();
        for (const auto &[key, rows] : fresh) {
            Sides &partners = old[key];
            const size_t pairs = only_equally_many && rows.size() != partners.size()
                                     ? 0
                                     : std::min(rows.size(), partners.size());
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

Json to_json(const Change &change)
{
    return {{"kind", name(change.kind)},
            {"frames", to_json(change.frames)},
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
    JsonWriter writer;
    writer.member("format", "vek-trace-diff");
    writer.member("version", 1);
    writer.member("by", name(difference.by));
    writer.member("sort", name(difference.sort));
    writer.member("before", to_json(difference.before));
    writer.member("after", to_json(difference.after));
    writer.begin_list("changes");
    for (const Change &change : difference.changes) {
        writer.element(to_json(change));
    }
    writer.end_list();
    return writer.finish();
}

} // namespace vektrace
