#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/EngineTest.h"

namespace {

using nlohmann::json;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class BTCommandTest : public CommandTest
{
};

TEST_P(BTCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

INSTANTIATE_TEST_SUITE_P(
    PlayAction, BTCommandTest,
    testing::Values(
        CommandCase{"Zero01IsAction2", {0x04, 0x01, 0x00}, {}, {"OnAutoTestMediaPlayActionSignal(4, 2)"}, {}},
        CommandCase{"One01IsAction1", {0x04, 0x01, 0x01}, {}, {"OnAutoTestMediaPlayActionSignal(4, 1)"}, {}},
        CommandCase{"Extra01IsIgnored", {0x04, 0x01, 0x01, 0x00}, {}, {"OnAutoTestMediaPlayActionSignal(4, 1)"}, {}},
        CommandCase{"Two01IsSilent", {0x04, 0x01, 0x02}, {}, {}, {}},
        CommandCase{"Highest01IsSilent", {0x04, 0x01, 0xFF}, {}, {}, {}},
        CommandCase{"Zero02IsAction3", {0x04, 0x02, 0x00}, {}, {"OnAutoTestMediaPlayActionSignal(4, 3)"}, {}},
        CommandCase{"One02IsAction4", {0x04, 0x02, 0x01}, {}, {"OnAutoTestMediaPlayActionSignal(4, 4)"}, {}},
        CommandCase{"Extra02IsIgnored", {0x04, 0x02, 0x00, 0x01}, {}, {"OnAutoTestMediaPlayActionSignal(4, 3)"}, {}},
        CommandCase{"Two02IsSilent", {0x04, 0x02, 0x02}, {}, {}, {}},
        CommandCase{"Highest02IsSilent", {0x04, 0x02, 0xFF}, {}, {}, {}}),
    caseName);

INSTANTIATE_TEST_SUITE_P(
    Call, BTCommandTest,
    testing::Values(CommandCase{"ZeroAccepts", {0x04, 0x03, 0x00}, {}, {}, {"bluetooth AcceptCall []"}},
                    CommandCase{"OneTerminates", {0x04, 0x03, 0x01}, {}, {}, {"bluetooth TerminateCall []"}},
                    CommandCase{"ExtraIsIgnored", {0x04, 0x03, 0x00, 0x01}, {}, {}, {"bluetooth AcceptCall []"}},
                    CommandCase{"TwoIsSilent", {0x04, 0x03, 0x02}, {}, {}, {}},
                    CommandCase{"HighestIsSilent", {0x04, 0x03, 0xFF}, {}, {}, {}}),
    caseName);

json attribute(const char* number, const json& text)
{
    return {{"bluetooth", {{"attributes", {{number, text}}}}}};
}

INSTANTIATE_TEST_SUITE_P(
    Address, BTCommandTest,
    testing::Values(CommandCase{"IsSixBytesInTextOrder", {0x04, 0x07}, {"84 07 [00 1A 7D DA 71 13]"}, {}, {}},
                    CommandCase{"ParametersAreIgnored", {0x04, 0x07, 0x55}, {"84 07 [00 1A 7D DA 71 13]"}, {}, {}},
                    CommandCase{"LowerCaseIsTheSame", {0x04, 0x07}, {"84 07 [A1 B2]"}, {}, {}, attribute("3", "a1:b2")},
                    CommandCase{"FieldsOfAnotherLengthArePassedOver",
                                {0x04, 0x07},
                                {"84 07 [AA BB]"},
                                {},
                                {},
                                attribute("3", "AA:1:234:BB:")},
                    CommandCase{
                        "NoFieldOfTwoIsAnEmptyReply", {0x04, 0x07}, {"84 07 []"}, {}, {}, attribute("3", "1:2")},
                    CommandCase{"EmptyIsAnEmptyReply", {0x04, 0x07}, {"84 07 []"}, {}, {}, attribute("3", "")},
                    CommandCase{"UnknownIsAnEmptyReply", {0x04, 0x07}, {"84 07 []"}, {}, {}, attribute("3", nullptr)},
                    CommandCase{"NotHexadecimalIsSilent", {0x04, 0x07}, {}, {}, {}, attribute("3", "00:GG:11")},
                    CommandCase{"HalfHexadecimalIsSilent", {0x04, 0x07}, {}, {}, {}, attribute("3", "00:1G:11")},
                    CommandCase{"ASignIsSilent", {0x04, 0x07}, {}, {}, {}, attribute("3", "-1:00")},
                    CommandCase{"APrefixIsSilent", {0x04, 0x07}, {}, {}, {}, attribute("3", "0x:00")}),
    caseName);

INSTANTIATE_TEST_SUITE_P(
    Name, BTCommandTest,
    testing::Values(CommandCase{"IsTextWithoutEnd", {0x04, 0x0D}, {"84 0D [48 65 61 64 55 6E 69 74]"}, {}, {}},
                    CommandCase{"EmptyIsAnEmptyReply", {0x04, 0x0D}, {"84 0D []"}, {}, {}, attribute("4", "")},
                    CommandCase{"UnknownIsAnEmptyReply", {0x04, 0x0D}, {"84 0D []"}, {}, {}, attribute("4", nullptr)}),
    caseName);

json capability(const char* number, int value)
{
    return {{"bluetooth", {{"capabilities", {{number, value}}}}}};
}

INSTANTIATE_TEST_SUITE_P(
    Capabilities, BTCommandTest,
    testing::Values(
        CommandCase{"Zero0BClears0", {0x04, 0x0B, 0x00}, {}, {}, {"bluetooth SetCapability [0,0]"}},
        CommandCase{"One0BSets0", {0x04, 0x0B, 0x01}, {}, {}, {"bluetooth SetCapability [0,1]"}},
        CommandCase{"Extra0BIsIgnored", {0x04, 0x0B, 0x01, 0x00}, {}, {}, {"bluetooth SetCapability [0,1]"}},
        CommandCase{"Two0BIsSilent", {0x04, 0x0B, 0x02}, {}, {}, {}},
        CommandCase{"Highest0BIsSilent", {0x04, 0x0B, 0xFF}, {}, {}, {}},
        CommandCase{"Zero16Clears9", {0x04, 0x16, 0x00}, {}, {}, {"bluetooth SetCapability [9,0]"}},
        CommandCase{"One16Sets9", {0x04, 0x16, 0x01}, {}, {}, {"bluetooth SetCapability [9,1]"}},
        CommandCase{"Extra16IsIgnored", {0x04, 0x16, 0x00, 0x01}, {}, {}, {"bluetooth SetCapability [9,0]"}},
        CommandCase{"Two16IsSilent", {0x04, 0x16, 0x02}, {}, {}, {}},
        CommandCase{"Highest16IsSilent", {0x04, 0x16, 0xFF}, {}, {}, {}},
        CommandCase{"Get9Off", {0x04, 0x17}, {"84 17 [00]"}, {}, {}},
        CommandCase{"Get9On", {0x04, 0x17}, {"84 17 [01]"}, {}, {}, capability("9", 1)},
        CommandCase{"Get9IsTheLowByte", {0x04, 0x17}, {"84 17 [02]"}, {}, {}, capability("9", 0x0102)}),
    caseName);

json connection(const char* which, int state)
{
    return {{"bluetooth", {{which, {{"state", state}, {"text", "phone of the test"}}}}}};
}

INSTANTIATE_TEST_SUITE_P(
    Connections, BTCommandTest,
    testing::Values(
        CommandCase{"Audio0IsNot", {0x04, 0x0E}, {"84 0E [00]"}, {}, {}},
        CommandCase{"Audio1Is", {0x04, 0x0E}, {"84 0E [01]"}, {}, {}, connection("media_connection", 1)},
        CommandCase{"Audio2IsNot", {0x04, 0x0E}, {"84 0E [00]"}, {}, {}, connection("media_connection", 2)},
        CommandCase{"Audio257IsNot", {0x04, 0x0E}, {"84 0E [00]"}, {}, {}, connection("media_connection", 257)},
        CommandCase{"AudioIsNotThePhone", {0x04, 0x0E}, {"84 0E [00]"}, {}, {}, connection("phone_connection", 1)},
        CommandCase{"Phone0IsNot", {0x04, 0x0F}, {"84 0F [00]"}, {}, {}},
        CommandCase{"Phone1Is", {0x04, 0x0F}, {"84 0F [01]"}, {}, {}, connection("phone_connection", 1)},
        CommandCase{"Phone2IsNot", {0x04, 0x0F}, {"84 0F [00]"}, {}, {}, connection("phone_connection", 2)},
        CommandCase{"PhoneMinus1IsNot", {0x04, 0x0F}, {"84 0F [00]"}, {}, {}, connection("phone_connection", -1)},
        CommandCase{"PhoneIsNotTheAudio", {0x04, 0x0F}, {"84 0F [00]"}, {}, {}, connection("media_connection", 1)}),
    caseName);

json number(const char* which, int value)
{
    return {{"bluetooth", {{which, value}}}};
}

INSTANTIATE_TEST_SUITE_P(
    States, BTCommandTest,
    testing::Values(CommandCase{"Music0HasNoCode", {0x04, 0x14}, {"84 14 []"}, {}, {}},
                    CommandCase{"Music1Plays", {0x04, 0x14}, {"84 14 [01]"}, {}, {}, number("music_status", 1)},
                    CommandCase{"Music2Pauses", {0x04, 0x14}, {"84 14 [00]"}, {}, {}, number("music_status", 2)},
                    CommandCase{"Music3HasNoCode", {0x04, 0x14}, {"84 14 []"}, {}, {}, number("music_status", 3)},
                    CommandCase{"Music255HasNoCode", {0x04, 0x14}, {"84 14 []"}, {}, {}, number("music_status", 255)},
                    CommandCase{"Music257HasNoCode", {0x04, 0x14}, {"84 14 []"}, {}, {}, number("music_status", 257)},
                    CommandCase{"Call0Is0", {0x04, 0x15}, {"84 15 [00]"}, {}, {}},
                    CommandCase{"Call1Is1", {0x04, 0x15}, {"84 15 [01]"}, {}, {}, number("call_state", 1)},
                    CommandCase{"Call2Is3", {0x04, 0x15}, {"84 15 [03]"}, {}, {}, number("call_state", 2)},
                    CommandCase{"Call3Is2", {0x04, 0x15}, {"84 15 [02]"}, {}, {}, number("call_state", 3)},
                    CommandCase{"Call4HasNoCode", {0x04, 0x15}, {"84 15 []"}, {}, {}, number("call_state", 4)},
                    CommandCase{"CallMinus1HasNoCode", {0x04, 0x15}, {"84 15 []"}, {}, {}, number("call_state", -1)},
                    CommandCase{"Call256HasNoCode", {0x04, 0x15}, {"84 15 []"}, {}, {}, number("call_state", 256)},
                    CommandCase{"PowerIs0AtFirst", {0x04, 0x0C}, {"84 0C [00]"}, {}, {}}),
    caseName);

class BluetoothTest : public EngineTest
{
};

TEST_F(BluetoothTest, DeletingThePairingsIsAnsweredUnderTheTunersGroupAndItsEndIsToldUnderBluetooths)
{
    startInTestMode();

    station.sendCommand(0x04, 0x08);
    unit.events().drain();

    EXPECT_THAT(station.replies(), ElementsAre("82 08 [01]", "84 08 [01]"));
    EXPECT_THAT(calls(), ElementsAre("bluetooth DeletePairDeviceList []"));
    EXPECT_THAT(log.lines(), Contains("INFO HandleBTCommands, DeletePairDeviceList, ret = 1"));
}

TEST_F(BluetoothTest, TheResultOfDeletingThePairingsIsCutToItsLowByte)
{
    set("/bluetooth/delete_pairings_result", 0x0105);
    startInTestMode();

    station.sendCommand(0x04, 0x08, {0x55});
    unit.events().drain();

    EXPECT_THAT(station.replies(), ElementsAre("82 08 [05]", "84 08 [05]"));
    EXPECT_THAT(log.lines(), Contains("INFO HandleBTCommands, DeletePairDeviceList, ret = 261"));
}

TEST_F(BluetoothTest, TheEndOfADeletionIsToldAndTraced)
{
    startInTestMode();

    const std::string printed = printedBy([&] { raise("OnDeletePairStatusChanged", {{"status", 0x0201}}); });

    EXPECT_THAT(station.replies(), ElementsAre("84 08 [01]"));
    EXPECT_EQ(printed, "[auto test]OnDeletePairStatus, bStatus = 513\n");
}

TEST_F(BluetoothTest, WithTheModeOffTheEndOfADeletionIsNotTold)
{
    start();
    forget();

    EXPECT_EQ(printedBy([&] { raise("OnDeletePairStatusChanged", {{"status", 1}}); }), "");

    EXPECT_THAT(station.replies(), IsEmpty());
}

json pairRequest(int type, int state)
{
    return {{"address", "00:11:22:33:44:55"}, {"name", "Phone"}, {"type", type}, {"state", state}};
}

TEST_F(BluetoothTest, ARequestToPairIsAccepted)
{
    startInTestMode();

    const std::string printed = printedBy([&] { raise("OnAnswerPairRequest", pairRequest(0, 1)); });

    EXPECT_THAT(calls(), ElementsAre(R"(bluetooth AnswerPair ["","",1])"));
    EXPECT_EQ(printed, "OnAnswerPairRequest, pairState = 1\n");
    EXPECT_THAT(station.replies(), IsEmpty());
}

TEST_F(BluetoothTest, AnotherPairStateIsTracedOnly)
{
    startInTestMode();

    const std::string printed = printedBy([&] {
        raise("OnAnswerPairRequest", pairRequest(0, 0));
        raise("OnAnswerPairRequest", pairRequest(0, 2));
    });

    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(printed, "OnAnswerPairRequest, pairState = 0\nOnAnswerPairRequest, pairState = 2\n");
}

TEST_F(BluetoothTest, ARequestToPairOfAnotherTypeIsIgnored)
{
    startInTestMode();

    const std::string printed = printedBy([&] {
        raise("OnAnswerPairRequest", pairRequest(1, 1));
        raise("OnAnswerPairRequest", pairRequest(-1, 1));
    });

    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(printed, "");
}

TEST_F(BluetoothTest, WithTheModeOffARequestToPairIsIgnored)
{
    start();
    forget();

    EXPECT_EQ(printedBy([&] { raise("OnAnswerPairRequest", pairRequest(0, 1)); }), "");

    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(BluetoothTest, ThePowerStatusIsTheLastOneReportedAlsoBeforeTheMode)
{
    start();
    raise("OnOpenBtStatusChanged", {{"status", 2}});
    raise("OnOpenBtStatusChanged", {{"status", 0x0103}});
    station.sendCommand(0x0F, 0x00, {0x01});
    forget();

    station.sendCommand(0x04, 0x0C);

    EXPECT_THAT(station.replies(), ElementsAre("84 0C [03]"));
}

TEST_F(BluetoothTest, ACapabilityThatWasSetIsReadBack)
{
    startInTestMode();

    station.sendCommand(0x04, 0x16, {0x01});
    station.sendCommand(0x04, 0x17);

    EXPECT_THAT(station.replies(), ElementsAre("84 17 [01]"));
}

TEST_F(BluetoothTest, TheLogTellsWhatTheAdapterAnswered)
{
    unit.mergeState({{"bluetooth",
                      {{"media_connection", {{"state", 1}, {"text", "Walkman"}}},
                       {"phone_connection", {{"state", 2}, {"text", "Phone"}}},
                       {"music_status", 7},
                       {"call_state", 2}}}});
    startInTestMode();

    for (const std::uint8_t code : {0x07, 0x0D, 0x0E, 0x0F, 0x14, 0x15})
        station.sendCommand(0x04, code);

    EXPECT_THAT(log.lines(), Contains("DEBUG BT Address: 00:1A:7D:DA:71:13"));
    EXPECT_THAT(log.lines(), Contains("DEBUG BT Name: HeadUnit"));
    EXPECT_THAT(log.lines(), Contains("DEBUG bt_audio_connect_state: 1----Walkman"));
    EXPECT_THAT(log.lines(), Contains("DEBUG bt_phone_connect_state: 2----Phone"));
    EXPECT_THAT(log.lines(), Contains("DEBUG bt_music_status = 7"));
    EXPECT_THAT(log.lines(), Contains("DEBUG bt_call_state = 2"));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(BluetoothTest, AnAddressThatIsNotHexadecimalLeavesOneErrorLineAndTheNextCommandIsAnswered)
{
    set("/bluetooth/attributes/3", "ZZ:00");
    startInTestMode();

    station.sendCommand(0x04, 0x07);
    station.sendCommand(0x04, 0x0C);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR BT address ZZ:00 is not hexadecimal, not sent"));
    EXPECT_THAT(station.replies(), ElementsAre("84 0C [00]"));
}

TEST_F(BluetoothTest, ANameThatFillsAFrameIsSentAndALongerOneIsNot)
{
    startInTestMode();

    set("/bluetooth/attributes/4", std::string(246, 'n'));
    station.sendCommand(0x04, 0x0D);
    EXPECT_EQ(station.sent().size(), 1U);
    EXPECT_THAT(log.errors(), IsEmpty());

    set("/bluetooth/attributes/4", std::string(247, 'n'));
    station.sendCommand(0x04, 0x0D);
    EXPECT_EQ(station.sent().size(), 1U);
    EXPECT_THAT(log.errors(), ElementsAre("ERROR SendData, 0x84 0xd not sent: 247 parameter bytes make a frame of 256, "
                                          "255 fit"));
}

}  // namespace
