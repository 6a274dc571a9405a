// SPDX-License-Identifier: MIT
// The tree of calls, for the flame graph.
#ifndef VEKTRACE_CALLS_H
#define VEKTRACE_CALLS_H

#include <cstdint>
#include <span>
#include <vector>

#include "places.h"
#include "report.h"

namespace vektrace {

/** Keeps the stacks as lists of functions, and makes the tree from them in their order: nothing is
 *  needed to find a node again, and each gets as much room as it has children. */
class CallTree {
public:
    /** Adds a stack, whose places are innermost first; returns its number. */
    uint32_t add_stack(const PlaceIds &stack, PlaceTable &places);
    void add_to(uint32_t stack, const StackTotals &totals);

    /** The root alone. */
    CallNode root() const;

    /** The whole tree, without the stacks that allocated nothing. Its names are those of
     *  `places`. */
    CallNode tree(const std::vector<SourceFrame> &places);

private:
    /** A part of `functions_`, outermost first. */
    struct Path {
        size_t begin = 0;
        size_t end = 0;
        CallSums sums = {};
        size_t size() const { return end - begin; }
    };

    std::vector<uint32_t>::const_iterator at(size_t number) const;
    void rank_functions(const std::vector<SourceFrame> &places);
    void add_paths(CallNode &node, std::span<const Path> paths, size_t depth,
                   const std::vector<SourceFrame> &places) const;
    size_t same_child(std::span<const Path> paths, size_t depth) const;

    std::vector<uint32_t> functions_; ///< PlaceIds, in the end ranks
    std::vector<PlaceId> by_rank_;
    std::vector<Path> paths_;
    CallSums all_;
};

} // namespace vektrace

#endif
