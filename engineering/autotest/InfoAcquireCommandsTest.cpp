#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/EngineTest.h"

namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class InfoCommandTest : public CommandTest
{
};

TEST_P(InfoCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

json versions(const std::string& field0, const std::string& field2, const std::string& field9)
{
    return {{"system_info", {{"versions", {field0, "1", field2, "3", "4", "5", "6", "7", "8", field9, "10"}}}}};
}

INSTANTIATE_TEST_SUITE_P(
    Information, InfoCommandTest,
    testing::Values(
        CommandCase{"Version00IsField9", {0x07, 0x00}, {"87 00 [66 69 65 6C 64 39]"}, {}, {}},
        CommandCase{"Version01IsField0", {0x07, 0x01}, {"87 01 [66 69 65 6C 64 30]"}, {}, {}},
        CommandCase{"Version1EIsField2", {0x07, 0x1E}, {"87 1E [66 69 65 6C 64 32]"}, {}, {}},
        CommandCase{"ParametersAreIgnored", {0x07, 0x01, 0x02}, {"87 01 [66 69 65 6C 64 30]"}, {}, {}},
        CommandCase{"EmptyField9IsAnEmptyReply", {0x07, 0x00}, {"87 00 []"}, {}, {}, versions("a", "b", "")},
        CommandCase{"EmptyField0IsAnEmptyReply", {0x07, 0x01}, {"87 01 []"}, {}, {}, versions("", "b", "c")},
        CommandCase{"EmptyField2IsAnEmptyReply", {0x07, 0x1E}, {"87 1E []"}, {}, {}, versions("a", "", "c")},
        CommandCase{"BluetoothVersion", {0x07, 0x04}, {"87 04 [35 2E 32]"}, {}, {}},
        CommandCase{"UnknownBluetoothVersionIsAnEmptyReply",
                    {0x07, 0x04},
                    {"87 04 []"},
                    {},
                    {},
                    {{"bluetooth", {{"attributes", {{"2", nullptr}}}}}}},
        CommandCase{"ProjectName", {0x07, 0x06}, {"87 06 [62 65 6E 63 68]"}, {}, {}},
        CommandCase{"NoProjectNameIsAnEmptyReply",
                    {0x07, 0x06},
                    {"87 06 []"},
                    {},
                    {},
                    {{"config", {{"/project/project_name", nullptr}}}}}),
    caseName);

class InfoTest : public EngineTest
{
};

TEST_F(InfoTest, WithoutSystemInformationAVersionIsEmptyAndTheLogSaysWhy)
{
    startInTestMode();
    takeTheHeadUnitAway();

    station.sendCommand(0x07, 0x00);

    EXPECT_THAT(station.replies(), ElementsAre("87 00 []"));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleInfoAcquireCommands, no system-information proxy, no version"));
}

TEST_F(InfoTest, TheBluetoothVersionIsLogged)
{
    startInTestMode();

    station.sendCommand(0x07, 0x04);

    EXPECT_THAT(log.lines(), Contains("DEBUG BT version: 5.2"));
}

TEST_F(InfoTest, EachCommandAsksAnew)
{
    startInTestMode();
    station.sendCommand(0x07, 0x00);
    station.sendCommand(0x07, 0x06);

    set("/system_info/versions", {"0", "1", "2", "3", "4", "5", "6", "7", "8", "\xC3\xA4", "10"});
    set("/config/~1project~1project_name", "K7");
    station.sendCommand(0x07, 0x00);
    station.sendCommand(0x07, 0x06);

    EXPECT_THAT(station.replies(),
                ElementsAre("87 00 [66 69 65 6C 64 39]", "87 06 [62 65 6E 63 68]", "87 00 [C3 A4]", "87 06 [4B 37]"));
}

TEST_F(InfoTest, ATextThatFillsAFrameIsSentAndALongerOneIsNot)
{
    startInTestMode();

    set("/config/~1project~1project_name", std::string(246, 'p'));
    station.sendCommand(0x07, 0x06);
    EXPECT_EQ(station.sent().size(), 1U);
    EXPECT_THAT(log.errors(), IsEmpty());

    set("/config/~1project~1project_name", std::string(247, 'p'));
    station.sendCommand(0x07, 0x06);
    EXPECT_EQ(station.sent().size(), 1U);
    EXPECT_THAT(log.errors(), ElementsAre("ERROR SendData, 0x87 0x6 not sent: 247 parameter bytes make a frame of 256, "
                                          "255 fit"));
}

}  // namespace
