// Checks that sending a frame allocates nothing beyond the caller's vector. A program of its own: it counts the calls
// of operator new.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>
#include <vector>

#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/base/KYRSingleton.h"
#include "platform/bench/HeadUnit.h"
#include "platform/runtime/Root.h"
#include "platform/runtime/Wire.h"
#include "tests/support/AllocationCounter.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/SignalRecorder.h"
#include "tests/support/TempDir.h"

namespace {

/// A wire that takes every frame and keeps none.
class SwallowingWire : public runtime::Wire
{
public:
    void attach(Receiver) override {}
    void detach() override {}
    bool send(std::span<const std::uint8_t> frame) override
    {
        bytes += frame.size();
        return true;
    }

    std::size_t bytes = 0;
};

TEST(SendData, TakesNoMemoryBeyondTheCallersVector)
{
    const tests::TempDir root;
    runtime::setRoot(root.path().string());
    runtime::makeHeadUnitDirectories(root.path().string());
    LogRecorder log;
    SignalRecorder hmi;
    bench::HeadUnit unit;
    unit.install();
    SwallowingWire wire;
    runtime::installWire(&wire);
    KYRUARTManage* const manager = KYRSingleton<KYRUARTManage>::GetInstance();
    std::vector<unsigned char> none;
    std::vector<unsigned char> one(1, 0x55);
    std::vector<unsigned char> most(246, 0x55);

    const std::size_t before = theAllocations;
    manager->SendData(0x8F, 0x01, std::move(none));
    manager->SendData(0x8F, 0x01, std::move(one));
    manager->SendData(0x8A, 0x01, std::move(most));
    const std::size_t taken = theAllocations - before;

    EXPECT_EQ(taken, 0U);
    EXPECT_EQ(wire.bytes, 8U + 10U + 254U);
    EXPECT_TRUE(hmi.signals().empty());
    runtime::installWire(nullptr);
}

}  // namespace
