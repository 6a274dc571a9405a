/* SPDX-License-Identifier: MIT */
/* What the fuzz targets share: a check, memory that refuses requests and counts blocks, a stream
 * that is read back, and the reading of the input. */
#ifndef FUZZ_SUPPORT_H
#define FUZZ_SUPPORT_H

#include <veklib/vekmemory.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include <malloc.h>

/** Notes a refusal in the build that counts them; no other defines it. */
extern "C" [[gnu::weak]] void vektest_refused(const char *request, int onward);

namespace fuzz {

/** Ends the process unless the condition holds: that is a finding. */
inline void require(bool condition)
{
    if (!condition) { abort(); }
}

/* ---- Memory ---- */

inline size_t live;            ///< blocks that are not released
inline unsigned until_refusal; ///< which request from now on is refused; 0: none
inline bool refuses_onward;    ///< then all later ones, too
inline bool refused;           ///< a request was refused

inline bool was_refused() { return std::exchange(refused, false); }

inline void refuse(unsigned request, bool onward)
{
    until_refusal = request;
    refuses_onward = onward;
}

inline void *allocate(size_t size, void *)
{
    if (until_refusal != 0 && --until_refusal == 0) {
        until_refusal = refuses_onward;
        refused = true;
        if (vektest_refused != nullptr) { vektest_refused("memory", refuses_onward); }
        return nullptr;
    }
    ++live;
    return memset(malloc(size), 0xA5, size);
}

inline void *allocate_zeros(size_t count, size_t size, void *caller)
{
    void *const block = allocate(count * size, caller);
    return block != nullptr ? memset(block, 0, count * size) : nullptr;
}

inline void release(void *block, void *)
{
    --live;
    free(memset(block, 0xDD, malloc_usable_size(block)));
}

/** Always moves the block. */
inline void *reallocate(void *block, size_t size, void *caller)
{
    void *const moved = allocate(size, caller);
    if (moved != nullptr && block != nullptr) {
        memcpy(moved, block, std::min(size, malloc_usable_size(block)));
        release(block, caller);
    }
    return moved;
}

/** Makes the library use this memory, which refuses nothing yet. */
inline void use_memory()
{
    VekMemoryVtable table = {}; // with the operations that the library calls
    table.malloc = allocate;
    table.calloc = allocate_zeros;
    table.realloc = reallocate;
    table.free = release;
    vek_set_memory_vtable(&table);
    refuse(0, false);
    refused = false;
}

/* ---- Output and input ---- */

/** In place of one of the output streams. */
struct Stream {
    char *text = nullptr;
    size_t size = 0;
    FILE *file = open_memstream(&text, &size);

    /** What was written since the last call. */
    std::string taken()
    {
        fflush(file);
        std::string result(text, size);
        rewind(file);
        return result;
    }
};

/** What is left of the input. After its end it is zeros. */
struct Input {
    const uint8_t *data;
    size_t left;

    unsigned byte() { return left != 0 ? --left, *data++ : 0u; }

    /** A text of so many characters, or fewer at the end. It may contain a NUL. */
    std::string text(size_t length)
    {
        length = std::min(length, left);
        left -= length;
        return {reinterpret_cast<const char *>(std::exchange(data, data + length)), length};
    }
};

} // namespace fuzz

#endif
