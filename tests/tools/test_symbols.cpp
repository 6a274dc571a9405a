// SPDX-License-Identifier: MIT
// Places in code that several compilers make of sample.cpp.
#include "symbols.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
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
    std::smatch match;
    unsigned number = 1;
    for (std::string line; std::getline(file, line); ++number) {
        if (std::regex_search(line, match, std::regex("// line: (\\w+)$"))) {
            lines[match[1]] = number;
        }
    }
    return lines;
}

class SymbolsTest : public testing::Test {
protected:
    ~SymbolsTest() override { fs::remove_all(folder_); }

    std::string path(const std::string &name) const { return folder_ + "/" + name; }

    bool run(const std::string &command) const
    {
        return std::system(("cd " + folder_ + " && (" + command + ") >>output 2>&1").c_str()) == 0;
    }

    void compile(const std::string &compiler, const std::string &name = "sample.so",
                 const std::string &build_id = "sha1")
    {
        ASSERT_TRUE(run(compiler + " -O2 -fPIC -nostdlib -fvisibility=hidden -Wl,--build-id=" +
                        build_id + " -o " + name + " " + source))
            << read_file(path("output"));
    }

    // Return addresses by the names of their marks. The cold part of plain() ends with a call; not
    // every compiler makes a part of it.
    std::map<std::string, uint64_t> marks(const std::string &name, bool is_thumb = false)
    {
        EXPECT_TRUE(run("readelf -sW " + name + " >symbols"));
        std::map<std::string, uint64_t> found;
        std::ifstream file(path("symbols"));
        const std::regex symbol(": ([0-9a-f]+) .* mark_(\\w+)$");
        const std::regex cold(": ([0-9a-f]+) +([0-9]+) .* plain.cold$");
        std::smatch match;
        for (std::string line; std::getline(file, line);) {
            if (std::regex_search(line, match, symbol)) {
                found[match[2]] = std::stoull(match[1], nullptr, 16) + is_thumb;
            } else if (std::regex_search(line, match, cold)) {
                found["cold"] = std::stoull(match[1], nullptr, 16) + std::stoull(match[2]);
            }
        }
        return found;
    }

    char pattern_[20] = "/tmp/symbols.XXXXXX";
    const std::string folder_ = mkdtemp(pattern_);
};

// ---- Compilers and formats ----

struct Format {
    const char *name;
    const char *compiler;
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
     "arm-linux-gnueabi-g++ -g -march=armv8-a -mfpu=neon-fp-armv8 -mfloat-abi=softfp -mthumb"},
};
INSTANTIATE_TEST_SUITE_P(Symbols, FormatTest, testing::ValuesIn(formats),
                         [](const auto &row) { return row.param.name; });

TEST_P(FormatTest, FindsFunctionsAndLines)
{
    const std::string compiler = GetParam().compiler;
    if (!run("command -v " + compiler.substr(0, compiler.find(' ')))) {
        GTEST_SKIP() << "no such compiler";
    }
    ASSERT_NO_FATAL_FAILURE(compile(compiler + " -shared"));
    using Functions = std::vector<std::pair<const char *, const char *>>; // and marks of lines
    const std::map<std::string, Functions> expected = {
        {"inlined",
         {{R"(\(anonymous namespace\)::inner(\(int\))?)", "inner"},
          {R"(\(anonymous namespace\)::outer(\(int\))?)", "outer"},
          {R"(\(anonymous namespace\)::hidden(\(int\))?)", "hidden"}}},
        {"member", {{R"(sample::Box<int>::get\(int\))", "member"}}},
        {"local", {{R"(sample::run\(int\)::Local::step(\(int\))?)", "local"}}},
        {"lambda", {{R"(sample::run\(int\)::.*::operator\(\)(\(int\) const)?)", "lambda"}}},
        {"cold", {{"plain", "cold"}}},
    };
    const auto addresses = marks("sample.so", GetParam().name == std::string("Thumb"));
    ASSERT_GE(addresses.size(), expected.size() - 1);
    Stacks stacks;
    const ModuleId module = stacks.module({path("sample.so"), build_id_of(path("sample.so"))});
    for (const auto &[mark, address] : addresses) { stacks.frame({module, address}); }
    const Symbols symbols = resolve(stacks, {});
    EXPECT_EQ(symbols.problems, std::vector<ModuleProblem>());
    auto place = symbols.places.begin();
    auto lines = marked_lines();
    for (const auto &[mark, address] : addresses) {
        const Functions &wanted = expected.at(mark);
        const Places &places = *place++;
        ASSERT_EQ(places.size(), wanted.size()) << mark;
        for (size_t i = 0; i < wanted.size(); ++i) {
            EXPECT_TRUE(std::regex_match(places[i].function, std::regex(wanted[i].first)))
                << places[i].function << " is not " << wanted[i].first;
            EXPECT_EQ(places[i].file, source) << mark;
            EXPECT_EQ(places[i].line, lines[wanted[i].second]) << mark;
        }
    }
}

// ---- Files ----

class FilesTest : public SymbolsTest {
protected:
    void SetUp() override
    {
        compile("g++ -shared -g");
        build_id_ = build_id_of(path("sample.so"));
        ASSERT_TRUE(
            run("objcopy --only-keep-debug sample.so sample.so.dbg && "
                "objcopy --strip-all --add-gnu-debuglink=sample.so.dbg sample.so stripped"));
        compile("g++ -shared -g", "other.so", "0x12345678");
        std::ofstream(path("text")) << "no ELF file";
        addresses_ = marks("sample.so");
    }

    Symbols resolve_mark(const std::string &mark, const Module &module,
                         const SymbolOptions &options)
    {
        Stacks stacks;
        const ModuleId id = module.path.empty() ? no_module : stacks.module(module);
        stacks.frame({id, addresses_.at(mark)});
        return resolve(stacks, options);
    }

    // A text with the build-id and the folder put in.
    std::string filled(std::string text) const
    {
        text = std::regex_replace(text, std::regex("WANTED"), build_id_);
        return std::regex_replace(text, std::regex("DIR"), folder_);
    }

    std::string build_id_;
    std::map<std::string, uint64_t> addresses_;
};

TEST_F(FilesTest, AreFoundByNameAndBuildId)
{
    const std::string debug_by_id =
        "debug/.build-id/" + build_id_.substr(0, 2) + "/" + build_id_.substr(2) + ".debug";
    const std::string file = "root/lib/sample.so", link = "debug/sample.so.dbg";
    const struct {
        std::vector<std::pair<std::string, std::string>> copies;
        const char *problem; // none: files and lines are known
    } rows[] = {
        {{{"sample.so", file}}, ""},
        {{{"sample.so", "root/usr/lib/sample.so"}}, ""},
        {{{"stripped", file}, {"sample.so.dbg", link}}, ""},
        {{{"stripped", file}, {"sample.so.dbg", "debug/lib/sample.so.dbg"}}, ""},
        {{{"stripped", file}, {"sample.so.dbg", debug_by_id}}, ""},
        {{{"stripped", file}, {"sample.so", "debug/sample.so"}}, ""},
        {{{"sample.so.dbg", debug_by_id}}, ""},
        {{{"sample.so", "debug/sample.so"}}, ""},
        {{{"other.so", file}, {"sample.so", "debug/sample.so"}}, ""},
        {{}, "no file DIR/root/lib/sample.so; wanted is build-id WANTED"},
        {{{"other.so", file}}, "DIR/root/lib/sample.so has build-id 12345678, wanted is WANTED"},
        {{{"text", file}}, "DIR/root/lib/sample.so is no ELF file, wanted is WANTED"},
        {{{"stripped", file}},
         "DIR/root/lib/sample.so has no debug information (build-id WANTED): files and lines are "
         "unknown"},
        {{{"stripped", file}, {"other.so", link}},
         "DIR/root/lib/sample.so has no debug information (build-id WANTED): files and lines are "
         "unknown; DIR/debug/sample.so.dbg has build-id 12345678"},
    };
    for (const auto &row : rows) {
        fs::remove_all(path("root"));
        fs::remove_all(path("debug"));
        std::string files;
        for (const auto &copy : row.copies) {
            fs::create_directories(fs::path(path(copy.second)).parent_path());
            fs::copy(path(copy.first), path(copy.second));
            files += copy.first + " as " + copy.second + " ";
        }
        const Symbols symbols = resolve_mark("inlined", {"/lib/sample.so", build_id_},
                                             {path("root"), {path("debug")}, {}});
        const std::string problem = symbols.problems.empty() ? "" : symbols.problems[0].text;
        EXPECT_EQ(problem, filled(row.problem)) << files;
        EXPECT_EQ(symbols.places[0].size(), problem.empty() ? 3U : 1U) << files;
        EXPECT_EQ(symbols.places[0][0].file, problem.empty() ? source : "") << files;
    }
}

TEST_F(FilesTest, TheProgramMayBeElsewhere)
{
    fs::copy(path("sample.so"), path("program"));
    const SymbolOptions options = {path("root"), {}, path("program")};
    for (const Module &module : {Module{"/bin/daemon", build_id_}, {"/bin/daemon", {}}, {}}) {
        EXPECT_EQ(resolve_mark("inlined", module, options).places[0].size(), 3U);
    }
    EXPECT_EQ(resolve_mark("inlined", {"/bin/daemon", "abcd"}, options).problems[0].text,
              filled("DIR/program has build-id WANTED, wanted is abcd"));
    EXPECT_EQ(resolve_mark("inlined", {"/lib/libother.so", {}}, options).problems[0].text,
              filled("no file DIR/root/lib/libother.so"));
}

TEST_F(FilesTest, AddressesWithoutModulesFitAProgramThatCannotBeMoved)
{
    compile("g++ -g -no-pie -Wl,-e,plain -Wl,--unresolved-symbols=ignore-all", "fixed");
    addresses_ = marks("fixed");
    addresses_["elsewhere"] = 0x7f0000001000;
    EXPECT_EQ(resolve_mark("inlined", {}, {{}, {}, path("fixed")}).places[0].size(), 3U);
    const std::string maps = ": give a copy of the process's /proc/PID/maps (--modules)";
    const std::pair<std::string, std::string> rows[] = {
        {"", "the addresses belong to no known module" + maps +
                 ", or the program, if it is not "
                 "position-independent (--exe)"},
        {path("fixed"), "1 of 1 addresses are not in DIR/fixed" + maps},
        {path("sample.so"),
         "1 of 1 addresses are not in DIR/sample.so, which may be loaded anywhere" + maps},
    };
    for (const auto &[exe, problem] : rows) {
        const Symbols symbols = resolve_mark("elsewhere", {}, {{}, {}, exe});
        ASSERT_EQ(symbols.problems.size(), 1U) << exe;
        EXPECT_EQ(symbols.problems[0].text, filled(problem));
        EXPECT_EQ(symbols.places[0], Places(1));
    }
}

TEST_F(FilesTest, LessDebugInformationGivesLess)
{
    compile("g++ -shared", "plain.so");
    const auto places = [&](const char *mark, const std::string &file) {
        addresses_ = marks(file);
        return resolve_mark(mark, {path(file), {}}, {}).places[0];
    };
    EXPECT_EQ(places("cold", "plain.so"), (Places{{"plain", "", 0}}));
    const std::string hidden = "(anonymous namespace)::hidden(int)";
    EXPECT_EQ(places("inlined", "plain.so"), (Places{{hidden, "", 0}}));

    compile("g++ -shared -g -gsplit-dwarf -dumpdir ./", "split.so");
    ASSERT_TRUE(run("rm *.dwo"));
    EXPECT_EQ(places("inlined", "split.so"), (Places{{hidden, source, marked_lines()["inner"]}}));
    Symbols symbols = resolve_mark("inlined", {path("split.so"), {}}, {});
    ASSERT_EQ(symbols.problems.size(), 1U);
    EXPECT_EQ(symbols.problems[0].text, filled("DIR/split.so has debug information in .dwo files, "
                                               "which are missing: inlined functions are unknown"));

    symbols = resolve_mark("inlined", {"[vdso]", "abcd"}, {});
    EXPECT_EQ(symbols.places[0], Places(1));
    EXPECT_TRUE(symbols.problems.empty());
}

TEST_F(FilesTest, NestedFunctionsOfCAreFound)
{
    std::ofstream(path("nested.c"))
        << "int use(int (*f)(int));\n"
           "int outer(int x) {\n"
           "    __attribute__((noinline)) int nested(int y) {\n"
           "        __asm__(\"nop; .globl mark_nested; mark_nested:\");\n"
           "        return x + y; }\n"
           "    return use(nested); }\n";
    ASSERT_TRUE(run("gcc -g -O2 -fPIC -shared -nostdlib -o nested.so nested.c"));
    addresses_ = marks("nested.so");
    const Symbols symbols = resolve_mark("nested", {path("nested.so"), {}}, {});
    EXPECT_EQ(symbols.places[0], (Places{{"outer::nested", path("nested.c"), 4}}));
}

TEST_F(FilesTest, RelativeNamesStayRelative)
{
    ASSERT_TRUE(run("mkdir build"));
    compile("cd build && g++ -shared -g -ffile-prefix-map=" + folder_ +
                "/= -ffile-prefix-map=" + fs::path(source).parent_path().string() + "/=",
            "../mapped.so");
    addresses_ = marks("mapped.so");
    const Symbols symbols = resolve_mark("inlined", {path("mapped.so"), {}}, {});
    for (const Place &place : symbols.places[0]) {
        EXPECT_EQ(place.file, "sample.cpp") << place.function;
    }
}

// Each damaged file is used; what comes out does not matter.
TEST_F(FilesTest, DamageIsHarmless)
{
    const std::string whole = read_file(path("sample.so"));
    std::mt19937 random;
    for (int i = 0; i < 300; ++i) {
        std::string bytes = whole;
        if (i % 3 == 0) { bytes.resize(random() % bytes.size()); }
        // In the header, or after it.
        const size_t start = i % 3 == 1 ? 0 : whole.size() / 8;
        const size_t size = i % 3 == 1 ? 64 : whole.size() - start;
        for (int j = 0; j < 20 && i % 3 != 0; ++j) {
            bytes[start + random() % size] = static_cast<char>(random());
        }
        std::ofstream(path("damaged.so"), std::ios::binary) << bytes;
        for (const auto &[mark, address] : addresses_) {
            ASSERT_EQ(resolve_mark(mark, {path("damaged.so"), {}}, {}).places.size(), 1U);
        }
    }
}

TEST(ModuleTest, HasAShortName)
{
    Stacks stacks;
    const ModuleId id = stacks.module({"/usr/lib/libveklib.so.1.0.0", {}});
    EXPECT_EQ(raw_place(stacks, stacks.frame({id, 0x1234})), "libveklib.so.1.0.0+0x1234");
    EXPECT_EQ(raw_place(stacks, stacks.frame({no_module, 0x1234})), "0x1234");
    EXPECT_FALSE(is_library({"/libveklib.so/app", {}}));
}

} // namespace
