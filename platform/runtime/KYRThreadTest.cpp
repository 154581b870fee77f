#include "KYRThread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <future>

#include "KYRMutex.h"

namespace {

void* add(void* argument)
{
    ++*static_cast<std::atomic<int>*>(argument);
    return nullptr;
}

void* fulfil(void* argument)
{
    static_cast<std::promise<void>*>(argument)->set_value();
    return nullptr;
}

void* reportStack(void* argument)
{
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, static_cast<std::size_t*>(argument));
    pthread_attr_destroy(&attributes);
    return nullptr;
}

TEST(KyrThread, EndOfTheObjectWaitsForTheThread)
{
    std::atomic<int> runs = 0;
    {
        KYRThread thread(51200);
        EXPECT_EQ(thread.Start(add, &runs), 1);
    }
    EXPECT_EQ(runs, 1);
}

TEST(KyrThread, SecondStartIsRefused)
{
    std::atomic<int> runs = 0;
    {
        KYRThread thread(51200);
        ASSERT_EQ(thread.Start(add, &runs), 1);
        EXPECT_EQ(thread.Start(add, &runs), 0);
    }
    EXPECT_EQ(runs, 1);
}

TEST(KyrThread, NeverStartedEndsAtOnce)
{
    std::atomic<int> runs = 0;
    {
        KYRThread thread(51200);
    }
    EXPECT_EQ(runs, 0);
}

TEST(KyrThread, DetachedBeforeItsStartOutlivesTheObject)
{
    static std::promise<void> ended;
    auto end = ended.get_future();
    {
        KYRThread thread(51200);
        thread.Detach();
        EXPECT_EQ(thread.Start(fulfil, &ended), 1);
    }
    end.wait();
}

TEST(KyrThread, DetachedAfterItsStartOutlivesTheObject)
{
    static std::promise<void> ended;
    auto end = ended.get_future();
    {
        KYRThread thread(51200);
        EXPECT_EQ(thread.Start(fulfil, &ended), 1);
        thread.Detach();
        thread.Detach();
    }
    end.wait();
}

TEST(KyrThread, HasTheStackItAskedForAndNeverLessThanTheMinimum)
{
    std::size_t small = 0;
    std::size_t large = 0;
    {
        KYRThread first(1);
        KYRThread second(4 * 1024 * 1024);
        ASSERT_EQ(first.Start(reportStack, &small), 1);
        ASSERT_EQ(second.Start(reportStack, &large), 1);
    }
    EXPECT_GE(small, std::size_t{512} * 1024);
    EXPECT_GE(large, std::size_t{4} * 1024 * 1024);
}

TEST(KyrMutex, MayBeLockedAgainByItsThreadAndKeepsOthersOutUntilEveryLockIsGone)
{
    KYRMutex mutex;
    std::promise<void> trying;
    bool inside = false;
    mutex.Lock();
    mutex.Lock();
    auto other = std::async(std::launch::async, [&] {
        trying.set_value();
        const KYRAutoLock lock(mutex);
        return inside;
    });
    trying.get_future().wait();

    mutex.Unlock();
    inside = true;  // still locked once, so the other thread must see it
    mutex.Unlock();

    EXPECT_TRUE(other.get());
}

}  // namespace
