#include "station/trace/Describe.h"

#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"

namespace station {
namespace {

using protocol::Frame;
using Kind = TraceEvent::Kind;

class DescribeTest : public testing::Test
{
protected:
    std::string seen(Kind kind, Frame frame, std::string text = {})
    {
        const TraceEvent event{kind, {}, {}, std::move(frame), std::move(text)};
        return describe(attribution.groups(), event, attribution.on(event).decoded);
    }

    Attribution attribution{protocol::catalogue::groups()};
};

TEST_F(DescribeTest, FramesAreDecodedByTheirDirection)
{
    EXPECT_EQ(seen(Kind::kSent, {0x0F, 0x00, {0x01}}), "test.set-mode: mode=1 (on)");
    EXPECT_EQ(seen(Kind::kReceived, {0x8F, 0x00, {0x01}}), "test.set-mode: mode=1 (on)");
}

// WIRE: a missing CarPlay MAC is answered under the password number's code.
TEST_F(DescribeTest, ReplyWhoseCodeTwoCommandsShareBelongsToTheOneThatWasSent)
{
    seen(Kind::kSent, {0x0A, 0x0F, {}});
    EXPECT_EQ(seen(Kind::kReceived, {0x8A, 0x0F, {}}).substr(0, 24), "identity.password-number");
    seen(Kind::kSent, {0x0A, 0x12, {}});
    EXPECT_EQ(seen(Kind::kReceived, {0x8A, 0x0F, {}}).substr(0, 20), "identity.carplay-mac");
}

TEST_F(DescribeTest, CorruptFrameIsShownAsItIs)
{
    EXPECT_EQ(seen(Kind::kCorrupt, {0x8F, 0x00, {0x01}}), "8F 00 [01]: wrong checksum");
}

TEST_F(DescribeTest, WhatHappensToTheDeviceIsToldInWords)
{
    EXPECT_EQ(seen(Kind::kLost, {}, "/dev/x:\ngone"), "/dev/x:␊gone");
    EXPECT_EQ(seen(Kind::kBack, {}), "the device is there again");
}

TEST(EventName, SaysTheDirection)
{
    EXPECT_STREQ(name(Kind::kSent), "sent");
    EXPECT_STREQ(name(Kind::kReceived), "received");
    EXPECT_STREQ(name(Kind::kCorrupt), "corrupt");
    EXPECT_STREQ(name(Kind::kLost), "lost");
    EXPECT_STREQ(name(Kind::kBack), "back");
}

}  // namespace
}  // namespace station
