#include "station/monitor/Monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <memory>
#include <utility>

#include "protocol/catalogue/Catalogue.h"
#include "station/FrameScanner.h"
#include "station/trace/Describe.h"
#include "tests/engine/FileSizeLimit.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/TempDir.h"

namespace station {
namespace {

using namespace std::chrono_literals;
using protocol::Frame;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tests::PtyPeer;
using Kind = TraceEvent::Kind;

const Frame kKey{0x86, 0x11, {0x05}};

/// A monitor of a unit behind a port's name. The unit answers questions for its mode, and the test steps in at events:
/// all on the monitor's thread, with the monitor inside a call.
class MonitorTest : public testing::Test, public TraceSink
{
protected:
    MonitorTest() { plugIn(); }

    void plugIn()
    {
        unit = std::make_unique<PtyPeer>();
        modeIsOn = false;
        std::filesystem::create_symlink(unit->path(), directory.path() / "fresh");
        std::filesystem::rename(directory.path() / "fresh", port());
    }

    void unplug()
    {
        unit->hangUp();
        std::filesystem::remove(port());
    }

    std::string port() const { return (directory.path() / "port").string(); }

    /// Does `step` at each event that is described so.
    void at(const std::string& text, std::function<void()> step) { steps.emplace_back(text, std::move(step)); }

    protocol::ExitStatus run(MonitorTerms terms)
    {
        terms.port.path = port();
        return monitor(protocol::catalogue::groups(), terms,
                       {*this, capture, [this](const std::string& line) { complaints.push_back(line); }}, interrupt);
    }

    void on(const TraceEvent& event) override
    {
        const std::string text = std::string(name(event.kind)) + " " + frameText(event);
        shown.push_back(text);
        if (answers && event.kind == Kind::kSent) {
            modeIsOn = event.frame.cmdTwo == 0x00 ? event.frame.params.front() == 1 : modeIsOn;
            unit->write(wireBytes({0x8F, event.frame.cmdTwo, {static_cast<std::uint8_t>(modeIsOn)}}));
        }
        for (const auto& [wanted, step] : steps) {
            if (wanted == text) {
                step();
            }
        }
    }

    tests::TempDir directory;
    std::unique_ptr<PtyPeer> unit;
    bool answers = true;
    bool modeIsOn = false;
    std::vector<std::pair<std::string, std::function<void()>>> steps;
    std::vector<std::string> shown;
    std::vector<std::string> complaints;
    pcapng::File* capture = nullptr;
    Interrupt interrupt;
};

TEST_F(MonitorTest, ShowsTheLineUntilTheUserInterrupts)
{
    unit->write(wireBytes(kKey));
    at("received 86 11 [05]", [this] { interrupt.request(); });

    EXPECT_EQ(run({}), protocol::kPassed);
    EXPECT_THAT(shown, ElementsAre("received 86 11 [05]"));
    EXPECT_THAT(complaints, IsEmpty());
}

TEST_F(MonitorTest, ShowsCorruptFramesBetweenNoise)
{
    unit->write({0x00, 0xFF, 0x2A, 0x2A, 0xA2, 0x00, 0x03, 0x86, 0x11, 0x05, 0x00, 0xFF, 0x62});
    at("corrupt 86 11 [05]", [this] { interrupt.request(); });

    EXPECT_EQ(run({}), protocol::kPassed);
}

TEST_F(MonitorTest, DurationEndsIt)
{
    EXPECT_EQ(run({.duration = 1ms}), protocol::kPassed);
}

TEST_F(MonitorTest, ReaderThatClosesTheOutputEndsIt)
{
    const MonitorOutput output{*this, nullptr, {}, [] { return true; }};

    EXPECT_EQ(monitor(protocol::catalogue::groups(), {.port = {port()}}, output, interrupt), protocol::kPassed);
}

TEST_F(MonitorTest, SwitchesAutoTestModeOnAndBack)
{
    at("received 8F 00 [01]", [this] { interrupt.request(); });

    EXPECT_EQ(run({.timeout = 20s, .enterTestMode = true}), protocol::kPassed);

    EXPECT_FALSE(modeIsOn);
    EXPECT_THAT(shown, ElementsAre("sent 0F FF []", "received 8F FF [00]", "sent 0F 00 [01]", "received 8F 00 [01]",
                                   "sent 0F 00 [00]", "received 8F 00 [00]"));
}

TEST_F(MonitorTest, LeavesAModeOnThatWasOnBefore)
{
    modeIsOn = true;
    at("received 8F FF [01]", [this] { interrupt.request(); });

    EXPECT_EQ(run({.timeout = 20s, .enterTestMode = true}), protocol::kPassed);

    EXPECT_TRUE(modeIsOn);
}

TEST_F(MonitorTest, UnitThatStartsAgainIsPutIntoTestModeAgain)
{
    int entered = 0;
    at("received 8F 00 [01]", [&] { ++entered == 1 ? unplug() : interrupt.request(); });
    at("lost ", [this] { plugIn(); });

    EXPECT_EQ(run({.timeout = 20s, .enterTestMode = true}), protocol::kPassed);

    EXPECT_EQ(entered, 2);
    EXPECT_THAT(complaints, IsEmpty());
}

TEST_F(MonitorTest, UnitThatCameBackAndIsSilentIsToldAndWatchedOn)
{
    at("received 8F 00 [01]", [this] { unplug(); });
    at("lost ", [this] {
        plugIn();
        answers = false;
    });

    EXPECT_EQ(run({.timeout = 10ms, .duration = 200ms, .enterTestMode = true}), protocol::kPassed);

    ASSERT_FALSE(complaints.empty());
    EXPECT_THAT(complaints.front(), HasSubstr("test.mode"));
}

TEST_F(MonitorTest, SilentUnitIsNoAnswer)
{
    answers = false;

    EXPECT_EQ(run({.timeout = 10ms, .enterTestMode = true}), protocol::kNoAnswer);
    EXPECT_THAT(complaints, ElementsAre(HasSubstr("test.mode")));
}

TEST_F(MonitorTest, DurationEndsItWhileTheDeviceIsAway)
{
    at("received 8F FF [01]", [this] { unplug(); });
    modeIsOn = true;

    EXPECT_EQ(run({.timeout = 20s, .duration = 10ms, .enterTestMode = true}), protocol::kPassed);
    EXPECT_EQ(shown.back(), "lost ");
}

TEST_F(MonitorTest, InterruptWhileTheDeviceIsAwayLeavesTestModeOnAndSaysSo)
{
    at("received 8F 00 [01]", [this] { unplug(); });
    at("lost ", [this] { interrupt.request(); });

    EXPECT_EQ(run({.timeout = 20s, .enterTestMode = true}), protocol::kPassed);
    EXPECT_THAT(complaints, ElementsAre(StartsWith("auto-test mode is left on: ")));
}

TEST_F(MonitorTest, DeviceThatDoesNotComeBackInTimeIsALineError)
{
    unit->write(wireBytes(kKey));
    at("received 86 11 [05]", [this] { unplug(); });

    try {
        run({.reconnect = 1ms});
        FAIL() << "expected a LineError";
    } catch (const protocol::LineError& error) {
        EXPECT_EQ(error.status(), protocol::kLineFailed);
    }
}

TEST_F(MonitorTest, CaptureThatFailsIsToldOnceAndFailsAtTheEnd)
{
    const auto path = directory.path() / "trace.pcapng";
    pcapng::File full(path.string(), {"test", port(), 115200}, {});
    const FileSizeLimit limit(std::filesystem::file_size(path) + 10);
    capture = &full;
    unit->write(wireBytes(kKey));
    at("received 86 11 [05]", [this] { interrupt.request(); });

    EXPECT_EQ(run({}), protocol::kNotRecorded);
    EXPECT_THAT(complaints, ElementsAre(HasSubstr("trace.pcapng")));
}

}  // namespace
}  // namespace station
