#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "KYRServiceFw.h"
#include "protocol/Frame.h"
#include "tests/otherplatform/OtherPlatform.h"
#include "tests/support/WireVectors.h"

// What the service exports for other modules, as these declare it.
extern std::atomic<int> m_bIsCPTest;
extern std::atomic<unsigned char> m_iACKStatus;

namespace {

using testing::ElementsAre;
using testing::SizeIs;

class OtherPlatformTest : public testing::Test
{
public:
    OtherPlatformTest()
    {
        // No bus, and a root where nothing can be written.
        m_bIsCPTest = 5;
        setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
        otherplatform::setRoot("/nonexistent");
        KYRServiceFw_Args args;
        EXPECT_EQ(KYR_ServiceFw_Init(args), 1);
        // Without a log every line is a line on standard output.
        testing::internal::CaptureStdout();
    }
    ~OtherPlatformTest() override
    {
        testing::internal::GetCapturedStdout();
        KYR_ServiceFw_Deinit();
    }

    static void send(std::uint8_t cmdOne, std::uint8_t cmdTwo, const std::vector<std::uint8_t>& params)
    {
        protocol::FrameBuffer frame;
        const std::size_t length = protocol::encode(frame, cmdOne, cmdTwo, params);
        otherplatform::deliver({frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(length)});
    }
};

TEST_F(OtherPlatformTest, TheStationSwitchesTheModeOn)
{
    otherplatform::deliver(wire::kModeOn);

    EXPECT_THAT(otherplatform::takeSent(), ElementsAre(wire::kModeOnReply));
}

TEST_F(OtherPlatformTest, TheVariablesForOtherModulesAreThere)
{
    EXPECT_EQ(m_bIsCPTest, 0);  // there is no configuration to allow the tests
    EXPECT_EQ(m_iACKStatus, 0);
}

TEST_F(OtherPlatformTest, TheServiceServesWhileTheFrameworksThreadIsInExec)
{
    std::thread(KYR_ServiceFw_Exec).detach();

    otherplatform::deliver(wire::kModeOn);

    EXPECT_THAT(otherplatform::takeSent(), ElementsAre(wire::kModeOnReply));
}

TEST_F(OtherPlatformTest, EveryCommandIsSurvivedWithEveryServiceMissing)
{
    otherplatform::deliver(wire::kModeOn);
    for (int group = 0; group <= 0x12; ++group)
        for (int command = 0; command <= 0xFF; ++command)
            for (const std::uint8_t value : {0, 1, 2, 255}) {
                if (group == 0x0F)
                    continue;
                const auto cmdOne = static_cast<std::uint8_t>(group);
                const auto cmdTwo = static_cast<std::uint8_t>(command);
                send(cmdOne, cmdTwo, {});
                send(cmdOne, cmdTwo, {value});
                send(cmdOne, cmdTwo, std::vector<std::uint8_t>(20, value));
            }
    otherplatform::takeSent();

    otherplatform::deliver(wire::kAskMode);

    // 03+8F+FF+01 = 0192
    EXPECT_THAT(otherplatform::takeSent(),
                ElementsAre(wire::Bytes{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E}));
    EXPECT_FALSE(std::filesystem::exists("/nonexistent"));
}

}  // namespace
