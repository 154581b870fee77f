// Audio over a sound card that is changed, vanishes, comes back and hangs.

#include "platform/linux/Audio.h"

#include <ostream>

#include "platform/linux/FakeMixer.h"
#include "platform/linux/UnitSetup.h"
#include "platform/runtime/RuntimeTestSupport.h"

namespace unit {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;
using tests::FakeCard;

class Mutes : public IKYRAudioListener, public Heard
{
public:
    void OnAudioMuteStateChanged(KYRAudioTypes::MuteState eState, KYRAudioTypes::AudioChannel eChannel) override
    {
        add(std::to_string(eState) + " on " + std::to_string(eChannel));
    }
};

class AudioTest : public testing::Test
{
protected:
    AudioTest() { board_.add("audio", "alsa"); }
    ~AudioTest() override
    {
        card_->setHanging(false);
        loop_.stop();
    }

    Audio& start()
    {
        audio_.emplace(config_, FakeCard::mixer(card_), loop_, board_);
        loop_.run();
        return *audio_;
    }

    std::string volume()
    {
        unsigned char limit = 255;
        unsigned char volume = 255;
        audio_->GetVolume(limit, volume);
        return std::to_string(volume) + " of " + std::to_string(limit);
    }

    /// Waits until the mixer stands so.
    /// @returns the reason.
    std::string reasonOnce(State state)
    {
        std::string reason = "it did not happen";
        board_.await(
            [&](const auto& all) {
                const bool is = all[0].state == state && all[0].reason != "the backend has not answered yet";
                reason = is ? all[0].reason : reason;
                return is;
            },
            tests::kGenerous);
        return reason;
    }

    std::string volumeOnce(const std::string& wanted)
    {
        const auto giveUp = steady_clock::now() + tests::kGenerous;
        while (volume() != wanted && steady_clock::now() < giveUp) {
            std::this_thread::yield();
        }
        return volume();
    }

    UnitConfig::Audio config_{"fake", "Master", 40};
    std::shared_ptr<FakeCard> card_ = std::make_shared<FakeCard>();
    StatusBoard board_{false};
    Loop loop_;
    std::optional<Audio> audio_;
};

struct Scale {
    const char* name;
    FakeCard::Level level;
    int steps;
    const char* volume;
};

void PrintTo(const Scale& scale, std::ostream* out)
{
    *out << scale.name;
}

class AudioScaleTest : public AudioTest, public testing::WithParamInterface<Scale>
{
};

TEST_P(AudioScaleTest, VolumeIsInTheStationsSteps)
{
    config_.steps = GetParam().steps;
    card_->set(GetParam().level);
    start();

    EXPECT_EQ(reasonOnce(State::kUp), "");
    EXPECT_EQ(volume(), GetParam().volume);
}

INSTANTIATE_TEST_SUITE_P(Range, AudioScaleTest,
                         testing::Values(Scale{"Silent", {-50, 100, -50}, 100, "0 of 100"},
                                         Scale{"Middle", {-50, 100, 25}, 100, "50 of 100"},
                                         Scale{"Loudest", {-50, 100, 100}, 100, "100 of 100"},
                                         Scale{"Rounded", {0, 31, 30}, 40, "39 of 40"},
                                         Scale{"Fine", {0, 65536, 20971}, 255, "82 of 255"},
                                         Scale{"WithoutARange", {7, 7, 7}, 40, "0 of 40"},
                                         Scale{"BeyondTheRange", {0, 10, 20}, 40, "40 of 40"}),
                         [](const auto& row) { return row.param.name; });

TEST_F(AudioTest, VolumeFollowsTheCard)
{
    start();
    EXPECT_EQ(reasonOnce(State::kUp), "");
    EXPECT_EQ(volume(), "20 of 40");

    card_->set({0, 100, 75, false});

    EXPECT_EQ(volumeOnce("30 of 40"), "30 of 40");
}

TEST_F(AudioTest, MuteIsToldOnceForEachChange)
{
    Mutes mutes;
    start().AddListener(&mutes);
    EXPECT_EQ(reasonOnce(State::kUp), "");
    EXPECT_EQ(audio_->GetMuteState(KYRAudio::CHANNEL_HARDWARE), Audio::kNotMuted);

    card_->set({0, 100, 50, true});
    EXPECT_THAT(mutes.waitFor(1), ElementsAre("1 on 6"));
    EXPECT_EQ(audio_->GetMuteState(KYRAudio::CHANNEL_HARDWARE), Audio::kMuted);
    card_->set({0, 100, 60, true});
    EXPECT_EQ(volumeOnce("24 of 40"), "24 of 40");
    card_->set({0, 100, 60, false});

    EXPECT_THAT(mutes.waitFor(2), ElementsAre("1 on 6", "0 on 6"));
    audio_->RemoveListener(&mutes);
}

TEST_F(AudioTest, CardThatVanishesAndComesBackIsFollowed)
{
    start();
    EXPECT_EQ(reasonOnce(State::kUp), "");

    card_->setThere(false);
    EXPECT_EQ(reasonOnce(State::kAbsent), "no such card");
    EXPECT_EQ(volume(), "0 of 0");

    card_->setThere(true);
    EXPECT_EQ(reasonOnce(State::kUp), "");
    EXPECT_EQ(volume(), "20 of 40");
}

TEST_F(AudioTest, CardThatComesLaterIsFound)
{
    card_->setThere(false);
    EXPECT_EQ(start().InitInstance(), 1);
    EXPECT_EQ(reasonOnce(State::kAbsent), "no such card");
    EXPECT_EQ(audio_->GetMuteState(KYRAudio::CHANNEL_HARDWARE), Audio::kNotMuted);

    card_->setThere(true);

    EXPECT_EQ(reasonOnce(State::kUp), "");
}

TEST_F(AudioTest, ElementThatIsMissingIsTold)
{
    config_.element = "Headphone";
    start();

    EXPECT_EQ(reasonOnce(State::kAbsent), "expected the element 'Headphone', got Master");
}

TEST_F(AudioTest, MixerThatHangsHoldsNobodyUpAndIsTold)
{
    start();
    EXPECT_EQ(reasonOnce(State::kUp), "");
    card_->setHanging(true);
    ASSERT_TRUE(card_->waitUntilItHangs());

    const auto begun = steady_clock::now();
    EXPECT_EQ(volume(), "20 of 40");
    EXPECT_EQ(audio_->GetMuteState(KYRAudio::CHANNEL_HARDWARE), Audio::kNotMuted);
    const auto took = steady_clock::now() - begun;
    RecordProperty("microseconds", static_cast<int>(took / std::chrono::microseconds(1)));
    EXPECT_LT(took, milliseconds(50));

    EXPECT_EQ(reasonOnce(State::kAbsent), "fake: no answer for 2 s");
    EXPECT_EQ(volume(), "0 of 0");
    card_->setHanging(false);
    EXPECT_EQ(reasonOnce(State::kUp), "");
    EXPECT_EQ(volume(), "20 of 40");
}

TEST_F(AudioTest, MixerThatHangsForEverIsLeftBehind)
{
    card_->setHanging(true);
    start();
    ASSERT_TRUE(card_->waitUntilItHangs());
    loop_.stop();

    audio_.reset();

    card_->setHanging(false);
}

TEST(AlsaMixerTest, CardThatIsNotThereIsSaidWithWhatHelps)
{
    const auto why = [](const char* card) {
        try {
            alsaMixer(card)->open();
        } catch (const std::runtime_error& error) {
            return std::string(error.what());
        }
        return std::string("it was opened");
    };

    EXPECT_EQ(why("hw:31"), "hw:31: No such file or directory; /proc/asound/cards lists the cards");
    EXPECT_EQ(why("nonsense"),
              "nonsense: No such file or directory; install ALSA's plugin of this name, in libasound2-plugins");
}

/// The changes that a board's own HMI makes.
class MixerChangeTest : public AudioTest
{
protected:
    MixerFollower& follow()
    {
        follower_.emplace(
            config_, FakeCard::mixer(card_), loop_, [](const MixerFollower::Level&, const std::string&) {},
            reports_.reporter());
        loop_.run();
        return *follower_;
    }
    ~MixerChangeTest() override { loop_.stop(); }

    runtime::testsupport::Reports reports_;
    std::optional<MixerFollower> follower_;
};

TEST_F(MixerChangeTest, VolumeAndSwitchReachTheCard)
{
    card_->set({-50, 100, 0});
    follow().setVolume(10);
    EXPECT_TRUE(card_->waitForVolume(-12));  // a quarter of the range is 37.5

    follower_->setVolume(255);
    EXPECT_TRUE(card_->waitForVolume(100));
    follower_->setSwitch("Tone", true);
    EXPECT_TRUE(card_->waitForTone(true));
    follower_->setSwitch("Tone", false);
    EXPECT_TRUE(card_->waitForTone(false));
}

TEST_F(MixerChangeTest, ChangeThatFailsIsReportedAndTheOthersGoOn)
{
    follow().setSwitch("Bass", true);
    EXPECT_THAT(reports_.waitFor(1), ElementsAre("expected the element 'Bass', got Tone"));

    follower_->setVolume(40);
    EXPECT_TRUE(card_->waitForVolume(100));
}

TEST_F(MixerChangeTest, WithoutTheCardAChangeIsRefused)
{
    card_->setThere(false);
    follow().setVolume(40);

    EXPECT_THAT(reports_.waitFor(1), ElementsAre("the mixer is not changed: no such card"));
}

TEST_F(MixerChangeTest, OfTheChangesToAMixerThatHangsTheLastOneCounts)
{
    card_->setHanging(true);
    follow();
    ASSERT_TRUE(card_->waitUntilItHangs());
    for (int steps = 0; steps <= 30; ++steps) {
        follower_->setVolume(steps);
    }

    card_->setHanging(false);

    EXPECT_TRUE(card_->waitForVolume(75));
}

}  // namespace
}  // namespace unit
