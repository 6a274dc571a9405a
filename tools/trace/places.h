// SPDX-License-Identifier: MIT
// The frames of all stacks, ready to print and numbered by what is printed: two addresses of one
// line have one number.
#ifndef VEKTRACE_PLACES_H
#define VEKTRACE_PLACES_H

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "patterns.h"
#include "report.h"
#include "stacks.h"
#include "symbols.h"

namespace vektrace {

using PlaceId = uint32_t; ///< of a SourceFrame
using PlaceIds = std::vector<PlaceId>;
inline constexpr PlaceId unknown_place = std::numeric_limits<PlaceId>::max();

class PlaceTable {
public:
    /** Throws InputError if the filter cannot be used. */
    PlaceTable(const Stacks &stacks, const Symbols &symbols, const ReportOptions &options);

    PlaceId number(const SourceFrame &frame);
    /** The number of a place's function and module alone. */
    PlaceId function(PlaceId id);

    const SourceFrame &operator[](PlaceId id) const { return places_[id]; }
    std::vector<SourceFrame> frames(const PlaceIds &ids) const;

    /** All places of a stack, innermost first; of the address that asked if there is no chain. */
    PlaceIds of(const Stack &stack) const;
    const PlaceIds &of(FrameId id) const { return by_frame_[id]; }

    bool is_suppressed(const Stack &stack) const;
    bool is_kept(const Stack &stack) const; ///< by the filter

    /** Hands over all places, by their numbers. */
    std::shared_ptr<const std::vector<SourceFrame>> take();

private:
    void add_frame(FrameId id);
    template <typename Fits>
    bool matches(FrameId id, const Fits &fits) const;

    const Stacks &stacks_;
    const Symbols &symbols_;
    std::vector<Pattern> suppressed_;
    std::optional<Filter> filter_;
    std::vector<SourceFrame> places_;
    std::unordered_map<std::string, PlaceId> numbers_;
    std::vector<PlaceId> functions_; ///< by PlaceId; unknown until they are needed
    std::vector<PlaceIds> by_frame_; ///< by FrameId, innermost place first
    std::vector<bool> is_suppressed_;
    std::vector<bool> is_kept_;
};

} // namespace vektrace

#endif
