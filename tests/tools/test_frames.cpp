// SPDX-License-Identifier: MIT
// The recorder's own walk of the stack, compared with libgcc's in a random program.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include <alloca.h>
#include <gtest/gtest.h>
#include <unwind.h>

extern "C" {
#include "record.h"
}

namespace {

constexpr int most = 512;

thread_local std::mt19937 generator(1);
thread_local int compared, handed_over, wrong;

void use(const void *memory) { __asm__ volatile("" ::"r"(memory) : "memory"); }

_Unwind_Reason_Code visit(_Unwind_Context *context, void *chain)
{
    static_cast<std::vector<uintptr_t> *>(chain)->push_back(_Unwind_GetIP(context));
    return _URC_NO_REASON;
}

/** Takes a chain in both ways. */
[[gnu::noinline]] void compare()
{
    uintptr_t fast[most];
    const int count = walk_frames(fast, most, __builtin_frame_address(0), 0);
    std::vector<uintptr_t> slow;
    _Unwind_Backtrace(visit, &slow);
    slow.erase(slow.begin());                                   // this function
    if (!slow.empty() && slow.back() == 0) { slow.pop_back(); } // nobody called the first function
    compared += 1;
    handed_over += count < 0;
    wrong += count >= 0 && !std::equal(fast, fast + count, slow.begin(), slow.end());
}

void any(int depth);

// Functions whose frames are laid out in different ways.

[[gnu::noinline]] void of_unknown_size(int depth)
{
    void *const memory = alloca(1 + generator() % 300);
    use(memory);
    any(depth);
    use(memory);
}

[[gnu::noinline]] void of_many_registers(int depth)
{
    unsigned long a = generator(), b = generator(), c = generator(), d = generator();
    for (int i = 0; i != 2; ++i) {
        compare();
        a += b, b ^= c, c += d, d ^= a;
    }
    any(depth);
    const unsigned long all[] = {a, b, c, d};
    use(all);
}

[[gnu::noinline]] void by_callback(int depth)
{
    const std::function<void()> call = [depth] {
        any(depth);
        use(&depth);
    };
    call();
    int numbers[] = {2, 1};
    qsort(numbers, 2, sizeof *numbers, [](const void *, const void *) {
        compare();
        return 0;
    });
}

[[gnu::noinline]] void left_by_throw(int depth)
{
    try {
        any(depth);
        throw std::runtime_error("left");
    } catch (const std::runtime_error &) {
        compare();
    }
}

void any(int depth)
{
    static void (*const functions[])(int) = {of_unknown_size, of_many_registers, by_callback,
                                             left_by_throw};
    for (auto i = generator() % 4; depth > 0 && i != 0; --i) {
        functions[generator() % std::size(functions)](depth - 1);
    }
    // Seldom, so that much of the stack has changed since the time before.
    if (generator() % 8 == 0) { compare(); }
}

TEST(Frames, AreThoseOfLibgcc)
{
    std::vector<std::thread> threads;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        threads.emplace_back([seed] {
            generator.seed(seed);
            while (compared < 20000) { any(12); }
            EXPECT_EQ(wrong, 0) << "of " << compared << ", seed " << seed;
            EXPECT_LT(handed_over, compared / 100);
        });
    }
    for (std::thread &thread : threads) { thread.join(); }
}

} // namespace
