// SPDX-License-Identifier: MIT
// What became of the blocks of one process: what lives, what lived at the peak, what went wrong.
// Memory grows with the live blocks, the stacks and the distinct faults, never with the events.
#ifndef VEKTRACE_HISTORY_H
#define VEKTRACE_HISTORY_H

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "event.h"

namespace vektrace {

struct Amount {
    uint64_t blocks = 0;
    uint64_t bytes = 0;

    Amount &operator+=(const Amount &other)
    {
        blocks += other.blocks;
        bytes += other.bytes;
        return *this;
    }
    Amount &operator-=(const Amount &other)
    {
        blocks -= other.blocks;
        bytes -= other.bytes;
        return *this;
    }
    bool operator==(const Amount &) const = default;
};

/** What was allocated by one stack, or by several together. A resized block counts as one of the
 *  stack that resized it last: the resize is a release of the old and an allocation of the new
 *  block. */
struct Numbers {
    Amount live;           ///< at the end
    Amount at_peak;        ///< when the process had most bytes live
    Amount total;          ///< ever
    uint64_t smallest = 0; ///< bytes of a block; 0 without blocks
    uint64_t largest = 0;
    uint64_t short_lived = 0; ///< blocks released after at most `short_life` other allocations
    uint64_t failed = 0;      ///< requests of more than 0 bytes that returned null
    uint64_t refused = 0;     ///< requests refused in the error state

    Numbers &operator+=(const Numbers &other);
    bool operator==(const Numbers &) const = default;
};

struct StackTotals : Numbers {
    uint64_t earlier_bytes = 0; ///< live somewhere between a quarter and a half of the events
    bool operator==(const StackTotals &) const = default;
};

/** A block is short-lived if at most so many allocations happen between its own and its release. */
inline constexpr uint64_t short_life = 10;

// What a history keeps at most, whatever the input is:
inline constexpr size_t remembered_releases = 100'000; ///< to know what was released twice
inline constexpr size_t most_faults = 10'000;          ///< distinct ones; others are only counted
inline constexpr size_t most_moments = 2'000;
/// Blocks whose address another block got and which may still be given up by a late line.
inline constexpr size_t most_aside = 10'000;

enum class FaultKind : uint8_t {
    released_twice,        ///< a block that was released before, and not allocated since
    resized_after_release, ///< likewise, by realloc
    released_unknown,      ///< a block whose allocation was not seen
    resized_unknown,
    allocated_while_live, ///< and the older block was never given up by a late realloc
    impossible_size,      ///< more bytes than half of the address space; if they were granted
                          ///< nevertheless, the block counts with 0 bytes
};

/** A fault, with every place involved; several faults of the same kind and places are one. */
struct Fault {
    FaultKind kind;
    std::optional<StackId> allocated = {};      ///< who allocated the block (first)
    std::optional<StackId> released_first = {}; ///< who released it first
    StackId again = 0;       ///< who released it again, resized, allocated it while live, or asked
    uint64_t count = 1;      ///< how many times
    uint64_t first_line = 0; ///< of the first one
    uint64_t block = 0;      ///< of the first one (0 if there is none)
    uint64_t bytes = 0;      ///< of the first one: of the block that was there first (0 if
                             ///< unknown), for an impossible size what was asked for
    bool operator==(const Fault &) const = default;
};

/** A point of the chart. */
struct Moment {
    uint64_t event;        ///< how many events had happened, as Totals counts them
    uint64_t milliseconds; ///< 0 throughout if the input has no times
    uint64_t bytes;        ///< most bytes live since the point before
    uint64_t blocks;       ///< at the same time
    bool operator==(const Moment &) const = default;
};

struct Totals {
    uint64_t events = 0;      ///< without refusals: the request's own event follows
    uint64_t allocations = 0; ///< blocks that came into being; a resize of a block is none
    uint64_t resizes = 0;
    uint64_t releases = 0; ///< of blocks that were live, without those inside resizes
    uint64_t failed = 0;   ///< requests of more than 0 bytes that returned null
    uint64_t refused = 0;  ///< requests refused in the error state; most count as failed, too
    Amount live;
    Amount peak;             ///< when most bytes were live
    uint64_t peak_event = 0; ///< after how many events
    uint64_t peak_milliseconds = 0;
    Amount total;              ///< ever allocated, each resize's new block included
    uint64_t faults = 0;       ///< all faults, however often each happened
    uint64_t milliseconds = 0; ///< the last time
    bool has_times = false;
    bool operator==(const Totals &) const = default;
};

class History : public EventSink {
public:
    History();
    ~History() override;
    History(History &&) noexcept;
    History &operator=(History &&) noexcept;

    void add(const Event &event) override;
    void at_time(uint64_t milliseconds) override;
    /** Settles what depends on later events; call it once, after the last one. */
    void finish();

    // After finish():
    const Totals &totals() const;
    /** Indexed by StackId; may be shorter than the number of stacks. */
    std::span<const StackTotals> stacks() const;
    /** By first line. */
    std::span<const Fault> faults() const;
    /** At most `most_moments`, in order of time; the peak is one of them, the end is the last. */
    std::span<const Moment> moments() const;

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace vektrace

#endif
