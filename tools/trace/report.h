// SPDX-License-Identifier: MIT
// The report: what all recordings together say, by place in the source. Its formats (text, JSON,
// HTML, folded stacks, massif) know nothing but this.
#ifndef VEKTRACE_REPORT_H
#define VEKTRACE_REPORT_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "history.h"
#include "reader.h"
#include "stacks.h"
#include "symbols.h"

namespace vektrace {

/** One process: a file of trace lines, or one file of a recording. */
struct Process {
    std::string input;     ///< the file or "-"
    std::string recording; ///< the recording that it is of; the same as input for trace lines
    InputFacts facts;
    History history;                ///< finished
    std::optional<unsigned> status; ///< exit status as a shell shows it, if known
};

enum class Grouping : uint8_t { site, function, file, module, stack };
enum class Order : uint8_t { live, peak, total, count, short_lived };

struct ReportOptions {
    Grouping by = Grouping::site;
    Order sort = Order::live;
    /// A regular expression (ECMAScript): only stacks with a frame whose function, file or module
    /// it matches somewhere.
    std::string filter;
    /// Patterns as in `leak:pattern`: * stands for any text, ^ and $ for the beginning and the end.
    /// A pattern matches anywhere in the function, file or module of any frame.
    std::vector<std::string> suppressed;
    bool calls = true; ///< whether to make the tree of calls, which can be large
};

/** A frame of a site or a fault, ready to print. */
struct SourceFrame {
    std::string function; ///< "module+0x1234" if it is unknown
    std::string file;
    unsigned line = 0;
    std::string module;   ///< the file's last name; empty if unknown
    bool inlined = false; ///< inlined into the next frame
    bool library = false; ///< the library's own code: of its module, or from one of its headers
    bool operator==(const SourceFrame &) const = default;
};

/** Sites that count as one: the same function, file and line (or what the grouping says). */
struct Row {
    /// The innermost frame outside the library, then the frames it was inlined into; with
    /// Grouping::stack the whole stack, innermost first. For function, file and module one frame
    /// with that field alone; a function has its module, too, and an unknown file only that.
    std::vector<SourceFrame> frames;
    std::vector<std::string> through; ///< the library's functions that the site called, sorted
    ChainEnd end = ChainEnd::none;    ///< cut or limited if any of its chains is
    Numbers numbers;                  ///< of all processes, each at its own peak
    unsigned recordings = 0;          ///< how many have it
    unsigned growing = 0;             ///< on how many it grows
    bool suppressed = false;
};

struct ReportFault {
    FaultKind kind;
    std::vector<SourceFrame> allocated; ///< empty if unknown; innermost first, as a whole stack
    std::vector<SourceFrame> released_first; ///< likewise
    std::vector<SourceFrame> again;
    uint64_t count = 0;
    uint64_t first_line = 0;
    uint64_t block = 0;
    uint64_t bytes = 0;
    std::string input; ///< of the first one
};

/** What a node of the tree of calls allocated, with all its children. */
struct CallSums {
    Amount live;
    Amount at_peak;
    Amount total;
    uint64_t short_lived = 0;

    CallSums &operator+=(const CallSums &other);
};

/** A node of the tree of calls, outermost functions first: for the flame graph. */
struct CallNode : CallSums {
    std::string_view function; ///< inlined functions have nodes of their own
    std::string_view module;
    std::vector<CallNode> children; ///< by name
};

struct ProcessSummary {
    std::string input;
    std::string command; ///< with arguments; empty for trace lines
    uint32_t pid = 0;
    std::optional<unsigned> status;
    Totals totals;
    InputFacts facts;
    std::vector<Moment> moments;
};

struct MissingModule {
    std::string path;
    std::string build_id;
    std::string problem;
};

struct Report {
    Totals totals; ///< sums; of peak_event and peak_milliseconds those of the highest peak
    unsigned recordings = 0;
    std::vector<ProcessSummary> processes;
    Grouping by = Grouping::site;
    Order sort = Order::live;
    std::string filter;    ///< that of the options; the totals are those of all stacks
    std::vector<Row> rows; ///< sorted; suppressed ones last
    std::vector<ReportFault> faults;
    CallNode calls; ///< the root has no name, and no children unless ReportOptions::calls
    std::shared_ptr<const std::vector<SourceFrame>> names; ///< of the tree's nodes
    std::vector<MissingModule> missing;
    Amount suppressed;   ///< live at the end
    Amount unsuppressed; ///< live at the end: leaks
    bool has_chains = false;
};

Report make_report(const std::vector<Process> &processes, const Stacks &stacks,
                   const Symbols &symbols, const ReportOptions &options);

// ---- Formats; each returns the whole text ----

struct TextOptions {
    bool colour = false;
    unsigned width = 100; ///< of the terminal, or 100
    size_t top = 20;      ///< rows of a table; 0: all
};
std::string format_text(const Report &report, const TextOptions &options);
std::string format_json(const Report &report);
std::string format_html(const Report &report);
/** One line a stack, outermost first: "main;load;parse 4096": bytes by the report's order (live,
 *  peak, total; count and short_lived: blocks). */
std::string format_folded(const Report &report);
std::string format_massif(const Report &report);

// ---- Comparison ----

/** What changed in one place between two reports made with the same grouping. */
struct Change {
    std::vector<SourceFrame> frames;
    Numbers before;
    Numbers after;
    enum class Kind : uint8_t { grew, shrank, came, went } kind;
};

struct Difference {
    Totals before;
    Totals after;
    Grouping by;
    Order sort;
    std::vector<Change> changes; ///< largest first; what is the same has none
};

Difference compare(const Report &before, const Report &after);
std::string format_text(const Difference &difference, const TextOptions &options);
std::string format_json(const Difference &difference);

} // namespace vektrace

#endif
