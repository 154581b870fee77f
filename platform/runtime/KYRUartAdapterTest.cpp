#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "KYRUart.h"
#include "platform/runtime/RuntimeTestSupport.h"
#include "platform/runtime/Wire.h"

namespace runtime {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testsupport::Bytes;

/// A line in memory that delivers on the caller's thread.
class MemoryWire : public Wire
{
public:
    void attach(Receiver receiver) override
    {
        ++attachments;
        receiver_ = std::move(receiver);
    }
    void detach() override
    {
        ++detachments;
        receiver_ = nullptr;
    }
    bool send(std::span<const std::uint8_t> frame) override
    {
        sent.emplace_back(frame.begin(), frame.end());
        return reads;
    }

    bool attached() const { return receiver_ != nullptr; }
    void deliver(Bytes bytes) { receiver_(bytes); }

    bool reads = true;
    int attachments = 0;
    int detachments = 0;
    std::vector<Bytes> sent;

private:
    Receiver receiver_;
};

class RecordingSkeleton : public KYRRmtSkeleton
{
public:
    using KYRRmtSkeleton::MsgDecode;
    void MsgDecode(unsigned char* pData, int nLength) override
    {
        chunks.emplace_back(pData, pData + nLength);
        if (fails) {
            throw std::runtime_error("on purpose");
        }
        if (failsOddly) {
            throw 42;
        }
    }

    std::vector<Bytes> chunks;
    bool fails = false;
    bool failsOddly = false;
};

class UartAdapterTest : public testing::Test
{
protected:
    UartAdapterTest() { installWire(&wire_); }
    ~UartAdapterTest() override { installWire(nullptr); }

    MemoryWire wire_;
    RecordingSkeleton skeleton_;
    KYRUartAdapter adapter_;
};

KYRRmtParameter parameter(std::initializer_list<std::uint8_t> bytes)
{
    KYRRmtParameter carrier;
    carrier.m_ucLength = static_cast<unsigned char>(bytes.size());
    std::ranges::copy(bytes, carrier.m_ucData);
    return carrier;
}

TEST_F(UartAdapterTest, WithoutAWireThereIsNoUart)
{
    installWire(nullptr);

    EXPECT_EQ(adapter_.Init({}), 0);

    auto frame = parameter({1});
    adapter_.RegisterSkeleton(&skeleton_);
    EXPECT_EQ(adapter_.SendAutoTestCommand(&frame), 0);
    EXPECT_EQ(adapter_.Exit(), 1);
}

TEST_F(UartAdapterTest, DeliveryBeginsWithTheFirstSkeleton)
{
    EXPECT_EQ(adapter_.Init({}), 1);
    EXPECT_FALSE(wire_.attached());

    adapter_.RegisterSkeleton(&skeleton_);

    wire_.deliver({1, 2, 3});
    EXPECT_THAT(skeleton_.chunks, ElementsAre(Bytes{1, 2, 3}));
}

TEST_F(UartAdapterTest, SkeletonThatIsRegisteredBeforeInitIsServedFromThenOn)
{
    adapter_.RegisterSkeleton(&skeleton_);
    adapter_.RegisterSkeleton(nullptr);
    EXPECT_FALSE(wire_.attached());

    adapter_.Init({});

    wire_.deliver({1});
    EXPECT_THAT(skeleton_.chunks, ElementsAre(Bytes{1}));
}

TEST_F(UartAdapterTest, EverySkeletonGetsEveryChunk)
{
    RecordingSkeleton second;
    adapter_.Init({});
    adapter_.RegisterSkeleton(&skeleton_);
    adapter_.RegisterSkeleton(&second);

    wire_.deliver({1});
    wire_.deliver({2});

    EXPECT_EQ(wire_.attachments, 1);
    EXPECT_THAT(skeleton_.chunks, ElementsAre(Bytes{1}, Bytes{2}));
    EXPECT_THAT(second.chunks, ElementsAre(Bytes{1}, Bytes{2}));
}

TEST_F(UartAdapterTest, SkeletonThatThrowsEndsNeitherTheChunkNorTheDelivery)
{
    RecordingSkeleton second;
    adapter_.Init({});
    adapter_.RegisterSkeleton(&skeleton_);
    adapter_.RegisterSkeleton(&second);

    skeleton_.fails = true;
    wire_.deliver({1});
    skeleton_.fails = false;
    skeleton_.failsOddly = true;
    wire_.deliver({2});

    EXPECT_THAT(second.chunks, ElementsAre(Bytes{1}, Bytes{2}));
}

TEST_F(UartAdapterTest, FrameOfTheGivenLengthIsSent)
{
    adapter_.Init({});
    auto frame = parameter({0x2A, 0xA2, 0x00, 0x02, 0x0F, 0x01, 0xFF, 0xEE});

    EXPECT_EQ(adapter_.SendAutoTestCommand(&frame), 1);

    EXPECT_THAT(wire_.sent, ElementsAre(Bytes{0x2A, 0xA2, 0x00, 0x02, 0x0F, 0x01, 0xFF, 0xEE}));
}

TEST_F(UartAdapterTest, LongestFrameIsSentWhole)
{
    adapter_.Init({});
    KYRRmtParameter frame;
    frame.m_ucLength = 255;
    frame.m_ucData[254] = 0x7F;

    adapter_.SendAutoTestCommand(&frame);

    ASSERT_EQ(wire_.sent.size(), 1u);
    EXPECT_EQ(wire_.sent[0].size(), 255u);
    EXPECT_EQ(wire_.sent[0].back(), 0x7F);
}

TEST_F(UartAdapterTest, DroppedFrameIsReportedAsZero)
{
    adapter_.Init({});
    wire_.reads = false;
    auto frame = parameter({1});

    EXPECT_EQ(adapter_.SendAutoTestCommand(&frame), 0);
    EXPECT_EQ(adapter_.SendAutoTestCommand(nullptr), 0);
}

TEST_F(UartAdapterTest, AfterExitNothingIsDeliveredOrSent)
{
    adapter_.Init({});
    adapter_.RegisterSkeleton(&skeleton_);

    EXPECT_EQ(adapter_.Exit(), 1);

    auto frame = parameter({1});
    EXPECT_FALSE(wire_.attached());
    EXPECT_EQ(adapter_.SendAutoTestCommand(&frame), 0);
    EXPECT_THAT(wire_.sent, IsEmpty());
}

TEST_F(UartAdapterTest, EndOfTheAdapterDetachesOnce)
{
    {
        KYRUartAdapter adapter;
        adapter.Init({});
        adapter.RegisterSkeleton(&skeleton_);
        ASSERT_TRUE(wire_.attached());
        adapter.Exit();
    }
    EXPECT_EQ(wire_.detachments, 1);
    EXPECT_FALSE(wire_.attached());
}

}  // namespace
}  // namespace runtime
