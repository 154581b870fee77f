#include "station/monitor/Monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <utility>

#include "protocol/catalogue/Catalogue.h"
#include "station/FrameScanner.h"
#include "station/record/RecordJson.h"
#include "station/record/SampleRuns.h"
#include "station/trace/Describe.h"
#include "tests/engine/FileSizeLimit.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/TempDir.h"

namespace station {
namespace {

namespace catalogue = protocol::catalogue;
namespace fs = std::filesystem;
using namespace std::chrono_literals;
using protocol::Frame;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using tests::PtyPeer;
using Kind = TraceEvent::Kind;

const Frame kKey{0x86, 0x11, {0x05}};

std::string contentOf(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

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

/// A tap of a run that appends to its record while the tap reads: all on one thread, in the tap's calls.
class RunTapTest : public testing::Test, public TraceSink
{
protected:
    RunTapTest() : results(std::make_unique<record::ResultsFolder>(directory.path(), sample, catalogue::groups())) {}

    void happen(const Frame& frame, Kind kind = Kind::kReceived)
    {
        results->capture({kind, std::chrono::system_clock::now(), {}, frame, {}});
    }

    fs::path folder() const { return results->folder(); }

    protocol::ExitStatus tap(const fs::path& record, std::optional<Connection::Duration> duration = std::nullopt)
    {
        RunTap line(record, interrupt);
        port = line.port().path;
        return line.show(catalogue::groups(), duration,
                         {*this, nullptr, [this](const std::string& text) { complaints.push_back(text); },
                          [this] {
                              if (++looks == stepAtLook) {
                                  step();
                              }
                              return false;
                          }});
    }

    void on(const TraceEvent& event) override
    {
        shown.push_back(std::string(name(event.kind)) + " " + frameText(event));
    }

    tests::TempDir directory;
    record::Run sample = record::samples::withoutSteps();
    std::unique_ptr<record::ResultsFolder> results;
    Interrupt interrupt;
    std::string port;
    std::function<void()> step;
    int looks = 0;
    int stepAtLook = 0;
    std::vector<std::string> shown;
    std::vector<std::string> complaints;
};

TEST_F(RunTapTest, ShowsWhatWasAndWhatComesUntilTheRunEnds)
{
    happen({0x02, 0x01, {}}, Kind::kSent);
    stepAtLook = 3;
    step = [this] {
        happen({0x82, 0x01, {0x24, 0xFE}});
        results->finish(sample);
    };

    EXPECT_EQ(tap(folder() / "record.jsonl"), protocol::kPassed);

    EXPECT_THAT(shown, ElementsAre("sent 02 01 []", "received 82 01 [24 FE]"));
    EXPECT_EQ(port, sample.unit.port);
    EXPECT_THAT(complaints, IsEmpty());
}

TEST_F(RunTapTest, RunThatHasEndedIsShownWhole)
{
    happen(kKey);
    results->finish(sample);

    EXPECT_EQ(tap(folder() / "record.jsonl"), protocol::kPassed);
    EXPECT_THAT(shown, ElementsAre("received 86 11 [05]"));
}

TEST_F(RunTapTest, KilledRunIsOneLine)
{
    happen(kKey);
    const auto record = folder() / "record.jsonl";
    stepAtLook = 3;
    step = [this] { results.reset(); };

    EXPECT_EQ(tap(record), protocol::kFailed);

    EXPECT_THAT(shown, ElementsAre("received 86 11 [05]"));
    EXPECT_THAT(complaints, ElementsAre(record.parent_path().string() +
                                        ": the run did not end: the station was stopped or lost its power"));
}

TEST_F(RunTapTest, FolderThatGoesAwayIsOneLine)
{
    happen(kKey);
    stepAtLook = 3;
    step = [this] { fs::remove_all(folder()); };

    EXPECT_EQ(tap(folder() / "record.jsonl"), protocol::kFailed);

    EXPECT_THAT(complaints, ElementsAre(folder().string() + ": the folder of the run has gone"));
}

TEST_F(RunTapTest, LineIsShownWhenItIsWhole)
{
    const auto record = folder() / "record.jsonl";
    happen(kKey);
    const auto before = fs::file_size(record);
    happen({0x86, 0x11, {0x06}});
    const auto content = contentOf(record);
    fs::resize_file(record, before + 40);
    stepAtLook = 4;
    step = [&] {
        EXPECT_THAT(shown, ElementsAre("received 86 11 [05]"));
        std::ofstream(record, std::ios::app) << content.substr(before + 40);
        results->finish(sample);
    };

    EXPECT_EQ(tap(record), protocol::kPassed);
    EXPECT_THAT(shown, ElementsAre("received 86 11 [05]", "received 86 11 [06]"));
}

TEST_F(RunTapTest, RecordCutAnywhereIsShownUpToThere)
{
    happen(kKey);
    happen(kKey);
    results->finish(sample);
    const std::string whole = contentOf(folder() / "record.jsonl");
    const std::size_t first = whole.find('\n') + 1;
    const auto cut = directory.path() / "record.jsonl";

    for (std::size_t end = 0; end < whole.size(); ++end) {
        std::ofstream(cut, std::ios::binary) << whole.substr(0, end);
        shown.clear();
        complaints.clear();
        if (end < first) {
            EXPECT_THROW(tap(cut), protocol::Error) << end;
            continue;
        }
        EXPECT_EQ(tap(cut), protocol::kFailed) << end;
        EXPECT_THAT(complaints, ElementsAre(HasSubstr("the run did not end"))) << end;
        const std::string_view tail = std::string_view(whole).substr(0, end);
        EXPECT_EQ(tail.ends_with('\n'), complaints.front().find("within a line") == std::string::npos) << end;
        EXPECT_EQ(shown.size(), std::min<std::ptrdiff_t>(2, std::ranges::count(tail, '\n') - 1)) << end;
    }
}

TEST_F(RunTapTest, BytesThatAreNoRecordAreOneErrorWithTheirPlace)
{
    const auto record = folder() / "record.jsonl";
    happen(kKey);
    std::ofstream(record, std::ios::app) << "{\"event\":\"sent\"}\n";
    try {
        tap(record);
        FAIL() << "expected a RecordError";
    } catch (const record::RecordError& error) {
        EXPECT_THAT(error.what(), testing::EndsWith("record.jsonl: line 3: top level: expected the key \"at\""));
    }
}

TEST_F(RunTapTest, DurationAndInterruptEndIt)
{
    happen(kKey);
    EXPECT_EQ(tap(folder() / "record.jsonl", 1ms), protocol::kPassed);

    stepAtLook = looks + 3;
    step = [this] { interrupt.request(); };
    EXPECT_EQ(tap(folder() / "record.jsonl"), protocol::kPassed);
    EXPECT_THAT(complaints, IsEmpty());
}

TEST_F(RunTapTest, ReadsAFolderByALinkToIt)
{
    happen(kKey);
    fs::create_directory_symlink(folder(), directory.path() / "link");

    EXPECT_EQ(tap(directory.path() / "link" / "record.jsonl", 1ms), protocol::kPassed);
}

}  // namespace
}  // namespace station
