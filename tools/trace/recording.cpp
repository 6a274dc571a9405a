// SPDX-License-Identifier: MIT
// Recordings to events. vekrecord_format.h describes the format. A recording may end anywhere, and
// it may be damaged, so nothing in it is believed before it has been checked.
#include "reader.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vekrecord_format.h"

namespace vektrace {

namespace {

constexpr size_t longest_record = size_t{1} << 20;
constexpr size_t buffer_size = 2 * longest_record;

constexpr uint16_t machine_arm = 40;

constexpr std::string_view magic = VEKRECORD_MAGIC;
constexpr std::string_view magic_of_all_versions = magic.substr(0, 6);

// ---- The header ----

/** Returns the header in the byte order of this machine. Throws InputError. */
VekRecordHeader read_header(std::string_view bytes, const std::string &name)
{
    VekRecordHeader header;
    if (!bytes.starts_with(magic_of_all_versions)) {
        throw InputError(name + ": this is no recording");
    }
    if (bytes.size() >= magic.size() && !bytes.starts_with(magic)) {
        throw InputError(fmt::format("{}: this recording has version {}, and this vek-trace reads "
                                     "version {}; use the vek-trace that belongs to the vek-record",
                                     name, printable(bytes.substr(6, 1)), magic[6]));
    }
    if (bytes.size() < sizeof header) {
        throw InputError(name + ": the recording ends within its header");
    }
    std::memcpy(&header, bytes.data(), sizeof header);
    if (header.byte_order < 1 || header.byte_order > 2) {
        throw InputError(fmt::format("{}: the recording is damaged: its byte order is {}", name,
                                     header.byte_order));
    }
    if (header.address_size != 4 && header.address_size != 8) {
        throw InputError(fmt::format("{}: the recording is damaged: its addresses have {} bytes",
                                     name, header.address_size));
    }
    if ((header.byte_order == 1) != (std::endian::native == std::endian::little)) {
        header.machine = __builtin_bswap16(header.machine);
        header.pid = __builtin_bswap32(header.pid);
        header.start = __builtin_bswap64(header.start);
    }
    return header;
}

// ---- Fields ----

/** The bytes of a record could not be decoded, because they end too early... */
struct TooShort {};
/** ... or because of what they say. */
struct Malformed {
    const char *reason;
};

/** Takes fields from a record. The functions throw TooShort or Malformed. */
class Fields {
public:
    explicit Fields(std::string_view bytes) : next_(bytes.data()), end_(next_ + bytes.size()) {}

    const char *position() const { return next_; }

    uint8_t byte()
    {
        if (next_ == end_) {
            throw TooShort();
        }
        return static_cast<uint8_t>(*next_++);
    }

    uint64_t number()
    {
        uint64_t value = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            const uint64_t part = byte();
            value |= (part & 0x7f) << shift;
            if (part < 0x80) {
                if (shift == 63 && part > 1) {
                    break;
                }
                return value;
            }
        }
        throw Malformed{"a number has more than 64 bits"};
    }

    /** A signed number, as what has to be added modulo 2^64. */
    uint64_t difference()
    {
        const uint64_t zigzag = number();
        return zigzag >> 1 ^ (0 - (zigzag & 1));
    }

    std::string_view text()
    {
        const uint64_t length = number();
        if (length > longest_record) {
            throw Malformed{"a text is too long"};
        }
        if (length > static_cast<size_t>(end_ - next_)) {
            throw TooShort();
        }
        const std::string_view text(next_, length);
        next_ += length;
        return text;
    }

private:
    const char *next_;
    const char *const end_;
};

std::string as_hex(std::string_view bytes)
{
    std::string hex;
    for (const char c : bytes) {
        hex += fmt::format("{:02x}", static_cast<unsigned char>(c));
    }
    return hex;
}

// ---- Records ----

/** What a type of event does, without FAILED or REFUSED. */
Operation operation_of(int type)
{
    switch (type) {
    case VEKRECORD_MALLOC:
        return Operation::malloc;
    case VEKRECORD_CALLOC:
        return Operation::calloc;
    case VEKRECORD_FREE:
        return Operation::free;
    case VEKRECORD_MALLOC_IF_POSSIBLE:
        return Operation::malloc_if_possible;
    case VEKRECORD_MALLOC_IF_AVAILABLE:
        return Operation::malloc_if_available;
    default: // VEKRECORD_REALLOC, VEKRECORD_REALLOC_NEW
        return Operation::realloc;
    }
}

/** Turns records to events. */
class Decoder {
public:
    Decoder(const VekRecordHeader &header, Stacks &stacks, EventSink &sink)
        : stacks_(stacks), sink_(sink),
          highest_address_(header.address_size == 4 ? UINT32_MAX : UINT64_MAX),
          thumb_bit_(header.machine == machine_arm ? 1 : 0)
    {
        facts.is_recording = true;
        facts.pid = header.pid;
        facts.start = header.start;
    }

    /** Takes records, the first of which is at byte `offset` of the file, and returns how many
     *  bytes they have. Stops where the last one is not complete, and at the end. */
    size_t add(std::string_view bytes, uint64_t offset);

    bool at_end() const { return at_end_; }
    void stop(std::string why)
    {
        facts.broken = std::move(why);
        at_end_ = true;
    }

    InputFacts facts;

private:
    void add_record(uint8_t type, Fields &fields);
    void add_command(Fields &fields);
    void add_module(Fields &fields);
    void remove_module(Fields &fields);
    void add_chain(Fields &fields);
    void add_event(uint8_t type, Fields &fields);

    uint64_t relative(uint64_t address, uint64_t difference) const
    {
        return (address + difference) & highest_address_;
    }

    Stacks &stacks_;
    EventSink &sink_;
    const uint64_t highest_address_;
    const uint64_t thumb_bit_;
    bool at_end_ = false;
    uint64_t last_address_ = 0;
    uint64_t milliseconds_ = 0;
    ModuleMap modules_;
    std::vector<StackId> chains_;
    std::vector<uint64_t> addresses_; // of the chain that is being read
};

size_t Decoder::add(std::string_view bytes, uint64_t offset)
{
    Fields fields(bytes);
    size_t done = 0;
    const char *reason = nullptr;
    try {
        while (!at_end_ && done < bytes.size()) {
            const uint8_t type = fields.byte();
            add_record(type, fields);
            done = static_cast<size_t>(fields.position() - bytes.data());
        }
    } catch (const TooShort &) {
        if (bytes.size() - done >= longest_record) {
            reason = "it is too long";
        }
    } catch (const Malformed &malformed) {
        reason = malformed.reason;
    }
    if (reason != nullptr) {
        stop(fmt::format("the record at byte {} cannot be understood: {}", offset + done, reason));
    }
    return done;
}

/** Changes nothing before all fields have been read: if they are not complete, the record is read
 *  again later. */
void Decoder::add_record(uint8_t type, Fields &fields)
{
    switch (type) {
    case VEKRECORD_END:
        at_end_ = true;
        break;
    case VEKRECORD_PAD:
        break;
    case VEKRECORD_COMMAND:
        add_command(fields);
        break;
    case VEKRECORD_MODULE:
        add_module(fields);
        break;
    case VEKRECORD_UNLOADED:
        remove_module(fields);
        break;
    case VEKRECORD_CHAIN:
        add_chain(fields);
        break;
    case VEKRECORD_TIME:
        milliseconds_ = std::max(milliseconds_, fields.number());
        sink_.at_time(milliseconds_);
        break;
    case VEKRECORD_NOTE:
        facts.notes.emplace_back(fields.text());
        break;
    case VEKRECORD_EXIT:
        facts.exit_status = static_cast<unsigned>(fields.number());
        break;
    case VEKRECORD_BROKEN:
        stop(std::string(fields.text()));
        break;
    default:
        add_event(type, fields);
    }
}

void Decoder::add_command(Fields &fields)
{
    std::vector<std::string> command;
    for (uint64_t count = fields.number(); count > 0; --count) {
        command.emplace_back(fields.text());
    }
    facts.command = std::move(command);
}

void Decoder::add_module(Fields &fields)
{
    uint64_t bias = fields.number();
    const uint64_t start = fields.number();
    const uint64_t size = fields.number();
    const std::string_view build_id = fields.text();
    const std::string_view path = fields.text();
    if (start > highest_address_ || size > highest_address_ - start) {
        throw Malformed{"a module reaches beyond the last address"};
    }
    // On a 32-bit device a bias can stand for a negative one: addresses in the file are computed
    // with 64 bits here.
    if (bias > start) {
        bias |= ~highest_address_;
    }
    const ModuleId module = stacks_.module({std::string(path), as_hex(build_id)});
    modules_.add({module, start, start + size, bias});
}

void Decoder::remove_module(Fields &fields)
{
    modules_.remove(fields.number());
    chains_.clear();
}

void Decoder::add_chain(Fields &fields)
{
    const uint64_t flags = fields.number();
    if ((flags & ~uint64_t{VEKRECORD_CUT | VEKRECORD_LIMITED}) != 0) {
        throw Malformed{"a chain has unknown flags"};
    }
    addresses_.clear();
    uint64_t address = 0;
    for (uint64_t count = fields.number(); count > 0; --count) {
        address = relative(address, fields.difference());
        addresses_.push_back(address & ~thumb_bit_);
    }
    if (addresses_.empty()) {
        throw Malformed{"a chain has no address"};
    }

    Stack stack;
    stack.charged = modules_.frame(stacks_, addresses_.front());
    for (size_t i = 1; i < addresses_.size(); ++i) {
        stack.frames.push_back(modules_.frame(stacks_, addresses_[i]));
    }
    stack.end = stack.frames.empty()               ? ChainEnd::none
                : (flags & VEKRECORD_CUT) != 0     ? ChainEnd::cut
                : (flags & VEKRECORD_LIMITED) != 0 ? ChainEnd::limited
                                                   : ChainEnd::whole;
    chains_.push_back(stacks_.stack(std::move(stack)));
}

void Decoder::add_event(uint8_t type, Fields &fields)
{
    int operation = type;
    const bool refused = type >= VEKRECORD_REFUSED + int{VEKRECORD_MALLOC};
    const bool failed = !refused && type >= VEKRECORD_FAILED + int{VEKRECORD_MALLOC};
    operation -= refused ? VEKRECORD_REFUSED : failed ? VEKRECORD_FAILED : 0;
    const bool is_free = operation == VEKRECORD_FREE;
    if (operation < VEKRECORD_MALLOC || operation > VEKRECORD_REALLOC_NEW ||
        (is_free && operation != type)) {
        throw Malformed{"its type is unknown"};
    }
    Event event = {};
    event.operation = operation_of(operation);

    const uint64_t chain = fields.number();
    uint64_t address = last_address_;
    if (is_free || operation == VEKRECORD_REALLOC) {
        event.block = address = relative(address, fields.difference());
    }
    if (!is_free) {
        const uint64_t count = operation == VEKRECORD_CALLOC ? fields.number() : 1;
        if (__builtin_mul_overflow(count, fields.number(), &event.bytes)) {
            event.bytes = UINT64_MAX;
        }
        event.impossible = event.bytes > highest_address_ / 2;
        if (!failed && !refused) {
            event.result = address = relative(address, fields.difference());
        }
    }
    if (chain >= chains_.size()) {
        throw Malformed{"its chain is unknown"};
    }
    last_address_ = address;
    event.stack = chains_[chain];
    event.line = ++facts.lines;
    if (refused) { // as in trace lines, the refusal and the failed request are two events
        event.refused = true;
        sink_.add(event);
        event.refused = false;
    }
    sink_.add(event);
}

// ---- The file ----

/** A part of the input, from its beginning to its end. */
class Window {
public:
    explicit Window(Input &input)
        : input_(input), buffer_(std::make_unique_for_overwrite<char[]>(buffer_size))
    {
    }

    /** Drops what was used and fills the rest. Returns false if nothing was added. */
    bool advance(size_t used)
    {
        offset_ += used;
        size_ -= used;
        std::memmove(buffer_.get(), buffer_.get() + used, size_);
        const size_t before = size_;
        while (size_ < buffer_size) {
            const size_t count = input_.read({buffer_.get() + size_, buffer_size - size_});
            if (count == 0) {
                break;
            }
            size_ += count;
        }
        return size_ != before;
    }

    std::string_view bytes() const { return {buffer_.get(), size_}; }
    uint64_t offset() const { return offset_; }

private:
    Input &input_;
    const std::unique_ptr<char[]> buffer_;
    size_t size_ = 0;
    uint64_t offset_ = 0;
};

} // namespace

InputFacts read_recording(Input &input, Stacks &stacks, EventSink &sink,
                          const ProgressFunction &progress)
{
    Window window(input);
    window.advance(0);
    Decoder decoder(read_header(window.bytes(), input.name()), stacks, sink);
    Progress state;
    state.size = input.size();
    size_t used = sizeof(VekRecordHeader);
    used += decoder.add(window.bytes().substr(used), used);
    while (!decoder.at_end() && window.advance(used)) {
        used = decoder.add(window.bytes(), window.offset());
        state.bytes = window.offset() + used;
        state.events = decoder.facts.lines;
        if (progress) {
            progress(state);
        }
    }
    if (!decoder.at_end() && !window.bytes().empty()) {
        decoder.stop(fmt::format("the file ends within the record at byte {}", window.offset()));
    }
    return std::move(decoder.facts);
}

bool is_recording(const std::string &path)
{
    struct stat status = {};
    if (path == "-" || stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false; // a pipe could be read only once
    }
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        return false;
    }
    char bytes[magic_of_all_versions.size()];
    const ssize_t count = read(fd, bytes, sizeof bytes);
    close(fd);
    return std::string_view(bytes, static_cast<size_t>(std::max<ssize_t>(count, 0))) ==
           magic_of_all_versions;
}

} // namespace vektrace
