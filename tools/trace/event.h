// SPDX-License-Identifier: MIT
// What the readers hand on: one allocator call at a time.
#ifndef VEKTRACE_EVENT_H
#define VEKTRACE_EVENT_H

#include <cstdint>

#include "stacks.h"

namespace vektrace {

enum class Operation : uint8_t {
    malloc,
    calloc,
    realloc,
    free,
    malloc_if_possible,
    malloc_if_available,
};

struct Event {
    Operation operation;
    /// Refused in the error state. The event says only that, as the library's line does; the event
    /// of the failed request, with `refused` false and no result, follows it. (It may be missing
    /// in trace lines, because refusals have lines even while tracing is off.)
    bool refused;
    bool impossible; ///< more bytes than half the device's address space
    StackId stack;
    uint64_t block;  ///< what free releases and realloc resizes; 0: null
    uint64_t bytes;  ///< what was asked for: the product of calloc's factors (at most UINT64_MAX)
    uint64_t result; ///< the new block; 0: null
    uint64_t line;   ///< number of the line, or of the event in a recording, from 1
};

/** Takes the events of one process in their order. */
class EventSink {
public:
    virtual ~EventSink() = default;
    virtual void add(const Event &event) = 0;
    /** The events that follow happened at this time or later. */
    virtual void at_time(uint64_t milliseconds) = 0;
};

} // namespace vektrace

#endif
