// SPDX-License-Identifier: MIT
// From stacks to rows. Rows and faults that read the same are one.
#include "report.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "calls.h"
#include "hash.h"
#include "places.h"
#include "words.h"

namespace vektrace {

namespace {

/** `highest` is the highest peak of one process so far. */
void add(Totals &sum, const Totals &totals, uint64_t &highest)
{
    sum.events += totals.events;
    sum.allocations += totals.allocations;
    sum.resizes += totals.resizes;
    sum.releases += totals.releases;
    sum.failed += totals.failed;
    sum.refused += totals.refused;
    sum.faults += totals.faults;
    sum.live += totals.live;
    sum.peak += totals.peak;
    sum.total += totals.total;
    if (totals.peak.bytes > highest) {
        highest = totals.peak.bytes;
        sum.peak_event = totals.peak_event;
        sum.peak_milliseconds = totals.peak_milliseconds;
    }
    sum.milliseconds = std::max(sum.milliseconds, totals.milliseconds);
    sum.has_times = sum.has_times || totals.has_times;
}

struct KeyHash {
    size_t operator()(const PlaceIds &key) const
    {
        uint64_t hash = key.size();
        for (const PlaceId id : key) {
            hash = mix(hash, id);
        }
        return hash;
    }
};

class Builder {
public:
    Builder(const Stacks &stacks, const Symbols &symbols, const ReportOptions &options)
        : stacks_(stacks), options_(options), places_(stacks, symbols, options),
          uses_(stacks.stacks().size())
    {
        report_.by = options.by;
        report_.sort = options.sort;
        report_.filter = options.filter;
        for (const ModuleProblem &problem : symbols.problems) {
            const Module &module = stacks.modules()[problem.module];
            report_.missing.push_back({module.path, module.build_id, problem.text});
        }
    }

    /** Processes of one recording come one after the other. */
    void add_process(const Process &process, bool begins_recording)
    {
        report_.recordings += begins_recording ? 1 : 0;
        const Totals &totals = process.history.totals();
        add(report_.totals, totals, highest_peak_);
        const auto moments = process.history.moments();
        report_.processes.push_back({process.input,
                                     command_line(process.facts.command),
                                     process.facts.pid,
                                     process.status,
                                     totals,
                                     process.facts,
                                     {moments.begin(), moments.end()}});
        const auto stacks = process.history.stacks();
        for (StackId id = 0; id < stacks.size(); id++) {
            if (stacks[id] != StackTotals()) {
                add_stack(id, stacks[id]);
            }
        }
        for (const Fault &fault : process.history.faults()) {
            add_fault(fault, process.input);
        }
    }

    Report finish()
    {
        for (RowState &state : states_) {
            end_recording(state);
        }
        std::sort(report_.rows.begin(), report_.rows.end(),
                  [this](const Row &a, const Row &b) { return is_before(a, b); });
        std::stable_sort(report_.faults.begin(), report_.faults.end(),
                         [](const auto &a, const auto &b) { return a.kind < b.kind; });
        report_.names = places_.take();
        report_.calls = options_.calls ? calls_.tree(*report_.names) : calls_.root();
        return std::move(report_);
    }

private:
    static constexpr uint32_t not_known_yet = UINT32_MAX;
    static constexpr uint32_t filtered_out = UINT32_MAX - 1;

    /** What a stack belongs to; found out at its first use. */
    struct StackUse {
        uint32_t row = not_known_yet; ///< or filtered_out
        uint32_t path = 0;            ///< in the tree of calls
        bool suppressed = false;
    };

    /** Beside a row: what the current recording has of it. */
    struct RowState {
        unsigned recording = 0; ///< counted from 1
        uint64_t live = 0;
        uint64_t earlier = 0;
    };

    static std::string command_line(const std::vector<std::string> &command)
    {
        std::string line;
        for (const std::string &word : command) {
            const bool plain = !word.empty() && word.find_first_of(" \t\n'\"") == word.npos;
            line += (line.empty() ? "" : " ") + (plain ? word : "'" + word + "'");
        }
        return line;
    }

    void add_stack(StackId id, const StackTotals &totals)
    {
        StackUse &use = uses_[id];
        if (use.row == not_known_yet) {
            find_use(stacks_.stacks()[id], use);
        }
        (use.suppressed ? report_.suppressed : report_.unsuppressed) += totals.live;
        if (use.row == filtered_out) {
            return;
        }
        report_.rows[use.row].numbers += totals;
        calls_.add_to(use.path, totals);
        RowState &state = states_[use.row];
        if (state.recording != report_.recordings) {
            end_recording(state);
            state.recording = report_.recordings;
            report_.rows[use.row].recordings++;
        }
        state.live += totals.live.bytes;
        state.earlier += totals.earlier_bytes;
    }

    void end_recording(RowState &state)
    {
        if (state.live > state.earlier) {
            report_.rows[static_cast<size_t>(&state - states_.data())].growing++;
        }
        state.live = state.earlier = 0;
    }

    void find_use(const Stack &stack, StackUse &use)
    {
        report_.has_chains = report_.has_chains || !stack.frames.empty();
        use.suppressed = places_.is_suppressed(stack);
        use.row = filtered_out;
        if (!places_.is_kept(stack)) {
            return;
        }
        const PlaceIds whole = places_.of(stack);
        use.path = calls_.add_stack(options_.calls ? whole : PlaceIds(), places_);
        use.row = find_row(stack, whole, use.suppressed);
    }

    // A stack within the library alone belongs to the address that its calls are charged to.
    uint32_t find_row(const Stack &stack, const PlaceIds &whole, bool suppressed)
    {
        const size_t site = site_in(whole);
        const bool found = site < whole.size();
        PlaceIds key =
            row_places(whole, found ? whole : places_.of(stack.charged), found ? site : 0);
        key.push_back(suppressed ? 1 : 0);
        const auto [number, is_new] =
            row_numbers_.try_emplace(key, static_cast<uint32_t>(report_.rows.size()));
        if (is_new) {
            key.pop_back();
            Row &row = report_.rows.emplace_back();
            row.frames = places_.frames(key);
            row.suppressed = suppressed;
            states_.emplace_back();
        }
        Row &row = report_.rows[number->second];
        row.end = combined(row.end, stack.end);
        if (found && site > 0) {
            add_through(row, places_[whole[site - 1]]);
        }
        return number->second;
    }

    /** The number of the first place that is not the library's, or the size. */
    size_t site_in(const PlaceIds &whole) const
    {
        const auto found = std::find_if(whole.begin(), whole.end(),
                                        [this](PlaceId id) { return !places_[id].library; });
        return static_cast<size_t>(found - whole.begin());
    }

    /** What a row prints of a stack whose site is place number `begin` of `places`. */
    PlaceIds row_places(const PlaceIds &whole, const PlaceIds &places, size_t begin)
    {
        const SourceFrame site = places_[places[begin]];
        SourceFrame frame;
        switch (options_.by) {
        case Grouping::site: {
            size_t end = begin;
            while (places_[places[end]].inlined) {
                end++;
            }
            return {&places[begin], &places[end] + 1};
        }
        case Grouping::function:
            return {places_.function(places[begin])};
        case Grouping::file:
            frame.file = site.file;
            frame.module = site.file.empty() ? site.module : "";
            return {places_.number(frame)};
        case Grouping::module:
            frame.module = site.module;
            return {places_.number(frame)};
        case Grouping::stack:
            break;
        }
        return whole;
    }

    /** The worse of the two. */
    static ChainEnd combined(ChainEnd a, ChainEnd b)
    {
        for (const ChainEnd end : {ChainEnd::cut, ChainEnd::limited, ChainEnd::whole}) {
            if (a == end || b == end) {
                return end;
            }
        }
        return ChainEnd::none;
    }

    static void add_through(Row &row, const SourceFrame &called)
    {
        const std::string &text = is_raw(called) ? called.module : called.function;
        const auto place = std::lower_bound(row.through.begin(), row.through.end(), text);
        if (place == row.through.end() || *place != text) {
            row.through.insert(place, text);
        }
    }

    // Faults that read the same are one, of whatever process.
    void add_fault(const Fault &fault, const std::string &input)
    {
        const std::optional<StackId> stacks[] = {fault.allocated, fault.released_first,
                                                 fault.again};
        PlaceIds key = {static_cast<PlaceId>(fault.kind)};
        std::vector<SourceFrame> frames[std::size(stacks)];
        bool is_kept = false;
        for (size_t i = 0; i < std::size(stacks); i++) {
            PlaceIds whole;
            if (stacks[i]) {
                const Stack &stack = stacks_.stacks()[*stacks[i]];
                whole = places_.of(stack);
                is_kept = is_kept || places_.is_kept(stack);
            }
            frames[i] = places_.frames(whole);
            key.push_back(static_cast<PlaceId>(whole.size()));
            key.insert(key.end(), whole.begin(), whole.end());
        }
        if (!is_kept) {
            return;
        }
        const auto [number, is_new] = fault_numbers_.try_emplace(key, report_.faults.size());
        if (is_new) {
            report_.faults.push_back({fault.kind, std::move(frames[0]), std::move(frames[1]),
                                      std::move(frames[2]), fault.count, fault.first_line,
                                      fault.block, fault.bytes, input});
        } else {
            report_.faults[number->second].count += fault.count;
        }
    }

    bool is_before(const Row &a, const Row &b) const
    {
        const auto rank = [this](const Row &row) {
            const Numbers &numbers = row.numbers;
            return std::tuple(!row.suppressed, figure(numbers, options_.sort), numbers.live.bytes,
                              numbers.at_peak.bytes, numbers.total.bytes);
        };
        if (rank(a) != rank(b)) {
            return rank(a) > rank(b);
        }
        return std::lexicographical_compare(
            a.frames.begin(), a.frames.end(), b.frames.begin(), b.frames.end(),
            [](const SourceFrame &x, const SourceFrame &y) {
                return std::tie(x.file, x.line, x.function, x.module, x.inlined) <
                       std::tie(y.file, y.line, y.function, y.module, y.inlined);
            });
    }

    const Stacks &stacks_;
    const ReportOptions &options_;
    PlaceTable places_;
    CallTree calls_;
    Report report_;
    uint64_t highest_peak_ = 0;
    std::vector<StackUse> uses_;   ///< by StackId
    std::vector<RowState> states_; ///< by row
    std::unordered_map<PlaceIds, uint32_t, KeyHash> row_numbers_;
    std::unordered_map<PlaceIds, size_t, KeyHash> fault_numbers_;
};

} // namespace

Report make_report(const std::vector<Process> &processes, const Stacks &stacks,
                   const Symbols &symbols, const ReportOptions &options)
{
    std::vector<const Process *> in_order;
    in_order.reserve(processes.size());
    for (const Process &process : processes) {
        in_order.push_back(&process);
    }
    std::stable_sort(in_order.begin(), in_order.end(),
                     [](const auto *a, const auto *b) { return a->recording < b->recording; });
    Builder builder(stacks, symbols, options);
    const Process *previous = nullptr;
    for (const Process *process : in_order) {
        builder.add_process(*process,
                            previous == nullptr || previous->recording != process->recording);
        previous = process;
    }
    return builder.finish();
}

} // namespace vektrace
