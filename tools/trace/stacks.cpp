// SPDX-License-Identifier: MIT
#include "stacks.h"

#include <functional>
#include <utility>

#include "hash.h"

namespace vektrace {

std::string_view last_name(std::string_view path)
{
    return path.substr(path.rfind('/') + 1);
}

size_t Stacks::ModuleHash::operator()(const Module &module) const
{
    const std::hash<std::string> hash;
    return mix(hash(module.path), hash(module.build_id));
}

size_t Stacks::FrameHash::operator()(const Frame &frame) const
{
    return mix(mix(0, frame.module), frame.offset);
}

size_t Stacks::StackHash::operator()(const Stack &stack) const
{
    uint64_t hash = mix(static_cast<uint64_t>(stack.end), stack.charged);
    for (const FrameId frame : stack.frames) {
        hash = mix(hash, frame);
    }
    return hash;
}

Stacks::Stacks()
{
    module({});
}

ModuleId Stacks::module(const Module &module)
{
    const auto [place, is_new] =
        module_ids_.try_emplace(module, static_cast<ModuleId>(modules_.size()));
    if (is_new) {
        modules_.push_back(module);
    }
    return place->second;
}

FrameId Stacks::frame(const Frame &frame)
{
    const auto [place, is_new] =
        frame_ids_.try_emplace(frame, static_cast<FrameId>(frames_.size()));
    if (is_new) {
        frames_.push_back(frame);
    }
    return place->second;
}

StackId Stacks::stack(Stack stack)
{
    const auto [place, is_new] =
        stack_ids_.try_emplace(stack, static_cast<StackId>(stacks_.size()));
    if (is_new) {
        stacks_.push_back(std::move(stack));
    }
    return place->second;
}

StackId Stacks::address(ModuleId module, uint64_t offset)
{
    return stack({frame({module, offset}), {}, ChainEnd::none});
}

} // namespace vektrace
