// Frames without end: memory, descriptors and threads stay as they are.

#include <gmock/gmock.h>

#include <chrono>
#include <fstream>

#include "tests/faults/ProcessFigures.h"
#include "tests/faults/SignalCounter.h"
#include "tests/faults/Soak.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

using wire::Bytes;
using wire::kModeOn;
using wire::kModeOnReply;

/// What a station asks over and over: getters of several groups, an action, a group that is unknown, and behind noise a
/// frame with a wrong checksum.
constexpr std::size_t kFrames = 8;
constexpr std::size_t kPublished = 7;
const Bytes kRequests{
    0x2A, 0xA2, 0x00, 0x02, 0x0F, 0xFF, 0xFE, 0xF0,                    // the mode
    0x2A, 0xA2, 0x00, 0x02, 0x01, 0x01, 0xFF, 0xFC,                    // the volume
    0x2A, 0xA2, 0x00, 0x02, 0x02, 0x01, 0xFF, 0xFB,                    // the tuner's frequency
    0x2A, 0xA2, 0x00, 0x02, 0x0A, 0x03, 0xFF, 0xF1,                    // the factory serial number
    0x2A, 0xA2, 0x00, 0x03, 0x04, 0x16, 0x01, 0x00, 0xFF, 0xE2,        // a Bluetooth capability is set
    0x2A, 0xA2, 0x00, 0x02, 0x7E, 0x01, 0xFF, 0x7F,                    // no such group
    0x13, 0x77, 0x2A, 0x2A, 0xA2, 0x00, 0x02, 0x0F, 0xFF, 0xFE, 0xF1,  // should be FEF0
    0x2A, 0xA2, 0x00, 0x02, 0x07, 0x06, 0xFF, 0xF1,                    // the project's name
};
const Bytes kReplies{
    0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E,                          // on
    0x2A, 0xA2, 0x00, 0x03, 0x81, 0x01, 0x0C, 0x00, 0xFF, 0x6F,                          // 12
    0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x22, 0x2E, 0xFF, 0x29,                          // 8750
    0x2A, 0xA2, 0x00, 0x03, 0x8A, 0x03, 0x31, 0x00, 0xFF, 0x3F,                          // 1
    0x2A, 0xA2, 0x00, 0x07, 0x87, 0x06, 0x62, 0x65, 0x6E, 0x63, 0x68, 0x00, 0xFD, 0x6C,  // bench
};

Bytes times(std::size_t count, const Bytes& bytes)
{
    Bytes all;
    for (std::size_t i = 0; i < count; ++i) {
        all.insert(all.end(), bytes.begin(), bytes.end());
    }
    return all;
}

class EnduranceTest : public BenchTest
{
protected:
    /// The head unit remembers the newest 10,000 calls: a Bluetooth capability is set as often.
    void fillTheRecordOfCalls(RawLine& line)
    {
        const Bytes requests = times(100, {0x2A, 0xA2, 0x00, 0x03, 0x04, 0x16, 0x01, 0x00, 0xFF, 0xE2});
        for (int i = 0; i < 100 && !HasFailure(); ++i) {
            line.write(requests);
            line.expectExchange(kModeOn, kModeOnReply);
        }
    }

    /// Exchanges at least `frames` frames, as fast as the line carries them.
    /// @returns how many.
    std::size_t exchange(RawLine& line, std::size_t frames)
    {
        constexpr std::size_t kBurst = 10;
        const Bytes requests = times(kBurst, kRequests);
        const Bytes replies = times(kBurst, kReplies);
        std::size_t exchanged = 0;
        while (exchanged < frames && !HasFailure()) {
            line.expectExchange(requests, replies);
            exchanged += kBurst * kFrames;
        }
        return exchanged;
    }
};

TEST_F(EnduranceTest, AnyNumberOfFramesWithASubscriberLeavesMemoryDescriptorsAndThreadsAsTheyAre)
{
    ChildProcess& service = startService();
    RawLine line(link());
    line.expectExchange(kModeOn, kModeOnReply);
    line.write({0x2A, 0xA2, 0x00, 0x03, 0x0A, 0x02, 0x31, 0x00, 0xFF, 0xC0});  // the factory serial number is 1
    fillTheRecordOfCalls(line);
    exchange(line, 5'000);
    const SignalCounter hmi(bus().address());
    const ProcessFigures before = figuresOf(service.pid());

    const std::size_t wanted = lengthOf(50'000, 1'000'000);
    const auto start = std::chrono::steady_clock::now();
    std::size_t frames = exchange(line, wanted / 2);
    const ProcessFigures halfway = figuresOf(service.pid());
    frames += exchange(line, wanted / 2);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    const ProcessFigures after = figuresAfter(before, service.pid());

    expectConstant(before, after);
    showFigure("of this in the second half",
               (static_cast<double>(after.residentBytes) - static_cast<double>(halfway.residentBytes)) / 1e6, "MB");
    const std::size_t published = frames / kFrames * kPublished;
    hmi.waitFor(published);
    // A bus that a loaded machine keeps waiting for a tenth of a second is passed over: no signal is owed.
    EXPECT_GT(hmi.count(), published / 2);
    EXPECT_LE(hmi.count(), published);
    showFigure("frames", static_cast<double>(frames), "");
    showFigure("frames a second", static_cast<double>(frames) / took.count(), "1/s");
    showFigure("signals that the subscriber got",
               100.0 * static_cast<double>(hmi.count()) / static_cast<double>(published), "%");
}

TEST_F(EnduranceTest, PlanOfAnyNumberOfRoundsLeavesTheMemoryOfTheToolAsItIs)
{
    constexpr std::size_t kWarm = 1'000;
    const std::size_t rounds = lengthOf(10'000, 200'000);
    const Bytes modeIsOn(kReplies.begin(), kReplies.begin() + 10);
    PtyPeer unit;
    const std::string plan = directory() / "plan.toml";
    std::ofstream(plan) << "schema = 1\nname = \"loop\"\ntitle = \"Loop\"\n[[main]]\nname = \"Loop\"\nrepeat = "
                        << rounds << "\nsteps = [{ send = \"test.mode\", expect = { mode = \"on\" } }]\n";
    ChildProcess& tool = start({ENGINEERING_STATION, "plan", "run", plan, "--port", unit.path(), "--results",
                                directory() / "results", "--quiet"});
    ProcessFigures warm;
    for (std::size_t round = 1; round <= rounds; ++round) {
        ASSERT_EQ(unit.read(wire::kAskMode.size()), wire::kAskMode) << round;
        if (round == kWarm) {
            warm = figuresOf(tool.pid());
        } else if (round == rounds) {
            expectConstant(warm, figuresAfter(warm, tool.pid()));
        }
        unit.write(modeIsOn);
    }

    expectEnd(tool, 0);
}

}  // namespace
}  // namespace tests
