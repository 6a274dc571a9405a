// SPDX-License-Identifier: MIT
// The curve and the sites as massif's files have them, for ms_print and its graphical relatives.
#include <algorithm>
#include <map>
#include <utility>

#include <fmt/format.h>

#include "words.h"

namespace vektrace {

namespace {

constexpr size_t most_snapshots = 100; ///< as massif has by default
constexpr uint64_t threshold = 100;    ///< smaller parts of the whole than a hundredth are one line

/** Bytes from one place, and the callers that it has them for. */
struct MassifNode {
    uint64_t bytes = 0;
    std::map<std::string, MassifNode> callers;
};

/** The text without what ends a line or begins a comment. */
std::string in_a_line(std::string text)
{
    std::replace_if(
        text.begin(), text.end(),
        [](char byte) { return byte == '#' || static_cast<unsigned char>(byte) < ' '; }, '.');
    return text;
}

/** "0x0: load (config.c:12)" or "0x0: load (in logdigest)". Readers want an address; a line of the
 *  source may have many. */
std::string massif_place(const SourceFrame &frame)
{
    std::string text = "0x0: " + (frame.function.empty() ? "???" : frame.function);
    if (!frame.file.empty()) {
        text += fmt::format(" ({}:{})", last_name(frame.file), frame.line);
    } else if (!frame.module.empty()) {
        text += fmt::format(" (in {})", frame.module);
    }
    return in_a_line(std::move(text));
}

MassifNode tree_of(const Report &report, Amount Numbers::*amount)
{
    MassifNode root;
    for (const Row &row : report.rows) {
        MassifNode *node = &root;
        const uint64_t bytes = (row.numbers.*amount).bytes;
        node->bytes += bytes;
        for (auto frame = row.frames.begin(); bytes != 0 && frame != row.frames.end(); ++frame) {
            node = &node->callers[massif_place(*frame)];
            node->bytes += bytes;
        }
    }
    return root;
}

void add_tree(const std::string &place, const MassifNode &node, uint64_t whole, size_t depth,
              std::string &text)
{
    std::vector<std::pair<const std::string *, const MassifNode *>> shown;
    uint64_t rest = 0;
    for (const auto &[caller, below] : node.callers) {
        if (below.bytes >= (whole + threshold - 1) / threshold) {
            shown.emplace_back(&caller, &below);
        } else {
            rest += below.bytes;
        }
    }
    std::stable_sort(shown.begin(), shown.end(), [](const auto &a, const auto &b) {
        return a.second->bytes > b.second->bytes;
    });
    const size_t hidden = node.callers.size() - shown.size();
    text += fmt::format("{:{}}n{}: {} {}\n", "", depth, shown.size() + (hidden != 0), node.bytes,
                        place);
    for (const auto &[caller, below] : shown) {
        add_tree(*caller, *below, whole, depth + 1, text);
    }
    if (hidden != 0) {
        text += fmt::format("{:{}}n0: {} in {}, all below massif's threshold (1.00%)\n", "",
                            depth + 1, rest, format_count(hidden, "place"));
    }
}

struct Snapshot {
    uint64_t time;
    uint64_t bytes;
};

/** The curve of all processes, each from its own start, added. */
std::vector<Snapshot> curve(const Report &report)
{
    std::vector<std::pair<uint64_t, std::pair<size_t, uint64_t>>> steps; ///< time, process, bytes
    for (size_t i = 0; i < report.processes.size(); i++) {
        for (const Moment &moment : report.processes[i].moments) {
            const uint64_t time = report.totals.has_times ? moment.milliseconds : moment.event;
            steps.push_back({time, {i, moment.bytes}});
        }
    }
    std::stable_sort(steps.begin(), steps.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<uint64_t> now(report.processes.size());
    std::vector<Snapshot> snapshots;
    uint64_t sum = 0;
    for (const auto &[time, step] : steps) {
        sum = sum - now[step.first] + step.second;
        now[step.first] = step.second;
        snapshots.push_back({time, sum});
    }
    return snapshots;
}

/** Fewer snapshots: of each part of the curve the highest. */
std::vector<Snapshot> thinned(const std::vector<Snapshot> &all)
{
    const size_t part = (all.size() + most_snapshots - 1) / most_snapshots;
    std::vector<Snapshot> result;
    for (size_t i = 0; i < all.size(); i += part) {
        const auto begin = all.begin() + static_cast<ptrdiff_t>(i);
        const auto end = begin + static_cast<ptrdiff_t>(std::min(part, all.size() - i));
        result.push_back(*std::max_element(
            begin, end, [](const Snapshot &a, const Snapshot &b) { return a.bytes < b.bytes; }));
    }
    return result;
}

class Massif {
public:
    explicit Massif(const Report &report) : report_(report) {}

    std::string write()
    {
        const Totals &totals = report_.totals;
        const uint64_t end = totals.has_times ? totals.milliseconds : totals.events;
        const uint64_t peak_time =
            std::min(end, totals.has_times ? totals.peak_milliseconds : totals.peak_event);
        head();
        bool with_peak = false;
        for (const Snapshot &snapshot : thinned(curve(report_))) {
            if (!with_peak && snapshot.time >= peak_time) {
                detailed("peak", {peak_time, totals.peak.bytes}, &Numbers::at_peak);
                with_peak = true;
            }
            if (snapshot.time != peak_time) {
                begin_snapshot(snapshot);
                text_ += "heap_tree=empty\n";
            }
        }
        if (!with_peak) {
            detailed("peak", {peak_time, totals.peak.bytes}, &Numbers::at_peak);
        }
        detailed("detailed", {end, totals.live.bytes}, &Numbers::live);
        return std::move(text_);
    }

private:
    void head()
    {
        const bool has_times = report_.totals.has_times;
        const size_t processes = report_.processes.size();
        const ProcessSummary none = {};
        const ProcessSummary &first = processes == 0 ? none : report_.processes.front();
        text_ = fmt::format("desc: vek-trace{}{}\n",
                            has_times ? "" : "; i counts calls of the allocator",
                            processes > 1 ? "; the peak adds those of all processes" : "");
        text_ += "cmd: " + in_a_line(first.command.empty() ? first.input : first.command);
        if (processes > 1) {
            text_ += fmt::format(" and {}",
                                 format_count(processes - 1, "more process", "more processes"));
        }
        text_ += fmt::format("\ntime_unit: {}\n", has_times ? "ms" : "i");
    }

    void begin_snapshot(const Snapshot &snapshot)
    {
        text_ += fmt::format("#-----------\nsnapshot={}\n#-----------\ntime={}\nmem_heap_B={}\n"
                             "mem_heap_extra_B=0\nmem_stacks_B=0\n",
                             snapshots_++, snapshot.time, snapshot.bytes);
    }

    void detailed(const char *kind, const Snapshot &snapshot, Amount Numbers::*amount)
    {
        begin_snapshot(snapshot);
        text_ += fmt::format("heap_tree={}\n", kind);
        add_tree("(heap allocation functions) vek_malloc, vek_calloc, vek_realloc, etc.",
                 tree_of(report_, amount), snapshot.bytes, 0, text_);
    }

    const Report &report_;
    std::string text_;
    size_t snapshots_ = 0;
};

} // namespace

std::string format_massif(const Report &report)
{
    return Massif(report).write();
}

} // namespace vektrace
