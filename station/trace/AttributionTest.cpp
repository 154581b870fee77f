#include "station/trace/Attribution.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"

namespace station {
namespace {

using protocol::Frame;
using Kind = TraceEvent::Kind;
using Due = Attribution::Due;

const Frame kAskFrequency{0x02, 0x01, {}};
const Frame kFrequency{0x82, 0x01, {0x22, 0x2E}};
const Frame kKey{0x86, 0x11, {0x25, 0x04}};

class AttributionTest : public testing::Test
{
protected:
    void send(Frame frame, Due due = Due::kReply)
    {
        attribution.expect(due);
        attribution.on({Kind::kSent, {}, {}, std::move(frame), {}});
    }

    /// @returns the number of the command that the frame answers, 0 for none; negative when that one had its answer.
    int answered(Frame frame, bool early = false)
    {
        const auto meaning = attribution.on({Kind::kReceived, {}, {}, std::move(frame), {}, {}, early});
        if (!meaning.request) {
            return 0;
        }
        const int number = static_cast<int>(meaning.request->number);
        return meaning.request->answered ? -number : number;
    }

    Attribution attribution{protocol::catalogue::groups()};
};

TEST_F(AttributionTest, ReplyBelongsToTheLatestCommandThatItAnswers)
{
    send(kAskFrequency);
    send(kAskFrequency);
    send({0x0F, 0xFF, {}});

    EXPECT_EQ(answered(kFrequency), 2);
}

TEST_F(AttributionTest, SecondReplyBelongsToTheCommandBeforeThatLacksItsOwn)
{
    send(kAskFrequency);
    send(kAskFrequency);

    EXPECT_EQ(answered(kFrequency), 2);
    EXPECT_EQ(answered(kFrequency), 1);
    EXPECT_EQ(answered(kFrequency), -2);
}

TEST_F(AttributionTest, FrameThatBeganBeforeTheCommandDoesNotAnswerIt)
{
    send(kAskFrequency);

    EXPECT_EQ(answered(kFrequency, true), 0);
    EXPECT_EQ(answered(kFrequency), 1);
}

TEST_F(AttributionTest, NoticeAndUnknownFrameAnswerNothing)
{
    send(kAskFrequency);

    EXPECT_EQ(answered(kKey), 0);
    EXPECT_EQ(answered({0xEE, 0x01, {}}), 0);
}

TEST_F(AttributionTest, WhereSilenceIsExpectedAFrameUnderTheCommandsCodeBreaksIt)
{
    send({0x33, 0x44, {}}, Due::kSilence);

    EXPECT_EQ(answered({0xB3, 0x44, {}}), 1);
}

TEST_F(AttributionTest, NoticeUnderTheCommandsCodeBreaksTheSilenceOnlyWhileItIsWaitedFor)
{
    send({0x06, 0x11, {}}, Due::kSilence);
    attribution.settle();
    EXPECT_EQ(answered(kKey), 0);

    send({0x06, 0x11, {}}, Due::kSilence);
    EXPECT_EQ(answered(kKey), 2);
}

TEST_F(AttributionTest, CommandIsForgottenAfterSixteenOthers)
{
    send(kAskFrequency);
    for (std::size_t i = 1; i < Attribution::kRemembered; ++i) {
        send({0x0F, 0xFF, {}});
    }
    send({0x0F, 0xFF, {}});

    EXPECT_EQ(answered(kFrequency), 0);
}

TEST_F(AttributionTest, DamagedFrameAnswersNothing)
{
    send(kAskFrequency);

    EXPECT_FALSE(attribution.on({Kind::kCorrupt, {}, {}, kFrequency, {}}).request);
    EXPECT_EQ(answered(kFrequency), 1);
}

}  // namespace
}  // namespace station
