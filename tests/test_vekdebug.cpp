/* SPDX-License-Identifier: MIT */
/* Every case runs in a process of its own, in a folder of its own. */
#include <veklib/vekdebug.h>
#include <veklib/vekmemory.h>

#include "support/support.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vektest;

namespace {

const char *const net_flags[] = {"send", "receive", nullptr};
const char *const disk_flags[] = {"read", "send", nullptr};
constexpr const char *banner = "======== VekDebug Config file ============\n";

size_t open_descriptors()
{
    using std::filesystem::directory_iterator;
    return static_cast<size_t>(std::distance(directory_iterator("/proc/self/fd"), {}));
}

void write_file(const char *path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

/** Expects that streams of one name have one file. */
void expect_consistent_streams()
{
    std::map<std::string, FILE *> files;
    for (const char *const name : {"net", "disk"}) {
        const VekDebugDomain *const domain = vek_debug_get_domain(name);
        for (int i = 0; domain != nullptr && i < domain->flag_count; ++i) {
            const auto &[file_name, file] = domain->streams[i];
            if (file != nullptr) { EXPECT_EQ(files.emplace(file_name, file).first->second, file); }
        }
    }
}

/** Runs a case in an empty folder, in a process of its own. Expects that no block and no descriptor
 *  is left at its end. */
Ended in_folder(const std::function<void()> &body)
{
    std::string folder = testing::TempDir() + "/vekdebug-XXXXXX";
    EXPECT_NE(mkdtemp(folder.data()), nullptr);
    const auto ended = in_clean_child([&] {
        EXPECT_EQ(chdir(folder.c_str()), 0);
        const size_t before = open_descriptors();
        {
            Allocator allocator;
            body();
            vek_debug_finalize();
        }
        EXPECT_EQ(open_descriptors(), before);
    });
    std::filesystem::remove_all(folder);
    return ended;
}

/** A test whose body is such a case. */
#define FOLDER_TEST(suite, name)                                                                   \
    static void suite##_##name();                                                                  \
    TEST(suite, name) { in_folder(suite##_##name); }                                               \
    static void suite##_##name()

/** What a source prints if these are its settings, each as "key=value "; null: nothing. */
std::string printed(const char *settings)
{
    if (settings == nullptr) { return ""; }
    return banner + masked(settings, "([^=]+)=([^ ]*) ", "Key: $1\tValue:$2\n");
}

VekDebugDomain *add_net()
{
    EXPECT_EQ(vek_debug_add_domain("net", net_flags), 0);
    return vek_debug_get_domain("net");
}

std::string received; ///< what a print function was called with

void receive(const char *text, void *data)
{
    received += std::string(static_cast<const char *>(data)) + text;
}

void start(const char *environment)
{
    setenv("VEK_DEBUG_CONFIG", environment, 1);
    captured(1, [] { EXPECT_EQ(vek_debug_initialize(nullptr, nullptr), 0); });
}

VekDebugDomain *start_with_net(const char *environment)
{
    start(environment);
    return add_net();
}

int print_list_to_net(const char *format, va_list args)
{
    return vek_debug_vprint(vek_debug_get_domain("net"), 1, format, args), 0;
}

} // namespace

TEST(Debug, NothingHappensBeforeTheStart)
{
    const auto ended = in_folder([] {
        EXPECT_EQ(vek_debug_add_domain("net", net_flags), 0);
        EXPECT_EQ(vek_debug_get_domain("net"), nullptr);
        EXPECT_EQ(vek_debug_set_output_setting("send", "1"), 0);
        vek_debug_print(nullptr, 1, "lost\n");
        with_list<print_list_to_net>("lost\n");
        vek_debug_set_print_function(nullptr, receive, nullptr);
        EXPECT_EQ(vek_debug_is_enabled(nullptr, 1), 0);
        vek_debug_flush(nullptr, 1);
        vek_debug_enable(nullptr, 1);
        vek_debug_disable(nullptr, 1);
        vek_debug_finalize();
        vek_debug_set_autoflush(false);
        EXPECT_EQ(vek_debug_set_config("a", "b"), 0); // both work before the start
        setenv("VEK_DEBUG_CONFIG", "mainfile=m,mainfile=n,x", 1);
        EXPECT_EQ(vek_debug_reload_config(), 0);
        start("");
        EXPECT_EQ(vek_debug_initialize(nullptr, nullptr), 1);
        vek_debug_print(nullptr, 1, "new start\n"); // the old main file is forgotten
    });
    EXPECT_EQ(ended.out, printed("x=1 ") + "new start\n");
    EXPECT_EQ(
        without_lines(ended.err),
        "veklib/vekdebug.cpp:L: veklib/vekdebug.cpp:L:vek_debug_set_autoflush:vek_debug global "
        "has not been initialized\n\n"
        "veklib/vekdebug.cpp:L: veklib/vekdebug.cpp:L:vek_debug global already initialized\n");
}

TEST(Debug, EntriesAreReadByTheGrammar)
{
    const std::string long_comment = "a=1 #" + std::string(500, 'c') + "=d\nb=2";
    const struct {
        std::string file;
        const char *settings; ///< what is printed after the file
        const char *environment = "";
        const char *all_settings = nullptr; ///< what is printed after both
    } rows[] = {
        {"a = 1\nb\n", "a=1 b=1 "},
        {"a=\n b = \n", "b= "},
        {"x=y=z", "x=y=z "},
        {"=1\n  \n ==2\n\n\nc c = d\te\vf\n", "cc=def "},
        {"a=1\r2\r\nb=\r\nc\r\nd=\r", "a=12 c=1 "},
        {"a=1 # remark\nb=x#y\n#c=1\n# d\ne", "a=1 b=x e=1 "},
        {long_comment, "a=1 b=2 "},
        {std::string("a=1\0b\nc=2\0", 10), "a=1 c=2 "},
        {"a=1\na=2\nA=3\n", "a=2 A=3 "},
        {"\xff=\x80\xfe", "\xff=\x80\xfe "},
        {"autoflush=0\nmainfile=-", ""},
        {"# a comment alone is no source", nullptr},
        {"mainfile=main\nb=1\na\n", "b=1 a=1 ", "mainfile=other,c=-,autoflush,a=0", "b=1 a=0 c=- "},
    };
    for (const auto &row : rows) {
        const auto ended = in_folder([&] {
            write_file("debug.conf", row.file);
            setenv("VEK_DEBUG_CONFIG", row.environment, 1);
            EXPECT_EQ(vek_debug_initialize("debug.conf", nullptr), 0);
            EXPECT_STREQ(getenv("VEK_DEBUG_CONFIG"), row.environment);
        });
        EXPECT_EQ(ended.out, printed(row.settings) + printed(row.all_settings)) << row.file;
    }
}

TEST(Debug, TheFileIsFoundAlongThePath)
{
    const struct {
        const char *name;
        const char *path;
        const char *settings; ///< the name of the folder that the file is read from
    } rows[] = {
        {"debug.conf", "::one::two:", "one=1 "},
        {"debug.conf", "none:two", "two=1 "},
        {"debug.conf", "none", nullptr},
        {"debug.conf", nullptr, ".=1 "},
        {"debug.conf", "", nullptr},
        {"two/debug.conf", "one", "two=1 "},
        {nullptr, "one", nullptr},
    };
    for (const auto &row : rows) {
        const auto ended = in_folder([&] {
            for (const std::string folder : {".", "one", "two"}) {
                std::filesystem::create_directory(folder);
                write_file((folder + "/debug.conf").c_str(), folder);
            }
            EXPECT_EQ(vek_debug_initialize(row.name, row.path), 0);
        });
        EXPECT_EQ(ended.out, printed(row.settings));
    }
}

FOLDER_TEST(Debug, PrintingGoesWhereItShould)
{
    const std::string longer(2000, 'x');
    VekDebugDomain *const net = start_with_net("mainfile=first,mainfile=main,send=1,receive=file");
    const char *const texts[] = {"lost", longer.c_str(), "b", "c", "lost"};
    for (const uint32_t flag : {1u, 2u, 3u, 0u, 4u}) { // 3: the highest flag's stream; 4: none
        vek_debug_print(net, flag, "%s", texts[flag]);
    }
    vek_debug_enable(net, 4);
    vek_debug_print(net, 4, "lost");
    vek_debug_print(nullptr, 0, "d");
    EXPECT_EQ(content_of("file"), "bc");

    vek_debug_disable(net, 1);
    vek_debug_print(net, 1, "lost");
    with_list<print_list_to_net>("lost");
    EXPECT_EQ(vek_debug_is_enabled(net, 1), 0);
    EXPECT_EQ(vek_debug_is_enabled(net, 3), 1);
    int evaluated = 0;
    for (const uint32_t flag : {1u, 2u}) { VEK_DEBUG(net, flag, "%d", ++evaluated); }
    VekDebugDomain *volatile no_domain = nullptr;
    VEK_DEBUG(no_domain, 1, "%d", ++evaluated);
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(content_of("file"), "bc1");
    EXPECT_EQ(content_of("main"), longer + "d");
    vek_debug_enable(net, 1);
    EXPECT_EQ(vek_debug_is_enabled(net, 1), 1);
}

FOLDER_TEST(Debug, TextIsHeldBackUntilItMustNotBe)
{
    VekDebugDomain *const net =
        start_with_net("mainfile=main,send=a,receive=file,read=b,autoflush=0");
    vek_debug_print(net, 2, "held");
    for (const uint32_t other : {0u, 1u, 4u}) { vek_debug_flush(net, other); }
    EXPECT_EQ(content_of("file"), "");
    vek_debug_flush(net, 2);
    EXPECT_EQ(content_of("file"), "held");
    vek_debug_print(net, 2, " more");
    vek_debug_print(nullptr, 0, "main text");
    vek_debug_add_domain("disk", disk_flags); // this opens a file
    EXPECT_EQ(content_of("file"), "held more");
    EXPECT_EQ(content_of("main"), "main text");
    vek_debug_set_autoflush(true);
    vek_debug_print(net, 2, ".");
    EXPECT_EQ(content_of("file"), "held more.");
}

FOLDER_TEST(Debug, PrintFunctionsTakeTheTextInstead)
{
    const std::string longer(2000, 'x');
    char all[] = "all:";
    char own[] = "own:";
    VekDebugDomain *const net = start_with_net("mainfile=main,receive");
    vek_debug_set_print_function(nullptr, receive, all);
    vek_debug_print(net, 2, "1 ");
    vek_debug_print(nullptr, 0, "%s", "");
    vek_debug_set_print_function(net, receive, own);
    vek_debug_print(net, 2, "lost %lc", wint_t{0x7fffffff}); // cannot be converted
    vek_debug_print(net, 2, "%s", longer.c_str());
    EXPECT_EQ(received, "all:1 all:own:" + longer.substr(0, 1023));
    vek_debug_set_print_function(net, nullptr, own);
    EXPECT_EQ(net->print_data, nullptr);
    vek_debug_set_print_function(nullptr, nullptr, all);
    vek_debug_print(nullptr, 0, "d");
    vek_debug_set_print_function(nullptr, receive, all);
    vek_debug_finalize();
    start("mainfile=again");
    vek_debug_print(nullptr, 0, "e"); // the stop has removed the function
    EXPECT_EQ(content_of("main") + content_of("again"), "de");
}

TEST(Debug, WithoutSettingsOnlyPrintFunctionsGetMessages)
{
    const auto ended = in_folder([] {
        EXPECT_EQ(vek_debug_initialize("missing", nullptr), 0);
        VekDebugDomain *const net = add_net();
        vek_debug_enable(net, 1);
        vek_debug_print(net, 1, "lost");
        Allocator::fail_nth(1);
        EXPECT_EQ(vek_debug_set_output_setting("receive", "1"), 2);
        EXPECT_EQ(vek_debug_set_output_setting("receive", "1"), 0);
        vek_debug_print(net, 1, "cleared by the change");
        vek_debug_print(net, 2, "standard output\n");
        vek_debug_print(nullptr, 0, "too\n");
    });
    EXPECT_EQ(ended.out, "standard output\ntoo\n");
}

FOLDER_TEST(Debug, RegistersOnce)
{
    VekDebugDomain *const net = start_with_net("x");
    EXPECT_EQ(vek_debug_add_domain("net", disk_flags), 0);
    EXPECT_EQ(vek_debug_get_domain("net")->flag_names, net_flags);
    EXPECT_EQ(vek_debug_get_domain("net"), net);
    EXPECT_EQ(vek_debug_get_domain("disk"), nullptr);
    EXPECT_EQ(vek_debug_get_domain(nullptr), nullptr);
    static const char *const none[] = {nullptr};
    EXPECT_EQ(vek_debug_add_domain("empty", none), 0);
    EXPECT_EQ(vek_debug_get_domain("empty")->flag_count, 0);
    vek_debug_print(vek_debug_get_domain("empty"), 1, "lost");
    EXPECT_FAILS("0", vek_debug_add_domain(nullptr, net_flags), 1);
    EXPECT_FAILS("0", vek_debug_add_domain("disk", nullptr), 1);
    EXPECT_FAILS("name != NULL", vek_debug_set_output_setting(nullptr, "1"), 1);
    EXPECT_FAILS("value != NULL", vek_debug_set_output_setting("send", nullptr), 1);
}

FOLDER_TEST(Debug, MoreFlagsThanBits)
{
    static const char *names[35] = {};
    std::fill(names, names + 31, "f");
    names[31] = "f31";
    names[32] = "f32";
    names[33] = "f33";
    start("f31=last,f32=1,f33=beyond");
    expect_warnings({{"_vek_debug_set_filestream", "flag"}},
                    [] { vek_debug_add_domain("many", names); });
    const VekDebugDomain *const many = vek_debug_get_domain("many");
    EXPECT_EQ(many->flag_count, 34);
    EXPECT_EQ(many->enabled, 0x80000000u);
    vek_debug_print(many, 0x80000000u, "x");
    EXPECT_EQ(content_of("last"), "x");
}

FOLDER_TEST(Debug, FilesAreSharedByName)
{
    start("mainfile=main,send=shared,receive=shared,read=STDOUT");
    const size_t before = open_descriptors();
    VekDebugDomain *const net = add_net(); // its flags share files before it is registered
    EXPECT_EQ(net->streams[0].file, net->streams[1].file);
    EXPECT_NE(net->streams[0].name, net->streams[1].name);
    EXPECT_EQ(open_descriptors(), before + 1);
    vek_debug_add_domain("disk", disk_flags);
    VekDebugDomain *const disk = vek_debug_get_domain("disk");
    EXPECT_EQ(disk->streams[0].file, stdout); // the name STDOUT means standard output
    EXPECT_EQ(disk->streams[1].file, net->streams[0].file);
    expect_consistent_streams();

    vek_debug_print(net, 1, "a");
    vek_debug_set_output_setting("receive", "alone"); // the other flags keep the stream
    vek_debug_print(net, 1, "b");
    vek_debug_print(net, 2, "c");
    EXPECT_EQ(content_of("shared"), "ab");
    vek_debug_set_output_setting("x", "y"); // applies all: a file of one flag is emptied
    EXPECT_EQ(content_of("alone"), "");
    EXPECT_EQ(content_of("shared"), "ab");
    vek_debug_set_output_setting("send", "-");
    vek_debug_set_output_setting("receive", "0");
    EXPECT_EQ(open_descriptors(), before); // no flag uses the other files any more
    expect_consistent_streams();
}

TEST(Debug, ReloadLeavesNothingOpenAndNothingOld)
{
    const auto ended = in_folder([] {
        write_file("debug.conf", "mainfile=main\nsend\nreceive\nread=main\nautoflush=0\n");
        vek_debug_initialize("debug.conf", nullptr); // not in captured(), which flushes all streams
        vek_debug_add_domain("disk", disk_flags);
        VekDebugDomain *const net = add_net();
        const size_t before = open_descriptors();
        for (int i = 0; i < 3; ++i) {
            vek_debug_print(net, 1, "held back");
            vek_debug_set_output_setting("x", "y");
            EXPECT_EQ(vek_debug_reload_config(), 0);
            EXPECT_EQ(open_descriptors(), before);
            expect_consistent_streams();
        }
        vek_debug_print(net, 2, "new");
        vek_debug_flush(net, 2);
        EXPECT_EQ(content_of("main"), "new"); // text that was held back does not follow

        write_file("debug.conf", "mainfile=next\nsend\nreceive=main\n");
        EXPECT_EQ(vek_debug_reload_config(), 0);
        expect_consistent_streams();
        vek_debug_set_config(nullptr, nullptr); // keeps the main file
        setenv("VEK_DEBUG_CONFIG", "", 1);      // nothing to read: flags and streams stay
        EXPECT_EQ(vek_debug_reload_config(), 0);
        EXPECT_EQ(net->enabled, 3u);
        vek_debug_print(nullptr, 1, "kept");
        vek_debug_flush(net, 1);
        EXPECT_EQ(content_of("next"), "kept");
        vek_debug_set_config("debug.conf", nullptr);
        write_file("debug.conf", "send\n"); // a file that names none forgets the main file
        EXPECT_EQ(vek_debug_reload_config(), 0);
        EXPECT_EQ(net->streams[0].file, stdout);
    });
    EXPECT_FALSE(contains(ended.out, "Key: x")); // a setting made meanwhile
}

TEST(Debug, AFlagIsSwitchedWhateverBecomesOfItsStream)
{
    for (const char *const value : {"0", "1", "-", "file"}) {
        in_folder([value] {
            VekDebugDomain *const net = start_with_net((std::string("send=") + value).c_str());
            for (unsigned n = 1; n == 1 || Allocator::failed(); ++n) {
                net->enabled ^= 1;
                Allocator::fail_nth(n);
                vek_debug_set_output_setting("x", "y");
                EXPECT_EQ(net->enabled, *value != '0') << value << ", allocation " << n;
            }
        });
    }
}

FOLDER_TEST(Debug, OnlyARegularFileThatCanBeReadIsAConfiguration)
{
    EXPECT_EQ(mkfifo("pipe", 0600), 0);
    EXPECT_EQ(vek_debug_initialize("pipe", ".:/"), 0); // opening the pipe would wait for a writer
    const std::string lines(20000, '\n');
    write_file("debug.conf", lines + "mainfile=main" + lines + lines);
    vek_debug_set_config("debug.conf", ".");
    const std::pair<const char *, std::vector<Check>> failures[] = {
        {"fstat", {}},
        {"fread", {}},
        {"fclose", {{"_vek_debug_file_to_string", "!fclose(input)"}}},
        {"none", {}}};
    for (const auto &[request, warnings] : failures) {
        Allocator::fail_nth(1, false, request);
        expect_warnings(warnings, [] { EXPECT_EQ(vek_debug_reload_config(), 0); });
        EXPECT_EQ(std::filesystem::remove("main"), !Allocator::failed()) << request;
    }
    for (unsigned n = 1; n == 1 || Allocator::failed(); ++n) { // nothing works any more
        Allocator::fail_nth(n, true, everything);
        captured(2, [] { EXPECT_NE(vek_debug_reload_config(), 1); });
    }
}

FOLDER_TEST(Debug, AMainFileOpenedAgainServesFlagsThatAreNotReached)
{
    static const char *const first[] = {"a", "b", nullptr};
    static const char *const second[] = {"c", "d", nullptr};
    start("b=folder/main");
    captured(2, [] {
        vek_debug_add_domain("net", first); // b has the name, but no file
        vek_debug_add_domain("disk", second);
        std::filesystem::create_directory("folder");
        setenv("VEK_DEBUG_CONFIG", "mainfile=folder/main,a=missing/a,c=1,d=1", 1);
        vek_debug_reload_config(); // a stops the update before b
        setenv("VEK_DEBUG_CONFIG", "mainfile=folder/main,a=missing/a,c=missing/c,d=1", 1);
        vek_debug_reload_config(); // and c stops it before d
    });
    vek_debug_print(nullptr, 0, "main ");
    vek_debug_print(vek_debug_get_domain("disk"), 2, "d");
    EXPECT_EQ(content_of("folder/main"), "main d");
}

FOLDER_TEST(Debug, AFileThatCannotBeOpenedIsReported)
{
    static const char *const more_flags[] = {"send", "last", nullptr};
    start("mainfile=missing/main,send=missing/file,receive=1,last=-");
    const Check not_opened = {"_vek_debug_open_filestream", "fs->file"};
    expect_warnings({not_opened}, [] { add_net(); });
    VekDebugDomain *const net = vek_debug_get_domain("net");
    EXPECT_EQ(net->enabled, 1u); // enabled without a stream; the later flag is not reached
    EXPECT_STREQ(net->streams[0].name, "missing/file");
    vek_debug_print(net, 1, "lost");
    vek_debug_flush(net, 1);
    std::filesystem::create_directory("missing");
    vek_debug_set_output_setting("x", "y");
    vek_debug_print(net, 1, "found");
    EXPECT_EQ(content_of("missing/file"), "found");

    expect_warnings({not_opened}, [] { // one attempt
        vek_debug_set_output_setting("send", "gone/file");
        vek_debug_add_domain("more", more_flags);
    });
    const VekDebugDomain *const more = vek_debug_get_domain("more");
    EXPECT_EQ(more->enabled, 3u);
    EXPECT_EQ(more->streams[1].file, stdout); // the later flag is applied
    std::filesystem::create_directory("gone");
    expect_warnings({}, [] { vek_debug_set_output_setting("x", "y"); });
    EXPECT_EQ(more->streams[0].file, nullptr);
    vek_debug_finalize();
    vek_debug_print(net, 1, "after the end"); // the domain is gone and must not be read
}

/** Expects that a configuration is loaded, and returns the status. A source that cannot be read is
 *  an error only without memory. */
int load_with_a_failure(const std::string &request, int (*load)())
{
    int status = -1;
    Allocator::just_failed();
    const std::string text = captured(1, [&] { status = load(); });
    const bool both = text.find(banner) < text.rfind(banner);
    EXPECT_TRUE(both || Allocator::just_failed()) << text;
    EXPECT_EQ(status, both || request != memory ? 0 : 2) << text;
    return status;
}

/** Runs debug output from start to stop while a request fails. */
void live_with_a_failure(const std::string &request)
{
    write_file("debug.conf", "mainfile=main\nsend=shared\nreceive=1\n");
    setenv("VEK_DEBUG_CONFIG", "read=/dev/full,mainfile=main", 1);
    const auto initialize = [] { return vek_debug_initialize("debug.conf", "."); };
    if (load_with_a_failure(request, initialize) != 0) { return; } // there is nothing to release
    Allocator::just_failed();
    const int status = vek_debug_add_domain("net", net_flags);
    const bool refused = Allocator::just_failed() && request == memory;
    VekDebugDomain *const net = vek_debug_get_domain("net");
    EXPECT_EQ(status, net != nullptr ? 0 : 2);
    EXPECT_TRUE(status == 0 || refused);
    vek_debug_add_domain("disk", disk_flags);
    expect_consistent_streams();
    vek_debug_print(vek_debug_get_domain("disk"), 1, "lost");
    vek_debug_print(net, 2, "emptied by the load");
    vek_debug_flush(net, 2);
    vek_debug_set_output_setting("receive", "third");
    load_with_a_failure(request, vek_debug_reload_config);
    expect_consistent_streams();
    vek_debug_set_output_setting("send", "shared");
    Allocator::just_failed();
    vek_debug_print(net, 1, "text");
    vek_debug_print(nullptr, 0, "main text");
    const bool printed = request == "vfprintf" && !Allocator::just_failed();
    write_file("debug.conf", "x");
    setenv("VEK_DEBUG_CONFIG", "", 1);
    vek_debug_reload_config();
    vek_debug_print(nullptr, 0, "standard output"); // unless the main file has stayed
    vek_debug_finalize();
    const std::string harmless = "fflush fputs fwrite stat vprintf";
    if (printed || contains(harmless, request) || !Allocator::failed()) {
        EXPECT_EQ(content_of("shared"), "text");
        EXPECT_EQ(content_of("main"), "main text");
    }
}

TEST(Debug, FailsCleanly)
{
    for (const char *const request : {memory, "fclose", "fflush", "fopen", "fputs", "fread",
                                      "fstat", "fwrite", "stat", "vfprintf", "vprintf"}) {
        in_folder([request] {
            const size_t before = open_descriptors();
            fail_each(request, [&] {
                captured(2, [&] { live_with_a_failure(request); });
                EXPECT_EQ(open_descriptors(), before);
            });
        });
    }
}
