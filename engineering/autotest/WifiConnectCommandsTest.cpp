#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include "tests/engine/ScriptedInterfaces.h"
#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kRequest = "app_manager RequestStartModuleProcess [1,14]";

/// Before the Wi-Fi service has been reported.
class WifiCommandTest : public CommandTest
{
};

TEST_P(WifiCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

INSTANTIATE_TEST_SUITE_P(
    WifiNotReady, WifiCommandTest,
    testing::Values(CommandCase{"OneStartsIt", {0x10, 0x00, 0x01}, {}, {}, {kRequest}},
                    CommandCase{"ExtraIsIgnored", {0x10, 0x00, 0x01, 0x00}, {}, {}, {kRequest}},
                    CommandCase{"ZeroIsSilent", {0x10, 0x00, 0x00}, {}, {}, {}},
                    CommandCase{"TwoIsSilent", {0x10, 0x00, 0x02}, {}, {}, {}},
                    CommandCase{"HighestIsSilent", {0x10, 0x00, 0xFF}, {}, {}, {}},
                    CommandCase{"BluetoothNameIsSilent", {0x10, 0x05}, {}, {}, {}},
                    CommandCase{"TextIsSilent", {0x10, 0x06}, {}, {}, {}},
                    CommandCase{"AddressIsSilent", {0x10, 0x07}, {}, {}, {}},
                    CommandCase{"ReadyIs0", {0x10, 0x09}, {"90 09 [00]"}, {}, {}},
                    CommandCase{"ParametersOfReadyAreIgnored", {0x10, 0x09, 0x01}, {"90 09 [00]"}, {}, {}}),
    caseName);

class WifiTest : public EngineTest
{
public:
    /// In test mode with the Wi-Fi service reported.
    void startWithWifi()
    {
        startInTestMode();
        raise("OnModuleStatusChanged", {{"module", 17}});
        forget();
    }

    ScriptedInterfaces interfaces;
};

TEST_F(WifiTest, WithoutAnApplicationManagerNothingIsStartedAndTheLogSaysWhy)
{
    startInTestMode();
    takeTheHeadUnitAway();

    station.sendCommand(0x10, 0x00, {1});

    EXPECT_THAT(station.replies(), testing::IsEmpty());
    EXPECT_THAT(log.errors(),
                testing::ElementsAre("ERROR HandleWifiConnectCommands, no application manager, Wi-Fi not started"));
}

TEST_F(WifiTest, TheRequestIsLogged)
{
    startInTestMode();

    station.sendCommand(0x10, 0x00, {0x01});

    EXPECT_THAT(log.lines(), Contains("INFO HandleWifiConnectCommands RequestStartModuleProcess, wifiservice"));
}

TEST_F(WifiTest, ACommandThatIsDroppedIsNotLogged)
{
    startInTestMode();

    station.sendCommand(0x10, 0x00, {0x00});
    for (const std::uint8_t code : {0x05, 0x06, 0x07})
        station.sendCommand(0x10, code);

    EXPECT_THAT(log.lines(), Not(Contains(testing::HasSubstr("HandleWifiConnectCommands"))));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(WifiTest, OnceItIsUpItIsNotStartedAgain)
{
    startWithWifi();

    station.sendCommand(0x10, 0x00, {0x01});

    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(station.replies(), IsEmpty());
}

TEST_F(WifiTest, ReadyIsToldOnceModule17HasBeenReportedAlsoBeforeTheMode)
{
    start();
    raise("OnModuleStatusChanged", {{"module", 16}});
    raise("OnModuleStatusChanged", {{"module", 18}});
    station.sendCommand(0x0F, 0x00, {0x01});
    forget();
    station.sendCommand(0x10, 0x09);
    station.sendCommand(0x0F, 0x00, {0x00});
    raise("OnModuleStatusChanged", {{"module", 17}});
    station.sendCommand(0x0F, 0x00, {0x01});
    station.sendCommand(0x10, 0x09);

    EXPECT_THAT(station.replies(), ElementsAre("90 09 [00]", "8F 00 [00]", "8F 00 [01]", "90 09 [01]"));
}

TEST_F(WifiTest, TheBluetoothNameIsReportedOnceItIsUp)
{
    startWithWifi();

    station.sendCommand(0x10, 0x05);
    set("/bluetooth/attributes/4", "");
    station.sendCommand(0x10, 0x05, {0x01});

    EXPECT_THAT(station.replies(), ElementsAre("90 05 [48 65 61 64 55 6E 69 74]", "90 05 []"));
}

TEST_F(WifiTest, ItsTextIsReportedOnceItIsUp)
{
    startWithWifi();

    station.sendCommand(0x10, 0x06);
    set("/wifi/text", "AP");
    station.sendCommand(0x10, 0x06);

    EXPECT_THAT(station.replies(), ElementsAre("90 06 [48 65 61 64 55 6E 69 74 2D 57 4C 41 4E]", "90 06 [41 50]"));
}

TEST_F(WifiTest, WithoutTheServiceTheTextIsEmptyAndTheLogSaysWhy)
{
    startWithWifi();
    set("/wifi/available", false);

    station.sendCommand(0x10, 0x06);

    EXPECT_THAT(station.replies(), ElementsAre("90 06 []"));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleWifiConnectCommands, no Wi-Fi service, no text"));
}

TEST_F(WifiTest, TheAddressIsOfTheSecondInterfaceWhenTheFirstIsDown)
{
    interfaces.add("wlan0", 0, AF_INET, {10, 0, 0, 1});
    interfaces.add("wlan1", IFF_UP, AF_INET, {192, 168, 5, 1});
    startWithWifi();

    station.sendCommand(0x10, 0x07);

    // "192.168.5.1"
    EXPECT_THAT(station.replies(), ElementsAre("90 07 [31 39 32 2E 31 36 38 2E 35 2E 31]"));
}

TEST_F(WifiTest, WithoutAnIPv4AddressTheReplyIsEmpty)
{
    interfaces.add("wlan0", IFF_UP, AF_INET6, {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1});
    startWithWifi();

    station.sendCommand(0x10, 0x07);

    EXPECT_THAT(station.replies(), ElementsAre("90 07 []"));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(WifiTest, AFailedListingOfTheInterfacesIsAnEmptyReply)
{
    interfaces.fail(-1, false);
    startWithWifi();

    station.sendCommand(0x10, 0x07);

    EXPECT_THAT(station.replies(), ElementsAre("90 07 []"));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR getifaddrs failed err(-1) Unknown error -1"));
}

TEST_F(WifiTest, ARequestBringsItUpAfterItsDelay)
{
    startInTestMode();
    station.sendCommand(0x10, 0x00, {0x01});

    timers.advance(std::chrono::milliseconds(199));
    unit.events().drain();
    station.sendCommand(0x10, 0x09);
    timers.advance(std::chrono::milliseconds(1));
    unit.events().drain();
    station.sendCommand(0x10, 0x09);

    EXPECT_THAT(station.replies(), ElementsAre("90 09 [00]", "90 09 [01]"));
}

TEST_F(WifiTest, AUnitThatDoesNotStartItIsAskedAgain)
{
    set("/app_manager/starts_on_request", false);
    startInTestMode();

    station.sendCommand(0x10, 0x00, {0x01});
    timers.advance(std::chrono::seconds(10));
    unit.events().drain();
    station.sendCommand(0x10, 0x09);
    station.sendCommand(0x10, 0x00, {0x01});

    EXPECT_THAT(station.replies(), ElementsAre("90 09 [00]"));
    EXPECT_THAT(calls(), ElementsAre(kRequest, kRequest));
}

}  // namespace
