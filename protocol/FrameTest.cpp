#include "protocol/Frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/WireVectors.h"

namespace {

using protocol::encode;
using protocol::FrameBuffer;
using testing::Each;
using testing::ElementsAreArray;

class EncodeTest : public testing::TestWithParam<wire::Vector>
{
};

TEST_P(EncodeTest, GivesTheBytesOnTheWireAndZeroesBehindThem)
{
    const wire::Vector& vector = GetParam();
    FrameBuffer out;
    out.fill(0xEE);

    const std::size_t length = encode(out, vector.cmdOne, vector.cmdTwo, vector.params);

    EXPECT_THAT(std::span(out).first(length), ElementsAreArray(vector.frame));
    EXPECT_THAT(std::span(out).subspan(length), Each(0));
}

INSTANTIATE_TEST_SUITE_P(Wire, EncodeTest, testing::ValuesIn(wire::kFrames),
                         [](const auto& test) { return test.param.name; });

TEST(FrameLength, CountsThePaddingByteOfAnOddNumberOfParameters)
{
    EXPECT_EQ(protocol::frameLength(0), 8U);
    EXPECT_EQ(protocol::frameLength(1), 10U);
    EXPECT_EQ(protocol::frameLength(2), 10U);
    EXPECT_EQ(protocol::frameLength(3), 12U);
}

TEST(FrameLength, OfTheMostParametersIsThatOfTheLongestFrame)
{
    EXPECT_EQ(protocol::frameLength(protocol::kMaxStationParams), protocol::kMaxStationFrame);
    EXPECT_LE(protocol::frameLength(protocol::kMaxParams), protocol::kMaxFrame);
    EXPECT_EQ(protocol::kMaxFrame, 255U);
}

TEST(Encode, TheLongestFrameHas246ParametersAnd254Bytes)
{
    const std::vector<std::uint8_t> params(246, 0x01);
    FrameBuffer out;

    ASSERT_EQ(encode(out, 0x8A, 0x03, params), 254U);

    // F8 + 8A + 03 + 246 * 01 = 027B, two's complement FD85
    EXPECT_EQ(out[3], 0xF8);
    EXPECT_EQ(out[252], 0xFD);
    EXPECT_EQ(out[253], 0x85);
}

TEST(Encode, OneParameterMoreIsRefusedAndLeavesNothing)
{
    for (const std::size_t count : {std::size_t{247}, std::size_t{253}, std::size_t{254}, std::size_t{70000}}) {
        const std::vector<std::uint8_t> params(count, 0x55);
        FrameBuffer out;
        out.fill(0xEE);

        EXPECT_EQ(encode(out, 0x8A, 0x03, params), 0U) << count;
        EXPECT_THAT(out, Each(0));
    }
}

TEST(Encode, AStationMaySend252ParametersIn260Bytes)
{
    const std::vector<std::uint8_t> params(252, 0x01);
    protocol::StationFrameBuffer out;

    ASSERT_EQ(encode(out, 0x0A, 0x02, params), 260U);

    // FE + 0A + 02 + 252 * 01 = 0206, two's complement FDFA
    EXPECT_EQ(out[3], 0xFE);
    EXPECT_EQ(out[258], 0xFD);
    EXPECT_EQ(out[259], 0xFA);
}

TEST(Encode, WithALengthByteOf255NothingIsEncoded)
{
    const std::vector<std::uint8_t> params(253, 0x01);
    std::array<std::uint8_t, 300> out;

    EXPECT_EQ(encode(out, 0x0A, 0x02, params), 0U);
}

}  // namespace
