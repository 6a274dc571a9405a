// SPDX-License-Identifier: MIT
// Code whose places are known. test_symbols compiles it with several compilers, for several formats
// of debug information; it needs no library. A mark is the address after an instruction, as a
// return address is. "line:" names the mark's line, or the line of a call.
#define MARK(name) __asm__ volatile("nop\n\t.globl mark_" name "\nmark_" name ":")
#ifdef __clang__
#define NOINLINE __attribute__((noinline))
#else
#define NOINLINE __attribute__((noinline, noclone))
#endif

extern "C" __attribute__((cold, noreturn)) void leave();

namespace {

__attribute__((always_inline)) inline int inner(int x)
{
    MARK("inlined"); // line: inner
    return x + x;
}

__attribute__((always_inline)) inline int outer(int x)
{
    return inner(x) + 1; // line: outer
}

NOINLINE int hidden(int x)
{
    return outer(x) + 2; // line: hidden
}

} // namespace

namespace sample {

template <typename Type>
struct Box {
    NOINLINE Type get(Type x)
    {
        MARK("member"); // line: member
        return x;
    }
};

NOINLINE int run(int x)
{
    struct Local {
        NOINLINE static int step(int y)
        {
            MARK("local"); // line: local
            return y;
        }
    };
    const auto add = [](int y) __attribute__((noinline))
    {
        MARK("lambda"); // line: lambda
        return y;
    };
    return Local::step(add(hidden(x))) + Box<int>().get(x);
}

} // namespace sample

extern "C" __attribute__((visibility("default"))) int plain(int x)
{
    if (x < 0) {
        leave(); // line: cold
    }
    return sample::run(x) + 1;
}
