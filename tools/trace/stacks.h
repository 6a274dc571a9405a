// SPDX-License-Identifier: MIT
// Modules, frames and stacks, each kept once and numbered. All recordings of a report share them,
// so that the same code has the same number wherever it was loaded.
#ifndef VEKTRACE_STACKS_H
#define VEKTRACE_STACKS_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <tsl/robin_map.h>

namespace vektrace {

/** A program or a shared object, as it was on the device. */
struct Module {
    std::string path;     ///< on the device; empty: the place of an address whose module is unknown
    std::string build_id; ///< hexadecimal; empty if unknown
    bool operator==(const Module &) const = default;
};

/** The last name of a path. */
std::string_view last_name(std::string_view path);

using ModuleId = uint32_t;
using FrameId = uint32_t;
using StackId = uint32_t;

/** The module of addresses that no known module contains. It is always there. */
inline constexpr ModuleId no_module = 0;

/** A return address. */
struct Frame {
    ModuleId module;
    uint64_t offset; ///< the address in the module's file (the address itself for no_module)
    bool operator==(const Frame &) const = default;
};

/** Why a chain ends. */
enum class ChainEnd : uint8_t {
    none,    ///< there is no chain, only the address that asked
    whole,   ///< with the first function of the thread
    cut,     ///< at code without unwind tables
    limited, ///< at the depth of the recording
};

/** Who made a call. */
struct Stack {
    FrameId charged;             ///< the address that the call is charged to
    std::vector<FrameId> frames; ///< innermost first; empty if there is no chain
    ChainEnd end;
    bool operator==(const Stack &) const = default;
};

class Stacks {
public:
    Stacks();

    ModuleId module(const Module &module);
    FrameId frame(const Frame &frame);
    StackId stack(Stack stack);
    /** The stack that is one address without a chain. */
    StackId address(ModuleId module, uint64_t offset);

    const std::vector<Module> &modules() const { return modules_; }
    const std::vector<Frame> &frames() const { return frames_; }
    const std::vector<Stack> &stacks() const { return stacks_; }

private:
    struct ModuleHash {
        size_t operator()(const Module &module) const;
    };
    struct FrameHash {
        size_t operator()(const Frame &frame) const;
    };
    struct StackHash {
        size_t operator()(const Stack &stack) const;
    };

    std::vector<Module> modules_;
    std::vector<Frame> frames_;
    std::vector<Stack> stacks_;
    tsl::robin_map<Module, ModuleId, ModuleHash> module_ids_;
    tsl::robin_map<Frame, FrameId, FrameHash> frame_ids_;
    tsl::robin_map<Stack, StackId, StackHash> stack_ids_;
};

} // namespace vektrace

#endif
