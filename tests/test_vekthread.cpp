/* SPDX-License-Identifier: MIT */
#include <veklib/veklib.h>

#include "support/support.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

using namespace vektest;

namespace {

constexpr int threads = 8;

std::string message(int thread, int number)
{
    return std::to_string(thread) + ' ' + std::to_string(number) + ' ' +
           std::string(static_cast<unsigned>(number) % 60, 'x') + '\n';
}

/** Counts each sender's messages as long as every one is whole and the next; then it has -1. */
struct Receiver {
    std::vector<int> next = std::vector<int>(threads);

    void take(const std::string &text)
    {
        const int sender = std::clamp(text[0] - '0', 0, threads - 1);
        int &number = next[static_cast<size_t>(sender)];
        number = text == message(sender, number) ? number + 1 : -1; // which no message has
    }
};

/** Fills and empties records of its own. At each step it prints a message to the file that three
 *  ways lead to, and one to a print function. */
void work(pthread_mutex_t *mutex, int thread, int operations)
{
    const char *const domains[] = {"one", "two", nullptr};
    VekHash *const table = vek_hash_new();
    VekNameTable *names = vek_name_table_create(nullptr);
    VekSList *list = nullptr;
    VekStr *text = vek_str_create("");
    for (int i = 0; i < operations; ++i) {
        const std::string said = message(thread, i);
        pthread_mutex_lock(mutex); // debug output is for one thread at a time
        for (const char *const name : {domains[i % 3], "three"}) {
            vek_debug_print(vek_debug_get_domain(name), 1, "%c%s", said[0], said.c_str() + 1);
        }
        pthread_mutex_unlock(mutex);
        VekName *const name = vek_name_from_string(names, said.c_str() + said.rfind(' '), i);
        list = vek_slist_prepend(list, name);
        EXPECT_EQ(vek_hash_insert(table, word(i), list), 1);
        EXPECT_EQ(vek_str_append_c_str(&text, "x"), 1);
        if (i % 50 != 49) { continue; }
        EXPECT_EQ(vek_strlen(text), 50u);
        for (int old = i - 49; old <= i; ++old) { vek_hash_remove(table, word(old)); }
        EXPECT_EQ(vek_hash_lookup(table, word(i)), nullptr);
        EXPECT_EQ(vek_slist_get_length(list), 50u);
        vek_slist_free(std::exchange(list, nullptr), nullptr);
        vek_str_unref(std::exchange(text, vek_str_create("")));
    }
    vek_str_unref(text);
    vek_name_table_destroy(&names);
    vek_hash_destroy(table);
}

/** Expects every line of a trace to be whole, so many allocations or more, every number once, and
 *  every block to be released as often as it was allocated. */
void expect_whole_trace(const std::string &path, int least)
{
    const std::map<std::string, bool> releases = {{"N: vek_malloc(N) => N [#N]", false},
                                                  {"N: vek_calloc(N, N) => N [#N]", false},
                                                  {"N: vek_realloc(N, N) => N [#N]", true},
                                                  {"N: vek_free(N)", true}};
    std::map<uint64_t, int> live;
    std::vector<uint64_t> allocations;
    int lines = 0;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line); ++lines) {
        std::string shape;
        std::vector<uint64_t> numbers;
        for (char *at = line.data(); *at != '\0';) {
            const bool is_number = isdigit(*at) != 0;
            if (is_number) { numbers.push_back(strtoull(at, &at, 0)); }
            shape += is_number ? 'N' : *at++;
        }
        ASSERT_TRUE(releases.contains(shape)) << line;
        if (releases.at(shape)) { --live[numbers[1]]; }
        if (shape.back() != ']') { continue; }
        ++live[numbers[numbers.size() - 2]];
        allocations.push_back(numbers.back());
    }
    for (const auto &[block, count] : live) { ASSERT_EQ(count, 0) << block; }
    EXPECT_GE(std::ssize(allocations), least);
    std::sort(allocations.begin(), allocations.end());
    for (size_t i = 0; i < allocations.size(); ++i) { ASSERT_EQ(allocations[i], i + 1); }
    testing::Test::RecordProperty("lines", lines);
}

} // namespace

TEST(Thread, SlotsAreForEachThread)
{
    static std::string destroyed;
    destroyed.clear();
    const VekPrivate slot =
        vek_private_new([](void *value) { destroyed += static_cast<const char *>(value); });
    ASSERT_NE(slot, 0u);
    char here[] = "here";
    char there[] = "there";
    EXPECT_EQ(vek_private_set(slot, here), 0);
    std::thread([&] {
        EXPECT_EQ(vek_private_get(slot), nullptr);
        vek_private_set(slot, there);
        EXPECT_EQ(vek_private_get(slot), there);
    }).join();
    EXPECT_EQ(destroyed, "there");
    EXPECT_EQ(vek_private_get(slot), here);
    EXPECT_EQ(vek_private_free(slot), 0);
    EXPECT_NE(vek_private_free(slot), 0);
    EXPECT_NE(vek_private_set(0, here), 0);
    EXPECT_EQ(vek_private_get(0), nullptr);
    std::vector<VekPrivate> all;
    while (all.empty() || all.back() != 0) { all.push_back(vek_private_new(nullptr)); }
    for (const VekPrivate each : all) { EXPECT_EQ(vek_private_free(each) == 0, each != 0); }
}

TEST(Thread, MutexIsRecursive)
{
    pthread_mutex_t mutex;
    EXPECT_EQ(vek_mutex_init(&mutex), 0);
    EXPECT_EQ(pthread_mutex_lock(&mutex), 0);
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    pthread_mutex_unlock(&mutex);
    std::thread([&] { EXPECT_NE(pthread_mutex_trylock(&mutex), 0); }).join();
    pthread_mutex_unlock(&mutex);
    EXPECT_EQ(pthread_mutex_destroy(&mutex), 0);
}

/* With records of their own, threads need no lock but the application's for debug output. */
TEST(Thread, LinesAndMessagesStayWhole)
{
    const char *const many = getenv("VEKTEST_OPERATIONS"); // of each thread; a multiple of 50
    const int operations = many != nullptr ? atoi(many) : 200;
    std::string folder = testing::TempDir() + "/vekthread-XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    in_clean_child([&] {
        setenv("VEK_MALLOC_TRACE", "1", 1);
        setenv("VEK_MALLOC_TRACE_FILE", (folder + "/trace").c_str(), 1);
        setenv("VEK_DEBUG_CONFIG", ("mainfile=" + folder + "/debug,say=1").c_str(), 1);
        ASSERT_EQ(vek_debug_initialize(nullptr, nullptr), 0);
        const char *const flags[] = {"say", nullptr};
        for (const char *const name : {"one", "two", "three"}) {
            EXPECT_EQ(vek_debug_add_domain(name, flags), 0);
        }
        Receiver receiver;
        const auto take = [](const char *text, void *data) {
            static_cast<Receiver *>(data)->take(text);
        };
        vek_debug_set_print_function(vek_debug_get_domain("three"), take, &receiver);
        pthread_mutex_t mutex;
        ASSERT_EQ(vek_mutex_init(&mutex), 0);
        std::vector<std::thread> workers;
        for (int i = 0; i < threads; ++i) { workers.emplace_back(work, &mutex, i, operations); }
        for (std::thread &worker : workers) { worker.join(); }
        EXPECT_EQ(receiver.next, std::vector<int>(threads, operations));
        vek_debug_finalize();
    });
    Receiver receiver;
    std::ifstream file(folder + "/debug");
    for (std::string line; std::getline(file, line);) { receiver.take(line + '\n'); }
    EXPECT_EQ(receiver.next, std::vector<int>(threads, operations));
    expect_whole_trace(folder + "/trace", 2 * threads * operations); // nodes and entries
    RecordProperty("messages", 2 * threads * operations);
    std::filesystem::remove_all(folder);
}
