// SPDX-License-Identifier: MIT
// usage: sample_report json|html|diff SITES MOMENTS - writes a report that was made up, or compares
// it with another one: so many sites below a deep tree of calls, every kind of fault, several
// processes, and texts that try to break out of wherever they are put.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <set>
#include <string>

#include "report.h"

using namespace vektrace;

namespace {

std::mt19937 generator(7);

uint64_t below(uint64_t limit) { return generator() % limit; }

const char *const hostile[] = {
    "</script><script>document.title = 'hit'</script>",
    "<!--<script>",
    "<img src=x onerror=\"document.title = 'hit'\">",
    "]]>&lt;&#60;\"'`\\u003c",
    "\xff\xfe broken \xc3(\x01",
    "operator<<(std::ostream &, Ünïcode)",
};

const char *const verbs[] = {"load",   "parse", "append", "copy",  "format",  "decode",
                             "insert", "read",  "build",  "merge", "resolve", "queue"};
const char *const nouns[] = {"config", "header", "message", "session", "route", "table", "entry",
                             "packet", "record", "name",    "cache",   "event", "line",  "token"};

SourceFrame make_frame(size_t number)
{
    std::string noun = nouns[number % std::size(nouns)];
    std::string function = verbs[number / 3 % std::size(verbs)];
    function += "_" + noun;
    if (number >= 100) { function += "_" + std::to_string(number / 100); }
    return {.function = function,
            .file = "src/" + noun + "/" + function + ".c",
            .line = static_cast<unsigned>(10 + below(900)),
            .module = number % 4 == 0 ? "libroute.so.2" : "gateway"};
}

Row make_row(size_t number)
{
    Row row;
    row.frames = {make_frame(number)};
    if (number < std::size(hostile)) {
        row.frames[0].function = hostile[number];
    } else if (number % 13 == 12) {
        row.frames[0] = {.function = "libvendor.so+0x" + std::to_string(4000 + number),
                         .file = "",
                         .line = 0,
                         .module = "libvendor.so"};
    } else if (number % 5 == 0) {
        row.frames[0].inlined = true;
        row.frames.push_back(make_frame(number + 1));
    }
    row.through = {"vek_str_dict_put_int", "vek_value_dup"};
    row.end = number % 9 == 8 ? ChainEnd::cut : ChainEnd::whole;
    Numbers &numbers = row.numbers;
    numbers.smallest = 8 + below(64);
    numbers.largest = numbers.smallest + below(4096);
    uint64_t mean = (numbers.smallest + numbers.largest) / 2;
    uint64_t scale = 4000 / (number + 1) + 1;
    numbers.live.blocks = number % 3 == 2 ? 0 : scale + below(scale);
    numbers.at_peak.blocks = numbers.live.blocks + below(scale);
    numbers.total.blocks = numbers.at_peak.blocks + 1 + below(scale * 50);
    for (Amount *amount : {&numbers.live, &numbers.at_peak, &numbers.total}) {
        amount->bytes = amount->blocks * mean;
    }
    numbers.short_lived = (numbers.total.blocks - numbers.at_peak.blocks) * (number % 4) / 4;
    numbers.failed = number % 50 == 49 ? 3 : 0;
    row.recordings = 3;
    row.growing = number % 7 == 0 ? 3 : 0;
    row.suppressed = number % 40 == 39;
    return row;
}

/** Adds a row's numbers along a path of calls to it. */
void add_calls(CallNode &root, const Row &row, size_t number)
{
    static std::set<std::string> names; // nodes only refer to them
    std::vector<std::string> path = {"_start", "main"};
    for (size_t depth = 0; depth < 2 + number % 23; depth++) {
        path.push_back(make_frame(depth * (1 + number % 3) + number % 5).function);
    }
    path.push_back(row.frames[0].function);
    CallNode *node = &root;
    for (size_t step = 0;; step++) {
        node->live += row.numbers.live;
        node->at_peak += row.numbers.at_peak;
        node->total += row.numbers.total;
        if (step == path.size()) { return; }
        auto child = node->children.begin();
        while (child != node->children.end() && child->function != path[step]) { child++; }
        if (child == node->children.end()) {
            const char *module = step == 0       ? "libc.so.6"
                                 : step % 6 == 5 ? "libroute.so.2"
                                                 : "gateway";
            node->children.push_back({{}, *names.insert(path[step]).first, module, {}});
            child = node->children.end() - 1;
        }
        node = &*child;
    }
}

ProcessSummary make_process(size_t number, size_t moments, const Totals &whole)
{
    ProcessSummary process;
    process.input = "run/" + std::to_string(1200 + number) + ".events";
    process.command = number == 1 ? hostile[0] : "/usr/bin/gateway --config /etc/gateway.conf";
    process.pid = static_cast<uint32_t>(1200 + number);
    process.facts.is_recording = number != 2;
    process.facts.lines = 40000 * (number + 1);
    if (number == 0) {
        process.status = 0;
    } else if (number == 1) {
        process.status = 137;
        process.facts.broken = "the disk was full after 812 events";
        process.facts.notes = {"the program's own vek_malloc passes the library by"};
    } else {
        process.input = "device.trace";
        process.command.clear();
        process.pid = 0;
        process.facts.foreign_lines = 12;
        process.facts.first_foreign = {{3, hostile[1]}, {17, hostile[2]}, {90, "\\xff\\xfe"}};
        process.facts.torn = "#4711 [0x8048";
        process.facts.missing_numbers = 2;
    }
    Totals &totals = process.totals;
    totals = whole;
    totals.has_times = number != 2;
    double height = static_cast<double>(whole.peak.bytes >> (number + 1));
    for (size_t i = 0; i < moments; i++) {
        double at = static_cast<double>(i) / static_cast<double>(moments);
        double wave =
            at * 0.6 + 0.5 * std::pow(std::sin(at * 9.0 + static_cast<double>(number)), 2);
        auto bytes = static_cast<uint64_t>(height * wave) + below(60000);
        Moment moment = {i * 20 + 1, totals.has_times ? i * 37 : 0, bytes, bytes / 60};
        process.moments.push_back(moment);
        if (bytes > totals.peak.bytes || i == 0) {
            totals.peak = {moment.blocks, bytes};
            totals.peak_event = moment.event;
            totals.peak_milliseconds = moment.milliseconds;
        }
    }
    totals.live = {process.moments.back().blocks, process.moments.back().bytes};
    totals.events = process.facts.lines;
    totals.milliseconds = totals.has_times ? moments * 37 : 0;
    return process;
}

std::vector<SourceFrame> make_stack(size_t number)
{
    return {make_frame(number),
            make_frame(number + 1),
            make_frame(number + 2),
            {.function = "main", .file = "src/main.c", .line = 41, .module = "gateway"}};
}

void add_faults(Report &report)
{
    for (size_t i = 0; i <= static_cast<size_t>(FaultKind::impossible_size); i++) {
        ReportFault fault = {};
        fault.kind = static_cast<FaultKind>(i);
        fault.again = make_stack(i);
        fault.again[1].function = hostile[i];
        fault.count = i + 1;
        fault.first_line = 100 + i;
        fault.input = "device.trace";
        if (fault.kind == FaultKind::impossible_size) {
            fault.bytes = static_cast<uint64_t>(-24);
        } else {
            fault.block = 0xffff80001234 + i * 16;
            fault.bytes = i == 2 || i == 3 ? 0 : 48;
        }
        if (i < 2) { fault.released_first = make_stack(i + 20); }
        if (i < 2 || fault.kind == FaultKind::allocated_while_live) {
            fault.allocated = make_stack(i + 10);
        }
        report.totals.faults += fault.count;
        report.faults.push_back(fault);
    }
}

Report make_sample(size_t sites, size_t moments)
{
    Report report;
    for (size_t i = 0; i < sites; i++) {
        Row row = make_row(i);
        add_calls(report.calls, row, i);
        report.totals.live += row.numbers.live;
        report.totals.peak += row.numbers.at_peak;
        report.totals.total += row.numbers.total;
        (row.suppressed ? report.suppressed : report.unsuppressed) += row.numbers.live;
        report.totals.failed += row.numbers.failed;
        report.rows.push_back(std::move(row));
    }
    std::stable_sort(report.rows.begin(), report.rows.end(), [](const Row &one, const Row &other) {
        return one.suppressed != other.suppressed
                   ? other.suppressed
                   : one.numbers.live.bytes > other.numbers.live.bytes;
    });
    report.totals.allocations = report.totals.total.blocks - 500;
    report.totals.resizes = 500;
    report.totals.releases = report.totals.allocations - report.totals.live.blocks;
    report.totals.refused = 2;
    report.recordings = 3;
    report.has_chains = true;
    Totals whole = report.totals;
    for (size_t i = 0; i < 3; i++) { report.processes.push_back(make_process(i, moments, whole)); }
    const Totals &highest = report.processes[0].totals;
    report.totals.has_times = true;
    report.totals.peak_event = highest.peak_event;
    report.totals.peak_milliseconds = highest.peak_milliseconds;
    report.totals.milliseconds = highest.milliseconds;
    report.totals.events = 240000;
    add_faults(report);
    report.missing = {{"/usr/lib/libvendor.so", "5f0c3a77", "no file /usr/lib/libvendor.so"},
                      {hostile[0], "", "no file"}};
    return report;
}

} // namespace

int main(int count, char **arguments)
{
    if (count != 4) {
        fputs("usage: sample_report json|html|diff SITES MOMENTS\n", stderr);
        return 2;
    }
    size_t sites = strtoul(arguments[2], nullptr, 10);
    Report report = make_sample(sites, strtoul(arguments[3], nullptr, 10));
    std::string_view format = arguments[1];
    std::string text = format == "json"   ? format_json(report)
                       : format == "html" ? format_html(report)
                                          : format_json(compare(report, make_sample(sites / 2, 1)));
    return fwrite(text.data(), 1, text.size(), stdout) == text.size() ? 0 : 1;
}
