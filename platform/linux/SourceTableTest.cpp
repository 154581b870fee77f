// The source table over units of systemd and players that come, fail and go.

#include <KYRSource.h>

#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;
using Kind = UnitConfig::AudioSource::Kind;

constexpr const char* kRadio = "/org/freedesktop/systemd1/unit/radio_2eservice";
constexpr const char* kUnitInterface = "org.freedesktop.systemd1.Unit";

class Sources : public IKYRSourceListener, public Heard
{
public:
    void OnSourceStatusChanged(KYRSource::SourceID eSource, KYRSource::SourceStatus eStatus) override
    {
        add(std::to_string(eSource) + (int{eStatus} == SourceTable::kPlays ? " plays" : " stopped"));
    }
};

class SourceTableTest : public UnitSetup
{
protected:
    SourceTableTest()
    {
        config_.backends.emplace_back("source", "table");
        std::erase(config_.backends, std::pair<std::string, std::string>("source", "off"));
        config_.sources = {{1, {Kind::kUnit, "radio.service"}},
                           {3, {Kind::kUnit, "radio.service"}},
                           {16, {Kind::kPlayer, "usb"}},
                           {44, {Kind::kNone, ""}}};
        systemd_->setProperty(kRadio, kUnitInterface, "ActiveState", "'inactive'");
        systemd_->setProperty(kRadio, kUnitInterface, "LoadState", "'loaded'");
        KYRSource::StartService();
    }
    ~SourceTableTest() override { KYRSource::RemoveListener(&sources_); }

    /// Starts the unit over systemd and the player, both there.
    void startComplete()
    {
        start();
        KYRSource::AddListener(&sources_);
        EXPECT_EQ(reasonOnce("source", State::kUp), "");
        EXPECT_THAT(systemd_->waitForCalls(1), ElementsAre("Subscribe ()"));
    }

    int currentOnce(int wanted)
    {
        return once([] { return int{KYRSource::GetCurrentSource(KYRSource::SOURCE_TYPE_MAIN)}; }, wanted);
    }

    std::unique_ptr<tests::ScriptedService> systemd_ = service("org.freedesktop.systemd1");
    std::unique_ptr<tests::ScriptedService> player_ = service("org.mpris.MediaPlayer2.usb");
    Sources sources_;
};

int request(int source)
{
    return KYRSource::Request(source, KYRSource::AUDIO_GAIN_DEFAULT);
}

TEST_F(SourceTableTest, RequestStartsTheNewSourceAndStopsTheOldOne)
{
    startComplete();
    EXPECT_EQ(currentOnce(KYRSource::SOURCE_NONE), KYRSource::SOURCE_NONE);

    EXPECT_EQ(request(1), 1);
    EXPECT_EQ(currentOnce(1), 1);
    EXPECT_EQ(request(16), 1);
    EXPECT_EQ(request(44), 1);
    EXPECT_EQ(currentOnce(44), 44);

    EXPECT_THAT(systemd_->waitForCalls(3), ElementsAre("Subscribe ()", "Start ('replace',)", "Stop ('replace',)"));
    EXPECT_THAT(player_->waitForCalls(2), ElementsAre("Play ()", "Pause ()"));
    EXPECT_THAT(sources_.waitFor(5), ElementsAre("1 plays", "1 stopped", "16 plays", "16 stopped", "44 plays"));
}

TEST_F(SourceTableTest, SourceThatSharesTheUnitLeavesItRunning)
{
    startComplete();

    request(1);
    request(3);
    request(3);

    EXPECT_THAT(sources_.waitFor(3), ElementsAre("1 plays", "1 stopped", "3 plays"));
    EXPECT_THAT(systemd_->waitForCalls(4),
                ElementsAre("Subscribe ()", "Start ('replace',)", "Start ('replace',)", "Start ('replace',)"));
}

TEST_F(SourceTableTest, SourceThatTheTableLacksIsRefused)
{
    startComplete();
    request(44);

    EXPECT_NE(request(2), 1);
    EXPECT_NE(request(KYRSource::SOURCE_NONE), 1);

    EXPECT_EQ(currentOnce(44), 44);
}

TEST_F(SourceTableTest, PlayerThatIsMissingIsToldAndRefusedAndFollowed)
{
    player_.reset();
    start();
    const auto reason = [this] { return reasonOnce("source", State::kAbsent); };
    const std::string expected = "source 16: org.mpris.MediaPlayer2.usb is not running";
    EXPECT_EQ(once(reason, expected), expected);
    EXPECT_EQ(request(16), 0);
    EXPECT_EQ(request(1), 1);

    player_ = service("org.mpris.MediaPlayer2.usb");

    EXPECT_EQ(reasonOnce("source", State::kUp), "");
    EXPECT_EQ(request(16), 1);
    EXPECT_THAT(player_->waitForCalls(1), ElementsAre("Play ()"));
}

TEST_F(SourceTableTest, UnitThatIsNotInstalledIsToldAndRefused)
{
    systemd_->setProperty(kRadio, kUnitInterface, "LoadState", "'not-found'");
    start();
    const auto reason = [this] { return reasonOnce("source", State::kAbsent); };
    const std::string expected =
        "source 1: systemd has no unit radio.service; install it, or correct its name; source 3: systemd has no unit "
        "radio.service; install it, or correct its name";

    EXPECT_EQ(once(reason, expected), expected);
    EXPECT_EQ(request(1), 0);
}

TEST_F(SourceTableTest, UnitThatIsMaskedIsToldAndRefused)
{
    config_.sources = {{1, {Kind::kUnit, "radio.service"}}};
    systemd_->setProperty(kRadio, kUnitInterface, "LoadState", "'masked'");
    start();
    const auto reason = [this] { return reasonOnce("source", State::kAbsent); };
    const std::string expected =
        "source 1: unit radio.service: expected it to be loaded, got masked; 'systemctl status radio.service' says why";

    EXPECT_EQ(once(reason, expected), expected);
    EXPECT_EQ(request(1), 0);
}

TEST_F(SourceTableTest, NameThatSystemdRefusesIsToldAndRefused)
{
    config_.sources = {{1, {Kind::kUnit, "radio"}}};
    systemd_->answer("GetAll", "!org.freedesktop.DBus.Error.UnknownObject");
    start();
    const auto reason = [this] { return reasonOnce("source", State::kAbsent); };
    const std::string expected = "source 1: systemd: expected the name of a unit, such as NAME.service, got radio";

    EXPECT_EQ(once(reason, expected), expected);
    EXPECT_EQ(request(1), 0);
}

TEST_F(SourceTableTest, StartThatIsRefusedLeavesNoSource)
{
    systemd_->answer("Start", "!org.freedesktop.systemd1.NoSuchUnit");
    startComplete();

    EXPECT_EQ(request(1), 1);

    EXPECT_EQ(currentOnce(KYRSource::SOURCE_NONE), KYRSource::SOURCE_NONE);
    EXPECT_THAT(sources_.waitFor(2), ElementsAre("1 plays", "1 stopped"));
}

TEST_F(SourceTableTest, UnitThatFailsAndPlayerThatGoesLeaveNoSource)
{
    startComplete();
    request(1);
    systemd_->setProperty(kRadio, kUnitInterface, "ActiveState", "'failed'");
    EXPECT_EQ(currentOnce(KYRSource::SOURCE_NONE), KYRSource::SOURCE_NONE);

    request(16);
    EXPECT_THAT(player_->waitForCalls(1), ElementsAre("Play ()"));
    player_.reset();

    EXPECT_EQ(currentOnce(KYRSource::SOURCE_NONE), KYRSource::SOURCE_NONE);
    EXPECT_EQ(request(16), 0);
}

TEST_F(SourceTableTest, WhatPlaysAtTheStartIsTheCurrentSource)
{
    player_->setProperty("/org/mpris/MediaPlayer2", "org.mpris.MediaPlayer2.Player", "PlaybackStatus", "'Playing'");
    startComplete();

    EXPECT_EQ(currentOnce(16), 16);
    request(1);
    EXPECT_THAT(player_->waitForCalls(1), ElementsAre("Pause ()"));
}

TEST_F(SourceTableTest, ServiceThatNeverAnswersHoldsNobodyUp)
{
    systemd_->answer("Start", "");
    startComplete();

    const auto begun = std::chrono::steady_clock::now();
    EXPECT_EQ(request(1), 1);
    EXPECT_EQ(request(44), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - begun, std::chrono::milliseconds(50));

    EXPECT_THAT(systemd_->waitForCalls(3), ElementsAre("Subscribe ()", "Start ('replace',)", "Stop ('replace',)"));
}

class SourcesOffTest : public UnitSetup
{
};

TEST_F(SourcesOffTest, EverySourceIsRefused)
{
    start();
    Sources sources;
    KYRSource::AddListener(&sources);

    EXPECT_NE(request(1), 1);
    EXPECT_EQ(KYRSource::GetCurrentSource(KYRSource::SOURCE_TYPE_MAIN), KYRSource::SOURCE_NONE);
    KYRSource::RemoveListener(&sources);
}

}  // namespace
}  // namespace unit
