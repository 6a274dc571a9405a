// SPDX-License-Identifier: MIT
// Words and numbers as the formats of the report print them.
#ifndef VEKTRACE_WORDS_H
#define VEKTRACE_WORDS_H

#include <cstdint>
#include <string>
#include <string_view>

#include "report.h"

namespace vektrace {

// ---- Names of values, as options and JSON have them ----

std::string_view name(Grouping by);
std::string_view name(Order order);
std::string_view name(FaultKind kind);
std::string_view name(ChainEnd end);
std::string_view name(Change::Kind kind);

// ---- Words for a person ----

/** What happened, and what the places of the fault did, if it has them. */
struct FaultWords {
    std::string_view what;           ///< "released twice"
    std::string_view allocated;      ///< "allocated by"
    std::string_view released_first; ///< "released first by"
    std::string_view again;          ///< "released again by"
};
FaultWords words(FaultKind kind);

/** What an order sorts by: "bytes live at the end", ... */
std::string_view words(Order order);

/** How a process ended: "exited with 0", "killed by SIGKILL (9)", "no end was recorded: ...". Empty
 *  for trace lines, which do not say it. */
std::string ending(const ProcessSummary &process);

/** "1,234,567" */
std::string format_count(uint64_t number);
/** "1 block", "1,234 blocks"; `plural` where an s is not enough. */
std::string format_count(uint64_t number, std::string_view noun, std::string_view plural = {});
/** "512 B", "1.50 KiB", "15.3 MiB": three digits, powers of 1,024. */
std::string format_bytes(uint64_t number);
/** "12.3 %", "<0.1 %"; "-" if the whole is 0. */
std::string format_percent(uint64_t part, uint64_t whole);
/** "350 ms", "12.3 s", "4 min 05 s", "2 h 03 min" */
std::string format_duration(uint64_t milliseconds);

/** "src/config.c:123", "src/config.c" without a line, or empty. */
std::string file_and_line(const SourceFrame &frame);
/** "load at src/config.c:123, logdigest", with what is known of it. */
std::string place(const SourceFrame &frame);
/** Whether the function is unknown: it is "libplugin.so+0x1234", which names its module already. */
bool is_raw(const SourceFrame &frame);

// ---- What the formats have in common ----

/** Whether the figure of an order is a number of blocks, not of bytes. */
bool counts_blocks(Order order);
/** The figure that an order sorts by. */
uint64_t figure(const Numbers &numbers, Order order);
/** Mean bytes of a block, rounded; 0 without blocks. */
uint64_t mean(const Numbers &numbers);
/** Where the site begins in a stack that has its innermost frame first: the first frame that is not
 *  the library's own; 0 if there is none. */
size_t site_begin(const std::vector<SourceFrame> &stack);

} // namespace vektrace

#endif
