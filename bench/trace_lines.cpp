// SPDX-License-Identifier: MIT
// usage: trace_lines FORMAT EVENTS LIVE
//
// Writes the memory history of an invented program with so many events (allocations, resizes and
// releases) and, from the third part of them on, about so many live blocks. It is the same history
// in each format: "lines" are the library's trace lines, "recording" is what vek-record writes at
// depth 1, "mtrace" what glibc's mtrace() writes, and "heaptrack" what the library that heaptrack
// preloads writes.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "vekrecord_format.h"

namespace {

constexpr unsigned sites = 1000;

unsigned address_of_site(unsigned site) { return 0x401000 + site * 0x2c; }

class Writer {
public:
    virtual ~Writer() = default;
    virtual void allocate(unsigned site, uint64_t bytes, uint64_t block) = 0;
    virtual void resize(unsigned site, uint64_t block, uint64_t bytes, uint64_t result) = 0;
    virtual void release(unsigned site, uint64_t block) = 0;
};

class Lines : public Writer {
public:
    void allocate(unsigned site, uint64_t bytes, uint64_t block) override
    {
        printf("0x%x: vek_malloc(%lu) => 0x%lx [#%lu]\n", address_of_site(site), bytes, block,
               ++number_);
    }

    void resize(unsigned site, uint64_t block, uint64_t bytes, uint64_t result) override
    {
        printf("0x%x: vek_realloc(0x%lx, %lu) => 0x%lx [#%lu]\n", address_of_site(site), block,
               bytes, result, ++number_);
    }

    void release(unsigned site, uint64_t block) override
    {
        printf("0x%x: vek_free(0x%lx)\n", address_of_site(site), block);
    }

private:
    uint64_t number_ = 0;
};

/** Every site is a chain of one address. */
class Recording : public Writer {
public:
    Recording()
    {
        VekRecordHeader header = {};
        memcpy(header.magic, VEKRECORD_MAGIC, sizeof header.magic);
        header.byte_order = 1;
        header.address_size = 8;
        header.machine = 62;
        header.pid = 1000;
        fwrite(&header, sizeof header, 1, stdout);
        for (unsigned site = 0; site < sites; ++site) {
            putchar(VEKRECORD_CHAIN);
            number(VEKRECORD_LIMITED);
            number(1);
            difference(address_of_site(site));
        }
    }

    void allocate(unsigned site, uint64_t bytes, uint64_t block) override
    {
        putchar(VEKRECORD_MALLOC);
        number(site);
        number(bytes);
        address(block);
    }

    void resize(unsigned site, uint64_t block, uint64_t bytes, uint64_t result) override
    {
        putchar(VEKRECORD_REALLOC);
        number(site);
        address(block);
        number(bytes);
        address(result);
    }

    void release(unsigned site, uint64_t block) override
    {
        putchar(VEKRECORD_FREE);
        number(site);
        address(block);
    }

private:
    static void number(uint64_t value)
    {
        for (; value >= 0x80; value >>= 7) { putchar(static_cast<int>(value % 0x80 + 0x80)); }
        putchar(static_cast<int>(value));
    }

    static void difference(uint64_t value) { number(value << 1 ^ (0 - (value >> 63))); }

    void address(uint64_t block) { difference(block - std::exchange(last_, block)); }

    uint64_t last_ = 0;
};

class Mtrace : public Writer {
public:
    Mtrace() { puts("= Start"); }

    void allocate(unsigned site, uint64_t bytes, uint64_t block) override
    {
        printf("@ ./program:[0x%x] + 0x%lx 0x%lx\n", address_of_site(site), block, bytes);
    }

    void resize(unsigned site, uint64_t block, uint64_t bytes, uint64_t result) override
    {
        const unsigned address = address_of_site(site);
        printf("@ ./program:[0x%x] < 0x%lx\n", address, block);
        printf("@ ./program:[0x%x] > 0x%lx 0x%lx\n", address, result, bytes);
    }

    void release(unsigned site, uint64_t block) override
    {
        printf("@ ./program:[0x%x] - 0x%lx\n", address_of_site(site), block);
    }
};

class Heaptrack : public Writer {
public:
    Heaptrack()
    {
        puts("v 10400 3\nx 7 program\nX program\nI 1000 5e298d\nm 1 -");
        for (unsigned site = 0; site < sites; ++site) { printf("t %x 0\n", address_of_site(site)); }
    }

    void allocate(unsigned site, uint64_t bytes, uint64_t block) override
    {
        printf("+ %lx %x %lx\n", bytes, site + 1, block);
    }

    void resize(unsigned site, uint64_t block, uint64_t bytes, uint64_t result) override
    {
        release(site, block);
        allocate(site, bytes, result);
    }

    void release(unsigned, uint64_t block) override { printf("- %lx\n", block); }
};

/** Gives addresses as an allocator does: a released block is the next one of its size. */
class Heap {
public:
    uint64_t take(uint64_t bytes)
    {
        std::vector<uint64_t> &free = free_[whole_size(bytes)];
        if (free.empty()) { return std::exchange(end_, end_ + whole_size(bytes)); }
        const uint64_t block = free.back();
        free.pop_back();
        return block;
    }

    void give(uint64_t block, uint64_t bytes) { free_[whole_size(bytes)].push_back(block); }

private:
    static uint64_t whole_size(uint64_t bytes) { return (bytes + 8 + 15) / 16 * 16; }

    std::map<uint64_t, std::vector<uint64_t>> free_;
    uint64_t end_ = 0x555555559010;
};

class Program {
public:
    Program(Writer &writer, uint64_t events, uint64_t live)
        : writer_(writer), events_(events), live_(live)
    {
    }

    void run()
    {
        for (uint64_t event = 0; event < events_; ++event) {
            const uint64_t due = event < events_ / 3 ? live_ * event / (events_ / 3) : live_;
            const uint64_t dice = random_() % 16;
            if (dice == 0 && !blocks_.empty()) {
                resize();
            } else if (blocks_.size() + dice % 2 <= due || blocks_.empty()) {
                allocate();
            } else {
                release();
            }
        }
    }

private:
    struct Block {
        uint64_t address;
        uint64_t bytes;
    };

    unsigned site() { return static_cast<unsigned>(random_() % sites); }

    /** A site asks for one of four sizes: with many more, heaptrack runs out of memory. Small
     *  blocks are frequent. */
    uint64_t bytes(unsigned site) { return (site % 5 + 1) * (4U << site % 7) + random_() % 4 * 8; }

    /** Takes the latest block or any other, each in half of the cases. */
    Block take()
    {
        if (random_() % 2 == 0) { std::swap(blocks_[random_() % blocks_.size()], blocks_.back()); }
        const Block block = blocks_.back();
        blocks_.pop_back();
        heap_.give(block.address, block.bytes);
        return block;
    }

    Block &add(uint64_t bytes) { return blocks_.emplace_back(Block{heap_.take(bytes), bytes}); }

    void allocate()
    {
        const unsigned by = site();
        const Block &block = add(bytes(by));
        writer_.allocate(by, block.bytes, block.address);
    }

    void resize()
    {
        const unsigned by = site();
        const uint64_t old = take().address;
        const Block &block = add(bytes(by));
        writer_.resize(by, old, block.bytes, block.address);
    }

    void release() { writer_.release(site(), take().address); }

    Writer &writer_;
    uint64_t events_;
    uint64_t live_;
    std::mt19937 random_{1};
    Heap heap_;
    std::vector<Block> blocks_;
};

template <typename Format>
int write(uint64_t events, uint64_t live)
{
    Format format;
    Program(format, events, live).run();
    return fflush(stdout) == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc == 4) {
        const std::string format = argv[1];
        const uint64_t events = strtoull(argv[2], nullptr, 10);
        const uint64_t live = strtoull(argv[3], nullptr, 10);
        if (format == "lines") { return write<Lines>(events, live); }
        if (format == "recording") { return write<Recording>(events, live); }
        if (format == "mtrace") { return write<Mtrace>(events, live); }
        if (format == "heaptrack") { return write<Heaptrack>(events, live); }
    }
    fputs("usage: trace_lines lines|recording|mtrace|heaptrack EVENTS LIVE\n", stderr);
    return 2;
}
