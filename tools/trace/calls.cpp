// SPDX-License-Identifier: MIT
#include "calls.h"

#include <algorithm>
#include <tuple>

namespace vektrace {

CallSums &CallSums::operator+=(const CallSums &other)
{
    live += other.live;
    at_peak += other.at_peak;
    total += other.total;
    short_lived += other.short_lived;
    return *this;
}

uint32_t CallTree::add_stack(const PlaceIds &stack, PlaceTable &places)
{
    Path path = {.begin = functions_.size()};
    for (auto place = stack.rbegin(); place != stack.rend(); ++place) {
        functions_.push_back(places.function(*place));
    }
    path.end = functions_.size();
    paths_.push_back(path);
    return static_cast<uint32_t>(paths_.size() - 1);
}

void CallTree::add_to(uint32_t stack, const StackTotals &totals)
{
    const CallSums sums = {totals.live, totals.at_peak, totals.total, totals.short_lived};
    paths_[stack].sums += sums;
    all_ += sums;
}

CallNode CallTree::root() const
{
    CallNode root;
    root += all_;
    return root;
}

CallNode CallTree::tree(const std::vector<SourceFrame> &places)
{
    rank_functions(places);
    std::erase_if(paths_, [](const Path &path) { return path.sums.total.blocks == 0; });
    std::sort(paths_.begin(), paths_.end(), [this](const Path &a, const Path &b) {
        return std::lexicographical_compare(at(a.begin), at(a.end), at(b.begin), at(b.end));
    });
    CallNode tree;
    add_paths(tree, paths_, 0, places);
    return tree;
}

std::vector<uint32_t>::const_iterator CallTree::at(size_t number) const
{
    return functions_.begin() + static_cast<ptrdiff_t>(number);
}

/** Replaces the functions by their ranks, so that the order of paths is that of the names. */
void CallTree::rank_functions(const std::vector<SourceFrame> &places)
{
    by_rank_ = functions_;
    std::sort(by_rank_.begin(), by_rank_.end());
    by_rank_.erase(std::unique(by_rank_.begin(), by_rank_.end()), by_rank_.end());
    by_rank_.shrink_to_fit();
    std::sort(by_rank_.begin(), by_rank_.end(), [&](PlaceId a, PlaceId b) {
        return std::tie(places[a].function, places[a].module) <
               std::tie(places[b].function, places[b].module);
    });
    std::vector<uint32_t> ranks(places.size());
    for (size_t rank = 0; rank < by_rank_.size(); rank++) {
        ranks[by_rank_[rank]] = static_cast<uint32_t>(rank);
    }
    for (uint32_t &function : functions_) {
        function = ranks[function];
    }
}

/** Adds paths, which are sorted and agree in their first `depth` functions, to the node that
 *  these lead to. */
void CallTree::add_paths(CallNode &node, std::span<const Path> paths, size_t depth,
                         const std::vector<SourceFrame> &places) const
{
    for (; !paths.empty() && paths.front().size() == depth; paths = paths.subspan(1)) {
        node += paths.front().sums;
    }
    size_t children = 0;
    for (auto rest = paths; !rest.empty(); rest = rest.subspan(same_child(rest, depth))) {
        children++;
    }
    node.children.reserve(children);
    while (!paths.empty()) {
        const size_t count = same_child(paths, depth);
        const SourceFrame &place = places[by_rank_[*at(paths.front().begin + depth)]];
        CallNode &child = node.children.emplace_back();
        child.function = place.function;
        child.module = place.module;
        add_paths(child, paths.first(count), depth + 1, places);
        node += child;
        paths = paths.subspan(count);
    }
}

/** How many paths, from the first one on, go on with the same function. */
size_t CallTree::same_child(std::span<const Path> paths, size_t depth) const
{
    const uint32_t function = *at(paths.front().begin + depth);
    const auto other = std::find_if(paths.begin(), paths.end(), [&](const Path &path) {
        return *at(path.begin + depth) != function;
    });
    return static_cast<size_t>(other - paths.begin());
}

} // namespace vektrace
