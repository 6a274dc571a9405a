// SPDX-License-Identifier: MIT
// Reports of small made-up programs: what becomes one row, what each format says, what a
// difference is.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "patterns.h"
#include "report.h"
#include "words.h"

namespace vektrace {
namespace {

constexpr const char *app = "/usr/bin/app";
constexpr const char *lib = "/usr/lib/libveklib.so.1";

/** Returns the path of a file that no other process writes. */
std::string own_path(const char *name)
{
    return testing::TempDir() + name + '.' + std::to_string(getpid());
}

/** Processes with symbols made by hand. */
class World {
public:
    FrameId frame(const std::string &module, const Places &places)
    {
        const FrameId id = stacks.frame({stacks.module({module, ""}), next_offset_++ * 16});
        symbols.places.resize(std::max<size_t>(symbols.places.size(), id + 1));
        symbols.places[id] = places;
        return id;
    }

    StackId chain(const std::vector<FrameId> &frames, ChainEnd end = ChainEnd::whole)
    {
        return stacks.stack({frames.front(), frames, end});
    }

    StackId address(FrameId frame) { return stacks.stack({frame, {}, ChainEnd::none}); }

    Process &process(const std::string &recording)
    {
        Process process;
        process.input = recording + "/app.7.vekrec";
        process.recording = recording;
        process.facts.is_recording = true;
        process.facts.command = {"app", "the file"};
        process.facts.pid = 7;
        processes.push_back(std::move(process));
        blocks_.clear();
        return processes.back();
    }

    /** Allocates in the last process; releases what `block` names. */
    uint64_t allocate(StackId stack, uint64_t bytes)
    {
        blocks_.push_back(0x1000 + 0x100 * next_block_++);
        event(Operation::malloc, stack, 0, bytes, blocks_.back());
        return blocks_.back();
    }
    void release(StackId stack, uint64_t block) { event(Operation::free, stack, block, 0, 0); }
    void fail(StackId stack) { event(Operation::malloc_if_possible, stack, 0, 64, 0); }

    Report report(const ReportOptions &options = {})
    {
        for (; finished_ < processes.size(); finished_++) {
            processes[finished_].history.finish();
            processes[finished_].facts.lines = processes[finished_].history.totals().events;
        }
        return make_report(processes, stacks, symbols, options);
    }

    Stacks stacks;
    Symbols symbols;
    std::vector<Process> processes;

private:
    void event(Operation operation, StackId stack, uint64_t block, uint64_t bytes, uint64_t result)
    {
        History &history = processes.back().history;
        history.at_time(next_line_ * 100);
        history.add({operation, false, false, stack, block, bytes, result, next_line_++});
    }

    uint64_t next_offset_ = 1;
    uint64_t next_block_ = 1;
    uint64_t next_line_ = 1;
    size_t finished_ = 0;
    std::vector<uint64_t> blocks_;
};

/** A program that leaks from a list in load(), through an inlined helper, and a dictionary. */
class Report_ : public testing::Test {
protected:
    Report_()
    {
        main_ = world_.frame(app, {{"main", "/src/main.c", 50}});
        put_ = world_.chain({world_.frame(lib, {{"vek_malloc", "", 0}}),
                             world_.frame(lib, {{"vek_str_dict_put_int", "vekdict.cpp", 9}}),
                             world_.frame(app, {{"remember", "/src/cache.c", 12}}), main_});
        append_ = world_.chain(
            {world_.frame(lib, {{"vek_slist_append", "", 0}}),
             world_.frame(app, {{"vek_list_add", "/usr/include/veklib/vekslist_inline.h", 8},
                                {"push", "/src/load.c", 20},
                                {"load", "/src/load.c", 31}}),
             main_});
        append_again_ = world_.chain(
            {world_.frame(lib, {{"vek_slist_prepend", "", 0}}),
             world_.frame(app, {{"push", "/src/load.c", 20}, {"load", "/src/load.c", 31}}), main_});
        plugin_ = world_.address(world_.frame("/opt/plugin.so", {{}}));
        inside_ = world_.address(world_.frame(lib, {{"grow", "", 0}}));
        free_ = world_.chain({world_.frame(lib, {{"vek_free", "", 0}}), main_});
    }

    void run(const std::string &recording)
    {
        world_.process(recording).status = 0;
        world_.allocate(put_, 100);
        world_.allocate(append_, 24);
        world_.allocate(append_again_, 8);
        const uint64_t block = world_.allocate(plugin_, 4000);
        world_.release(free_, block);
        world_.allocate(inside_, 16);
        world_.fail(put_);
    }

    World world_;
    FrameId main_ = 0;
    StackId put_ = 0;
    StackId append_ = 0;
    StackId append_again_ = 0;
    StackId plugin_ = 0;
    StackId inside_ = 0;
    StackId free_ = 0;
};

std::string short_rows(const Report &report)
{
    std::string text;
    for (const Row &row : report.rows) {
        for (const SourceFrame &frame : row.frames) {
            text += place(frame) + (frame.inlined ? " < " : "");
            text += &frame == &row.frames.back() || frame.inlined ? "" : " <- ";
        }
        for (const std::string &through : row.through) { text += " (" + through + ")"; }
        text +=
            " " + std::to_string(row.numbers.live.bytes) + (row.suppressed ? " hidden\n" : "\n");
    }
    return text;
}

TEST_F(Report_, GroupsByWhatIsPrinted)
{
    run("one");
    const struct {
        Grouping by;
        const char *rows;
    } table[] = {
        {Grouping::site, "remember at /src/cache.c:12, app (vek_str_dict_put_int) 100\n"
                         "push at /src/load.c:20, app < load at /src/load.c:31, app"
                         " (vek_list_add) (vek_slist_prepend) 32\n"
                         "grow, libveklib.so.1 16\n"
                         "plugin.so+0x90 0\n"},
        {Grouping::function, "remember, app (vek_str_dict_put_int) 100\n"
                             "push, app (vek_list_add) (vek_slist_prepend) 32\n"
                             "grow, libveklib.so.1 16\n"
                             "plugin.so+0x90 0\n"},
        {Grouping::file, "/src/cache.c (vek_str_dict_put_int) 100\n"
                         "/src/load.c (vek_list_add) (vek_slist_prepend) 32\n"
                         "libveklib.so.1 16\n"
                         "plugin.so 0\n"},
        {Grouping::module, "app (vek_list_add) (vek_slist_prepend) (vek_str_dict_put_int) 132\n"
                           "libveklib.so.1 16\n"
                           "plugin.so 0\n"},
    };
    for (const auto &row : table) {
        ReportOptions options;
        options.by = row.by;
        EXPECT_EQ(short_rows(world_.report(options)), row.rows) << name(row.by);
    }
    ReportOptions options;
    options.by = Grouping::stack;
    EXPECT_EQ(world_.report(options).rows.size(), 5U);
}

TEST_F(Report_, SuppressesAndFilters)
{
    run("one");
    const struct {
        const char *pattern;
        const char *hidden; ///< site
    } patterns[] = {
        {"remember", "remember"},
        {"^rememb", "remember"},
        {"^emember", ""},
        {"mb*r$", "remember"},
        {"mb*e$", ""},
        {"cache.c$", "remember"},
        {"^load", "push"},
        {"vek_str_*_int", "remember"},
        {"^/opt/pl*so", "plugin.so+0x90"},
        {"main*main", ""},
        {"^grow$", "grow"},
    };
    for (const auto &[pattern, hidden] : patterns) {
        ReportOptions options;
        options.suppressed = {pattern};
        const Report report = world_.report(options);
        std::string found;
        uint64_t bytes = 0;
        for (const Row &row : report.rows) {
            found += row.suppressed ? row.frames.front().function : "";
            bytes += row.suppressed ? row.numbers.live.bytes : 0;
        }
        EXPECT_EQ(found, hidden) << pattern;
        EXPECT_EQ(report.rows.back().suppressed, *hidden != '\0') << pattern;
        EXPECT_EQ(report.suppressed.bytes, bytes) << pattern;
        EXPECT_EQ(report.unsuppressed.bytes + bytes, report.totals.live.bytes) << pattern;
    }

    ReportOptions options;
    options.filter = "cache\\.c|^gr.w$";
    const Report report = world_.report(options);
    EXPECT_EQ(report.rows.size(), 2U);
    EXPECT_EQ(report.calls.live.bytes, 116U);
    EXPECT_EQ(report.totals.live.bytes, 148U);
    options.filter = "(";
    EXPECT_THROW(world_.report(options), InputError);
}

TEST_F(Report_, SplitsARowThatIsSuppressedInPart)
{
    run("one");
    ReportOptions options;
    options.by = Grouping::module;
    options.suppressed = {"vek_slist_prepend"};
    EXPECT_EQ(short_rows(world_.report(options)), "app (vek_list_add) (vek_str_dict_put_int) 124\n"
                                                  "libveklib.so.1 16\n"
                                                  "plugin.so 0\n"
                                                  "app (vek_slist_prepend) 8 hidden\n");
}

TEST(ReadSuppressions, NamesTheLineItDoesNotKnow)
{
    const std::string path = own_path("suppressions");
    std::ofstream(path) << "# ours\n\n  leak:load_plugins*  \r\nleak:^x$";
    EXPECT_EQ(read_suppressions(path), (std::vector<std::string>{"load_plugins*", "^x$"}));
    for (const char *wrong : {"leak:", "race:x", "load"}) {
        std::ofstream(path) << "leak:a\n" << wrong << "\n";
        try {
            read_suppressions(path);
            ADD_FAILURE() << wrong;
        } catch (const InputError &error) {
            EXPECT_NE(std::string(error.what()).find("line 2"), std::string::npos) << error.what();
        }
    }
    std::remove(path.c_str());
}

TEST_F(Report_, MergesRecordings)
{
    run("one");
    run("two");
    world_.process("three");
    // Live from the beginning: it does not grow.
    world_.allocate(put_, 100);
    for (int i = 0; i < 40; i++) { world_.release(free_, world_.allocate(inside_, 16)); }
    const Report report = world_.report();
    ASSERT_EQ(report.recordings, 3U);
    EXPECT_EQ(report.totals.live.bytes, 148U * 2 + 100);
    const Row &row = report.rows.front();
    EXPECT_EQ(row.frames.front().function, "remember");
    EXPECT_EQ(row.numbers.live, (Amount{3, 300}));
    EXPECT_EQ(row.recordings, 3U);
    EXPECT_LT(row.growing, 3U);
    EXPECT_EQ(report.rows[1].recordings, 2U);
}

TEST_F(Report_, BearsChainsWithoutEnd)
{
    world_.process("one");
    world_.allocate(world_.chain(std::vector<FrameId>(1000000, main_)), 8);
    ReportOptions options;
    options.by = Grouping::stack;
    const Report report = world_.report(options);
    EXPECT_NE(format_folded(report), "");
    EXPECT_NE(format_massif(report), "");
}

// ---- Formats ----

std::string read_by_ms_print(const std::string &text)
{
    const std::string path = own_path("vek.massif");
    std::ofstream(path) << text;
    std::string output;
    FILE *const pipe = popen(("ms_print '" + path + "' 2>&1").c_str(), "r");
    for (int byte = fgetc(pipe); byte != EOF; byte = fgetc(pipe)) {
        output += static_cast<char>(byte);
    }
    output += "status " + std::to_string(pclose(pipe));
    std::remove(path.c_str());
    return output;
}

TEST_F(Report_, FoldedLinesAddUp)
{
    run("one");
    run("two");
    for (const Order order : {Order::live, Order::peak, Order::total, Order::count}) {
        ReportOptions options;
        options.sort = order;
        const Report report = world_.report(options);
        const Totals &totals = report.totals;
        const Numbers all = {totals.live, totals.peak, totals.total};
        std::istringstream lines(format_folded(report));
        uint64_t sum = 0;
        for (std::string line; std::getline(lines, line);) {
            sum += std::stoull(line.substr(line.rfind(' ')));
        }
        EXPECT_EQ(sum, figure(all, order)) << name(order);
    }
    EXPECT_EQ(format_folded(world_.report()),
              "grow 32\n"
              "main;load;push;vek_list_add;vek_slist_append 48\n"
              "main;load;push;vek_slist_prepend 16\n"
              "main;remember;vek_str_dict_put_int;vek_malloc 200\n");
}

TEST_F(Report_, MsPrintReadsMassif)
{
    if (std::system("command -v ms_print >/dev/null") != 0) {
        GTEST_SKIP() << "ms_print is not installed";
    }
    run("one");
    ReportOptions options;
    options.by = Grouping::stack;
    const std::string output = read_by_ms_print(format_massif(world_.report(options)));
    EXPECT_NE(output.find("status 0"), std::string::npos) << output;
    EXPECT_NE(output.find("(peak)"), std::string::npos) << output;
    EXPECT_NE(output.find("->96.81% (4,000B) 0x0: plugin.so+0x90"), std::string::npos) << output;
    EXPECT_NE(output.find("->67.57% (100B) 0x0: remember (cache.c:12)"), std::string::npos)
        << output;
    run("two");
    EXPECT_NE(read_by_ms_print(format_massif(world_.report())).find("status 0"), std::string::npos);
    World empty;
    EXPECT_NE(read_by_ms_print(format_massif(empty.report())).find("status 0"), std::string::npos);
}

TEST_F(Report_, TextSaysItAll)
{
    run("one");
    const uint64_t block = world_.allocate(put_, 1536);
    world_.release(free_, block);
    world_.release(free_, block);
    world_.processes[0].facts.first_foreign = {{3, "hello\x1b[31m"}};
    world_.processes[0].facts.foreign_lines = 1;
    world_.symbols.problems = {{world_.stacks.module({"/opt/plugin.so", ""}),
                                "no file /opt/plugin.so; wanted is build-id 12ab"}};
    TextOptions options;
    options.width = 80;
    EXPECT_EQ(format_text(world_.report(), options), R"(app 'the file'
process 7, 10 events in 1.0 s; exited with 0

live at the end      148 B    148 B  4 blocks
peak              4.04 KiB  4,132 B  4 blocks  after 4 calls, 400 ms
allocated         5.55 KiB  5,684 B  6 blocks
6 allocations, 0 resizes, 2 releases, 1 failed request
1 fault, listed below

Sites by bytes live at the end
 live  of live  blocks  of peak  site
100 B   67.6 %       1    2.4 %  remember at /src/cache.c:12, app
                                   through vek_str_dict_put_int
                                   2 blocks allocated, 1.60 KiB,
                                   100 B to 1.50 KiB, mean 818 B, 1 short-lived
 32 B   21.6 %       2    0.8 %  push at /src/load.c:20, app
                                   inlined by load at /src/load.c:31, app
                                   through vek_list_add, vek_slist_prepend
                                   2 blocks allocated, 32 B, 8 B to 24 B,
                                   mean 16 B
 16 B   10.8 %       1    0.0 %  grow, libveklib.so.1
                                   1 block allocated, 16 B, growing
… and 1 more site with nothing live at the end

Faults
released twice: block 0x1600 of 1.50 KiB (event 10)
  allocated by        remember at /src/cache.c:12, app
                      by main at /src/main.c:50, app
  released first by   main at /src/main.c:50, app
  released again by   main at /src/main.c:50, app

Requests that returned null
failed  refused  site
     1        0  remember at /src/cache.c:12, app

Input problems in one/app.7.vekrec
1 line is no trace line:
         3  hello?[31m

Missing symbols
no file /opt/plugin.so; wanted is build-id 12ab
--sysroot DIR, --debug-dir DIR and --exe FILE name files with symbols;
--modules FILE says where modules were loaded
)");
    options.colour = true;
    EXPECT_NE(format_text(world_.report(), options).find("\x1b[1m"), std::string::npos);
}

TEST(Words, PrintNumbersForPeople)
{
    EXPECT_EQ(format_count(0), "0");
    EXPECT_EQ(format_count(999), "999");
    EXPECT_EQ(format_count(1234567), "1,234,567");
    EXPECT_EQ(format_count(1, "match", "matches"), "1 match");
    EXPECT_EQ(format_count(1000, "match", "matches"), "1,000 matches");
    EXPECT_EQ(format_bytes(1023), "1023 B");
    EXPECT_EQ(format_bytes(1024), "1.00 KiB");
    EXPECT_EQ(format_bytes(1024 * 1024 - 1), "1.00 MiB");
    EXPECT_EQ(format_bytes(157286400), "150 MiB");
    EXPECT_EQ(format_bytes(UINT64_MAX), "16.0 EiB");
    EXPECT_EQ(format_percent(1, 3), "33.3 %");
    EXPECT_EQ(format_percent(1, 10000), "<0.1 %");
    EXPECT_EQ(format_percent(0, 0), "-");
    EXPECT_EQ(format_duration(999), "999 ms");
    EXPECT_EQ(format_duration(12345), "12.3 s");
    EXPECT_EQ(format_duration(3661000), "1 h 01 min");
}

// ---- Differences ----

struct Site {
    const char *function;
    unsigned line;
    uint64_t bytes;
};

Report report_of(const std::vector<Site> &sites)
{
    World world;
    world.process("one");
    for (const Site &site : sites) {
        const Place place = {site.function, site.line == 0 ? "" : "a.c", site.line};
        world.allocate(world.address(world.frame(app, {place})), site.bytes);
    }
    return world.report();
}

TEST(Compare, MatchesLinesThatMoved)
{
    const Report before = report_of({{"load", 10, 100},
                                     {"load", 20, 50},
                                     {"save", 30, 7},
                                     {"gone", 40, 500},
                                     {"shrinks", 50, 90},
                                     {"three", 60, 1},
                                     {"three", 61, 2},
                                     {"three", 62, 3},
                                     {"", 0, 1}});
    const Report after = report_of({{"load", 20, 51},
                                    {"load", 12, 400},
                                    {"save", 35, 7},
                                    {"fresh", 40, 9},
                                    {"shrinks", 50, 80},
                                    {"three", 61, 1},
                                    {"three", 62, 2},
                                    {"three", 63, 3},
                                    {"", 0, 3}});
    const Difference difference = compare(before, after);
    std::string text;
    for (const Change &change : difference.changes) {
        text += place(change.frames.front()) + " " + std::string(name(change.kind)) + " " +
                std::to_string(change.before.live.bytes) + " " +
                std::to_string(change.after.live.bytes) + "\n";
    }
    EXPECT_EQ(text, "gone at a.c:40, app went 500 0\n"
                    "load at a.c:12, app grew 100 400\n"
                    "shrinks at a.c:50, app shrank 90 80\n"
                    "fresh at a.c:40, app came 0 9\n"
                    "unknown function, app grew 1 3\n"
                    "load at a.c:20, app grew 50 51\n");
    const auto json = nlohmann::json::parse(format_json(difference));
    EXPECT_EQ(json["format"], "vek-trace-diff");
    EXPECT_EQ(json["changes"].size(), 6U);
    EXPECT_EQ(json["changes"][1]["after"]["live"]["bytes"], 400);
    EXPECT_EQ(format_text(difference, {}), R"(Before and after
before  after  change  summary
 754 B  556 B  -198 B  bytes live at the end
     9      9       0  blocks live at the end
 754 B  556 B  -198 B  peak
 754 B  556 B  -198 B  bytes allocated
     9      9       0  allocations
     0      0       0  failed requests
     0      0       0  faults

What changed in bytes live at the end
change  before  after          site
-500 B   500 B    0 B    went  gone at a.c:40, app
+300 B   100 B  400 B    grew  load at a.c:12, app
 -10 B    90 B   80 B  shrank  shrinks at a.c:50, app
  +9 B     0 B    9 B    came  fresh at a.c:40, app
  +2 B     1 B    3 B    grew  unknown function, app
  +1 B    50 B   51 B    grew  load at a.c:20, app
)");
}

} // namespace
} // namespace vektrace
