/* SPDX-License-Identifier: MIT */
/* Trace lines, recordings and copies of /proc/PID/maps, whole and damaged. */
#include "input.h"
#include "reader.h"

#include <cstring>
#include <tuple>
#include <utility>

#include <elf.h>
#include <gtest/gtest.h>

#include "recording.h"

using namespace vektrace;

namespace {

auto fields(const Event &event)
{
    return std::tuple(event.operation, event.refused, event.impossible, event.stack, event.block,
                      event.bytes, event.result, event.line);
}

Reading lines_of(const std::string &text)
{
    Reading reading;
    Input input(std::span<const char>{text});
    reading.facts = read_lines(input, {}, reading.stacks, reading.sink);
    return reading;
}

std::string message_of(const std::function<void()> &function)
{
    try {
        function();
    } catch (const InputError &error) {
        return error.what();
    }
    return "no error";
}

/* ---- Lines ---- */

constexpr uint64_t most = UINT64_MAX;

TEST(Lines, SayWhatHappened)
{
    using enum Operation;
    const std::tuple<std::string, Operation, uint64_t, uint64_t, uint64_t, bool, bool> rows[] = {
        {"vek_malloc(16) => 0x1f2e2a0 [#1]", malloc, 0, 16, 0x1f2e2a0, false, false},
        {"vek_malloc(64) => (nil) [#-2147483648]", malloc, 0, 64, 0, false, false},
        {"vek_malloc(64) => NULL, in error state", malloc, 0, 64, 0, true, false},
        {"vek_malloc(-1) => (nil) [#1]", malloc, 0, most, 0, false, true},
        {"vek_malloc(9223372036854775807) => (nil) [#1]", malloc, 0, most / 2, 0, false, false},
        {"vek_malloc(-9223372036854775808) => NULL, in error state", malloc, 0, most / 2 + 1, 0,
         true, true},
        {"vek_calloc(2, 8) => 0xffffffffffffffff [#2147483647]", calloc, 0, 16, most, false, false},
        {"vek_calloc(4294967296, 4294967296) => (nil) [#2]", calloc, 0, most, 0, false, true},
        {"vek_calloc(-1, 2) => NULL, in error state", calloc, 0, most, 0, true, true},
        {"vek_realloc(0x1f2e2a0, 32) => 0x1f2e2e0 [#3]", realloc, 0x1f2e2a0, 32, 0x1f2e2e0, false,
         false},
        {"vek_realloc((nil), 32) => 0x1 [#3]", realloc, 0, 32, 1, false, false},
        {"vek_realloc(0x1, 0) => (nil) [#3]", realloc, 1, 0, 0, false, false},
        {"vek_realloc(0x1, 9) => NULL, in error state", realloc, 1, 9, 0, true, false},
        {"vek_free(0x1f2e2e0)", free, 0x1f2e2e0, 0, 0, false, false},
        {"vek_malloc_if_possible(7) => 0x2 [#0]", malloc_if_possible, 0, 7, 2, false, false},
        {"vek_malloc_if_available(7) => 0x2 [#-1]", malloc_if_available, 0, 7, 2, false, false},
    };
    for (const auto &[line, operation, block, bytes, result, refused, impossible] : rows) {
        const std::string whole = "0x401136: " + line;
        for (const char *end : {"", "\n", "\r\n"}) {
            SCOPED_TRACE(line);
            const Reading reading = lines_of(whole + end);
            ASSERT_EQ(reading.sink.events.size(), 1U);
            EXPECT_EQ(fields(reading.sink.events[0]),
                      std::tuple(operation, refused, impossible, 0U, block, bytes, result, 1U));
            EXPECT_EQ(reading.stacks.frames()[0], (Frame{no_module, 0x401136}));
            EXPECT_EQ(reading.facts.torn, "");
        }
        // Any byte less, or any more, and it is no trace line.
        for (size_t length = 1; length < whole.size(); ++length) {
            const Reading reading = lines_of(whole.substr(0, length));
            EXPECT_TRUE(reading.sink.events.empty()) << whole.substr(0, length);
            EXPECT_EQ(reading.facts.torn, whole.substr(0, length));
        }
        for (const std::string &foreign : {whole + " ", " " + whole, "0x4011" + whole}) {
            EXPECT_EQ(lines_of(foreign + "\n").facts.foreign_lines, 1U) << foreign;
        }
    }
}

TEST(Lines, OfAlmostTheFormatAreForeign)
{
    for (const char *line :
         {"", "\r", "0x1: vek_malloc(016) => 0x2 [#1]", "0x1: vek_malloc(-0) => 0x2 [#1]",
          "0x1: vek_malloc(9223372036854775808) => (nil) [#1]",
          "0x1: vek_malloc(36893488147419103232) => (nil) [#1]",
          "0x1: vek_malloc(16) => 0x2 [#2147483648]", "0x01: vek_free(0x2)", "0x1: vek_free(0xA)",
          "0x: vek_free(0x2)", "0x11111111111111111: vek_free(0x2)", "0x1: vek_free(0x0)",
          "0x1: vek_malloc_if_available(16) => NULL, in error state", "0x1: vek_free(0x2)\r\r",
          "0x1: vek_free(0x2)0x1: vek_free(0x2)", "0x1: vek_calloc(2) => 0x2 [#1]"}) {
        const Reading reading = lines_of(line + std::string("\n"));
        EXPECT_EQ(reading.facts.foreign_lines, 1U) << line;
        EXPECT_TRUE(reading.sink.events.empty()) << line;
    }
}

TEST(Lines, AreFoundBetweenAnyBytes)
{
    std::string text = "=== \x1b[1m" + std::string("a\0b\xff", 4) + "\n";
    text += std::string(3000000, 'x') + "\n"; // longer than any buffer
    constexpr uint64_t events = 30000;
    constexpr uint64_t foreign = 2 + events / 7;
    for (unsigned n = 1; n <= events; ++n) {
        const std::string number = std::to_string(n);
        text += "0x" + std::string(1 + n % 8, 'a') + ": vek_malloc(" + number + ") => (nil) [#" +
                number + "]\n";
        // The end of a buffer is anywhere.
        if (n % 7 == 0) { text += std::string(n % 6000, '\0') + "\n"; }
    }
    text += "0x1: vek_malloc(1" + std::string(200, '0');
    const Reading reading = lines_of(text);
    ASSERT_EQ(reading.sink.events.size(), events);
    for (uint64_t n = 1; n <= events; ++n) { ASSERT_EQ(reading.sink.events[n - 1].bytes, n); }
    EXPECT_EQ(reading.stacks.stacks().size(), 8U);
    const InputFacts &facts = reading.facts;
    EXPECT_EQ(facts.lines, events + foreign + 1);
    EXPECT_EQ(reading.sink.events.back().line, events + foreign);
    EXPECT_EQ(facts.foreign_lines, foreign);
    ASSERT_EQ(facts.first_foreign.size(), 3U);
    EXPECT_EQ(facts.first_foreign[0].text, "=== \\x1b[1ma\\x00b\\xff");
    EXPECT_EQ(facts.first_foreign[1].number, 2U);
    EXPECT_EQ(facts.first_foreign[1].text, std::string(117, 'x') + "...");
    EXPECT_EQ(facts.torn, "0x1: vek_malloc(1" + std::string(100, '0') + "...");
    EXPECT_EQ(facts.missing_numbers, 0U);
    EXPECT_EQ(lines_of(text + std::string(5000, '0')).facts.torn, facts.torn);
}

TEST(Lines, MissingNumbersAreCounted)
{
    const std::pair<std::vector<int>, uint64_t> rows[] = {
        {{}, 0},
        {{3, 1, 2}, 0},
        {{1, 2, 5, 4, 9}, 4},
        {{INT32_MAX - 1, INT32_MIN, INT32_MAX}, 0},
        {{-2, 1}, 2},
        {{-5, -4, 1}, 4},
    };
    for (const auto &[numbers, missing] : rows) {
        std::string text;
        for (const int number : numbers) {
            text += "0x1: vek_malloc(1) => (nil) [#" + std::to_string(number) + "]\n";
        }
        EXPECT_EQ(lines_of(text).facts.missing_numbers, missing) << text;
    }
}

/* ---- Recordings ---- */

Reading read(const Recording &recording)
{
    Reading reading;
    Input input(std::span<const char>{recording.bytes});
    reading.facts = read_recording(input, reading.stacks, reading.sink);
    return reading;
}

Recording sample(uint8_t address_size, uint16_t machine, bool swapped)
{
    Recording recording(address_size, machine, swapped);
    recording.type(VEKRECORD_COMMAND).number(2).text("app").text("--all");
    recording.module(0xfffff000, 0x1000, 0x1000, "/bin/app").type(VEKRECORD_PAD);
    recording.chain(VEKRECORD_CUT, {0x1235, 0x1235, 0x9001}).chain(0, {0x1999});
    recording.chain(VEKRECORD_LIMITED, {0x1235, 0x1235}).chain(0, {0x1235, 0x1235});
    recording.type(VEKRECORD_TIME).number(5);
    recording.type(VEKRECORD_MALLOC).number(0).number(16).signed_number(0x5000);
    recording.type(VEKRECORD_CALLOC).number(1).number(2).number(8).signed_number(0x20);
    recording.type(VEKRECORD_REALLOC).number(2).signed_number(-0x20).number(99).signed_number(0x70);
    recording.type(VEKRECORD_REALLOC_NEW).number(3).number(7).signed_number(-0x10);
    recording.type(VEKRECORD_REALLOC, VEKRECORD_FAILED).number(0).signed_number(0).number(1U << 31);
    recording.type(VEKRECORD_FREE).number(0).signed_number(-0x40);
    recording.type(VEKRECORD_CALLOC, VEKRECORD_REFUSED).number(0).number(1ULL << 32);
    recording.number(1ULL << 32).type(VEKRECORD_UNLOADED).number(0x1000).chain(0, {0x1234});
    recording.type(VEKRECORD_MALLOC_IF_AVAILABLE).number(0).number(1).signed_number(-0x5020);
    recording.type(VEKRECORD_NOTE).text("a note").type(VEKRECORD_EXIT).number(3);
    return recording;
}

TEST(Recordings, AreReadInEveryByteOrderAndWidth)
{
    for (const bool swapped : {false, true}) {
        for (const bool is_arm : {false, true}) {
            const auto [stacks, sink, facts] =
                read(sample(is_arm ? 4 : 8, is_arm ? 40 : 62, swapped));
            EXPECT_EQ(std::tuple(facts.is_recording, facts.broken, facts.pid, facts.start,
                                 facts.exit_status, facts.lines),
                      std::tuple(true, "", 4711U, 1700000000U, 3U, 8U));
            EXPECT_EQ(facts.command, (std::vector<std::string>{"app", "--all"}));
            EXPECT_EQ(facts.notes, std::vector<std::string>{"a note"});
            EXPECT_EQ(sink.times, std::vector<uint64_t>{5});

            const uint64_t limit = is_arm ? 1ULL << 31 : 1ULL << 63;
            using enum Operation;
            const Event expected[] = {
                {malloc, false, false, 0, 0, 16, 0x5000, 1},
                {calloc, false, false, 1, 0, 16, 0x5020, 2},
                {realloc, false, false, 2, 0x5000, 99, 0x5070, 3},
                {realloc, false, false, 3, 0, 7, 0x5060, 4},
                {realloc, false, 1ULL << 31 >= limit, 0, 0x5060, 1ULL << 31, 0, 5},
                {free, false, false, 0, 0x5020, 0, 0, 6},
                {calloc, true, true, 0, 0, most, 0, 7},
                {calloc, false, true, 0, 0, most, 0, 7},
                {malloc_if_available, false, false, 4, 0, 1, 0, 8},
            };
            ASSERT_EQ(sink.events.size(), std::size(expected));
            for (size_t i = 0; i < sink.events.size(); ++i) {
                EXPECT_EQ(fields(sink.events[i]), fields(expected[i])) << i;
            }

            ASSERT_EQ(stacks.modules().size(), 2U);
            EXPECT_EQ(stacks.modules()[1], (Module{"/bin/app", "ab01"}));
            // A bias above the addresses is negative; Thumb bits are cleared.
            const uint64_t thumb = is_arm ? 1 : 0;
            const uint64_t bias = is_arm ? 0xfffffffffffff000 : 0xfffff000;
            const std::vector<Frame> frames = {{1, 0x1235 - thumb - bias},
                                               {0, 0x9001 - thumb},
                                               {1, 0x1999 - thumb - bias},
                                               {0, 0x1234}};
            EXPECT_EQ(stacks.frames(), frames);
            const std::vector<Stack> chains = {{0, {0, 1}, ChainEnd::cut},
                                               {2, {}, ChainEnd::none},
                                               {0, {0}, ChainEnd::limited},
                                               {0, {0}, ChainEnd::whole},
                                               {3, {}, ChainEnd::none}};
            EXPECT_EQ(stacks.stacks(), chains);
        }
    }
}

TEST(Recordings, OfNarrowAddressesWrap)
{
    Recording recording(4, 40);
    recording.type(VEKRECORD_CHAIN).number(0).number(1).signed_number(-0x1000);
    recording.type(VEKRECORD_FREE).number(0).signed_number(-0x2000);
    const Reading reading = read(recording);
    ASSERT_EQ(reading.sink.events.size(), 1U);
    EXPECT_EQ(reading.sink.events[0].block, 0xffffe000);
    EXPECT_EQ(reading.stacks.frames()[0].offset, 0xfffff000);
}

TEST(Recordings, EndAnywhere)
{
    Recording recording = sample(8, 62, false);
    size_t whole_records = 0;
    for (uint64_t events = 9; recording.bytes.size() >= sizeof(VekRecordHeader);
         recording.bytes.pop_back()) {
        const InputFacts facts = read(recording).facts;
        EXPECT_LE(facts.lines, events);
        events = facts.lines;
        whole_records += facts.broken.empty();
        EXPECT_TRUE(facts.broken.empty() || facts.broken.starts_with("the file ends within "));
    }
    EXPECT_EQ(whole_records, 21U); // one of them has the header alone
}

TEST(Recordings, AreReadAcrossBuffers)
{
    Recording recording;
    recording.chain(0, {0x1234});
    for (uint64_t n = 1; n <= 600000; ++n) {
        recording.type(VEKRECORD_MALLOC).number(0).number(n).signed_number(16);
    }
    const std::string place = std::to_string(recording.bytes.size());
    const Reading reading = read(recording.type(10));
    EXPECT_EQ(reading.facts.broken,
              "the record at byte " + place + " cannot be understood: its type is unknown");
    ASSERT_EQ(reading.sink.events.size(), 600000U);
    for (uint64_t n = 1; n <= 600000; ++n) {
        ASSERT_EQ(reading.sink.events[n - 1].bytes, n);
        ASSERT_EQ(reading.sink.events[n - 1].result, n * 16);
    }
}

TEST(Recordings, SayWhatCannotBeUnderstood)
{
    const std::pair<Recording, const char *> rows[] = {
        {Recording().type(10), "its type is unknown"},
        {Recording().type(VEKRECORD_FREE, VEKRECORD_FAILED), "its type is unknown"},
        {Recording().type(VEKRECORD_REALLOC_NEW, VEKRECORD_REFUSED + 1), "its type is unknown"},
        {Recording().type(VEKRECORD_FREE).number(0).number(0), "its chain is unknown"},
        {Recording().type(VEKRECORD_CHAIN).number(0).number(0), "a chain has no address"},
        {Recording().type(VEKRECORD_CHAIN).number(4).number(0), "a chain has unknown flags"},
        {Recording(4).module(0, 0xffffffff, 1, ""), "a module reaches beyond the last address"},
        {Recording().type(VEKRECORD_NOTE).number(most), "a text is too long"},
        {Recording().type(VEKRECORD_NOTE).text(std::string(2500000, 'x')), "a text is too long"},
        {Recording().type(VEKRECORD_TIME).raw(std::string(9, '\xff') + "\x02"),
         "a number has more than 64 bits"},
        {Recording().type(VEKRECORD_COMMAND).number(most).raw(std::string(1100000, '\0')),
         "it is too long"},
    };
    for (const auto &[recording, reason] : rows) {
        EXPECT_EQ(read(recording).facts.broken,
                  "the record at byte 24 cannot be understood: " + std::string(reason));
    }
    EXPECT_EQ(read(Recording().type(VEKRECORD_BROKEN).text("disk full").type(99)).facts.broken,
              "disk full");
}

TEST(Recordings, AreKnownByTheirHeader)
{
    const std::tuple<size_t, char, std::string> rows[] = {
        {0, 'v', "this is no recording"},
        {6, '2',
         "this recording has version 2, and this vek-trace reads version 1; use the "
         "vek-trace that belongs to the vek-record"},
        {8, 3, "the recording is damaged: its byte order is 3"},
        {9, 2, "the recording is damaged: its addresses have 2 bytes"},
    };
    for (const auto &[place, byte, message] : rows) {
        Recording recording;
        recording.bytes[place] = byte;
        EXPECT_EQ(message_of([&] { read(recording); }), "memory: " + message);
        EXPECT_EQ(is_recording(written(recording.bytes)), place != 0);
    }
    EXPECT_FALSE(is_recording("/"));
    EXPECT_FALSE(is_recording("-"));
}

/* ---- Modules ---- */

void expect_frames(const ModuleMap &map, Stacks &stacks,
                   const std::vector<std::pair<uint64_t, Frame>> &expected)
{
    for (const auto &[address, frame] : expected) {
        EXPECT_EQ(stacks.frames()[map.frame(stacks, address)], frame) << address;
    }
}

TEST(Modules, ReplaceWhatTheyOverlap)
{
    Stacks stacks;
    ModuleMap map;
    for (ModuleId id = 1; id <= 5; ++id) {
        stacks.module({std::to_string(id), {}});
        map.add({id, id * 0x1000, id * 0x1000 + 0x800, 0x100});
    }
    map.add({6, 0x1400, 0x4000, 0});
    map.remove(0x2000); // no module starts there any more
    map.remove(0x5000);
    const std::vector<std::pair<uint64_t, Frame>> rows = {
        {0x1000, {0, 0x1000}}, {0x1400, {6, 0x1400}}, {0x3000, {6, 0x3000}}, {0x3fff, {6, 0x3fff}},
        {0x4000, {4, 0x3f00}}, {0x5000, {0, 0x5000}}, {most, {0, most}},
    };
    expect_frames(map, stacks, rows);
}

TEST(Modules, HaveTheBiasOfTheirFile)
{
    Elf64_Ehdr header = {};
    std::memcpy(header.e_ident, "\x7f\x45LF\x02\x01\x01", 7);
    header.e_version = 1;
    header.e_phoff = header.e_ehsize = sizeof header;
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = 2;
    const Elf64_Phdr segments[] = {
        {PT_LOAD, PF_R, 0, 0x10000, 0x10000, 0x1000, 0x1000, 0x1000},
        {PT_LOAD, PF_R | PF_X, 0x1e00, 0x12e00, 0x12e00, 0x3000, 0x3000, 0x1000},
    };
    const std::string program =
        written(std::string(reinterpret_cast<const char *>(&header), sizeof header) +
                std::string(reinterpret_cast<const char *>(segments), sizeof segments));
    const std::string rest = " 00:01 1 " + program.substr(5) + "\n"; // without /proc
    const std::string maps = "550000-551000 r--p 0" + rest + "552000-556000 r-xp 1000" + rest;
    Stacks stacks;
    const ModuleMap map = read_modules(written(maps), "/proc", stacks);
    expect_frames(map, stacks, {{0x553210, {1, 0x13210}}});
}

TEST(Modules, OfADeviceAreFound)
{
    const std::string text = "$ cat /proc/77/maps\r\n"
                             "00010000-00012000 r-xp 00000000 b3:02 11  /opt/my app\r\n"
                             "00021000-00022000 rw-p 00001000 b3:02 11  /opt/my app\r\n"
                             "00022000-00043000 rw-p 00000000 00:00 0   [heap]\r\n"
                             "b6000000-b6002000 r--p 00000000 b3:02 11  /opt/my app\r\n"
                             "b6e00000-b6e10000 r-xp 00000000 b3:02 12  /lib/libx.so (deleted)\r\n"
                             "b6e10000-b6e11000 ---p 00010000 b3:02 12  /lib/libx.so (deleted)\r\n"
                             "b6e12000-b6e13000 rw-p 00000000 00:00 0   [anon:.bss]\r\n"
                             "b6e14000-b6e15000 rw-p 00010000 b3:02 12  /lib/libx.so (deleted)\r\n"
                             "b6f00000-b6f10000 r--p 00000000 b3:02 13  /usr/lib/locale-archive\r\n"
                             "bef00000-bef21000 rw-p 00000000 00:00 0   [stack]";
    Stacks stacks;
    const ModuleMap map = read_modules(written(text), "/nonexistent", stacks);
    ASSERT_EQ(stacks.modules().size(), 3U);
    EXPECT_EQ(stacks.modules()[1].path + stacks.modules()[2].path, "/opt/my app/lib/libx.so");
    const std::vector<std::pair<uint64_t, Frame>> rows = {
        {0x10234, {1, 0x10234}},       {0x30000, {0, 0x30000}},    {0xb6e00234, {2, 0x234}},
        {0xb6000000, {0, 0xb6000000}}, {0xb6e14004, {2, 0x14004}}, {0xb6f00000, {0, 0xb6f00000}},
    };
    expect_frames(map, stacks, rows);
}

TEST(Modules, CannotComeFromAnything)
{
    const std::pair<const char *, const char *> rows[] = {
        {"00022000-00043000 rw-p 0 00:00 0 [heap]\nnonsense\x01\n",
         "line 2 is no line of /proc/PID/maps: \"nonsense\\x01\""},
        {"-", "line 1 is no line of /proc/PID/maps: \"-\""},
        {"1000-2000 rw-p 0 00:00 1 /a", "no line names a program or a shared object"},
    };
    for (const auto &[text, message] : rows) {
        const std::string path = written(text);
        Stacks stacks;
        EXPECT_EQ(message_of([&] { read_modules(path, "", stacks); }), path + ": " + message);
    }
}

} // namespace
