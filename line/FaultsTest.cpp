#include "line/Faults.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "protocol/Errors.h"
#include "tests/support/TempDir.h"

namespace line {
namespace {

using protocol::toml_file::Problems;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

LineFaults after(const Change& change)
{
    LineFaults faults;
    change.applyTo(faults);
    return faults;
}

TEST(FaultChange, IsForBothDirectionsUnlessOneIsNamed)
{
    Change change;
    EXPECT_EQ(change.add("drop", "1%"), "");
    EXPECT_EQ(change.add("to_unit.delay", "200ms"), "");
    EXPECT_EQ(change.add("to_station.baud", "9600"), "");
    EXPECT_EQ(change.add("to_station.drop", "0"), "");

    EXPECT_EQ(after(change), (LineFaults{{.drop = 0.01, .delay = 0.2}, {.drop = 0, .baud = 9600}}));
}

TEST(FaultChange, ReadsAnObjectAsItWritesIt)
{
    Change change;
    EXPECT_EQ(change.addObject(nlohmann::json::parse(R"({"corrupt": "2 %", "to_unit": {"noise": 3, "away": "1min"}})")),
              "");
    const LineFaults faults = after(change);
    EXPECT_EQ(faults, (LineFaults{{.corrupt = 0.02, .noise = 3, .away = 60}, {.corrupt = 0.02}}));

    Change again;
    EXPECT_EQ(again.addObject(nlohmann::json(toJson(faults))), "");
    EXPECT_EQ(after(again), faults);
}

struct WrongFault {
    const char* name;
    const char* json;
    const char* message;
};

class WrongFaults : public testing::TestWithParam<WrongFault>
{
};

TEST_P(WrongFaults, AreExplained)
{
    EXPECT_THAT(Change().addObject(nlohmann::json::parse(GetParam().json)), HasSubstr(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, WrongFaults,
    testing::Values(
        WrongFault{"UnknownKey", R"({"dorp": 1})", "got 'dorp'; did you mean 'drop'?"},
        WrongFault{"UnknownDirection", R"({"to_hell": {"drop": 1}})",
                   "'to_hell': expected a number or a text, got object"},
        WrongFault{"UnknownKeyOfADirection", R"({"to_unit": {"dorp": 1}})", "got 'to_unit.dorp'; did you mean 'drop'?"},
        WrongFault{"RateOverOne", R"({"drop": 1.5})",
                   "'drop': expected a rate from 0 to 1, or from 0% to 100%, got '1.5'"},
        WrongFault{"RateOverHundredPercent", R"({"drop": "101%"})", "'drop': expected a rate from 0 to 1"},
        WrongFault{"NegativeRate", R"({"drop": -0.1})", "'drop': expected a rate"},
        WrongFault{"RateWithAnotherUnit", R"({"drop": "1 s"})", "'drop': expected a rate"},
        WrongFault{"TimeOverTheMost", R"({"delay": "2min"})", "'delay': expected a time from 0 up to 60 s"},
        WrongFault{"TimeWithoutItsUnit", R"({"delay": "5 apples"})", "'delay': expected a time"},
        WrongFault{"BaudUnderTheLeast", R"({"baud": 3})", "'baud': expected a baud rate from 50 to 4000000, or 0"},
        WrongFault{"TooMuchNoise", R"({"noise": 1e9})", "'noise': expected a number of bursts per second"},
        WrongFault{"Text", R"({"to_unit": {"noise": "loud"}})", "'to_unit.noise': expected a number of bursts"},
        WrongFault{"List", R"({"drop": [1]})", "'drop': expected a number or a text, got array"},
        WrongFault{"NoObject", R"(5)", "expected an object"}),
    [](const auto& row) { return row.param.name; });

TEST(FaultScript, HasABeginningAndEventsByTime)
{
    Problems problems;
    const Script script = parseScript(R"(
schema = 1
seed = 7
drop = "1%"
to_station = { corrupt = 0.5 }

[[at]]
time = "1min"
hang_up_for = "500ms"

[[at]]
time = 2
drop = 0
to_unit.delay = "200ms"
)",
                                      problems);

    EXPECT_THAT(problems, IsEmpty());
    EXPECT_EQ(script.seed, 7U);
    EXPECT_EQ(after(script.begin), (LineFaults{{.drop = 0.01}, {.drop = 0.01, .corrupt = 0.5}}));
    ASSERT_EQ(script.events.size(), 2U);
    EXPECT_EQ(script.events[0].time, 2);
    EXPECT_EQ(after(script.events[0].change), (LineFaults{{.delay = 0.2}, {}}));
    EXPECT_EQ(script.events[1].time, 60);
    EXPECT_EQ(script.events[1].hangUpFor, 0.5);
}

struct WrongScript {
    const char* name;
    const char* text;
    const char* problem;  // "LINE:COLUMN: TEXT"
};

class WrongScripts : public testing::TestWithParam<WrongScript>
{
};

TEST_P(WrongScripts, AreRefusedWithThePlace)
{
    Problems problems;
    parseScript(GetParam().text, problems);

    std::vector<std::string> lines;
    std::ranges::transform(problems, std::back_inserter(lines),
                           [](const auto& problem) { return protocol::toml_file::format("f", problem); });
    EXPECT_THAT(lines, ElementsAre(HasSubstr(std::string("f:") + GetParam().problem)));
}

INSTANTIATE_TEST_SUITE_P(
    Faults, WrongScripts,
    testing::Values(
        WrongScript{"NoSchema", "drop = 0.1", "1:1: expected the key 'schema'"},
        WrongScript{"OtherSchema", "schema = 2", "1:10: 'schema': expected 1, got 2"},
        WrongScript{"Rate", "schema = 1\ndrop = \"200%\"", "2:8: 'drop': expected a rate from 0 to 1"},
        WrongScript{"RateOfADirection", "schema = 1\nto_unit = { drop = 2 }", "2:20: 'to_unit.drop': expected a rate"},
        WrongScript{"List", "schema = 1\ndelay = [1]", "2:9: 'delay': expected a time"},
        WrongScript{"UnknownKey", "schema = 1\ndorp = 1", "2:1: "},
        WrongScript{"UnknownKeyOfADirection", "schema = 1\nto_unit = { dorp = 1 }", "2:13: "},
        WrongScript{"DirectionWithoutATable", "schema = 1\nto_unit = 1", "2:11: "},
        WrongScript{"NegativeSeed", "schema = 1\nseed = -1", "2:8: "},
        WrongScript{"NoTime", "schema = 1\n[[at]]\ndrop = 1", "2:1: 'time': expected a time since the line began"},
        WrongScript{"NegativeTime", "schema = 1\n[[at]]\ntime = -1", "3:8: 'time': expected a time"},
        WrongScript{"HangUpForEver", "schema = 1\n[[at]]\ntime = 1\nhang_up_for = \"2h\"", "4:15: 'hang_up_for': "},
        WrongScript{"NoToml", "schema = ", "1:"}),
    [](const auto& row) { return row.param.name; });

TEST(FaultScript, IsARegularFileOfALimitedLength)
{
    const tests::TempDir directory;
    const std::string fifo = directory.path() / "fifo";
    const std::string longest = directory.path() / "longest";
    const std::string tooLong = directory.path() / "too-long";
    mkfifo(fifo.c_str(), 0600);
    const std::string schema = "schema = 1\n#";
    std::ofstream(longest) << schema + std::string((1 << 20) - schema.size(), 'x');
    std::ofstream(tooLong).close();
    std::filesystem::resize_file(tooLong, (1 << 20) + 1);
    std::vector<std::string> mistakes;

    for (const auto& [path, reason] : {std::pair<std::string, const char*>{"/dev/zero", "got a device"},
                                       {fifo, "expected a regular file, got a pipe"},
                                       {directory.path(), "got a directory"},
                                       {tooLong, "expected at most 1048576 bytes, got more"},
                                       {directory.path() / "none", "no such file"}}) {
        try {
            loadScript(path, mistakes);
            ADD_FAILURE() << path;
        } catch (const protocol::UserError& error) {
            EXPECT_THAT(error.what(), testing::AllOf(testing::StartsWith(path + ": "), HasSubstr(reason)));
        }
    }
    loadScript(longest, mistakes);

    EXPECT_THAT(mistakes, IsEmpty());
}

}  // namespace
}  // namespace line
