// The tuner over a radio that is slow, coarse, disconnected, or says nonsense.

#include "platform/linux/Tuner.h"

#include <cerrno>
#include <cstdlib>
#include <deque>
#include <map>
#include <ostream>

#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using tests::kGenerous;

struct Station {
    unsigned kilohertz;
    unsigned width;  // of a slope, in kHz
    int percent = 100;
    bool isFlat = false;  // full signal on the whole width
};

/// Behaves as the driver of a radio with FM and perhaps AM. Any thread.
class FakeRadio : public RadioDevice
{
public:
    int open(const std::string& path) override
    {
        const std::lock_guard lock(mutex_);
        opened = path;
        return result();
    }

    ssize_t read(void* to, std::size_t size) override
    {
        const std::lock_guard lock(mutex_);
        std::size_t count = 0;
        for (auto* out = static_cast<v4l2_rds_data*>(to); !blocks_.empty() && (count + 1) * sizeof *out <= size;
             ++count) {
            out[count] = blocks_.front();
            blocks_.pop_front();
        }
        readsInVain_ = count == 0 ? readsInVain_ + 1 : 0;
        errno = EAGAIN;
        return count == 0 ? -1 : static_cast<ssize_t>(count * sizeof(v4l2_rds_data));
    }

    int control(unsigned long request, void* argument) override
    {
        std::unique_lock lock(mutex_);
        released_.wait(lock, [this] { return !isHeld_; });
        if (result() < 0) {
            return -1;
        }
        switch (request) {
            case VIDIOC_G_TUNER: {
                auto& tuner = *static_cast<v4l2_tuner*>(argument);
                tuner.type = type;
                tuner.capability = (isFine ? V4L2_TUNER_CAP_LOW : 0U) | V4L2_TUNER_CAP_RDS_BLOCK_IO;
                tuner.rangelow = units(64'000);
                tuner.rangehigh = units(108'000);
                tuner.signal = signalLocked();
                return 0;
            }
            case VIDIOC_ENUM_FREQ_BANDS: {
                auto& band = *static_cast<v4l2_frequency_band*>(argument);
                band.capability = isFine ? V4L2_TUNER_CAP_LOW : 0U;
                if (!isFine || band.index > 2) {
                    return failed(isFine ? EINVAL : ENOTTY);
                }
                band.modulation = band.index == 0 ? V4L2_BAND_MODULATION_FM : V4L2_BAND_MODULATION_AM;
                band.rangelow = units(band.index == 0 ? 64'000 : band.index == 1 ? 520 : 2'300);
                band.rangehigh = units(band.index == 0 ? 108'000 : band.index == 1 ? 1'710 : 26'100);
                return 0;
            }
            case VIDIOC_S_FREQUENCY:
                frequency_ = std::min(static_cast<v4l2_frequency*>(argument)->frequency, units(highest));
                return 0;
            case VIDIOC_G_FREQUENCY:
                static_cast<v4l2_frequency*>(argument)->frequency = frequency_;
                return 0;
            case VIDIOC_S_CTRL:
                unmuted = static_cast<v4l2_control*>(argument)->id == V4L2_CID_AUDIO_MUTE &&
                          static_cast<v4l2_control*>(argument)->value == 0;
                return 0;
            default:
                return failed(ENOTTY);
        }
    }

    void failWith(int error)
    {
        const std::lock_guard lock(mutex_);
        error_ = error;
    }

    void hold(bool isHeld)
    {
        const std::lock_guard lock(mutex_);
        isHeld_ = isHeld;
        released_.notify_all();
    }

    /// Block B of a group.
    void say(unsigned bits, unsigned block = V4L2_RDS_BLOCK_B)
    {
        const std::lock_guard lock(mutex_);
        readsInVain_ = 0;
        blocks_.push_back(
            {static_cast<std::uint8_t>(bits), static_cast<std::uint8_t>(bits >> 8), static_cast<std::uint8_t>(block)});
    }

    /// @returns how often blocks have been read since there are none.
    int readsInVain()
    {
        const std::lock_guard lock(mutex_);
        return readsInVain_;
    }

    unsigned frequency()
    {
        const std::lock_guard lock(mutex_);
        return frequency_;
    }

    void setFrequency(unsigned kilohertz)
    {
        const std::lock_guard lock(mutex_);
        frequency_ = units(kilohertz);
    }

    // Set before the tuner starts.
    unsigned type = V4L2_TUNER_RADIO;
    bool isFine = true;
    unsigned highest = 108'000;
    std::vector<Station> stations;

    // Read after the tuner has told what it did.
    std::string opened;
    std::atomic<bool> unmuted = false;

private:
    unsigned units(unsigned kilohertz) const { return isFine ? kilohertz * 16 : kilohertz * 16 / 1000; }
    static int failed(int error)
    {
        errno = error;
        return -1;
    }
    int result() const { return error_ == 0 ? 0 : failed(error_); }
    int signalLocked() const
    {
        const int here = static_cast<int>(isFine ? frequency_ / 16 : frequency_ * 1000 / 16);
        int best = 0;
        for (const Station& each : stations) {
            const int distance = std::abs(here - static_cast<int>(each.kilohertz));
            const int width = static_cast<int>(each.width);
            const int percent = distance >= width ? 0 : each.isFlat ? 100 : each.percent * (width - distance) / width;
            best = std::max(best, percent * Radio::kFullSignal / 100);
        }
        return best;
    }

    std::mutex mutex_;
    std::condition_variable released_;
    bool isHeld_ = false;               // guarded by mutex_
    int error_ = 0;                     // guarded by mutex_
    unsigned frequency_ = 87'500 * 16;  // guarded by mutex_
    std::deque<v4l2_rds_data> blocks_;  // guarded by mutex_
    int readsInVain_ = 0;               // guarded by mutex_
};

class RadioListener : public IKYRRadioListener, public Heard
{
public:
    void OnFrequencyChanged(KYRTuner::BandID band, unsigned int value, unsigned int frequency) override
    {
        EXPECT_EQ(value, 0U);
        add(std::to_string(band) + " " + std::to_string(frequency));
    }
    void OnTAChanged(unsigned int frequency, int active) override
    {
        add("TA " + std::to_string(frequency) + " " + std::to_string(active));
    }
};

class TunerTest : public testing::Test
{
protected:
    TunerTest()
    {
        board_.add("tuner", "v4l2");
        config_.fm = {8750, 10800, 10};
        config_.settle = config_.scan = std::chrono::milliseconds(1);
    }
    ~TunerTest() override { loop_.stop(); }

    KYRTuner& begin()
    {
        tuner_.emplace(
            config_, loop_, board_, [this] { heard_.add("sound"); }, std::move(device_));
        tuner_->AddListener(&heard_);
        loop_.run();
        return *tuner_;
    }
    KYRTuner& start()
    {
        begin();
        EXPECT_EQ(reasonOnce(State::kUp), "");
        return *tuner_;
    }

    std::string reasonOnce(State state)
    {
        board_.await([&](const auto& all) { return all[0].state == state && all[0].reason != kNotYet; }, kGenerous);
        return board_.all()[0].state == state ? board_.all()[0].reason : "it did not happen";
    }

    /// @returns what `ask` returns once it is `wanted`, or after a long time.
    template <class Ask, class Value>
    Value once(Ask ask, Value wanted)
    {
        const auto giveUp = std::chrono::steady_clock::now() + kGenerous;
        while (ask() != wanted && std::chrono::steady_clock::now() < giveUp) {
            std::this_thread::yield();
        }
        return ask();
    }

    void expectTuned(unsigned kilohertz)
    {
        EXPECT_EQ(once([this] { return radio_.frequency(); }, kilohertz * 16), kilohertz * 16);
    }

    void expectFrequency(unsigned frequency)
    {
        const auto ask = [this] { return tuner_->GetFrequency(tuner_->GetCurrentBand()); };
        EXPECT_EQ(once(ask, frequency), frequency);
    }

    /// Switches announcements on; then waits until the radio has been asked for old ones and for new ones.
    void followAnnouncements()
    {
        tuner_->SwitchRdsTASetting(1);
        waitUntilRead();
    }

    void waitUntilRead()
    {
        EXPECT_TRUE(once([this] { return radio_.readsInVain() >= 2; }, true));
    }

    static constexpr const char* kNotYet = "the backend has not answered yet";

    UnitConfig::Tuner config_;
    StatusBoard board_{false};
    Loop loop_;
    RadioListener heard_;
    std::unique_ptr<FakeRadio> device_ = std::make_unique<FakeRadio>();
    FakeRadio& radio_ = *device_;
    std::optional<Tuner> tuner_;
};

TEST_F(TunerTest, StandsWhereTheRadioStands)
{
    radio_.setFrequency(101'100);
    KYRTuner& tuner = start();

    EXPECT_EQ(radio_.opened, "/dev/radio0");
    EXPECT_EQ(tuner.InitInstance(), 1);
    EXPECT_EQ(tuner.GetCurrentBand(), KYRTuner::BAND_FM);
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_FM), 10110U);
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_0), 520U);
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_4), 0U);
    EXPECT_FALSE(radio_.unmuted);
}

TEST_F(TunerTest, RadioOnAmStartsOnAm)
{
    radio_.setFrequency(990);
    KYRTuner& tuner = start();

    EXPECT_EQ(tuner.GetCurrentBand(), KYRTuner::BAND_0);
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_0), 990U);
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_FM), 8750U);
}

TEST_F(TunerTest, PlayTunesToTenKilohertzAndSwitchesTheSoundOn)
{
    KYRTuner& tuner = start();

    tuner.Play(KYRTuner::BAND_FM, 9471, 0, KYR_TRUE);

    EXPECT_THAT(heard_.waitFor(2), ElementsAre("1 9471", "sound"));
    expectFrequency(9471);
    expectTuned(94'710);
    EXPECT_TRUE(radio_.unmuted);
}

TEST_F(TunerTest, PlayWithoutSoundLeavesTheSoundAsItIs)
{
    KYRTuner& tuner = start();

    tuner.Play(KYRTuner::BAND_FM, 9470, 0, KYR_FALSE);
    tuner.Play(KYRTuner::BAND_FM, 9480, 0, KYR_FALSE);

    EXPECT_THAT(heard_.waitFor(2), ElementsAre("1 9470", "1 9480"));
    EXPECT_FALSE(radio_.unmuted);
}

TEST_F(TunerTest, CoarseRadioGoesToItsNearestStepAndTheFrequencyIsTheOneAskedFor)
{
    radio_.isFine = false;
    radio_.setFrequency(87'500);
    KYRTuner& tuner = start();
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_FM), 8750U);
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_0), 0U);

    tuner.Play(KYRTuner::BAND_FM, 10110, 0, KYR_FALSE);  // 1617.6 steps of 62.5 kHz

    EXPECT_THAT(heard_.waitFor(1), ElementsAre("1 10110"));
    expectFrequency(10110);
    EXPECT_EQ(radio_.frequency(), 1618U);
}

TEST_F(TunerTest, FrequencyThatTheRadioChoosesInsteadIsTold)
{
    radio_.highest = 100'000;
    KYRTuner& tuner = start();

    tuner.Play(KYRTuner::BAND_FM, 10110, 0, KYR_FALSE);

    EXPECT_THAT(heard_.waitFor(1), ElementsAre("1 10000"));
    expectFrequency(10000);
}

TEST_F(TunerTest, WhatTheRadioDoesNotHaveIsRefused)
{
    KYRTuner& tuner = start();

    tuner.Play(KYRTuner::BAND_FM, 8749, 0, KYR_TRUE);
    tuner.Play(KYRTuner::BAND_FM, 10801, 0, KYR_TRUE);
    tuner.Play(KYRTuner::BAND_3, 9000, 0, KYR_TRUE);
    tuner.SwitchBandRequest(KYRTuner::BAND_4);
    tuner.Seek(KYRTuner::BAND_4, 1);
    tuner.Seek(KYRTuner::BAND_FM, 2);
    tuner.Scan(KYRTuner::BAND_3);
    tuner.Play(KYRTuner::BAND_FM, 8750, 0, KYR_FALSE);

    EXPECT_THAT(heard_.waitFor(1), ElementsAre("1 8750"));
    EXPECT_EQ(tuner.GetCurrentBand(), KYRTuner::BAND_FM);
    EXPECT_FALSE(radio_.unmuted);
}

TEST_F(TunerTest, BandsKeepTheirFrequency)
{
    KYRTuner& tuner = start();
    tuner.Play(KYRTuner::BAND_FM, 9470, 0, KYR_FALSE);

    tuner.SwitchBandRequest(KYRTuner::BAND_0);
    expectTuned(520);
    expectFrequency(520);
    tuner.Play(KYRTuner::BAND_0, 990, 0, KYR_FALSE);
    tuner.SwitchBandRequest(KYRTuner::BAND_FM);

    EXPECT_THAT(heard_.waitFor(4), ElementsAre("1 9470", "0 520", "0 990", "1 9470"));
    EXPECT_EQ(tuner.GetCurrentBand(), KYRTuner::BAND_FM);
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_0), 990U);
}

struct SeekCase {
    const char* name;
    unsigned from;
    int direction;
    std::vector<Station> stations;
    const char* told;
};

void PrintTo(const SeekCase& row, std::ostream* out)
{
    *out << row.name;
}

class TunerSeekTest : public TunerTest, public testing::WithParamInterface<SeekCase>
{
};

TEST_P(TunerSeekTest, GoesToTheNextStation)
{
    radio_.setFrequency(GetParam().from * 10);
    radio_.stations = GetParam().stations;
    KYRTuner& tuner = start();

    tuner.Seek(KYRTuner::BAND_FM, GetParam().direction);

    EXPECT_THAT(heard_.waitFor(1), ElementsAre(GetParam().told));
    EXPECT_EQ("1 " + std::to_string(tuner.GetFrequency(KYRTuner::BAND_FM)), GetParam().told);
    EXPECT_EQ(radio_.frequency(), tuner.GetFrequency(KYRTuner::BAND_FM) * 160);
}

INSTANTIATE_TEST_SUITE_P(
    Tuner, TunerSeekTest,
    testing::Values(SeekCase{"Up", 9500, 1, {{94'000, 90}, {98'000, 90}}, "1 9800"},
                    SeekCase{"Down", 9500, 0, {{94'000, 90}, {98'000, 90}}, "1 9400"},
                    SeekCase{"UpOverTheEnd", 10700, 1, {{94'000, 90}}, "1 9400"},
                    SeekCase{"DownOverTheEnd", 8800, 0, {{94'000, 90}}, "1 9400"},
                    SeekCase{"ToTheEnd", 10700, 1, {{108'000, 90}}, "1 10800"},
                    SeekCase{"ToTheBeginning", 8800, 0, {{87'500, 90}}, "1 8750"},
                    SeekCase{"FromBetweenTwoStepsUp", 9503, 1, {{95'000, 90}, {95'100, 90}}, "1 9510"},
                    SeekCase{"FromBetweenTwoStepsDown", 9503, 0, {{95'000, 90}, {95'100, 90}}, "1 9500"},
                    SeekCase{"NotToTheSlopeOfItsOwnStation", 9500, 1, {{95'000, 300}, {98'000, 300}}, "1 9800"},
                    SeekCase{"OverAWeakStation", 9500, 1, {{96'000, 90, 49}, {98'000, 90, 51}}, "1 9800"},
                    SeekCase{"ToTheMiddleOfAFlatSignal", 9500, 1, {{98'000, 250, 100, true}}, "1 9800"},
                    SeekCase{"BackToTheOnlyStation", 9500, 1, {{95'000, 90}}, "1 9500"},
                    SeekCase{"BackWithoutAStation", 9507, 0, {}, "1 9507"}),
    [](const auto& row) { return row.param.name; });

TEST_F(TunerTest, StepsBeginWhereTheFileBeginsTheBand)
{
    config_.fm = {8810, 10790, 20};
    radio_.setFrequency(88'100);
    radio_.stations = {{95'000, 90}, {95'300, 150}};
    KYRTuner& tuner = start();

    tuner.Seek(KYRTuner::BAND_FM, 1);

    EXPECT_THAT(heard_.waitFor(1), ElementsAre("1 9530"));
}

TEST_F(TunerTest, NewRequestEndsASearchAndASeekGoesOnFromThere)
{
    config_.settle = std::chrono::hours(1);
    radio_.setFrequency(95'000);
    KYRTuner& tuner = start();

    tuner.Seek(KYRTuner::BAND_FM, 1);
    expectTuned(95'100);
    expectFrequency(9500);
    tuner.Seek(KYRTuner::BAND_FM, 1);
    expectTuned(95'200);
    tuner.Play(KYRTuner::BAND_FM, 9000, 0, KYR_FALSE);

    EXPECT_THAT(heard_.waitFor(1), ElementsAre("1 9000"));
    expectTuned(90'000);
}

TEST_F(TunerTest, AutoStoreFindsTheStationsAndScanPlaysThem)
{
    radio_.setFrequency(95'000);
    radio_.stations = {{87'500, 90}, {98'000, 90}, {108'000, 90}};
    KYRTuner& tuner = start();

    tuner.AutoStore();
    EXPECT_THAT(heard_.waitFor(1), ElementsAre("1 9500"));
    tuner.Scan(KYRTuner::BAND_FM);

    EXPECT_THAT(heard_.waitFor(5), ElementsAre("1 9500", "1 8750", "1 9800", "1 10800", "1 9500"));
}

TEST_F(TunerTest, ScanWithoutStoredStationsSearchesThem)
{
    config_.am.step = 10;
    radio_.stations = {{990, 9}};
    KYRTuner& tuner = start();

    tuner.Scan(KYRTuner::BAND_0);

    EXPECT_THAT(heard_.waitFor(2), ElementsAre("0 990", "0 520"));
    expectFrequency(520);
}

constexpr unsigned kTrafficProgramme = 0x0400;
constexpr unsigned kAnnouncement = 0x0410;

TEST_F(TunerTest, AnnouncementIsTold)
{
    start();
    followAnnouncements();

    radio_.say(kAnnouncement);
    EXPECT_THAT(heard_.waitFor(1), ElementsAre("TA 8750 1"));
    radio_.say(kTrafficProgramme);

    EXPECT_THAT(heard_.waitFor(2), ElementsAre("TA 8750 1", "TA 8750 0"));
}

TEST_F(TunerTest, OnlyGoodBlocksOfGroup0ThatSpeakOfThisStationCount)
{
    start();
    followAnnouncements();

    radio_.say(0x0010);  // on another station
    radio_.say(0x2410);  // group 2
    radio_.say(kAnnouncement, V4L2_RDS_BLOCK_A);
    radio_.say(kAnnouncement, V4L2_RDS_BLOCK_INVALID);
    radio_.say(kAnnouncement, V4L2_RDS_BLOCK_B | V4L2_RDS_BLOCK_ERROR);
    waitUntilRead();
    radio_.say(kAnnouncement | 0x0800, V4L2_RDS_BLOCK_B | V4L2_RDS_BLOCK_CORRECTED);  // group 0B

    EXPECT_THAT(heard_.waitFor(1), ElementsAre("TA 8750 1"));
    radio_.say(kTrafficProgramme, V4L2_RDS_BLOCK_B | V4L2_RDS_BLOCK_ERROR);
    radio_.say(kTrafficProgramme);
    EXPECT_THAT(heard_.waitFor(2), ElementsAre("TA 8750 1", "TA 8750 0"));
}

TEST_F(TunerTest, AnotherFrequencyEndsAnAnnouncement)
{
    KYRTuner& tuner = start();
    followAnnouncements();
    radio_.say(kAnnouncement);
    heard_.waitFor(1);

    tuner.Play(KYRTuner::BAND_FM, 9000, 0, KYR_FALSE);

    EXPECT_THAT(heard_.waitFor(3), ElementsAre("TA 8750 1", "TA 8750 0", "1 9000"));
}

TEST_F(TunerTest, WithoutTheSettingNoAnnouncementIsTold)
{
    KYRTuner& tuner = start();
    radio_.say(kAnnouncement);
    followAnnouncements();
    radio_.say(kAnnouncement);
    EXPECT_THAT(heard_.waitFor(1), ElementsAre("TA 8750 1"));

    tuner.SwitchRdsTASetting(0);

    EXPECT_THAT(heard_.waitFor(2), ElementsAre("TA 8750 1", "TA 8750 0"));
    tuner.SwitchRdsAFSetting(1);
}

TEST_F(TunerTest, RadioThatIsDisconnectedAndComesBackGetsItsFrequencyBack)
{
    KYRTuner& tuner = start();
    tuner.Play(KYRTuner::BAND_FM, 9470, 0, KYR_FALSE);
    heard_.waitFor(1);

    radio_.failWith(ENODEV);
    EXPECT_EQ(reasonOnce(State::kAbsent), "/dev/radio0: No such device; connect the radio, or load its driver");
    tuner.Play(KYRTuner::BAND_FM, 9000, 0, KYR_FALSE);  // refused
    tuner.GetCurrentBand();
    radio_.setFrequency(87'500);
    radio_.failWith(0);

    EXPECT_EQ(reasonOnce(State::kUp), "");
    expectFrequency(9470);
    expectTuned(94'700);
}

TEST_F(TunerTest, RadioThatFailsInASearchIsLookedForAgain)
{
    config_.settle = std::chrono::seconds(60);
    KYRTuner& tuner = start();
    tuner.Seek(KYRTuner::BAND_FM, 1);
    expectTuned(87'600);

    radio_.failWith(EIO);
    EXPECT_THAT(reasonOnce(State::kAbsent), StartsWith("/dev/radio0: Input/output error"));
    radio_.failWith(0);

    EXPECT_EQ(reasonOnce(State::kUp), "");
    expectFrequency(8750);
    expectTuned(87'500);
}

TEST_F(TunerTest, RadioThatIsMissingIsToldWithWhatHelps)
{
    radio_.failWith(ENOENT);
    KYRTuner& tuner = begin();

    EXPECT_EQ(reasonOnce(State::kAbsent),
              "/dev/radio0: No such file or directory; connect the radio, or load its driver");
    EXPECT_EQ(tuner.InitInstance(), 1);
    EXPECT_EQ(tuner.GetCurrentBand(), KYRTuner::BAND_FM);
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_FM), 0U);
    tuner.Seek(KYRTuner::BAND_FM, 1);  // refused
    tuner.SwitchRdsTASetting(1);
    tuner.GetCurrentBand();
}

TEST_F(TunerTest, RadioThatMayNotBeOpenedIsToldWithWhatHelps)
{
    radio_.failWith(EACCES);
    begin();

    EXPECT_EQ(reasonOnce(State::kAbsent), "/dev/radio0: Permission denied; add the service's user to the group video");
}

TEST_F(TunerTest, TunerThatIsNotARadioIsRefused)
{
    radio_.type = V4L2_TUNER_ANALOG_TV;
    begin();

    EXPECT_THAT(reasonOnce(State::kAbsent), HasSubstr("expected a radio, got another tuner"));
}

TEST_F(TunerTest, BandThatTheRadioDoesNotHaveIsTold)
{
    radio_.isFine = false;
    config_.fm = {10900, 12000, 10};
    begin();

    EXPECT_THAT(reasonOnce(State::kAbsent), HasSubstr("expected bands within the radio's FM 64 to 108 MHz"));
}

TEST_F(TunerTest, RadioThatBlocksHoldsNobodyUp)
{
    KYRTuner& tuner = start();

    radio_.hold(true);
    tuner.Play(KYRTuner::BAND_FM, 9470, 0, KYR_TRUE);
    EXPECT_EQ(tuner.GetFrequency(KYRTuner::BAND_FM), 8750U);
    loop_.post([this] { heard_.add("the loop runs"); });
    EXPECT_THAT(heard_.waitFor(1), ElementsAre("the loop runs"));
    radio_.hold(false);

    EXPECT_THAT(heard_.waitFor(3), ElementsAre("the loop runs", "1 9470", "sound"));
}

TEST_F(TunerTest, ManyThreadsMayAsk)
{
    KYRTuner& tuner = start();

    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i) {
        threads.emplace_back([&tuner, i] {
            for (unsigned k = 0; k < 20; ++k) {
                tuner.Play(KYRTuner::BAND_FM, 9000 + 10 * i + k, 0, KYR_FALSE);
                tuner.GetFrequency(tuner.GetCurrentBand());
                tuner.SwitchRdsTASetting(k % 2);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(heard_.waitFor(80).size(), 80U);
}

}  // namespace
}  // namespace unit
