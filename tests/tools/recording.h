// SPDX-License-Identifier: MIT
// Files and recordings that tests make up, and what is read from one.
#ifndef VEKTRACE_TESTS_RECORDING_H
#define VEKTRACE_TESTS_RECORDING_H

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include "reader.h"
#include "vekrecord_format.h"

/** The path of a file with this text, which goes when the test ends. */
inline std::string written(const std::string &text)
{
    const int file = memfd_create("test", 0);
    EXPECT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    return "/proc/self/fd/" + std::to_string(file);
}

struct Collector : vektrace::EventSink {
    std::vector<vektrace::Event> events;
    std::vector<uint64_t> times;
    void add(const vektrace::Event &event) override { events.push_back(event); }
    void at_time(uint64_t milliseconds) override { times.push_back(milliseconds); }
};

/** What a reader made of its input. */
struct Reading {
    vektrace::Stacks stacks;
    Collector sink;
    vektrace::InputFacts facts;
};

/** Writes a recording, field by field. */
class Recording {
public:
    explicit Recording(uint8_t address_size = 8, uint16_t machine = 62, bool swapped = false)
    {
        VekRecordHeader header = {{}, 1, address_size, machine, 4711, 1700000000};
        std::memcpy(header.magic, VEKRECORD_MAGIC, sizeof header.magic);
        if (swapped) {
            header.byte_order = 2;
            header.machine = __builtin_bswap16(header.machine);
            header.pid = __builtin_bswap32(header.pid);
            header.start = __builtin_bswap64(header.start);
        }
        bytes.assign(reinterpret_cast<const char *>(&header), sizeof header);
    }

    Recording &type(int type, int outcome = 0)
    {
        bytes += static_cast<char>(type + outcome);
        return *this;
    }
    Recording &number(uint64_t number)
    {
        for (; number > 0x7f; number >>= 7) { bytes += static_cast<char>(number | 0x80); }
        bytes += static_cast<char>(number);
        return *this;
    }
    Recording &signed_number(int64_t number)
    {
        return this->number(static_cast<uint64_t>(number) << 1 ^
                            static_cast<uint64_t>(number >> 63));
    }
    Recording &text(const std::string &text) { return number(text.size()).raw(text); }
    Recording &raw(const std::string &more)
    {
        bytes += more;
        return *this;
    }
    Recording &module(uint64_t bias, uint64_t start, uint64_t size, const std::string &path)
    {
        type(VEKRECORD_MODULE).number(bias).number(start).number(size);
        return text("\xab\x01").text(path);
    }
    Recording &chain(int flags, const std::vector<uint64_t> &addresses)
    {
        type(VEKRECORD_CHAIN).number(static_cast<uint64_t>(flags)).number(addresses.size());
        uint64_t last = 0;
        for (const uint64_t address : addresses) {
            signed_number(static_cast<int64_t>(address - std::exchange(last, address)));
        }
        return *this;
    }

    std::string bytes;
};

#endif
