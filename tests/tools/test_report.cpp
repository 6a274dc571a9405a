// SPDX-License-Identifier: MIT
// Reports of small made-up programs: what becomes one row, what each format says, what a
// difference is.
#include <cstdlib>
#include <fstream>
#include <map>
#include <span>
#include <sstream>
#include <type_traits>

#include <gtest/gtest.h>

#include "patterns.h"
#include "recording.h"
#include "words.h"
#include "world.h"

namespace vektrace {
namespace {

constexpr const char *app = "/usr/bin/app";

/** A program that leaks from a list in load(), through an inlined helper, and a dictionary. */
class Report_ : public testing::Test {
protected:
    void run(const std::string &recording)
    {
        world_.process(recording).status = 0;
        world_.allocate(put_, 100);
        world_.allocate(append_, 24);
        world_.allocate(append_again_, 8);
        world_.release(free_, world_.allocate(plugin_, 4000));
        world_.allocate(inside_, 16);
        world_.add({Operation::malloc_if_possible, false, false, put_, 0, 64, 0, 0});
    }

    FrameId of_library(const char *function, const char *file = "", unsigned line = 0)
    {
        return world_.frame("/usr/lib/libveklib.so.1", {{function, file, line}});
    }

    World world_;
    FrameId main_ = world_.frame(app, {{"main", "/src/main.c", 50}});
    StackId put_ = world_.chain({of_library("vek_malloc"),
                                 of_library("vek_str_dict_put_int", "vekdict.cpp", 9),
                                 world_.frame(app, {{"remember", "/src/cache.c", 12}}), main_});
    Places load_ = {{"push", "/src/load.c", 20}, {"load", "/src/load.c", 31}};
    Places add_ = {{"node_of", "/usr/include/veklib/vekslist_inline.h", 3},
                   {"vek_list_add", "", 0},
                   load_[0],
                   load_[1]};
    StackId append_ =
        world_.chain({of_library("vek_slist_append"), world_.frame(app, add_), main_});
    StackId append_again_ =
        world_.chain({of_library("vek_slist_prepend"), world_.frame(app, load_), main_});
    StackId plugin_ = world_.address(world_.frame("/opt/plugin.so", {{}}));
    StackId inside_ = world_.address(of_library("grow"));
    StackId free_ = world_.chain({of_library("vek_free"), main_});
};

template <typename Value>
ReportOptions with(Value ReportOptions::*option, const std::type_identity_t<Value> &value)
{
    ReportOptions options;
    options.*option = value;
    return options;
}

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
        EXPECT_EQ(short_rows(world_.report(with(&ReportOptions::by, row.by))), row.rows)
            << name(row.by);
    }
    EXPECT_EQ(world_.report(with(&ReportOptions::by, Grouping::stack)).rows.size(), 5U);
}

TEST_F(Report_, SuppressesAndFilters)
{
    run("one");
    const std::map<std::string, std::vector<std::string>> sites = {
        // and what hides them
        {"remember", {"remember", "^rememb", "mb*r$", "cache.c$", "vek_str_*_int"}},
        {"push", {"^load"}},
        {"plugin.so+0x90", {"^/opt/pl*so"}},
        {"grow", {"^grow$"}},
        {"", {"^emember", "mb*e$", "main*main", "remember*ember$"}},
    };
    for (const auto &[hidden, patterns] : sites) {
        for (const std::string &pattern : patterns) {
            const Report report = world_.report(with(&ReportOptions::suppressed, {pattern}));
            const Row &last = report.rows.back();
            EXPECT_EQ(last.suppressed ? last.frames.front().function : "", hidden) << pattern;
            EXPECT_FALSE(report.rows[2].suppressed) << pattern;
            const uint64_t bytes = last.suppressed ? last.numbers.live.bytes : 0;
            EXPECT_EQ(report.suppressed.bytes, bytes) << pattern;
            EXPECT_EQ(report.unsuppressed.bytes + bytes, report.totals.live.bytes) << pattern;
        }
    }

    const Report report = world_.report(with(&ReportOptions::filter, "cache\\.c|^gr.w$"));
    EXPECT_EQ(report.rows.size(), 2U);
    EXPECT_EQ(report.calls.live.bytes, 116U);
    EXPECT_EQ(report.totals.live.bytes, 148U);
    EXPECT_THROW(world_.report(with(&ReportOptions::filter, "(")), InputError);
}

TEST_F(Report_, SplitsARowThatIsSuppressedInPart)
{
    run("one");
    ReportOptions options = with(&ReportOptions::by, Grouping::module);
    options.suppressed = {"vek_slist_prepend"};
    EXPECT_EQ(short_rows(world_.report(options)), "app (vek_list_add) (vek_str_dict_put_int) 124\n"
                                                  "libveklib.so.1 16\n"
                                                  "plugin.so 0\n"
                                                  "app (vek_slist_prepend) 8 hidden\n");
}

TEST(ReadSuppressions, NamesTheLineItDoesNotKnow)
{
    const char *const right = "# ours\n\n  leak:load_plugins*  \r\nleak:^x$";
    EXPECT_EQ(read_suppressions(written(right)),
              (std::vector<std::string>{"load_plugins*", "^x$"}));
    for (const std::string wrong : {"leak:", "race:x", "load"}) {
        const std::string path = written("leak:a\n" + wrong + "\n");
        std::string message;
        try {
            read_suppressions(path);
        } catch (const InputError &error) {
            message = error.what();
        }
        EXPECT_EQ(message,
                  path + ", line 2: '" + wrong + "' is neither leak:PATTERN nor a comment");
    }
}

TEST_F(Report_, MergesRecordings)
{
    run("one");
    world_.release(free_, 1);
    run("two");
    for (int i = 0; i < 2; i++) { world_.release(free_, 1); }
    world_.process("three");
    // Live from the beginning: it does not grow.
    world_.allocate(put_, 100);
    for (int i = 0; i < 40; i++) { world_.release(free_, world_.allocate(inside_, 16)); }
    const Report report = world_.report();
    ASSERT_EQ(report.recordings, 3U);
    EXPECT_EQ(report.totals.peak_event, 4U);
    EXPECT_EQ(report.faults.at(0).count, 3U);
    EXPECT_EQ(report.totals.live.bytes, 148U * 2 + 100);
    const Row &row = report.rows.front();
    EXPECT_EQ(row.frames.front().function, "remember");
    EXPECT_EQ(row.numbers.live, (Amount{3, 300}));
    EXPECT_EQ(row.recordings, 3U);
    EXPECT_EQ(row.growing, 0U);
    EXPECT_EQ(report.rows[1].recordings, 2U);
    EXPECT_EQ(report.rows[2].growing, 2U);
}

TEST_F(Report_, BearsChainsWithoutEnd)
{
    world_.process("one");
    world_.allocate(world_.chain(std::vector<FrameId>(1000000, main_)), 8);
    const Report report = world_.report(with(&ReportOptions::by, Grouping::stack));
    EXPECT_NE(format_folded(report), "");
    EXPECT_NE(format_massif(report), "");
}

// ---- Formats ----

std::string read_by_ms_print(const std::string &text)
{
    const std::string path = written("");
    const int status = std::system(("ms_print " + written(text) + " >" + path + " 2>&1").c_str());
    std::ostringstream output;
    output << std::ifstream(path).rdbuf() << "status " << status;
    return output.str();
}

TEST_F(Report_, FoldedLinesAddUp)
{
    run("one");
    run("two");
    for (const Order order : {Order::live, Order::peak, Order::total, Order::count}) {
        const Report report = world_.report(with(&ReportOptions::sort, order));
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
              "main;load;push;vek_list_add;node_of;vek_slist_append 48\n"
              "main;load;push;vek_slist_prepend 16\n"
              "main;remember;vek_str_dict_put_int;vek_malloc 200\n");
}

TEST_F(Report_, MsPrintReadsMassif)
{
    if (std::system("command -v ms_print >/dev/null") != 0) {
        GTEST_SKIP() << "ms_print is not installed";
    }
    run("one");
    const Report report = world_.report(with(&ReportOptions::by, Grouping::stack));
    const std::string output = read_by_ms_print(format_massif(report));
    for (const char *part : {"status 0", "(peak)", "->96.81% (4,000B) 0x0: plugin.so+0x90",
                             "->67.57% (100B) 0x0: remember (cache.c:12)"}) {
        EXPECT_NE(output.find(part), std::string::npos) << output;
    }
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
released twice: block 0xffff80001600 of 1.50 KiB (event 10)
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
    std::string text;
    for (const std::string &part :
         {format_count(999), format_count(1234567), format_count(1000, "match", "matches"),
          format_bytes(1023), format_bytes(1024), format_bytes(1048575), format_bytes(157286400),
          format_bytes(UINT64_MAX), format_percent(1, 3), format_percent(1, 10000),
          format_percent(0, 0), format_duration(999), format_duration(12345),
          format_duration(3661000)}) {
        text += part + "; ";
    }
    EXPECT_EQ(text, "999; 1,234,567; 1,000 matches; 1023 B; 1.00 KiB; 1.00 MiB; 150 MiB; 16.0 EiB; "
                    "33.3 %; <0.1 %; -; 999 ms; 12.3 s; 1 h 01 min; ");
}

// ---- Differences ----

struct Site {
    const char *function;
    unsigned line;
    uint64_t bytes;
};

Report report_of(std::span<const Site> sites)
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
    const Site old_sites[] = {{"load", 10, 100}, {"load", 20, 50},    {"save", 30, 7},
                              {"gone", 40, 500}, {"shrinks", 50, 90}, {"three", 60, 1},
                              {"three", 61, 2},  {"three", 62, 3},    {"", 0, 1},
                              {"two", 70, 5},    {"two", 80, 6}};
    const Site new_sites[] = {{"load", 20, 51}, {"load", 12, 400},   {"save", 35, 7},
                              {"fresh", 40, 9}, {"shrinks", 50, 80}, {"three", 61, 1},
                              {"three", 62, 2}, {"three", 63, 3},    {"", 0, 3},
                              {"two", 80, 6}};
    const Report before = report_of(old_sites);
    const Report after = report_of(new_sites);
    EXPECT_EQ(format_text(compare(before, after), {}), R"(Before and after
before  after  change  summary
 765 B  562 B  -203 B  bytes live at the end
    11     10      -1  blocks live at the end
 765 B  562 B  -203 B  peak
 765 B  562 B  -203 B  bytes allocated
    11     10      -1  allocations
     0      0       0  failed requests
     0      0       0  faults

What changed in bytes live at the end
change  before  after          site
-500 B   500 B    0 B    went  gone at a.c:40, app
+300 B   100 B  400 B    grew  load at a.c:12, app
 -10 B    90 B   80 B  shrank  shrinks at a.c:50, app
  +9 B     0 B    9 B    came  fresh at a.c:40, app
  -5 B     5 B    0 B    went  two at a.c:70, app
  +2 B     1 B    3 B    grew  unknown function, app
  +1 B    50 B   51 B    grew  load at a.c:20, app
)");
}

} // namespace
} // namespace vektrace
