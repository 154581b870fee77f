#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>

#include <filesystem>

#include "tests/engine/ScriptedInterfaces.h"
#include "tests/support/EngineTest.h"

namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kRecord = "/perm_data/data/engineering/cp_mac_address";

/// Without any network interface.
class PhoneCommandTest : public CommandTest
{
public:
    ScriptedInterfaces interfaces;
};

TEST_P(PhoneCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

json androidAuto(int state)
{
    return {{"android_auto", {{"state", state}}}};
}

INSTANTIATE_TEST_SUITE_P(
    Phone, PhoneCommandTest,
    testing::Values(
        CommandCase{"CarPlayIsNotConnectedAtFirst", {0x11, 0x01}, {"91 01 [00]"}, {}, {}},
        CommandCase{"ParametersAreIgnored", {0x11, 0x01, 0x01}, {"91 01 [00]"}, {}, {}},
        CommandCase{"AndroidAuto0", {0x11, 0x05}, {"91 05 [00]"}, {}, {}},
        CommandCase{"AndroidAuto255", {0x11, 0x05}, {"91 05 [FF]"}, {}, {}, androidAuto(255)},
        CommandCase{"AndroidAutoIsTheLowByte", {0x11, 0x05}, {"91 05 [02]"}, {}, {}, androidAuto(0x0102)},
        CommandCase{"AndroidAutoMinus1", {0x11, 0x05}, {"91 05 [FF]"}, {}, {}, androidAuto(-1)},
        CommandCase{
            "UsbMacIsZerosWithoutInterface", {0x11, 0x06}, {"91 06 [30 30 30 30 30 30 30 30 30 30 30 30]"}, {}, {}},
        CommandCase{"WithoutARecordNothingMatches", {0x11, 0x07}, {"91 07 [00]"}, {}, {}}),
    caseName);

class PhoneTest : public EngineTest
{
public:
    /// With usb0 up, 0a:1b:2c:3d:4e:5f.
    void startWithUsb()
    {
        interfaces.add("usb0", IFF_UP, AF_PACKET, {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F});
        startInTestMode();
    }

    std::vector<std::string> answerTo(std::uint8_t command)
    {
        station.clear();
        station.sendCommand(0x11, command);
        return station.replies();
    }

    ScriptedInterfaces interfaces;
};

TEST_F(PhoneTest, WithoutAndroidAutoThereIsNoReplyAndTheLogSaysWhy)
{
    startInTestMode();
    takeTheHeadUnitAway();

    EXPECT_THAT(answerTo(0x05), IsEmpty());
    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandlePhoneConnected, no Android Auto proxy, no state"));
}

TEST_F(PhoneTest, CarPlayIsConnectedFromStatus1To2Or3)
{
    startInTestMode();

    raise("OnStatusChange", {{"status", 1}});
    EXPECT_THAT(answerTo(0x01), ElementsAre("91 01 [01]"));
    for (const int other : {4, 0, 255, -1}) {
        raise("OnStatusChange", {{"status", other}});
        EXPECT_THAT(answerTo(0x01), ElementsAre("91 01 [01]")) << other;
    }
    raise("OnStatusChange", {{"status", 2}});
    EXPECT_THAT(answerTo(0x01), ElementsAre("91 01 [00]"));
    raise("OnStatusChange", {{"status", 4}});
    EXPECT_THAT(answerTo(0x01), ElementsAre("91 01 [00]"));
    raise("OnStatusChange", {{"status", 1}});
    raise("OnStatusChange", {{"status", 3}});
    EXPECT_THAT(answerTo(0x01), ElementsAre("91 01 [00]"));
}

TEST_F(PhoneTest, AConnectionFromBeforeTheModeIsKnown)
{
    start();
    raise("OnStatusChange", {{"status", 1}});
    station.sendCommand(0x0F, 0x00, {0x01});

    EXPECT_THAT(answerTo(0x01), ElementsAre("91 01 [01]"));
}

TEST_F(PhoneTest, TheAndroidAutoStateIsLogged)
{
    set("/android_auto/state", 3);
    startInTestMode();

    answerTo(0x05);

    EXPECT_THAT(log.lines(), Contains("DEBUG HandlePhoneConnected, AA_STATE = 3"));
}

TEST_F(PhoneTest, TheUsbMacIsTwelveCharactersInUpperCase)
{
    startWithUsb();

    // "0A1B2C3D4E5F"
    EXPECT_THAT(answerTo(0x06), ElementsAre("91 06 [30 41 31 42 32 43 33 44 34 45 35 46]"));
}

TEST_F(PhoneTest, AnInterfaceThatIsDownIsAbsent)
{
    interfaces.add("usb0", 0, AF_PACKET, {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F});
    startInTestMode();

    EXPECT_THAT(answerTo(0x06), ElementsAre("91 06 [30 30 30 30 30 30 30 30 30 30 30 30]"));
}

TEST_F(PhoneTest, AFailedListingReadsAsZerosAndIsNotLogged)
{
    interfaces.fail(-1, false);
    startInTestMode();

    EXPECT_THAT(answerTo(0x06), ElementsAre("91 06 [30 30 30 30 30 30 30 30 30 30 30 30]"));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(PhoneTest, TheUsbMacMatchesItsRecordInUpperCaseOnly)
{
    startWithUsb();

    writeFile(kRecord, "0A:1B:2C:3D:4E:5F");
    EXPECT_THAT(answerTo(0x07), ElementsAre("91 07 [01]"));
    writeFile(kRecord, "0a:1b:2c:3d:4e:5f");
    EXPECT_THAT(answerTo(0x07), ElementsAre("91 07 [00]"));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(PhoneTest, LengthAndEveryByteOfTheRecordCount)
{
    startWithUsb();
    for (const char* other :
         {"", "0A:1B:2C:3D:4E:5", "0A:1B:2C:3D:4E:5F ", "0A:1B:2C:3D:4E:5E", "0A1B2C3D4E5F", "0A:1B:2C:3D:4E:5F\n"}) {
        writeFile(kRecord, other);

        EXPECT_THAT(answerTo(0x07), ElementsAre("91 07 [00]")) << '"' << other << '"';
    }
}

TEST_F(PhoneTest, TheLastLineOfTheRecordCounts)
{
    startWithUsb();

    writeFile(kRecord, "00:00:00:00:00:00\n0A:1B:2C:3D:4E:5F");

    EXPECT_THAT(answerTo(0x07), ElementsAre("91 07 [01]"));
}

TEST_F(PhoneTest, ARecordOfZerosMatchesAMissingInterface)
{
    startInTestMode();

    writeFile(kRecord, "00:00:00:00:00:00");

    EXPECT_THAT(answerTo(0x07), ElementsAre("91 07 [01]"));
}

TEST_F(PhoneTest, WhatTheStationStoresIsWhatMatches)
{
    startWithUsb();
    station.sendCommand(0x0A, 0x11, {'0', 'A', '1', 'B', '2', 'C', '3', 'D', '4', 'E', '5', 'F'});

    EXPECT_THAT(answerTo(0x07), ElementsAre("91 07 [01]"));
}

TEST_F(PhoneTest, AMissingRecordIsLoggedUnderTheReadersTag)
{
    startWithUsb();

    EXPECT_THAT(answerTo(0x07), ElementsAre("91 07 [00]"));

    EXPECT_THAT(log.errors(), ElementsAre("ERROR [FeedBackCarPlayMacAddress] open " + path(kRecord) + " failed!!"));
}

TEST_F(PhoneTest, ARecordOfMoreThan4096BytesDoesNotMatchAndIsLogged)
{
    startWithUsb();
    writeFile(kRecord, std::string(4096, '\n') + "0A:1B:2C:3D:4E:5F");

    EXPECT_THAT(answerTo(0x07), ElementsAre("91 07 [00]"));

    EXPECT_THAT(log.errors(), ElementsAre("ERROR " + path(kRecord) + " not read: it is longer than 4096 bytes"));
}

TEST_F(PhoneTest, ARecordThatIsADirectoryDoesNotMatchAndIsLogged)
{
    startWithUsb();
    std::filesystem::create_directory(path(kRecord));

    EXPECT_THAT(answerTo(0x07), ElementsAre("91 07 [00]"));

    EXPECT_THAT(log.errors(), ElementsAre("ERROR [FeedBackCarPlayMacAddress] open " + path(kRecord) + " failed!!"));
}

}  // namespace
