// SPDX-License-Identifier: MIT
// Where a process had its modules: from a recording, or from a copy of /proc/PID/maps.
#include "reader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <memory>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <gelf.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vektrace {

// ---- The map: modules never overlap ----

namespace {

bool ends_after(uint64_t address, const MappedModule &module)
{
    return address < module.end;
}

} // namespace

/** A module replaces those that overlap it: they must have gone, or it could not be there. */
void ModuleMap::add(const MappedModule &module)
{
    if (module.start >= module.end) {
        return;
    }
    const auto first = std::upper_bound(modules_.begin(), modules_.end(), module.start, ends_after);
    auto last = first;
    while (last != modules_.end() && last->start < module.end) {
        ++last;
    }
    modules_.insert(modules_.erase(first, last), module);
}

void ModuleMap::remove(uint64_t start)
{
    const auto found = std::upper_bound(modules_.begin(), modules_.end(), start, ends_after);
    if (found != modules_.end() && found->start == start) {
        modules_.erase(found);
    }
}

FrameId ModuleMap::frame(Stacks &stacks, uint64_t address) const
{
    const auto found = std::upper_bound(modules_.begin(), modules_.end(), address, ends_after);
    if (found == modules_.end() || address < found->start) {
        return stacks.frame({no_module, address});
    }
    return stacks.frame({found->module, address - found->bias});
}

// ---- Copies of /proc/PID/maps ----

namespace {

constexpr size_t largest_maps_file = size_t{64} << 20;
constexpr size_t maps_chunk = size_t{64} << 10;

/** A mapping of a file. */
struct Mapping {
    uint64_t start;
    uint64_t end;
    uint64_t offset; ///< in the file
    bool executable;
};

/** The mappings of one file. */
struct Group {
    std::string path;
    std::vector<Mapping> mappings;
};

bool read_hex(std::string_view text, uint64_t &value)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    return error == std::errc() && end == text.data() + text.size();
}

std::string_view take_word(std::string_view &line)
{
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    const std::string_view word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
    return word;
}

/** Reads "START-END PERMISSIONS OFFSET DEVICE INODE PATH"; anonymous memory has no path. Returns
 *  false if it is no such line. */
bool read_mapping(std::string_view line, Mapping &mapping, std::string_view &path)
{
    const std::string_view range = take_word(line);
    const std::string_view permissions = take_word(line);
    const std::string_view offset = take_word(line);
    const std::string_view device = take_word(line);
    const std::string_view inode = take_word(line);
    const size_t dash = std::min(range.find('-'), range.size() - 1);
    if (range.empty() || permissions.size() != 4 || device.empty() || inode.empty() ||
        !read_hex(range.substr(0, dash), mapping.start) ||
        !read_hex(range.substr(dash + 1), mapping.end) || !read_hex(offset, mapping.offset)) {
        return false;
    }
    mapping.executable = permissions[2] == 'x';
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    constexpr std::string_view deleted = " (deleted)";
    path = line.substr(0, line.size() - (line.ends_with(deleted) ? deleted.size() : 0));
    return mapping.start < mapping.end;
}

struct OpenFile {
    explicit OpenFile(const std::string &path)
        : fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
    }
    ~OpenFile()
    {
        if (fd >= 0) {
            close(fd);
        }
    }
    OpenFile(const OpenFile &) = delete;
    OpenFile &operator=(const OpenFile &) = delete;

    const int fd;
};

/** Finds out which bias puts the file's code where it is mapped, if the file is there. */
std::optional<uint64_t> bias_in_file(const std::string &file, const std::vector<Mapping> &mappings)
{
    constexpr uint64_t smallest_page = 4096;
    const OpenFile open_file(file);
    struct stat status = {};
    if (open_file.fd < 0 || fstat(open_file.fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return {};
    }
    elf_version(EV_CURRENT);
    const std::unique_ptr<Elf, decltype(&elf_end)> elf(elf_begin(open_file.fd, ELF_C_READ, nullptr),
                                                       elf_end);
    size_t count = 0;
    if (elf == nullptr || elf_getphdrnum(elf.get(), &count) != 0) {
        return {};
    }
    for (int i = 0; i < static_cast<int>(count); ++i) {
        GElf_Phdr segment;
        if (gelf_getphdr(elf.get(), i, &segment) == nullptr) {
            return {};
        }
        for (const Mapping &mapping : mappings) {
            const uint64_t length = mapping.end - mapping.start;
            const uint64_t bias =
                mapping.start - mapping.offset + segment.p_offset - segment.p_vaddr;
            if (mapping.executable && segment.p_type == PT_LOAD && (segment.p_flags & PF_X) != 0 &&
                mapping.offset < segment.p_offset + segment.p_filesz &&
                segment.p_offset < mapping.offset + length && bias % smallest_page == 0) {
                return bias;
            }
        }
    }
    return {};
}

/** The bias if the file is not there. */
uint64_t likely_bias(const Mapping &lowest)
{
    // Where linkers put programs that are not position-independent: their bias is 0. Shared objects
    // are never loaded there, position-independent programs only without address randomisation.
    constexpr std::array<uint64_t, 5> fixed = {0x8000, 0x10000, 0x400000, 0x8048000, 0x10000000};
    const uint64_t bias = lowest.start - lowest.offset;
    return std::find(fixed.begin(), fixed.end(), bias) != fixed.end() ? 0 : bias;
}

std::string read_whole(const std::string &path)
{
    Input input(path);
    std::string text;
    std::vector<char> chunk(maps_chunk);
    while (const size_t count = input.read(chunk)) {
        text.append(chunk.data(), count);
        if (text.size() > largest_maps_file) {
            throw InputError(input.name() + ": this is too long for a copy of /proc/PID/maps");
        }
    }
    return text;
}

/** A group are mappings with nothing but unnamed memory between them: a file that is mapped again
 *  elsewhere, for its data, does not stretch the module. Throws InputError. */
std::vector<Group> read_groups(const std::string &name, std::string_view text)
{
    std::vector<Group> groups;
    std::string why = "no line names a program or a shared object";
    bool has_foreign = false;
    bool is_open = false; // whether the next mapping may belong to the last group
    for (unsigned number = 1; !text.empty(); ++number) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        line.remove_suffix(line.ends_with('\r'));
        Mapping mapping;
        std::string_view path;
        if (!read_mapping(line, mapping, path)) {
            if (!std::exchange(has_foreign, true)) {
                why = fmt::format("line {} is no line of /proc/PID/maps: \"{}\"", number,
                                  printable(line));
            }
        } else if (path.starts_with('/')) {
            if (!is_open || groups.back().path != path) {
                groups.push_back({std::string(path), {}});
            }
            groups.back().mappings.push_back(mapping);
            is_open = true;
        } else if (!path.empty() && !path.starts_with("[anon:")) {
            is_open = false; // "[heap]", "[stack]"
        }
    }
    std::erase_if(groups, [](const Group &group) {
        return std::none_of(group.mappings.begin(), group.mappings.end(),
                            [](const Mapping &mapping) { return mapping.executable; });
    });
    if (groups.empty()) {
        throw InputError(name + ": " + why);
    }
    return groups;
}

} // namespace

ModuleMap read_modules(const std::string &path, const std::string &sysroot, Stacks &stacks)
{
    ModuleMap map;
    for (const Group &group : read_groups(path, read_whole(path))) {
        const Mapping &first = group.mappings.front(); // the kernel sorts them by address
        const auto bias = bias_in_file(sysroot + group.path, group.mappings);
        map.add({stacks.module({group.path, {}}), first.start, group.mappings.back().end,
                 bias ? *bias : likely_bias(first)});
    }
    return map;
}

} // namespace vektrace
