#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "tests/support/EngineTest.h"

namespace {

using nlohmann::json;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

class GPSCommandTest : public CommandTest
{
};

TEST_P(GPSCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

json antenna(int state)
{
    return {{"system_misc", {{"gps_antenna", state}}}};
}

INSTANTIATE_TEST_SUITE_P(
    Gps, GPSCommandTest,
    testing::Values(CommandCase{"NoSatelliteAtFirst", {0x05, 0x00}, {"85 00 [00]"}, {}, {}},
                    CommandCase{"PositionIsZeroAtFirst", {0x05, 0x02}, {"85 02 [00 00 00 00 00 00 00 00]"}, {}, {}},
                    CommandCase{"CarInformationIsZeroAtFirst", {0x05, 0x0D}, {"85 0D [00]"}, {}, {}},
                    CommandCase{"ParametersAreIgnored", {0x05, 0x0D, 0x01, 0x02}, {"85 0D [00]"}, {}, {}},
                    CommandCase{"AntennaIsTheStateAsItIs", {0x05, 0x0B}, {"85 0B [04]"}, {}, {}},
                    CommandCase{"Antenna0", {0x05, 0x0B}, {"85 0B [00]"}, {}, {}, antenna(0)},
                    CommandCase{"Antenna5", {0x05, 0x0B}, {"85 0B [05]"}, {}, {}, antenna(5)},
                    CommandCase{"AntennaIsTheLowByte", {0x05, 0x0B}, {"85 0B [02]"}, {}, {}, antenna(0x0102)},
                    CommandCase{"AntennaMinus1", {0x05, 0x0B}, {"85 0B [FF]"}, {}, {}, antenna(-1)},
                    CommandCase{"AntennaWithoutTheProxyIs0",
                                {0x05, 0x0B},
                                {"85 0B [00]"},
                                {},
                                {},
                                {{"system_misc", {{"available", false}}}}}),
    caseName);

class GpsTest : public EngineTest
{
public:
    std::vector<std::string> answerTo(std::uint8_t command)
    {
        station.clear();
        station.sendCommand(0x05, command);
        return station.replies();
    }

    void reportSatellites(const json& satellites) { raise("OnAASatinfoChange", {{"satellites", satellites}}); }

    void reportPosition(int latitude, int longitude)
    {
        raise("OnAALocationChange", {{"latitude", latitude}, {"longitude", longitude}});
    }
};

TEST_F(GpsTest, SignalsAreReportedStrongestFirstAndNumbersInTheOrderOfTheReport)
{
    startInTestMode();
    reportSatellites(json::array({{5, 20}, {9, 35}, {12, 28}}));

    // 3 satellites: 5 with 35, 9 with 28, 12 with 20.
    EXPECT_THAT(answerTo(0x00), ElementsAre("85 00 [03 05 00 00 23 09 00 00 1C 0C 00 00 14]"));
}

TEST_F(GpsTest, TheNumberOfSatellitesIsLoggedAtErrorLevel)
{
    startInTestMode();
    reportSatellites(json::array({{5, 20}, {9, 35}}));

    answerTo(0x00);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleGPSCommands, m_iStarNumberInView = 2"));
}

TEST_F(GpsTest, OneSatelliteIsOneByteOfNumberAndThreeOfSignal)
{
    startInTestMode();
    reportSatellites(json::array({json::array({0x0105, 0x01020304})}));

    EXPECT_THAT(answerTo(0x00), ElementsAre("85 00 [01 05 02 03 04]"));
}

TEST_F(GpsTest, NegativeSignalsComeLast)
{
    startInTestMode();
    reportSatellites(json::array({{1, -2}, {2, 3}, {3, -1}}));

    EXPECT_THAT(answerTo(0x00), ElementsAre("85 00 [03 01 00 00 03 02 FF FF FF 03 FF FF FE]"));
}

TEST_F(GpsTest, AReportWithoutSatellitesChangesNothing)
{
    startInTestMode();
    reportSatellites(json::array({{5, 20}, {9, 35}}));

    reportSatellites(json::array());

    EXPECT_THAT(answerTo(0x00), ElementsAre("85 00 [02 05 00 00 23 09 00 00 14]"));
}

TEST_F(GpsTest, ANegativeCountIsReportedWithoutSatellites)
{
    startInTestMode();

    raise("OnAASatinfoChange", {{"satellites", json::array({{5, 20}, {9, 35}})}, {"count", -1}});

    EXPECT_THAT(answerTo(0x00), ElementsAre("85 00 [FF]"));
}

TEST_F(GpsTest, ASmallerReportTakesThePlaceOfALargerOne)
{
    startInTestMode();
    reportSatellites(json::array({{1, 50}, {2, 60}, {3, 70}}));

    reportSatellites(json::array({{7, 10}, {8, 11}}));

    EXPECT_THAT(answerTo(0x00), ElementsAre("85 00 [02 07 00 00 0B 08 00 00 0A]"));
}

constexpr const char* kTwentySatellites =
    "85 00 [14"
    " 01 00 00 78 02 00 00 77 03 00 00 76 04 00 00 75 05 00 00 74"
    " 06 00 00 73 07 00 00 72 08 00 00 71 09 00 00 70 0A 00 00 6F"
    " 0B 00 00 6E 0C 00 00 6D 0D 00 00 6C 0E 00 00 6B 0F 00 00 6A"
    " 10 00 00 69 11 00 00 68 12 00 00 67 13 00 00 66 14 00 00 65]";

/// Satellites 1 to 20 with the signals 101 to 120.
json twentySatellites()
{
    json satellites = json::array();
    for (int i = 1; i <= 20; ++i)
        satellites.push_back({i, 100 + i});
    return satellites;
}

TEST_F(GpsTest, TwentySatellitesHaveRoom)
{
    startInTestMode();
    reportSatellites(twentySatellites());

    EXPECT_THAT(answerTo(0x00), ElementsAre(kTwentySatellites));
}

TEST_F(GpsTest, MoreThanTwentySatellitesAreTwenty)
{
    startInTestMode();
    for (const int count : {21, 256, 2147483647}) {
        raise("OnAASatinfoChange", {{"satellites", twentySatellites()}, {"count", count}});

        EXPECT_THAT(answerTo(0x00), ElementsAre(kTwentySatellites)) << count;
    }
}

TEST_F(GpsTest, ThePositionIsLatitudeFirst)
{
    startInTestMode();
    reportPosition(0x01020304, 0x0A0B0C0D);

    EXPECT_THAT(answerTo(0x02), ElementsAre("85 02 [01 02 03 04 0A 0B 0C 0D]"));
}

TEST_F(GpsTest, ThePositionIsLoggedLongitudeFirst)
{
    startInTestMode();
    reportPosition(0x01020304, 0x0A0B0C0D);

    answerTo(0x02);

    EXPECT_THAT(log.lines(), Contains("DEBUG HandleGPSCommands, m_iLongitude = 0xA0B0C0D, m_iLatitude = 0x1020304"));
}

TEST_F(GpsTest, ANegativePositionIsItsTwosComplement)
{
    startInTestMode();
    reportPosition(-1, std::numeric_limits<int>::min());

    EXPECT_THAT(answerTo(0x02), ElementsAre("85 02 [FF FF FF FF 80 00 00 00]"));
}

TEST_F(GpsTest, TheCarInformationIsTheByteOfTheLastReport)
{
    startInTestMode();
    raise("OnLCarInfoChange", {{"value", 0x5A}});
    raise("OnLCarInfoChange", {{"value", 0xFF}});

    EXPECT_THAT(answerTo(0x0D), ElementsAre("85 0D [FF]"));
}

TEST_F(GpsTest, ReportsWithTheModeOffAreNotKept)
{
    startInTestMode();
    reportSatellites(json::array({{5, 20}, {9, 35}}));
    reportPosition(1, 2);
    raise("OnLCarInfoChange", {{"value", 3}});
    station.sendCommand(0x0F, 0x00, {0x00});

    reportSatellites(json::array({{6, 21}, {10, 36}, {11, 37}}));
    reportPosition(4, 5);
    raise("OnLCarInfoChange", {{"value", 6}});
    station.sendCommand(0x0F, 0x00, {0x01});

    EXPECT_THAT(answerTo(0x00), ElementsAre("85 00 [02 05 00 00 23 09 00 00 14]"));
    EXPECT_THAT(answerTo(0x02), ElementsAre("85 02 [00 00 00 01 00 00 00 02]"));
    EXPECT_THAT(answerTo(0x0D), ElementsAre("85 0D [03]"));
}

TEST_F(GpsTest, TheAntennaIsAskedEachTime)
{
    startInTestMode();
    EXPECT_THAT(answerTo(0x0B), ElementsAre("85 0B [04]"));

    set("/system_misc/gps_antenna", 3);

    EXPECT_THAT(answerTo(0x0B), ElementsAre("85 0B [03]"));
}

TEST_F(GpsTest, AMissingProxyIsLogged)
{
    startInTestMode();
    set("/system_misc/available", false);

    answerTo(0x0B);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR HandleGPSCommands, no system-misc proxy, the antenna counts as 0"));
}

TEST_F(GpsTest, AReplyNeverMixesTwoReports)
{
    startInTestMode();
    const json small = {{"satellites", json::array({{1, 1}, {1, 1}})}};
    const json large = {{"satellites", json::array({{2, 2}, {2, 2}, {2, 2}})}};
    unit.raiseAndWait("OnAASatinfoChange", small);

    for (int i = 0; i < 200; ++i) {
        unit.raise("OnAASatinfoChange", i % 2 == 0 ? large : small);
        station.sendCommand(0x05, 0x00);
    }
    unit.events().drain();

    EXPECT_THAT(station.replies(), Each(testing::AnyOf("85 00 [02 01 00 00 01 01 00 00 01]",
                                                       "85 00 [03 02 00 00 02 02 00 00 02 02 00 00 02]")));
    EXPECT_EQ(station.replies().size(), 200U);
}

}  // namespace
