// SPDX-License-Identifier: MIT
#include "symbols.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>
#include <tuple>

#include <elfutils/libdwfl.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include "debuginfo.h"
#include "elf_files.h"

namespace vektrace {

namespace {

// Functions from a symbol table, for code without debug information.
class SymbolTable {
public:
    SymbolTable(Dwfl_Module *module, bool is_arm) : module_(module)
    {
        const int count = dwfl_module_getsymtab(module);
        for (int i = 1; i < count; ++i) {
            GElf_Sym symbol;
            GElf_Addr address = 0;
            GElf_Word section = 0;
            const char *name =
                dwfl_module_getsym_info(module, i, &symbol, &address, &section, nullptr, nullptr);
            const auto type = GELF_ST_TYPE(symbol.st_info);
            if (name != nullptr && name[0] != '\0' && section != SHN_UNDEF &&
                (type == STT_FUNC || type == STT_GNU_IFUNC)) {
                address &= is_arm ? ~GElf_Addr{1} : ~GElf_Addr{0};
                functions_.push_back(
                    {address, symbol.st_size, GELF_ST_BIND(symbol.st_info) == STB_LOCAL, name});
            }
        }
        std::sort(functions_.begin(), functions_.end());
        const auto same = [](const Function &a, const Function &b) { return a.start == b.start; };
        functions_.erase(std::unique(functions_.begin(), functions_.end(), same), functions_.end());
    }

    std::string name_at(uint64_t address) const
    {
        const auto after = std::upper_bound(
            functions_.begin(), functions_.end(), address,
            [](uint64_t wanted, const Function &function) { return wanted < function.start; });
        if (after == functions_.begin()) {
            return {};
        }
        // Hand-written code often has no sizes: it extends to the next function of its section.
        const Function &function = after[-1];
        const bool inside = function.size != 0 ? address - function.start < function.size
                                               : section_of(address) == section_of(function.start);
        return inside ? readable_name(function.name) : "";
    }

private:
    struct Function {
        uint64_t start;
        uint64_t size;
        bool is_local;
        const char *name;

        // Of several names for one function the first one is used: public ones come first, of these
        // the ones with fewer underscores.
        bool operator<(const Function &other) const
        {
            const auto key = [](const Function &function) {
                const std::string_view text = function.name;
                return std::tuple(function.start, function.size == 0, function.is_local,
                                  std::min(text.find_first_not_of('_'), text.size()), text);
            };
            return key(*this) < key(other);
        }
    };

    Elf_Scn *section_of(Dwarf_Addr address) const
    {
        Dwarf_Addr bias = 0;
        return dwfl_module_address_section(module_, &address, &bias);
    }

    Dwfl_Module *module_;
    std::vector<Function> functions_; // by start
};

// A module's files, opened with libdwfl. Its addresses are those in the file.
class OpenModule {
public:
    OpenModule(const ModuleFiles &files, const SymbolOptions &options) : debug_(files.debug)
    {
        // "+": checksums are compared. The first folder, an empty one, is that of the file.
        search_path_ = "+:.debug";
        for (const std::string &folder : options.debug_dirs) {
            search_path_ += ":" + std::filesystem::absolute(folder).string();
        }
        search_path_ += ":/usr/lib/debug";
        search_path_text_ = search_path_.data();
        callbacks_.find_elf = dwfl_build_id_find_elf;
        callbacks_.find_debuginfo = find_debuginfo;
        callbacks_.section_address = dwfl_offline_section_address;
        callbacks_.debuginfo_path = &search_path_text_;
        dwfl_.reset(dwfl_begin(&callbacks_));
        module_ = dwfl_report_elf(dwfl_.get(), files.elf.c_str(), files.elf.c_str(), -1, 0, true);
        if (module_ == nullptr) {
            error_ = dwfl_errmsg(-1);
            return;
        }
        dwfl_report_end(dwfl_.get(), nullptr, nullptr);
        void **user_data = nullptr;
        dwfl_module_info(module_, &user_data, &start_, &end_, nullptr, nullptr, nullptr, nullptr);
        *user_data = &debug_;
        GElf_Addr bias = 0;
        GElf_Ehdr header;
        if (gelf_getehdr(dwfl_module_getelf(module_, &bias), &header) != nullptr) {
            is_arm_ = header.e_machine == EM_ARM;
            is_movable_ = header.e_type == ET_DYN;
        }
    }

    const std::string &error() const { return error_; }
    bool is_movable() const { return is_movable_; }
    bool contains(uint64_t address) const { return address >= start_ && address < end_; }

    // A return address follows the call. On ARM its lowest bit is the mode of the processor.
    uint64_t call_address(uint64_t return_address) const
    {
        return (is_arm_ ? return_address & ~uint64_t{1} : return_address) - 1;
    }

    // Finds the places of calls, which are sorted by address.
    DebugFacts resolve(std::vector<Call> &calls)
    {
        DebugFacts facts;
        Dwarf_Addr bias = 0;
        Dwarf *dwarf = dwfl_module_getdwarf(module_, &bias);
        if (dwarf != nullptr) {
            const auto shift = [&](Dwarf_Addr distance) {
                for (Call &call : calls) {
                    call.address += distance;
                }
            };
            shift(-bias);
            facts = find_places(dwarf, calls);
            shift(bias);
        }
        const SymbolTable table(module_, is_arm_);
        for (Call &call : calls) {
            if (call.places.empty()) {
                call.places.emplace_back();
            }
            if (call.places.back().function.empty()) {
                call.places.back().function = table.name_at(call.address);
            }
        }
        return facts;
    }

private:
    struct End {
        void operator()(Dwfl *dwfl) const { dwfl_end(dwfl); }
    };

    // Hands over the debug file that was found by name. libdwfl asks again for the file that this
    // one shares with others (made by dwz), or if there was none.
    static int find_debuginfo(Dwfl_Module *module, void **user_data, const char *name,
                              Dwarf_Addr base, const char *file, const char *link, GElf_Word crc,
                              char **found)
    {
        std::string &debug = *static_cast<std::string *>(*user_data);
        if (debug.empty()) {
            return dwfl_standard_find_debuginfo(module, user_data, name, base, file, link, crc,
                                                found);
        }
        const int fd = open(debug.c_str(), O_RDONLY | O_CLOEXEC);
        *found = strdup(debug.c_str());
        debug.clear();
        return fd;
    }

    std::string debug_;
    std::string search_path_;
    char *search_path_text_ = nullptr;
    Dwfl_Callbacks callbacks_ = {};
    std::unique_ptr<Dwfl, End> dwfl_;
    Dwfl_Module *module_ = nullptr;
    Dwarf_Addr start_ = 0;
    Dwarf_Addr end_ = 0;
    std::string error_;
    bool is_arm_ = false;
    bool is_movable_ = false;
};

class Resolver {
public:
    Resolver(const Stacks &stacks, const SymbolOptions &options)
        : stacks_(stacks), options_(options), frames_of_(stacks.modules().size())
    {
        symbols_.places.assign(stacks.frames().size(), Places(1));
        for (size_t i = 0; i < stacks.frames().size(); ++i) {
            frames_of_[stacks.frames()[i].module].push_back(static_cast<FrameId>(i));
        }
    }

    Symbols resolve()
    {
        const std::vector<bool> is_exe = modules_of_exe();
        for (size_t i = 0; i < frames_of_.size(); ++i) {
            if (frames_of_[i].empty()) {
                continue;
            }
            const auto module = static_cast<ModuleId>(i);
            const std::string problem = module == no_module
                                            ? resolve_addresses()
                                            : resolve_module(module, is_exe[i] ? options_.exe : "");
            if (!problem.empty()) {
                symbols_.problems.push_back({module, problem});
            }
        }
        return std::move(symbols_);
    }

private:
    static bool is_of_kernel(const Module &module)
    {
        return module.path.starts_with('[') || module.path.starts_with("linux-vdso.so") ||
               module.path.starts_with("linux-gate.so");
    }

    static bool is_program(const Module &module)
    {
        const std::string_view name = last_name(module.path);
        const bool is_shared_object = name.ends_with(".so") || name.find(".so.") != name.npos;
        return !name.empty() && !is_of_kernel(module) && !is_shared_object;
    }

    // The modules that options_.exe stands for: those with its build-id, else the first program.
    std::vector<bool> modules_of_exe() const
    {
        const std::vector<Module> &modules = stacks_.modules();
        std::vector<bool> is_exe(modules.size());
        if (options_.exe.empty()) {
            return is_exe;
        }
        const std::string build_id = build_id_of(options_.exe);
        const auto has_build_id = [&](const Module &module) {
            return !build_id.empty() && module.build_id == build_id;
        };
        std::transform(modules.begin(), modules.end(), is_exe.begin(), has_build_id);
        if (std::find(is_exe.begin(), is_exe.end(), true) == is_exe.end()) {
            const auto program = std::find_if(modules.begin(), modules.end(), is_program);
            if (program != modules.end()) {
                is_exe[static_cast<size_t>(program - modules.begin())] = true;
            }
        }
        return is_exe;
    }

    std::string resolve_module(ModuleId id, const std::string &exe)
    {
        const Module &module = stacks_.modules()[id];
        if (module.path.empty() || is_of_kernel(module)) {
            return {};
        }
        const ModuleFiles files = find_files(module, options_, exe);
        if (files.elf.empty()) {
            return files.problem;
        }
        OpenModule open(files, options_);
        return resolve_with(open, files, frames_of_[id]);
    }

    // Addresses without a module: if the program cannot be moved, it has its addresses.
    std::string resolve_addresses()
    {
        const std::vector<FrameId> &frames = frames_of_[no_module];
        const bool is_alone = frames.size() == stacks_.frames().size();
        if (options_.exe.empty() && is_alone && stacks_.modules().size() > 1) {
            return "the addresses belong to none of the known modules: is the copy of "
                   "/proc/PID/maps one of the same run?";
        }
        if (options_.exe.empty()) {
            return is_alone ? "the addresses belong to no known module: give a copy of the "
                              "process's /proc/PID/maps (--modules), or the program, if it is "
                              "not position-independent (--exe)"
                            : "";
        }
        const ModuleFiles files = find_files({options_.exe, {}}, {{}, options_.debug_dirs, {}}, {});
        if (files.elf.empty()) {
            return files.problem;
        }
        OpenModule open(files, options_);
        std::vector<FrameId> inside;
        if (open.error().empty()) {
            std::copy_if(frames.begin(), frames.end(), std::back_inserter(inside), [&](FrameId id) {
                return open.contains(open.call_address(stacks_.frames()[id].offset));
            });
        }
        std::string problem = resolve_with(open, files, inside);
        if (open.error().empty() && inside.size() < frames.size() && is_alone) {
            problem = fmt::format(
                "{}{}{} of {} addresses are not in {}{}: give a copy of the process's "
                "/proc/PID/maps (--modules)",
                problem, problem.empty() ? "" : "; ", frames.size() - inside.size(), frames.size(),
                files.elf, open.is_movable() ? ", which may be loaded anywhere" : "");
        }
        return problem;
    }

    std::string resolve_with(OpenModule &open, const ModuleFiles &files,
                             const std::vector<FrameId> &frames)
    {
        if (!open.error().empty()) {
            return fmt::format("{} cannot be read ({})", files.elf, open.error());
        }
        std::vector<Call> calls;
        calls.reserve(frames.size());
        for (const FrameId id : frames) {
            calls.push_back({open.call_address(stacks_.frames()[id].offset), id, {}});
        }
        std::sort(calls.begin(), calls.end(),
                  [](const Call &a, const Call &b) { return a.address < b.address; });
        const DebugFacts facts = open.resolve(calls);
        for (Call &call : calls) {
            symbols_.places[call.frame] = std::move(call.places);
        }
        return frames.empty() ? "" : lack_of(facts, files);
    }

    static std::string lack_of(const DebugFacts &facts, const ModuleFiles &files)
    {
        if (facts.lacks_split_units) {
            return fmt::format("{} has debug information in .dwo files, which are missing: inlined "
                               "functions are unknown",
                               files.elf);
        }
        if (facts.has_units) {
            return {};
        }
        return fmt::format("{} has no debug information ({}): files and lines are unknown{}{}",
                           files.elf,
                           files.build_id.empty() ? "no build-id" : "build-id " + files.build_id,
                           files.problem.empty() ? "" : "; ", files.problem);
    }

    const Stacks &stacks_;
    const SymbolOptions &options_;
    std::vector<std::vector<FrameId>> frames_of_;
    Symbols symbols_;
};

} // namespace

Symbols resolve(const Stacks &stacks, const SymbolOptions &options)
{
    return Resolver(stacks, options).resolve();
}

std::string raw_place(const Stacks &stacks, FrameId frame)
{
    const Frame &place = stacks.frames()[frame];
    const std::string_view name = last_name(stacks.modules()[place.module].path);
    return fmt::format("{}{}{:#x}", name, name.empty() ? "" : "+", place.offset);
}

bool is_library(const Module &module)
{
    return last_name(module.path).starts_with("libveklib.so");
}

} // namespace vektrace
