#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <ostream>
#include <pugixml.hpp>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/catalogue/Catalogue.h"
#include "station/record/Html.h"
#include "station/record/Reports.h"
#include "station/record/SampleRuns.h"

namespace station::record {
namespace {

using protocol::catalogue::groups;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// Parses as strictly as pugixml does, and looks for characters that XML forbids, which it does not.
pugi::xml_document parsed(const std::string& text)
{
    pugi::xml_document document;
    const auto result = document.load_string(text.c_str(), pugi::parse_full);
    EXPECT_TRUE(result) << result.description() << " at " << text.substr(static_cast<std::size_t>(result.offset), 80);
    EXPECT_EQ(text.find('\0'), std::string::npos);
    EXPECT_TRUE(std::ranges::none_of(text, [](unsigned char c) { return c < 0x20 && c != '\n' && c != '\t'; }));
    return document;
}

std::vector<std::string> texts(const pugi::xml_document& document, const char* path)
{
    std::vector<std::string> found;
    for (const auto& node : document.select_nodes(path)) {
        found.emplace_back(node.node().text().get());
    }
    return found;
}

std::string written(void (*report)(const Run&, Groups, std::ostream&), const Run& run)
{
    std::ostringstream out;
    report(run, groups(), out);
    return out.str();
}

std::string html(const Run& run)
{
    return written(htmlReport, run);
}

std::string junit(const Run& run)
{
    return written(junitReport, run);
}

struct Sample {
    const char* name;
    Run (*make)();
};

void PrintTo(const Sample& sample, std::ostream* out)
{
    *out << sample.name;
}

const Sample kSamples[] = {
    {"Passed", samples::passed},   {"Failed", samples::failed},
    {"Aborted", samples::aborted}, {"WithoutSteps", samples::withoutSteps},
    {"Hostile", samples::hostile}, {"Empty", [] { return Run(); }},
};

class EveryRun : public testing::TestWithParam<Sample>
{
};

INSTANTIATE_TEST_SUITE_P(Each, EveryRun, testing::ValuesIn(kSamples),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(EveryRun, MakesAPageThatNeedsNothingBesideItAndRunsNothing)
{
    const std::string page = html(GetParam().make());

    const auto document = parsed(page);
    EXPECT_TRUE(document.select_nodes("//script | //img | //link | //iframe | //object | //form | //base").empty());
    EXPECT_TRUE(document.select_nodes("//@src | //@onclick | //@onload | //@style").empty());
    for (const auto& link : document.select_nodes("//@href")) {
        EXPECT_EQ(link.attribute().value()[0], '#');
    }
    EXPECT_THAT(page, Not(AllOf(HasSubstr("url("), HasSubstr("@import"))));
    EXPECT_STREQ(document.select_node("//meta[@http-equiv='Content-Security-Policy']/@content").attribute().value(),
                 "default-src 'none'; style-src 'unsafe-inline'");
}

TEST_P(EveryRun, MakesAPageWhoseHeadingsTablesAndLinksAreSound)
{
    const auto document = parsed(html(GetParam().make()));

    EXPECT_EQ(document.select_nodes("//h1").size(), 1U);
    EXPECT_EQ(document.select_nodes("//table").size(), document.select_nodes("//table/caption").size());
    EXPECT_TRUE(document.select_nodes("//svg[not(@aria-label)]").empty());
    std::set<std::string> anchors;
    for (const auto& node : document.select_nodes("//@id")) {
        EXPECT_TRUE(anchors.insert(node.attribute().value()).second) << node.attribute().value();
    }
    for (const auto& node : document.select_nodes("//@href")) {
        EXPECT_TRUE(anchors.contains(node.attribute().value() + 1)) << node.attribute().value();
    }
}

TEST_P(EveryRun, MakesAPageWhoseElementsAreClosedAsHtmlWantsIt)
{
    const std::string page = html(GetParam().make());

    // Only elements without an end tag may be closed in place.
    for (auto at = page.find("/>"); at != std::string::npos; at = page.find("/>", at + 1)) {
        const auto begin = page.rfind('<', at);
        EXPECT_EQ(page.substr(begin, 5), "<meta");
    }
}

TEST_P(EveryRun, IsJUnitThatCountsItsOwnCases)
{
    const auto document = parsed(junit(GetParam().make()));

    const auto root = document.child("testsuites");
    EXPECT_EQ(root.attribute("tests").as_uint(), document.select_nodes("//testcase").size());
    EXPECT_EQ(root.attribute("failures").as_uint(), document.select_nodes("//testcase/failure").size());
    EXPECT_EQ(root.attribute("errors").as_uint(), document.select_nodes("//testcase/error").size());
    EXPECT_EQ(root.attribute("skipped").as_uint(), document.select_nodes("//testcase/skipped").size());
    EXPECT_GT(root.attribute("tests").as_uint(), 0U);
}

TEST_P(EveryRun, IsPrintedWithoutAnythingThatSteersATerminal)
{
    const std::string text = textReport(GetParam().make(), groups(), {.colour = false, .allFrames = true});

    EXPECT_TRUE(std::ranges::none_of(text, [](unsigned char c) { return (c < 0x20 && c != '\n') || c == 0x7F; }));
    EXPECT_THAT(text, AllOf(Not(HasSubstr("\u009B")), Not(HasSubstr("\u202E"))));
}

TEST_P(EveryRun, IsJsonWithoutAnythingThatSteersATerminal)
{
    const std::string text = written(jsonReport, GetParam().make());

    EXPECT_TRUE(std::ranges::none_of(text, [](unsigned char c) { return (c < 0x20 && c != '\n') || c == 0x7F; }));
    EXPECT_THAT(text, AllOf(Not(HasSubstr("\u009B")), Not(HasSubstr("\u202E"))));
}

TEST_P(EveryRun, IsCsvWithAsManyCellsInEveryLine)
{
    const std::string csv = written(csvReport, GetParam().make());

    bool quoted = false;
    std::size_t cells = 1;
    for (std::size_t i = 0; i < csv.size(); ++i) {
        quoted = quoted != (csv[i] == '"');
        cells += csv[i] == ',' && !quoted ? 1 : 0;
        if (csv[i] == '\n' && !quoted) {
            EXPECT_EQ(cells, 25U);
            EXPECT_EQ(csv[i - 1], '\r');
            cells = 1;
        }
    }
    EXPECT_FALSE(quoted);
    EXPECT_TRUE(csv.ends_with("\r\n"));
}

TEST(HtmlReport, TellsWhatWentWrongFirstWithWhatWasExpectedAndWhatCame)
{
    const auto document = parsed(html(samples::failed()));

    EXPECT_STREQ(document.select_node("//title").node().text().get(), "TIMEOUT – End-of-line test – HU-2611-004711");
    EXPECT_THAT(texts(document, "//h2"), ElementsAre("What went wrong", "Passed only when repeated", "All steps",
                                                     "What the words mean", "Where this comes from"));
    EXPECT_THAT(texts(document, "//article/h3/span[2]"),
                ElementsAre("Frequency after the seek", "Radio antenna", "GPS satellites"));
    EXPECT_THAT(texts(document, "//article[1]/p[@class='reason']"),
                ElementsAre("frequency: expected 87.5 to 108 MHz, got 9.9 MHz"));
    EXPECT_THAT(texts(document, "//article[1]/table/tbody/tr[1]/*[position() < 4]"),
                ElementsAre("frequency", "87.5 to 108 MHz", "9.9 MHz"));
    EXPECT_THAT(texts(document, "//article[1]//span[@class='miss']"), ElementsAre("77.6 MHz below the minimum"));
    EXPECT_THAT(texts(document, "//dl[@class='origin']/div[starts-with(dt, 'Parameter')]/dd"),
                ElementsAre("40 dB (--set)", "\"EU\" (default)"));
    EXPECT_THAT(texts(document, "//p[@class='lead']"),
                ElementsAre("3 of 11 steps went wrong, 1 was not run, 2 passed only when repeated."));
}

TEST(HtmlReport, FoldsTheFramesUnderTheirStepWithTheirMeaning)
{
    const auto document = parsed(html(samples::failed()));

    EXPECT_THAT(texts(document, "//article[1]/details[not(@open)]/table/tbody/tr[2]/td"),
                ElementsAre("5.0 ms", "← from unit", "", "tuner.frequency: frequency=990 (9.9 MHz on FM)"));
    EXPECT_THAT(texts(document, "//article[1]/details/table/tbody/tr[2]/td/code"), ElementsAre("82 01 [03 DE]"));
    EXPECT_THAT(texts(document, "//article[3]/details[3]/table/tbody/tr[2]/td[2]"), ElementsAre("← damaged"));
    EXPECT_THAT(texts(document, "//article[3]/details[3]/table/tbody/tr[2]/td/code"),
                ElementsAre("2A A2 00 03 85 00 03 00 12 34"));
}

TEST(HtmlReport, KeepsEveryAttemptAndEveryTryOfAGroup)
{
    const auto document = parsed(html(samples::failed()));

    EXPECT_EQ(document.select_nodes("//article[3]/p[starts-with(@class, 'attempt')]").size(), 3U);
    EXPECT_THAT(texts(document, "//h5"), ElementsAre("Try 1 of 2 ", "Try 2 of 2 "));
    EXPECT_THAT(texts(document, "//ul[@class='repeated']/li/a"), ElementsAre("Current source", "Track index"));
}

TEST(HtmlReport, OfAPassHasNothingThatWentWrong)
{
    const auto document = parsed(html(samples::passed()));

    EXPECT_THAT(texts(document, "//h2"), ElementsAre("All steps", "What the words mean", "Where this comes from"));
    EXPECT_THAT(texts(document, "//p[@class='lead']"), ElementsAre("All 5 steps passed."));
}

TEST(HtmlReport, OfARunThatWasEndedTellsWhere)
{
    const auto document = parsed(html(samples::aborted()));

    EXPECT_THAT(texts(document, "//p[@class='lead']"),
                ElementsAre("2 of 4 steps passed before the end, 1 was ended, 1 was not run."));
    EXPECT_THAT(texts(document, "//p[@class='why']"), ElementsAre("interrupted by the operator"));
    EXPECT_STREQ(document.select_node("//h2").node().text().get(), "Where the run was ended");
    EXPECT_THAT(texts(document, "//dl[@class='legend']/dd"), testing::Contains("The run was ended early."));
    EXPECT_THAT(texts(document, "//article/p[@class='reason']"), ElementsAre("interrupted after 2.3 s"));
}

TEST(HtmlReport, OfARunWithoutStepsTellsWhy)
{
    const auto document = parsed(html(samples::withoutSteps()));

    EXPECT_THAT(texts(document, "//article/p[@class='reason']"),
                ElementsAre("/dev/ttyUSB0: no such port; `engineering-station ports` lists what is there"));
}

TEST(HtmlReport, ShowsMarkupOfAUnitAsText)
{
    record::Run run = samples::failed();
    run.unit.serial = "</title><script>alert(1)</script>&lt;";

    const std::string page = html(run);

    EXPECT_THAT(page, Not(HasSubstr("<script")));
    EXPECT_THAT(texts(parsed(page), "//dl[@class='facts']/div[1]/dd"),
                ElementsAre("</title><script>alert(1)</script>&lt;"));
}

TEST(HtmlReport, HoldsTenThousandFrames)
{
    const auto document = parsed(html(samples::withFrames(10000)));

    EXPECT_EQ(document.select_nodes("//table[@class='frames']/tbody/tr/td/code").size(), 10008U);
    EXPECT_THAT(texts(document, "//summary"), testing::Contains("10000 events on the line"));
}

/// @returns the chart's shapes by class, from left to right as they are drawn.
std::vector<std::string> shapes(const Measurement& measurement)
{
    pugi::xml_document document;
    addLimitChart(document.append_child("div"), measurement, true);
    std::vector<std::string> classes;
    for (const auto& node : document.select_nodes("//svg/*")) {
        classes.emplace_back(node.node().attribute("class").value());
    }
    return classes;
}

/// @returns where the marker stands, in pixels from the left.
double markerAt(const Measurement& measurement)
{
    pugi::xml_document document;
    addLimitChart(document.append_child("div"), measurement, true);
    const std::string_view text = document.select_node("//path/@transform").attribute().value();
    return std::stod(std::string(text.substr(text.find('(') + 1)));
}

TEST(LimitChart, DrawsTheValueInOrBesideTheAllowedRange)
{
    EXPECT_THAT(shapes({"f", 100.0, "MHz", {.minimum = 87.5, .maximum = 108.0}, true}),
                ElementsAre("axis", "band", "limit", "limit", "dot pass", "got", "bound", "bound"));
    EXPECT_THAT(shapes({"f", 86.0, "MHz", {.minimum = 87.5, .maximum = 108.0}, false}),
                ElementsAre("axis", "band", "limit", "limit", "cross fail", "got", "bound", "bound"));
    EXPECT_THAT(shapes({"f", 100.0, "MHz", {.minimum = 87.5}, true}),
                ElementsAre("axis", "band", "limit", "dot pass", "got", "bound"));
}

TEST(LimitChart, KeepsAValueFarAwayAtTheEdgeAsAnArrow)
{
    const Measurement far{"f", 1e9, "MHz", {.minimum = 87.5, .maximum = 108.0}, false};

    EXPECT_THAT(shapes(far), ElementsAre("axis", "band", "limit", "limit", "dot fail", "got", "bound", "bound"));
    EXPECT_DOUBLE_EQ(markerAt(far), 340.0 - 48.0);
    EXPECT_DOUBLE_EQ(markerAt({"f", -1e9, "MHz", {.minimum = 87.5, .maximum = 108.0}, false}), 48.0);
}

TEST(LimitChart, PutsTheMiddleOfARangeInTheMiddle)
{
    EXPECT_DOUBLE_EQ(markerAt({"f", 5.0, "V", {.minimum = 0.0, .maximum = 10.0}, true}), 170.0);
}

TEST(LimitChart, DrawsNothingWhereThereIsNothingToDraw)
{
    EXPECT_FALSE(isDrawn({"name", std::string("x"), "", {.equals = std::string("x")}, true}));
    EXPECT_FALSE(isDrawn({"mode", 1.0, "", {.equals = 1.0}, true}));
    EXPECT_TRUE(isDrawn({"frequency", 94.7, "MHz", {.equals = 94.7}, true}));
    EXPECT_FALSE(isDrawn({"f", 1.0, "", {}, true}));
    EXPECT_FALSE(isDrawn({"f", std::numeric_limits<double>::quiet_NaN(), "", {.minimum = 0.0}, false}));
    EXPECT_FALSE(isDrawn({"f", 1e308, "", {.minimum = -1e308, .maximum = 1e308}, true}));
}

TEST(JunitReport, MapsVerdictsToFailureErrorAndSkipped)
{
    const auto document = parsed(junit(samples::failed()));

    const auto root = document.child("testsuites");
    EXPECT_STREQ(root.attribute("name").value(), "End-of-line test");
    EXPECT_EQ(root.attribute("tests").as_uint(), 11U);
    EXPECT_EQ(root.attribute("failures").as_uint(), 2U);
    EXPECT_EQ(root.attribute("errors").as_uint(), 1U);
    EXPECT_EQ(root.attribute("skipped").as_uint(), 1U);
    EXPECT_STREQ(root.attribute("time").value(), "9.100000");
    const auto failure =
        document.select_node("//testsuite[@name='main.Tuner']/testcase[@name='Radio antenna']/failure").node();
    EXPECT_STREQ(failure.attribute("message").value(), "state: expected 1, got 0");
    EXPECT_STREQ(failure.attribute("type").value(), "FAIL");
    EXPECT_STREQ(document.select_node("//testcase[@name='GPS satellites']/error/@type").attribute().value(), "TIMEOUT");
    EXPECT_STREQ(document.select_node("//testcase[@name='GPS antenna']/skipped/@message").attribute().value(),
                 "the group was stopped when GPS satellites failed");
    EXPECT_STREQ(document.select_node("//testcase[@name='GPS satellites']/@time").attribute().value(), "3.000000");
}

/// A group that was run three times, as the plan wants it, and failed once.
record::Run repeated()
{
    record::Run run = samples::passed();
    Group& audio = run.phases[1].groups[0];
    audio.tries.assign(3, audio.tries[0]);
    audio.tries[1].steps[0].attempts[0].add({Verdict::kFail, "volume: expected 0 to 40, got 41"});
    return run;
}

TEST(JunitReport, CountsEveryTryOfAGroupThatIsRepeated)
{
    const auto document = parsed(junit(repeated()));

    EXPECT_EQ(document.child("testsuites").attribute("tests").as_uint(), 7U);
    EXPECT_EQ(document.child("testsuites").attribute("failures").as_uint(), 1U);
    EXPECT_EQ(document.select_nodes("//testcase[@name='Volume (try 2)']/failure").size(), 1U);
    EXPECT_EQ(document.select_nodes("//testcase[@name='Volume (try 3)']/failure").size(), 0U);
}

TEST(HtmlReport, TellsAFailureOfAGroupThatIsRepeated)
{
    const auto document = parsed(html(repeated()));

    EXPECT_THAT(texts(document, "//article/p[@class='reason']"), ElementsAre("volume: expected 0 to 40, got 41"));
    EXPECT_THAT(texts(document, "//article/p[@class='where']"), ElementsAre("main › Audio › try 2 of 3 · "));
    EXPECT_THAT(texts(document, "//p[@class='lead']"), ElementsAre("1 of 7 steps went wrong."));
}

TEST(HtmlReport, BreaksNoFigureOfAGroupThatIsRepeated)
{
    const std::string page = html(repeated());
    const auto document = parsed(page);

    EXPECT_THAT(texts(document, "//table[@class='figures']/tbody/tr[1]/th[@scope='row']"),
                ElementsAre("Volume: volume"));
    EXPECT_THAT(texts(document, "//table[@class='figures']/tbody/tr[1]/td[@class='num']"),
                ElementsAre("3", "0", "12", "12", "12", "0"));
    EXPECT_THAT(page, HasSubstr(".figures td,.figures thead th{white-space:nowrap;overflow-wrap:normal;"));
}

TEST(HtmlReport, DoesNotTakeAStepThatIsRepeatedForOneThatNeededIt)
{
    record::Run run = samples::passed();
    auto& attempts = run.phases[1].groups[0].tries[0].steps[0].attempts;
    attempts.push_back(attempts[0]);

    EXPECT_THAT(texts(parsed(html(run)), "//p[@class='lead']"), ElementsAre("All 5 steps passed."));
}

TEST(JunitReport, LeavesATryThatWasSupersededOutOfTheCount)
{
    const auto document = parsed(junit(samples::failed()));

    EXPECT_EQ(document.select_nodes("//testsuite[@name='main.Source']/testcase").size(), 1U);
    EXPECT_THAT(texts(document, "//testsuite[@name='main.Source']/system-out")[0],
                HasSubstr("try 1: FAIL\nCurrent source: FAIL: source: expected 4, got 1\n"));
}

TEST(JunitReport, NamesUnitAndHashesAsProperties)
{
    const auto document = parsed(junit(samples::passed()));

    EXPECT_STREQ(
        document.select_node("//testsuite[1]/properties/property[@name='unit.serial']/@value").attribute().value(),
        "HU-2611-004711");
    EXPECT_STREQ(
        document.select_node("//testsuite[1]/properties/property[@name='plan.sha256']/@value").attribute().value(),
        "0fb30cb2e3fc4b1f5ecb7a9c4d2dc5a6f3b1c1f8a7de5e4f0a86a1f3b9f2c7d1");
    EXPECT_STREQ(document.select_node("//testsuite[1]/properties/property[@name='plan.parameter.limit']/@value")
                     .attribute()
                     .value(),
                 "40 dB");
}

struct Silent {
    const char* name;
    void (*make)(Run&);
};

void PrintTo(const Silent& silent, std::ostream* out)
{
    *out << silent.name;
}

class RunThatDidNotPass : public testing::TestWithParam<Silent>
{
};

const Silent kSilent[] = {
    {"WithoutSteps", [](Run& run) { run.phases.clear(); }},
    {"WhoseStepsAllPassed", [](Run&) {}},
    {"WhoseTeardownTookTooLong",
     [](Run& run) {
         run.phases[2].cut = {Verdict::kTimeout, "it took too long"};
     }},
    {"WhoseGroupHasNoTry", [](Run& run) { run.phases[1].groups[0].tries.clear(); }},
};

INSTANTIATE_TEST_SUITE_P(Each, RunThatDidNotPass, testing::ValuesIn(kSilent),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(RunThatDidNotPass, IsNeverGreenInJUnit)
{
    record::Run run = samples::passed();
    run.findings = {{Verdict::kError, "the port was not there"}};
    GetParam().make(run);

    const auto document = parsed(junit(run));

    EXPECT_EQ(document.child("testsuites").attribute("errors").as_uint(), 1U);
}

TEST(JunitReport, ShowsAFindingBesideStepsThatWentWrong)
{
    record::Run run = samples::failed();
    const auto before = parsed(junit(run)).child("testsuites").attribute("errors").as_uint();
    run.findings = {{Verdict::kError, "the unit is another one"}};

    const std::string text = junit(run);

    EXPECT_EQ(parsed(text).child("testsuites").attribute("errors").as_uint(), before + 1);
    EXPECT_THAT(text, HasSubstr("the unit is another one"));
}

TEST(CsvReport, HasALineForEachMeasurement)
{
    const std::string csv = written(csvReport, samples::failed());

    EXPECT_THAT(csv,
                HasSubstr(R"("end-of-line-20261121-140508.123-ttyUSB0","HU-2611-004711","main","Tuner",1,"Frequency )"
                          R"(after the seek","send","tuner.frequency","FAIL",1,"FAIL","frequency: expected 87.5 to )"
                          R"(108 MHz, got 9.9 MHz",0.0053,"frequency",9.9,"MHz",87.5,108,,,false,0,0,1,0)"
                          "\r\n"));
    EXPECT_THAT(csv, HasSubstr(R"(,"GPS antenna","send","gps.antenna","SKIPPED",,,"the group was stopped when GPS )"
                               R"(satellites failed",,,,,,,,,,0,0,1,0)"
                               "\r\n"));
    EXPECT_EQ(std::ranges::count(csv, '\n'), 1 + 16);
}

TEST(CsvReport, GivesASpreadsheetNoFormula)
{
    record::Run run = samples::passed();
    run.unit.serial = "=cmd|'/c calc'!A1";

    EXPECT_THAT(written(csvReport, run), HasSubstr(",\"'=cmd|'/c calc'!A1\","));
}

TEST_P(EveryRun, IsCsvWithEveryTextInQuotes)
{
    const std::string csv = written(csvReport, GetParam().make());

    // Between the quotes stand numbers, true and false only.
    bool quoted = false;
    for (const char c : csv) {
        quoted = quoted != (c == '"');
        EXPECT_TRUE(quoted || std::string_view("\",\r\n0123456789.-+einfatrusl").find(c) != std::string_view::npos)
            << c;
    }
}

TEST(TextReport, TellsWhatWentWrongFirst)
{
    EXPECT_THAT(
        textReport(samples::failed(), groups(), {}),
        testing::StartsWith(
            "TIMEOUT  End-of-line test\n"
            "3 of 11 steps went wrong, 1 was not run, 2 passed only when repeated.\n"
            "Tuner / Frequency after the seek: frequency: expected 87.5 to 108 MHz, got 9.9 MHz\n"
            "Unit HU-2611-004711 at /dev/serial/by-id/usb-FTDI_FT232R_A50285BI-if00-port0, 115200 baud; started "
            "2026-11-21 14:05:08 UTC, took 9.10 s\n"
            "Line 1 corrupt frame\n"
            "Run end-of-line-20261121-140508.123-ttyUSB0, operator K. Lindqvist\n"
            "Parameter limit = 40 dB (--set)\n"
            "Parameter variant = \"EU\" (default)\n"
            "\n"
            "What went wrong\n"
            "\n"
            "  FAIL  Frequency after the seek\n"
            "    main > Tuner: tuner.frequency\n"
            "    frequency: expected 87.5 to 108 MHz, got 9.9 MHz\n"
            "    ✕ frequency = 9.9 MHz, expected 87.5 to 108 MHz: 77.6 MHz below the minimum\n"
            "    round trip = 5.3 ms, expected at most 50 ms\n"
            "    → 02 01 []  tuner.frequency\n"
            "    ← 82 01 [03 DE]  tuner.frequency: frequency=990 (9.9 MHz on FM)\n"));
}

TEST(TextReport, HasColoursOnlyWhenAsked)
{
    EXPECT_THAT(textReport(samples::passed(), groups(), {.colour = true}), HasSubstr("\033[32mPASS\033[0m"));
    EXPECT_THAT(textReport(samples::passed(), groups(), {}), Not(HasSubstr("\033")));
}

}  // namespace
}  // namespace station::record
