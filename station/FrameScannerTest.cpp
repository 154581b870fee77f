#include "station/FrameScanner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "protocol/FrameAssembler.h"
#include "tests/support/WireVectors.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::SizeIs;

using Bytes = std::vector<std::uint8_t>;
using Kind = ScannedPiece::Kind;

auto piece(Kind kind, const Bytes& bytes)
{
    return testing::AllOf(Field(&ScannedPiece::kind, kind), Field(&ScannedPiece::bytes, bytes));
}

Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

TEST(FrameScanner, CutsFramesOutOfTheGarbageBetweenThem)
{
    const auto pieces = scanFrames(joined({{0x11, 0x2A}, wire::kModeOn, wire::kAskReady, {0x33}, wire::kAskMode}));

    EXPECT_THAT(pieces, ElementsAre(piece(Kind::kGarbage, {0x11, 0x2A}), piece(Kind::kFrame, wire::kModeOn),
                                    piece(Kind::kFrame, wire::kAskReady), piece(Kind::kGarbage, {0x33}),
                                    piece(Kind::kFrame, wire::kAskMode)));
    EXPECT_EQ(pieces[1].frame, (protocol::Frame{0x0F, 0x00, {0x01}}));
}

TEST(FrameScanner, TellsAFrameWithAWrongChecksum)
{
    Bytes broken = wire::kModeOn;
    broken.back() = 0xEE;

    const auto pieces = scanFrames(joined({broken, wire::kAskReady}));

    EXPECT_THAT(pieces, ElementsAre(piece(Kind::kCorrupt, broken), piece(Kind::kFrame, wire::kAskReady)));
    EXPECT_EQ(pieces[0].frame, (protocol::Frame{0x0F, 0x00, {0x01}}));
}

TEST(FrameScanner, TellsAFrameWhoseEndIsMissing)
{
    EXPECT_THAT(scanFrames(Bytes{0x11, 0x2A, 0xA2, 0x00, 0x04}),
                ElementsAre(piece(Kind::kGarbage, {0x11}), piece(Kind::kIncomplete, {0x2A, 0xA2, 0x00, 0x04})));
}

TEST(FrameScanner, TakesWhatIsNothingForGarbage)
{
    EXPECT_THAT(scanFrames({}), IsEmpty());
    EXPECT_THAT(scanFrames(Bytes{0x2A}), ElementsAre(piece(Kind::kIncomplete, {0x2A})));
}

TEST(FrameScanner, TakesMoreThanAReceiveBufferHolds)
{
    const Bytes noise(protocol::FrameAssembler::kLimit + 70'000, 0x55);

    const auto pieces = scanFrames(joined({noise, wire::kModeOn}));

    EXPECT_THAT(pieces, ElementsAre(piece(Kind::kGarbage, noise), piece(Kind::kFrame, wire::kModeOn)));
}

TEST(FrameScanner, LosesNoByteOfAnyStream)
{
    std::mt19937 random(1);
    for (int round = 0; round < 2000; ++round) {
        Bytes stream(random() % 600);
        for (auto& byte : stream) {
            constexpr std::uint8_t kOften[] = {0x2A, 0xA2, 0x00, 0x02, 0xFF, 0x0F};
            byte = random() % 3 == 0 ? static_cast<std::uint8_t>(random()) : kOften[random() % 6];
        }

        Bytes again;
        for (const ScannedPiece& each : scanFrames(stream)) {
            ASSERT_FALSE(each.bytes.empty());
            again.insert(again.end(), each.bytes.begin(), each.bytes.end());
        }

        ASSERT_EQ(again, stream);
    }
}

}  // namespace
}  // namespace station
