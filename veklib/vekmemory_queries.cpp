/* SPDX-License-Identifier: MIT */
/* Memory queries: what the default table answers about the machine's memory.
 *
 * Each query opens, reads and closes "/proc/meminfo" and keeps nothing, so any thread may make one
 * at any time. errno stays unchanged. This source uses neither the tables nor the trace, and does
 * not allocate through the library.
 */
#include "veklib/vekmemory_internal.h"
#include "veklib/vekmemory_table_internal.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace {

/** Finds the number of kilobytes that matches the pattern in an open "/proc/meminfo", and returns
 *  it in bytes. A line longer than the buffer is read in pieces; each is matched on its own.
 *  Fails: no line matches, or the bytes do not fit into a size_t -> `unknown_size` */
size_t read_meminfo(FILE *meminfo, const char *pattern)
{
    char piece[79];
    while (fgets(piece, sizeof piece, meminfo) != nullptr) {
        int number;
        char unit;
        if (sscanf(piece, pattern, &number, &unit) == 2) {
            if (unit != 'k' && stderr != nullptr) {
                fprintf(stderr, "unknown unit %c in /proc/meminfo\n", unit);
            }
            const int64_t bytes = static_cast<int64_t>(number) * 1024;
            return std::in_range<size_t>(bytes) ? static_cast<size_t>(bytes)
                                                : vekmemory::unknown_size;
        }
    }
    return vekmemory::unknown_size;
}

size_t query_meminfo(const char *pattern)
{
    const int saved_errno = errno;
    size_t bytes = vekmemory::unknown_size;
    FILE *const meminfo = vek_open_file("/proc/meminfo", "r");
    if (meminfo != nullptr) {
        bytes = read_meminfo(meminfo, pattern);
        fclose(meminfo);
    }
    errno = saved_errno;
    return bytes;
}

} // namespace

size_t vekmemory::query_total_bytes()
{
    return query_meminfo("MemTotal: %d %cB");
}

size_t vekmemory::query_free_bytes()
{
    return query_meminfo("MemFree: %d %cB");
}
