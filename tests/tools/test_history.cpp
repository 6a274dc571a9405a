// SPDX-License-Identifier: MIT
// Random histories of several threads, as text and as recordings, against a recount of everything.
#include "history.h"
#include "reader.h"
#include "recording.h"

#include <algorithm>
#include <bit>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <random>
#include <utility>

#include <gtest/gtest.h>

using namespace vektrace;

namespace {

constexpr uint64_t sites = 12;
constexpr uint64_t first_address = 0x100000;

uint64_t return_address(StackId site) { return 0x401000 + site * 16; }

__attribute__((format(printf, 1, 2))) std::string print(const char *format, ...)
{
    char text[200];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

/** An address as the library's lines show it. */
std::string show(uint64_t address) { return address == 0 ? "(nil)" : print("0x%lx", address); }

std::string as_line(const Event &event, unsigned number)
{
    static constexpr const char *names[] = {
        "malloc", "calloc", "realloc", "free", "malloc_if_possible", "malloc_if_available"};
    std::string line = show(return_address(event.stack)) + ": vek_" +
                       names[static_cast<size_t>(event.operation)] + "(";
    if (event.operation == Operation::free) { return line + show(event.block) + ")\n"; }
    if (event.operation == Operation::realloc) {
        line += show(event.block) + ", ";
    } else if (event.operation == Operation::calloc) {
        line += event.bytes == UINT64_MAX ? "4611686018427387904, " : "1, ";
    }
    line += event.bytes == UINT64_MAX ? "8" : std::to_string(static_cast<int64_t>(event.bytes));
    return line + (event.refused ? ") => NULL, in error state\n"
                                 : ") => " + show(event.result) + print(" [#%u]\n", number));
}

struct Script {
    std::vector<Event> events;
    std::string text;
    std::map<uint64_t, std::pair<StackId, uint64_t>> live; ///< at the end: who, and how many bytes
};

/** Threads that share a heap. A thread is interrupted between each operation and its line, so lines
 *  of different threads come in the orders that real ones come in. A faulty program also releases
 *  what it should not, and some of its lines are lost. */
class Program {
public:
    Program(unsigned seed, bool faulty) : random_(seed), faulty_(faulty)
    {
        threads_.resize(1 + pick(6));
        for (size_t steps = 10 + pick(6000); steps > 0; --steps) {
            step(threads_[pick(threads_.size())]);
        }
        for (Thread &thread : threads_) { write_late_line(thread); }
    }

    Script script;

private:
    struct Thread {
        std::optional<Event> late;       ///< done, but not written
        std::optional<uint64_t> release; ///< written, but not done
    };

    size_t pick(size_t count) { return random_() % count; }

    uint64_t take_address()
    {
        if (free_.empty()) { return end_ += 16; }
        std::swap(free_[pick(free_.size())], free_.back());
        const uint64_t address = free_.back();
        free_.pop_back();
        return address;
    }

    uint64_t take_known()
    {
        std::swap(known_[pick(known_.size())], known_.back());
        const uint64_t address = known_.back();
        known_.pop_back();
        return address;
    }

    void write(Event event)
    {
        if (faulty_ && pick(50) == 0 && (event.result != 0 || event.operation == Operation::free)) {
            return;
        }
        event.line = ++lines_;
        script.text += as_line(event, ++number_);
        script.events.push_back(event);
    }

    void write_late_line(Thread &thread)
    {
        if (thread.late) {
            write(*thread.late);
            const bool failed = thread.late->result == 0 && thread.late->bytes != 0;
            if (const uint64_t block = failed ? thread.late->block : thread.late->result) {
                known_.push_back(block);
            }
        }
        thread.late.reset();
    }

    void step(Thread &thread)
    {
        if (thread.late) {
            write_late_line(thread);
        } else if (thread.release) {
            free_.push_back(*thread.release);
            thread.release.reset();
        } else {
            begin(thread);
        }
    }

    void begin(Thread &thread)
    {
        Event event = {};
        event.stack = static_cast<StackId>(pick(sites));
        event.bytes = 1 + pick(1000);
        const size_t dice = pick(20);
        if (dice == 0) {
            script.text += "vek_malloc is a word of this line\n";
            lines_ += 1;
        } else if (faulty_ && dice == 1) {
            event.operation = pick(2) == 0 ? Operation::free : Operation::realloc;
            event.bytes = event.operation == Operation::free ? 0 : pick(2);
            event.block = first_address + 16 * pick((end_ - first_address) / 16 + 2);
            event.result = event.bytes == 0 ? 0 : take_address();
            write(event);
        } else if (dice < 9 && !known_.empty()) {
            event.operation = Operation::free;
            event.bytes = 0;
            event.block = take_known();
            script.live.erase(event.block);
            thread.release = event.block;
            write(event);
        } else {
            request(thread, event);
        }
    }

    void request(Thread &thread, Event event)
    {
        static constexpr Operation requests[] = {
            Operation::malloc,  Operation::calloc,  Operation::malloc_if_possible,
            Operation::realloc, Operation::realloc, Operation::malloc_if_available};
        event.operation = requests[pick(std::size(requests))];
        if (event.operation == Operation::realloc && pick(4) != 0 && !known_.empty()) {
            event.block = take_known();
            event.bytes = pick(4) == 0 ? 0 : event.bytes;
        }
        if (pick(40) == 0) {
            event.impossible = true;
            event.bytes = event.operation == Operation::calloc ? UINT64_MAX : 0 - (2 + pick(99));
        }
        const bool fails = event.impossible ? !faulty_ || pick(2) == 0 : pick(20) == 0;
        if (event.block != 0 && event.bytes == 0) {
            script.live.erase(event.block);
            free_.push_back(event.block);
        } else if (!fails) {
            move(event);
        } else if (event.operation != Operation::malloc_if_available && pick(2) == 0) {
            event.refused = true;
            write(event);
            event.refused = false;
            thread.late = event;
            write_late_line(thread);
            return;
        }
        thread.late = event;
    }

    void move(Event &event)
    {
        if (event.block != 0 && pick(3) == 0) {
            event.result = event.block;
        } else {
            event.result = take_address();
            if (event.block != 0) { free_.push_back(event.block); }
        }
        script.live.erase(event.block);
        script.live[event.result] = {event.stack, event.bytes};
    }

    std::mt19937 random_;
    bool faulty_;
    std::vector<Thread> threads_;
    std::vector<uint64_t> free_;  ///< addresses
    std::vector<uint64_t> known_; ///< blocks that any thread may release or resize
    uint64_t end_ = first_address;
    uint64_t lines_ = 0;
    unsigned number_ = 0;
};

/** Writes events as a recording of depth 1. */
class Recorder {
public:
    Recorder()
    {
        for (StackId site = 0; site < sites; ++site) { recording.chain(0, {return_address(site)}); }
    }

    void time(uint64_t milliseconds) { recording.type(VEKRECORD_TIME).number(milliseconds); }

    void add(const Event &event, bool refused)
    {
        static constexpr int types[] = {VEKRECORD_MALLOC,
                                        VEKRECORD_CALLOC,
                                        VEKRECORD_REALLOC,
                                        VEKRECORD_FREE,
                                        VEKRECORD_MALLOC_IF_POSSIBLE,
                                        VEKRECORD_MALLOC_IF_AVAILABLE};
        const bool is_free = event.operation == Operation::free;
        const bool is_new = event.operation == Operation::realloc && event.block == 0;
        const bool has_failed = !is_free && event.result == 0;
        recording.type(is_new ? int{VEKRECORD_REALLOC_NEW}
                              : types[static_cast<int>(event.operation)],
                       !has_failed ? 0
                       : refused   ? VEKRECORD_REFUSED
                                   : VEKRECORD_FAILED);
        recording.number(event.stack);
        if (event.block != 0) { address(event.block); }
        if (event.operation == Operation::calloc) { recording.number(1); }
        if (!is_free) { recording.number(event.bytes); }
        if (event.result != 0) { address(event.result); }
    }

    Recording recording;

private:
    void address(uint64_t next)
    {
        recording.signed_number(static_cast<int64_t>(next - std::exchange(last_, next)));
    }

    uint64_t last_ = 0;
};

/** What a history ought to say. */
struct Truth {
    Totals totals;
    std::vector<StackTotals> stacks;
    std::vector<Fault> faults;
    std::vector<Amount> live_after; ///< so many events
};

/** Follows the events with the simplest means, and counts all live blocks again after each. */
class Recount {
public:
    explicit Recount(const std::vector<Event> &events)
    {
        truth.stacks.resize(sites);
        note_live();
        for (const Event &event : events) { add(event); }
        finish();
    }

    Truth truth;

private:
    struct Block {
        uint64_t bytes;
        StackId stack;
        uint64_t number;
        uint64_t line;
    };

    static Fault fault(FaultKind kind, const Event &event, uint64_t bytes)
    {
        return {kind, {}, {}, event.stack, 1, event.line, event.block, bytes};
    }

    void add(const Event &event)
    {
        StackTotals &stack = truth.stacks[event.stack];
        if (event.refused) {
            stack.refused += 1;
            truth.totals.refused += 1;
            return;
        }
        if (event.impossible) { report(fault(FaultKind::impossible_size, event, event.bytes)); }
        if (event.operation != Operation::free && event.bytes != 0 && event.result == 0) {
            stack.failed += 1;
            truth.totals.failed += 1;
        } else {
            (event.block == 0    ? truth.totals.allocations
             : event.result != 0 ? truth.totals.resizes
                                 : truth.totals.releases) += 1;
            if (event.block != 0) { release(event); }
            if (event.result != 0) { allocate(event); }
        }
        note_live();
    }

    void allocate(const Event &event)
    {
        StackTotals &stack = truth.stacks[event.stack];
        const uint64_t bytes = event.impossible ? 0 : event.bytes;
        number_ += 1;
        stack.smallest = stack.total.blocks == 0 ? bytes : std::min(stack.smallest, bytes);
        stack.largest = std::max(stack.largest, bytes);
        stack.total = {stack.total.blocks + 1, stack.total.bytes + bytes};
        truth.totals.total = {number_, truth.totals.total.bytes + bytes};
        blocks_[event.result].push_back({bytes, event.stack, number_, event.line});
    }

    void release(const Event &event)
    {
        std::vector<Block> &blocks = blocks_[event.block];
        const bool is_free = event.operation == Operation::free;
        if (blocks.empty()) {
            truth.totals.releases -= event.result == 0;
            Fault found =
                fault(is_free ? FaultKind::released_unknown : FaultKind::resized_unknown, event, 0);
            if (const auto last = released_.find(event.block); last != released_.end()) {
                found.kind = is_free ? FaultKind::released_twice : FaultKind::resized_after_release;
                found.allocated = last->second.first.stack;
                found.released_first = last->second.second;
                found.bytes = last->second.first.bytes;
            }
            report(found);
            return;
        }
        const auto taken = is_free ? blocks.end() - 1 : blocks.begin();
        truth.stacks[taken->stack].short_lived += number_ - taken->number <= short_life;
        released_[event.block] = {*taken, event.stack};
        blocks.erase(taken);
    }

    void report(const Fault &fault)
    {
        truth.totals.faults += 1;
        for (Fault &known : truth.faults) {
            if (known.kind == fault.kind && known.allocated == fault.allocated &&
                known.released_first == fault.released_first && known.again == fault.again) {
                known.count += 1;
                return;
            }
        }
        truth.faults.push_back(fault);
    }

    void note_live()
    {
        std::vector<Amount> by_stack(sites);
        Amount all;
        for (const auto &[address, blocks] : blocks_) {
            for (const Block &block : blocks) {
                for (Amount *amount : {&by_stack[block.stack], &all}) {
                    *amount = {amount->blocks + 1, amount->bytes + block.bytes};
                }
            }
        }
        truth.live_after.push_back(all);
        history_.push_back(by_stack);
    }

    void finish()
    {
        const auto highest =
            std::max_element(truth.live_after.begin(), truth.live_after.end(),
                             [](const Amount &a, const Amount &b) { return a.bytes < b.bytes; });
        truth.totals.events = truth.live_after.size() - 1;
        truth.totals.peak = *highest;
        truth.totals.peak_event = static_cast<uint64_t>(highest - truth.live_after.begin());
        give_up_aside();
        note_live();
        truth.totals.live = truth.live_after.back();
        const size_t earlier = std::bit_floor(truth.totals.events) / 2;
        for (StackId site = 0; site < sites; ++site) {
            truth.stacks[site].live = history_.back()[site];
            truth.stacks[site].at_peak = history_[truth.totals.peak_event][site];
            truth.stacks[site].earlier_bytes = history_[earlier][site].bytes;
        }
        std::stable_sort(
            truth.faults.begin(), truth.faults.end(),
            [](const Fault &a, const Fault &b) { return a.first_line < b.first_line; });
    }

    void give_up_aside()
    {
        std::map<uint64_t, Fault> by_line;
        for (auto &[address, blocks] : blocks_) {
            for (; blocks.size() > 1; blocks.erase(blocks.begin())) {
                by_line[blocks[1].line] = {FaultKind::allocated_while_live,
                                           blocks[0].stack,
                                           {},
                                           blocks[1].stack,
                                           1,
                                           blocks[1].line,
                                           address,
                                           blocks[0].bytes};
            }
        }
        for (const auto &[line, fault] : by_line) { report(fault); }
    }

    std::map<uint64_t, std::vector<Block>> blocks_;          ///< at an address, oldest first
    std::map<uint64_t, std::pair<Block, StackId>> released_; ///< last, and by whom
    std::vector<std::vector<Amount>> history_;               ///< by event and stack
    uint64_t number_ = 0;
};

void expect_chart(const History &history, const Truth &truth)
{
    const std::span<const Moment> moments = history.moments();
    const Totals &totals = history.totals();
    ASSERT_FALSE(moments.empty());
    EXPECT_LE(moments.size(), most_moments);
    EXPECT_EQ(moments.back().event, totals.events);
    EXPECT_EQ(moments.back().bytes, totals.live.bytes);
    size_t peaks = 0;
    uint64_t before = 0;
    for (const Moment &moment : moments.first(moments.size() - 1)) {
        EXPECT_GT(moment.event, before);
        EXPECT_EQ(moment.bytes, truth.live_after[moment.event].bytes);
        EXPECT_EQ(moment.blocks, truth.live_after[moment.event].blocks);
        peaks += moment.event == totals.peak_event;
        before = moment.event;
    }
    EXPECT_TRUE(peaks == 1 || moments.back().event == totals.peak_event);
}

void expect_truth(const History &history, const Truth &truth)
{
    std::vector<StackTotals> stacks(history.stacks().begin(), history.stacks().end());
    stacks.resize(sites);
    Totals totals = truth.totals;
    totals.has_times = history.totals().has_times;
    totals.milliseconds = history.totals().milliseconds;
    totals.peak_milliseconds = history.totals().peak_milliseconds;
    EXPECT_EQ(history.totals(), totals);
    EXPECT_EQ(stacks, truth.stacks);
    EXPECT_TRUE(std::ranges::equal(history.faults(), truth.faults));
    expect_chart(history, truth);
}

History read(const std::string &text)
{
    Input input(std::span<const char>(text.data(), text.size()));
    Stacks stacks;
    for (StackId site = 0; site < sites; ++site) {
        stacks.address(no_module, return_address(site));
    }
    History history;
    if (text.starts_with("VEKREC")) {
        EXPECT_EQ(read_recording(input, stacks, history).broken, "");
    } else {
        read_lines(input, {}, stacks, history);
    }
    history.finish();
    return history;
}

/** The same events as a recording, with the number of every 64th one as the time. */
void expect_same_from_recording(std::vector<Event> events)
{
    Recorder recorder;
    uint64_t count = 0;
    bool refused = false;
    for (Event &event : events) {
        event.line = count + 1;
        if (!event.refused) {
            if (count % 64 == 0) { recorder.time(count); }
            recorder.add(event, refused);
            count += 1;
        }
        refused = event.refused;
    }
    const History history = read(recorder.recording.bytes);
    expect_truth(history, Recount(events).truth);
    const uint64_t at_peak = history.totals().peak_event;
    EXPECT_EQ(history.totals().peak_milliseconds, at_peak == 0 ? 0 : (at_peak - 1) / 64 * 64);
}

/** Without faults, what is live does not depend on the order of late lines. */
void expect_live(const History &history, const Script &script)
{
    std::vector<Amount> live(history.stacks().size());
    for (const auto &[address, block] : script.live) {
        live[block.first] = {live[block.first].blocks + 1, live[block.first].bytes + block.second};
    }
    for (size_t i = 0; i < live.size(); ++i) { EXPECT_EQ(history.stacks()[i].live, live[i]); }
}

TEST(History, equals_a_recount_of_random_programs)
{
    for (unsigned seed = 1; seed <= 300 && !HasFailure(); ++seed) {
        SCOPED_TRACE(print("seed %u", seed));
        const bool faulty = seed % 2 == 0;
        const Script script = Program(seed, faulty).script;
        const History history = read(script.text);
        expect_truth(history, Recount(script.events).truth);
        expect_same_from_recording(script.events);
        if (!faulty) { expect_live(history, script); }
    }
}

void allocate(History &history, uint64_t block, StackId by = 0)
{
    history.add({Operation::malloc, false, false, by, 0, 8, block, 1});
}

void release(History &history, uint64_t block, StackId by = 0)
{
    history.add({Operation::free, false, false, by, block, 0, 0, 1});
}

TEST(History, keeps_no_more_than_its_limits)
{
    History releases;
    const auto reuse = [&releases](uint64_t block, StackId by) {
        allocate(releases, block);
        release(releases, block, by);
    };
    for (uint64_t i = 1; i <= remembered_releases; ++i) { reuse(16 * i, 0); }
    reuse(48, 1);          // forgets the release of 16
    release(releases, 16); // unknown
    release(releases, 32); // the oldest that is remembered
    release(releases, 48); // the second release of 48 counts
    reuse(64, 0);          // forgets the release of 32
    reuse(64, 0);          // forgets the first release of 48
    release(releases, 32); // unknown
    release(releases, 48); // as before
    ASSERT_EQ(releases.faults().size(), 3);
    EXPECT_EQ(releases.faults()[0].kind, FaultKind::released_unknown);
    EXPECT_EQ(releases.faults()[0].count, 2);
    EXPECT_EQ(releases.faults()[1].kind, FaultKind::released_twice);
    EXPECT_EQ(releases.faults()[1].count, 1);
    EXPECT_EQ(releases.faults()[2].released_first, 1);
    EXPECT_EQ(releases.faults()[2].count, 2);

    History faults;
    for (StackId by = 0; by < most_faults + 5; ++by) { release(faults, 16, by); }
    EXPECT_EQ(faults.faults().size(), most_faults);
    EXPECT_EQ(faults.totals().faults, most_faults + 5);

    History aside;
    for (uint64_t i = 1; i <= most_aside + 1; ++i) {
        allocate(aside, 16 * i);
        allocate(aside, 16 * i, 1);
    }
    for (uint64_t i = most_aside / 2 + 2; i <= most_aside + 1; ++i) {
        aside.add({Operation::realloc, false, false, 0, 16 * i, 0, 0, 1}); // late
    }
    aside.finish();
    EXPECT_EQ(aside.totals().faults, most_aside / 2 + 1);
    EXPECT_EQ(aside.totals().live.blocks, most_aside + 1);
    EXPECT_EQ(aside.stacks()[0].live.blocks, 0);
}

TEST(History, keeps_a_chart_of_even_steps)
{
    History history;
    for (uint64_t i = 1; i < 2 * most_moments - 1; ++i) { allocate(history, 16 * i); }
    release(history, 16);
    history.finish();
    const std::span<const Moment> moments = history.moments();
    ASSERT_EQ(moments.size(), most_moments / 2 + 1);
    for (size_t i = 0; i < moments.size() - 2; ++i) { EXPECT_EQ(moments[i].event, 4 * (i + 1)); }
    EXPECT_EQ(moments[moments.size() - 2].event, history.totals().peak_event);
    EXPECT_EQ(moments.back().event, history.totals().events);
}

} // namespace
