#include "platform/bench/FakeAppManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/bench/HeadUnit.h"

namespace bench {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Start actions are plain functions: what they leave behind is global. Written on the listener thread, or on the test's
// own, and read after the queue has been drained.
std::vector<std::string> happened;

int startedWell(ServiceModule module)
{
    happened.push_back("start " + std::to_string(module));
    return 1;
}

int startedBadly(ServiceModule module)
{
    happened.push_back("fail " + std::to_string(module));
    return 0;
}

class Reports : public IKYRAppListener
{
public:
    void OnModuleStatusChanged(AppBootInfo& info) override
    {
        happened.push_back("report " + std::to_string(info.module));
    }
};

class FakeAppManagerTest : public testing::Test
{
protected:
    FakeAppManagerTest()
    {
        happened.clear();
        unit_.install();
        manager_ = KYR_GetAppMgrService();
        manager_->AddListener(&reports_);
    }
    ~FakeAppManagerTest() override { unit_.stop(); }

    std::vector<std::string> whatHappened()
    {
        unit_.events().drain();
        return happened;
    }

    runtime::TimerService timers_{runtime::TimerService::Clock::kManual};
    HeadUnit unit_{timers_};
    KYRAppMgrService* manager_ = nullptr;
    Reports reports_;
};

TEST_F(FakeAppManagerTest, CanBeReachedUnlessTheStateSaysOtherwise)
{
    EXPECT_EQ(manager_->InitInstance(), 1);

    unit_.state().set("/app_manager/available", false);

    EXPECT_EQ(manager_->InitInstance(), 0);
    EXPECT_EQ(KYR_GetAppMgrService(), manager_);
}

TEST_F(FakeAppManagerTest, RecordsWhatTheServiceReports)
{
    manager_->NotifyModuleInitBegin(MODULE_ENGINEERING);
    manager_->NotifyModuleReady(MODULE_ENGINEERING);
    manager_->SetStartServiceAction(MODULE_WIFI, startedWell);

    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"app_manager", "NotifyModuleInitBegin", {14}},
                                                  Call{"app_manager", "NotifyModuleReady", {14}},
                                                  Call{"app_manager", "SetStartServiceAction", {17}}));
}

TEST_F(FakeAppManagerTest, BootModulesAreStartedAndReportedInTheirOrder)
{
    unit_.state().set("/app_manager/boot_modules", {3, 9, 2});
    manager_->NotifyModuleReady(MODULE_ENGINEERING);
    manager_->SetStartServiceAction(MODULE_AUDIO, startedWell);
    manager_->SetStartServiceAction(MODULE_SOURCE, startedWell);

    unit_.serviceInitialised();

    EXPECT_THAT(whatHappened(), ElementsAre("start 3", "report 3", "report 9", "start 2", "report 2"));
}

TEST_F(FakeAppManagerTest, BuiltInBootModulesAreThoseOfTheHeadUnit)
{
    manager_->NotifyModuleReady(MODULE_ENGINEERING);

    unit_.serviceInitialised();

    EXPECT_THAT(whatHappened(), ElementsAre("report 1", "report 2", "report 3", "report 5", "report 7", "report 8",
                                            "report 9", "report 15", "report 20"));
}

TEST_F(FakeAppManagerTest, NothingBootsWithoutTheServiceBeingReady)
{
    manager_->NotifyModuleInitBegin(MODULE_ENGINEERING);
    manager_->SetStartServiceAction(MODULE_AUDIO, startedWell);

    unit_.serviceInitialised();

    EXPECT_THAT(whatHappened(), IsEmpty());
}

TEST_F(FakeAppManagerTest, ModuleWhoseStartFailsIsReportedAllTheSame)
{
    unit_.state().set("/app_manager/boot_modules", {2});
    manager_->NotifyModuleReady(MODULE_ENGINEERING);
    manager_->SetStartServiceAction(MODULE_AUDIO, startedBadly);

    unit_.serviceInitialised();

    EXPECT_THAT(whatHappened(), ElementsAre("fail 2", "report 2"));
}

TEST_F(FakeAppManagerTest, LaterStartActionReplacesTheEarlierOne)
{
    manager_->SetStartServiceAction(MODULE_AUDIO, startedBadly);
    manager_->SetStartServiceAction(MODULE_AUDIO, startedWell);

    EXPECT_EQ(unit_.startModule(MODULE_AUDIO), 1);
}

TEST_F(FakeAppManagerTest, StartedModuleReturnsTheResultOfItsActionAndIsNotReported)
{
    manager_->SetStartServiceAction(MODULE_AUDIO, startedBadly);

    EXPECT_EQ(unit_.startModule(MODULE_AUDIO), 0);

    EXPECT_THAT(whatHappened(), ElementsAre("fail 2"));
}

TEST_F(FakeAppManagerTest, ModuleWithoutStartActionIsRefused)
{
    try {
        unit_.startModule(4);
        FAIL() << "started";
    } catch (const EventError& error) {
        EXPECT_EQ(error.kind(), EventError::Kind::kNoStartAction);
        EXPECT_STREQ(error.what(), "module 4: the service has registered no start action");
    }
}

TEST_F(FakeAppManagerTest, RaisedModuleStatusRunsTheStartActionFirst)
{
    manager_->SetStartServiceAction(MODULE_WIFI, startedWell);

    unit_.raiseAndWait("OnModuleStatusChanged", {{"module", 17}});

    EXPECT_THAT(happened, ElementsAre("start 17", "report 17"));
}

TEST_F(FakeAppManagerTest, RequestedWifiComesUpAfterItsDelay)
{
    manager_->SetStartServiceAction(MODULE_WIFI, startedWell);
    unit_.calls().clear();

    EXPECT_EQ(manager_->RequestStartModuleProcess(1, 14), 1);
    timers_.advance(std::chrono::milliseconds(199));
    const auto before = whatHappened();
    timers_.advance(std::chrono::milliseconds(1));
    const auto after = whatHappened();

    EXPECT_THAT(before, IsEmpty());
    EXPECT_THAT(after, ElementsAre("start 17", "report 17"));
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"app_manager", "RequestStartModuleProcess", {1, 14}}));
}

TEST_F(FakeAppManagerTest, DelayIsThatOfTheState)
{
    unit_.state().set("/app_manager/start_delay_ms", 1000);
    manager_->RequestStartModuleProcess(1, 14);

    timers_.advance(std::chrono::milliseconds(999));
    const auto before = whatHappened();
    timers_.advance(std::chrono::milliseconds(1));

    EXPECT_THAT(before, IsEmpty());
    EXPECT_THAT(whatHappened(), ElementsAre("report 17"));
}

TEST_F(FakeAppManagerTest, RequestedWifiStaysDownWhenTheStateSaysSo)
{
    unit_.state().set("/app_manager/starts_on_request", false);

    EXPECT_EQ(manager_->RequestStartModuleProcess(1, 14), 1);
    timers_.advance(std::chrono::seconds(10));

    EXPECT_THAT(whatHappened(), IsEmpty());
}

TEST_F(FakeAppManagerTest, RequestForAnotherProcessIsRefused)
{
    EXPECT_EQ(manager_->RequestStartModuleProcess(2, 14), 0);
    timers_.advance(std::chrono::seconds(10));

    EXPECT_THAT(whatHappened(), IsEmpty());
}

TEST_F(FakeAppManagerTest, StopCancelsRequestedStarts)
{
    manager_->RequestStartModuleProcess(1, 14);

    unit_.stop();
    timers_.advance(std::chrono::seconds(10));

    EXPECT_THAT(happened, IsEmpty());
}

}  // namespace
}  // namespace bench
