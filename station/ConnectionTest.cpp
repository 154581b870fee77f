#include "station/Connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>
#include <thread>
#include <utility>
#include <vector>

#include "station/PortUsers.h"
#include "station/SerialLink.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/TempDir.h"

namespace station {
namespace {

using namespace std::chrono_literals;
using protocol::Frame;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::Eq;
using testing::HasSubstr;
using tests::PtyPeer;
using Kind = TraceEvent::Kind;
using Bytes = std::vector<std::uint8_t>;

constexpr auto kGenerous = 20s;

const Frame kAskMode{0x0F, 0xFF, {}};
const Frame kModeIsOn{0x8F, 0xFF, {0x01}};
// 02+0F+FF = 0110, two's complement FEF0
const Bytes kAskModeBytes{0x2A, 0xA2, 0x00, 0x02, 0x0F, 0xFF, 0xFE, 0xF0};
// 03+8F+FF+01 = 0192, two's complement FE6E
const Bytes kModeIsOnBytes{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E};
// The same with a checksum that is off by one.
const Bytes kCorruptBytes{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6F};
// 86 11 [05]: 03+86+11+05 = 009F, two's complement FF61
const Frame kKey{0x86, 0x11, {0x05}};
const Bytes kKeyBytes{0x2A, 0xA2, 0x00, 0x03, 0x86, 0x11, 0x05, 0x00, 0xFF, 0x61};

bool answersAskMode(const Frame& frame)
{
    return frame.cmdOne == 0x8F && frame.cmdTwo == 0xFF;
}

Bytes operator+(Bytes one, const Bytes& other)
{
    one.insert(one.end(), other.begin(), other.end());
    return one;
}

/// Keeps what it is told, and lets the test step in just then: on the station's thread, with the station inside a call.
class Script : public TraceSink
{
public:
    void on(const TraceEvent& event) override
    {
        events.push_back(event);
        if (const auto step = std::exchange(next[static_cast<std::size_t>(event.kind)], nullptr)) {
            step();
        }
    }

    /// Does `step` at the next event of this kind.
    void at(Kind kind, std::function<void()> step) { next[static_cast<std::size_t>(kind)] = std::move(step); }

    std::vector<Kind> kinds() const
    {
        std::vector<Kind> all;
        for (const auto& event : events) {
            all.push_back(event.kind);
        }
        return all;
    }

    std::vector<TraceEvent> events;

private:
    std::array<std::function<void()>, 5> next;
};

class ConnectionTest : public testing::Test
{
protected:
    ConnectionTest() { plugIn(); }

    /// Puts a new unit behind the port's name.
    void plugIn()
    {
        unit = std::make_unique<PtyPeer>();
        const auto fresh = directory.path() / "fresh";
        std::filesystem::create_symlink(unit->path(), fresh);
        std::filesystem::rename(fresh, port());
    }

    /// The unit goes, and its name with it.
    void unplug()
    {
        unit->hangUp();
        std::filesystem::remove(port());
    }

    std::string port() const { return (directory.path() / "port").string(); }

    Connection connect(Connection::Duration reconnect = kGenerous)
    {
        return Connection({port()}, {.reconnect = reconnect, .trace = &trace, .interrupt = &interrupt});
    }

    static Connection::Exchange ask(Connection& connection, Connection::Duration timeout = kGenerous)
    {
        return connection.request(kAskMode, answersAskMode, timeout, true);
    }

    tests::TempDir directory;
    std::unique_ptr<PtyPeer> unit;
    Script trace;
    Interrupt interrupt;
};

/// Asks the unit for its mode before each frame of group 0A.
class AskingGuard : public SendGuard
{
public:
    explicit AskingGuard(std::function<void()> behind) : behind_(std::move(behind)) {}

    bool check(Connection& connection, const Frame& command) override
    {
        if (command.cmdOne != 0x0A) {
            return false;
        }
        if (!connection.request(kAskMode, answersAskMode, kGenerous, true).reply) {
            throw protocol::LineError("no answer", protocol::kNoAnswer);
        }
        behind_();
        return true;
    }

    void on(const TraceEvent&) override {}

private:
    std::function<void()> behind_;
};

class GuardedConnectionTest : public ConnectionTest
{
protected:
    GuardedConnectionTest()
    {
        Connection::guardBy([this] { return std::make_unique<AskingGuard>([this] { behind(); }); });
    }
    ~GuardedConnectionTest() override { Connection::guardBy({}); }

    std::function<void()> behind = [] {};
};

template <protocol::ExitStatus kStatus>
std::string messageOf(const auto& action)
{
    try {
        action();
    } catch (const protocol::Error& error) {
        EXPECT_EQ(error.status(), kStatus);
        return error.what();
    }
    return "(nothing was thrown)";
}

// 0A 13 [7]: 03+0A+13+37 = 0057, two's complement FFA9
const Frame kWrite{0x0A, 0x13, {0x37}};
const Bytes kWriteBytes{0x2A, 0xA2, 0x00, 0x03, 0x0A, 0x13, 0x37, 0x00, 0xFF, 0xA9};

TEST_F(GuardedConnectionTest, GuardAsksTheUnitBeforeTheFrameLeaves)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });

    connection.send(kWrite);

    EXPECT_EQ(unit->read(18), kAskModeBytes + kWriteBytes);
    ASSERT_THAT(trace.kinds(), ElementsAre(Kind::kSent, Kind::kReceived, Kind::kSent));
    EXPECT_TRUE(trace.events[0].aside);
    EXPECT_TRUE(trace.events[1].aside);
    EXPECT_FALSE(trace.events[2].aside);
}

TEST_F(GuardedConnectionTest, WhatTheGuardDoesNotAskForIsNotItsOwn)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unit->write(kKeyBytes + kModeIsOnBytes); });

    connection.send(kWrite);

    ASSERT_THAT(trace.kinds(), ElementsAre(Kind::kSent, Kind::kReceived, Kind::kReceived, Kind::kSent));
    EXPECT_FALSE(trace.events[1].aside);
    EXPECT_TRUE(trace.events[2].aside);
}

TEST_F(GuardedConnectionTest, FrameThatTheGuardRefusesDoesNotLeave)
{
    Connection connection = connect();
    behind = [] { throw protocol::LineError("given to another unit", protocol::kFailed); };
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });

    EXPECT_EQ(messageOf<protocol::kFailed>([&] { connection.send(kWrite); }), "given to another unit");
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });
    EXPECT_THROW(connection.request(kWrite, answersAskMode, kGenerous, true), protocol::LineError);

    EXPECT_EQ(unit->read(16), kAskModeBytes + kAskModeBytes);
}

TEST_F(GuardedConnectionTest, FrameForOneUnitDoesNotGoToTheNextOneBehindTheSameName)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });
    behind = [&] {
        unit->hangUp();
        plugIn();
    };

    EXPECT_THAT(messageOf<protocol::kFailed>([&] { connection.request(kWrite, answersAskMode, kGenerous, true); }),
                HasSubstr("nothing more is sent"));
    behind = [] {};
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });
    ask(connection);
    EXPECT_EQ(unit->read(8), kAskModeBytes);
}

TEST_F(ConnectionTest, RequestSendsTheFrameAndGivesTheReply)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });

    const auto outcome = ask(connection);

    EXPECT_EQ(unit->read(8), kAskModeBytes);
    EXPECT_EQ(outcome.reply, kModeIsOn);
    EXPECT_GT(outcome.roundTrip, 0ns);
    EXPECT_EQ(outcome.corrupt, 0u);
}

TEST_F(ConnectionTest, TraceHasBothFramesInOrderWithTheirTimes)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });
    const auto before = std::chrono::system_clock::now();

    ask(connection);

    ASSERT_THAT(trace.kinds(), ElementsAre(Kind::kSent, Kind::kReceived));
    EXPECT_EQ(trace.events[0].frame, kAskMode);
    EXPECT_EQ(trace.events[1].frame, kModeIsOn);
    EXPECT_LE(before, trace.events[0].at);
    EXPECT_LE(trace.events[0].steady, trace.events[1].steady);
}

TEST_F(ConnectionTest, RequestGivesNothingWhenNoReplyComesInTime)
{
    Connection connection = connect();

    EXPECT_EQ(ask(connection, 20ms).reply, std::nullopt);
}

TEST_F(ConnectionTest, LateReplyIsNotTakenForTheNextOne)
{
    Connection connection = connect();
    ask(connection, 1ms);
    unit->write(kModeIsOnBytes);
    unit->waitUntilArrived(10);

    EXPECT_EQ(ask(connection, 20ms).reply, std::nullopt);
    EXPECT_THAT(trace.kinds(), ElementsAre(Kind::kSent, Kind::kReceived, Kind::kSent));
}

TEST_F(ConnectionTest, LateReplyOfWhichTheEndComesDuringTheNextRequestIsNotTakenForItsReply)
{
    Connection connection = connect();
    unit->write({0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF});
    unit->waitUntilArrived(6);
    // 00, instead of the 01 of the late one: 03+8F+FF = 0191, two's complement FE6F
    trace.at(Kind::kSent, [&] {
        unit->write(Bytes{0x01, 0x00, 0xFE, 0x6E} + Bytes{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x00, 0x00, 0xFE, 0x6F});
    });

    EXPECT_EQ(ask(connection).reply, (Frame{0x8F, 0xFF, {0x00}}));
    EXPECT_THAT(trace.kinds(), ElementsAre(Kind::kSent, Kind::kReceived, Kind::kReceived));
}

TEST_F(ConnectionTest, ReplyThatComesTwiceAnswersOneRequestOnly)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] {
        unit->write(kModeIsOnBytes + kModeIsOnBytes);
        unit->waitUntilArrived(20);
    });

    EXPECT_EQ(ask(connection).reply, kModeIsOn);
    EXPECT_EQ(ask(connection, 20ms).reply, std::nullopt);
}

TEST_F(ConnectionTest, ReplyUnderAnotherGroupIsTracedAndPassedOver)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unit->write(kKeyBytes + kModeIsOnBytes); });

    EXPECT_EQ(ask(connection).reply, kModeIsOn);
    ASSERT_THAT(trace.kinds(), ElementsAre(Kind::kSent, Kind::kReceived, Kind::kReceived));
    EXPECT_EQ(trace.events[1].frame, kKey);
}

TEST_F(ConnectionTest, CorruptReplyIsCountedAndTracedAndTheNextSoundOneTaken)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unit->write(kCorruptBytes + kModeIsOnBytes); });

    const auto outcome = ask(connection);

    EXPECT_EQ(outcome.reply, kModeIsOn);
    EXPECT_EQ(outcome.corrupt, 1u);
    ASSERT_THAT(trace.kinds(), ElementsAre(Kind::kSent, Kind::kCorrupt, Kind::kReceived));
    EXPECT_EQ(trace.events[1].frame, kModeIsOn);
    EXPECT_EQ(trace.events[1].bytes, kCorruptBytes);
}

TEST_F(ConnectionTest, ReplyIsFoundBetweenGarbage)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unit->write(Bytes{0x2A, 0x2A, 0xA2, 0x00, 0x2A, 0xFF} + kModeIsOnBytes); });

    EXPECT_EQ(ask(connection).reply, kModeIsOn);
}

TEST_F(ConnectionTest, FrameBehindTheReplyIsLeftForReceive)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes + kKeyBytes); });
    ask(connection);

    EXPECT_EQ(connection.receive(Connection::Clock::now() + kGenerous), kKey);
}

TEST_F(ConnectionTest, ReceiveGivesWhatHasComeAlsoWhenTheTimeIsOver)
{
    Connection connection = connect();
    unit->write(kKeyBytes);
    unit->waitUntilArrived(10);

    EXPECT_EQ(connection.receive(Connection::Clock::now()), kKey);
    EXPECT_EQ(connection.receive(Connection::Clock::now()), std::nullopt);
}

TEST_F(ConnectionTest, LineThatNeverFallsSilentEndsTheWaitInTime)
{
    Connection connection = connect();
    std::atomic<bool> silent = false;
    std::jthread noise([&](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            unit->write(kKeyBytes);
        }
        silent = true;
    });

    EXPECT_EQ(ask(connection, 50ms).reply, std::nullopt);
    EXPECT_NO_THROW(connection.receive(Connection::Clock::now() + 1ms));

    noise.request_stop();
    while (!silent) {
        connection.receive(Connection::Clock::now() + 1ms);  // a full line would hold the noise back for ever
    }
}

TEST_F(ConnectionTest, SendWritesTheFrameAndDoesNotWait)
{
    Connection connection = connect();

    connection.send(kAskMode);

    EXPECT_EQ(unit->read(8), kAskModeBytes);
    EXPECT_THAT(trace.kinds(), ElementsAre(Kind::kSent));
}

TEST_F(ConnectionTest, CommandThatDoesNotFitAFrameIsRefused)
{
    Connection connection = connect();
    const Frame tooLong{0x0A, 0x02, Bytes(253)};

    EXPECT_THROW(connection.send(tooLong), std::length_error);
    EXPECT_THROW(connection.request(tooLong, answersAskMode, kGenerous, true), std::length_error);
    EXPECT_THAT(trace.events, testing::IsEmpty());
}

// The device goes.

TEST_F(ConnectionTest, DeviceThatWentBetweenRequestsIsOpenedAgainUnderItsName)
{
    Connection connection = connect();
    unplug();
    trace.at(Kind::kLost, [&] { plugIn(); });
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });

    EXPECT_EQ(ask(connection).reply, kModeIsOn);
    EXPECT_THAT(trace.kinds(), ElementsAre(Kind::kLost, Kind::kBack, Kind::kSent, Kind::kReceived));
}

TEST_F(ConnectionTest, RepeatableCommandIsSentAgainWhenTheDeviceWentWhileTheReplyWasAwaited)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unplug(); });
    trace.at(Kind::kLost, [&] { plugIn(); });
    trace.at(Kind::kBack, [&] { trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); }); });

    EXPECT_EQ(ask(connection).reply, kModeIsOn);
    EXPECT_EQ(unit->read(8), kAskModeBytes);
    EXPECT_THAT(trace.kinds(), ElementsAre(Kind::kSent, Kind::kLost, Kind::kBack, Kind::kSent, Kind::kReceived));
}

TEST_F(ConnectionTest, CommandThatIsNotRepeatableIsNeverSentTwice)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unplug(); });
    trace.at(Kind::kLost, [&] { plugIn(); });

    EXPECT_THAT(
        messageOf<protocol::kLineFailed>([&] { connection.request(kAskMode, answersAskMode, kGenerous, false); }),
        AllOf(HasSubstr(port()), HasSubstr("it is not sent again")));
    EXPECT_THAT(trace.kinds(), ElementsAre(Kind::kSent, Kind::kLost));
}

TEST_F(ConnectionTest, CommandThatIsNotRepeatableIsSentOnceWhenTheDeviceWasGoneBefore)
{
    Connection connection = connect();
    unplug();
    trace.at(Kind::kLost, [&] { plugIn(); });
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });

    EXPECT_EQ(connection.request(kAskMode, answersAskMode, kGenerous, false).reply, kModeIsOn);
}

TEST_F(ConnectionTest, LineIsUsableAgainAfterALinkError)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { unplug(); });
    trace.at(Kind::kLost, [&] { plugIn(); });
    EXPECT_THROW(connection.request(kAskMode, answersAskMode, kGenerous, false), protocol::LineError);
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });

    EXPECT_EQ(ask(connection).reply, kModeIsOn);
}

TEST_F(ConnectionTest, SendFindsTheDeviceAgain)
{
    Connection connection = connect();
    unplug();
    trace.at(Kind::kLost, [&] { plugIn(); });

    connection.send(kAskMode);

    EXPECT_EQ(unit->read(8), kAskModeBytes);
}

TEST_F(ConnectionTest, ReceiveFindsTheDeviceAgainAndGivesWhatItSendsThen)
{
    Connection connection = connect();
    unplug();
    trace.at(Kind::kLost, [&] { plugIn(); });
    trace.at(Kind::kBack, [&] { unit->write(kKeyBytes); });

    EXPECT_EQ(connection.receive(Connection::Clock::now() + kGenerous), kKey);
}

TEST_F(ConnectionTest, ReceiveEndsInTimeWhileTheDeviceIsAwayAndTheNextOneFindsItAgain)
{
    Connection connection = connect();
    unplug();
    const auto before = Connection::Clock::now();

    EXPECT_EQ(connection.receive(before + 50ms), std::nullopt);
    EXPECT_LT(Connection::Clock::now() - before, kGenerous);

    plugIn();
    trace.at(Kind::kBack, [&] { unit->write(kKeyBytes); });
    EXPECT_EQ(connection.receive(Connection::Clock::now() + kGenerous), kKey);
}

TEST_F(ConnectionTest, DeviceThatStaysAwayIsGivenUpInTimeAcrossSeveralWaits)
{
    Connection connection = connect(60ms);
    unplug();

    EXPECT_THROW(
        {
            for (int i = 0; i < 1000; ++i) {
                connection.receive(Connection::Clock::now() + 1ms);
            }
        },
        protocol::LineError);
}

TEST_F(ConnectionTest, WaitForADeviceThatIsAwayCanBeCutShort)
{
    Connection connection = connect(std::chrono::hours(1));
    unplug();
    connection.receive(Connection::Clock::now());

    connection.waitAtMost(60ms);

    EXPECT_THROW(ask(connection), protocol::LineError);
}

TEST_F(ConnectionTest, DeviceThatDoesNotComeBackIsALinkErrorThatSaysSo)
{
    Connection connection = connect(60ms);
    unplug();
    const auto before = Connection::Clock::now();

    EXPECT_THAT(messageOf<protocol::kLineFailed>([&] { ask(connection); }),
                AllOf(HasSubstr("not back after 60 ms"), HasSubstr(port()), HasSubstr("No such file")));
    EXPECT_GE(Connection::Clock::now() - before, 60ms);
}

TEST_F(ConnectionTest, DeviceThatWasWaitedForInVainIsNotWaitedForAgain)
{
    Connection connection = connect(500ms);
    unplug();
    EXPECT_THROW(ask(connection), protocol::LineError);
    const auto before = Connection::Clock::now();

    EXPECT_THROW(ask(connection), protocol::LineError);
    EXPECT_LT(Connection::Clock::now() - before, 500ms);

    plugIn();
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });
    EXPECT_EQ(ask(connection).reply, kModeIsOn);
}

TEST_F(ConnectionTest, DeviceThatComesAndGoesAllTheTimeIsGivenUp)
{
    Connection connection = connect(100ms);
    std::function<void()> goAgain = [&] {
        unplug();
        trace.at(Kind::kLost, [&] { plugIn(); });
        trace.at(Kind::kSent, goAgain);
    };
    trace.at(Kind::kSent, goAgain);

    EXPECT_THROW(ask(connection), protocol::LineError);
}

TEST_F(ConnectionTest, DeviceThatGoesWhileTheLineTakesNoMoreBytesIsALinkError)
{
    Connection connection = connect(0ms);
    const Frame longest{0x0A, 0x02, Bytes(252)};
    std::jthread unplugger([&] {
        unit->read(1);
        unplug();
    });

    EXPECT_THROW(
        {
            for (;;) {
                connection.send(longest);
            }
        },
        protocol::LineError);
}

// The port.

TEST_F(ConnectionTest, PortThatDoesNotExistIsRefusedThatNamesIt)
{
    EXPECT_EQ(messageOf<protocol::kPortUnavailable>([] { Connection({"/dev/no-such-line"}, {}); }),
              "/dev/no-such-line: cannot open: No such file or directory");
}

TEST_F(ConnectionTest, RemedyForAPortIsNotInItsMessage)
{
    try {
        Connection({"/dev/no-such-line"}, {});
        FAIL() << "it was opened";
    } catch (const protocol::LineError& error) {
        EXPECT_THAT(error.remedy(), HasSubstr("'engineering-station ports' lists"));
    }
}

TEST_F(ConnectionTest, FileThatIsNotATerminalIsRefused)
{
    EXPECT_THAT(messageOf<protocol::kPortUnavailable>([] { Connection({"/dev/null"}, {}); }),
                AllOf(HasSubstr("/dev/null"), HasSubstr("expected a serial line")));
}

/// @returns a pattern; where the tests are emulated, the kernel knows the emulator only.
std::string nameOfThisProcess()
{
    return "(station_test|qemu-[a-z0-9]+), process " + std::to_string(getpid()) + "$";
}

TEST_F(ConnectionTest, BusyPortIsRefusedThatSaysWhoHasItAndLeavesItAlone)
{
    Connection first = connect();

    EXPECT_THAT(messageOf<protocol::kPortUnavailable>([&] {
                    Connection({unit->path(), 9600}, {});
                }),
                AllOf(HasSubstr(unit->path()), ContainsRegex("in use by " + nameOfThisProcess())));
    termios settings{};
    const int device = open(unit->path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(tcgetattr(device, &settings), 0);
    close(device);
    EXPECT_EQ(cfgetospeed(&settings), speed_t{B115200});
}

TEST_F(ConnectionTest, PortIsFreeAgainWhenTheConnectionEnds)
{
    {
        Connection first = connect();
        EXPECT_THAT(portUser(port()), ContainsRegex(nameOfThisProcess()));
    }
    EXPECT_EQ(portUser(port()), "");
    EXPECT_NO_THROW(connect());
}

TEST_F(ConnectionTest, ConnectionThatWasMovedKeepsThePort)
{
    Connection first = connect();
    Connection second(std::move(first));

    EXPECT_EQ(second.port().path, port());
    EXPECT_THROW(connect(), protocol::LineError);
}

// The user wants an end.

TEST_F(ConnectionTest, InterruptEndsTheWaitForAReply)
{
    Connection connection = connect();
    trace.at(Kind::kSent, [&] { interrupt.request(); });

    EXPECT_THROW(ask(connection), Interrupted);
}

TEST_F(ConnectionTest, InterruptFromAnotherThreadEndsTheWaitForAFrame)
{
    Connection connection = connect();
    std::jthread user([&] { interrupt.request(); });

    EXPECT_THROW(connection.receive(Connection::Clock::now() + kGenerous), Interrupted);
}

TEST_F(ConnectionTest, InterruptEndsTheWaitForTheDevice)
{
    Connection connection = connect();
    unplug();
    trace.at(Kind::kLost, [&] { interrupt.request(); });

    EXPECT_THROW(ask(connection), Interrupted);
}

TEST_F(ConnectionTest, InterruptEndsTheWaitForALineThatTakesNoMoreBytes)
{
    Connection connection = connect();
    const Frame longest{0x0A, 0x02, Bytes(252)};
    std::jthread user([&] {
        unit->read(1);
        interrupt.request();
    });

    EXPECT_THROW(
        {
            for (;;) {
                connection.send(longest);
            }
        },
        Interrupted);
}

TEST_F(ConnectionTest, NothingIsSentAfterAnInterruptUntilItIsTakenBack)
{
    Connection connection = connect();
    interrupt.request();
    EXPECT_TRUE(interrupt.requested());
    EXPECT_THROW(ask(connection), Interrupted);
    EXPECT_THROW(connection.send(kAskMode), Interrupted);
    EXPECT_THROW(connection.receive(Connection::Clock::now() + kGenerous), Interrupted);
    EXPECT_THAT(trace.events, testing::IsEmpty());

    interrupt.clear();
    EXPECT_FALSE(interrupt.requested());
    trace.at(Kind::kSent, [&] { unit->write(kModeIsOnBytes); });
    EXPECT_EQ(ask(connection).reply, kModeIsOn);
}

}  // namespace
}  // namespace station
