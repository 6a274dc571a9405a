// SPDX-License-Identifier: MIT
// The command line of vek-trace.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/core.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "load.h"
#include "patterns.h"
#include "progress.h"
#include "report.h"
#include "run.h"
#include "words.h"

namespace vektrace {

namespace {

constexpr int exit_leak = 1;
constexpr int exit_unusable = 2; // wrong usage, or input that cannot be read

// What the recorder exits with, as a shell does, if it cannot start the program.
constexpr int not_executable = 126;
constexpr int no_such_program = 127;

enum class Format : uint8_t { text, json, html, folded, massif };
enum class Colour : uint8_t { automatic, always, never };

/** The words that an option accepts, in the order of the help. */
template <typename Value>
using Choices = std::vector<std::pair<std::string, Value>>;

template <typename Value>
Choices<Value> by_name(std::initializer_list<Value> values)
{
    Choices<Value> choices;
    for (const Value value : values) {
        choices.emplace_back(name(value), value);
    }
    return choices;
}

Choices<Format> formats()
{
    return {{"text", Format::text},
            {"json", Format::json},
            {"html", Format::html},
            {"folded", Format::folded},
            {"massif", Format::massif}};
}

Choices<Format> diff_formats()
{
    return {{"text", Format::text}, {"json", Format::json}};
}

Choices<Grouping> groupings()
{
    return by_name(
        {Grouping::site, Grouping::function, Grouping::file, Grouping::module, Grouping::stack});
}

Choices<Order> orders()
{
    return by_name({Order::live, Order::peak, Order::total, Order::count, Order::short_lived});
}

Choices<Colour> colours()
{
    return {{"auto", Colour::automatic}, {"always", Colour::always}, {"never", Colour::never}};
}

/** What the command line says. */
struct Arguments {
    // What to show, and how.
    Format format = Format::text;
    Colour colour = Colour::automatic;
    size_t top = TextOptions().top;
    ReportOptions report;
    std::vector<std::string> suppression_files;
    std::string output;
    bool fail_on_leak = false;

    // Where to find symbols.
    SymbolOptions symbols;
    std::string modules;
    std::string old_exe;
    std::string old_modules;

    std::vector<std::string> inputs; // of report
    std::string old_input;           // of diff
    std::string new_input;
    std::vector<std::string> program; // of run
    unsigned depth = 0;
    std::string keep;
};

// ---- The command line ----

/** Adds an option that accepts one of some words. */
template <typename Value>
CLI::Option *add_choice(CLI::App &verb, const std::string &name, Value &value,
                        const Choices<Value> &choices, const std::string &help)
{
    std::string words;
    for (const auto &choice : choices) {
        words += (words.empty() ? "" : "|") + choice.first;
    }
    const auto convert = [&value, choices, name, words](const std::string &text) {
        const auto found = std::find_if(choices.begin(), choices.end(),
                                        [&](const auto &choice) { return choice.first == text; });
        if (found == choices.end()) {
            throw CLI::ValidationError(name, fmt::format("\"{}\" is none of {}", text, words));
        }
        value = found->second;
    };
    return verb.add_option_function<std::string>(name, convert, help)->type_name(words);
}

void add_report_options(CLI::App &verb, Arguments &arguments)
{
    ReportOptions &report = arguments.report;
    const std::string group = "What to show";
    add_choice(verb, "--by", report.by, groupings(), "One row for each (site)")->group(group);
    add_choice(verb, "--sort", report.sort, orders(), "Order of the rows, largest first (live)")
        ->group(group);
    verb.add_option("--top", arguments.top, "Most rows in the text, 0 for all (20)")
        ->type_name("N")
        ->check(CLI::Range(0, 1000000))
        ->group(group);
    verb.add_option("--filter", report.filter,
                    "Only stacks with a function, file or module that matches")
        ->type_name("REGEX")
        ->group(group);
    verb.add_option("--suppress", arguments.suppression_files,
                    "Known leaks: lines \"leak:PATTERN\" (repeatable)")
        ->type_name("FILE")
        ->allow_extra_args(false)
        ->group(group);
}

void add_output_options(CLI::App &verb, Arguments &arguments, const Choices<Format> &choices)
{
    const std::string group = "Output";
    add_choice(verb, "--format", arguments.format, choices, "Format of the output (text)")
        ->group(group);
    add_choice(verb, "--color", arguments.colour, colours(), "Colours in the text (auto)")
        ->group(group);
    verb.add_option("-o,--output", arguments.output,
                    "Write to this file instead of the standard output")
        ->type_name("FILE")
        ->group(group);
}

void add_leak_option(CLI::App &verb, Arguments &arguments)
{
    verb.add_flag("--fail-on-leak", arguments.fail_on_leak,
                  "Exit with 1 if anything that is not suppressed is live at the end")
        ->group("Output");
}

void add_symbol_options(CLI::App &verb, Arguments &arguments)
{
    const std::string group = "Symbols";
    SymbolOptions &symbols = arguments.symbols;
    verb.add_option("--sysroot", symbols.sysroot, "Folder with the device's files")
        ->type_name("DIR")
        ->group(group);
    verb.add_option("--debug-dir", symbols.debug_dirs,
                    "Folder with debug files or .build-id/ (repeatable)")
        ->type_name("DIR")
        ->allow_extra_args(false)
        ->group(group);
    verb.add_option("--exe", symbols.exe, "The program's file, if it is elsewhere")
        ->type_name("FILE")
        ->group(group);
}

void add_modules_option(CLI::App &verb, Arguments &arguments)
{
    verb.add_option("--modules", arguments.modules,
                    "For trace lines: a copy of the process's /proc/PID/maps")
        ->type_name("FILE")
        ->group("Symbols");
}

void add_run(CLI::App &app, Arguments &arguments)
{
    CLI::App &verb = *app.add_subcommand(
        "run", "Run a program on this machine, record it, and report what it allocated.");
    verb.footer("The exit status is the program's, but with --fail-on-leak a leak turns 0 into 1.\n"
                "\n"
                "Example: a page for the browser, with the recording kept for later\n"
                "  vek-trace run --format html -o run.html --keep night -- ./gateway -f");
    verb.add_option("program", arguments.program, "The program and its arguments")
        ->required()
        ->type_name("");
    verb.positionals_at_end();
    verb.add_option("--depth", arguments.depth,
                    "Most addresses of a chain (64); 1 records fastest, without chains")
        ->type_name("N")
        ->check(CLI::Range(1, 256));
    verb.add_option("--keep", arguments.keep, "Keep the recording in this folder")
        ->type_name("DIR");
    add_report_options(verb, arguments);
    add_output_options(verb, arguments, formats());
    add_leak_option(verb, arguments);
    add_symbol_options(verb, arguments);
}

void add_report(CLI::App &app, Arguments &arguments)
{
    CLI::App &verb = *app.add_subcommand(
        "report", "Report on recordings or the library's trace lines; several are merged.");
    verb.footer("Examples: a recording from a device; trace lines from a device\n"
                "  vek-trace report --sysroot staging/ --debug-dir debug/ night\n"
                "  vek-trace report --modules maps.txt --sysroot staging/ trace.txt");
    verb.add_option("input", arguments.inputs,
                    "Recordings or files with trace lines (-: standard input)")
        ->required()
        ->type_name("");
    add_report_options(verb, arguments);
    add_output_options(verb, arguments, formats());
    add_leak_option(verb, arguments);
    add_symbol_options(verb, arguments);
    add_modules_option(verb, arguments);
}

void add_diff(CLI::App &app, Arguments &arguments)
{
    CLI::App &verb = *app.add_subcommand(
        "diff", "Compare two recordings or files with trace lines by function, file and line.");
    verb.footer("Example: what a new release does differently at its peak\n"
                "  vek-trace diff --sort peak release-1 release-2");
    verb.add_option("old", arguments.old_input, "The older recording, or file with trace lines")
        ->required()
        ->type_name("");
    verb.add_option("new", arguments.new_input, "The newer one")->required()->type_name("");
    add_report_options(verb, arguments);
    add_output_options(verb, arguments, diff_formats());
    add_symbol_options(verb, arguments);
    add_modules_option(verb, arguments);
    verb.add_option("--old-exe", arguments.old_exe, "--exe of the old one")
        ->type_name("FILE")
        ->group("Symbols");
    verb.add_option("--old-modules", arguments.old_modules, "--modules of the old one")
        ->type_name("FILE")
        ->group("Symbols");
}

// ---- The work ----

bool use_colour(const Arguments &arguments)
{
    if (arguments.colour != Colour::automatic) {
        return arguments.colour == Colour::always;
    }
    const char *const terminal = std::getenv("TERM");
    const char *const no_colour = std::getenv("NO_COLOR");
    return arguments.output.empty() && isatty(STDOUT_FILENO) == 1 &&
           (no_colour == nullptr || *no_colour == '\0') && terminal != nullptr &&
           std::string_view(terminal) != "dumb";
}

TextOptions text_options(const Arguments &arguments)
{
    TextOptions options;
    options.colour = use_colour(arguments);
    options.top = arguments.top;
    winsize size = {};
    if (arguments.output.empty() && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 &&
        size.ws_col != 0) {
        options.width = size.ws_col;
    }
    return options;
}

void read_suppressions_into(Arguments &arguments)
{
    for (const std::string &file : arguments.suppression_files) {
        const std::vector<std::string> patterns = read_suppressions(file);
        arguments.report.suppressed.insert(arguments.report.suppressed.end(), patterns.begin(),
                                           patterns.end());
    }
}

Report read_report(const std::vector<std::string> &inputs, const std::string &modules,
                   const SymbolOptions &symbols, const ReportOptions &options)
{
    Stacks stacks;
    ProgressLine line;
    const ModuleMap map =
        modules.empty() ? ModuleMap() : read_modules(modules, symbols.sysroot, stacks);
    const std::vector<Process> processes =
        load(inputs, map, stacks, [&line](const std::string &name, const Progress &progress) {
            line.show(name, progress);
        });
    line.show(fmt::format("finding the symbols of {} addresses", stacks.frames().size()));
    return make_report(processes, stacks, resolve(stacks, symbols), options);
}

std::string format(const Report &report, const Arguments &arguments)
{
    switch (arguments.format) {
    case Format::json:
        return format_json(report);
    case Format::html:
        return format_html(report);
    case Format::folded:
        return format_folded(report);
    case Format::massif:
        return format_massif(report);
    case Format::text:
        break;
    }
    return format_text(report, text_options(arguments));
}

void write(const std::string &text, const std::string &path)
{
    std::FILE *const file = path.empty() ? stdout : std::fopen(path.c_str(), "w");
    const bool written = file != nullptr &&
                         std::fwrite(text.data(), 1, text.size(), file) == text.size() &&
                         std::fflush(file) == 0;
    const int error = errno;
    const bool closed = path.empty() || file == nullptr || std::fclose(file) == 0;
    if (!written || !closed) {
        throw InputError(fmt::format("{}: {}", path.empty() ? "standard output" : path,
                                     std::strerror(written ? errno : error)));
    }
}

int leak_status(const Report &report, const Arguments &arguments)
{
    return arguments.fail_on_leak && report.unsuppressed.blocks != 0 ? exit_leak : EXIT_SUCCESS;
}

bool has_recording(const std::string &folder)
{
    std::error_code error;
    return std::filesystem::is_directory(folder, error) && !files_of(folder).empty();
}

int run(Arguments &arguments)
{
    read_suppressions_into(arguments); // a mistake shall show before the program runs
    const TemporaryFolder temporary;
    const std::string folder = arguments.keep.empty() ? temporary.path() : arguments.keep;
    if (has_recording(folder)) {
        throw InputError(folder + " holds a recording already; choose another folder with --keep");
    }
    const int status = record(folder, arguments.depth, arguments.program);
    if (!has_recording(folder)) { // the recorder has said why
        if (status == no_such_program || status == not_executable) {
            return status;
        }
        throw InputError("nothing was recorded, so there is no report");
    }
    const Report report = read_report({folder}, "", arguments.symbols, arguments.report);
    write(format(report, arguments), arguments.output);
    return status != EXIT_SUCCESS ? status : leak_status(report, arguments);
}

int report(Arguments &arguments)
{
    read_suppressions_into(arguments);
    const Report report =
        read_report(arguments.inputs, arguments.modules, arguments.symbols, arguments.report);
    write(format(report, arguments), arguments.output);
    return leak_status(report, arguments);
}

int diff(Arguments &arguments)
{
    read_suppressions_into(arguments);
    arguments.report.calls = false;
    SymbolOptions old_symbols = arguments.symbols;
    if (!arguments.old_exe.empty()) {
        old_symbols.exe = arguments.old_exe;
    }
    const std::string &old_modules =
        arguments.old_modules.empty() ? arguments.modules : arguments.old_modules;
    const Report before =
        read_report({arguments.old_input}, old_modules, old_symbols, arguments.report);
    const Report after =
        read_report({arguments.new_input}, arguments.modules, arguments.symbols, arguments.report);
    const Difference difference = compare(before, after);
    write(arguments.format == Format::json ? format_json(difference)
                                           : format_text(difference, text_options(arguments)),
          arguments.output);
    return EXIT_SUCCESS;
}

int run_verb(CLI::App &app, Arguments &arguments)
{
    const CLI::App &verb = *app.get_subcommands().front();
    arguments.report.calls = arguments.format != Format::text && arguments.format != Format::massif;
    if (arguments.format == Format::massif && verb.count("--by") == 0) {
        arguments.report.by = Grouping::stack; // by site, its trees would have no depth
    }
    const bool is_page = arguments.format == Format::html && arguments.output.empty();
    if (is_page && isatty(STDOUT_FILENO) == 1) {
        throw InputError("a page is not for the terminal: name a file with -o FILE");
    }
    if (verb.get_name() == "run") {
        return run(arguments);
    }
    return verb.get_name() == "diff" ? diff(arguments) : report(arguments);
}

std::string explain_usage(const CLI::App *app, const CLI::Error &error)
{
    const std::vector<CLI::App *> verbs = app->get_subcommands();
    if (verbs.empty()) {
        const std::vector<std::string> words = app->remaining();
        return fmt::format("vek-trace: {}run, report or diff? (vek-trace --help explains)\n",
                           words.empty() ? "" : fmt::format("not \"{}\": ", words.front()));
    }
    return fmt::format("vek-trace {}: {}\n(vek-trace {} --help explains)\n", verbs[0]->get_name(),
                       error.what(), verbs[0]->get_name());
}

int run_command_line(int argc, char **argv)
{
    CLI::App app("From a program that grows to the line of its source: reads recordings by\n"
                 "vek-record and the trace lines of veklib.",
                 "vek-trace");
    app.footer("vek-trace VERB --help explains a verb. Most often used:\n"
               "  vek-trace run -- ./application arguments...");
    app.set_version_flag("--version", "vek-trace " VEKTRACE_VERSION);
    app.require_subcommand(1);
    app.failure_message(explain_usage);
    Arguments arguments;
    add_run(app, arguments);
    add_report(app, arguments);
    add_diff(app, arguments);
    try {
        app.parse(argc, argv);
        return run_verb(app, arguments);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : exit_unusable;
    }
}

} // namespace

} // namespace vektrace

int main(int argc, char **argv)
{
    try {
        return vektrace::run_command_line(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "vek-trace: %s\n", error.what());
    } catch (...) {
        std::fputs("vek-trace: unknown error\n", stderr);
    }
    return vektrace::exit_unusable;
}
