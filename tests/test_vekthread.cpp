/* SPDX-License-Identifier: MIT */
#include <veklib/vekthread.h>

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

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
