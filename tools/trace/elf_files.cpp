// SPDX-License-Identifier: MIT
#include "elf_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <elfutils/libdwelf.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gelf.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vektrace {

namespace {

class ElfFile {
public:
    // A recording can name anything: a pipe must not be waited for, nor a device be read.
    explicit ElfFile(const std::string &path)
        : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
        error_ = fd_ < 0 ? errno : 0;
        struct stat status = {};
        if (fd_ >= 0 && fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)) {
            elf_version(EV_CURRENT);
            elf_ = elf_begin(fd_, ELF_C_READ_MMAP, nullptr);
        }
    }
    ElfFile(const ElfFile &) = delete;
    ElfFile &operator=(const ElfFile &) = delete;
    ~ElfFile()
    {
        elf_end(elf_);
        if (fd_ >= 0) {
            close(fd_);
        }
    }

    bool exists() const { return error_ != ENOENT && error_ != ENOTDIR; }
    int error() const { return error_; }
    bool is_elf() const { return elf_ != nullptr && elf_kind(elf_) == ELF_K_ELF; }

    std::string build_id() const
    {
        const void *bytes = nullptr;
        const ssize_t size = is_elf() ? dwelf_elf_gnu_build_id(elf_, &bytes) : 0;
        const auto *first = static_cast<const unsigned char *>(bytes);
        return size > 0 ? fmt::format("{:02x}", fmt::join(first, first + size, "")) : "";
    }

    std::string debug_link() const
    {
        GElf_Word crc = 0;
        const char *name = is_elf() ? dwelf_elf_gnu_debuglink(elf_, &crc) : nullptr;
        return name != nullptr ? name : "";
    }

    bool has_debug_information() const
    {
        size_t names = 0;
        if (!is_elf() || elf_getshdrstrndx(elf_, &names) != 0) {
            return false;
        }
        for (Elf_Scn *section = nullptr; (section = elf_nextscn(elf_, section)) != nullptr;) {
            GElf_Shdr header;
            if (gelf_getshdr(section, &header) != nullptr) {
                const char *name = elf_strptr(elf_, names, header.sh_name);
                if (name != nullptr && (std::strcmp(name, ".debug_info") == 0 ||
                                        std::strcmp(name, ".zdebug_info") == 0)) {
                    return true;
                }
            }
        }
        return false;
    }

private:
    int fd_;
    int error_;
    Elf *elf_ = nullptr;
};

// Tries files in their order, and remembers what was wrong with those that exist.
class Search {
public:
    explicit Search(const std::string &wanted) : wanted_(wanted) {}

    // Returns the first file that fits; if `debug`, the first one with debug information.
    std::string first(const std::vector<std::string> &paths, bool debug)
    {
        for (const std::string &path : paths) {
            const ElfFile file(path);
            if (file.exists() && fits(path, file) && (!debug || file.has_debug_information())) {
                return path;
            }
        }
        return {};
    }

    std::string refused() const { return fmt::format("{}", fmt::join(refused_, ", ")); }

private:
    bool fits(const std::string &path, const ElfFile &file)
    {
        std::string reason;
        if (file.error() != 0) {
            reason = fmt::format("{} cannot be read ({})", path, std::strerror(file.error()));
        } else if (!file.is_elf()) {
            reason = fmt::format("{} is no ELF file", path);
        } else if (!wanted_.empty()) {
            const std::string found = file.build_id();
            if (found.empty()) {
                reason = fmt::format("{} has no build-id", path);
            } else if (found != wanted_) {
                reason = fmt::format("{} has build-id {}", path, found);
            }
        }
        if (!reason.empty() &&
            std::find(refused_.begin(), refused_.end(), reason) == refused_.end()) {
            refused_.push_back(reason);
        }
        return reason.empty();
    }

    std::string wanted_;
    std::vector<std::string> refused_;
};

std::string folder_of(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

std::vector<std::string> debug_folders(const SymbolOptions &options)
{
    std::vector<std::string> folders = options.debug_dirs;
    folders.push_back(options.sysroot + "/usr/lib/debug");
    if (!options.sysroot.empty()) {
        folders.emplace_back("/usr/lib/debug");
    }
    return folders;
}

// On many systems /bin and /lib lead to /usr/bin and /usr/lib, on the device or in its copy here.
std::vector<std::string> elf_candidates(const std::string &path, const SymbolOptions &options,
                                        const std::string &exe)
{
    std::vector<std::string> paths;
    if (!exe.empty()) {
        paths.push_back(exe);
    }
    paths.push_back(options.sysroot + path);
    if (!options.sysroot.empty()) {
        paths.push_back(options.sysroot +
                        (path.starts_with("/usr/") ? path.substr(4) : "/usr" + path));
    }
    return paths;
}

// `link` is the name of the debug file, if it is known.
std::vector<std::string> debug_candidates(const std::string &path, const std::string &elf,
                                          const std::string &link, const std::string &build_id,
                                          const SymbolOptions &options)
{
    std::vector<std::string> paths;
    if (!elf.empty() && !link.empty()) {
        paths.push_back(folder_of(elf) + "/" + link);
        paths.push_back(folder_of(elf) + "/.debug/" + link);
    }
    const std::string last(last_name(path));
    std::vector<std::string> names = {last + ".debug", last};
    if (!link.empty() && link != names[0]) {
        names.insert(names.begin(), link);
    }
    for (const std::string &folder : debug_folders(options)) {
        if (build_id.size() > 2) {
            paths.push_back(fmt::format("{}/.build-id/{}/{}.debug", folder, build_id.substr(0, 2),
                                        build_id.substr(2)));
        }
        for (const std::string &name : names) {
            paths.push_back(fmt::format("{}{}/{}", folder, folder_of(path), name));
            paths.push_back(fmt::format("{}/{}", folder, name));
        }
    }
    return paths;
}

std::string not_found(const Module &module, const std::string &path, const std::string &refused)
{
    std::string text = refused.empty() ? "no file " + path : refused;
    if (!module.build_id.empty()) {
        text += (refused.empty() ? "; wanted is build-id " : ", wanted is ") + module.build_id;
    }
    return text;
}

} // namespace

std::string build_id_of(const std::string &path)
{
    return ElfFile(path).build_id();
}

ModuleFiles find_files(const Module &module, const SymbolOptions &options, const std::string &exe)
{
    ModuleFiles files;
    Search search(module.build_id);
    files.elf = search.first(elf_candidates(module.path, options, exe), false);
    if (files.elf.empty()) {
        const std::vector<std::string> others =
            debug_candidates(module.path, {}, {}, module.build_id, options);
        files.elf = search.first(others, true);
        if (files.elf.empty()) {
            files.elf = search.first(others, false);
        }
        if (files.elf.empty()) {
            files.problem = not_found(module, options.sysroot + module.path, search.refused());
            return files;
        }
    }
    const ElfFile elf(files.elf);
    files.build_id = elf.build_id();
    // Without a build-id, libdwfl compares the checksum that .gnu_debuglink has.
    if (!elf.has_debug_information() && !files.build_id.empty()) {
        Search debug_search(files.build_id);
        files.debug = debug_search.first(
            debug_candidates(module.path, files.elf, elf.debug_link(), files.build_id, options),
            true);
        files.problem = debug_search.refused();
    }
    return files;
}

} // namespace vektrace
