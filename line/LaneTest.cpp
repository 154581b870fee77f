#include "line/Lane.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace line {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

// 0F 00 [01]; 8F 00 [01]
const Bytes kFrame{0x2A, 0xA2, 0x00, 0x03, 0x0F, 0x00, 0x01, 0x00, 0xFF, 0xED};
const Bytes kOther{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0x00, 0x01, 0x00, 0xFF, 0x6D};
const Bytes kGarbage{0x11, 0x2A, 0x55};

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// A lane, a clock of its own, and the other end.
struct LaneTest : testing::Test {
    void set(const Faults& faults, std::uint64_t seed = 1)
    {
        deeds.clear();
        lane.emplace(seed, [this](const station::ScannedPiece&, const std::string& deed) { deeds.push_back(deed); });
        lane->set(faults, now);
    }

    void take(const Bytes& bytes) { lane->take(bytes, now); }

    /// @returns what leaves until this time has passed.
    Bytes leave(Lane::Clock::duration time = 0ms)
    {
        Bytes all;
        const auto end = now + time;
        for (;;) {
            lane->tick(now);
            for (auto ready = lane->ready(now); !ready.empty(); ready = lane->ready(now)) {
                all.insert(all.end(), ready.begin(), ready.end());
                lane->left(ready.size());
            }
            const auto due = lane->due();
            if (!due || *due > end) {
                now = end;
                return all;
            }
            now = std::max(now, *due);
        }
    }

    std::optional<Lane> lane;
    Lane::Clock::time_point now{1h};
    std::vector<std::string> deeds;
};

TEST_F(LaneTest, WithoutFaultsPassesOnEveryByteInItsOrder)
{
    set({});

    take(kGarbage + kFrame + kGarbage + kOther);

    EXPECT_EQ(leave(), kGarbage + kFrame + kGarbage + kOther);
    EXPECT_EQ(lane->counts().frames, 2U);
    EXPECT_EQ(lane->counts().bytes, 26U);
    EXPECT_FALSE(lane->due());
}

TEST_F(LaneTest, FrameInPiecesIsOneFrameAndItsBeginningLeavesAlone)
{
    set({});
    const auto half = kFrame.begin() + 5;

    take({kFrame.begin(), half});
    EXPECT_THAT(leave(49ms), IsEmpty());
    take({half, kFrame.end()});
    EXPECT_EQ(leave(), kFrame);
    EXPECT_EQ(lane->counts().frames, 1U);

    take({kFrame.begin(), half});
    EXPECT_EQ(leave(50ms), (Bytes{kFrame.begin(), half}));
}

TEST_F(LaneTest, BeginningOfAFrameThatNeverEndsDoesNotGrow)
{
    set({});
    const Bytes zeros(100, 0);
    std::size_t left = 0;

    take({0x2A, 0xA2});
    for (int i = 0; i < 100; ++i) {
        take(zeros);
        left += leave().size();
    }

    EXPECT_GT(left, 9000U);
    EXPECT_EQ(left + leave(50ms).size(), 10002U);
}

TEST_F(LaneTest, DroppedFrameIsGoneAndGarbageStays)
{
    set({.drop = 1});

    take(kGarbage + kFrame);

    EXPECT_EQ(leave(), kGarbage);
    EXPECT_EQ(lane->counts().dropped, 1U);
    EXPECT_THAT(deeds, ElementsAre("", "dropped"));
}

TEST_F(LaneTest, CorruptedFrameDiffersInOneByte)
{
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        set({.corrupt = 1}, seed);
        take(kFrame);
        const Bytes got = leave();

        ASSERT_THAT(got, SizeIs(kFrame.size()));
        std::size_t differences = 0;
        for (std::size_t i = 0; i < got.size(); ++i) {
            differences += got[i] != kFrame[i] ? 1 : 0;
        }
        EXPECT_EQ(differences, 1U) << "seed " << seed;
    }
    EXPECT_EQ(lane->counts().corrupted, 1U);
}

TEST_F(LaneTest, DuplicatedFrameComesTwice)
{
    set({.duplicate = 1});

    take(kFrame + kOther);

    EXPECT_EQ(leave(), kFrame + kFrame + kOther + kOther);
    EXPECT_EQ(lane->counts().duplicated, 2U);
}

TEST_F(LaneTest, SplitFrameComesInTwoPartsWithAGap)
{
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        set({.split = 1}, seed);
        take(kFrame);

        const Bytes first = leave(19ms);
        EXPECT_GE(first.size(), 1U);
        EXPECT_LT(first.size(), kFrame.size());
        EXPECT_EQ(first + leave(1ms), kFrame);
    }
}

TEST_F(LaneTest, DelayedBytesKeepTheirOrder)
{
    set({.delay = 0.2, .jitter = 0.1});

    take(kFrame);
    take(kGarbage + kOther);

    EXPECT_THAT(leave(199ms), IsEmpty());
    EXPECT_EQ(leave(101ms), kFrame + kGarbage + kOther);
    EXPECT_EQ(lane->counts().delayed, 2U);
}

TEST_F(LaneTest, ThrottledBytesLeaveAtTheBaudRate)
{
    set({.baud = 1200});
    const Bytes many(120, 0x11);  // 120 bytes of 10 bits: 1 s

    take(many);

    EXPECT_NEAR(static_cast<double>(leave(500ms).size()), 60, 1);
    EXPECT_NEAR(static_cast<double>(leave(490ms).size()), 59, 1);
    leave(20ms);
    EXPECT_FALSE(lane->due());
}

TEST_F(LaneTest, NoiseComesByItselfAndEnds)
{
    set({.noise = 100});

    const std::size_t bytes = leave(10s).size();

    EXPECT_NEAR(static_cast<double>(lane->counts().noise), 1000, 150);
    EXPECT_NEAR(static_cast<double>(bytes), 4500, 700);
    EXPECT_THAT(deeds, testing::Each(std::string("noise")));
    lane->set({}, now);
    EXPECT_THAT(leave(10s), IsEmpty());
}

TEST_F(LaneTest, NoiseOfATimeInWhichTheProcessStoodStillIsNotMadeUpFor)
{
    set({.noise = 1000});

    now += 1h;
    lane->tick(now);

    EXPECT_LT(lane->counts().noise, 10U);
}

TEST_F(LaneTest, NoiseOfTheTimeInWhichAnEndWasAwayIsNotMadeUpFor)
{
    set({.noise = 1000});
    lane->discard(now);

    now += 900ms;
    lane->discard(now);

    EXPECT_THAT(leave(), IsEmpty());
    EXPECT_EQ(lane->counts().noise, 0U);
    leave(1s);
    EXPECT_NEAR(static_cast<double>(lane->counts().noise), 1000, 150);
}

TEST_F(LaneTest, FrameThatHangsUpIsLostWithAllBehindIt)
{
    set({.hangUp = 1});

    take(kGarbage + kFrame + kOther);

    EXPECT_EQ(leave(), kGarbage);
    EXPECT_TRUE(lane->hangsUp());
    EXPECT_FALSE(lane->hangsUp());
    EXPECT_EQ(lane->counts().hangUps, 1U);
    EXPECT_EQ(lane->counts().lostBytes, 20U);
}

TEST_F(LaneTest, RatesHoldOnAverage)
{
    set({.drop = 0.01, .corrupt = 0.05, .duplicate = 0.1});

    for (int i = 0; i < 100'000; ++i) {
        take(kFrame);
        leave();
    }

    EXPECT_NEAR(static_cast<double>(lane->counts().dropped), 1000, 150);
    EXPECT_NEAR(static_cast<double>(lane->counts().corrupted), 4950, 300);
    EXPECT_NEAR(static_cast<double>(lane->counts().duplicated), 9900, 400);
}

TEST_F(LaneTest, SameSeedDoesTheSameAndAnotherRateLeavesTheOtherFaultsAlone)
{
    const auto dropped = [this](double corrupt, std::uint64_t seed) {
        set({.drop = 0.2, .corrupt = corrupt}, seed);
        std::vector<bool> all;
        for (int i = 0; i < 200; ++i) {
            take(kFrame);
            all.push_back(leave().empty());
        }
        return all;
    };

    EXPECT_EQ(dropped(0, 7), dropped(0, 7));
    EXPECT_EQ(dropped(0, 7), dropped(0.5, 7));
    EXPECT_NE(dropped(0, 7), dropped(0, 8));
}

TEST_F(LaneTest, EndThatTakesNothingFillsIt)
{
    set({.noise = 1000, .delay = 60});
    const Bytes many(4096, 0x11);

    while (!lane->full()) {
        take(many);
    }
    lane->tick(now + 30s);

    EXPECT_EQ(lane->counts().bytes, Lane::kMostWaiting);
    EXPECT_EQ(lane->counts().noise, 0U);
    EXPECT_FALSE(lane->due(true) && *lane->due(true) <= now);
}

TEST_F(LaneTest, DiscardedBytesAreCountedAsLost)
{
    set({.delay = 1});
    take(kFrame + Bytes{0x2A});

    lane->discard(now);
    lane->lose(5);

    EXPECT_THAT(leave(2s), IsEmpty());
    EXPECT_EQ(lane->counts().lostBytes, 16U);
    EXPECT_EQ(lane->counts().bytes, 16U);
}

}  // namespace
}  // namespace line
