#include "platform/bench/HeadUnit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/bench/Services.h"

namespace bench {
namespace {

/// @returns how many of the platform's getters give something.
int servicesThere()
{
    const void* const all[] = {
        KYR_GetAppMgrService(),    KYR_GetAudioService(),    KYR_GetTunerService(),     KYR_GetMediaPlayer(),
        KYR_GetLocationService(),  KYR_GetWifiService(),     KYR_GetDeviceAppProxy(),   KYR_GetCarPlayService(),
        KYR_GetAAProxy(),          KYR_GetFileMgr(),         KYR_GetSystemInfoProxy(),  KYR_GetSystemUpdateProxy(),
        KYR_GetSystemPowerProxy(), KYR_GetSystemMiscProxy(), KYR_GetU6PersistService(), GetLibConfigs(),
    };
    return static_cast<int>(std::ranges::count_if(all, [](const void* service) { return service != nullptr; }));
}

TEST(HeadUnit, GettersGiveNothingWithoutOne)
{
    EXPECT_EQ(HeadUnit::installed(), nullptr);
    EXPECT_EQ(servicesThere(), 0);
    EXPECT_EQ(KYRSource::GetCurrentSource(KYRSource::SOURCE_TYPE_MAIN), KYRSource::SOURCE_NONE);
    EXPECT_EQ(KYRSource::Request(1, KYRSource::AUDIO_GAIN_DEFAULT), 0);
    KYRSource::AddListener(nullptr);
    KYRSource::RemoveListener(nullptr);
}

TEST(HeadUnit, GettersServeItOnceItIsInstalled)
{
    HeadUnit unit;
    const int before = servicesThere();

    unit.install();

    EXPECT_EQ(before, 0);
    EXPECT_EQ(servicesThere(), 16);
    EXPECT_EQ(HeadUnit::installed(), &unit);
}

TEST(HeadUnit, GettersGiveNothingOnceItIsGone)
{
    {
        HeadUnit unit;
        unit.install();
    }

    EXPECT_EQ(HeadUnit::installed(), nullptr);
    EXPECT_EQ(servicesThere(), 0);
}

TEST(HeadUnit, LaterOneTakesThePlaceOfTheEarlierOneWhichGoesWithoutIt)
{
    auto first = std::make_unique<HeadUnit>();
    first->install();
    HeadUnit second;
    second.install();

    first.reset();

    EXPECT_EQ(HeadUnit::installed(), &second);
    EXPECT_EQ(servicesThere(), 16);
}

TEST(HeadUnit, EachBeginsWithTheBuiltInState)
{
    for (int round = 0; round < 3; ++round) {
        HeadUnit unit;
        unit.install();
        EXPECT_EQ(unit.state().number("/audio/volume"), 12);
        EXPECT_TRUE(unit.calls().list().empty());
        unit.mergeState({{"audio", {{"volume", 3}}}});
        KYR_GetFileMgr()->ClearUserData();
    }
}

TEST(HeadUnit, GettersStillServeAStoppedUnit)
{
    HeadUnit unit;
    unit.install();

    unit.stop();

    EXPECT_EQ(servicesThere(), 16);
    KYR_GetTunerService()->Play(KYRTuner::BAND_FM, 9000, 0, 1);
    EXPECT_EQ(unit.state().get("/tuner/frequency/1"), 9000);
}

}  // namespace
}  // namespace bench
