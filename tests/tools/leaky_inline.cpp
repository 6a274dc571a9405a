// SPDX-License-Identifier: MIT
// A leak in a member function of C++, inlined into another one.
#include <veklib/veklib.h>

#include "leaky.h"

namespace leaky {

class Cache {
public:
    ALWAYS_INLINE void add(int bytes)
    {
        const auto size = static_cast<size_t>(bytes);
        entries_[count_] = vek_malloc(size); // expect: live c++ leaky::Cache::add(int) 4
        ++count_;
    }
    void fill();

private:
    void *entries_[4] = {};
    int count_ = 0;
};

NOINLINE void Cache::fill()
{
    while (count_ < 4) {
        add(100); // expect: inlined-into c++ leaky::Cache::fill()
    }
}

constinit Cache cache;

} // namespace leaky

void leak_in_cpp(void) { leaky::cache.fill(); }
