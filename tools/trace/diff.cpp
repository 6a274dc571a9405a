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

/** A row of a report, as it is compared: without addresses. */
struct Site {
    std::vector<SourceFrame> frames;
    Numbers numbers;
};
using Sites = std::vector<const Site *>;

/** What is compared of a site. The module counts only where there is no file: the name of a
 *  shared object may carry its version. */
std::string key_of(const Site &site, bool with_lines)
{
    std::string key;
    for (const SourceFrame &frame : site.frames) {
        key.append(frame.function) += '\0';
        key.append(frame.file.empty() ? frame.module : frame.file) += '\0';
        key.append(with_lines ? std::to_string(frame.line) : "") += '\0';
    }
    return key;
}

bool has_earlier_lines(const Site *a, const Site *b)
{
    return std::lexicographical_compare(
        a->frames.begin(), a->frames.end(), b->frames.begin(), b->frames.end(),
        [](const SourceFrame &x, const SourceFrame &y) { return x.line < y.line; });
}

/** Sites by their keys, in the order of their lines. */
using Candidates = std::map<std::string, Sites>;

Candidates candidates(const Sites &sites, bool with_lines)
{
    Candidates result;
    for (const Site *site : sites) {
        result[key_of(*site, with_lines)].push_back(site);
    }
    for (auto &[key, same] : result) {
        std::stable_sort(same.begin(), same.end(), has_earlier_lines);
    }
    return result;
}

/** The sites of a report. All unknown functions of a module are one place: their addresses say
 *  nothing in another build. What is suppressed counts like the rest. */
std::vector<Site> sites_of(const Report &report)
{
    std::vector<Site> sites;
    std::unordered_map<std::string, size_t> numbers;
    for (const Row &row : report.rows) {
        Site site = {row.frames, {}};
        for (SourceFrame &frame : site.frames) {
            if (is_raw(frame)) {
                frame.function = "unknown function";
            }
        }
        const auto [place, is_new] = numbers.try_emplace(key_of(site, true), sites.size());
        if (is_new) {
            sites.push_back(std::move(site));
        }
        sites[place->second].numbers += row.numbers;
    }
    return sites;
}

uint64_t distance(uint64_t a, uint64_t b)
{
    return a > b ? a - b : b - a;
}

class Comparison {
public:
    Comparison(const Report &before, const Report &after)
        : sort_(after.sort), before_(sites_of(before)), after_(sites_of(after))
    {
        difference_.before = before.totals;
        difference_.after = after.totals;
        difference_.by = after.by;
        difference_.sort = after.sort;
        for (const Site &site : before_) {
            gone_.push_back(&site);
        }
        for (const Site &site : after_) {
            new_.push_back(&site);
        }
    }

    Difference compare()
    {
        match({.with_lines = false, .only_equally_many = true});
        match({.with_lines = true, .only_equally_many = false});
        match({.with_lines = false, .only_equally_many = false});
        for (const Site *site : gone_) {
            add(site->frames, site->numbers, {});
        }
        for (const Site *site : new_) {
            add(site->frames, {}, site->numbers);
        }
        std::stable_sort(difference_.changes.begin(), difference_.changes.end(),
                         [this](const Change &a, const Change &b) { return size(a) > size(b); });
        return std::move(difference_);
    }

private:
    struct Matching {
        bool with_lines;        ///< whether lines belong to the key
        bool only_equally_many; ///< only where both reports have as many sites with a key
    };

    /** Pairs sites that have the same key; those without a partner stay in gone_ and new_. */
    void match(Matching matching)
    {
        Candidates before = candidates(gone_, matching.with_lines);
        const Candidates after = candidates(new_, matching.with_lines);
        gone_.clear();
        new_.clear();
        for (const auto &[key, sites] : after) {
            Sites &partners = before[key];
            const size_t pairs = matching.only_equally_many && sites.size() != partners.size()
                                     ? 0
                                     : std::min(sites.size(), partners.size());
            for (size_t i = 0; i < pairs; i++) {
                add(sites[i]->frames, partners[i]->numbers, sites[i]->numbers);
            }
            partners.erase(partners.begin(), partners.begin() + static_cast<ptrdiff_t>(pairs));
            new_.insert(new_.end(), sites.begin() + static_cast<ptrdiff_t>(pairs), sites.end());
        }
        for (const auto &[key, sites] : before) {
            gone_.insert(gone_.end(), sites.begin(), sites.end());
        }
    }

    // A place comes if it had nothing before: one that allocated without a leak, and now leaks, is
    // as new to the reader as one that was not there.
    void add(const std::vector<SourceFrame> &frames, const Numbers &before, const Numbers &after)
    {
        const uint64_t was = figure(before, sort_);
        const uint64_t is = figure(after, sort_);
        if (was == is) {
            return;
        }
        const Change::Kind kind = was == 0   ? Change::Kind::came
                                  : is == 0  ? Change::Kind::went
                                  : is > was ? Change::Kind::grew
                                             : Change::Kind::shrank;
        difference_.changes.push_back({frames, before, after, kind});
    }

    uint64_t size(const Change &change) const
    {
        return distance(figure(change.before, sort_), figure(change.after, sort_));
    }

    Order sort_;
    std::vector<Site> before_;
    std::vector<Site> after_;
    Sites gone_; ///< what is in before_ and has no partner yet
    Sites new_;  ///< what is in after_ and has no partner yet
    Difference difference_;
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

std::vector<std::string> lines_of(const Page &page, const Change &change, Grouping by, size_t room)
{
    std::vector<std::string> lines;
    for (const SourceFrame &frame : change.frames) {
        const std::string prefix = lines.empty()           ? ""
                                   : by == Grouping::stack ? "  "
                                                           : "  inlined by ";
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
        page.row(table, i, lines_of(page, changes[i], difference.by, page.room(table)));
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
