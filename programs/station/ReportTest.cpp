#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
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
                  ": expected the name or path of a run's folder, or 'latest', got 'nothing'; see 'report "
                  "list'\n");
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

}  // namespace
}  // namespace programs::station_tool
