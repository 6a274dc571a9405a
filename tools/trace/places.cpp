// SPDX-License-Identifier: MIT
#include "places.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

namespace vektrace {

namespace {

/// Places of a stack that count: a damaged recording may have a chain that is deeper than a walk
/// through the tree of calls can bear.
constexpr size_t deepest = 2048;

/** A function of a header of the library: `inlined` into the application, or a copy in it. */
bool is_library_inline(const Place &place, bool inlined)
{
    return (inlined && place.function.starts_with("vek_")) ||
           (place.file.find("veklib/vek") != std::string::npos &&
            place.file.ends_with("_inline.h"));
}

std::span<const FrameId> frames_of(const Stack &stack)
{
    return stack.frames.empty() ? std::span(&stack.charged, 1) : std::span(stack.frames);
}

bool any(const std::vector<bool> &flags, const Stack &stack)
{
    const auto frames = frames_of(stack);
    return std::any_of(frames.begin(), frames.end(), [&](FrameId id) { return flags[id]; });
}

} // namespace

PlaceTable::PlaceTable(const Stacks &stacks, const Symbols &symbols, const ReportOptions &options)
    : stacks_(stacks), symbols_(symbols),
      suppressed_(options.suppressed.begin(), options.suppressed.end())
{
    if (!options.filter.empty()) {
        filter_.emplace(options.filter);
    }
    for (FrameId id = 0; id < stacks.frames().size(); id++) {
        add_frame(id);
    }
}

/** Whether a function, file or module of the frame is one that `fits`. */
template <typename Fits>
bool PlaceTable::matches(FrameId id, const Fits &fits) const
{
    if (fits(stacks_.modules()[stacks_.frames()[id].module].path)) {
        return true;
    }
    return std::any_of(by_frame_[id].begin(), by_frame_[id].end(), [&](PlaceId place) {
        const SourceFrame &frame = places_[place];
        return fits(frame.function) || fits(frame.file) || fits(frame.module);
    });
}

void PlaceTable::add_frame(FrameId id)
{
    const Module &module = stacks_.modules()[stacks_.frames()[id].module];
    const Places &places = symbols_.places[id];
    PlaceIds &ids = by_frame_.emplace_back();
    for (size_t i = 0; i < places.size(); i++) {
        const bool inlined = i + 1 < places.size();
        SourceFrame frame = {places[i].function,
                             places[i].file,
                             places[i].line,
                             std::string(last_name(module.path)),
                             inlined,
                             is_library(module) || is_library_inline(places[i], inlined)};
        if (frame.function.empty()) {
            frame.function = raw_place(stacks_, id);
        }
        ids.push_back(number(frame));
    }
    is_suppressed_.push_back(matches(id, [&](const std::string &text) {
        return std::any_of(suppressed_.begin(), suppressed_.end(),
                           [&](const Pattern &pattern) { return pattern.matches(text); });
    }));
    is_kept_.push_back(
        filter_ && matches(id, [&](const std::string &text) { return filter_->matches(text); }));
}

PlaceId PlaceTable::number(const SourceFrame &frame)
{
    const std::string key = frame.function + '\0' + frame.file + '\0' + std::to_string(frame.line) +
                            '\0' + frame.module + '\0' + (frame.inlined ? 'i' : '-') +
                            (frame.library ? 'l' : '-');
    const auto [found, is_new] = numbers_.try_emplace(key, static_cast<PlaceId>(places_.size()));
    if (is_new) {
        places_.push_back(frame);
    }
    return found->second;
}

PlaceId PlaceTable::function(PlaceId id)
{
    if (id >= functions_.size()) {
        functions_.resize(id + 1, unknown_place);
    }
    if (functions_[id] == unknown_place) {
        const SourceFrame frame = {
            .function = places_[id].function, .file = {}, .module = places_[id].module};
        functions_[id] = number(frame);
    }
    return functions_[id];
}

std::vector<SourceFrame> PlaceTable::frames(const PlaceIds &ids) const
{
    std::vector<SourceFrame> frames;
    for (const PlaceId id : ids) {
        frames.push_back(places_[id]);
    }
    return frames;
}

PlaceIds PlaceTable::of(const Stack &stack) const
{
    PlaceIds all;
    for (const FrameId id : frames_of(stack)) {
        const PlaceIds &places = by_frame_[id];
        all.insert(all.end(), places.begin(), places.end());
        if (all.size() >= deepest) {
            break;
        }
    }
    return all;
}

bool PlaceTable::is_suppressed(const Stack &stack) const
{
    return any(is_suppressed_, stack);
}

bool PlaceTable::is_kept(const Stack &stack) const
{
    return !filter_ || any(is_kept_, stack);
}

std::shared_ptr<const std::vector<SourceFrame>> PlaceTable::take()
{
    return std::make_shared<const std::vector<SourceFrame>>(std::move(places_));
}

} // namespace vektrace
