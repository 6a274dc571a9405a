// SPDX-License-Identifier: MIT
// Programs under vek-record, and what is in their recordings.
#include "reader.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

using namespace vektrace;
namespace fs = std::filesystem;

namespace {

struct Collector : EventSink {
    std::vector<Event> events;
    void add(const Event &event) override { events.push_back(event); }
    void at_time(uint64_t) override {}
};

struct Recording {
    Stacks stacks;
    Collector sink;
    InputFacts facts;

    const Stack &stack(const Event &event) const { return stacks.stacks()[event.stack]; }
    std::string module(const Event &event, size_t frame) const
    {
        const Frame &at = stacks.frames()[stack(event).frames.at(frame)];
        return fs::path(stacks.modules()[at.module].path).filename();
    }
};

std::string contents(const fs::path &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct Record : testing::Test {
    fs::path folder = fs::path(testing::TempDir()) / fmt::format("vek-record-test.{}", getpid());
    fs::path where = folder / "recording";
    std::string output;

    void SetUp() override
    {
        fs::create_directories(folder);
        // Programs inherit what nohup, or a shell's "&", lets be ignored.
        for (const int number : {SIGHUP, SIGINT, SIGQUIT}) { signal(number, SIG_DFL); }
    }
    void TearDown() override { fs::remove_all(folder); }

    /** Runs a shell command; $R is the script with its -o, $P the program. Returns its status. */
    int run(const std::string &command)
    {
        fs::remove_all(where);
        setenv("R", (VEK_RECORD " -o " + where.string()).c_str(), 1);
        setenv("P", RECORD_PROGRAM, 1);
        const std::string file = folder / "output";
        const int status = std::system(("exec >" + file + " 2>&1; " + command).c_str());
        output = contents(file);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    /** The shells of this machine, of those that devices have. */
    std::vector<std::string> shells()
    {
        std::vector<std::string> found;
        for (const char *const shell : {"sh", "dash", "busybox sh"}) {
            if (run(std::string(shell) + " -c :") == 0) { found.push_back(shell); }
        }
        return found;
    }

    /** The recordings, by the names of their files. */
    std::vector<std::unique_ptr<Recording>> read() const
    {
        std::vector<fs::path> paths;
        for (const auto &entry : fs::directory_iterator(where)) {
            if (entry.path().extension() == ".vekrec") { paths.push_back(entry.path()); }
        }
        std::sort(paths.begin(), paths.end(), [](const fs::path &a, const fs::path &b) {
            return a.string().size() < b.string().size();
        });
        std::vector<std::unique_ptr<Recording>> result;
        for (const fs::path &path : paths) {
            auto one = std::make_unique<Recording>();
            Input input(path.string());
            one->facts = read_recording(input, one->stacks, one->sink);
            result.push_back(std::move(one));
        }
        return result;
    }

    std::unique_ptr<Recording> read_one() const
    {
        auto all = read();
        EXPECT_EQ(all.size(), 1U) << output;
        return all.empty() ? std::make_unique<Recording>() : std::move(all.front());
    }
};

/** The events as a text: what, how much, and x for null, ! for a refusal. */
std::string story(const Recording &recording)
{
    std::string text;
    for (const Event &event : recording.sink.events) {
        const bool is_free = event.operation == Operation::free;
        text += fmt::format("{}{}{} ", "mcrfpa"[static_cast<int>(event.operation)],
                            is_free ? "" : std::to_string(event.bytes),
                            event.refused                   ? "!"
                            : !is_free && event.result == 0 ? "x"
                                                            : "");
    }
    return text;
}

const std::string whole_story = "m10 c21 r50 f r0x r5 f p11 f a12 f m9223372036854775807x m9! m9x ";

TEST_F(Record, HasEveryOperationAndTheProgramsStatus)
{
    for (const std::string &shell : shells()) {
        SCOPED_TRACE(shell);
        EXPECT_EQ(run(shell + " $R -- $P every_operation"), 3) << output;
        const auto recording = read_one();
        EXPECT_EQ(story(*recording), whole_story);
        EXPECT_EQ(recording->facts.exit_status, 3U);
        EXPECT_EQ(recording->facts.broken, "");
        EXPECT_TRUE(recording->facts.notes.empty());
        EXPECT_EQ(recording->facts.command,
                  (std::vector<std::string>{RECORD_PROGRAM, "every_operation"}));
        EXPECT_EQ(contents(where / "status"), fmt::format("{} 3\n", recording->facts.pid));
        ASSERT_FALSE(recording->sink.events.empty());
        const Stack &stack = recording->stack(recording->sink.events[0]);
        EXPECT_EQ(stack.frames.at(0), stack.charged);
        EXPECT_EQ(stack.end, ChainEnd::whole);
        EXPECT_EQ(recording->module(recording->sink.events[0], 0), "record_program");
    }
}

TEST_F(Record, TakesChainsNoLongerThanItsDepth)
{
    for (const size_t depth : {1U, 2U}) {
        EXPECT_EQ(run(fmt::format("$R --depth {} $P every_operation", depth)), 3) << output;
        const auto recording = read_one();
        EXPECT_EQ(story(*recording), whole_story);
        for (const Event &event : recording->sink.events) {
            const Stack &stack = recording->stack(event);
            EXPECT_EQ(stack.frames.size(), depth == 1 ? 0 : depth);
            EXPECT_EQ(stack.end, depth == 1 ? ChainEnd::none : ChainEnd::limited);
        }
    }
}

TEST_F(Record, LeavesForkedChildrenAndFollowsExec)
{
    EXPECT_EQ(run("$R $P children"), 3) << output;
    const auto all = read();
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(story(*all[0]), "m1 m2 ");
    EXPECT_EQ(all[0]->facts.notes.size(), 1U);
    EXPECT_EQ(story(*all[1]), whole_story);
    EXPECT_EQ(all[0]->facts.pid, all[1]->facts.pid);
}

TEST_F(Record, LeavesTheProgramsFilesStackAndRegistersAlone)
{
    EXPECT_EQ(run("$R $P hostile"), 0) << output;
    const auto recording = read_one();
    EXPECT_EQ(recording->sink.events.size(), 2002U);
    EXPECT_EQ(recording->stack(recording->sink.events.back()).end, ChainEnd::whole);
}

TEST_F(Record, KnowsModulesThatComeAndGo)
{
    EXPECT_EQ(run("$R $P plugins " PLUGIN_A " " PLUGIN_B " " PLUGIN_A), 0) << output;
    const auto recording = read_one();
    EXPECT_EQ(story(*recording), "m1 m1 m2 m2 m1 m1 ");
    for (const Event &event : recording->sink.events) {
        EXPECT_EQ(recording->module(event, 0),
                  event.bytes == 1 ? "librecord_plugin_a.so" : "librecord_plugin_b.so");
        EXPECT_EQ(recording->stack(event).end, ChainEnd::whole);
    }
}

TEST_F(Record, KeepsThreadsApart)
{
    EXPECT_EQ(run("$R $P threads"), 0) << output;
    const auto recording = read_one();
    std::map<uint64_t, bool> live;
    size_t faults = 0;
    for (const Event &event : recording->sink.events) {
        const bool is_free = event.operation == Operation::free;
        bool &is_live = live[is_free ? event.block : event.result];
        faults += is_live != is_free;
        is_live = !is_free;
        faults += recording->stack(event).end != ChainEnd::whole;
    }
    EXPECT_EQ(recording->sink.events.size(), 160000U);
    EXPECT_EQ(faults, 0U);
}

TEST_F(Record, LosesNothingWhenTheProgramIsKilled)
{
    EXPECT_EQ(run("$R $P killed"), 128 + SIGKILL) << output;
    const auto recording = read_one();
    EXPECT_EQ(recording->sink.events.size(), 1000U);
    EXPECT_FALSE(recording->facts.exit_status);
    EXPECT_EQ(contents(where / "status"), fmt::format("{} 137\n", recording->facts.pid));
}

TEST_F(Record, LosesNothingWhenTheProgramClosesItsFile)
{
    EXPECT_EQ(run("$R $P many"), 7) << output;
    const auto recording = read_one();
    EXPECT_EQ(recording->sink.events.size(), 400002U);
    EXPECT_EQ(recording->facts.exit_status, 7U);
}

TEST_F(Record, SeesTheOutermostOperationOfTheProgramsTable)
{
    EXPECT_EQ(run("$R $P table"), 0) << output;
    EXPECT_EQ(story(*read_one()), "m8 r16 f ");
}

TEST_F(Record, EndsTheRecordingWhereThereIsNoSpace)
{
    for (const int blocks : {256, 3000}) { // of 512 bytes: small windows, and windows of both sizes
        EXPECT_EQ(run(fmt::format("ulimit -f {}; $R $P many", blocks)), 7) << output;
        const auto recording = read_one();
        EXPECT_GT(recording->sink.events.size(), 10000U);
        EXPECT_LT(recording->sink.events.size(), 400002U);
        EXPECT_NE(recording->facts.broken, "");
        EXPECT_NE(output.find("the recording ends here"), std::string::npos) << output;
    }
    EXPECT_EQ(run("ulimit -f 100; $R $P many"), 7) << output; // not even a small window
    EXPECT_NE(output.find("this process is not recorded"), std::string::npos) << output;
}

TEST_F(Record, SeesALibraryThatIsLoadedLate)
{
    EXPECT_EQ(run("$R " RECORD_LATE " " VEKLIB), 0) << output;
    const auto recording = read_one();
    EXPECT_EQ(story(*recording), "m77 ");
    EXPECT_EQ(recording->module(recording->sink.events.at(0), 0), "record_late");
}

TEST_F(Record, SaysWhatItDoesNotSee)
{
    EXPECT_EQ(run("$R " RECORD_OWN), 0) << output;
    const auto recording = read_one();
    ASSERT_EQ(recording->facts.notes.size(), 1U);
    EXPECT_NE(recording->facts.notes[0].find("originals: vek_malloc."), std::string::npos);

    EXPECT_EQ(run("$R true"), 0);
    EXPECT_NE(output.find("nothing was recorded"), std::string::npos);
    EXPECT_FALSE(fs::exists(where));
}

TEST_F(Record, PassesSignalsAndInput)
{
    for (const std::string &shell : shells()) {
        SCOPED_TRACE(shell);
        EXPECT_EQ(run(shell + " $R $P usual_signals"), 0);
        EXPECT_EQ(run("echo word | " + shell + " $R cat"), 0);
        EXPECT_EQ(output.substr(0, 5), "word\n");
        EXPECT_EQ(run(shell + " $R -q $P every_operation <&-"), 3);
        EXPECT_EQ(output.find("recording in"), std::string::npos) << output;
        EXPECT_EQ(run("echo word | " + shell + " $R sh -c 'cat <&3' 3<&0"), 0);
        EXPECT_EQ(output.substr(0, 5), "word\n");
        const std::string ready = "until grep -q ready " + (folder / "output").string();
        for (const char *const signal : {"TERM", "HUP", "USR1"}) {
            EXPECT_GT(run(shell + " $R $P waiting & " + ready + "; do sleep .1; done; kill -" +
                          signal + " $!; wait $!"),
                      128);
            EXPECT_EQ(read_one()->facts.exit_status, std::nullopt);
        }
    }
}

TEST_F(Record, RejectsWrongUsage)
{
    for (const char *const arguments : {"", "--depth 0 true", "--depth 257 true", "--depth x true",
                                        "--unknown true", "--depth"}) {
        EXPECT_EQ(run(fmt::format("$R {}", arguments)), 2) << arguments;
        EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1) << output;
    }
    EXPECT_EQ(run("$R ./missing"), 127);
    EXPECT_EQ(run("$R /"), 126);
    EXPECT_EQ(run("$R $P killed; exec $R true"), 2); // there is a recording already
}

} // namespace
