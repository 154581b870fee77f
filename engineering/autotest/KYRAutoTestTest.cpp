#include "engineering/autotest/KYRAutoTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class EngineStartTest : public EngineTest
{
};

TEST_F(EngineStartTest, TheEngineListensToEveryServiceOnce)
{
    start();

    EXPECT_EQ(KYR_GetAppMgrService()->GetListenerCount(), 1);
    EXPECT_EQ(KYR_GetSystemPowerProxy()->GetListenerCount(), 1);
    EXPECT_EQ(KYR_GetU6PersistService()->GetListenerCount(), 1);
    EXPECT_EQ(KYR_GetAudioService()->GetListenerCount(), 1);
    EXPECT_EQ(KYR_GetCarPlayService()->GetListenerCount(), 1);
    EXPECT_EQ(KYR_GetTunerService()->GetListenerCount(), 1);
    EXPECT_EQ(KYR_GetSystemMiscProxy()->GetListenerCount(), 1);
    EXPECT_EQ(KYR_GetLocationService()->GetListenerCount(), 1);
    EXPECT_EQ(KYR_GetDeviceAppProxy()->GetListenerCount(), 1);
    EXPECT_EQ(KYR_GetMediaPlayer()->GetListenerCount(), 0);
}

TEST_F(EngineStartTest, TheLogTellsItsSteps)
{
    start();

    std::vector<std::string> steps;
    for (const std::string& line : log.lines())
        if (line.find("KYRAutoTest()") != std::string::npos || line.find("AddListener") != std::string::npos)
            steps.push_back(line);
    EXPECT_THAT(steps,
                ElementsAre("DEBUG KYRAutoTest(), Created!", "INFO InitPowerService m_PowerService->AddListener()",
                            "INFO InitAudioService(), AddListener", "INFO InitTunerService(), AddListener"));
}

TEST_F(EngineStartTest, ServicesThatAreMissingArePassedOverAndTheStationIsAnswered)
{
    unit.mergeState({{"audio", {{"available", false}}},
                     {"tuner", {{"available", false}}},
                     {"power", {{"available", false}}},
                     {"system_misc", {{"available", false}}},
                     {"wifi", {{"available", false}}},
                     {"app_manager", {{"available", false}}}});

    startInTestMode();
    station.sendCommand(0x0F, 0xFF);

    EXPECT_THAT(station.replies(), ElementsAre("8F FF [01]"));
    EXPECT_EQ(engine().InitPowerService(), 0);
    EXPECT_EQ(engine().InitAudioService(), 0);
    EXPECT_EQ(engine().InitTunerService(), 0);
    EXPECT_EQ(engine().InitPersistService(), 1);
    EXPECT_EQ(engine().InitCarPlayService(), 1);
    EXPECT_EQ(engine().InitMediaService(), 1);
    takeTheHeadUnitAway();
    EXPECT_EQ(engine().InitPersistService(), 0);
    EXPECT_EQ(engine().InitCarPlayService(), 0);
    EXPECT_EQ(engine().InitMediaService(), 0);
}

TEST_F(EngineStartTest, TheIdentityDirectoryIsMade)
{
    start();

    EXPECT_TRUE(std::filesystem::is_directory(path("/perm_data/data/engineering")));
    EXPECT_THAT(calls(), ElementsAre(R"(system Execute ["mkdir /perm_data/data/engineering/"])"));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(EngineStartTest, AnIdentityDirectoryThatIsThereIsLeftAlone)
{
    std::filesystem::create_directories(path("/perm_data/data/engineering"));

    start();

    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(EngineStartTest, AnIdentityDirectoryThatCannotBeMadeIsLoggedAndTheStartGoesOn)
{
    set("/system/failing_commands", {"mkdir"});

    startInTestMode();

    EXPECT_FALSE(std::filesystem::exists(path("/perm_data/data/engineering")));
    station.sendCommand(0x0F, 0xFF);
    EXPECT_THAT(station.replies(), ElementsAre("8F FF [01]"));
}

TEST_F(EngineStartTest, AFailedMkdirNamesTheDirectory)
{
    set("/system/failing_commands", {"mkdir"});

    start();

    EXPECT_THAT(log.errors(),
                ElementsAre("ERROR KYRAutoTest,mkdir " + path("/perm_data/data/engineering/") + " failed."));
}

TEST_F(EngineStartTest, OnlyTimer20RestartsTheUnit)
{
    start();
    forget();

    for (int id = 0; id <= 200; ++id)
        if (id != 20)
            engine().OnTimerHandleFunc(id);
    EXPECT_THAT(calls(), IsEmpty());

    engine().OnTimerHandleFunc(20);
    EXPECT_THAT(calls(), ElementsAre("power RestartSystem []"));
}

TEST_F(EngineStartTest, Timer20WithoutAPowerProxyIsLogged)
{
    start();
    set("/power/available", false);
    forget();

    engine().OnTimerHandleFunc(20);

    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(log.errors(), ElementsAre("ERROR no power proxy, the unit does not restart"));
}

}  // namespace
