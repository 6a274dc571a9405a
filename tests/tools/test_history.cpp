// SPDX-License-Identifier: MIT
// Random histories of several threads, as text and as recordings, against a recount of everything.
#include "history.h"
#include "recording.h"

#include <algorithm>
#include <bit>
#include <map>
#include <random>
#include <tuple>
#include <utility>

#include <fmt/format.h>
#include <gtest/gtest.h>

using namespace vektrace;

namespace {

constexpr uint64_t sites = 12;
constexpr uint64_t first_address = 0x100000;

uint64_t return_address(StackId site) { return 0x401000 + site * 16; }

/** An address as the library's lines show it. */
std::string show(uint64_t address)
{
    return address == 0 ? "(nil)" : fmt::format("{:#x}", address);
}

std::string as_line(const Event &event, unsigned number)
{
    static constexpr const char *names[] = {
        "malloc", "calloc", "realloc", "free", "malloc_if_possible", "malloc_if_available"};
    const bool is_huge = event.bytes == UINT64_MAX;
    std::string line = fmt::format("{}: vek_{}(", show(return_address(event.stack)),
                                   names[static_cast<size_t>(event.operation)]);
    if (event.operation == Operation::free) { return line + show(event.block) + ")\n"; }
    if (event.operation == Operation::realloc) { line += show(event.block) + ", "; }
    if (event.operation == Operation::calloc) { line += is_huge ? "4611686018427387904, " : "1, "; }
    line += is_huge ? "8" : std::to_string(static_cast<int64_t>(event.bytes));
    return line + (event.refused ? ") => NULL, in error state\n"
                                 : fmt::format(") => {} [#{}]\n", show(event.result), number));
}

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

    std::vector<Event> events;
    std::string text;
    std::map<uint64_t, std::pair<StackId, uint64_t>> live; ///< at the end: who, and how many bytes

private:
    struct Thread {
        std::optional<Event> late;       ///< done, but not written
        std::optional<uint64_t> release; ///< written, but not done
    };

    size_t pick(size_t count) { return random_() % count; }

    uint64_t take(std::vector<uint64_t> &addresses)
    {
        std::swap(addresses[pick(addresses.size())], addresses.back());
        const uint64_t address = addresses.back();
        addresses.pop_back();
        return address;
    }

    uint64_t take_address() { return free_.empty() ? end_ += 16 : take(free_); }

    void write(Event event)
    {
        if (faulty_ && pick(50) == 0 && (event.result != 0 || event.operation == Operation::free)) {
            return;
        }
        event.line = ++lines_;
        text += as_line(event, ++number_);
        events.push_back(event);
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
            text += "vek_malloc is a word of this line\n";
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
            event.block = take(known_);
            live.erase(event.block);
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
            event.block = take(known_);
            event.bytes = pick(4) == 0 ? 0 : event.bytes;
        }
        if (pick(40) == 0) {
            event.impossible = true;
            event.bytes = event.operation == Operation::calloc ? UINT64_MAX : 0 - (2 + pick(99));
        }
        const bool fails = event.impossible ? !faulty_ || pick(2) == 0 : pick(20) == 0;
        if (event.block != 0 && event.bytes == 0) {
            live.erase(event.block);
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
        live.erase(event.block);
        live[event.result] = {event.stack, event.bytes};
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

/** Adds an event to a recording of depth 1. `last` is the last address in it. */
void add_to(Recording &recording, const Event &event, bool refused, uint64_t &last)
{
    const auto address = [&](uint64_t next) {
        if (next == 0) { return; }
        recording.signed_number(static_cast<int64_t>(next - std::exchange(last, next)));
    };
    const bool is_free = event.operation == Operation::free;
    const bool is_new = event.operation == Operation::realloc && event.block == 0;
    const bool has_failed = !is_free && event.result == 0;
    recording.type(is_new ? int{VEKRECORD_REALLOC_NEW}
                          : VEKRECORD_MALLOC + static_cast<int>(event.operation),
                   !has_failed ? 0
                   : refused   ? VEKRECORD_REFUSED
                               : VEKRECORD_FAILED);
    recording.number(event.stack);
    address(event.block);
    if (event.operation == Operation::calloc) { recording.number(1); }
    if (!is_free) { recording.number(event.bytes); }
    address(event.result);
}

/** What a history ought to say: follows the events with the simplest means, and counts all live
 *  blocks again after each. */
class Recount {
public:
    explicit Recount(const std::vector<Event> &events)
    {
        note_live();
        for (const Event &event : events) { add(event); }
        finish();
    }

    Totals totals;
    std::vector<StackTotals> stacks{sites};
    std::vector<Fault> faults;
    std::vector<Amount> live_after; ///< so many events

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
        StackTotals &stack = stacks[event.stack];
        if (event.refused) {
            stack.refused += 1;
            totals.refused += 1;
            return;
        }
        if (event.impossible) { report(fault(FaultKind::impossible_size, event, event.bytes)); }
        if (event.operation != Operation::free && event.bytes != 0 && event.result == 0) {
            stack.failed += 1;
            totals.failed += 1;
        } else {
            (event.block == 0    ? totals.allocations
             : event.result != 0 ? totals.resizes
                                 : totals.releases) += 1;
            if (event.block != 0) { release(event); }
            if (event.result != 0) { allocate(event); }
        }
        note_live();
    }

    void allocate(const Event &event)
    {
        StackTotals &stack = stacks[event.stack];
        const uint64_t bytes = event.impossible ? 0 : event.bytes;
        number_ += 1;
        stack.smallest = stack.total.blocks == 0 ? bytes : std::min(stack.smallest, bytes);
        stack.largest = std::max(stack.largest, bytes);
        stack.total += {1, bytes};
        totals.total += {1, bytes};
        blocks_[event.result].push_back({bytes, event.stack, number_, event.line});
    }

    void release(const Event &event)
    {
        std::vector<Block> &blocks = blocks_[event.block];
        const bool is_free = event.operation == Operation::free;
        if (blocks.empty()) {
            totals.releases -= event.result == 0;
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
        stacks[taken->stack].short_lived += number_ - taken->number <= short_life;
        released_[event.block] = {*taken, event.stack};
        blocks.erase(taken);
    }

    void report(const Fault &fault)
    {
        totals.faults += 1;
        const auto places = [](const Fault &at) {
            return std::tuple(at.kind, at.allocated, at.released_first, at.again);
        };
        const auto known = std::ranges::find(faults, places(fault), places);
        if (known == faults.end()) {
            faults.push_back(fault);
        } else {
            known->count += 1;
        }
    }

    void note_live()
    {
        std::vector<Amount> by_stack(sites);
        Amount all;
        for (const auto &[address, blocks] : blocks_) {
            for (const Block &block : blocks) {
                by_stack[block.stack] += {1, block.bytes};
                all += {1, block.bytes};
            }
        }
        live_after.push_back(all);
        history_.push_back(by_stack);
    }

    void finish()
    {
        const auto highest = std::ranges::max_element(live_after, {}, &Amount::bytes);
        totals.events = live_after.size() - 1;
        totals.peak = *highest;
        totals.peak_event = static_cast<uint64_t>(highest - live_after.begin());
        give_up_aside();
        note_live();
        totals.live = live_after.back();
        const size_t earlier = std::bit_floor(totals.events) / 2;
        for (StackId site = 0; site < sites; ++site) {
            stacks[site].live = history_.back()[site];
            stacks[site].at_peak = history_[totals.peak_event][site];
            stacks[site].earlier_bytes = history_[earlier][site].bytes;
        }
        std::ranges::stable_sort(faults, {}, &Fault::first_line);
    }

    void give_up_aside()
    {
        std::map<uint64_t, Fault> by_line;
        for (auto &[address, blocks] : blocks_) {
            for (; blocks.size() > 1; blocks.erase(blocks.begin())) {
                Fault &fault = by_line[blocks[1].line];
                fault = {FaultKind::allocated_while_live, blocks[0].stack, {}, blocks[1].stack};
                fault.first_line = blocks[1].line;
                fault.block = address;
                fault.bytes = blocks[0].bytes;
            }
        }
        for (const auto &[line, fault] : by_line) { report(fault); }
    }

    std::map<uint64_t, std::vector<Block>> blocks_;          ///< at an address, oldest first
    std::map<uint64_t, std::pair<Block, StackId>> released_; ///< last, and by whom
    std::vector<std::vector<Amount>> history_;               ///< by event and stack
    uint64_t number_ = 0;
};

void expect_truth(const History &history, const Recount &truth)
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

    const std::span<const Moment> moments = history.moments();
    ASSERT_TRUE(!moments.empty() && moments.size() <= most_moments);
    EXPECT_EQ(moments.back().event, totals.events);
    EXPECT_EQ(moments.back().bytes, totals.live.bytes);
    bool has_peak = moments.back().event == totals.peak_event;
    uint64_t before = 0;
    for (const Moment &moment : moments.first(moments.size() - 1)) {
        EXPECT_GT(moment.event, std::exchange(before, moment.event));
        EXPECT_EQ((Amount{moment.blocks, moment.bytes}), truth.live_after[moment.event]);
        has_peak = has_peak || moment.event == totals.peak_event;
    }
    EXPECT_TRUE(has_peak);
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
    Recording recording;
    for (StackId site = 0; site < sites; ++site) { recording.chain(0, {return_address(site)}); }
    uint64_t last = 0;
    uint64_t count = 0;
    bool refused = false;
    for (Event &event : events) {
        event.line = count + 1;
        if (!event.refused) {
            if (count % 64 == 0) { recording.type(VEKRECORD_TIME).number(count); }
            add_to(recording, event, refused, last);
            count += 1;
        }
        refused = event.refused;
    }
    const History history = read(recording.bytes);
    expect_truth(history, Recount(events));
    const uint64_t at_peak = history.totals().peak_event;
    EXPECT_EQ(history.totals().peak_milliseconds, at_peak == 0 ? 0 : (at_peak - 1) / 64 * 64);
}

TEST(History, equals_a_recount_of_random_programs)
{
    for (unsigned seed = 1; seed <= 300 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const bool faulty = seed % 2 == 0;
        const Program program(seed, faulty);
        const History history = read(program.text);
        expect_truth(history, Recount(program.events));
        expect_same_from_recording(program.events);
        // Without faults, what is live does not depend on the order of late lines.
        std::vector<Amount> live(history.stacks().size());
        for (const auto &[address, block] : program.live) {
            live[block.first] += {1, block.second};
        }
        for (size_t i = 0; i < live.size() && !faulty; ++i) {
            EXPECT_EQ(history.stacks()[i].live, live[i]);
        }
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
    const Fault expected[] = {
        {FaultKind::released_unknown, {}, {}, 0, 2, 1, 16, 0},
        {FaultKind::released_twice, 0, 0, 0, 1, 1, 32, 8},
        {FaultKind::released_twice, 0, 1, 0, 2, 1, 48, 8},
    };
    EXPECT_TRUE(std::ranges::equal(releases.faults(), expected));

    History faults;
    for (StackId by = 0; by < most_faults + 5; ++by) { release(faults, 16, by); }
    EXPECT_EQ(faults.faults().size(), most_faults);
    EXPECT_EQ(faults.totals().faults, most_faults + 5);

    History aside;
    for (uint64_t i = 1; i <= most_aside + 1; ++i) {
        allocate(aside, 16 * i);
        allocate(aside, 16 * i, 1);
    }
    EXPECT_EQ(aside.totals().faults, most_aside / 2 + 1);
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
