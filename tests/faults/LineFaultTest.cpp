// The station's line goes away, comes back, or is not read.

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <memory>

#include "tests/faults/ProcessFigures.h"
#include "tests/faults/Soak.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;
using testing::Contains;
using testing::HasSubstr;
using wire::Bytes;
using wire::kAskMode;
using wire::kModeOn;
using wire::kModeOnReply;
using Stream = ChildProcess::Stream;

// 03+8F+FF+01 = 0192, two's complement FE6E
const Bytes kModeIsOn{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E};

class LineFaultTest : public BenchTest
{
protected:
    /// Plugs a new device in: the same link leads to it, as udev's do, whatever its name.
    PtyPeer& plugIn()
    {
        device_ = std::make_unique<PtyPeer>();
        const fs::path fresh = directory() / "fresh";
        fs::create_symlink(device_->path(), fresh);
        fs::rename(fresh, deviceLink());
        return *device_;
    }

    void unplug()
    {
        fs::remove(deviceLink());
        device_->hangUp();
    }

    fs::path deviceLink() const { return directory() / "adapter"; }

    ChildProcess& startOnDevice() { return startService({"--uart", deviceLink().string()}); }

    /// Waits until the service has said `count` times that `what`.
    static bool waitForReports(ChildProcess& service, const std::string& what, std::size_t count)
    {
        std::size_t found = 0;
        const auto isLast = [&](const std::string& line) {
            if (line.starts_with("ready uart=")) {
                found = 0;  // the first line: it begins anew whenever one has come
            }
            found += line.find(what) != std::string::npos ? 1 : 0;
            return found == count;
        };
        return service.waitForLine(Stream::kErr, isLast).has_value();
    }

    static bool hasSaid(const ChildProcess& service, const std::string& what)
    {
        return service.output(Stream::kErr).find(what) != std::string::npos;
    }

private:
    std::unique_ptr<PtyPeer> device_;
};

TEST_F(LineFaultTest, DeviceThatComesBackUnderAnotherNameIsServedAsBefore)
{
    plugIn();
    ChildProcess& service = startOnDevice();
    const ProcessFigures before = figuresOf(service.pid());
    const std::size_t rounds = std::max<std::size_t>(lengthOf(5, 200), 2);

    for (std::size_t round = 1; round <= rounds && !HasFailure(); ++round) {
        unplug();
        EXPECT_TRUE(waitForReports(service, "line lost", round));
        PtyPeer& station = plugIn();
        EXPECT_TRUE(waitForReports(service, "line is back", round));

        station.write(kModeOn);
        EXPECT_EQ(station.read(kModeOnReply.size()), kModeOnReply);
    }

    expectConstant(before, figuresAfter(before, service.pid()));
}

class HangUpTest : public LineFaultTest, public testing::WithParamInterface<int>
{
};

TEST_P(HangUpTest, InTheMiddleOfARequestCostsTheNextOneAtMost)
{
    PtyPeer& first = plugIn();
    ChildProcess& service = startOnDevice();
    first.write(Bytes(kModeOn.begin(), kModeOn.begin() + GetParam()));
    first.waitUntilTaken();

    unplug();
    EXPECT_TRUE(waitForReports(service, "line lost", 1));
    PtyPeer& station = plugIn();
    EXPECT_TRUE(waitForReports(service, "line is back", 1));

    // What has come of a frame is kept. The next one completes it, and is only then recognised as one by itself.
    station.write(kModeOn);
    station.write(kModeOn);
    EXPECT_EQ(station.read(kModeOnReply.size()), kModeOnReply);
}

INSTANTIATE_TEST_SUITE_P(LineFault, HangUpTest, testing::Values(1, 2, 4, 6, 9),
                         [](const auto& row) { return "After" + std::to_string(row.param) + "Bytes"; });

TEST_F(LineFaultTest, HangUpDuringAReplyLeavesNoRestForTheNextStation)
{
    PtyPeer& deaf = plugIn();
    ChildProcess& service = startOnDevice();
    deaf.write(kModeOn);
    EXPECT_EQ(deaf.read(kModeOnReply.size()), kModeOnReply);
    Bytes questions;
    for (int i = 0; i < 100; ++i) {
        questions.insert(questions.end(), kAskMode.begin(), kAskMode.end());
    }
    for (int i = 0; i < 100; ++i) {
        deaf.write(questions);
        deaf.waitUntilTaken();
    }
    EXPECT_TRUE(waitForReports(service, "the station does not read", 1));

    unplug();
    EXPECT_TRUE(waitForReports(service, "line lost", 1));
    PtyPeer& station = plugIn();
    EXPECT_TRUE(waitForReports(service, "line is back", 1));

    // Twice, since the line may have gone in the middle of a request as well.
    station.write(kAskMode);
    station.write(kAskMode);
    EXPECT_EQ(station.read(kModeIsOn.size()), kModeIsOn);
    EXPECT_THAT(service.lines(Stream::kErr), Contains(HasSubstr("frames dropped: ")));
}

TEST_F(LineFaultTest, EventsForAStationThatDoesNotReadAreBoundedAndAccountedFor)
{
    // 03+86+13+01 = 009D, two's complement FF63
    const Bytes notice{0x2A, 0xA2, 0x00, 0x03, 0x86, 0x13, 0x01, 0x00, 0xFF, 0x63};
    ChildProcess& service = startService();
    BusClient middleware(bus().address());
    RawLine line(link());
    line.expectExchange(kModeOn, kModeOnReply);
    const ProcessFigures before = figuresOf(service.pid());

    std::size_t raised = 0;
    steady_clock::duration slowest{};
    const auto raise = [&] {
        const auto start = steady_clock::now();
        ASSERT_EQ(middleware.callHeadUnit("RaiseEvent", "('OnFactoryResetMode', '{}')"), "()");
        slowest = std::max(slowest, steady_clock::now() - start);
        ++raised;
    };
    while (!hasSaid(service, "the station does not read") && raised < 100'000 && !HasFailure()) {
        raise();
    }
    const auto end = steady_clock::now() + std::chrono::seconds(soaking() ? 60 : 2);
    while (steady_clock::now() < end && !HasFailure()) {
        raise();
    }
    const ProcessFigures after = figuresAfter(before, service.pid());

    // The first request from a station that reads again ends what it has missed.
    std::size_t received = 0;
    for (Bytes frame = line.read(notice.size()); frame == notice;
         frame = line.read(notice.size(), std::chrono::seconds(1))) {
        ++received;
    }
    const auto over = service.waitForLine(Stream::kErr, "frames dropped: ");
    ASSERT_TRUE(over);
    const std::size_t dropped = std::stoul(over->substr(over->rfind(' ')));
    EXPECT_EQ(received + dropped, raised);
    EXPECT_GT(dropped, 0u);
    line.expectExchange(kAskMode, kModeIsOn);

    showFigure("events raised", static_cast<double>(raised), "");
    showFigure("slowest event", std::chrono::duration<double>(slowest).count(), "s");
    // The one that begins the stall waits for a second, no other does.
    EXPECT_LT(slowest, std::chrono::seconds(3));
    expectConstant(before, after);
}

}  // namespace
}  // namespace tests
