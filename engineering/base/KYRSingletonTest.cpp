#include "engineering/base/KYRSingleton.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

std::atomic<int> g_made = 0;
std::atomic<int> g_destroyed = 0;
std::atomic<bool> g_refuse = false;

struct Thing {
    Thing()
    {
        if (g_refuse)
            throw std::runtime_error("refused");
        ++g_made;
    }
    virtual ~Thing() { ++g_destroyed; }

    int nValue = 42;
};

class KYRSingletonTest : public testing::Test
{
protected:
    KYRSingletonTest()
    {
        g_made = 0;
        g_destroyed = 0;
        g_refuse = false;
    }
    ~KYRSingletonTest() override { KYRSingleton<Thing>::DestroyInstance(); }
};

TEST_F(KYRSingletonTest, IsMadeOnFirstUseAndStaysTheSame)
{
    EXPECT_EQ(g_made, 0);

    Thing* const first = KYRSingleton<Thing>::GetInstance();

    EXPECT_EQ(KYRSingleton<Thing>::GetInstance(), first);
    EXPECT_EQ(g_made, 1);
}

TEST_F(KYRSingletonTest, ManyThreadsAtOnceMakeOneAndSeeItWhole)
{
    constexpr int kThreads = 8;
    std::latch start(kThreads);
    std::vector<Thing*> seen(kThreads);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            seen[i] = KYRSingleton<Thing>::GetInstance();
            EXPECT_EQ(seen[i]->nValue, 42);
        });
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(std::set(seen.begin(), seen.end()).size(), 1U);
    EXPECT_EQ(g_made, 1);
}

TEST_F(KYRSingletonTest, AConstructorThatThrowsLeavesNoneAndTheNextCallTriesAgain)
{
    g_refuse = true;
    EXPECT_THROW(KYRSingleton<Thing>::GetInstance(), std::runtime_error);

    g_refuse = false;
    EXPECT_NE(KYRSingleton<Thing>::GetInstance(), nullptr);
}

TEST_F(KYRSingletonTest, DestroyingItTwiceIsHarmlessAndTheNextUseMakesANewOne)
{
    KYRSingleton<Thing>::DestroyInstance();
    EXPECT_EQ(g_destroyed, 0);

    KYRSingleton<Thing>::GetInstance();
    KYRSingleton<Thing>::DestroyInstance();
    KYRSingleton<Thing>::DestroyInstance();
    EXPECT_EQ(g_destroyed, 1);

    KYRSingleton<Thing>::GetInstance();
    EXPECT_EQ(g_made, 2);
}

}  // namespace
