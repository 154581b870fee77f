#include "station/identity/UnitSession.h"

#include <gmock/gmock.h>

#include "station/identity/Provision.h"
#include "station/identity/ScriptedUnit.h"

namespace station::identity {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto kSetModeOff = [](const Frame& frame) { return frame == Frame{0x0F, 0x00, {0x00}}; };

class UnitSessionTest : public testing::Test
{
protected:
    /// Writes a serial number in a session.
    int run()
    {
        UnitSession session({peer.line.path()}, {.reconnect = 0ms, .trace = &peer, .interrupt = &interrupt}, 50ms,
                            [this](const std::string& warning) { warnings.push_back(warning); });
        return session.run(work);
    }

    /// @returns the text of the error that ends the session; empty for none.
    template <class Error>
    std::string error()
    {
        try {
            run();
        } catch (const Error& error) {
            return error.what();
        }
        return "";
    }

    const std::vector<Record> all = records(protocol::catalogue::groups());
    std::function<int(UnitIdentity&)> work = [this](UnitIdentity& unit) {
        const Wanted serial{&require(all, "factory-serial"), "SN1"};
        write(unit, {&serial, 1}, {}, [this](const Done&) { ++done; });
        return status;
    };
    ScriptedUnit peer;
    Interrupt interrupt;
    std::vector<std::string> warnings;
    int done = 0;
    int status = protocol::kPassed;
};

TEST_F(UnitSessionTest, WorkIsDoneInAutoTestModeAndTheModeIsRestored)
{
    for (const bool before : {false, true}) {
        peer.testMode = before;

        run();

        EXPECT_EQ(peer.testMode, before);
    }
    EXPECT_EQ(done, 2);
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(UnitSessionTest, UnitThatDoesNotAnswerEndsItWithoutAWarning)
{
    peer.before = [](const Frame&) { return false; };

    EXPECT_THAT(error<NoAnswer>(), HasSubstr("test.mode: expected a reply within "));
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(UnitSessionTest, UnitThatDoesNotTakeTheModeIsReportedOnce)
{
    peer.before = [](const Frame& frame) { return frame.cmdTwo != 0x00; };

    EXPECT_THAT(error<NoAnswer>(), HasSubstr("test.set-mode: expected a reply within "));
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(UnitSessionTest, ModeThatCannotBeRestoredIsAWarning)
{
    peer.before = [](const Frame& frame) { return !kSetModeOff(frame); };

    run();

    EXPECT_THAT(
        warnings,
        ElementsAre(testing::StartsWith("auto-test mode may be left on: test.set-mode: expected a reply within ")));
}

TEST_F(UnitSessionTest, ErrorOfTheWorkGoesOnBehindTheWarning)
{
    peer.before = [](const Frame& frame) { return !kSetModeOff(frame); };
    work = [](UnitIdentity&) -> int { throw protocol::UserError("the work's error"); };

    EXPECT_EQ(error<protocol::UserError>(), "the work's error");
    EXPECT_THAT(warnings, ElementsAre(HasSubstr("auto-test mode may be left on")));
}

TEST_F(UnitSessionTest, InterruptOfTheRestoringIsToldWithTheMode)
{
    peer.before = [this](const Frame& frame) {
        if (kSetModeOff(frame)) {
            interrupt.request();
        }
        return !kSetModeOff(frame);
    };

    EXPECT_EQ(error<Interrupted>(), "auto-test mode may be left on: interrupted");
    EXPECT_THAT(warnings, IsEmpty());
}

TEST_F(UnitSessionTest, InterruptOfTheRestoringKeepsTheStatusOfTheWork)
{
    status = protocol::kReadBackDiffers;
    peer.before = [this](const Frame& frame) {
        if (kSetModeOff(frame)) {
            interrupt.request();
        }
        return !kSetModeOff(frame);
    };

    EXPECT_EQ(run(), protocol::kReadBackDiffers);
    EXPECT_THAT(warnings, ElementsAre("auto-test mode may be left on: interrupted"));
}

/// A frame of the session: 0F FF, 0F 00 [01], 0A 03, 0A 02 [SN1], 0A 03.
class SessionPhaseTest : public UnitSessionTest, public testing::WithParamInterface<std::size_t>
{
};

TEST_P(SessionPhaseTest, LineThatGoesIsALineError)
{
    peer.before = [this](const Frame&) {
        if (peer.received.size() != GetParam() + 1) {
            return true;
        }
        peer.line.hangUp();
        return false;
    };

    EXPECT_THAT(error<protocol::LineError>(), HasSubstr(peer.line.path()));
    EXPECT_EQ(done, 0);
}

TEST_P(SessionPhaseTest, InterruptEndsTheWorkAndTheModeIsRestored)
{
    peer.before = [this](const Frame&) {
        if (peer.received.size() != GetParam() + 1) {
            return true;
        }
        interrupt.request();
        return false;
    };

    EXPECT_EQ(error<Interrupted>(), "interrupted");
    EXPECT_TRUE(interrupt.requested());
    EXPECT_EQ(done, 0);
    EXPECT_FALSE(peer.testMode);
    EXPECT_THAT(warnings, IsEmpty());
}

constexpr std::array kPhases{"AskingTheMode", "SettingTheMode", "LookingBefore", "Writing", "ReadingBack"};

INSTANTIATE_TEST_SUITE_P(Identity, SessionPhaseTest, testing::Range(std::size_t{0}, kPhases.size()),
                         [](const auto& phase) { return kPhases.at(phase.param); });

}  // namespace
}  // namespace station::identity
