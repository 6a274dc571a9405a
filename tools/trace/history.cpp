// SPDX-License-Identifier: MIT
#include "history.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include <tsl/robin_map.h>

#include "hash.h"

namespace vektrace {

Numbers &Numbers::operator+=(const Numbers &other)
{
    if (other.total.blocks != 0) {
        smallest = total.blocks == 0 ? other.smallest : std::min(smallest, other.smallest);
        largest = std::max(largest, other.largest);
    }
    live += other.live;
    at_peak += other.at_peak;
    total += other.total;
    short_lived += other.short_lived;
    failed += other.failed;
    refused += other.refused;
    return *this;
}

namespace {

template <typename Value>
using AddressMap = tsl::robin_map<uint64_t, Value, AddressHash>;

struct Block {
    uint64_t bytes;
    StackId stack;
    uint32_t number; ///< of the allocation; comparing it with a later one survives the overflow
};

// ---- Blocks ----

// The line of a realloc is written after the operation. When it gives up an address, another
// thread may get that address and write its line first. So an address can have several blocks, in
// the order of their lines, and one rule serves: a realloc takes the oldest block of its address,
// because its line is the late one; a free takes the newest, because its line stands before the
// operation and nobody can have got the address since. When several reallocs of one address are
// late, they take one block each, whichever comes first, and in the end the same blocks are live.
// That covers a realloc that keeps the address: it takes the oldest block and adds the newest.
//
// The newest block of an address is in the large map, the others are aside. A thread is late with
// one line at a time, so few blocks are aside for good reason. What nobody claims until the end, or
// until too many others are aside, was not released as far as the trace shows: a fault, and the
// block counts as live no longer.
class Blocks {
public:
    struct Aside {
        Block block;
        StackId again; ///< who allocated the address next
        uint64_t line; ///< where
    };

    Blocks() { newest_.max_load_factor(0.8F); }

    /** Returns whether there is a block at the address already; it is aside now. */
    bool add(uint64_t address, const Block &block, uint64_t line)
    {
        const auto [place, is_new] = newest_.try_emplace(address, block);
        if (is_new) {
            return false;
        }
        aside_.emplace(address, Aside{place->second, block.stack, line});
        place.value() = block;
        return true;
    }

    std::optional<Block> take_newest(uint64_t address)
    {
        const auto found = newest_.find(address);
        if (found == newest_.end()) {
            return std::nullopt;
        }
        const Block block = found->second;
        const auto after = aside_.empty() ? aside_.end() : aside_.upper_bound(address);
        if (after != aside_.begin() && std::prev(after)->first == address) {
            found.value() = std::prev(after)->second.block;
            aside_.erase(std::prev(after));
        } else {
            newest_.erase(found);
        }
        return block;
    }

    std::optional<Block> take_oldest(uint64_t address)
    {
        const auto found = aside_.empty() ? aside_.end() : aside_.lower_bound(address);
        if (found == aside_.end() || found->first != address) {
            return take_newest(address);
        }
        const Block block = found->second.block;
        aside_.erase(found);
        return block;
    }

    size_t aside() const { return aside_.size(); }

    /** Removes all blocks that are aside but the latest `keep`, and returns them by line. */
    std::vector<std::pair<uint64_t, Aside>> give_up(size_t keep)
    {
        std::vector<std::pair<uint64_t, Aside>> given_up(aside_.begin(), aside_.end());
        std::stable_sort(given_up.begin(), given_up.end(), [](const auto &a, const auto &b) {
            return a.second.line < b.second.line;
        });
        const auto kept = given_up.end() - static_cast<ptrdiff_t>(std::min(keep, given_up.size()));
        aside_.clear();
        aside_.insert(kept, given_up.end());
        given_up.erase(kept, given_up.end());
        return given_up;
    }

private:
    AddressMap<Block> newest_;
    std::multimap<uint64_t, Aside> aside_; ///< of one address oldest first
};

// ---- Releases ----

/** The last releases, to tell a second release from one of an unknown block. A block that is not
 *  live was released by the last release of its address, whatever happened before: so it is enough
 *  to find the last one. The index exists only from the first question on, so that traces without
 *  faults do not pay for it. */
class Releases {
public:
    struct Release {
        uint64_t address;
        uint64_t bytes;
        StackId allocated;
        StackId released;
    };

    void add(const Release &release)
    {
        if (ring_.size() < remembered_releases) {
            ring_.push_back(release);
        } else {
            if (has_index_) {
                forget(next_);
            }
            ring_[next_] = release;
        }
        if (has_index_) {
            index_[release.address] = next_;
        }
        next_ = static_cast<uint32_t>((next_ + 1) % remembered_releases);
    }

    const Release *last_of(uint64_t address)
    {
        if (!has_index_) {
            make_index();
        }
        const auto found = index_.find(address);
        return found == index_.end() ? nullptr : &ring_[found->second];
    }

private:
    void forget(uint32_t slot)
    {
        const auto found = index_.find(ring_[slot].address);
        if (found != index_.end() && found->second == slot) {
            index_.erase(found);
        }
    }

    void make_index()
    {
        has_index_ = true;
        const size_t oldest = ring_.size() < remembered_releases ? 0 : next_;
        for (size_t i = 0; i < ring_.size(); ++i) {
            const size_t slot = (oldest + i) % ring_.size();
            index_[ring_[slot].address] = static_cast<uint32_t>(slot);
        }
    }

    std::vector<Release> ring_;
    uint32_t next_ = 0; ///< the slot of the next release
    bool has_index_ = false;
    AddressMap<uint32_t> index_; ///< slots of the last release of each address
};

// ---- The chart ----

/** Points of equal distance in events. When there are too many, each two become one. */
class Chart {
public:
    void add(const Moment &now)
    {
        if (waiting_ == 0 || now.bytes > highest_.bytes) {
            highest_ = now;
        }
        if (++waiting_ == step_) {
            push();
        }
    }

    /** Adds what is there at the end, so that the chart ends with it. */
    void finish(const Moment &end)
    {
        if (waiting_ > 0) {
            push();
        }
        if (!moments.empty() && moments.back() != end) {
            moments.push_back(end);
        }
    }

    std::vector<Moment> moments;

private:
    void push()
    {
        waiting_ = 0;
        moments.push_back(highest_);
        if (moments.size() < most_moments - 2) { // finish() adds two
            return;
        }
        const size_t half = moments.size() / 2;
        for (size_t i = 0; i < half; ++i) {
            const Moment &first = moments[2 * i];
            const Moment &second = moments[2 * i + 1];
            moments[i] = second.bytes > first.bytes ? second : first;
        }
        moments.resize(half);
        step_ *= 2;
    }

    Moment highest_{};
    uint64_t waiting_ = 0; ///< events since the last point
    uint64_t step_ = 1;
};

} // namespace

// ---- The history ----

class History::Impl {
public:
    void add(const Event &event);
    void finish();

    Totals totals;
    std::vector<StackTotals> stacks;
    std::vector<Fault> faults;
    Chart chart;

private:
    // What a stack had at the peak and at the checkpoints is kept without copying all stacks each
    // time: a stack notes its own amount when it changes for the first time afterwards. A stack
    // that did not change still has the amount. The versions tell which.
    struct Versions {
        uint64_t peak = 0;
        uint64_t checkpoint = 0;
        uint64_t at_checkpoint = 0; ///< bytes live at that checkpoint
    };

    static bool is_release(const Event &event)
    {
        return event.operation == Operation::free ||
               (event.operation == Operation::realloc && event.bytes == 0 && event.result == 0);
    }

    void release(const Event &event);
    void resize(const Event &event);
    void allocate(const Event &event);
    void remove(const Block &block);
    void count_out(const Block &block);
    void remember(const Event &event, const Block &block);
    void report_not_live(const Event &event);
    void report_aside(size_t keep);
    void report(const Fault &fault);
    StackTotals &stack(StackId id);
    StackTotals &changing(StackId id);
    void note_amounts(StackId id);
    void take_stock();

    std::vector<Versions> versions_;
    Versions current_;
    uint32_t allocation_number_ = 0;
    Blocks blocks_;
    Releases releases_;
    std::map<std::tuple<FaultKind, std::optional<StackId>, std::optional<StackId>, StackId>, size_t>
        fault_places_; ///< indexes of faults
};

void History::Impl::add(const Event &event)
{
    if (event.refused) {
        totals.refused += 1;
        stack(event.stack).refused += 1;
        return;
    }
    totals.events += 1;
    if (event.impossible) {
        report({.kind = FaultKind::impossible_size,
                .again = event.stack,
                .first_line = event.line,
                .block = event.block,
                .bytes = event.bytes});
    }
    if (is_release(event)) {
        release(event);
    } else if (event.result != 0 && event.block != 0) {
        resize(event);
    } else if (event.result != 0) {
        totals.allocations += 1;
        allocate(event);
    } else if (event.bytes != 0) {
        totals.failed += 1;
        stack(event.stack).failed += 1;
    }
    take_stock();
}

void History::Impl::release(const Event &event)
{
    if (event.block == 0) {
        return;
    }
    const std::optional<Block> block = event.operation == Operation::free
                                           ? blocks_.take_newest(event.block)
                                           : blocks_.take_oldest(event.block);
    if (!block) {
        report_not_live(event);
        return;
    }
    totals.releases += 1;
    remove(*block);
    remember(event, *block);
}

void History::Impl::resize(const Event &event)
{
    const std::optional<Block> block = blocks_.take_oldest(event.block);
    if (block) {
        remove(*block);
        if (event.result != event.block) { // else it is live again
            remember(event, *block);
        }
    } else {
        report_not_live(event);
    }
    totals.resizes += 1;
    allocate(event);
}

/** An impossible size that was granted nevertheless would only spoil the sums. */
void History::Impl::allocate(const Event &event)
{
    const uint64_t bytes = event.impossible ? 0 : event.bytes;
    allocation_number_ += 1;
    StackTotals &by = changing(event.stack);
    by.smallest = by.total.blocks == 0 ? bytes : std::min(by.smallest, bytes);
    by.largest = std::max(by.largest, bytes);
    for (Amount *const amount : {&by.live, &by.total, &totals.live, &totals.total}) {
        *amount += {1, bytes};
    }
    const Block block{bytes, event.stack, allocation_number_};
    if (blocks_.add(event.result, block, event.line) && blocks_.aside() > most_aside) {
        report_aside(most_aside / 2);
    }
}

void History::Impl::remove(const Block &block)
{
    count_out(block);
    if (allocation_number_ - block.number <= short_life) {
        stacks[block.stack].short_lived += 1;
    }
}

void History::Impl::count_out(const Block &block)
{
    changing(block.stack).live -= {1, block.bytes};
    totals.live -= {1, block.bytes};
}

void History::Impl::remember(const Event &event, const Block &block)
{
    releases_.add({event.block, block.bytes, block.stack, event.stack});
}

// ---- Faults ----

void History::Impl::report_not_live(const Event &event)
{
    const bool is_resize = event.operation == Operation::realloc;
    Fault fault = {.kind = is_resize ? FaultKind::resized_unknown : FaultKind::released_unknown,
                   .again = event.stack,
                   .first_line = event.line,
                   .block = event.block};
    if (const Releases::Release *const last = releases_.last_of(event.block)) {
        fault.kind = is_resize ? FaultKind::resized_after_release : FaultKind::released_twice;
        fault.allocated = last->allocated;
        fault.released_first = last->released;
        fault.bytes = last->bytes;
    }
    report(fault);
}

void History::Impl::report_aside(size_t keep)
{
    for (const auto &[address, aside] : blocks_.give_up(keep)) {
        count_out(aside.block);
        report({.kind = FaultKind::allocated_while_live,
                .allocated = aside.block.stack,
                .again = aside.again,
                .first_line = aside.line,
                .block = address,
                .bytes = aside.block.bytes});
    }
}

void History::Impl::report(const Fault &fault)
{
    totals.faults += 1;
    const auto places =
        std::make_tuple(fault.kind, fault.allocated, fault.released_first, fault.again);
    const auto found = fault_places_.find(places);
    if (found != fault_places_.end()) {
        faults[found->second].count += 1;
    } else if (faults.size() < most_faults) {
        fault_places_.emplace(places, faults.size());
        faults.push_back(fault);
    }
}

// ---- Amounts ----

StackTotals &History::Impl::stack(StackId id)
{
    if (id >= stacks.size()) {
        stacks.resize(size_t{id} + 1);
        versions_.resize(size_t{id} + 1);
    }
    return stacks[id];
}

/** The stack, before its live blocks change. */
StackTotals &History::Impl::changing(StackId id)
{
    StackTotals &changing = stack(id);
    note_amounts(id);
    return changing;
}

void History::Impl::note_amounts(StackId id)
{
    StackTotals &stack = stacks[id];
    Versions &versions = versions_[id];
    if (versions.peak != current_.peak) {
        versions.peak = current_.peak;
        stack.at_peak = stack.live;
    }
    if (versions.checkpoint != current_.checkpoint) {
        const bool only_one = versions.checkpoint + 1 == current_.checkpoint;
        stack.earlier_bytes = only_one ? versions.at_checkpoint : stack.live.bytes;
        versions.checkpoint = current_.checkpoint;
        versions.at_checkpoint = stack.live.bytes;
    }
}

/** Checkpoints are at powers of two, and earlier_bytes is of the last but one. That one lies at or
 *  before half of the events and after a quarter, whatever their number. */
void History::Impl::take_stock()
{
    if (totals.live.bytes > totals.peak.bytes) {
        totals.peak = totals.live;
        totals.peak_event = totals.events;
        totals.peak_milliseconds = totals.milliseconds;
        current_.peak += 1;
    }
    if ((totals.events & (totals.events - 1)) == 0) {
        current_.checkpoint += 1;
    }
    chart.add({totals.events, totals.milliseconds, totals.live.bytes, totals.live.blocks});
}

void History::Impl::finish()
{
    for (StackId id = 0; id < stacks.size(); ++id) {
        note_amounts(id);
    }
    report_aside(0);
    std::stable_sort(faults.begin(), faults.end(),
                     [](const Fault &a, const Fault &b) { return a.first_line < b.first_line; });
    chart.finish({totals.events, totals.milliseconds, totals.live.bytes, totals.live.blocks});
}

// ---- The interface ----

History::History() : impl_(std::make_unique<Impl>()) {}
History::~History() = default;
History::History(History &&) noexcept = default;
History &History::operator=(History &&) noexcept = default;

void History::add(const Event &event)
{
    impl_->add(event);
}

void History::at_time(uint64_t milliseconds)
{
    impl_->totals.milliseconds = std::max(impl_->totals.milliseconds, milliseconds);
    impl_->totals.has_times = true;
}

void History::finish()
{
    impl_->finish();
}

const Totals &History::totals() const
{
    return impl_->totals;
}

std::span<const StackTotals> History::stacks() const
{
    return impl_->stacks;
}

std::span<const Fault> History::faults() const
{
    return impl_->faults;
}

std::span<const Moment> History::moments() const
{
    return impl_->chart.moments;
}

} // namespace vektrace
