#include <climits>

#include "tests/support/EngineTest.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

using namespace nlohmann::literals;

// Request is followed by source and gain type.
const std::vector<CommandCase> kCases = {
    // 0x00 set source: the station's number -> the platform's
    {"SetSource0RequestsNone", {0x00, 0x00, 0}, {}, {}, {"source Request [0,0]"}},
    {"SetSource1", {0x00, 0x00, 1}, {}, {}, {"source Request [1,0]"}},
    {"SetSource2RequestsNone", {0x00, 0x00, 2}, {}, {}, {"source Request [0,0]"}},
    {"SetSource3RequestsNone", {0x00, 0x00, 3}, {}, {}, {"source Request [0,0]"}},
    {"SetSource4", {0x00, 0x00, 4}, {}, {}, {"source Request [3,0]"}},
    {"SetSource5RequestsNone", {0x00, 0x00, 5}, {}, {}, {"source Request [0,0]"}},
    {"SetSource6RequestsNone", {0x00, 0x00, 6}, {}, {}, {"source Request [0,0]"}},
    {"SetSource7", {0x00, 0x00, 7}, {}, {}, {"source Request [16,0]"}},
    {"SetSource8", {0x00, 0x00, 8}, {}, {}, {"source Request [9,0]"}},
    {"SetSource9", {0x00, 0x00, 9}, {}, {}, {"source Request [10,0]"}},
    {"SetSource10", {0x00, 0x00, 10}, {}, {}, {"source Request [25,0]"}},
    {"SetSource11", {0x00, 0x00, 11}, {}, {}, {"source Request [30,0]"}},
    {"SetSource12RequestsNone", {0x00, 0x00, 12}, {}, {}, {"source Request [0,0]"}},
    {"SetSource13", {0x00, 0x00, 13}, {}, {}, {"source Request [7,0]"}},
    {"SetSource14RequestsNone", {0x00, 0x00, 14}, {}, {}, {"source Request [0,0]"}},
    {"SetSource15RequestsNone", {0x00, 0x00, 15}, {}, {}, {"source Request [0,0]"}},
    {"SetSource16RequestsNone", {0x00, 0x00, 16}, {}, {}, {"source Request [0,0]"}},
    {"SetSource17RequestsNone", {0x00, 0x00, 17}, {}, {}, {"source Request [0,0]"}},
    {"SetSource18RequestsNone", {0x00, 0x00, 18}, {}, {}, {"source Request [0,0]"}},
    {"SetSource19", {0x00, 0x00, 19}, {}, {}, {"source Request [44,0]"}},
    {"SetSource20RequestsNone", {0x00, 0x00, 20}, {}, {}, {"source Request [0,0]"}},
    {"SetSource255RequestsNone", {0x00, 0x00, 255}, {}, {}, {"source Request [0,0]"}},
    {"SetSourceIgnoresFurtherBytes", {0x00, 0x00, 4, 1, 1}, {}, {}, {"source Request [3,0]"}},

    // 0x01 get source: the platform's number -> the station's
    {"GetSource1", {0x00, 0x01}, {"80 01 [01]"}, {}, {}, R"({"source": {"current": 1}})"_json},
    {"GetSource3", {0x00, 0x01}, {"80 01 [04]"}, {}, {}, R"({"source": {"current": 3}})"_json},
    {"GetSource6", {0x00, 0x01}, {"80 01 [12]"}, {}, {}, R"({"source": {"current": 6}})"_json},
    {"GetSource7", {0x00, 0x01}, {"80 01 [0D]"}, {}, {}, R"({"source": {"current": 7}})"_json},
    {"GetSource9", {0x00, 0x01}, {"80 01 [08]"}, {}, {}, R"({"source": {"current": 9}})"_json},
    {"GetSource10", {0x00, 0x01}, {"80 01 [09]"}, {}, {}, R"({"source": {"current": 10}})"_json},
    {"GetSource14", {0x00, 0x01}, {"80 01 [10]"}, {}, {}, R"({"source": {"current": 14}})"_json},
    {"GetSource16", {0x00, 0x01}, {"80 01 [07]"}, {}, {}, R"({"source": {"current": 16}})"_json},
    {"GetSource25", {0x00, 0x01}, {"80 01 [0A]"}, {}, {}, R"({"source": {"current": 25}})"_json},
    {"GetSource30", {0x00, 0x01}, {"80 01 [0B]"}, {}, {}, R"({"source": {"current": 30}})"_json},
    {"GetSource44", {0x00, 0x01}, {"80 01 [13]"}, {}, {}, R"({"source": {"current": 44}})"_json},
    {"GetSourceNone", {0x00, 0x01}, {"80 01 [00]"}, {}, {}, R"({"source": {"current": 0}})"_json},
    {"GetSourceWithoutNumber", {0x00, 0x01}, {"80 01 [00]"}, {}, {}, R"({"source": {"current": 2}})"_json},
    {"GetSourceBeyondTheLast", {0x00, 0x01}, {"80 01 [00]"}, {}, {}, R"({"source": {"current": 45}})"_json},
    {"GetSourceBelowTheFirst", {0x00, 0x01}, {"80 01 [00]"}, {}, {}, R"({"source": {"current": -1}})"_json},
    {"GetSourceIgnoresParameters", {0x00, 0x01, 9, 9}, {"80 01 [01]"}, {}, {}},
};

class SourceCommandTest : public CommandTest
{
};

TEST_P(SourceCommandTest, DoesWhatItsRowSays)
{
    sendAndCompare();
}

INSTANTIATE_TEST_SUITE_P(Rows, SourceCommandTest, testing::ValuesIn(kCases), caseName);

class SourceCommandsTest : public EngineTest
{
};

TEST_F(SourceCommandsTest, ASourceThatWasSetIsReadBack)
{
    startInTestMode();

    station.sendCommand(0x00, 0x00, {11});
    station.sendCommand(0x00, 0x01);

    EXPECT_EQ(get("/source/current"), 30);
    EXPECT_THAT(station.replies(), ElementsAre("80 01 [0B]"));
}

TEST_F(SourceCommandsTest, ARequestIsLogged)
{
    startInTestMode();

    station.sendCommand(0x00, 0x00, {10});

    EXPECT_THAT(log.lines(), Contains("DEBUG [HandleSourceCommands], source_id = 25"));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(SourceCommandsTest, AFailedRequestIsLoggedAndNotAnswered)
{
    set("/source/available", nlohmann::json::array({1}));
    startInTestMode();

    station.sendCommand(0x00, 0x00, {8});

    EXPECT_THAT(log.lines(), Contains("DEBUG [HandleSourceCommands], source_id = 9"));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR [HandleSourceCommands], KYRSource::Request(9) failed!"));
    EXPECT_THAT(station.replies(), IsEmpty());
    EXPECT_EQ(get("/source/current"), 1);
}

TEST_F(SourceCommandsTest, ANumberWithoutASourceIsRefusedByTheSourceManagerOnly)
{
    startInTestMode();

    station.sendCommand(0x00, 0x00, {20});

    EXPECT_THAT(calls(), ElementsAre("source Request [0,0]"));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR [HandleSourceCommands], KYRSource::Request(0) failed!"));
}

TEST_F(SourceCommandsTest, ASetWithoutANumberIsNotLogged)
{
    startInTestMode();

    station.sendCommand(0x00, 0x00);

    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("[HandleSourceCommands]"))));
}

TEST_F(SourceCommandsTest, WithoutASourceManagerTheRequestFailsAndNoSourceIsCurrent)
{
    startInTestMode();
    takeTheHeadUnitAway();

    station.sendCommand(0x00, 0x00, {1});
    station.sendCommand(0x00, 0x01);

    EXPECT_THAT(log.errors(), ElementsAre("ERROR [HandleSourceCommands], KYRSource::Request(1) failed!"));
    EXPECT_THAT(station.replies(), ElementsAre("80 01 [00]"));
}

// WIRE: the two tables are not inverses.
TEST_F(SourceCommandsTest, SourcesSixAndFourteenReportNumbersThatCannotBeRequested)
{
    startInTestMode();

    set("/source/current", 6);
    station.sendCommand(0x00, 0x01);
    set("/source/current", 14);
    station.sendCommand(0x00, 0x01);
    station.sendCommand(0x00, 0x00, {18});
    station.sendCommand(0x00, 0x00, {16});

    EXPECT_THAT(station.replies(), ElementsAre("80 01 [12]", "80 01 [10]"));
    EXPECT_THAT(calls(), ElementsAre("source Request [0,0]", "source Request [0,0]"));
    EXPECT_EQ(get("/source/current"), 14);
}

TEST_F(SourceCommandsTest, EveryNumberOfTheStationHasTheSourceOfTheTable)
{
    start();

    std::vector<int> sources;
    for (int number = 0; number <= 20; ++number)
        sources.push_back(engine().ChangeSourceID(static_cast<unsigned char>(number)));

    EXPECT_THAT(sources, ElementsAre(0,                            // 0
                                     1, 0, 0, 3, 0, 0, 16, 9, 10,  // 1 to 9
                                     25, 30, 0, 7, 0, 0, 0, 0, 0,  // 10 to 18
                                     44, 0));                      // 19, 20
    EXPECT_EQ(engine().ChangeSourceID(255), 0);
}

TEST_F(SourceCommandsTest, EverySourceHasTheNumberOfTheTable)
{
    start();

    std::vector<int> numbers;
    for (int source = 0; source <= 45; ++source)
        numbers.push_back(engine().ChangeSourcrMgrSourceID(static_cast<KYRSource::SourceID>(source)));

    const std::vector<int> expected = {
        0,  1, 0, 4, 0,  0,  18, 13, 0, 8,  // 0 to 9
        9,  0, 0, 0, 16, 0,  7,  0,  0, 0,  // 10 to 19
        0,  0, 0, 0, 0,  10, 0,  0,  0, 0,  // 20 to 29
        11, 0, 0, 0, 0,  0,  0,  0,  0, 0,  // 30 to 39
        0,  0, 0, 0, 19, 0,                 // 40 to 45
    };
    EXPECT_EQ(numbers, expected);
    EXPECT_EQ(engine().ChangeSourcrMgrSourceID(static_cast<KYRSource::SourceID>(-1)), 0);
    EXPECT_EQ(engine().ChangeSourcrMgrSourceID(static_cast<KYRSource::SourceID>(INT_MIN)), 0);
    EXPECT_EQ(engine().ChangeSourcrMgrSourceID(static_cast<KYRSource::SourceID>(INT_MAX)), 0);
}

}  // namespace
