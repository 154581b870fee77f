#include "protocol/FrameAssembler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

#include "tests/support/WireVectors.h"

namespace {

using protocol::FrameAssembler;
using protocol::ReceivedFrame;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using wire::Bytes;

/// What a receiver sees of a frame.
struct Seen {
    std::uint8_t cmdOne;
    std::uint8_t cmdTwo;
    Bytes params;
    bool sound;

    bool operator==(const Seen&) const = default;
};

void PrintTo(const Seen& seen, std::ostream* out)
{
    *out << int{seen.cmdOne} << ' ' << int{seen.cmdTwo} << ' ' << testing::PrintToString(seen.params)
         << (seen.sound ? "" : " bad checksum");
}

Bytes joined(std::initializer_list<Bytes> pieces)
{
    Bytes all;
    for (const Bytes& piece : pieces)
        all.insert(all.end(), piece.begin(), piece.end());
    return all;
}

/// One chunk as the link takes it: append, then every complete frame.
std::vector<Seen> feed(FrameAssembler& assembler, const Bytes& chunk)
{
    assembler.append(chunk);
    std::vector<Seen> seen;
    if (!assembler.worthParsing())
        return seen;
    while (auto frame = assembler.next()) {
        const auto params = frame->params();
        seen.push_back({frame->cmdOne, frame->cmdTwo, Bytes(params.begin(), params.end()), frame->checksumHolds});
    }
    return seen;
}

const Seen kModeOnSeen{0x0F, 0x00, {0x01}, true};
const Seen kAskReadySeen{0x0F, 0x01, {}, true};

TEST(FrameAssembler, TwoFramesInOneChunkComeOutInOrder)
{
    FrameAssembler assembler;

    EXPECT_THAT(feed(assembler, joined({wire::kModeOn, wire::kAskReady})), ElementsAre(kModeOnSeen, kAskReadySeen));
    EXPECT_EQ(assembler.size(), 0U);
}

TEST(FrameAssembler, GarbageBeforeAFrameGoesWithIt)
{
    FrameAssembler assembler;

    EXPECT_THAT(feed(assembler, joined({{0x11, 0x2A, 0x33}, wire::kAskReady})), ElementsAre(kAskReadySeen));
    EXPECT_EQ(assembler.size(), 0U);
}

TEST(FrameAssembler, AFrameSplitAtAnyPlaceComesOutOnce)
{
    for (std::size_t at = 0; at <= wire::kModeOn.size(); ++at) {
        FrameAssembler assembler;
        const auto middle = wire::kModeOn.begin() + static_cast<std::ptrdiff_t>(at);

        auto seen = feed(assembler, Bytes(wire::kModeOn.begin(), middle));
        const auto rest = feed(assembler, Bytes(middle, wire::kModeOn.end()));
        seen.insert(seen.end(), rest.begin(), rest.end());

        EXPECT_THAT(seen, ElementsAre(kModeOnSeen)) << "split before byte " << at;
        EXPECT_EQ(assembler.size(), 0U);
    }
}

TEST(FrameAssembler, ALoneBeginningStaysUntilItsRestComes)
{
    FrameAssembler assembler;

    EXPECT_THAT(feed(assembler, {0x2A, 0xA2, 0x00, 0x04, 0x8F}), IsEmpty());
    EXPECT_EQ(assembler.size(), 5U);

    const Seen whole{0x8F, 0x01, {0x01, 0x02}, true};
    EXPECT_THAT(feed(assembler, {0x01, 0x01, 0x02, 0xFF, 0x69}), ElementsAre(whole));
}

TEST(FrameAssembler, AChecksumOffByOneIsToldAndTheNextFrameStillComes)
{
    FrameAssembler assembler;
    Bytes broken = wire::kModeOn;
    broken.back() = 0xEC;

    const auto seen = feed(assembler, joined({broken, wire::kAskReady}));

    EXPECT_THAT(seen, ElementsAre(Seen{0x0F, 0x00, {0x01}, false}, kAskReadySeen));
}

TEST(FrameAssembler, APaddingByteThatIsNotZeroSpoilsTheChecksum)
{
    FrameAssembler assembler;
    Bytes padded = wire::kModeOn;
    padded[7] = 0x01;

    EXPECT_THAT(feed(assembler, padded), ElementsAre(Seen{0x0F, 0x00, {0x01}, false}));
}

TEST(FrameAssembler, TheReservedByteIsIgnored)
{
    FrameAssembler assembler;
    Bytes frame = wire::kModeOn;
    frame[2] = 0x77;

    EXPECT_THAT(feed(assembler, frame), ElementsAre(kModeOnSeen));
}

TEST(FrameAssembler, SevenBytesAreNeverLookedAt)
{
    FrameAssembler assembler;
    const Bytes wouldPass = {0x2A, 0xA2, 0x00, 0xFF, 0x00, 0x02, 0x00};  // length 255 needs 6 bytes only

    EXPECT_THAT(feed(assembler, wouldPass), IsEmpty());
    EXPECT_EQ(assembler.size(), 7U);
}

TEST(FrameAssembler, LengthsZeroAndOneBeginNoFrame)
{
    for (const std::uint8_t length : {std::uint8_t{0}, std::uint8_t{1}}) {
        FrameAssembler assembler;

        EXPECT_THAT(feed(assembler, {0x2A, 0xA2, 0x00, length, 0x0F, 0x01, 0x00, 0x00, 0x00, 0x00}), IsEmpty());
        EXPECT_EQ(assembler.size(), 10U);
        EXPECT_THAT(feed(assembler, wire::kAskReady), ElementsAre(kAskReadySeen));
    }
}

TEST(FrameAssembler, Length254TakesItsWholeFrame)
{
    FrameAssembler assembler;
    Bytes frame = {0x2A, 0xA2, 0x00, 0xFE, 0x0A, 0x02};
    frame.insert(frame.end(), 252, 0x01);
    frame.insert(frame.end(), {0xFD, 0xFA});  // FE + 0A + 02 + 252 * 01 = 0206

    EXPECT_THAT(feed(assembler, frame), ElementsAre(Seen{0x0A, 0x02, Bytes(252, 0x01), true}));
}

TEST(FrameAssembler, Length253DropsThePaddingFromTheParameters)
{
    FrameAssembler assembler;
    Bytes frame = {0x2A, 0xA2, 0x00, 0xFD, 0x0A, 0x02};
    frame.insert(frame.end(), 251, 0x01);
    frame.insert(frame.end(), {0x00, 0xFD, 0xFC});  // FD + 0A + 02 + 251 * 01 = 0204

    EXPECT_THAT(feed(assembler, frame), ElementsAre(Seen{0x0A, 0x02, Bytes(251, 0x01), true}));
}

TEST(FrameAssembler, Length255IsCompleteWithSixBytesAndTakesWhatIsThere)
{
    FrameAssembler assembler;
    // FF + 0A + 02 + 0 = 010B; the absent checksum counts as 0, so it does not hold.
    EXPECT_THAT(feed(assembler, {0x2A, 0xA2, 0x00, 0xFF, 0x0A, 0x02, 0x00, 0x00}),
                ElementsAre(Seen{0x0A, 0x02, Bytes(253, 0x00), false}));
    EXPECT_EQ(assembler.size(), 0U);

    EXPECT_THAT(feed(assembler, wire::kAskReady), ElementsAre(kAskReadySeen));
}

TEST(FrameAssembler, Length255WithAllItsBytesHasItsChecksumBehind256)
{
    FrameAssembler assembler;
    Bytes frame = {0x2A, 0xA2, 0x00, 0xFF, 0x0A, 0x02};
    frame.insert(frame.end(), 256, 0x01);
    frame.insert(frame.end(), {0xFD, 0xF5});  // FF + 0A + 02 + 256 * 01 = 020B

    EXPECT_THAT(feed(assembler, joined({frame, wire::kAskReady})),
                ElementsAre(Seen{0x0A, 0x02, Bytes(253, 0x01), true}, kAskReadySeen));
}

TEST(FrameAssembler, Length255BehindAnotherFrameIsTakenThoughFewerThanEightBytesAreLeft)
{
    FrameAssembler assembler;

    const auto seen = feed(assembler, joined({wire::kAskReady, {0x2A, 0xA2, 0x00, 0xFF, 0x0A, 0x02}}));

    EXPECT_THAT(seen, ElementsAre(kAskReadySeen, Seen{0x0A, 0x02, Bytes(253, 0x00), false}));
    EXPECT_EQ(assembler.size(), 0U);
}

TEST(FrameAssembler, ACompleteFrameInsideAnIncompleteOneIsFound)
{
    FrameAssembler assembler;
    const Bytes incomplete = {0x2A, 0xA2, 0x00, 0x40, 0x0A, 0x02};

    EXPECT_THAT(feed(assembler, joined({incomplete, wire::kAskReady})), ElementsAre(kAskReadySeen));
    EXPECT_EQ(assembler.size(), 0U);
}

TEST(FrameAssembler, GarbageIsKeptAsItIs)
{
    FrameAssembler assembler;
    const Bytes garbage(5000, 0x55);

    EXPECT_THAT(feed(assembler, garbage), IsEmpty());
    EXPECT_EQ(assembler.size(), 5000U);
    EXPECT_THAT(feed(assembler, wire::kAskReady), ElementsAre(kAskReadySeen));
    EXPECT_EQ(assembler.size(), 0U);
}

TEST(FrameAssembler, AboveItsLimitItDropsWhatCanNoLongerBeginAFrame)
{
    FrameAssembler assembler;
    const Bytes garbage(FrameAssembler::kLimit, 0x55);
    ASSERT_EQ(assembler.append(garbage), 0U);

    // The last three bytes may still begin a frame: the length byte behind them has not come.
    EXPECT_EQ(assembler.append(Bytes{0x55, 0x2A, 0xA2, 0x00}), FrameAssembler::kLimit + 1);
    EXPECT_EQ(assembler.size(), 3U);

    EXPECT_THAT(feed(assembler, {0x02, 0x0F, 0x01, 0xFF, 0xEE}), ElementsAre(kAskReadySeen));
}

TEST(FrameAssembler, AFrameThatWasReadIsNotAmongTheDroppedBytes)
{
    FrameAssembler assembler;
    Bytes stream = wire::kModeOn;
    stream.resize(FrameAssembler::kLimit, 0x55);
    ASSERT_THAT(feed(assembler, stream), ElementsAre(kModeOnSeen));

    const std::size_t dropped = assembler.append(Bytes(FrameAssembler::kLimit, 0x55));
    EXPECT_EQ(dropped, 2 * FrameAssembler::kLimit - wire::kModeOn.size() - assembler.size());
}

TEST(FrameAssembler, AboveItsLimitItKeepsAFrameThatIsStillComing)
{
    FrameAssembler assembler;
    Bytes stream(FrameAssembler::kLimit, 0x55);
    stream.insert(stream.end(), wire::kModeOn.begin(), wire::kModeOn.end() - 1);

    EXPECT_EQ(assembler.append(stream), FrameAssembler::kLimit);
    EXPECT_THAT(feed(assembler, {wire::kModeOn.back()}), ElementsAre(kModeOnSeen));
}

/// @returns the processor time of this thread, in seconds.
double processorTime()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

/// @returns the processor time that a stream of `unit` over and over costs, fed in chunks.
double timeFor(const Bytes& unit, std::size_t size, std::size_t chunk)
{
    Bytes stream;
    while (stream.size() < size)
        stream.insert(stream.end(), unit.begin(), unit.end());
    FrameAssembler assembler;
    const double begin = processorTime();
    for (std::size_t at = 0; at < stream.size(); at += chunk) {
        assembler.append(protocol::Bytes(stream).subspan(at, std::min(chunk, stream.size() - at)));
        if (!assembler.worthParsing())
            continue;
        while (assembler.next()) {
        }
    }
    return processorTime() - begin;
}

struct GrowthCase {
    const char* name;
    Bytes unit;
};

class GrowthTest : public testing::TestWithParam<GrowthCase>
{
};

// A receiver that searches or moves its whole buffer for each chunk takes 16 times as long for 4 times the bytes.
TEST_P(GrowthTest, TheWorkIsLinearInTheBytesReceivedHoweverTheyAreCut)
{
    for (const std::size_t chunk : {std::size_t{1}, std::size_t{64}, std::size_t{4096}}) {
        const double quarter = timeFor(GetParam().unit, FrameAssembler::kLimit / 4, chunk);
        const double whole = timeFor(GetParam().unit, FrameAssembler::kLimit, chunk);

        EXPECT_LT(whole, 8 * quarter + 0.1) << "in chunks of " << chunk;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Stream, GrowthTest,
    testing::Values(GrowthCase{"Garbage", {0x55}}, GrowthCase{"FirstHeaderBytes", {0x2A}},
                    GrowthCase{"BeginningsOnly", {0x2A, 0xA2, 0x00, 0xFE}}, GrowthCase{"Frames", wire::kAskReady},
                    GrowthCase{"FramesInsideOfOpenOnes",
                               joined({{0x2A, 0xA2, 0x00, 0xFE}, {0x2A, 0xA2, 0x00, 0x10}, wire::kAskReady})}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
