#include "station/record/RecordJson.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <ostream>
#include <sstream>
#include <string>

#include "protocol/catalogue/Catalogue.h"
#include "station/record/Outcome.h"
#include "station/record/Reports.h"
#include "station/record/SampleRuns.h"

namespace station::record {
namespace {

using nlohmann::ordered_json;
using testing::HasSubstr;
using testing::StartsWith;

std::string text(const Run& run)
{
    std::ostringstream out;
    writeJson(out, run, protocol::catalogue::groups());
    return out.str();
}

ordered_json json(const Run& run)
{
    return ordered_json::parse(text(run));
}

TEST(RecordJson, EveryRunComesBackAsItWas)
{
    for (const record::Run& run : {samples::passed(), samples::failed(), samples::aborted(), samples::withoutSteps(),
                                   samples::withFrames(10000)}) {
        EXPECT_EQ(parseRun(text(run)), run);
    }
}

TEST(RecordJson, InvalidUtf8IsReplacedAndTheRecordStaysReadable)
{
    const record::Run run = parseRun(text(samples::hostile()));

    EXPECT_THAT(headlineOf(run).reason,
                StartsWith("<script>alert('x')</script>&amp;\"]]>--><!-- \x01\x1b[31m\r\n\x7f \uFFFD\uFFFD "));
    // Bytes that are not a text stay as they are.
    EXPECT_EQ(run.events.kept().at(0).frame, samples::hostile().events.kept().at(0).frame);
}

TEST(RecordJson, AMeasurementIsWrittenAsDocumented)
{
    const auto attempt = json(samples::failed())["/phases/1/groups/2/tries/0/steps/0/attempts/0"_json_pointer];

    EXPECT_EQ(
        attempt["measurements"][0].dump(),
        R"({"name":"frequency","value":9.9,"unit":"MHz","limits":{"minimum":87.5,"maximum":108},"passed":false})");
    EXPECT_EQ(attempt["started"], "2026-11-21T14:05:08.423456789Z");
    EXPECT_EQ(attempt["duration_s"].dump(), "0.0053");
    EXPECT_EQ(attempt["wire_s"].dump(), "0.001736");
}

TEST(RecordJson, AFrameIsWrittenWithItsBytesAndItsMeaning)
{
    const auto attempt = json(samples::failed())["/phases/1/groups/2/tries/0/steps/0/attempts/0"_json_pointer];

    EXPECT_EQ(attempt["frames"][1].dump(),
              R"({"kind":"received","at":"2026-11-21T14:05:08.428456789Z","monotonic_s":1000.305,)"
              R"("cmd_one":"82","cmd_two":"01","params":"03 DE",)"
              R"x("decoded":"tuner.frequency: frequency=990 (9.9 MHz on FM)"})x");
}

TEST(RecordJson, NumbersThatJsonCannotHoldAreNull)
{
    record::Run run = samples::passed();
    run.phases[1].groups[0].tries[0].steps[0].attempts[0].measurements[0].value =
        std::numeric_limits<double>::quiet_NaN();

    const record::Run read = parseRun(text(run));

    const auto& value = read.phases[1].groups[0].tries[0].steps[0].attempts[0].measurements[0].value;
    EXPECT_TRUE(std::isnan(std::get<double>(value)));
}

TEST(Headline, NamesAMeasurementOnceIfTheStepHasItsName)
{
    const auto headlineFor = [](const char* step, const char* reason) {
        struct Run run;
        Attempt attempt;
        attempt.add({Verdict::kFail, reason});
        run.phases = {{"main", {{"G", {{{{step, "send", "", {attempt}, {}}}, false}}}}, {}}};
        return headlineOf(run).reason;
    };

    EXPECT_EQ(headlineFor("Radio antenna", "antenna: expected 1, got 0"), "G / Radio antenna: expected 1, got 0");
    EXPECT_EQ(headlineFor("Antenna", "antenna: expected 1, got 0"), "G / Antenna: expected 1, got 0");
    EXPECT_EQ(headlineFor("Two antennas", "antenna: expected 1, got 0"),
              "G / Two antennas: antenna: expected 1, got 0");
    EXPECT_EQ(headlineFor("X-antenna", "antenna: expected 1, got 0"), "G / X-antenna: antenna: expected 1, got 0");
    EXPECT_EQ(headlineFor("Ant", "antenna: expected 1, got 0"), "G / Ant: antenna: expected 1, got 0");
    EXPECT_EQ(headlineFor("Reply", "expected the reply of a.b within 1 s, got none"),
              "G / Reply: expected the reply of a.b within 1 s, got none");
}

TEST(RecordJson, KeysOfALaterVersionAreIgnored)
{
    auto record = json(samples::passed());
    record["phases"][0]["colour"] = "blue";

    EXPECT_EQ(fromJson(record), samples::passed());
}

/// Removes what earlier versions did not write.
void makeOld(ordered_json& json)
{
    if (json.is_object()) {
        for (const char* key : {"superseded", "events", "numbers"}) {
            if (json.contains(key) && !json.contains("steps")) {
                json.erase(key);
            }
        }
    }
    if (json.is_structured()) {
        std::ranges::for_each(json, makeOld);
    }
}

TEST(RecordJson, RecordOfAnEarlierVersionTellsTheSame)
{
    for (const record::Run& run : {samples::passed(), samples::failed(), samples::aborted(), samples::withoutSteps()}) {
        auto record = json(run);
        makeOld(record);
        record.erase("findings");
        record.erase("beside");
        EXPECT_EQ(fromJson(record).plan.parameters, run.plan.parameters);
        record["plan"].erase("parameters");
        record::Run withoutParameters = run;
        withoutParameters.plan.parameters.clear();

        const auto groups = protocol::catalogue::groups();
        EXPECT_EQ(textReport(fromJson(record), groups, {.allFrames = true}),
                  textReport(withoutParameters, groups, {.allFrames = true}));
    }
}

TEST(RecordJson, HeadlineOfAnEarlierVersionStays)
{
    // It let a time-out in the teardown hide a limit that was missed.
    auto record = json(samples::passed());
    record.erase("findings");
    record["verdict"] = "TIMEOUT";
    record["reason"] = "Leave / test.set-mode: no answer within 1 s";

    const Headline headline = headlineOf(fromJson(record));

    EXPECT_EQ(headline.verdict, Verdict::kTimeout);
    EXPECT_EQ(headline.reason, "Leave / test.set-mode: no answer within 1 s");
}

TEST(RecordJson, EventsThatWereLeftOutStayCounted)
{
    record::Run run = samples::passed();
    for (std::size_t i = 0; i < 3 * Events::kKept; ++i) {
        run.events.add({TraceEvent::Kind::kReceived, {}, {}, {0xEE, 0x01, {}}, {}});
    }

    EXPECT_EQ(parseRun(text(run)), run);
}

struct Damage {
    const char* name;
    std::function<void(ordered_json&)> make;
    const char* complaint;
};

void PrintTo(const Damage& damage, std::ostream* out)
{
    *out << damage.name;
}

class BrokenRecord : public testing::TestWithParam<Damage>
{
};

TEST_P(BrokenRecord, IsRefusedWithThePlace)
{
    auto record = json(samples::failed());
    GetParam().make(record);

    try {
        fromJson(record);
        FAIL() << "it was read";
    } catch (const RecordError& error) {
        EXPECT_STREQ(error.what(), GetParam().complaint);
    }
}

const Damage kDamages[] = {
    {"MissingKey", [](ordered_json& r) { r["phases"][1]["groups"][2].erase("name"); },
     "/phases/1/groups/2: expected the key \"name\""},
    {"UnknownVerdict", [](ordered_json& r) { r["verdict"] = "GOOD"; },
     "/verdict: expected PASS, FAIL, ERROR, TIMEOUT, ABORTED or SKIPPED, got \"GOOD\""},
    {"LaterSchema", [](ordered_json& r) { r["schema"] = 2; }, "/schema: expected schema 1, got 2"},
    {"NoObject", [](ordered_json& r) { r = ordered_json::array(); }, "top level: expected an object, got array"},
    {"NoArray", [](ordered_json& r) { r["phases"] = 7; }, "/phases: expected an array, got 7"},
    {"NoText", [](ordered_json& r) { r["unit"]["serial"] = 7; }, "/unit/serial: expected a text, got 7"},
    {"NoWholeNumber", [](ordered_json& r) { r["unit"]["baud"] = -1; },
     "/unit/baud: expected a whole number of at least 0, got -1"},
    {"NoTime", [](ordered_json& r) { r["started"] = "yesterday"; },
     "/started: expected a time such as 2026-11-21T14:05:08.123Z, got \"yesterday\""},
    {"TimeWithRest", [](ordered_json& r) { r["started"] = "2026-11-21T14:05:08.123Zulu"; },
     "/started: expected a time such as 2026-11-21T14:05:08.123Z, got \"2026-11-21T14:05:08.123Zulu\""},
    {"YearBeyondTheClock", [](ordered_json& r) { r["started"] = "9999-11-21T14:05:08Z"; },
     "/started: expected a year from 1900 to 2200, got \"9999-11-21T14:05:08Z\""},
    {"EndlessDuration",
     [](ordered_json& r) { r["phases"][0]["groups"][0]["tries"][0]["steps"][0]["attempts"][0]["wire_s"] = 1e99; },
     "/phases/0/groups/0/tries/0/steps/0/attempts/0/wire_s: expected a number of seconds, got 1e+99"},
    {"UnknownKindOfEvent", [](ordered_json& r) { r["trace"][0]["kind"] = "seen"; },
     "/trace/0/kind: expected sent, received, corrupt, lost or back, got \"seen\""},
    {"NoByte", [](ordered_json& r) { r["trace"][0]["cmd_one"] = "F"; },
     "/trace/0/cmd_one: expected two hexadecimal digits, got \"F\""},
    {"BytesWithoutSpace", [](ordered_json& r) { r["trace"][0]["params"] = "0102"; },
     "/trace/0/params: expected bytes in hexadecimal with one space between, got \"0102\""},
    {"BytesWithSpaceAtTheEnd", [](ordered_json& r) { r["trace"][0]["params"] = "01 "; },
     "/trace/0/params: expected bytes in hexadecimal with one space between, got \"01 \""},
    {"HalfAByte", [](ordered_json& r) { r["trace"][0]["params"] = "01 2"; },
     "/trace/0/params: expected bytes in hexadecimal with one space between, got \"01 2\""},
};

INSTANTIATE_TEST_SUITE_P(Each, BrokenRecord, testing::ValuesIn(kDamages),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(RecordJson, InvalidJsonIsRefusedWithLineAndColumn)
{
    try {
        parseRun("{\n \"schema\": 1,\n \"id\" \"x\"\n}\n");
        FAIL() << "it was read";
    } catch (const RecordError& error) {
        EXPECT_THAT(error.what(), StartsWith("parse error at line 3, column 9: "));
    }
}

TEST(RecordJson, ARecordCutAnywhereIsRefused)
{
    const std::string whole = text(samples::aborted());
    for (std::size_t length = 0; length + 2 < whole.size(); length += 7) {
        EXPECT_THROW(parseRun(std::string_view(whole).substr(0, length)), RecordError) << length;
    }
}

TEST(RecordJson, ExcessiveDepthIsRefused)
{
    EXPECT_THROW(parseRun(std::string(100000, '[')), RecordError);
    EXPECT_THROW(parseRun(R"({"schema": 1e999})"), RecordError);
}

TEST(RecordJson, MissingFileIsNamed)
{
    try {
        readRun("/nowhere/record.json");
        FAIL() << "it was read";
    } catch (const RecordError& error) {
        EXPECT_THAT(error.what(), HasSubstr("/nowhere/record.json: "));
    }
    EXPECT_THROW(readRun("/dev/zero"), RecordError);
}

}  // namespace
}  // namespace station::record
