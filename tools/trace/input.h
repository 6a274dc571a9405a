// SPDX-License-Identifier: MIT
// Files as the readers see them: read once, in chunks, with a note of the progress.
#ifndef VEKTRACE_INPUT_H
#define VEKTRACE_INPUT_H

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vektrace {

/** Input that cannot be used: what it is, and what to do about it. The tool prints it and exits
 *  with 2. */
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** At most 120 bytes that show a text of any bytes: unprintable ones as "\x1b", and "..." at the
 *  end if it is longer. */
std::string printable(std::string_view text);

/** How far a reader is. Called about once for every chunk. */
struct Progress {
    uint64_t bytes = 0;
    std::optional<uint64_t> size; ///< of the whole input, if known
    uint64_t events = 0;          ///< lines or events
};
using ProgressFunction = std::function<void(const Progress &)>;

class Input {
public:
    /** Opens a file; "-" is the standard input. Throws InputError. */
    explicit Input(const std::string &path);
    /** Reads from memory, which must outlive the object. */
    explicit Input(std::span<const char> memory);
    ~Input();
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    /** Reads up to so many bytes and returns how many, 0 at the end. Throws InputError. */
    size_t read(std::span<char> buffer);

    const std::string &name() const { return name_; }
    std::optional<uint64_t> size() const { return size_; }

private:
    std::string name_;
    int fd_ = -1;
    std::span<const char> memory_;
    std::optional<uint64_t> size_;
};

} // namespace vektrace

#endif
