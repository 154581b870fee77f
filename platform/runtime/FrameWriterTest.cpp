#include "platform/runtime/FrameWriter.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <future>

#include "platform/runtime/RuntimeTestSupport.h"

namespace runtime {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::Bytes;
using testsupport::kGenerous;
using testsupport::readBytes;

constexpr milliseconds kShort{50};
constexpr milliseconds kLong{kGenerous};

const std::string kStallBegins = "line: the station does not read; dropping frames until it does";

Bytes filled(std::size_t size, std::uint8_t byte)
{
    return Bytes(size, byte);
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// A writer on a pipe that has room for 4096 bytes. Of a longer frame it takes as much as fits, of a shorter one all
/// or nothing.
class FrameWriterTest : public testing::Test
{
protected:
    static constexpr std::size_t kRoom = 4096;

    FrameWriterTest()
    {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0 ||
            fcntl(ends[1], F_SETPIPE_SZ, kRoom) != static_cast<int>(kRoom)) {
            throw std::runtime_error("no pipe of the wanted size can be had");
        }
        station_ = std::make_unique<host::Descriptor>(ends[0]);
        line_ = std::make_shared<const host::Descriptor>(ends[1]);
    }

    std::unique_ptr<FrameWriter> makeWriter(milliseconds patience)
    {
        auto writer = std::make_unique<FrameWriter>("line", reports_.reporter(), patience);
        writer->open(line_);
        return writer;
    }

    Bytes read(std::size_t count) { return readBytes(station_->get(), count); }

    testsupport::Reports reports_;
    std::unique_ptr<host::Descriptor> station_;
    std::shared_ptr<const host::Descriptor> line_;
};

TEST_F(FrameWriterTest, FrameThatFitsIsWrittenUnchanged)
{
    const auto writer = makeWriter(kLong);

    EXPECT_TRUE(writer->send(Bytes{0x2A, 0xA2, 0x00, 0x01}));

    EXPECT_EQ(read(4), (Bytes{0x2A, 0xA2, 0x00, 0x01}));
}

TEST_F(FrameWriterTest, WithoutALineFramesAreDroppedSilently)
{
    FrameWriter writer("line", reports_.reporter(), kLong);

    EXPECT_FALSE(writer.send(Bytes{0x01}));

    EXPECT_THAT(reports_.values(), IsEmpty());
}

TEST_F(FrameWriterTest, FrameThatDoesNotFitWaitsForTheStation)
{
    const auto writer = makeWriter(kLong);
    auto sent = std::async(std::launch::async, [&] { return writer->send(filled(5000, 'a')); });

    EXPECT_EQ(read(5000), filled(5000, 'a'));

    EXPECT_TRUE(sent.get());
    EXPECT_THAT(reports_.values(), IsEmpty());
}

TEST_F(FrameWriterTest, StationThatDoesNotReadLosesTheFrameAndIsReportedOnce)
{
    const auto writer = makeWriter(kShort);
    ASSERT_TRUE(writer->send(filled(kRoom, 'a')));

    EXPECT_FALSE(writer->send(filled(10, 'b')));
    EXPECT_FALSE(writer->send(filled(10, 'c')));

    EXPECT_THAT(reports_.waitFor(1), ElementsAre(kStallBegins));
    EXPECT_THAT(reports_.values(), ElementsAre(kStallBegins));
}

TEST_F(FrameWriterTest, InAStallFramesAreDroppedAtOnce)
{
    constexpr int kFrames = 2000;  // would take 100 s if each waited
    const auto writer = makeWriter(kShort);
    ASSERT_TRUE(writer->send(filled(kRoom, 'a')));
    ASSERT_FALSE(writer->send(filled(10, 'b')));
    const auto before = std::chrono::steady_clock::now();

    for (int count = 0; count < kFrames; ++count) {
        EXPECT_FALSE(writer->send(filled(10, 'c')));
    }

    EXPECT_LT(std::chrono::steady_clock::now() - before, kGenerous);
}

TEST_F(FrameWriterTest, StallEndsWhenTheStationReadsAndTellsTheDroppedFrames)
{
    const auto writer = makeWriter(kShort);
    ASSERT_TRUE(writer->send(filled(kRoom, 'a')));
    for (int count = 0; count < 3; ++count) {
        ASSERT_FALSE(writer->send(filled(10, 'b')));
    }

    EXPECT_EQ(read(kRoom), filled(kRoom, 'a'));

    EXPECT_THAT(reports_.waitFor(2), ElementsAre(kStallBegins, "line: the station reads again; frames dropped: 3"));
    EXPECT_TRUE(writer->send(filled(10, 'c')));
    EXPECT_EQ(read(10), filled(10, 'c'));
}

TEST_F(FrameWriterTest, SecondStallCountsAnew)
{
    const auto writer = makeWriter(kShort);
    ASSERT_TRUE(writer->send(filled(kRoom, 'a')));
    ASSERT_FALSE(writer->send(filled(10, 'b')));
    ASSERT_FALSE(writer->send(filled(10, 'b')));
    read(kRoom);
    reports_.waitFor(2);

    ASSERT_TRUE(writer->send(filled(kRoom, 'c')));
    ASSERT_FALSE(writer->send(filled(10, 'd')));
    read(kRoom);

    EXPECT_THAT(reports_.waitFor(4), ElementsAre(kStallBegins, "line: the station reads again; frames dropped: 2",
                                                 kStallBegins, "line: the station reads again; frames dropped: 1"));
}

TEST_F(FrameWriterTest, FrameThatHasBegunIsTakenAndCompletedBeforeAnyOther)
{
    const auto writer = makeWriter(kShort);

    EXPECT_TRUE(writer->send(filled(kRoom + 904, 'a')));  // 904 bytes are left over
    EXPECT_FALSE(writer->send(filled(10, 'b')));
    const Bytes begun = read(kRoom + 904);
    reports_.waitFor(2);
    EXPECT_TRUE(writer->send(filled(10, 'c')));

    EXPECT_EQ(begun + read(10), filled(kRoom + 904, 'a') + filled(10, 'c'));
    EXPECT_THAT(reports_.values(), ElementsAre(kStallBegins, "line: the station reads again; frames dropped: 1"));
}

TEST_F(FrameWriterTest, SendersNeverInterleaveAndKeepTheirOrder)
{
    constexpr std::size_t kSenders = 4;
    constexpr std::size_t kFrames = 300;
    constexpr std::size_t kSize = 251;  // does not divide the room
    const auto writer = makeWriter(kLong);
    std::vector<std::jthread> senders;
    for (std::size_t sender = 0; sender < kSenders; ++sender) {
        senders.emplace_back([&, sender] {
            for (std::size_t number = 0; number < kFrames; ++number) {
                Bytes frame = filled(kSize, static_cast<std::uint8_t>(sender));
                frame[1] = static_cast<std::uint8_t>(number & 0xFF);
                EXPECT_TRUE(writer->send(frame));
            }
        });
    }

    const Bytes all = read(kSenders * kFrames * kSize);

    ASSERT_EQ(all.size(), kSenders * kFrames * kSize);
    std::array<std::size_t, kSenders> numbers{};
    for (auto at = all.begin(); at != all.end(); at += kSize) {
        const std::uint8_t sender = *at;
        ASSERT_LT(sender, kSenders);
        EXPECT_EQ(at[1], numbers[sender]++ & 0xFF);
        EXPECT_EQ(std::count(at + 2, at + kSize, sender), static_cast<std::ptrdiff_t>(kSize - 2));
    }
}

TEST_F(FrameWriterTest, SendersThatWaitTogetherAreReleasedTogether)
{
    constexpr int kSenders = 8;
    constexpr milliseconds kPatience{1000};  // one after the other they would take 8 s
    const auto writer = makeWriter(kPatience);
    ASSERT_TRUE(writer->send(filled(kRoom, 'a')));
    const auto before = std::chrono::steady_clock::now();

    std::vector<std::future<bool>> sent;
    for (int sender = 0; sender < kSenders; ++sender) {
        sent.push_back(std::async(std::launch::async, [&] { return writer->send(filled(10, 'b')); }));
    }

    for (auto& taken : sent) {
        EXPECT_FALSE(taken.get());
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, 5 * kPatience);
    EXPECT_THAT(reports_.waitFor(1), ElementsAre(kStallBegins));
}

TEST_F(FrameWriterTest, ClosingReleasesASenderAndTheLine)
{
    const auto writer = makeWriter(kLong);
    const auto before = std::chrono::steady_clock::now();
    auto sent = std::async(std::launch::async, [&] { return writer->send(filled(kRoom + 1, 'a')); });
    EXPECT_EQ(read(1), filled(1, 'a'));  // it has begun

    writer->close();

    EXPECT_FALSE(sent.get());
    EXPECT_LT(std::chrono::steady_clock::now() - before, kLong);
    EXPECT_EQ(line_.use_count(), 1);
}

TEST_F(FrameWriterTest, LineWhoseOtherEndHasGoneDropsFrames)
{
    signal(SIGPIPE, SIG_IGN);
    const auto writer = makeWriter(kLong);

    station_.reset();

    EXPECT_FALSE(writer->send(filled(10, 'a')));
    EXPECT_FALSE(writer->send(filled(10, 'b')));
    EXPECT_THAT(reports_.values(), IsEmpty());
}

}  // namespace
}  // namespace runtime
