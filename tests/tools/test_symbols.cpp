// SPDX-License-Identifier: MIT
// Places in code that several compilers make of sample.cpp.
#include "symbols.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

#include <gtest/gtest.h>

#include "elf_files.h"

namespace {

using namespace vektrace;
namespace fs = std::filesystem;

const std::string source = SAMPLE;

std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::map<std::string, unsigned> marked_lines()
{
    std::map<std::string, unsigned> lines;
    std::ifstream file(source);
    const std::regex mark("// line: (\\w+)$");
    unsigned number = 0;
    std::smatch match;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (std::regex_search(line, match, mark)) { lines[match[1]] = number; }
    }
    return lines;
}

class SymbolsTest : public testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/symbols.XXXXXX";
        folder_ = mkdtemp(pattern);
    }
    void TearDown() override { fs::remove_all(folder_); }

    std::string path(const std::string &name) const { return folder_ + "/" + name; }

    bool run(const std::string &command) const
    {
        return std::system(("cd " + folder_ + " && (" + command + ") >>output 2>&1").c_str()) == 0;
    }

    void compile(const std::string &compiler, const std::string &name = "sample.so")
    {
        fs::create_directories(fs::path(path(name)).parent_path());
        ASSERT_TRUE(run(compiler + " -O2 -fPIC -shared -nostdlib -fvisibility=hidden " +
                        "-Wl,--build-id -o " + name + " " + source))
            << read_file(path("output"));
    }

    // Return addresses by the names of their marks.
    std::map<std::string, uint64_t> marks(const std::string &name, bool is_thumb = false)
    {
        EXPECT_TRUE(run("readelf -sW " + name + " >symbols"));
        std::map<std::string, uint64_t> found;
        std::ifstream file(path("symbols"));
        const std::regex symbol(": ([0-9a-f]+) .* mark_(\\w+)$");
        std::smatch match;
        for (std::string line; std::getline(file, line);) {
            if (std::regex_search(line, match, symbol)) {
                found[match[2]] = std::stoull(match[1], nullptr, 16) + is_thumb;
            }
        }
        return found;
    }

    std::string folder_;
};

// ---- Compilers and formats ----

struct Format {
    const char *name;
    const char *compiler;
    bool is_thumb = false;
};

void PrintTo(const Format &format, std::ostream *stream) { *stream << format.name; }

class FormatTest : public SymbolsTest, public testing::WithParamInterface<Format> {};

const Format formats[] = {
    {"Dwarf5", "g++ -g -gdwarf-5"},
    {"Dwarf4", "g++ -g -gdwarf-4"},
    {"Compressed", "g++ -g -gz"},
    {"TypeUnits", "g++ -g -gdwarf-4 -fdebug-types-section"},
    {"LinkTime", "g++ -g -flto"},
    {"Sections", "g++ -g -ffunction-sections"},
    {"Split", "g++ -g -gsplit-dwarf -dumpdir ./"},
    {"Clang", "clang++ -g"},
    {"ClangDwarf4", "clang++ -g -gdwarf-4"},
    {"Arm", "arm-linux-gnueabi-g++ -g -marm"},
    {"Thumb",
     "arm-linux-gnueabi-g++ -g -march=armv8-a -mfpu=neon-fp-armv8 -mfloat-abi=softfp -mthumb",
     true},
};
INSTANTIATE_TEST_SUITE_P(Symbols, FormatTest, testing::ValuesIn(formats),
                         [](const auto &row) { return row.param.name; });

TEST_P(FormatTest, FindsFunctionsAndLines)
{
    const std::string compiler = GetParam().compiler;
    if (!run("command -v " + compiler.substr(0, compiler.find(' ')))) {
        GTEST_SKIP() << "no such compiler";
    }
    ASSERT_NO_FATAL_FAILURE(compile(compiler));
    const std::map<std::string, std::vector<std::pair<const char *, const char *>>> expected = {
        {"inlined",
         {{R"(\(anonymous namespace\)::inner(\(int\))?)", "inner"},
          {R"(\(anonymous namespace\)::outer(\(int\))?)", "outer"},
          {R"(\(anonymous namespace\)::hidden(\(int\))?)", "hidden"}}},
        {"member", {{R"(sample::Box<int>::get\(int\))", "member"}}},
        {"local", {{R"(sample::run\(int\)::Local::step(\(int\))?)", "local"}}},
        {"lambda", {{R"(sample::run\(int\)::.*::operator\(\)(\(int\) const)?)", "lambda"}}},
        {"cold", {{"plain", "cold"}}},
    };
    const auto addresses = marks("sample.so", GetParam().is_thumb);
    ASSERT_EQ(addresses.size(), expected.size());
    Stacks stacks;
    const ModuleId module = stacks.module({path("sample.so"), build_id_of(path("sample.so"))});
    std::map<std::string, FrameId> frames;
    for (const auto &[mark, address] : addresses) {
        frames[mark] = stacks.frame({module, address});
    }

    const Symbols symbols = resolve(stacks, {});

    EXPECT_EQ(symbols.problems, std::vector<ModuleProblem>());
    auto lines = marked_lines();
    for (const auto &[mark, wanted] : expected) {
        const Places &places = symbols.places[frames[mark]];
        ASSERT_EQ(places.size(), wanted.size()) << mark;
        for (size_t i = 0; i < wanted.size(); ++i) {
            EXPECT_TRUE(std::regex_match(places[i].function, std::regex(wanted[i].first)))
                << places[i].function << " is not " << wanted[i].first;
            EXPECT_EQ(places[i].file, source) << mark;
            EXPECT_EQ(places[i].line, lines[wanted[i].second]) << mark;
        }
    }
}

} // namespace
