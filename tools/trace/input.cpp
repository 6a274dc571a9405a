// SPDX-License-Identifier: MIT
#include "input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vektrace {

std::string printable(std::string_view text)
{
    constexpr size_t limit = 120;
    constexpr std::string_view more = "...";
    std::string shown;
    size_t fits = 0; // so many bytes of it leave room for the three dots
    for (const char c : text.substr(0, limit + 1)) {
        if (shown.size() <= limit - more.size()) {
            fits = shown.size();
        }
        shown += c >= ' ' && c <= '~' ? std::string(1, c)
                                      : fmt::format("\\x{:02x}", static_cast<unsigned char>(c));
    }
    if (shown.size() > limit) {
        shown.resize(fits);
        shown += more;
    }
    return shown;
}

Input::Input(const std::string &path) : name_(path == "-" ? "standard input" : path)
{
    fd_ = path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (fd_ < 0 || fstat(fd_, &status) != 0) {
        throw InputError(name_ + ": " + std::strerror(errno));
    }
    if (S_ISREG(status.st_mode)) {
        size_ = static_cast<uint64_t>(status.st_size);
    }
}

Input::Input(std::span<const char> memory) : name_("memory"), memory_(memory), size_(memory.size())
{
}

Input::~Input()
{
    if (fd_ >= 0) {
        close(fd_);
    }
}

size_t Input::read(std::span<char> buffer)
{
    if (fd_ < 0) {
        const size_t count = std::min(buffer.size(), memory_.size());
        std::copy_n(memory_.begin(), count, buffer.begin());
        memory_ = memory_.subspan(count);
        return count;
    }
    for (;;) {
        const ssize_t count = ::read(fd_, buffer.data(), buffer.size());
        if (count >= 0) {
            return static_cast<size_t>(count);
        }
        if (errno != EINTR) {
            throw InputError(name_ + ": " + std::strerror(errno));
        }
    }
}

} // namespace vektrace
