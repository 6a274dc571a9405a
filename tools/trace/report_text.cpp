// SPDX-License-Identifier: MIT
// The report for a person at a terminal: what was read, how much is live, where it came from, then
// what went wrong. A part that has nothing to say is left out.
#include <algorithm>
#include <limits>
#include <span>
#include <string_view>
#include <unordered_set>

#include <fmt/format.h>

#include "terminal.h"
#include "words.h"

namespace vektrace {

namespace {

using Lines = std::vector<std::string>;

/** The heads of the table of sites, as the order has them. */
struct Headings {
    const char *figure; ///< of a column
    const char *share;
    const char *second;
    const char *third;
    const char *nothing; ///< what sites have whose figure is 0
};

Headings headings_of(Order order)
{
    switch (order) {
    case Order::live:
        break;
    case Order::peak:
        return {"at peak", "of peak", "blocks", "live at end", "nothing at the peak"};
    case Order::total:
        return {"allocated", "of all", "blocks", "live at end", "no bytes"};
    case Order::count:
        return {"blocks", "of all", "bytes", "live at end", "no block"};
    case Order::short_lived:
        return {"short-lived", "of all", "blocks", "live at end", "no short-lived block"};
    }
    return {"live", "of live", "blocks", "of peak", "nothing live at the end"};
}

const char *plural_of(Grouping by)
{
    switch (by) {
    case Grouping::site:
        break;
    case Grouping::function:
        return "Functions";
    case Grouping::file:
        return "Files";
    case Grouping::module:
        return "Modules";
    case Grouping::stack:
        return "Stacks";
    }
    return "Sites";
}

class TextReport {
public:
    TextReport(const Report &report, const TextOptions &options)
        : report_(report), page_(options),
          top_(options.top == 0 ? std::numeric_limits<size_t>::max() : options.top)
    {
    }

    std::string write()
    {
        what_was_read();
        summary();
        sites();
        faults();
        failures();
        input_problems();
        missing_symbols();
        return page_.take();
    }

private:
    // ---- What was read ----

    static std::string title_of(const ProcessSummary &process)
    {
        return clean(process.command.empty() ? process.input : process.command);
    }

    void what_was_read()
    {
        if (report_.processes.size() == 1) {
            const ProcessSummary &process = report_.processes.front();
            page_.heading(title_of(process));
            page_.line(process_in_short(process));
        } else {
            processes();
        }
        for (const ProcessSummary &process : report_.processes) {
            const std::string whose = whose_line(process);
            for (const std::string &note : process.facts.notes) {
                page_.paragraph(whose + "note: " + clean(note));
            }
            if (!process.facts.broken.empty()) {
                page_.line(whose + page_.red("the recording is incomplete: ") +
                           clean(process.facts.broken));
            }
        }
    }

    /** Begins a line about one of several processes. */
    std::string whose_line(const ProcessSummary &process) const
    {
        return report_.processes.size() == 1 ? "" : clean(last_name(process.input)) + ": ";
    }

    static std::string process_in_short(const ProcessSummary &process)
    {
        const InputFacts &facts = process.facts;
        const std::string end = ending(process);
        std::string text =
            facts.is_recording
                ? fmt::format("process {}, {}", process.pid, format_count(facts.lines, "event"))
                : fmt::format("{}, {} of the allocator", format_count(facts.lines, "line"),
                              format_count(process.totals.events, "call"));
        if (process.totals.has_times) {
            text += " in " + format_duration(process.totals.milliseconds);
        }
        return end.empty() ? text : text + "; " + end;
    }

    void processes()
    {
        page_.heading(fmt::format("{}, {}, {}", format_count(report_.recordings, "recording"),
                                  format_count(report_.processes.size(), "process", "processes"),
                                  format_count(report_.totals.events, "call")));
        const size_t shown = std::min(report_.processes.size(), top_);
        Table table({"live", "peak", "process"});
        for (size_t i = 0; i < shown; i++) {
            const Totals &totals = report_.processes[i].totals;
            table.add({format_bytes(totals.live.bytes), format_bytes(totals.peak.bytes)});
        }
        page_.line(page_.dim(table.head()));
        for (size_t i = 0; i < shown; i++) {
            const ProcessSummary &process = report_.processes[i];
            page_.row(table, i,
                      {keep_begin(title_of(process), page_.room(table)),
                       page_.dim(process_in_short(process))});
        }
        if (shown < report_.processes.size()) {
            page_.line("… and " + format_count(report_.processes.size() - shown, "more process",
                                               "more processes"));
        }
    }

    // ---- The summary ----

    void summary()
    {
        const Totals &totals = report_.totals;
        struct Line {
            const char *title;
            Amount amount;
            std::string remark;
        };
        std::vector<Line> lines = {{"live at the end", totals.live, {}},
                                   {"peak", totals.peak, when_peak()},
                                   {"allocated", totals.total, {}}};
        if (report_.suppressed.blocks != 0) {
            lines.insert(lines.begin() + 1, {"suppressed of it", report_.suppressed, {}});
        }
        Table table({"", "", "", ""});
        for (const Line &line : lines) {
            table.add({format_bytes(line.amount.bytes), format_count(line.amount.bytes) + " B",
                       format_count(line.amount.blocks, "block")});
        }
        page_.gap();
        for (size_t i = 0; i < lines.size(); i++) {
            page_.line(fmt::format("{:<16}  {}{}", lines[i].title, table.row(i), lines[i].remark));
        }
        std::string calls = fmt::format(
            "{}, {}, {}", format_count(totals.allocations, "allocation"),
            format_count(totals.resizes, "resize"), format_count(totals.releases, "release"));
        if (totals.failed != 0) {
            calls += ", " + format_count(totals.failed, "failed request");
        }
        if (totals.refused != 0) {
            calls += ", " + format_count(totals.refused, "request") + " refused in the error state";
        }
        page_.line(calls);
        if (totals.faults != 0) {
            page_.line(page_.red(format_count(totals.faults, "fault")) + ", listed below");
        }
    }

    std::string when_peak() const
    {
        const Totals &totals = report_.totals;
        if (totals.peak.bytes == 0) {
            return {};
        }
        if (report_.processes.size() > 1) {
            return "each process at its own, added";
        }
        const std::string text = "after " + format_count(totals.peak_event, "call");
        return totals.has_times ? text + ", " + format_duration(totals.peak_milliseconds) : text;
    }

    // ---- Sites ----

    void sites()
    {
        const Headings headings = headings_of(report_.sort);
        page_.heading(fmt::format("{} by {}", plural_of(report_.by), words(report_.sort)));
        if (!report_.filter.empty()) {
            page_.paragraph("only stacks that match " + clean(report_.filter) +
                            "; the figures above are those of the whole run");
        }
        std::vector<const Row *> rows;
        for (const Row &row : report_.rows) {
            if (figure(row.numbers, report_.sort) != 0) {
                rows.push_back(&row);
            }
        }
        const size_t shown = std::min(rows.size(), top_);
        if (shown != 0) {
            table_of_sites(std::span(rows).first(shown), headings);
        }
        what_is_not_shown(std::span(rows).subspan(shown), shown, headings);
    }

    /** `hidden` are the sites that have a figure and no row, because `shown` are enough. */
    void what_is_not_shown(std::span<const Row *const> hidden, size_t shown,
                           const Headings &headings)
    {
        const std::string noun(name(report_.by));
        if (!hidden.empty()) {
            uint64_t sum = 0;
            for (const Row *row : hidden) {
                sum += figure(row->numbers, report_.sort);
            }
            page_.line(fmt::format("… and {} with {} (--top 0 shows all)",
                                   format_count(hidden.size(), "more " + noun), in_figures(sum)));
        }
        if (const size_t others = report_.rows.size() - shown - hidden.size(); others != 0) {
            page_.line(fmt::format("{}{} with {}", shown == 0 ? "" : "… and ",
                                   format_count(others, shown == 0 ? noun : "more " + noun),
                                   headings.nothing));
        } else if (report_.rows.empty()) {
            page_.line("none");
        }
    }

    std::string in_figures(uint64_t figure) const
    {
        return counts_blocks(report_.sort) ? format_count(figure, "block") : format_bytes(figure);
    }

    void table_of_sites(std::span<const Row *const> rows, const Headings &headings)
    {
        std::vector<std::string> heads = {headings.figure, headings.share, headings.second,
                                          headings.third};
        if (report_.recordings > 1) {
            heads.emplace_back("grows on");
        }
        heads.emplace_back(name(report_.by));
        Table table(heads);
        for (const Row *row : rows) {
            table.add(cells(*row));
        }
        page_.line(page_.dim(table.head()));
        for (size_t i = 0; i < rows.size(); i++) {
            page_.row(table, i, row_lines(*rows[i], page_.room(table)));
        }
    }

    std::vector<std::string> cells(const Row &row) const
    {
        const Numbers &numbers = row.numbers;
        const uint64_t own = figure(numbers, report_.sort);
        const std::string live = format_bytes(numbers.live.bytes);
        std::vector<std::string> cells = {counts_blocks(report_.sort) ? format_count(own)
                                                                      : format_bytes(own),
                                          format_percent(own, whole())};
        switch (report_.sort) {
        case Order::live:
            cells.push_back(format_count(numbers.live.blocks));
            cells.push_back(format_percent(numbers.at_peak.bytes, report_.totals.peak.bytes));
            break;
        case Order::peak:
            cells.insert(cells.end(), {format_count(numbers.at_peak.blocks), live});
            break;
        case Order::count:
            cells.insert(cells.end(), {format_bytes(numbers.total.bytes), live});
            break;
        case Order::total:
        case Order::short_lived:
            cells.insert(cells.end(), {format_count(numbers.total.blocks), live});
            break;
        }
        if (report_.recordings > 1) {
            cells.push_back(fmt::format("{} of {}", row.growing, row.recordings));
        }
        return cells;
    }

    /** What the figures are shares of. */
    uint64_t whole() const
    {
        switch (report_.sort) {
        case Order::live:
            return report_.totals.live.bytes;
        case Order::peak:
            return report_.totals.peak.bytes;
        case Order::total:
            return report_.totals.total.bytes;
        case Order::count:
            return report_.totals.total.blocks;
        case Order::short_lived:
            return report_.calls.short_lived;
        }
        return 0;
    }

    Lines row_lines(const Row &row, size_t room) const
    {
        Lines lines;
        for (const SourceFrame &frame : row.frames) {
            const bool is_first = lines.empty();
            const bool is_stack = report_.by == Grouping::stack;
            add_place(lines,
                      is_first   ? ""
                      : is_stack ? "  "
                                 : "  inlined by ",
                      frame, room, is_stack ? frame.library : !is_first);
        }
        const auto add_details = [&](const Lines &pieces) {
            for (const std::string &line : wrap(pieces, ", ", room - 2)) {
                lines.push_back(page_.dim("  " + line));
            }
        };
        if (row.end == ChainEnd::cut) {
            add_details({"chain cut short by code without unwind tables"});
        }
        if (row.end == ChainEnd::limited && report_.by == Grouping::stack) {
            add_details({"chain ends at the depth of the recording"});
        }
        if (report_.by != Grouping::stack && !row.through.empty()) {
            Lines through = row.through;
            std::transform(through.begin(), through.end(), through.begin(), clean);
            through.front().insert(0, "through ");
            add_details(through);
        }
        Lines details = in_detail(row.numbers);
        if (report_.recordings == 1 && row.growing != 0) {
            details.emplace_back("growing");
        }
        add_details(details);
        if (row.suppressed) {
            add_details({"suppressed"});
        }
        return lines;
    }

    void add_place(Lines &lines, const std::string &prefix, const SourceFrame &frame, size_t room,
                   bool dim) const
    {
        Lines place = place_lines(frame, room - prefix.size());
        for (size_t i = 0; i < place.size(); i++) {
            const std::string line = i == 0 ? prefix + place[i] : "    " + place[i];
            lines.push_back(dim ? page_.dim(line) : line);
        }
    }

    static Lines in_detail(const Numbers &numbers)
    {
        const uint64_t blocks = numbers.total.blocks;
        Lines pieces = {format_count(blocks, "block") + " allocated",
                        format_bytes(numbers.total.bytes)};
        if (blocks > 1 && numbers.smallest == numbers.largest) {
            pieces.back() += fmt::format(" ({} each)", format_bytes(numbers.smallest));
        } else if (blocks > 1) {
            pieces.push_back(fmt::format("{} to {}", format_bytes(numbers.smallest),
                                         format_bytes(numbers.largest)));
            pieces.push_back("mean " + format_bytes(mean(numbers)));
        }
        if (numbers.short_lived != 0) {
            pieces.push_back(format_count(numbers.short_lived) + " short-lived");
        }
        return pieces;
    }

    // ---- What went wrong ----

    void faults()
    {
        if (report_.faults.empty()) {
            return;
        }
        page_.gap();
        page_.line(page_.bold(page_.red("Faults")));
        const size_t shown = std::min(report_.faults.size(), top_);
        for (size_t i = 0; i < shown; i++) {
            fault(report_.faults[i]);
        }
        if (shown < report_.faults.size()) {
            page_.line(fmt::format("… and {} (--top 0 shows all)",
                                   format_count(report_.faults.size() - shown, "more fault")));
        }
    }

    void fault(const ReportFault &fault)
    {
        const FaultWords wording = words(fault.kind);
        std::string text = page_.red(wording.what);
        if (fault.kind == FaultKind::impossible_size) {
            text += fmt::format(": {}", static_cast<int64_t>(fault.bytes));
        } else {
            text += fmt::format(": block {:#x}", fault.block);
            text += fault.bytes != 0 ? " of " + format_bytes(fault.bytes) : "";
        }
        const ProcessSummary *const process = process_of(fault.input);
        const bool is_recording = process != nullptr && process->facts.is_recording;
        text +=
            fmt::format(" ({} {}", is_recording ? "event" : "line", format_count(fault.first_line));
        if (report_.processes.size() > 1) {
            text += " of " + clean(last_name(fault.input));
        }
        text +=
            fault.count > 1 ? fmt::format("; {} times in all)", format_count(fault.count)) : ")";
        page_.line(text);
        fault_place(wording.allocated, fault.allocated);
        fault_place(wording.released_first, fault.released_first);
        fault_place(wording.again, fault.again);
    }

    const ProcessSummary *process_of(const std::string &input) const
    {
        const auto found =
            std::find_if(report_.processes.begin(), report_.processes.end(),
                         [&](const auto &process) { return process.input == input; });
        return found == report_.processes.end() ? nullptr : &*found;
    }

    /** A place and up to three of its callers, of which none called main(). */
    void fault_place(std::string_view role, const std::vector<SourceFrame> &stack)
    {
        constexpr size_t indent = 22;
        const size_t begin = site_begin(stack);
        const size_t end = std::min(stack.size(), begin + 4);
        for (size_t i = begin; i < end; i++) {
            const Lines place = place_lines(stack[i], page_.width() - indent - 3);
            for (size_t j = 0; j < place.size(); j++) {
                const std::string head = i == begin && j == 0 ? fmt::format("  {}", role) : "";
                const std::string by = i == begin ? "" : j == 0 ? "by " : "   ";
                page_.line(fmt::format("{:<{}}", head, indent) +
                           (i == begin ? place[j] : page_.dim(by + place[j])));
            }
            if (stack[i].function == "main") {
                break;
            }
        }
    }

    void failures()
    {
        std::vector<const Row *> rows;
        for (const Row &row : report_.rows) {
            if (row.numbers.failed != 0 || row.numbers.refused != 0) {
                rows.push_back(&row);
            }
        }
        if (rows.empty()) {
            return;
        }
        std::stable_sort(rows.begin(), rows.end(), [](const Row *a, const Row *b) {
            return a->numbers.failed + a->numbers.refused > b->numbers.failed + b->numbers.refused;
        });
        page_.heading("Requests that returned null");
        const size_t shown = std::min(rows.size(), top_);
        Table table({"failed", "refused", std::string(name(report_.by))});
        for (size_t i = 0; i < shown; i++) {
            const Numbers &numbers = rows[i]->numbers;
            table.add({format_count(numbers.failed), format_count(numbers.refused)});
        }
        page_.line(page_.dim(table.head()));
        for (size_t i = 0; i < shown; i++) {
            const std::vector<SourceFrame> &frames = rows[i]->frames;
            page_.row(table, i, place_lines(frames[site_begin(frames)], page_.room(table)));
        }
        if (shown < rows.size()) {
            page_.line(fmt::format(
                "… and {} (--top 0 shows all)",
                format_count(rows.size() - shown, fmt::format("more {}", name(report_.by)))));
        }
    }

    void input_problems()
    {
        for (const ProcessSummary &process : report_.processes) {
            const InputFacts &facts = process.facts;
            if (facts.foreign_lines == 0 && facts.torn.empty() && facts.missing_numbers == 0) {
                continue;
            }
            page_.heading("Input problems in " + clean(process.input));
            if (facts.foreign_lines != 0) {
                page_.line(
                    format_count(facts.foreign_lines, "line is no trace line",
                                 "lines are no trace lines") +
                    (facts.foreign_lines > facts.first_foreign.size() ? "; the first:" : ":"));
            }
            for (const ForeignLine &line : facts.first_foreign) {
                page_.line(keep_begin(
                    fmt::format("{:>10}  {}", format_count(line.number), clean(line.text)),
                    page_.width()));
            }
            if (!facts.torn.empty()) {
                page_.line("the last line has no end: " +
                           keep_begin(clean(facts.torn), page_.width() - 26));
            }
            if (facts.missing_numbers != 0) {
                page_.line(format_count(facts.missing_numbers, "trace line is missing",
                                        "trace lines are missing") +
                           " by the numbers: what is live may be wrong");
            }
        }
    }

    // What no site lacks is nobody's concern: the C library without debug information, for example.
    void missing_symbols()
    {
        bool is_first = true;
        const std::unordered_set<std::string_view> at_sites = modules_at_sites();
        for (const MissingModule &module : report_.missing) {
            if (report_.by != Grouping::file && at_sites.count(last_name(module.path)) == 0) {
                continue;
            }
            if (is_first) {
                page_.heading("Missing symbols");
                is_first = false;
            }
            page_.paragraph(clean(module.problem));
        }
        if (!is_first) {
            page_.paragraph(
                "--sysroot DIR, --debug-dir DIR and --exe FILE name files with symbols; "
                "--modules FILE says where modules were loaded");
        }
    }

    std::unordered_set<std::string_view> modules_at_sites() const
    {
        std::unordered_set<std::string_view> modules;
        for (const Row &row : report_.rows) {
            for (const SourceFrame &frame : row.frames) {
                modules.insert(frame.module);
            }
        }
        return modules;
    }

    const Report &report_;
    Page page_;
    size_t top_;
};

} // namespace

std::string format_text(const Report &report, const TextOptions &options)
{
    return TextReport(report, options).write();
}

} // namespace vektrace
