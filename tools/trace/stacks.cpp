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

namespace {

/** The number of an item, which is added if it is new. */
template <typename Item, typename Items, typename Numbers>
uint32_t number_of(Item &&item, Items &items, Numbers &numbers)
{
    const auto [place, is_new] = numbers.try_emplace(item, static_cast<uint32_t>(items.size()));
    if (is_new) {
        items.push_back(std::forward<Item>(item));
    }
    return place->second;
}

} // namespace

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
    return number_of(module, modules_, module_ids_);
}

FrameId Stacks::frame(const Frame &frame)
{
    return number_of(frame, frames_, frame_ids_);
}

StackId Stacks::stack(Stack stack)
{
    return number_of(std::move(stack), stacks_, stack_ids_);
}

StackId Stacks::address(ModuleId module, uint64_t offset)
{
    return stack({frame({module, offset}), {}, ChainEnd::none});
}

} // namespace vektrace
