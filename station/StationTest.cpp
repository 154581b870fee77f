#include "station/Station.h"

#include <gmock/gmock.h>

#include <gtest/gtest.h>
#include <atomic>

#include <thread>

#include "tests/support/PtyPeer.h"
#include "tests/support/WireVectors.h"

namespace station {
namespace {

using namespace std::chrono_literals;
using protocol::Frame;
using tests::PtyPeer;
using wire::kModeOn;
using wire::kModeOnReply;

constexpr auto kGenerous = 20s;
constexpr auto kShort = 50ms;

// 04+86+11+25+04 = 00C4, two's complement FF3C
const std::vector<std::uint8_t> kKeyReport{0x2A, 0xA2, 0x00, 0x04, 0x86, 0x11, 0x25, 0x04, 0xFF, 0x3C};
// 03+83+05+07 = 0092, two's complement FF6E
const std::vector<std::uint8_t> kTrackReport{0x2A, 0xA2, 0x00, 0x03, 0x83, 0x05, 0x07, 0x00, 0xFF, 0x6E};

std::vector<std::uint8_t> operator+(std::vector<std::uint8_t> left, const std::vector<std::uint8_t>& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// A head unit that waits for one request and then writes `reply`.
class StationTest : public testing::Test
{
protected:
    std::optional<Frame> request(const Frame& command, std::size_t requestLength, std::vector<std::uint8_t> reply,
                                 std::chrono::nanoseconds timeout)
    {
        std::jthread headUnit([&] {
            seen_ = peer_.read(requestLength);
            peer_.write(reply);
        });
        return station_.request(command, timeout);
    }

    PtyPeer peer_;
    Station station_{SerialLink(peer_.path())};
    std::vector<std::uint8_t> seen_;
};

TEST_F(StationTest, RequestPutsTheFrameOnTheLineAndGivesItsReply)
{
    const auto reply = request({0x0F, 0x00, {0x01}}, kModeOn.size(), kModeOnReply, kGenerous);

    EXPECT_EQ(seen_, kModeOn);
    EXPECT_EQ(reply, (Frame{0x8F, 0x00, {0x01}}));
}

TEST_F(StationTest, FramesThatDoNotAnswerAreNotTheReply)
{
    const auto reply =
        request({0x0F, 0x00, {0x01}}, kModeOn.size(), kKeyReport + kTrackReport + kModeOnReply, kGenerous);

    EXPECT_EQ(reply, (Frame{0x8F, 0x00, {0x01}}));
}

TEST_F(StationTest, OnlyFramesThatDoNotAnswerAreNoReplyInTime)
{
    EXPECT_EQ(request({0x0F, 0x00, {0x01}}, kModeOn.size(), kKeyReport, kShort), std::nullopt);
}

TEST_F(StationTest, SilenceIsNoReplyInTime)
{
    EXPECT_EQ(request({0x0F, 0x00, {0x01}}, kModeOn.size(), {}, kShort), std::nullopt);
}

TEST_F(StationTest, NoiseAndACorruptFrameBeforeTheReplyArePassedOver)
{
    auto corrupt = kModeOnReply;
    corrupt.back() ^= 0x01;

    const auto reply = request({0x0F, 0x00, {0x01}}, kModeOn.size(),
                               std::vector<std::uint8_t>{0x2A, 0x00, 0xA2} + corrupt + kModeOnReply, kGenerous);

    EXPECT_EQ(reply, (Frame{0x8F, 0x00, {0x01}}));
    EXPECT_EQ(station_.corruptFrames(), 1u);
}

TEST_F(StationTest, ReplyFromBeforeTheRequestIsDiscarded)
{
    peer_.write(kModeOnReply);
    peer_.write(kKeyReport);
    ASSERT_EQ(station_.receive(Station::Clock::now() + kGenerous), (Frame{0x8F, 0x00, {0x01}}));
    ASSERT_EQ(station_.receive(Station::Clock::now() + kGenerous), (Frame{0x86, 0x11, {0x25, 0x04}}));
    peer_.write(kModeOnReply + std::vector<std::uint8_t>{0x2A, 0xA2, 0x00, 0x03});
    peer_.waitUntilArrived(14);

    EXPECT_EQ(request({0x0F, 0x00, {0x01}}, kModeOn.size(), {}, kShort), std::nullopt);
}

TEST_F(StationTest, ReplyInPiecesIsPutTogether)
{
    std::jthread headUnit([&] {
        peer_.read(kModeOn.size());
        for (const std::uint8_t byte : kModeOnReply) {
            peer_.write({byte});
        }
    });

    EXPECT_EQ(station_.request({0x0F, 0x00, {0x01}}, kGenerous), (Frame{0x8F, 0x00, {0x01}}));
}

TEST_F(StationTest, FrameThatNoLengthByteCanTellIsRefused)
{
    const Frame tooLong{0x0F, 0x00, std::vector<std::uint8_t>(253)};

    EXPECT_THROW(station_.send(tooLong, Station::Clock::now() + kGenerous), std::length_error);
}

TEST_F(StationTest, LineThatNeverFallsSilentIsGivenUpInTime)
{
    std::atomic<bool> enough = false;
    std::atomic<bool> finished = false;
    std::jthread noise([&] {
        while (!enough)
            peer_.write(std::vector<std::uint8_t>(64, 0x55));
        finished = true;
    });

    EXPECT_EQ(station_.request({0x0F, 0x00, {0x01}}, 200ms), std::nullopt);

    enough = true;
    while (!finished)
        station_.receive(Station::Clock::now() + 10ms);  // so that the noise is not held up
}

TEST_F(StationTest, LongestFrameIsSentWhole)
{
    // 252 parameters: length byte FE, sum FE + 00 + 02 = 0100, checksum FF00
    auto expected = std::vector<std::uint8_t>{0x2A, 0xA2, 0x00, 0xFE, 0x00, 0x02} + std::vector<std::uint8_t>(252);
    expected = expected + std::vector<std::uint8_t>{0xFF, 0x00};

    station_.send({0x00, 0x02, std::vector<std::uint8_t>(252)}, Station::Clock::now() + kGenerous);

    EXPECT_EQ(peer_.read(260), expected);
}

struct ReplyCase {
    const char* name;
    Frame command;
    Frame received;
    bool expected;
};

class ReplyRule : public testing::TestWithParam<ReplyCase>
{
};

TEST_P(ReplyRule, Holds)
{
    EXPECT_EQ(isReply(GetParam().command, GetParam().received), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Station, ReplyRule,
    testing::Values(
        ReplyCase{"SameCommandInTheReplyGroupAnswers", {0x02, 0x01, {}}, {0x82, 0x01, {0x00, 0x01}}, true},
        ReplyCase{"OtherCommandDoesNot", {0x02, 0x01, {}}, {0x82, 0x02, {}}, false},
        ReplyCase{"OtherGroupDoesNot", {0x02, 0x01, {}}, {0x83, 0x01, {}}, false},
        ReplyCase{"RequestsOwnGroupDoesNot", {0x02, 0x01, {}}, {0x02, 0x01, {}}, false},
        ReplyCase{"TrackReportAnswersGetTrack", {0x03, 0x0D, {}}, {0x83, 0x0D, {0x05}}, true},
        ReplyCase{"TrackReportOfOtherMediumDoesNot", {0x03, 0x0D, {}}, {0x83, 0x0B, {0x05}}, false},
        ReplyCase{"DeletePairingsIsAnsweredInTheTunersGroup", {0x04, 0x08, {}}, {0x82, 0x08, {0x01}}, true},
        ReplyCase{"PairingsGoneReportDoesNotAnswerDeletePairings", {0x04, 0x08, {}}, {0x84, 0x08, {0x01}}, false},
        ReplyCase{"CarPlayAddressAnswersUnderItsOwnCode", {0x0A, 0x12, {}}, {0x8A, 0x12, {0x30, 0x31}}, true},
        ReplyCase{"MissingCarPlayAddressAnswersUnderThePasswordNumbersCode", {0x0A, 0x12, {}}, {0x8A, 0x0F, {}}, true},
        ReplyCase{"PasswordNumberDoesNotAnswerCarPlayAddress", {0x0A, 0x12, {}}, {0x8A, 0x0F, {0x31}}, false},
        ReplyCase{"EmptyPasswordNumberAnswersPasswordNumber", {0x0A, 0x0F, {}}, {0x8A, 0x0F, {}}, true}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace station
