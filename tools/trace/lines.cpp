// SPDX-License-Identifier: MIT
// Trace lines to events. The format is documented in vekmemory.h. A line counts only if all of it
// has this format: half a line followed by a whole one would otherwise be taken for another event.
#include "reader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <string_view>
#include <utility>

#include <tsl/robin_map.h>

#include "hash.h"

namespace vektrace {

namespace {

constexpr size_t chunk_size = size_t{256} << 10; // larger ones fall out of the processor's cache

// A line that is longer than this cannot be a trace line, and only its beginning is kept.
constexpr size_t longest_kept = 4096;
constexpr size_t longest_shown = 200; // more than printable() shows

constexpr std::array<uint8_t, 256> hex_digits = [] {
    std::array<uint8_t, 256> digits = {};
    digits.fill(16);
    for (uint8_t digit = 0; digit < 16; ++digit) {
        digits[static_cast<unsigned char>("0123456789abcdef"[digit])] = digit;
    }
    return digits;
}();

/** A line, read from left to right. The functions return whether it goes on as asked; if not, the
 *  rest of the line does not matter any more. */
class Scanner {
public:
    explicit Scanner(std::string_view line) : next_(line.data()), end_(next_ + line.size()) {}

    bool at_end() const { return next_ == end_; }
    char peek() const { return next_ != end_ ? *next_ : '\0'; }

    template <size_t size>
    bool text(const char (&expected)[size])
    {
        constexpr size_t length = size - 1;
        if (static_cast<size_t>(end_ - next_) < length ||
            std::memcmp(next_, expected, length) != 0) {
            return false;
        }
        next_ += length;
        return true;
    }

    /** "0x", then up to 16 digits without leading zeros, or "(nil)". */
    bool address(uint64_t &value)
    {
        value = 0;
        if (!text("0x")) {
            return text("(nil)");
        }
        const char *const first = next_;
        for (uint8_t digit; next_ != end_ && (digit = digit_at(next_)) < 16; ++next_) {
            value = value << 4 | digit;
        }
        return next_ != first && *first != '0' && next_ - first <= 16;
    }

    /** A signed number of 64 bits. */
    bool decimal(int64_t &value)
    {
        const bool negative = peek() == '-';
        next_ += negative;
        const char *const first = next_;
        uint64_t magnitude = 0;
        for (uint8_t digit; next_ != end_ && (digit = digit_at(next_)) < 10; ++next_) {
            magnitude = magnitude * 10 + digit;
        }
        const auto length = next_ - first;
        value = static_cast<int64_t>(negative ? 0 - magnitude : magnitude);
        // 19 digits never overflow 64 bits.
        return length >= 1 && length <= 19 && (*first != '0' || (length == 1 && !negative)) &&
               magnitude <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + negative;
    }

private:
    static uint8_t digit_at(const char *place)
    {
        return hex_digits[static_cast<unsigned char>(*place)];
    }

    const char *next_;
    const char *const end_;
};

/** What a trace line says. The event has no stack and no line number yet. */
struct TraceLine {
    Event event;
    uint64_t return_address;
    std::optional<int32_t> number;
};

bool read_operation(Scanner &line, Operation &operation)
{
    const auto is = [&](const auto &name, Operation value) {
        operation = value;
        return line.text(name);
    };
    switch (line.peek()) {
    case 'f':
        return is("free(", Operation::free);
    case 'c':
        return is("calloc(", Operation::calloc);
    case 'r':
        return is("realloc(", Operation::realloc);
    default:
        return is("malloc(", Operation::malloc) ||
               is("malloc_if_possible(", Operation::malloc_if_possible) ||
               is("malloc_if_available(", Operation::malloc_if_available);
    }
}

/** Reads the sizes. A negative one stands for one in the upper half of the range. */
bool read_bytes(Scanner &line, Event &event)
{
    int64_t size = 0;
    int64_t count = 1;
    if (event.operation == Operation::calloc && !(line.decimal(count) && line.text(", "))) {
        return false;
    }
    if (!line.decimal(size)) {
        return false;
    }
    if (__builtin_mul_overflow(static_cast<uint64_t>(count), static_cast<uint64_t>(size),
                               &event.bytes)) {
        event.bytes = std::numeric_limits<uint64_t>::max();
    }
    event.impossible = event.bytes > static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    return true;
}

/** Reads what follows the closing parenthesis of an allocation. */
bool read_result(Scanner &line, TraceLine &result)
{
    // Requests that are served as long as there is any memory are never refused.
    if (result.event.operation != Operation::malloc_if_available &&
        line.text("NULL, in error state")) {
        result.event.refused = true;
        return true;
    }
    int64_t number = 0;
    if (!line.address(result.event.result) || !line.text(" [#") || !line.decimal(number) ||
        !line.text("]")) {
        return false;
    }
    result.number = static_cast<int32_t>(number);
    return *result.number == number;
}

/** Reads a line without its end. Returns false if it is no trace line. */
bool read_line(std::string_view text, TraceLine &result)
{
    Scanner line(text);
    Event &event = result.event;
    event = {};
    result.number.reset();
    if (!line.address(result.return_address) || !line.text(": vek_") ||
        !read_operation(line, event.operation)) {
        return false;
    }
    if (event.operation == Operation::free) {
        return line.address(event.block) && line.text(")") && line.at_end();
    }
    if (event.operation == Operation::realloc && !(line.address(event.block) && line.text(", "))) {
        return false;
    }
    return read_bytes(line, event) && line.text(") => ") && read_result(line, result) &&
           line.at_end();
}

/** Counts the numbers of allocations. They are those of a 32-bit counter, so one that seems far
 *  below the one before is above it, and the other way round. */
class SerialNumbers {
public:
    void add(int32_t number)
    {
        const auto step = static_cast<uint32_t>(number) - static_cast<uint32_t>(last_);
        last_ += count_ == 0 ? number : static_cast<int32_t>(step);
        lowest_ = count_ == 0 ? last_ : std::min(lowest_, last_);
        highest_ = count_ == 0 ? last_ : std::max(highest_, last_);
        ++count_;
    }

    /** Too low if a number occurs twice, as in the lines of two processes. */
    uint64_t missing() const
    {
        const uint64_t all = count_ == 0 ? 0 : static_cast<uint64_t>(highest_ - lowest_) + 1;
        return all - std::min(all, count_);
    }

private:
    uint64_t count_ = 0;
    int64_t last_ = 0; // these three as if the counter had 64 bits
    int64_t lowest_ = 0;
    int64_t highest_ = 0;
};

/** The stacks of return addresses. */
class Callers {
public:
    Callers(const ModuleMap &modules, Stacks &stacks) : modules_(modules), stacks_(stacks) {}

    StackId stack(uint64_t address)
    {
        const auto [place, is_new] = known_.try_emplace(address, StackId{});
        if (is_new) {
            place.value() = stacks_.stack({modules_.frame(stacks_, address), {}, ChainEnd::none});
        }
        return place->second;
    }

private:
    const ModuleMap &modules_;
    Stacks &stacks_;
    tsl::robin_map<uint64_t, StackId, AddressHash> known_;
};

class LineReader {
public:
    LineReader(const ModuleMap &modules, Stacks &stacks, EventSink &sink)
        : callers_(modules, stacks), sink_(sink)
    {
    }

    /** Takes the lines of the text and returns how many bytes at its end are no whole line. The
     *  next text begins with them. */
    size_t add(std::string_view text)
    {
        for (;;) {
            const void *const newline = std::memchr(text.data(), '\n', text.size());
            if (newline == nullptr) {
                return keep(text);
            }
            const auto length =
                static_cast<size_t>(static_cast<const char *>(newline) - text.data());
            add_line(text.substr(0, length));
            text.remove_prefix(length + 1);
        }
    }

    /** Takes what follows the last newline. */
    InputFacts finish(std::string_view rest)
    {
        if (!long_line_.empty()) {
            ++facts_.lines;
            facts_.torn = printable(long_line_);
        } else if (!rest.empty()) {
            ++facts_.lines;
            if (!add_event(rest)) {
                facts_.torn = printable(rest);
            }
        }
        facts_.missing_numbers = numbers_.missing();
        return std::move(facts_);
    }

    uint64_t lines() const { return facts_.lines; }

private:
    size_t keep(std::string_view rest)
    {
        if (rest.size() <= longest_kept && long_line_.empty()) {
            return rest.size();
        }
        if (long_line_.empty()) {
            long_line_ = rest.substr(0, longest_shown);
        }
        return 0;
    }

    void add_line(std::string_view line)
    {
        ++facts_.lines;
        if (!long_line_.empty()) {
            add_foreign(long_line_);
            long_line_.clear();
        } else if (!add_event(line)) {
            add_foreign(without_return(line));
        }
    }

    bool add_event(std::string_view line)
    {
        if (!read_line(without_return(line), line_)) {
            return false;
        }
        line_.event.stack = callers_.stack(line_.return_address);
        line_.event.line = facts_.lines;
        if (line_.number) {
            numbers_.add(*line_.number);
        }
        sink_.add(line_.event);
        return true;
    }

    void add_foreign(std::string_view text)
    {
        ++facts_.foreign_lines;
        if (facts_.first_foreign.size() < 3) {
            facts_.first_foreign.push_back({facts_.lines, printable(text)});
        }
    }

    /** Lines that came over a serial line end with a carriage return. */
    static std::string_view without_return(std::string_view line)
    {
        return line.substr(0, line.size() - line.ends_with('\r'));
    }

    Callers callers_;
    EventSink &sink_;
    InputFacts facts_;
    SerialNumbers numbers_;
    TraceLine line_ = {};
    std::string long_line_; // how a line begins whose end has not been reached; empty: none
};

} // namespace

InputFacts read_lines(Input &input, const ModuleMap &modules, Stacks &stacks, EventSink &sink,
                      const ProgressFunction &progress)
{
    const auto buffer = std::make_unique_for_overwrite<char[]>(chunk_size);
    LineReader reader(modules, stacks, sink);
    Progress state;
    state.size = input.size();
    size_t kept = 0;
    while (const size_t count = input.read({buffer.get() + kept, chunk_size - kept})) {
        const std::string_view text(buffer.get(), kept + count);
        kept = reader.add(text);
        std::memmove(buffer.get(), text.data() + text.size() - kept, kept);
        state.bytes += count;
        state.events = reader.lines();
        if (progress) {
            progress(state);
        }
    }
    return reader.finish({buffer.get(), kept});
}

} // namespace vektrace
