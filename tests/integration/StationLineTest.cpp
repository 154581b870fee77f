#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <system_error>
#include <thread>

#include "tests/integration/BenchTest.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

using wire::Bytes;
using wire::kAskMode;
using wire::kAskReady;
using wire::kModeOn;
using wire::kModeOnReply;

// 03+8F+FF+00 = 0191, two's complement FE6F
const Bytes kModeIsOff{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x00, 0x00, 0xFE, 0x6F};
// 03+8F+FF+01 = 0192, two's complement FE6E
const Bytes kModeIsOn{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E};
// 03+8F+01+01 = 0094, two's complement FF6C
const Bytes kModuleNineIsReady{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0x01, 0x01, 0x00, 0xFF, 0x6C};

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

using StationLineTest = BenchTest;

TEST_F(StationLineTest, ModeOnIsAnsweredByteForByte)
{
    startService();
    RawLine line(link());

    line.write({0x2A, 0xA2, 0x00, 0x03, 0x0F, 0x00, 0x01, 0x00, 0xFF, 0xED});

    EXPECT_EQ(line.read(10), (Bytes{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0x00, 0x01, 0x00, 0xFF, 0x6D}));
}

TEST_F(StationLineTest, ModeIsOffAtStartAndStaysAsSet)
{
    startService();
    RawLine line(link());

    line.expectExchange(kAskMode, kModeIsOff);
    line.expectExchange(kModeOn, kModeOnReply);
    line.expectExchange(kAskMode, kModeIsOn);
}

TEST_F(StationLineTest, ModuleNineIsReportedOnceTheHeadUnitHasStartedIt)
{
    startService();

    EXPECT_TRUE(
        pollLine(kAskReady, kModuleNineIsReady.size(), [](const Bytes& reply) { return reply == kModuleNineIsReady; }));
}

TEST_F(StationLineTest, TwoFramesInOneChunkAreAnsweredInOrder)
{
    startService();
    RawLine line(link());

    line.expectExchange(kModeOn + kAskMode, kModeOnReply + kModeIsOn);
}

TEST_F(StationLineTest, FrameSplitAtAnyPlaceIsAnswered)
{
    startService();
    RawLine line(link());

    for (auto cut = kModeOn.begin() + 1; cut != kModeOn.end(); ++cut) {
        SCOPED_TRACE(cut - kModeOn.begin());
        line.write(Bytes(kModeOn.begin(), cut));
        line.expectExchange(Bytes(cut, kModeOn.end()), kModeOnReply);
    }
}

TEST_F(StationLineTest, StationThatComesBackFindsTheServiceAsItWas)
{
    startService();
    RawLine(link()).expectExchange(kModeOn, kModeOnReply);

    RawLine again(link());

    again.expectExchange(kAskMode, kModeIsOn);
}

TEST_F(StationLineTest, StationThatVanishedMidFrameFindsTheServiceStillThere)
{
    startService();
    {
        RawLine line(link());
        line.write(Bytes(kModeOn.begin(), kModeOn.begin() + 7));
    }

    RawLine again(link());

    again.expectExchange(Bytes(kModeOn.begin() + 7, kModeOn.end()), kModeOnReply);
}

struct Noise {
    const char* name;
    Bytes bytes;
};

class NoiseTest : public BenchTest, public testing::WithParamInterface<Noise>
{
};

TEST_P(NoiseTest, BeforeAFrameLeavesItsAnswerAsItIs)
{
    startService();
    RawLine line(link());

    line.write(GetParam().bytes);

    line.expectExchange(kModeOn, kModeOnReply);
}

INSTANTIATE_TEST_SUITE_P(
    StationLine, NoiseTest,
    testing::Values(Noise{"RandomBytes", {0x00, 0xFF, 0x13, 0x77, 0x0D, 0x0A, 0x03, 0x04, 0x11, 0x7F}},
                    Noise{"FirstHeaderByteOnly", {0x2A}}, Noise{"FirstHeaderByteTwice", {0x2A, 0x2A}},
                    Noise{"LengthZero", {0x2A, 0xA2, 0x00, 0x00}}, Noise{"LengthOne", {0x2A, 0xA2, 0x00, 0x01}},
                    // announces 240 bytes, of which two come
                    Noise{"CutFrame", {0x2A, 0xA2, 0x00, 0xF0, 0x0F, 0x00}},
                    // the checksum should be FFED
                    Noise{"ChecksumOffByOne", {0x2A, 0xA2, 0x00, 0x03, 0x0F, 0x00, 0x01, 0x00, 0xFF, 0xEE}},
                    Noise{"ChecksumOfZero", {0x2A, 0xA2, 0x00, 0x03, 0x0F, 0x00, 0x01, 0x00, 0x00, 0x00}}),
    [](const auto& row) { return row.param.name; });

TEST_F(StationLineTest, MegabyteOfNoiseIsPassedOver)
{
    startService();
    RawLine line(link());
    Bytes noise(std::size_t{1} << 20);
    for (std::size_t i = 0; i < noise.size(); ++i) {
        noise[i] = static_cast<std::uint8_t>(i * 131 >> 3 & 0x7F);  // no A2 among them, so no header
    }

    line.write(noise);

    line.expectExchange(kModeOn, kModeOnReply);
}

TEST_F(StationLineTest, StationThatNeverReadsIsAnsweredOnceItReads)
{
    startService();
    {
        RawLine deaf(link());
        Bytes burst;
        for (int i = 0; i < 1000; ++i) {
            burst = burst + kAskMode;
        }
        // 20,000 replies of 10 bytes: far more than a terminal holds. The service takes the questions nevertheless.
        for (int i = 0; i < 20; ++i) {
            deaf.write(burst);
        }
    }
    RawLine line(link());
    EXPECT_TRUE(pollLine(kModeOn, 4096, [](const Bytes& received) {
        return std::search(received.begin(), received.end(), kModeOnReply.begin(), kModeOnReply.end()) !=
               received.end();
    }));
}

TEST_F(StationLineTest, SigtermWhileFramesStreamEndsTheService)
{
    ChildProcess& service = startService();
    RawLine line(link());
    line.expectExchange(kModeOn, kModeOnReply);
    std::atomic<bool> streaming = false;
    std::jthread station([&](const std::stop_token& stop) {
        try {
            while (!stop.stop_requested()) {
                line.write(kAskMode);
                line.read(kModeIsOn.size());
                streaming = true;
                streaming.notify_all();
            }
        } catch (const std::system_error&) {
            // the line has gone with the service
        }
    });
    streaming.wait(false);
    const auto before = std::chrono::steady_clock::now();

    service.signal(SIGTERM);

    expectEnd(service, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(2));
    EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(link())));
}

}  // namespace
}  // namespace tests
