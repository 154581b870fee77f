#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "programs/Cli.h"
#include "programs/station/Tool.h"
#include "protocol/Errors.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/record/RecordJson.h"
#include "station/record/ResultsFolder.h"
#include "station/record/SampleRuns.h"
#include "tests/engine/FileSizeLimit.h"
#include "tests/support/TempDir.h"

namespace programs::station_tool {
namespace {

namespace fs = std::filesystem;
namespace record = station::record;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

struct Outcome {
    int status = -1;
    std::string out;
    std::string error;
};

class ReportVerb : public testing::Test
{
protected:
    /// Does what `engineering-station` does with these words.
    Outcome run(std::vector<std::string> words)
    {
        CLI::App app;
        Tool tool{app, false, {}, interrupt_};
        app.add_flag("--json", tool.json);
        app.fallthrough();
        addReport(tool);
        std::ranges::reverse(words);
        app.parse(words);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Outcome outcome;
        try {
            outcome.status = tool.action();
        } catch (const protocol::Error& error) {  // as main does
            complain(kProgram, error.what());
            outcome.status = error.status();
        }
        std::fflush(stdout);
        outcome.out = testing::internal::GetCapturedStdout();
        outcome.error = testing::internal::GetCapturedStderr();
        return outcome;
    }

    void keep(record::Run which, const std::string& id)
    {
        which.id = id;
        record::ResultsFolder results(directory_, which, protocol::catalogue::groups());
        record::samples::tell(which, results);
        results.finish(which);
    }

    std::string path(const char* name) const { return directory_ / name; }

    tests::TempDir temporary_;
    const fs::path directory_ = temporary_.path() / "results";
    station::Interrupt interrupt_;
};

std::string content(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST_F(ReportVerb, ListIsATableWithTheFirstFailure)
{
    keep(record::samples::failed(), "run-1");

    const Outcome outcome = run({"report", "list", directory_});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
              "STARTED                  PLAN         UNIT            VERDICT  TOOK    RUN    FAILED\n"
              "2026-11-21 14:05:08 UTC  end-of-line  HU-2611-004711  TIMEOUT  9.10 s  run-1  Frequency after the seek "
              "and 2 more\n");
    EXPECT_EQ(outcome.error, "");
}

TEST_F(ReportVerb, ListTakesTheDirectoryAsAnOptionToo)
{
    keep(record::samples::failed(), "run-1");

    EXPECT_EQ(run({"report", "list", "--results", directory_}).out, run({"report", "list", directory_}).out);
}

TEST_F(ReportVerb, ListShortensALongFailure)
{
    record::Run which = record::samples::failed();
    for (record::Phase& phase : which.phases) {
        for (record::Group& group : phase.groups) {
            for (record::Group::Try& each : group.tries) {
                for (record::Step& step : each.steps) {
                    step.name = "\u00e4" + std::string(99, 'x');
                }
            }
        }
    }
    keep(which, "run-1");

    EXPECT_THAT(run({"report", "list", directory_}).out, testing::EndsWith("  \u00e4" + std::string(59, 'x') + "…\n"));
}

TEST_F(ReportVerb, ListHasAnObjectForEachRun)
{
    keep(record::samples::failed(), "run-1");

    const json object = json::parse(run({"report", "list", directory_, "--json"}).out);

    EXPECT_EQ(object["schema"], 1);
    EXPECT_EQ(object["runs"][0]["verdict"], "TIMEOUT");
    EXPECT_EQ(object["runs"][0]["failed_step"], "Frequency after the seek");
    EXPECT_EQ(object["runs"][0]["started"], "2026-11-21T14:05:08.123456789Z");
    EXPECT_EQ(object["runs"][0]["duration_s"], 9.1);
}

TEST_F(ReportVerb, RunThatGoesOnHasNoVerdictInTheList)
{
    record::Run which = record::samples::passed();
    const record::ResultsFolder goesOn(directory_, which, protocol::catalogue::groups());

    const json object = json::parse(run({"report", "list", directory_, "--json"}).out);

    EXPECT_EQ(object["runs"][0]["running"], true);
    EXPECT_EQ(object["runs"][0]["verdict"], nullptr);
    EXPECT_EQ(object["runs"][0]["reason"], "");
}

TEST_F(ReportVerb, ListPassesOverOtherFoldersWithAWordAndRefusesABrokenRecord)
{
    keep(record::samples::passed(), "run-1");
    fs::create_directories(directory_ / "broken");
    fs::create_directories(directory_ / "notes");
    std::ofstream(directory_ / "broken" / "record.json") << "{\"schema\": 1}";

    const Outcome outcome = run({"report", "list", directory_});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.error, "engineering-station: " + path("notes") +
                                 ": expected a run, got a folder without record.jsonl\n"
                                 "engineering-station: " +
                                 path("broken") + "/record.json: top level: expected the key \"id\"\n");
    EXPECT_THAT(outcome.out, HasSubstr("run-1"));
}

TEST_F(ReportVerb, ListOfADirectoryThatIsNotThereIsWrongUse)
{
    const Outcome outcome = run({"report", "list", path("nothing")});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.error, "engineering-station: no results in " + path("nothing") + " yet (--results DIR)\n");
}

TEST_F(ReportVerb, ShowPrintsTheLatestRunWhateverItsVerdict)
{
    keep(record::samples::failed(), "run-1");

    const Outcome outcome = run({"report", "show", "latest", "--results", directory_});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, StartsWith("TIMEOUT  End-of-line test\n3 of 11 steps went wrong"));
}

TEST_F(ReportVerb, ShowPrintsTheFramesOfEveryStepWhenAsked)
{
    keep(record::samples::passed(), "run-1");
    const std::vector<std::string> words{"report", "show", "run-1", "--results", directory_};
    auto withFrames = words;
    withFrames.emplace_back("--frames");

    EXPECT_THAT(run(words).out, testing::Not(HasSubstr("8F 00 [01]")));
    EXPECT_THAT(run(withFrames).out, HasSubstr("← 8F 00 [01]  test.set-mode: mode=1 (on)\n"));
}

TEST_F(ReportVerb, ShowGivesTheRecordAsJson)
{
    keep(record::samples::failed(), "run-1");

    const Outcome outcome = run({"report", "show", path("run-1"), "--json"});

    record::Run expected = record::samples::failed();
    expected.id = "run-1";
    EXPECT_EQ(record::parseRun(outcome.out), expected);
}

TEST_F(ReportVerb, ShowRefusesABrokenRecordWithThePlace)
{
    fs::create_directories(directory_ / "broken");
    std::ofstream(directory_ / "broken" / "record.json") << "{\n \"schema\" 1}";

    const Outcome outcome = run({"report", "show", "broken", "--results", directory_});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.error, StartsWith("engineering-station: " + path("broken") +
                                          "/record.json: parse error at line 2, column 11: "));
    EXPECT_EQ(std::ranges::count(outcome.error, '\n'), 1);
}

TEST_F(ReportVerb, ShowOfAnotherFileSaysThatItIsNoRecord)
{
    const std::string plan = temporary_.path() / "first.toml";
    std::ofstream(plan) << "schema = 1\n";

    const Outcome outcome = run({"report", "show", plan});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.error, "engineering-station: " + plan + ": expected a run's record, got another file\n");
}

TEST_F(ReportVerb, ShowOfARunThatIsNotThereSaysWhatWouldBeRight)
{
    const Outcome outcome = run({"report", "show", "nothing", "--results", directory_});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.error,
              "engineering-station: " + directory_.string() +
                  ": expected the name or path of a run's folder, a serial number or 'latest', got 'nothing'; see "
                  "'report list'\n");
}

TEST_F(ReportVerb, ExportMakesTheSameFilesAsTheRun)
{
    keep(record::samples::failed(), "run-1");
    const auto exported = [this](const char* format) {
        return run({"report", "export", "run-1", "--results", directory_, "--format", format}).out;
    };

    EXPECT_EQ(exported("html"), content(directory_ / "run-1" / "report.html"));
    EXPECT_EQ(exported("junit"), content(directory_ / "run-1" / "junit.xml"));
    EXPECT_EQ(exported("json"), content(directory_ / "run-1" / "record.json"));
    EXPECT_THAT(exported("csv"), StartsWith(R"("run","unit","phase","group","try","step",)"));
}

TEST_F(ReportVerb, ExportWritesAFile)
{
    keep(record::samples::passed(), "run-1");
    const std::string output = temporary_.path() / "report.html";

    const Outcome outcome = run({"report", "export", path("run-1"), "--format", "html", "--output", output, "--json"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(content(output), content(directory_ / "run-1" / "report.html"));
    EXPECT_EQ(json::parse(outcome.out)["file"], output);
}

TEST_F(ReportVerb, ExportOntoAFullDiskIsOneLineAndAFailure)
{
    keep(record::samples::passed(), "run-1");
    const std::string output = temporary_.path() / "report.html";

    Outcome outcome;
    {
        const FileSizeLimit disk(5000);
        outcome = run({"report", "export", path("run-1"), "--format", "html", "--output", output});
    }

    EXPECT_EQ(outcome.status, 7);
    EXPECT_EQ(outcome.error, "engineering-station: " + output + ": cannot be written: File too large\n");
    EXPECT_FALSE(fs::exists(output));
}

// Many runs.

constexpr record::Limits kLimits{440.0, 560.0, {}, {}};

class ManyRuns : public ReportVerb
{
protected:
    void measure(const std::string& serial, int later, const std::vector<double>& values,
                 const record::Limits& limits = kLimits)
    {
        record::samples::write(record::samples::measured(serial, std::chrono::seconds(later), values, limits),
                               directory_);
    }

    /// Runs a verb on the results.
    Outcome report(std::vector<std::string> words)
    {
        words.insert(words.begin(), "report");
        words.insert(words.end(), {"--results", directory_});
        return run(words);
    }

    json stats(std::vector<std::string> words = {})
    {
        words.insert(words.begin(), "stats");
        words.emplace_back("--json");
        return json::parse(report(words).out);
    }

    /// @returns the names of the folders in the list.
    std::vector<std::string> listed(std::vector<std::string> words)
    {
        words.insert(words.begin(), "list");
        words.emplace_back("--json");
        std::vector<std::string> names;
        const json object = json::parse(report(words).out);
        for (const json& each : object["runs"]) {
            names.push_back(each["run"]);
        }
        return names;
    }

    /// Three units: A passes, B fails and passes when it is tested again, C fails. Then a run without serial number and
    /// one that the user ended.
    void measureThreeUnits()
    {
        measure("A", 0, {500, 500});
        measure("B", 10, {500, 600});
        measure("C", 20, {600, 600});
        measure("B", 30, {500, 510});
        measure("", 40, {500, 520});
        record::Run ended = record::samples::aborted();
        ended.id = "ended";
        ended.unit.serial = "D";
        record::samples::write(ended, directory_);
    }
};

TEST_F(ManyRuns, ListTakesPlanSerialVerdictAndAge)
{
    measureThreeUnits();
    keep(record::samples::failed(), "another");
    record::Run old = record::samples::measured("A", std::chrono::hours(-24 * 30), {500}, kLimits);
    old.id = "old";
    old.plan.name = "burn-in";
    record::samples::write(old, directory_);

    EXPECT_THAT(listed({"--serial", "B"}), testing::ElementsAre("end-of-line-30", "end-of-line-10"));
    EXPECT_THAT(listed({"--verdict", "ABORTED"}), testing::ElementsAre("ended"));
    EXPECT_THAT(listed({"--verdict", "FAIL", "--serial", "C"}), testing::ElementsAre("end-of-line-20"));
    EXPECT_THAT(listed({"--verdict", "RUNNING"}), testing::IsEmpty());
    EXPECT_THAT(listed({"--plan", "burn-in"}), testing::ElementsAre("old"));
    EXPECT_THAT(listed({"--since", "2026-11-21", "--serial", "A"}), testing::ElementsAre("end-of-line-0"));
    EXPECT_THAT(listed({"--since", "2026-11-21T14:05:48Z"}), testing::ElementsAre("end-of-line-40"));
    EXPECT_EQ(report({"list", "--serial", "nothing"}).error,
              "engineering-station: " + directory_.string() + ": no run matches\n");
}

TEST_F(ManyRuns, SinceRefusesWhatIsNeitherAgeNorDate)
{
    for (const char* wrong :
         {"", "7", "7x", "-1d", "1e9w", "yesterday", "2026-13-01", "2026-11-21T25:00:00Z", "9999-01-01"}) {
        try {
            report({"list", "--since", wrong});
            ADD_FAILURE() << wrong << " is taken";
        } catch (const CLI::ValidationError& error) {
            EXPECT_THAT(error.what(), HasSubstr("expected an age such as 7d or a date such as 2026-11-21, got"));
        }
    }
    for (const char* right : {"7d", "12h", "30min", "1.5 d", "2w", "90s", "2026-11-21", "2026-11-21T14:05:08Z"}) {
        EXPECT_NO_THROW(report({"stats", "--since", right})) << right;
    }
}

TEST_F(ManyRuns, ShowTakesASerialNumberForTheLatestRun)
{
    measureThreeUnits();

    EXPECT_THAT(report({"show", "B"}).out, HasSubstr("end-of-line-30"));
    EXPECT_EQ(report({"show", "E"}).status, 2);
}

TEST_F(ManyRuns, ExportOfAllHasTheRunInEveryLine)
{
    measureThreeUnits();
    keep(record::samples::passed(), "whole");
    fs::remove(directory_ / "whole" / "record.jsonl");

    const Outcome outcome = report({"export", "--all", "--csv", "--plan", "end-of-line"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, StartsWith("\"time\",\"station\",\"operator\",\"plan\",\"plan_version\",\"tool_version\","
                                        "\"run_verdict\",\"run\",\"unit\",\"phase\",\"group\",\"try\",\"step\","));
    const record::Run sample = record::samples::passed();
    EXPECT_THAT(outcome.out,
                HasSubstr("\"2026-11-21T14:05:18.123456789Z\",\"" + sample.station.host + "\",\"" +
                          sample.station.operatorName + "\",\"end-of-line\",\"7\",\"" + sample.station.version +
                          "\",\"FAIL\",\"end-of-line-10\",\"B\",\"main\",\"levels\",1,\"Level 2\",\"send\","));
    EXPECT_THAT(outcome.out, HasSubstr("\"PASS\",\"whole\","));
    // Five runs of two steps, one that was ended, one of the old schema; a header line before them.
    EXPECT_GT(std::ranges::count(outcome.out, '\n'), 11);
}

TEST_F(ManyRuns, ExportNeedsARunOrAll)
{
    measureThreeUnits();
    const auto error = [this](const std::vector<std::string>& words) {
        const Outcome outcome = report(words);
        EXPECT_EQ(outcome.status, 2);
        return outcome.error;
    };

    EXPECT_EQ(error({"export"}), "engineering-station: expected RUN or --all\n");
    EXPECT_EQ(error({"export", "latest"}), "engineering-station: expected --format FORMAT\n");
    EXPECT_EQ(error({"export", "--all", "--format", "html"}),
              "engineering-station: --all: expected the format csv, got html\n");
    EXPECT_EQ(error({"export", "--all", "--csv", "--json"}),
              "engineering-station: --all with --json: expected --output FILE\n");
    EXPECT_THROW(report({"export", "latest", "--csv", "--plan", "p"}), CLI::RequiresError);
}

TEST_F(ManyRuns, FirstPassYieldIsThatOfEachUnitsFirstRun)
{
    measureThreeUnits();

    const json object = stats();

    ASSERT_EQ(object["plans"].size(), 1U);
    const json& plan = object["plans"][0];
    EXPECT_EQ(plan["plan"], "end-of-line");
    EXPECT_EQ(plan["runs"], 5);
    EXPECT_EQ(plan["passed"], 3);
    EXPECT_EQ(plan["units"], 3);
    EXPECT_EQ(plan["passed_first"], 1);
    EXPECT_DOUBLE_EQ(plan["first_pass_yield"], 1.0 / 3);
    EXPECT_EQ(plan["without_serial"], 1);
    EXPECT_EQ(plan["retests"], 1);
    EXPECT_DOUBLE_EQ(plan["retest_rate"], 1.0 / 4);
    EXPECT_EQ(object["not_counted"], (json{{"ABORTED", 1}}));
}

TEST_F(ManyRuns, RunsThatVerifyLimitsDoNotCount)
{
    measureThreeUnits();
    record::Run bad = record::samples::measured("E", std::chrono::seconds(50), {900, 900}, kLimits);
    bad.id = "bad";
    bad.verifies = "bad";
    record::samples::write(bad, directory_);

    const json object = stats();

    EXPECT_EQ(object["plans"].at(0)["runs"], 5);
    EXPECT_EQ(object["not_counted"], (json{{"ABORTED", 1}, {"VERIFYING LIMITS", 1}}));
}

TEST_F(ManyRuns, ARetestIsOneAlsoIfTheFirstRunIsTooOldToCount)
{
    measureThreeUnits();

    const json plan = stats({"--since", "2026-11-21T14:05:30Z"})["plans"][0];

    EXPECT_EQ(plan["runs"], 2);
    EXPECT_EQ(plan["units"], 0);
    EXPECT_EQ(plan["first_pass_yield"], nullptr);
    EXPECT_EQ(plan["retests"], 1);
}

TEST_F(ManyRuns, FailuresAreRankedByTheFirstStepThatFailed)
{
    measureThreeUnits();
    measure("E", 50, {500, 600});

    const json failures = stats()["failures"];

    ASSERT_EQ(failures.size(), 2U);
    EXPECT_EQ(failures[0]["step"], "Level 2");
    EXPECT_EQ(failures[0]["runs"], 2);
    EXPECT_DOUBLE_EQ(failures[0]["share"], 2.0 / 3);
    EXPECT_EQ(failures[1]["step"], "Level 1");
    EXPECT_DOUBLE_EQ(failures[1]["cumulative_share"], 1);
}

TEST_F(ManyRuns, CapabilityIsThatOfThePublishedExample)
{
    // NIST/SEMATECH e-Handbook of Statistical Methods, 6.3.2.2: ten flow rates with the control limits of the book,
    // which are three sigma within from the mean.
    const record::Limits limits{45.8159, 55.8041, {}, {}};
    int later = 0;
    for (const double rate : {49.6, 47.6, 49.9, 51.3, 47.8, 51.2, 52.6, 52.4, 53.6, 52.1}) {
        measure("U" + std::to_string(later), later, {rate}, limits);
        ++later;
    }

    const json figures = stats()["measurements"].at(0);

    EXPECT_EQ(figures["n"], 10);
    EXPECT_NEAR(figures["mean"], 50.81, 1e-9);
    EXPECT_NEAR(figures["sigma_within"], 1.8778 / 1.128, 1e-4);
    EXPECT_NEAR(figures["cp_within"], 1, 1e-4);
    EXPECT_NEAR(figures["cpk_within"], 1, 1e-4);
    EXPECT_NEAR(figures["pp_overall"], (55.8041 - 45.8159) / 6 / figures["sigma_overall"].get<double>(), 1e-9);
    EXPECT_EQ(figures["minimum"], 47.6);
    EXPECT_EQ(figures["maximum"], 53.6);
    EXPECT_EQ(figures["missed"], 0);
}

TEST_F(ManyRuns, OtherLimitsAreAnotherMeasurementAndNoNeighbours)
{
    const record::Limits wider{400.0, 600.0, {}, {}};
    measure("A", 0, {500});
    measure("B", 1, {502});
    measure("C", 2, {590}, wider);
    measure("D", 3, {510});
    measure("E", 4, {512});

    const json measurements = stats()["measurements"];

    ASSERT_EQ(measurements.size(), 2U);
    EXPECT_EQ(measurements[0]["n"], 4);
    EXPECT_NEAR(measurements[0]["sigma_within"], 2 / 1.128, 1e-9);
    EXPECT_EQ(measurements[1]["limits"], (json{{"minimum", 400}, {"maximum", 600}}));
    EXPECT_EQ(measurements[1]["cp_within"], nullptr);
}

TEST_F(ManyRuns, StatsAreTablesForPeople)
{
    measureThreeUnits();

    EXPECT_EQ(report({"stats"}).out,
              "PLAN         RUNS  UNITS  PASSED FIRST  FIRST-PASS YIELD  RETESTS  RETEST RATE  WITHOUT SERIAL\n"
              "end-of-line  5     3      1             33.3 %            1        25.0 %       1\n"
              "Runs that do not count: 1 ABORTED.\n"
              "\n"
              "FAILED FIRST IN   PLAN         RUNS  SHARE   CUMULATIVE\n"
              "levels / Level 1  end-of-line  1     50.0 %  50.0 %\n"
              "levels / Level 2  end-of-line  1     50.0 %  100.0 %\n"
              "\n"
              "MEASUREMENT              PLAN         LIMITS         N  MISSED  MINIMUM  MEAN  MAXIMUM  SIGMA OVERALL  "
              "SIGMA WITHIN  CP WITHIN  CPK WITHIN  PP OVERALL  PPK OVERALL\n"
              "levels / Level 1: level  end-of-line  440 to 560 mV  5  1       500      520   600      44.7214        "
              "44.3262       0.45       0.30        0.45        0.30\n"
              "levels / Level 2: level  end-of-line  440 to 560 mV  5  2       500      546   600      49.7996        "
              "44.3262       0.45       0.11        0.40        0.09\n");
}

TEST_F(ManyRuns, StatsAreOneTableOfCsv)
{
    measureThreeUnits();

    const std::string csv = report({"stats", "--csv"}).out;

    EXPECT_THAT(csv,
                StartsWith("\"kind\",\"plan\",\"phase\",\"group\",\"step\",\"measurement\",\"unit\",\"lower_limit\","));
    EXPECT_THAT(csv, HasSubstr("\r\n\"plan\",\"end-of-line\",,,,,,,,5,,,,,,,,,,,3,0.33333"));
    EXPECT_THAT(csv, HasSubstr("\r\n\"failure\",\"end-of-line\",,\"levels\",\"Level 1\",,,,,1,,"));
    EXPECT_THAT(csv,
                HasSubstr("\r\n\"measurement\",\"end-of-line\",\"main\",\"levels\",\"Level 1\",\"level\",\"mV\",440,"
                          "560,5,1,520,"));
    std::istringstream lines(csv);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(std::ranges::count(line, ','), 24) << line;
    }
}

TEST_F(ManyRuns, StatsAreAPageWithHistograms)
{
    measureThreeUnits();
    measure("<b>\x1b[31m", 60, {5000, 500});
    const std::string page = temporary_.path() / "week.html";

    const Outcome outcome = report({"stats", "--html", page});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "");
    const std::string text = content(page);
    EXPECT_THAT(text, HasSubstr("Content-Security-Policy"));
    EXPECT_THAT(text, HasSubstr("Cpk (within)"));
    EXPECT_THAT(text, HasSubstr("Histogram of level: 500 to 5000 mV, expected 440 to 560 mV"));
    EXPECT_THAT(text, HasSubstr("1 more beyond the edge"));
    EXPECT_THAT(text, testing::Not(HasSubstr("<b>")));
    EXPECT_THAT(text, testing::Not(HasSubstr("<script")));
    EXPECT_THAT(text, testing::Not(HasSubstr("src=")));
    EXPECT_EQ(run({"report", "stats", "--results", directory_, "--html", path("no/such/folder.html")}).status, 7);
}

TEST_F(ManyRuns, StatsSayWhichRecordsTheyLack)
{
    measureThreeUnits();
    fs::create_directories(directory_ / "broken");
    fs::create_directories(directory_ / "notes");
    std::ofstream(directory_ / "broken" / "record.json") << "{\"schema\": 1}";
    const fs::path record = directory_ / "end-of-line-20" / "record.jsonl";
    std::string text = content(record);
    text.replace(text.find("{\"event\":\"step\""), 5, "?????");
    std::ofstream(record) << text;

    const Outcome outcome = report({"stats", "--csv"});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.error, HasSubstr("broken/record.json: top level: expected the key \"id\"\n"));
    EXPECT_THAT(outcome.error, HasSubstr("end-of-line-20/record.jsonl: line "));
    EXPECT_THAT(outcome.out, HasSubstr("\"measurement\""));
}

TEST_F(ManyRuns, StatsWithoutRunsSaySo)
{
    fs::create_directories(directory_);

    EXPECT_EQ(report({"stats"}).error, "engineering-station: " + directory_.string() + ": no run counts\n");
    EXPECT_EQ(run({"report", "stats", "--results", path("nothing")}).status, 2);
}

TEST_F(ManyRuns, StatsSurviveAClockThatGoesBack)
{
    record::Run back = record::samples::measured("A", std::chrono::seconds(100), {500}, kLimits);
    back.ended = back.started - std::chrono::hours(24 * 365 * 50);
    record::samples::write(back, directory_);
    record::Run unset = record::samples::measured("A", std::chrono::seconds(0), {510}, kLimits);
    unset.id = "unset";
    unset.started = {};
    unset.ended = {};
    record::samples::write(unset, directory_);

    const json plan = stats()["plans"][0];
    EXPECT_EQ(plan["units"], 1);
    EXPECT_EQ(plan["retests"], 1);
    EXPECT_THAT(report({"list"}).out, HasSubstr("not known"));
}

}  // namespace
}  // namespace programs::station_tool
