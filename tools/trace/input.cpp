// SPDX-License-Identifier: MIT
#include "input.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vektrace {

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
