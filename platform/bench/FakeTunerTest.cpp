#include "platform/bench/FakeTuner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "platform/bench/HeadUnit.h"

namespace bench {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Told = std::tuple<int, unsigned int, unsigned int>;  // band, value, frequency

class Radio : public IKYRRadioListener
{
public:
    std::vector<Told> told;  // written on the listener thread, read after it has been drained

    void OnFrequencyChanged(KYRTuner::BandID band, unsigned int value, unsigned int frequency) override
    {
        told.emplace_back(band, value, frequency);
    }
};

class FakeTunerTest : public testing::Test
{
protected:
    FakeTunerTest()
    {
        unit_.install();
        tuner_ = KYR_GetTunerService();
        tuner_->AddListener(&radio_);
    }
    ~FakeTunerTest() override { unit_.stop(); }

    const std::vector<Told>& told()
    {
        unit_.events().drain();
        return radio_.told;
    }

    HeadUnit unit_;
    KYRTuner* tuner_ = nullptr;
    Radio radio_;
};

TEST_F(FakeTunerTest, StandsAsTheStateSays)
{
    unit_.state().set("/tuner/band", 3);

    EXPECT_EQ(tuner_->GetCurrentBand(), KYRTuner::BAND_3);
    EXPECT_EQ(tuner_->GetFrequency(KYRTuner::BAND_FM), 8750u);
    EXPECT_EQ(tuner_->GetFrequency(KYRTuner::BAND_0), 990u);
}

TEST_F(FakeTunerTest, BandThatIsNotListedHasNoFrequency)
{
    EXPECT_EQ(tuner_->GetFrequency(static_cast<KYRTuner::BandID>(7)), 0u);
}

TEST_F(FakeTunerTest, PlayTunesTheBandAndTellsIt)
{
    tuner_->Play(KYRTuner::BAND_FM, 10110, 0, 1);

    EXPECT_EQ(unit_.state().get("/tuner/frequency/1"), 10110);
    EXPECT_EQ(tuner_->GetFrequency(KYRTuner::BAND_FM), 10110u);
    EXPECT_THAT(told(), ElementsAre(Told{1, 0, 10110}));
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"tuner", "Play", {1, 10110, 0, 1}}));
}

TEST_F(FakeTunerTest, SwitchBandChangesTheBandWithoutAnEvent)
{
    tuner_->SwitchBandRequest(KYRTuner::BAND_4);

    EXPECT_EQ(tuner_->GetCurrentBand(), KYRTuner::BAND_4);
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"tuner", "SwitchBandRequest", {4}}));
}

struct SeekCase {
    const char* name;
    int from;
    int direction;
    unsigned int to;
};

class SeekTest : public FakeTunerTest, public testing::WithParamInterface<SeekCase>
{
};

TEST_P(SeekTest, GoesToTheNextStation)
{
    unit_.state().set("/tuner/frequency/1", GetParam().from);

    tuner_->Seek(KYRTuner::BAND_FM, GetParam().direction);

    EXPECT_EQ(tuner_->GetFrequency(KYRTuner::BAND_FM), GetParam().to);
    EXPECT_THAT(told(), ElementsAre(Told{1, 0, GetParam().to}));
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"tuner", "Seek", {1, GetParam().direction}}));
}

// The stations are 8750, 9470 and 10110.
INSTANTIATE_TEST_SUITE_P(
    FakeTuner, SeekTest,
    testing::Values(SeekCase{"UpFromAStation", 8750, 1, 9470}, SeekCase{"UpFromBetween", 8751, 1, 9470},
                    SeekCase{"UpFromTheLastGoesRound", 10110, 1, 8750}, SeekCase{"DownFromAStation", 9470, 0, 8750},
                    SeekCase{"DownFromBetween", 10109, 0, 9470}, SeekCase{"DownFromTheFirstGoesRound", 8750, 0, 10110}),
    [](const auto& each) { return each.param.name; });

TEST_F(FakeTunerTest, SeekFindsStationsInWhateverOrderTheyAreListed)
{
    unit_.state().set("/tuner/stations/1", {10110, 8750, 9470});

    tuner_->Seek(KYRTuner::BAND_FM, 1);

    EXPECT_EQ(tuner_->GetFrequency(KYRTuner::BAND_FM), 9470u);
}

TEST_F(FakeTunerTest, SeekOnABandWithoutStationsDoesNothing)
{
    tuner_->Seek(KYRTuner::BAND_4, 1);

    EXPECT_EQ(tuner_->GetFrequency(KYRTuner::BAND_4), 0u);
    EXPECT_THAT(told(), IsEmpty());
    EXPECT_THAT(unit_.calls().list(), ElementsAre(Call{"tuner", "Seek", {4, 1}}));
}

TEST_F(FakeTunerTest, RdsSettingsAreStored)
{
    tuner_->SwitchRdsAFSetting(1);
    tuner_->SwitchRdsTASetting(255);

    EXPECT_EQ(unit_.state().get("/tuner/rds_af"), 1);
    EXPECT_EQ(unit_.state().get("/tuner/rds_ta"), 255);
    EXPECT_THAT(unit_.calls().list(),
                ElementsAre(Call{"tuner", "SwitchRdsAFSetting", {1}}, Call{"tuner", "SwitchRdsTASetting", {255}}));
}

TEST_F(FakeTunerTest, SearchesAreRecordedOnly)
{
    tuner_->AutoStore();
    tuner_->Scan(KYRTuner::BAND_FM);

    EXPECT_THAT(unit_.calls().list(),
                ElementsAre(Call{"tuner", "AutoStore", nlohmann::json::array()}, Call{"tuner", "Scan", {1}}));
    EXPECT_THAT(told(), IsEmpty());
}

TEST_F(FakeTunerTest, StartsUnlessItIsNotThere)
{
    EXPECT_EQ(tuner_->InitInstance(), 1);

    unit_.state().set("/tuner/available", false);

    EXPECT_EQ(tuner_->InitInstance(), 0);
    EXPECT_EQ(KYR_GetTunerService(), nullptr);
}

}  // namespace
}  // namespace bench
