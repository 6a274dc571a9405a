// SPDX-License-Identifier: MIT
// Each unit is walked once, with the wanted addresses at hand, sorted. Only functions that contain
// some of them are entered. libdw's own look-ups (dwarf_getscopes) walk the unit for every address,
// and its table of units relies on a section that Clang does not write.
#include "debuginfo.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <unordered_map>

#include <cxxabi.h>
#include <dwarf.h>

namespace vektrace {

namespace {

// Deeper nesting is taken for broken data.
constexpr int max_depth = 200;
constexpr int max_origins = 16;

template <typename Function>
void for_each_range(Dwarf_Die &die, Function function)
{
    Dwarf_Addr base = 0;
    Dwarf_Addr start = 0;
    Dwarf_Addr end = 0;
    for (ptrdiff_t at = 0; (at = dwarf_ranges(&die, at, &base, &start, &end)) > 0;) {
        // Functions that the linker left out have address 0 or an empty range.
        if (start != 0 && start < end) {
            function(start, end);
        }
    }
}

template <typename Function>
void for_each_child(Dwarf_Die &parent, Function function)
{
    Dwarf_Die child;
    if (dwarf_child(&parent, &child) == 0) {
        do {
            function(child);
        } while (dwarf_siblingof(&child, &child) == 0);
    }
}

std::span<Call> calls_within(std::span<Call> calls, uint64_t start, uint64_t end)
{
    const auto before = [](const Call &call, uint64_t address) { return call.address < address; };
    const auto first = std::lower_bound(calls.begin(), calls.end(), start, before);
    return {first, std::lower_bound(first, calls.end(), end, before)};
}

const char *text_attribute(Dwarf_Die &die, unsigned name)
{
    Dwarf_Attribute attribute;
    return dwarf_attr(&die, name, &attribute) != nullptr ? dwarf_formstring(&attribute) : nullptr;
}

unsigned number_attribute(Dwarf_Die &die, unsigned name)
{
    Dwarf_Attribute attribute;
    Dwarf_Word value = 0;
    if (dwarf_attr(&die, name, &attribute) == nullptr || dwarf_formudata(&attribute, &value) != 0) {
        return 0;
    }
    return static_cast<unsigned>(value);
}

// A definition refers by this attribute of DWARF to the declaration that it completes.
constexpr unsigned completed_declaration = 0x47;

// The entry that this one is an instance of, or completes.
bool declaration_of(Dwarf_Die &die, Dwarf_Die &declaration)
{
    Dwarf_Attribute attribute;
    return (dwarf_attr(&die, DW_AT_abstract_origin, &attribute) != nullptr ||
            dwarf_attr(&die, completed_declaration, &attribute) != nullptr) &&
           dwarf_formref_die(&attribute, &declaration) != nullptr;
}

Dwarf_Die first_declaration(Dwarf_Die die)
{
    Dwarf_Die declaration;
    for (int i = 0; i < max_origins && declaration_of(die, declaration); ++i) {
        die = declaration;
    }
    return die;
}

// GCC splits functions: a part that is put back into its function looks as if the function were
// inlined into itself, by a call on the function's own line.
bool is_part_of_caller(Dwarf_Die inlined, Dwarf_Die caller)
{
    int line = 0;
    if (dwarf_decl_line(&inlined, &line) != 0 ||
        static_cast<unsigned>(line) != number_attribute(inlined, DW_AT_call_line)) {
        return false;
    }
    return first_declaration(inlined).addr == first_declaration(caller).addr;
}

const char *linkage_name(Dwarf_Die &die)
{
    const char *name = text_attribute(die, DW_AT_linkage_name);
    return name != nullptr ? name : text_attribute(die, DW_AT_MIPS_linkage_name);
}

// Names of functions, the same for a function and for its inlined copies.
class Names {
public:
    const std::string &of(Dwarf_Die die, int depth = 0)
    {
        // The name is the declaration's: a copy may lack the linkage name or have one of its own.
        const char *linkage = linkage_name(die);
        Dwarf_Die declaration;
        for (int i = 0; i < max_origins && declaration_of(die, declaration); ++i) {
            die = declaration;
            const char *name = linkage_name(die);
            linkage = name != nullptr || i == 0 ? name : linkage;
        }
        const auto found = names_.find(die.addr);
        if (found != names_.end()) {
            return found->second;
        }
        std::string name = linkage != nullptr ? readable_name(linkage) : qualified(die, depth);
        return names_.emplace(die.addr, std::move(name)).first->second;
    }

private:
    // The name with its scopes. Functions without external linkage have no linkage name.
    std::string qualified(Dwarf_Die die, int depth)
    {
        const char *name = dwarf_diename(&die);
        Dwarf_Die at;
        if (name == nullptr || dwarf_diecu(&die, &at, nullptr, nullptr) == nullptr) {
            return name != nullptr ? name : "";
        }
        std::string scopes;
        while (depth < max_depth && child_with(at, die) && at.addr != die.addr) {
            ++depth;
            switch (dwarf_tag(&at)) {
            case DW_TAG_namespace:
                scopes += scope_name(at, "(anonymous namespace)");
                break;
            case DW_TAG_class_type:
            case DW_TAG_structure_type:
            case DW_TAG_union_type:
                scopes += scope_name(at, "(anonymous class)");
                break;
            case DW_TAG_subprogram:
                scopes = of(at, depth) + "::";
                break;
            default:
                break;
            }
        }
        return scopes + name;
    }

    static std::string scope_name(Dwarf_Die &scope, const char *anonymous)
    {
        const char *name = dwarf_diename(&scope);
        return std::string(name != nullptr ? name : anonymous) + "::";
    }

    // Goes from `at` to its child that is or contains `die`. Entries follow their parents directly.
    bool child_with(Dwarf_Die &at, const Dwarf_Die &die)
    {
        std::vector<Dwarf_Die> &children = children_[at.addr];
        if (children.empty()) {
            for_each_child(at, [&](Dwarf_Die &child) { children.push_back(child); });
        }
        const auto after = std::upper_bound(
            children.begin(), children.end(), die.addr,
            [](const void *address, const Dwarf_Die &child) { return address < child.addr; });
        if (after == children.begin()) {
            return false;
        }
        at = after[-1];
        return true;
    }

    std::unordered_map<const void *, std::string> names_;
    std::unordered_map<const void *, std::vector<Dwarf_Die>> children_;
};

class Unit {
public:
    // With split debug information `unit` has the addresses and lines, `contents` the functions.
    Unit(Names &names, Dwarf_Die unit, Dwarf_Die contents)
        : names_(names), unit_(unit), contents_(contents)
    {
        // A relative folder comes from -ffile-prefix-map, which makes the files' names relative
        // to the same root. libdw puts the folder before them even so.
        const char *folder = text_attribute(unit_, DW_AT_comp_dir);
        if (folder != nullptr && folder[0] != '/') {
            folder_ = std::string(folder) + "/";
        }
    }

    // `calls` are those between the unit's first and last address, `own` those within its ranges.
    void resolve(std::span<Call> calls, const std::vector<std::span<Call>> &own)
    {
        calls_ = calls;
        function_of_.assign(calls.size(), none);
        visit(contents_, false, 0);
        // Nested functions, and those of local classes, may stand inside the outer function.
        const auto is_unknown = [&](const Call &call) { return function_of(call) == none; };
        if (std::any_of(own.begin(), own.end(), [&](std::span<Call> part) {
                return std::any_of(part.begin(), part.end(), is_unknown);
            })) {
            visit(contents_, true, 0);
        }
        for (Call &call : calls) {
            if (call.places.empty() && function_of(call) != none) {
                describe(call);
            }
        }
        for (const std::span<Call> part : own) {
            for (Call &call : part) {
                if (call.places.empty()) {
                    describe(call);
                }
            }
        }
    }

private:
    static constexpr int none = -1;

    struct Function {
        Dwarf_Die die;
        int caller; // the function it was inlined into, or none
    };

    int &function_of(const Call &call)
    {
        return function_of_[static_cast<size_t>(&call - calls_.data())];
    }

    // Notes the functions of calls.
    void visit(Dwarf_Die &scope, bool deep, int depth)
    {
        if (depth > max_depth) {
            return;
        }
        for_each_child(scope, [&](Dwarf_Die &child) {
            const int tag = dwarf_tag(&child);
            if (tag == DW_TAG_subprogram) {
                note(child, calls_, none, depth);
            }
            if (deep || tag == DW_TAG_namespace || tag == DW_TAG_module) {
                visit(child, deep, depth + 1);
            }
        });
    }

    void note(Dwarf_Die &die, std::span<Call> calls, int caller, int depth)
    {
        int function = none;
        for_each_range(die, [&](uint64_t start, uint64_t end) {
            const std::span<Call> inside = calls_within(calls, start, end);
            if (inside.empty()) {
                return;
            }
            if (function == none) {
                function = static_cast<int>(functions_.size());
                functions_.push_back({die, caller});
            }
            std::fill_n(&function_of(inside.front()), inside.size(), function);
            note_inlined(die, inside, function, depth + 1);
        });
    }

    void note_inlined(Dwarf_Die &scope, std::span<Call> calls, int function, int depth)
    {
        if (depth > max_depth) {
            return;
        }
        for_each_child(scope, [&](Dwarf_Die &child) {
            switch (dwarf_tag(&child)) {
            case DW_TAG_inlined_subroutine:
                note(child, calls, function, depth);
                break;
            case DW_TAG_lexical_block:
            case DW_TAG_try_block:
            case DW_TAG_catch_block:
            case DW_TAG_with_stmt:
                note_inlined(child, calls, function, depth + 1);
                break;
            default:
                break;
            }
        });
    }

    void describe(Call &call)
    {
        int function = function_of(call);
        Place place;
        Dwarf_Line *line = dwarf_getsrc_die(&unit_, call.address);
        int number = 0;
        if (line != nullptr && dwarf_lineno(line, &number) == 0) {
            place.file = file_name(dwarf_linesrc(line, nullptr, nullptr));
            place.line = static_cast<unsigned>(number);
        }
        if (function == none && line == nullptr) {
            return;
        }
        for (int caller = none; function != none; function = caller) {
            Function &at = functions_[static_cast<size_t>(function)];
            caller = at.caller;
            if (caller != none &&
                is_part_of_caller(at.die, functions_[static_cast<size_t>(caller)].die)) {
                continue;
            }
            place.function = names_.of(at.die);
            if (caller != none) {
                call.places.push_back(std::move(place));
                place = {{}, call_file(at.die), number_attribute(at.die, DW_AT_call_line)};
            }
        }
        call.places.push_back(std::move(place));
    }

    std::string call_file(Dwarf_Die &inlined)
    {
        if (files_ == nullptr && dwarf_getsrcfiles(&contents_, &files_, &file_count_) != 0) {
            return {};
        }
        const unsigned file = number_attribute(inlined, DW_AT_call_file);
        return file < file_count_ ? file_name(dwarf_filesrc(files_, file, nullptr, nullptr)) : "";
    }

    std::string file_name(const char *name) const
    {
        const std::string file = name != nullptr ? name : "";
        return !folder_.empty() && file.starts_with(folder_) ? file.substr(folder_.size()) : file;
    }

    Names &names_;
    Dwarf_Die unit_;
    Dwarf_Die contents_;
    std::string folder_;
    Dwarf_Files *files_ = nullptr;
    size_t file_count_ = 0;

    std::span<Call> calls_;
    std::vector<int> function_of_; // of each call, the innermost one; an index of functions_
    std::vector<Function> functions_;
};

} // namespace

std::string readable_name(const char *linkage_name)
{
    std::string name = linkage_name;
    // "@" begins a version. Names that begin with a point are the compiler's own labels.
    const size_t end = name.find_first_of(".@", 1);
    if (end != std::string::npos) {
        name.erase(end);
    }
    if (name.starts_with("_Z")) {
        int status = 0;
        const std::unique_ptr<char, decltype(&std::free)> text(
            abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), std::free);
        return text != nullptr ? text.get() : name;
    }
    return name;
}

DebugFacts find_places(Dwarf *dwarf, std::span<Call> calls)
{
    DebugFacts facts;
    Names names;
    Dwarf_CU *cu = nullptr;
    Dwarf_Half version = 0;
    uint8_t type = 0;
    Dwarf_Die die;
    Dwarf_Die split;
    while (dwarf_get_units(dwarf, cu, &cu, &version, &type, &die, &split) == 0) {
        if (type != DW_UT_compile && type != DW_UT_skeleton) {
            continue; // types, and parts that units share
        }
        facts.has_units = true;
        const bool is_split = type == DW_UT_skeleton && dwarf_tag(&split) != DW_TAG_invalid;
        std::vector<std::span<Call>> own;
        std::span<Call> hull = calls;
        uint64_t first = UINT64_MAX;
        uint64_t last = 0;
        for_each_range(die, [&](uint64_t start, uint64_t end) {
            first = std::min(first, start);
            last = std::max(last, end);
            own.push_back(calls_within(calls, start, end));
        });
        std::erase_if(own, [](std::span<Call> part) { return part.empty(); });
        // Some compilers give units no ranges.
        if (last != 0) {
            hull = calls_within(calls, first, last);
        }
        const bool has_calls = last == 0 || !own.empty();
        if (has_calls) {
            Unit(names, die, is_split ? split : die).resolve(hull, own);
        }
        facts.lacks_split_units |= !own.empty() && type == DW_UT_skeleton && !is_split;
    }
    return facts;
}

} // namespace vektrace
