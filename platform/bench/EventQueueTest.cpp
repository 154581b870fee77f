#include "platform/bench/EventQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <stdexcept>
#include <vector>

namespace bench {
namespace {

using testing::ElementsAre;

TEST(EventQueue, RunsEventsInTheirOrderOnOneThreadOfItsOwn)
{
    EventQueue queue;
    std::vector<int> order;
    std::vector<std::thread::id> threads;

    for (int number = 1; number <= 3; ++number) {
        queue.post([&, number] {
            order.push_back(number);
            threads.push_back(std::this_thread::get_id());
        });
    }
    queue.drain();

    EXPECT_THAT(order, ElementsAre(1, 2, 3));
    EXPECT_THAT(threads, ElementsAre(threads[0], threads[0], threads[0]));
    EXPECT_NE(threads[0], std::this_thread::get_id());
}

TEST(EventQueue, DrainWaitsForARunningEvent)
{
    EventQueue queue;
    std::promise<void> begun;
    std::promise<void> mayEnd;
    bool ended = false;
    queue.post([&] {
        begun.set_value();
        mayEnd.get_future().wait();
        ended = true;
    });
    begun.get_future().wait();

    mayEnd.set_value();
    queue.drain();

    EXPECT_TRUE(ended);
}

TEST(EventQueue, DrainOnTheListenerThreadReturnsAtOnce)
{
    EventQueue queue;
    bool returned = false;

    queue.post([&] {
        queue.post([] {});
        queue.drain();
        returned = true;
    });
    queue.drain();

    EXPECT_TRUE(returned);
}

TEST(EventQueue, EventThatThrowsShowsInOneLineAndTheNextOneRuns)
{
    EventQueue queue;
    bool next = false;

    testing::internal::CaptureStderr();
    queue.post([] { throw std::runtime_error("no tuner"); });
    queue.post([] { throw 42; });
    queue.post([&next] { next = true; });
    queue.drain();

    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "engineering-service: a listener threw: no tuner\n"
              "engineering-service: a listener threw: not a std::exception\n");
    EXPECT_TRUE(next);
}

TEST(EventQueue, StopDropsWhatHasNotRunAndFreesWhatItOwns)
{
    EventQueue queue;
    std::promise<void> begun;
    std::promise<void> mayEnd;
    queue.post([&] {
        begun.set_value();
        mayEnd.get_future().wait();
    });
    begun.get_future().wait();
    auto owned = std::make_shared<int>(0);
    const std::weak_ptr<int> watched = owned;
    queue.post([kept = std::move(owned)] { FAIL() << "ran after the stop"; });

    std::thread stopper([&queue] { queue.stop(); });
    queue.drain();  // returns although the event is not done: the queue is stopped
    mayEnd.set_value();
    stopper.join();

    EXPECT_TRUE(watched.expired());
}

TEST(EventQueue, WhatIsPostedAfterTheStopIsRefused)
{
    EventQueue queue;
    queue.stop();

    EXPECT_FALSE(queue.post([] { FAIL() << "ran after the stop"; }));
    queue.drain();
    queue.stop();
}

}  // namespace
}  // namespace bench
