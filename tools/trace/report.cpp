// SPDX-License-Identifier: MIT
// From stacks to rows. Frames are made ready to print once and numbered by what is printed, so that
// two addresses of one line have one number, and rows, nodes and faults that read the same are one.
#include "report.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <regex>
#include <span>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "hash.h"
#include "words.h"

namespace vektrace {

namespace {

// ---- Patterns ----

/** One of `leak:pattern`. */
class Pattern {
public:
    explicit Pattern(std::string_view text)
    {
        at_begin_ = text.starts_with('^');
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
    bool matches(std::string_view text) const
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

private:
    std::vector<std::string> pieces_;
    bool at_begin_ = false;
    bool at_end_ = false;
};

/// Bytes of a name that a filter sees: the C++ library's search needs stack for each.
constexpr size_t most_searched = 4096;
/// Bytes of a filter: to compile it needs stack for each parenthesis.
constexpr size_t longest_filter = 1000;

std::regex filter_from(const std::string &text)
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

// ---- Frames, ready to print ----

using PlaceId = uint32_t; ///< of a SourceFrame
using PlaceIds = std::vector<PlaceId>;
constexpr PlaceId unknown = std::numeric_limits<PlaceId>::max();

/// Places of a stack that count: a damaged recording may have a chain that is deeper than a walk
/// through the tree of calls can bear.
constexpr size_t deepest = 4096;

/** A function of a header of the library: `inlined` into the application, or a copy in it. */
bool is_library_inline(const Place &place, bool inlined)
{
    return (inlined && place.function.starts_with("vek_")) ||
           (place.file.find("veklib/vek") != std::string::npos &&
            place.file.ends_with("_inline.h"));
}

class PlaceTable {
public:
    PlaceTable(const Stacks &stacks, const Symbols &symbols, const ReportOptions &options)
        : stacks_(stacks), symbols_(symbols)
    {
        for (const std::string &pattern : options.suppressed) {
            suppressed_.emplace_back(pattern);
        }
        if (!options.filter.empty()) {
            filter_ = filter_from(options.filter);
        }
        for (FrameId id = 0; id < stacks.frames().size(); id++) {
            add_frame(id);
        }
    }

    PlaceId number(const SourceFrame &frame)
    {
        const std::string key = frame.function + '\0' + frame.file + '\0' +
                                std::to_string(frame.line) + '\0' + frame.module + '\0' +
                                (frame.inlined ? 'i' : '-') + (frame.library ? 'l' : '-');
        const auto [found, is_new] =
            numbers_.try_emplace(key, static_cast<PlaceId>(places_.size()));
        if (is_new) {
            places_.push_back(frame);
        }
        return found->second;
    }

    PlaceId number(const std::string &function, const std::string &file, const std::string &module)
    {
        SourceFrame frame;
        frame.function = function;
        frame.file = file;
        frame.module = module;
        return number(frame);
    }

    /** The number of a place's function and module alone. */
    PlaceId function(PlaceId id)
    {
        if (id >= functions_.size()) {
            functions_.resize(id + 1, unknown);
        }
        if (functions_[id] == unknown) {
            const SourceFrame frame = places_[id];
            functions_[id] = number(frame.function, {}, frame.module);
        }
        return functions_[id];
    }

    const SourceFrame &operator[](PlaceId id) const { return places_[id]; }

    std::shared_ptr<const std::vector<SourceFrame>> take()
    {
        return std::make_shared<const std::vector<SourceFrame>>(std::move(places_));
    }

    std::vector<SourceFrame> frames(const PlaceIds &ids) const
    {
        std::vector<SourceFrame> frames;
        for (const PlaceId id : ids) {
            frames.push_back(places_[id]);
        }
        return frames;
    }

    /** All places of a stack, innermost first; of the address that asked if there is no chain. */
    PlaceIds of(const Stack &stack) const
    {
        PlaceIds all;
        for (const FrameId id : frames_of(stack)) {
            const PlaceIds &places = by_frame_[id];
            all.insert(all.end(), places.begin(), places.end());
            if (all.size() >= deepest) {
                break;
            }
        }
        return all;
    }

    const PlaceIds &of(FrameId id) const { return by_frame_[id]; }

    bool is_suppressed(const Stack &stack) const { return any(is_suppressed_, stack); }
    bool is_kept(const Stack &stack) const { return !filter_ || any(is_kept_, stack); }

private:
    static std::span<const FrameId> frames_of(const Stack &stack)
    {
        return stack.frames.empty() ? std::span(&stack.charged, 1) : std::span(stack.frames);
    }

    static bool any(const std::vector<bool> &flags, const Stack &stack)
    {
        const auto frames = frames_of(stack);
        return std::any_of(frames.begin(), frames.end(), [&](FrameId id) { return flags[id]; });
    }

    void add_frame(FrameId id)
    {
        const Module &module = stacks_.modules()[stacks_.frames()[id].module];
        const Places &places = symbols_.places[id];
        PlaceIds &ids = by_frame_.emplace_back();
        for (size_t i = 0; i < places.size(); i++) {
            const bool inlined = i + 1 < places.size();
            SourceFrame frame = {places[i].function,
                                 places[i].file,
                                 places[i].line,
                                 std::string(last_name(module.path)),
                                 inlined,
                                 is_library(module) || is_library_inline(places[i], inlined)};
            if (frame.function.empty()) {
                frame.function = raw_place(stacks_, id);
            }
            ids.push_back(number(frame));
        }
        is_suppressed_.push_back(matches(id, [&](const std::string &text) {
            return std::any_of(suppressed_.begin(), suppressed_.end(),
                               [&](const Pattern &pattern) { return pattern.matches(text); });
        }));
        is_kept_.push_back(filter_ && matches(id, [&](const std::string &text) {
                               return std::regex_search(text.substr(0, most_searched), *filter_);
                           }));
    }

    /** Whether a function, file or module of the frame is one that `fits`. */
    template <typename Fits>
    bool matches(FrameId id, const Fits &fits) const
    {
        if (fits(stacks_.modules()[stacks_.frames()[id].module].path)) {
            return true;
        }
        return std::any_of(by_frame_[id].begin(), by_frame_[id].end(), [&](PlaceId place) {
            const SourceFrame &frame = places_[place];
            return fits(frame.function) || fits(frame.file) || fits(frame.module);
        });
    }

    const Stacks &stacks_;
    const Symbols &symbols_;
    std::vector<Pattern> suppressed_;
    std::optional<std::regex> filter_;
    std::vector<SourceFrame> places_;
    std::unordered_map<std::string, PlaceId> numbers_;
    std::vector<PlaceId> functions_; ///< by PlaceId; unknown until they are needed
    std::vector<PlaceIds> by_frame_; ///< by FrameId, innermost place first
    std::vector<bool> is_suppressed_;
    std::vector<bool> is_kept_;
};

// ---- Sums ----

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

// ---- The tree of calls ----

/** Keeps the stacks as lists of functions, and makes the tree from them in their order: nothing is
 *  needed to find a node again, and each gets as much room as it has children. */
class CallTree {
public:
    /** Adds a stack, whose places are innermost first; returns its number. */
    uint32_t add_stack(const PlaceIds &stack, PlaceTable &places)
    {
        Path path = {.begin = functions_.size()};
        for (auto place = stack.rbegin(); place != stack.rend(); ++place) {
            functions_.push_back(places.function(*place));
        }
        path.end = functions_.size();
        paths_.push_back(path);
        return static_cast<uint32_t>(paths_.size() - 1);
    }

    void add_to(uint32_t stack, const StackTotals &totals)
    {
        for (Sums *const sums : {&paths_[stack].sums, &all_}) {
            sums->live += totals.live;
            sums->at_peak += totals.at_peak;
            sums->total += totals.total;
            sums->short_lived += totals.short_lived;
        }
    }

    /** The root alone. */
    CallNode root() const { return node_of(all_); }

    /** The whole tree, without the stacks that allocated nothing. Its names are those of
     *  `places`. */
    CallNode tree(const std::vector<SourceFrame> &places)
    {
        rank_functions(places);
        std::erase_if(paths_, [](const Path &path) { return path.sums.total.blocks == 0; });
        std::sort(paths_.begin(), paths_.end(), [this](const Path &a, const Path &b) {
            return std::lexicographical_compare(at(a.begin), at(a.end), at(b.begin), at(b.end));
        });
        CallNode tree;
        add_paths(tree, paths_, 0, places);
        return tree;
    }

private:
    struct Sums {
        Amount live = {};
        Amount at_peak = {};
        Amount total = {};
        uint64_t short_lived = 0;
    };

    /** A part of `functions_`, outermost first. */
    struct Path {
        size_t begin = 0;
        size_t end = 0;
        Sums sums = {};
        size_t size() const { return end - begin; }
    };

    static CallNode node_of(const Sums &sums)
    {
        CallNode node;
        node.live = sums.live;
        node.at_peak = sums.at_peak;
        node.total = sums.total;
        node.short_lived = sums.short_lived;
        return node;
    }

    static void add_sums(CallNode &node, const CallNode &other)
    {
        node.live += other.live;
        node.at_peak += other.at_peak;
        node.total += other.total;
        node.short_lived += other.short_lived;
    }

    std::vector<uint32_t>::const_iterator at(size_t number) const
    {
        return functions_.begin() + static_cast<ptrdiff_t>(number);
    }

    /** Replaces the functions by their ranks, so that the order of paths is that of the names. */
    void rank_functions(const std::vector<SourceFrame> &places)
    {
        by_rank_ = functions_;
        std::sort(by_rank_.begin(), by_rank_.end());
        by_rank_.erase(std::unique(by_rank_.begin(), by_rank_.end()), by_rank_.end());
        by_rank_.shrink_to_fit();
        std::sort(by_rank_.begin(), by_rank_.end(), [&](PlaceId a, PlaceId b) {
            return std::tie(places[a].function, places[a].module) <
                   std::tie(places[b].function, places[b].module);
        });
        std::vector<uint32_t> ranks(places.size());
        for (size_t rank = 0; rank < by_rank_.size(); rank++) {
            ranks[by_rank_[rank]] = static_cast<uint32_t>(rank);
        }
        for (uint32_t &function : functions_) {
            function = ranks[function];
        }
    }

    /** Adds paths, which are sorted and agree in their first `depth` functions, to the node that
     *  these lead to. */
    void add_paths(CallNode &node, std::span<const Path> paths, size_t depth,
                   const std::vector<SourceFrame> &places) const
    {
        for (; !paths.empty() && paths.front().size() == depth; paths = paths.subspan(1)) {
            add_sums(node, node_of(paths.front().sums));
        }
        size_t children = 0;
        for (auto rest = paths; !rest.empty(); rest = rest.subspan(same_child(rest, depth))) {
            children++;
        }
        node.children.reserve(children);
        while (!paths.empty()) {
            const size_t count = same_child(paths, depth);
            const SourceFrame &place = places[by_rank_[*at(paths.front().begin + depth)]];
            CallNode &child = node.children.emplace_back();
            child.function = place.function;
            child.module = place.module;
            add_paths(child, paths.first(count), depth + 1, places);
            add_sums(node, child);
            paths = paths.subspan(count);
        }
    }

    /** How many paths, from the first one on, go on with the same function. */
    size_t same_child(std::span<const Path> paths, size_t depth) const
    {
        const uint32_t function = *at(paths.front().begin + depth);
        const auto other = std::find_if(paths.begin(), paths.end(), [&](const Path &path) {
            return *at(path.begin + depth) != function;
        });
        return static_cast<size_t>(other - paths.begin());
    }

    std::vector<uint32_t> functions_; ///< PlaceIds, in the end ranks
    std::vector<PlaceId> by_rank_;
    std::vector<Path> paths_;
    Sums all_;
};

// ---- The report ----

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
    static constexpr uint32_t filtered_out = unknown - 1;

    /** What a stack belongs to; found out at its first use. */
    struct StackUse {
        uint32_t row = unknown; ///< or filtered_out
        uint32_t path = 0;      ///< in the tree of calls
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
        if (use.row == unknown) {
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
        switch (options_.by) {
        case Grouping::site: {
            size_t end = begin;
            while (places_[places[end]].inlined) {
                end++;
            }
            return {&places[begin], &places[end] + 1};
        }
        case Grouping::function:
            return {places_.number(site.function, {}, site.module)};
        case Grouping::file:
            return {places_.number({}, site.file, site.file.empty() ? site.module : "")};
        case Grouping::module:
            return {places_.number({}, {}, site.module)};
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
        PlaceIds key = {static_cast<PlaceId>(fault.kind)};
        bool kept = false;
        const auto frames = [&](const std::optional<StackId> &id) {
            if (!id) {
                key.push_back(unknown);
                return std::vector<SourceFrame>();
            }
            const Stack &stack = stacks_.stacks()[*id];
            const PlaceIds whole = places_.of(stack);
            kept = kept || places_.is_kept(stack);
            key.push_back(static_cast<PlaceId>(whole.size()));
            key.insert(key.end(), whole.begin(), whole.end());
            return places_.frames(whole);
        };
        ReportFault made = {fault.kind,
                            frames(fault.allocated),
                            frames(fault.released_first),
                            frames(fault.again),
                            fault.count,
                            fault.first_line,
                            fault.block,
                            fault.bytes,
                            input};
        if (!kept) {
            return;
        }
        const auto [number, is_new] = fault_numbers_.try_emplace(key, report_.faults.size());
        if (is_new) {
            report_.faults.push_back(std::move(made));
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

std::vector<std::string> read_suppressions(const std::string &path)
{
    Input input(path);
    std::string text;
    std::vector<char> buffer(65536);
    for (size_t size = input.read(buffer); size != 0; size = input.read(buffer)) {
        text.append(buffer.data(), size);
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

} // namespace vektrace
