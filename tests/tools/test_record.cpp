// SPDX-License-Identifier: MIT
// Programs under vek-record, and what is in their recordings.
#include "recording.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

using namespace vektrace;
namespace fs = std::filesystem;

namespace {

/** One file of a recording. */
struct File : Reading {
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
    std::vector<File> read() const
    {
        std::vector<std::string> paths;
        for (const auto &entry : fs::directory_iterator(where)) {
            if (entry.path().extension() == ".vekrec") { paths.push_back(entry.path()); }
        }
        std::ranges::sort(paths, {}, [](const auto &path) {
            return path.size();
        }); // the second one's name is longer
        std::vector<File> result;
        for (const std::string &path : paths) {
            File &one = result.emplace_back();
            Input input(path);
            one.facts = read_recording(input, one.stacks, one.sink);
        }
        return result;
    }

    /** Runs a command that makes one recording, and returns that. */
    File record(const std::string &command, int status = 0)
    {
        EXPECT_EQ(run(command), status) << output;
        auto all = read();
        EXPECT_EQ(all.size(), 1U) << output;
        return all.empty() ? File() : std::move(all.front());
    }
};

/** The events as a text: what, how much, and x for null, ! for a refusal. */
std::string story(const File &recording)
{
    std::string text;
    for (const Event &event : recording.sink.events) {
        text += "mcrfpa"[static_cast<int>(event.operation)];
        if (event.operation != Operation::free) {
            const char *const failure = event.refused ? "!" : "x";
            text += std::to_string(event.bytes) + (event.result == 0 ? failure : "");
        }
        text += ' ';
    }
    return text;
}

const std::string whole_story = "m10 c21 r50 f r0x r5 f p11 f a12 f m9223372036854775807x m9! m9x ";

TEST_F(Record, HasEveryOperationAndTheProgramsStatus)
{
    for (const std::string &shell : shells()) {
        SCOPED_TRACE(shell);
        const auto recording = record(shell + " $R -- $P every_operation", 3);
        EXPECT_EQ(story(recording), whole_story);
        EXPECT_EQ(recording.facts.exit_status, 3U);
        EXPECT_EQ(recording.facts.broken, "");
        EXPECT_TRUE(recording.facts.notes.empty());
        EXPECT_EQ(recording.facts.command,
                  (std::vector<std::string>{RECORD_PROGRAM, "every_operation"}));
        EXPECT_EQ(contents(where / "status"), fmt::format("{} 3\n", recording.facts.pid));
        ASSERT_FALSE(recording.sink.events.empty());
        const Stack &stack = recording.stack(recording.sink.events[0]);
        EXPECT_EQ(stack.frames.at(0), stack.charged);
        EXPECT_EQ(stack.end, ChainEnd::whole);
        EXPECT_EQ(recording.module(recording.sink.events[0], 0), "record_program");
    }
}

TEST_F(Record, TakesChainsNoLongerThanItsDepth)
{
    for (const size_t depth : {1U, 2U}) {
        const auto recording = record(fmt::format("$R --depth {} $P every_operation", depth), 3);
        EXPECT_EQ(story(recording), whole_story);
        for (const Event &event : recording.sink.events) {
            const Stack &stack = recording.stack(event);
            EXPECT_EQ(stack.frames.size(), depth == 1 ? 0 : depth);
            EXPECT_EQ(stack.end, depth == 1 ? ChainEnd::none : ChainEnd::limited);
        }
    }
}

TEST_F(Record, LeavesForkedChildrenAndFollowsExec)
{
    EXPECT_EQ(run("$R $P children"), 3) << output;
    const auto all = read();
    ASSERT_EQ(all.size(), 3U); // the child's pid may be any
    EXPECT_EQ(story(all[2]), whole_story);
    const bool is_first = all[0].facts.pid == all.at(2).facts.pid;
    EXPECT_EQ(story(all[!is_first]), "m1 m2 ");
    EXPECT_EQ(all[!is_first].facts.notes.size(), 1U);
    EXPECT_EQ(story(all[is_first]), "m8 r16 f ");
}

TEST_F(Record, LeavesTheProgramsFilesStackAndRegistersAlone)
{
    const auto recording = record("$R $P hostile");
    EXPECT_EQ(recording.sink.events.size(), 2002U);
    EXPECT_EQ(recording.stack(recording.sink.events.back()).end, ChainEnd::whole);
}

TEST_F(Record, KnowsModulesThatComeAndGo)
{
    const auto recording = record("$R $P plugins " PLUGIN_A " " PLUGIN_B " " PLUGIN_A);
    EXPECT_EQ(story(recording), "m1 m1 m2 m2 m1 m1 ");
    for (const Event &event : recording.sink.events) {
        EXPECT_EQ(recording.module(event, 0),
                  event.bytes == 1 ? "librecord_plugin_a.so" : "librecord_plugin_b.so");
        EXPECT_EQ(recording.stack(event).end, ChainEnd::whole);
    }
}

TEST_F(Record, KeepsThreadsApart)
{
    const auto recording = record("$R $P threads");
    std::map<uint64_t, bool> live;
    size_t faults = 0;
    for (const Event &event : recording.sink.events) {
        const bool is_free = event.operation == Operation::free;
        bool &is_live = live[is_free ? event.block : event.result];
        faults += is_live != is_free;
        is_live = !is_free;
        faults += recording.stack(event).end != ChainEnd::whole;
    }
    EXPECT_EQ(recording.sink.events.size(), 160000U);
    EXPECT_EQ(faults, 0U);
}

TEST_F(Record, LosesNothingWhenTheProgramClosesItsFile)
{
    const auto recording = record("$R $P many", 7);
    EXPECT_EQ(recording.sink.events.size(), 400002U);
    EXPECT_EQ(recording.facts.exit_status, 7U);
}

TEST_F(Record, SeesTheOutermostOperationOfTheProgramsTable)
{
    EXPECT_EQ(story(record("$R $P table")), "m8 r16 f ");
}

TEST_F(Record, EndsTheRecordingWhereThereIsNoSpace)
{
    for (const int blocks : {256, 3000}) { // of 512 bytes: small windows, and windows of both sizes
        const auto recording = record(fmt::format("ulimit -f {}; $R $P many", blocks), 7);
        EXPECT_GT(recording.sink.events.size(), 10000U);
        EXPECT_LT(recording.sink.events.size(), 400002U);
        EXPECT_NE(recording.facts.broken, "");
        EXPECT_NE(output.find("the recording ends here"), std::string::npos) << output;
    }
    EXPECT_EQ(run("ulimit -f 100; $R $P many"), 7) << output; // not even a small window
    EXPECT_NE(output.find("this process is not recorded"), std::string::npos) << output;
}

TEST_F(Record, SeesALibraryThatIsLoadedLate)
{
    const auto recording = record("$R " RECORD_LATE " " VEKLIB);
    EXPECT_EQ(story(recording), "m77 ");
    EXPECT_EQ(recording.module(recording.sink.events.at(0), 0), "record_late");
}

TEST_F(Record, SaysWhatItDoesNotSee)
{
    const auto recording = record("$R " RECORD_OWN);
    ASSERT_EQ(recording.facts.notes.size(), 1U);
    EXPECT_NE(recording.facts.notes[0].find("originals: vek_malloc."), std::string::npos);

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
            EXPECT_FALSE(read().at(0).facts.exit_status);
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
    EXPECT_EQ(run("$R $P table; exec $R true"), 2); // there is a recording already
}

} // namespace
