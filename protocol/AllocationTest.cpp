// That the codec takes no memory per frame. A program of its own: it counts what operator new gives.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/FrameAssembler.h"
#include "tests/support/WireVectors.h"

#include "tests/support/AllocationCounter.h"

namespace {

/// @returns how often memory is taken while `work` runs.
template <class Work>
std::size_t allocationsIn(Work work)
{
    const std::size_t before = theAllocations;
    work();
    return theAllocations - before;
}

TEST(Allocations, AreCounted)
{
    EXPECT_EQ(allocationsIn([] { std::vector<int> taken(10); }), 1U);
}

TEST(Allocations, NoneInEncodingAFrame)
{
    const std::vector<std::uint8_t> params(protocol::kMaxParams, 0x55);
    protocol::FrameBuffer out;

    EXPECT_EQ(allocationsIn([&] { protocol::encode(out, 0x8A, 0x03, params); }), 0U);
}

TEST(Allocations, NoneInReceivingFramesOnceTheBufferIsThere)
{
    protocol::FrameAssembler assembler;
    std::size_t frames = 0;
    const auto receive = [&] {
        assembler.append(wire::kModeOn);
        while (assembler.next())
            ++frames;
    };
    receive();

    EXPECT_EQ(allocationsIn([&] {
                  for (int round = 0; round < 10'000; ++round)
                      receive();
              }),
              0U);
    EXPECT_EQ(frames, 10'001U);
}

TEST(Allocations, NoneInFillingTheBufferToItsLastByte)
{
    std::vector<std::uint8_t> bytes(2 * (4096 + protocol::kMaxStationFrame));
    std::copy(std::begin(wire::kModeOn), std::end(wire::kModeOn), bytes.end() - std::ssize(wire::kModeOn));
    protocol::FrameAssembler assembler;
    const auto receive = [&] {
        assembler.append(bytes);
        while (assembler.next()) {
        }
    };
    receive();

    EXPECT_EQ(allocationsIn(receive), 0U);
}

}  // namespace
