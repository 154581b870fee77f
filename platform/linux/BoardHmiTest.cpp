// The HMI of a board over a service, players, a sound card and a keyboard that come, go and answer wrongly.

#include "platform/linux/BoardHmi.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/linux/FakeMixer.h"
#include "platform/linux/UnitSetup.h"

namespace unit {
namespace {

using testing::ElementsAre;
using tests::FakeCard;

constexpr const char* kPlayer = "/org/mpris/MediaPlayer2";
constexpr const char* kPlayerInterface = "org.mpris.MediaPlayer2.Player";

class BoardHmiTest : public UnitSetup
{
protected:
    BoardHmiTest()
    {
        config_.audio = {"fake", "Master", 40};
        config_.hmi = UnitConfig::Hmi{.players = {{1, "usb"}, {3, "usb"}, {4, "phone"}},
                                      .actions = {"Play", "Pause", "Next", "Previous"},
                                      .eqSwitch = "Tone",
                                      .keyboard = directory_.path() / "keyboard",
                                      .keys = {{115, 1}, {114, 2}},
                                      .longPress = std::chrono::seconds(1)};
        EXPECT_EQ(mkfifo(config_.hmi->keyboard.c_str(), 0600), 0);
        plugKeyboard();
    }
    ~BoardHmiTest() override { card_->setHanging(false); }

    void startHmi()
    {
        hmi_.emplace(config_, FakeCard::mixer(card_), [this] { ready_.add("ready"); });
        EXPECT_THAT(ready_.waitFor(1), ElementsAre("ready"));
    }

    /// Starts it over a service and a player, both there.
    void startComplete()
    {
        startHmi();
        for (const char* part : {"service", "player 1", "player 3", "audio", "keyboard"}) {
            EXPECT_EQ(reasonOnce(part, State::kUp), "") << part;
        }
    }

    std::string reasonOnce(const std::string& part, State state)
    {
        return UnitSetup::reasonOnce(hmi_->board(), part, state);
    }

    void emit(const std::string& signal, const std::string& arguments)
    {
        service_->emit("/com/zent/linux/engineering", "com.zent.linux.engineering", signal, arguments);
    }

    // A pipe with both ends here does not end when the reader opens it again.
    void plugKeyboard() { keyboard_.reset(open(config_.hmi->keyboard.c_str(), O_RDWR | O_CLOEXEC)); }

    static input_event event(int type, int code, int value, long milliseconds)
    {
        input_event event{};
        event.input_event_sec = milliseconds / 1000;
        event.input_event_usec = milliseconds % 1000 * 1000;
        event.type = static_cast<__u16>(type);
        event.code = static_cast<__u16>(code);
        event.value = value;
        return event;
    }
    void type(const input_event& event) { type(std::string(reinterpret_cast<const char*>(&event), sizeof event)); }
    void type(const std::string& bytes)
    {
        EXPECT_EQ(write(keyboard_.get(), bytes.data(), bytes.size()), std::ssize(bytes));
    }

    std::shared_ptr<FakeCard> card_ = std::make_shared<FakeCard>();
    host::Descriptor keyboard_;
    Heard ready_;
    std::unique_ptr<tests::ScriptedService> service_ = service("com.zent.linux.engineering");
    std::unique_ptr<tests::ScriptedService> player_ = service("org.mpris.MediaPlayer2.usb");
    std::optional<BoardHmi> hmi_;
};

TEST_F(BoardHmiTest, VolumeAndEqualizerReachTheCard)
{
    startComplete();

    emit("OnAutoTestVolumeChangeSignal", "(byte 10,)");
    EXPECT_TRUE(card_->waitForVolume(25));
    emit("OnAutoTestVolumeChangeSignal", "(byte 255,)");
    EXPECT_TRUE(card_->waitForVolume(100));
    emit("OnAutoTestSetEqSwitchSignal", "(true,)");
    EXPECT_TRUE(card_->waitForTone(true));
    emit("OnAutoTestSetEqSwitchSignal", "(false,)");
    EXPECT_TRUE(card_->waitForTone(false));
}

TEST_F(BoardHmiTest, PlayActionsAreMethodsOfTheMediumsPlayer)
{
    startComplete();

    for (const char* action : {"(byte 1, byte 1)", "(byte 1, byte 2)", "(byte 3, byte 3)", "(byte 1, byte 0)",
                               "(byte 1, byte 5)", "(byte 2, byte 1)", "(byte 4, byte 1)", "(byte 1, byte 4)"}) {
        emit("OnAutoTestMediaPlayActionSignal", action);
    }

    EXPECT_THAT(player_->waitForCalls(4), ElementsAre("Play ()", "Pause ()", "Next ()", "Previous ()"));
}

TEST_F(BoardHmiTest, TrackIsSelectedInThePlayersList)
{
    player_->answer("Get", "(<[objectpath '/a', '/b', '/c']>,)");
    startComplete();

    emit("OnAutoTestMediaSelectTrackSignal", "(byte 1, byte 3)");  // there is none: reported
    emit("OnAutoTestMediaSelectTrackSignal", "(byte 1, byte 2)");

    EXPECT_THAT(player_->waitForCalls(1), ElementsAre("GoTo ('/c',)"));
}

TEST_F(BoardHmiTest, TrackIsAnsweredAsItsPlaceInTheList)
{
    player_->answer("Get", "(<[objectpath '/a', '/b']>,)");
    player_->setProperty(kPlayer, kPlayerInterface, "Metadata",
                         "{'mpris:trackid': <objectpath '/b'>, 'xesam:trackNumber': <9>}");
    startComplete();

    emit("OnAutoTestGetMediaTrackIndexSignal", "(byte 3,)");

    EXPECT_THAT(service_->waitForCalls(1), ElementsAre("auto_test_set_track_index (0x03, 0x01)"));
}

TEST_F(BoardHmiTest, WithoutAListTheTrackIsItsNumber)
{
    player_->answer("Get", "!org.freedesktop.DBus.Error.UnknownInterface");
    player_->setProperty(kPlayer, kPlayerInterface, "Metadata", "{'mpris:trackid': <'/b'>, 'xesam:trackNumber': <9>}");
    startComplete();

    emit("OnAutoTestGetMediaTrackIndexSignal", "(byte 1,)");

    EXPECT_THAT(service_->waitForCalls(1), ElementsAre("auto_test_set_track_index (0x01, 0x09)"));
}

TEST_F(BoardHmiTest, TrackThatIsNotKnownIsNotAnswered)
{
    player_->answer("Get", "(<7>,)");
    player_->setProperty(kPlayer, kPlayerInterface, "Metadata", "{'xesam:trackNumber': <256>}");
    startComplete();
    emit("OnAutoTestGetMediaTrackIndexSignal", "(byte 1,)");
    emit("OnAutoTestGetMediaTrackIndexSignal", "(byte 2,)");

    type(event(EV_KEY, 115, 1, 0));
    type(event(EV_KEY, 115, 0, 10));
    EXPECT_THAT(service_->waitForCalls(1), ElementsAre("auto_test_feedback_key_event (0x01, 0x00)"));
}

TEST_F(BoardHmiTest, SignalWithWrongArgumentsAndOtherSignalsAreIgnored)
{
    startComplete();

    emit("OnAutoTestVolumeChangeSignal", "('loud',)");
    emit("OnAutoTestMediaPlayActionSignal", "(1, 2)");
    emit("OnAutoTestSetFaderBalanceSignal", "(byte 1, byte 1)");
    emit("OnAutoTestModeChangeSignal", "(true,)");
    emit("OnAutoTestVolumeChangeSignal", "(byte 40,)");

    EXPECT_TRUE(card_->waitForVolume(100));
    EXPECT_TRUE(card_->waitForTone(false));
}

TEST_F(BoardHmiTest, KeyIsReportedWhenItIsReleased)
{
    startComplete();

    type(event(EV_KEY, 115, 1, 5000));
    type(event(EV_KEY, 115, 2, 5250));  // repeats while it is held
    type(event(EV_KEY, 115, 0, 5999));
    type(event(EV_KEY, 114, 1, 7000));
    type(event(EV_SYN, SYN_REPORT, 0, 7000));
    type(event(EV_KEY, 114, 0, 8000));
    type(event(EV_KEY, 30, 1, 8000));  // not in the table
    type(event(EV_KEY, 30, 0, 8001));
    type(event(EV_KEY, 115, 1, 9000));
    type(event(EV_KEY, 115, 0, 9100));

    EXPECT_THAT(service_->waitForCalls(3),
                ElementsAre("auto_test_feedback_key_event (0x01, 0x00)", "auto_test_feedback_key_event (0x02, 0x10)",
                            "auto_test_feedback_key_event (0x01, 0x00)"));
}

TEST_F(BoardHmiTest, KeyEventsInPiecesAndLostOnesAreUnderstood)
{
    startComplete();

    type(event(EV_KEY, 115, 0, 0));  // a release without a press
    type(event(EV_KEY, 115, 1, 10));
    type(event(EV_SYN, SYN_DROPPED, 0, 20));
    type(event(EV_KEY, 115, 0, 8000));
    type(event(EV_KEY, 115, 1, 8000));  // the rest of a report whose beginning is lost
    type(event(EV_SYN, SYN_REPORT, 0, 8000));
    type(event(EV_KEY, 115, 0, 9000));
    const input_event press = event(EV_KEY, 114, 1, 9000);
    const std::string bytes(reinterpret_cast<const char*>(&press), sizeof press);
    type(bytes.substr(0, 7));
    type(bytes.substr(7));
    type(event(EV_KEY, 114, 0, 9001));

    EXPECT_THAT(service_->waitForCalls(1), ElementsAre("auto_test_feedback_key_event (0x02, 0x00)"));
}

TEST_F(BoardHmiTest, KeyboardThatGoesAndComesBackIsFollowed)
{
    startComplete();

    std::filesystem::remove(config_.hmi->keyboard);
    keyboard_.reset();
    EXPECT_EQ(reasonOnce("keyboard", State::kAbsent), config_.hmi->keyboard + ": the device has gone");
    const std::string missing =
        config_.hmi->keyboard + ": No such file or directory; /proc/bus/input/devices lists the devices";
    EXPECT_EQ(once([this] { return reasonOnce("keyboard", State::kAbsent); }, missing), missing);

    ASSERT_EQ(mkfifo(config_.hmi->keyboard.c_str(), 0600), 0);
    plugKeyboard();
    EXPECT_EQ(reasonOnce("keyboard", State::kUp), "");
    type(event(EV_KEY, 115, 1, 0));
    type(event(EV_KEY, 115, 0, 10));
    EXPECT_THAT(service_->waitForCalls(1), ElementsAre("auto_test_feedback_key_event (0x01, 0x00)"));
}

TEST_F(BoardHmiTest, PlayerAndServiceThatGoAndComeBackAreFollowed)
{
    startComplete();
    player_.reset();
    service_.reset();
    EXPECT_EQ(reasonOnce("player 1", State::kAbsent), "org.mpris.MediaPlayer2.usb is not running");
    EXPECT_EQ(reasonOnce("service", State::kAbsent), "com.zent.linux.engineering is not running");
    type(event(EV_KEY, 115, 1, 0));
    type(event(EV_KEY, 115, 0, 10));

    player_ = service("org.mpris.MediaPlayer2.usb");
    service_ = service("com.zent.linux.engineering");
    EXPECT_EQ(reasonOnce("player 1", State::kUp), "");
    EXPECT_EQ(reasonOnce("service", State::kUp), "");
    emit("OnAutoTestMediaPlayActionSignal", "(byte 1, byte 1)");

    EXPECT_THAT(player_->waitForCalls(1), ElementsAre("Play ()"));
}

TEST_F(BoardHmiTest, WithoutAnythingItWaits)
{
    player_.reset();
    service_.reset();
    keyboard_.reset();
    card_->setThere(false);
    startHmi();

    EXPECT_EQ(reasonOnce("service", State::kAbsent), "com.zent.linux.engineering is not running");
    const std::string noCard = "no such card";
    EXPECT_EQ(once([this] { return reasonOnce("audio", State::kAbsent); }, noCard), noCard);
    service_ = service("com.zent.linux.engineering");
    card_->setThere(true);
    EXPECT_EQ(reasonOnce("service", State::kUp), "");
    EXPECT_EQ(reasonOnce("audio", State::kUp), "");
    emit("OnAutoTestVolumeChangeSignal", "(byte 0,)");

    EXPECT_TRUE(card_->waitForVolume(0));
}

TEST_F(BoardHmiTest, CardThatHangsHoldsNeitherKeysNorPlayersUp)
{
    startComplete();
    card_->setHanging(true);
    emit("OnAutoTestVolumeChangeSignal", "(byte 0,)");
    ASSERT_TRUE(card_->waitUntilItHangs());

    emit("OnAutoTestMediaPlayActionSignal", "(byte 1, byte 1)");
    type(event(EV_KEY, 115, 1, 0));
    type(event(EV_KEY, 115, 0, 10));

    EXPECT_THAT(player_->waitForCalls(1), ElementsAre("Play ()"));
    EXPECT_THAT(service_->waitForCalls(1), ElementsAre("auto_test_feedback_key_event (0x01, 0x00)"));
}

TEST_F(BoardHmiTest, WithoutACardPlayersAndKeysAreServed)
{
    hmi_.emplace(config_, nullptr, [] {});
    EXPECT_EQ(reasonOnce("service", State::kUp), "");
    EXPECT_EQ(reasonOnce("player 1", State::kUp), "");

    emit("OnAutoTestVolumeChangeSignal", "(byte 0,)");
    emit("OnAutoTestSetEqSwitchSignal", "(true,)");
    emit("OnAutoTestMediaPlayActionSignal", "(byte 1, byte 2)");

    EXPECT_THAT(player_->waitForCalls(1), ElementsAre("Pause ()"));
}

}  // namespace
}  // namespace unit
