// SPDX-License-Identifier: MIT
// The report as JSON, described by docs/trace.schema.json. What is unknown is left out.
#include "json.h"

#include <fmt/format.h>

#include "words.h"

namespace vektrace {

namespace {

void set_if(Json &object, const char *key, std::string_view text)
{
    if (!text.empty()) {
        object[key] = text;
    }
}

Json to_json(const Moment &moment, bool has_times)
{
    Json json = {{"event", moment.event}, {"bytes", moment.bytes}, {"blocks", moment.blocks}};
    if (has_times) {
        json["milliseconds"] = moment.milliseconds;
    }
    return json;
}

Json to_json(const ForeignLine &line)
{
    return {{"number", line.number}, {"text", line.text}};
}

Json to_json(const ProcessSummary &process)
{
    const InputFacts &facts = process.facts;
    Json json = {{"input", process.input}, {"kind", facts.is_recording ? "recording" : "lines"}};
    set_if(json, "command", process.command);
    if (!facts.command.empty()) {
        json["arguments"] = facts.command;
    }
    if (process.pid != 0) {
        json["pid"] = process.pid;
    }
    if (facts.start != 0) {
        json["start"] = facts.start;
    }
    if (process.status) {
        json["status"] = *process.status;
    }
    set_if(json, "ended", ending(process));
    set_if(json, "broken", facts.broken);
    json["totals"] = to_json(process.totals);
    json["lines"] = facts.lines;
    json["foreign_lines"] = facts.foreign_lines;
    json["first_foreign"] = Json::array();
    for (const ForeignLine &line : facts.first_foreign) {
        json["first_foreign"].push_back(to_json(line));
    }
    set_if(json, "torn", facts.torn);
    json["missing_numbers"] = facts.missing_numbers;
    json["notes"] = facts.notes;
    json["moments"] = Json::array();
    for (const Moment &moment : process.moments) {
        json["moments"].push_back(to_json(moment, process.totals.has_times));
    }
    return json;
}

Json to_json(const Row &row)
{
    Json json = {
        {"frames", to_json(row.frames)}, {"through", row.through}, {"chain", name(row.end)}};
    json.update(to_json(row.numbers));
    json["recordings"] = row.recordings;
    json["growing"] = row.growing;
    json["suppressed"] = row.suppressed;
    return json;
}

Json to_json(const ReportFault &fault)
{
    Json json = {{"kind", name(fault.kind)}, {"count", fault.count}};
    if (!fault.allocated.empty()) {
        json["allocated"] = to_json(fault.allocated);
    }
    if (!fault.released_first.empty()) {
        json["released_first"] = to_json(fault.released_first);
    }
    json["again"] = to_json(fault.again);
    json["input"] = fault.input;
    json["first_line"] = fault.first_line;
    if (fault.block != 0) {
        json["block"] = fmt::format("{:#x}", fault.block);
    }
    // Impossible sizes are signed numbers, as in trace lines.
    if (fault.kind == FaultKind::impossible_size) {
        json["bytes"] = static_cast<int64_t>(fault.bytes);
    } else if (fault.bytes != 0 || !fault.allocated.empty()) {
        json["bytes"] = fault.bytes;
    }
    return json;
}

Json to_json(const MissingModule &missing)
{
    Json json = {{"path", missing.path}, {"problem", missing.problem}};
    set_if(json, "build_id", missing.build_id);
    return json;
}

template <class T>
void write_list(JsonWriter &writer, const char *key, const std::vector<T> &elements)
{
    writer.begin_list(key);
    for (const T &each : elements) {
        writer.element(to_json(each));
    }
    writer.end_list();
}

/** Writes the tree of calls as a list in which callers precede what they call: chains may be deeper
 *  than readers of JSON accept nested values. `next` is the number of the next node. */
void write_calls(JsonWriter &writer, const CallNode &node, std::optional<size_t> parent,
                 size_t &next)
{
    size_t number = next++;
    Json json = Json::object();
    if (parent) {
        json["parent"] = *parent;
        json["function"] = node.function;
        set_if(json, "module", node.module);
    }
    json["live"] = to_json(node.live);
    json["at_peak"] = to_json(node.at_peak);
    json["total"] = to_json(node.total);
    json["short_lived"] = node.short_lived;
    writer.element(json);
    for (const CallNode &child : node.children) {
        write_calls(writer, child, number, next);
    }
}

} // namespace

Json to_json(const Amount &amount)
{
    return {{"blocks", amount.blocks}, {"bytes", amount.bytes}};
}

Json to_json(const Totals &totals)
{
    Json peak = to_json(totals.peak);
    peak["event"] = totals.peak_event;
    if (totals.has_times) {
        peak["milliseconds"] = totals.peak_milliseconds;
    }
    Json json = {{"events", totals.events},
                 {"allocations", totals.allocations},
                 {"resizes", totals.resizes},
                 {"releases", totals.releases},
                 {"failed", totals.failed},
                 {"refused", totals.refused},
                 {"faults", totals.faults},
                 {"live", to_json(totals.live)},
                 {"peak", peak},
                 {"total", to_json(totals.total)}};
    if (totals.has_times) {
        json["milliseconds"] = totals.milliseconds;
    }
    return json;
}

Json to_json(const Numbers &numbers)
{
    Json json = {{"live", to_json(numbers.live)},
                 {"at_peak", to_json(numbers.at_peak)},
                 {"total", to_json(numbers.total)}};
    if (numbers.total.blocks != 0) {
        json["smallest"] = numbers.smallest;
        json["largest"] = numbers.largest;
    }
    json["short_lived"] = numbers.short_lived;
    json["failed"] = numbers.failed;
    json["refused"] = numbers.refused;
    return json;
}

Json to_json(const SourceFrame &frame)
{
    Json json = Json::object();
    set_if(json, "function", frame.function);
    set_if(json, "file", frame.file);
    if (frame.line != 0) {
        json["line"] = frame.line;
    }
    set_if(json, "module", frame.module);
    if (frame.inlined) {
        json["inlined"] = true;
    }
    if (frame.library) {
        json["library"] = true;
    }
    return json;
}

Json to_json(const std::vector<SourceFrame> &frames)
{
    Json json = Json::array();
    for (const SourceFrame &frame : frames) {
        json.push_back(to_json(frame));
    }
    return json;
}

void JsonWriter::member(const char *key, const Json &value)
{
    begin(key);
    text_ += value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void JsonWriter::begin_list(const char *key)
{
    begin(key);
    text_ += '[';
    separator_ = "\n";
}

void JsonWriter::element(const Json &value)
{
    text_ += separator_;
    text_ += value.dump(-1, ' ', false, Json::error_handler_t::replace);
    separator_ = ",\n";
}

void JsonWriter::end_list()
{
    text_ += ']';
    separator_ = ",\n";
}

std::string JsonWriter::finish()
{
    return std::move(text_) + "\n}\n";
}

void JsonWriter::begin(const char *key)
{
    text_ += fmt::format("{}\"{}\":", separator_, key);
    separator_ = ",\n";
}

std::string format_json(const Report &report)
{
    JsonWriter writer;
    writer.member("format", "vek-trace-report");
    writer.member("version", 1);
    writer.member("by", name(report.by));
    writer.member("sort", name(report.sort));
    if (!report.filter.empty()) {
        writer.member("filter", report.filter);
    }
    writer.member("has_chains", report.has_chains);
    writer.member("recordings", report.recordings);
    writer.member("totals", to_json(report.totals));
    writer.member("unsuppressed", to_json(report.unsuppressed));
    writer.member("suppressed", to_json(report.suppressed));
    write_list(writer, "processes", report.processes);
    write_list(writer, "rows", report.rows);
    write_list(writer, "faults", report.faults);
    writer.begin_list("calls");
    size_t next = 0;
    write_calls(writer, report.calls, std::nullopt, next);
    writer.end_list();
    write_list(writer, "missing", report.missing);
    return writer.finish();
}

} // namespace vektrace
