// The registry templates that every service of the platform is built from.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "IKYRService.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Listener
{
public:
    virtual ~Listener() = default;
};

/// Writes down what the registry does.
class Service : public IKYRService<Listener>
{
public:
    void InitListener() override { steps.push_back("start"); }
    void ExitListener() override { steps.push_back("stop"); }

    std::vector<std::string> steps;
};

class ServiceWithOwnLock : public Service
{
public:
    void LockListener() override
    {
        steps.push_back("lock");
        Service::LockListener();
    }
    void UnlockListener() override
    {
        Service::UnlockListener();
        steps.push_back("unlock");
    }
};

TEST(ListenerRegistry, NullIsIgnoredAndCallsNoHook)
{
    Service service;

    service.AddListener(nullptr);
    service.RemoveListener(nullptr);

    EXPECT_EQ(service.GetListenerCount(), 0);
    EXPECT_THAT(service.steps, IsEmpty());
}

TEST(ListenerRegistry, TheFirstListenerStartsTheEventSourceAndTheLastOneStopsIt)
{
    Service service;
    Listener first;
    Listener second;

    service.AddListener(&first);
    service.AddListener(&second);
    EXPECT_THAT(service.steps, ElementsAre("start"));
    EXPECT_EQ(service.GetListenerCount(), 2);
    EXPECT_THAT(*service.GetListeners(), testing::UnorderedElementsAre(&first, &second));

    service.RemoveListener(&first);
    EXPECT_THAT(service.steps, ElementsAre("start"));
    service.RemoveListener(&second);
    EXPECT_THAT(service.steps, ElementsAre("start", "stop"));
    EXPECT_EQ(service.GetListenerCount(), 0);
}

TEST(ListenerRegistry, TheSameListenerTwiceIsOneEntryAndStartsTheSourceAgainWhileItIsAlone)
{
    Service service;
    Listener listener;

    service.AddListener(&listener);
    service.AddListener(&listener);

    EXPECT_EQ(service.GetListenerCount(), 1);
    EXPECT_THAT(service.steps, ElementsAre("start", "start"));
}

TEST(ListenerRegistry, RemovingAStrangerFromAnEmptyServiceStopsTheSource)
{
    Service service;
    Listener stranger;

    service.RemoveListener(&stranger);

    EXPECT_THAT(service.steps, ElementsAre("stop"));
}

TEST(ListenerRegistry, RemovingAStrangerBesideAListenerDoesNothing)
{
    Service service;
    Listener listener;
    Listener stranger;
    service.AddListener(&listener);

    service.RemoveListener(&stranger);

    EXPECT_EQ(service.GetListenerCount(), 1);
    EXPECT_THAT(service.steps, ElementsAre("start"));
}

TEST(ListenerRegistry, AServicesOwnLockIsUsedAndHeldWhileTheHooksRun)
{
    ServiceWithOwnLock service;
    Listener listener;

    service.AddListener(&listener);
    service.RemoveListener(&listener);

    EXPECT_THAT(service.steps, ElementsAre("lock", "start", "unlock", "lock", "stop", "unlock"));
}

TEST(ListenerRegistry, DestroyingAServiceLeavesItsListenersAlone)
{
    Listener listener;
    {
        Service service;
        service.AddListener(&listener);
    }
    Service other;

    other.AddListener(&listener);

    EXPECT_EQ(other.GetListenerCount(), 1);
}

TEST(ListenerRegistry, ThreadsAddAndRemoveWhileAnotherWalksTheSet)
{
    IKYRService<Listener> service;
    std::vector<Listener> listeners(64);
    std::atomic<bool> done = false;
    std::thread walker([&] {
        while (!done) {
            service.LockListener();
            for (Listener* const listener : *service.GetListeners())
                EXPECT_NE(listener, nullptr);
            service.UnlockListener();
        }
    });
    std::vector<std::thread> threads;
    for (int part = 0; part < 4; ++part)
        threads.emplace_back([&, part] {
            for (std::size_t i = static_cast<std::size_t>(part); i < listeners.size(); i += 4) {
                service.AddListener(&listeners[i]);
                if (i % 8 < 4)
                    service.RemoveListener(&listeners[i]);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    done = true;
    walker.join();

    EXPECT_EQ(service.GetListenerCount(), 32);
}

}  // namespace
