#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/EngineTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class KeyFeedbackTest : public EngineTest
{
public:
    KeyFeedbackTest() { startInTestMode(); }

    void switchOn()
    {
        station.sendCommand(0x06, 0x0B, {0x01});
        forget();
    }

    std::vector<std::string> report(int key, int status)
    {
        station.clear();
        link().AutoTestFeedbackKeyEvent(static_cast<E_KeyVKey>(key), static_cast<E_KeyStatus>(status));
        return station.replies();
    }
};

TEST_F(KeyFeedbackTest, NoKeyIsReportedBeforeTheStationSwitchesReportsOn)
{
    EXPECT_THAT(report(0, 0), IsEmpty());
}

TEST_F(KeyFeedbackTest, AnyValueButZeroSwitchesReportsOnAndZeroOff)
{
    station.sendCommand(0x06, 0x0B, {0x80});
    EXPECT_THAT(report(0, 0), ElementsAre("86 11 [0F]"));

    station.sendCommand(0x06, 0x0B, {0x00});
    EXPECT_THAT(report(0, 0), IsEmpty());
}

TEST_F(KeyFeedbackTest, Status16AddsAByteAndNoOtherDoes)
{
    switchOn();

    for (int status = 0; status <= 255; ++status) {
        if (status == 16)
            continue;
        EXPECT_THAT(report(64, status), ElementsAre("86 11 [25]")) << status;
    }
    EXPECT_THAT(report(64, 16), ElementsAre("86 11 [25 04]"));
}

TEST_F(KeyFeedbackTest, AKeyWithoutACodeIsReportedAsFF)
{
    switchOn();

    EXPECT_THAT(report(8, 0), ElementsAre("86 11 [FF]"));
    EXPECT_THAT(report(70, 0), ElementsAre("86 11 [FF]"));
    EXPECT_THAT(report(255, 16), ElementsAre("86 11 [FF 04]"));
}

TEST_F(KeyFeedbackTest, EveryKeyHasTheCodeThatTheStationKnows)
{
    std::vector<int> codes(256, 255);
    constexpr int kKnown[][2] = {
        {0, 15},  {1, 16},  {2, 6},   {3, 7},   {4, 9},   {5, 18},  {6, 17},  {7, 5},   {9, 30},
        {10, 19}, {13, 20}, {14, 23}, {50, 12}, {51, 11}, {52, 4},  {53, 3},  {54, 10}, {55, 13},
        {56, 14}, {57, 31}, {58, 32}, {59, 2},  {60, 33}, {61, 34}, {62, 35}, {63, 36}, {64, 37},
    };
    for (const auto& [key, code] : kKnown)
        codes[static_cast<std::size_t>(key)] = code;

    for (int key = 0; key <= 255; ++key)
        EXPECT_EQ(engine().ChangeKeyTypeToAutoTestKey(static_cast<E_KeyVKey>(key)),
                  codes[static_cast<std::size_t>(key)])
            << key;
    EXPECT_EQ(engine().ChangeKeyTypeToAutoTestKey(static_cast<E_KeyVKey>(-1)), 255);
}

TEST_F(KeyFeedbackTest, KeysAreReportedWithTheModeOffToo)
{
    switchOn();
    station.sendCommand(0x0F, 0x00, {0x00});

    EXPECT_THAT(report(59, 0), ElementsAre("86 11 [02]"));
}

}  // namespace
