// Limits that are computed, parameters, and tables of limits.
#include "station/plan/Limits.h"

#include <filesystem>
#include <fstream>
#include <initializer_list>

#include "station/plan/RunnerTest.h"
#include "tests/support/TempDir.h"

namespace station::plan::tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

double valueOf(const std::string& text, const Variables& variables = {}, const std::string& wanted = {})
{
    Formula formula = readFormula(text);
    formula.wanted = wanted;
    return evaluate(formula, variables);
}

TEST(Formula, NumbersAreAddedSubtractedMultipliedAndDivided)
{
    EXPECT_EQ(valueOf("2 + 3 * 4"), 14);
    EXPECT_EQ(valueOf("(2 + 3) * -4"), -20);
    EXPECT_EQ(valueOf("8 / 4 / 2"), 1);
    EXPECT_EQ(valueOf("8 - 4 - 2"), 2);
    EXPECT_EQ(valueOf("8 - -4"), 12);
    EXPECT_EQ(valueOf("1.5e3"), 1500);
    EXPECT_EQ(valueOf("0.1 + 0.2"), 0.3);
    EXPECT_EQ(valueOf(" 7 "), 7);
}

TEST(Formula, VariableStandsForItsValueWhateverItsSign)
{
    EXPECT_EQ(valueOf("5 - ${a}", {{"a", "-3"}}), 8);
    EXPECT_EQ(valueOf("2 * ${a} + ${b}", {{"a", "1e-7"}, {"b", "4"}}), 4.0000002);
}

TEST(Formula, UnitBehindItIsConverted)
{
    EXPECT_EQ(valueOf("87.5 MHz", {}, "kHz"), 87500);
    EXPECT_EQ(valueOf("87.5MHz", {}, "MHz"), 87.5);
    EXPECT_EQ(valueOf("(1 + 2) dBµV", {}, "dBuV"), 3);
    EXPECT_EQ(valueOf("36 km/h", {}, "m/s"), 10);
    EXPECT_EQ(valueOf("${a} %", {{"a", "3"}}, "%"), 3);
}

TEST(Formula, VariableIsConvertedToTheUnitOfTheFormula)
{
    Formula formula = readFormula("${nominal} - 100 kHz");
    formula.wanted = "MHz";
    formula.units = {{"nominal", "MHz"}};
    EXPECT_EQ(evaluate(formula, {{"nominal", "94.7"}}), 94.6);

    formula.units = {{"nominal", "V"}};
    EXPECT_THROW(evaluate(formula, {{"nominal", "94.7"}}), protocol::UserError);

    // The product of two quantities has another unit than either.
    Formula product = readFormula("${current} * ${resistance} mV");
    product.wanted = "V";
    product.units = {{"current", "mA"}, {"resistance", "Ω"}};
    EXPECT_EQ(evaluate(product, {{"current", "50"}, {"resistance", "100"}}), 5);
}

TEST(Formula, WithoutAResultIsRefused)
{
    for (const char* text :
         {"5 / 0", "0 / 0", "1 / (5 / 0)", "1 / (1e300 * 1e300)", "1e300 * 1e300 - 1e300 * 1e300", "0 / (0 / 0)"}) {
        EXPECT_THROW(valueOf(text), NoResult) << text;
    }
    EXPECT_THROW(valueOf("0 V", {}, "dBµV"), NoResult);
}

TEST(Formula, WhatIsNotArithmeticIsRefused)
{
    for (const char* text :
         {"",         " ",     "abc",    "5 +",   "* 5",     "(5",     "5)",    "()",        "5 5",
          "5,5",      "5;5",   "sin(1)", "x = 5", "5 = 5",   "5 == 5", "5 < 6", "5 ? 6 : 7", "5 && 6",
          "5 ^ 6",    "\"a\"", "'5'",    "0x10",  "1e999",   "1.2.3",  "_pi",   "5 % 2",     "5!",
          "${a}${a}", "nan",   "inf",    "1e",    "5 - abc", "#",      "\n",    "5\n",       "5\t+ 1"}) {
        try {
            ADD_FAILURE() << text << " is " << valueOf(text, {{"a", "5"}});
        } catch (const NoResult&) {
            ADD_FAILURE() << text << " has no result";
        } catch (const protocol::UserError& error) {
            EXPECT_THAT(error.what(), StartsWith("expected a")) << text;
        }
    }
    EXPECT_THROW(valueOf(std::string("5\0+1", 4)), protocol::UserError);
}

TEST(Formula, TextAsAVariableIsRefusedWithoutShowingIt)
{
    for (const char* value : {"secret", "", "1, 2", "1 V", "nan", "inf", "${a}", "1)+(1"}) {
        try {
            ADD_FAILURE() << value << " is " << valueOf("${a} + 1", {{"a", value}});
        } catch (const protocol::UserError& error) {
            EXPECT_STREQ(error.what(), "expected a number as 'a', got a text") << value;
        }
    }
    EXPECT_THROW(valueOf("${a} + 1"), protocol::UserError);
}

TEST(Formula, DeepNestingAndLongTextsAreHarmless)
{
    EXPECT_EQ(valueOf(std::string(450, '(') + "1" + std::string(450, ')')), 1);
    for (const char* part : {"(", "-", "1+", "1/", "((", "1("}) {
        for (const std::size_t count : {300, 100'000}) {
            std::string text;
            while (text.size() < count) {
                text += part;
            }
            EXPECT_THROW(valueOf(text), protocol::UserError) << part;
        }
    }
}

constexpr const char* kHead = "schema = 1\nname = \"test\"\ntitle = \"Test\"\n";

/// A plan with a table of limits beside it.
class LimitTableTest : public testing::Test
{
protected:
    std::vector<std::string> problems(const std::string& csv,
                                      std::vector<GivenValue> given = {{"variant", "EU", "--variant"}},
                                      bool complete = true)
    {
        std::ofstream(directory_.path() / "limits.csv", std::ios::binary) << csv;
        loaded = load(text, (directory_.path() / "plan.toml").string(), protocol::catalogue::groups(),
                      {std::move(given), complete});
        std::vector<std::string> list;
        for (const auto& problem : loaded.problems) {
            list.push_back(format("plan.toml", problem));
        }
        return list;
    }

    const Expected& frequency() const
    {
        return std::get<Send>(loaded.plan.value().main.at(0).steps.at(0).action).expect.at(0);
    }

    std::string text = std::string(kHead) + R"(limits = "limits.csv"
[parameters.nominal]
type = "number"
default = 90
unit = "MHz"
[[main]]
name = "G"
steps = [
  { send = "tuner.frequency", expect = { frequency = { limits = "fm" } } },
  { send = "tuner.play", with = { frequency = "${nominal}" } },
  { send = "audio.volume", expect = { volume = { limits = "volume" } } },
]
)";
    Loaded loaded;

private:
    const ::tests::TempDir directory_;
};

#define HEADING "variant,measurement,min,max,unit\n"
#define GOOD HEADING "EU,fm,87.5,108,MHz\nEU,volume,,20,\n"

constexpr const char* kGood =
    "variant,measurement,min,max,unit,value\n"
    "EU,fm,87.5,108,MHz,\n"
    "EU,volume,,20,,\n"
    "EU,nominal,,,,94700 kHz\n"
    "JP,fm,76000,95000,kHz,\n"
    "JP,volume,3,,,\n";

TEST_F(LimitTableTest, RowsOfTheVariantGiveLimitsAndParameters)
{
    EXPECT_THAT(problems(kGood), IsEmpty());
    EXPECT_EQ(frequency().minimum, 87.5);
    EXPECT_EQ(frequency().maximum, 108);
    EXPECT_EQ(frequency().unit, "MHz on FM");
    EXPECT_EQ(loaded.plan->main[0].steps[1].what, "tuner.play frequency=94.7MHz");
    EXPECT_EQ(loaded.plan->parameters.at(0).from, "limits.csv:4");

    EXPECT_THAT(problems(kGood, {{"variant", "EU", "f", GivenValue::Type::kText}, {"variant", "JP", "--variant"}}),
                IsEmpty());
    EXPECT_EQ(frequency().minimum, 76);
    EXPECT_EQ(loaded.plan->main[0].steps[1].what, "tuner.play frequency=90MHz");
}

TEST_F(LimitTableTest, StationAndCommandLineComeBeforeTheTable)
{
    const GivenValue variant{"variant", "EU", "--variant"};
    const GivenValue station{"nominal", "88", "station.toml:2:1", GivenValue::Type::kNumber};

    EXPECT_THAT(problems(kGood, {station, variant}), IsEmpty());
    EXPECT_EQ(loaded.plan->main[0].steps[1].what, "tuner.play frequency=88MHz");
    EXPECT_THAT(problems(kGood, {station, {"nominal", "89", "--set"}, variant}), IsEmpty());
    EXPECT_EQ(loaded.plan->main[0].steps[1].what, "tuner.play frequency=89MHz");
    EXPECT_EQ(loaded.plan->parameters.at(0).from, "--set");
}

TEST_F(LimitTableTest, FilesOfSpreadsheetsAreRead)
{
    std::string file = "\xEF\xBB\xBF";
    for (const char* at = kGood; *at != '\0'; ++at) {
        file += *at == ',' ? std::string(";") : *at == '\n' ? std::string("\r\n") : std::string(1, *at);
    }

    EXPECT_THAT(problems(file + "\r\n"), IsEmpty());
    EXPECT_EQ(frequency().minimum, 87.5);
}

TEST_F(LimitTableTest, TableIsAPartOfThePlan)
{
    problems(kGood);

    EXPECT_THAT(loaded.used, HasSubstr(kGood));
}

TEST_F(LimitTableTest, VariantIsAParameterOfThePlan)
{
    EXPECT_THAT(problems(kGood, {}),
                ElementsAre("plan.toml:4:10: expected a variant of limits.csv, as in --variant EU, JP, got none"));
    EXPECT_THAT(problems(kGood, {{"variant", "US", "--variant"}}),
                ElementsAre("plan.toml: --variant: expected a variant of limits.csv, which has EU, JP, got 'US'"));

    text.insert(text.find("[[main]]"), "[parameters.variant]\ntype = \"text\"\ndefault = \"JP\"\n");
    EXPECT_THAT(problems(kGood, {}), IsEmpty());
    EXPECT_EQ(frequency().minimum, 76);
}

TEST_F(LimitTableTest, PlanWithoutValuesIsOnlyComplainedOfForARun)
{
    text.insert(text.find("[[main]]"), "[parameters.volume]\ntype = \"number\"\n");
    text.replace(text.rfind("{ limits = \"volume\" }"), 21, "{ max = \"${volume} + 1\" }");

    EXPECT_THAT(problems(HEADING "EU,fm,87.5,108,MHz\n", {}, true),
                ElementsAre(StartsWith("plan.toml:4:10: expected a variant"),
                            "plan.toml:9:1: 'volume': expected a value, as in --set volume=40, got none"));
    EXPECT_THAT(problems(HEADING "EU,fm,87.5,108,MHz\n", {}, false), IsEmpty());
    EXPECT_EQ(loaded.plan.value().stepCount(), 3U);
}

struct BadTable {
    const char* name;
    const char* csv;
    const char* problem;
};

class BadLimitTable : public LimitTableTest, public testing::WithParamInterface<BadTable>
{
};

TEST_P(BadLimitTable, IsRefusedWithItsLine)
{
    const auto list = problems(GetParam().csv);

    ASSERT_THAT(list, SizeIs(1));
    EXPECT_THAT(list.front(), StartsWith(std::string("plan.toml:") + GetParam().problem));
}

INSTANTIATE_TEST_SUITE_P(
    Plan, BadLimitTable,
    testing::Values(
        BadTable{"Empty", "", "4:10: limits.csv: expected a row of limits, got none"},
        BadTable{"HeadingOnly", HEADING, "4:10: limits.csv: expected a row of limits, got none"},
        BadTable{
            "NoHeading", "EU,fm,87.5,108,MHz\n",
            "4:10: limits.csv:1: expected the columns variant, measurement, min, max, unit and perhaps value, each "
            "once, got 'EU'"},
        BadTable{"ColumnTwice", "variant,variant,min,max,unit\n", "4:10: limits.csv:1: expected the columns"},
        BadTable{"NoUnit", "variant,measurement,min,max\n", "4:10: limits.csv:1: expected the column 'unit', got none"},
        BadTable{"OtherVariantsOnly", HEADING "JP,fm,76,95,MHz\nJP,volume,,20,\n",
                 " --variant: expected a variant of limits.csv, which has JP, got 'EU'"},
        BadTable{"MeasurementMissing", HEADING "EU,fm,87.5,108,MHz\n",
                 "14:59: limits.csv: expected limits for variant 'EU' and measurement 'volume', got none"},
        BadTable{"TwoEqualRows", GOOD "EU,fm,87,108,MHz\n",
                 "4:10: limits.csv:4: expected one row for variant 'EU' and measurement 'fm', got another than that of "
                 "limits.csv:2"},
        BadTable{"DecimalComma", HEADING "EU,fm,87,5,108,0,MHz\n",
                 "4:10: limits.csv:2: expected 5 cells, as in the first line, got 7; the decimal separator of numbers "
                 "is a point"},
        BadTable{"DecimalCommaInQuotes", HEADING "EU,fm,\"87,5\",108,MHz\n",
                 "4:10: limits.csv:2: 'min': expected a number such as 87.5, got '87,5'"},
        BadTable{"DecimalCommaBehindSemicolons", "variant;measurement;min;max;unit\nEU;fm;87,5;108;MHz\n",
                 "4:10: limits.csv:2: 'min': expected a number such as 87.5, got '87,5'"},
        BadTable{"NumberWithUnit", HEADING "EU,fm,87.5 MHz,108,MHz\n", "4:10: limits.csv:2: 'min': expected a number"},
        BadTable{"Infinite", HEADING "EU,fm,87.5,inf,MHz\n", "4:10: limits.csv:2: 'max': expected a number"},
        BadTable{"Arithmetic", HEADING "EU,fm,80+7,108,MHz\n", "4:10: limits.csv:2: 'min': expected a number"},
        BadTable{"NoLimit", HEADING "EU,fm,,,MHz\n",
                 "4:10: limits.csv:2: expected limits, or the value of a parameter, "
                 "got none"},
        BadTable{"LimitsAndValue", "variant,measurement,min,max,unit,value\nEU,fm,1,2,MHz,3\n",
                 "4:10: limits.csv:2: expected limits, or the value of a parameter, got both"},
        BadTable{"NoVariant", HEADING ",fm,87.5,108,MHz\n", "4:10: limits.csv:2: expected a variant and a measurement"},
        BadTable{"MaximumBelowMinimum", HEADING "EU,fm,108,87.5,MHz\n",
                 "4:10: limits.csv:2: expected a max of at least 108, got 87.5"},
        BadTable{"OtherUnit", HEADING "EU,fm,87.5,108,V\nEU,volume,,20,\n",
                 "12:65: limits.csv:2: 'unit': expected '10 kHz on FM' or 'MHz', got 'V'"},
        BadTable{"OtherUnitOfAnotherVariant", GOOD "JP,fm,76,95,A\n",
                 "12:65: limits.csv:4: 'unit': expected '10 kHz on FM' or 'MHz', got 'A'"},
        BadTable{"LimitOutOfRange", HEADING "EU,fm,700,800,MHz\nEU,volume,,20,\n",
                 "12:65: 'min': expected a limit from 0 to 655.35, got 700"},
        BadTable{"UnknownMeasurement", GOOD "EU,volum,,20,\n",
                 "4:10: limits.csv:4: expected a measurement of the plan, got 'volum'; did you mean 'volume'?"},
        BadTable{"UnknownParameter",
                 "variant,measurement,min,max,unit,value\nEU,fm,1,2,,\nEU,volume,1,2,,\nEU,nomnal,,,,3\n",
                 "4:10: limits.csv:4: expected a parameter of the plan, got 'nomnal'"},
        BadTable{"TextForANumber",
                 "variant,measurement,min,max,unit,value\nEU,nominal,,,,high\nEU,fm,1,2,,\nEU,volume,1,2,,\n",
                 " limits.csv:2: 'nominal': expected a number in MHz, got 'high'"},
        BadTable{"VariantInItsOwnTable",
                 "variant,measurement,min,max,unit,value\nEU,fm,1,2,,\nEU,volume,1,2,,\nEU,variant,,,,JP\n",
                 "4:10: limits.csv:4: expected a parameter of the plan, got 'variant'"},
        BadTable{"OpenQuote", HEADING "EU,\"fm,87.5,108,MHz\n", "4:10: limits.csv:2: expected a closing quote"},
        BadTable{"Plan", "schema = 1\nname = \"test\"\n", "4:10: limits.csv:1: expected the columns"}),
    [](const auto& row) { return row.param.name; });

TEST_F(LimitTableTest, RowWithFewCellsIsNotADecimalComma)
{
    EXPECT_THAT(problems(HEADING "EU,fm,87.5\n"),
                ElementsAre("plan.toml:4:10: limits.csv:2: expected 5 cells, as in the first line, got 3"));
}

TEST_F(LimitTableTest, ManyWrongRowsAreAFewProblems)
{
    std::string csv = GOOD;
    for (int i = 0; i < 100'000; ++i) {
        csv += "EU,m" + std::to_string(i) + ",1,2,\n";
    }

    EXPECT_THAT(problems(csv), SizeIs(10));
}

TEST_F(LimitTableTest, VariantsAreLimitedInNumber)
{
    std::string csv = GOOD;
    for (int i = 0; i < 1'000; ++i) {
        csv += "V" + std::to_string(i) + ",fm,1,2,\n";
    }

    EXPECT_THAT(problems(csv),
                ElementsAre("plan.toml:4:10: limits.csv:1003: expected at most 1000 variants, got more"));
}

TEST_F(LimitTableTest, MillionRowsAreTooMany)
{
    std::string csv = HEADING;
    for (int i = 0; i < 1'000'000; ++i) {
        csv += "EU,fm,1,2,\n";
    }

    EXPECT_THAT(problems(csv).front(), HasSubstr("plan.toml:4:10: limits.csv: "));
    EXPECT_FALSE(loaded.plan);
}

TEST_F(LimitTableTest, BytesOfAnyKindDoNotHurt)
{
    const std::string good = kGood;
    for (std::size_t i = 0; i < good.size(); ++i) {
        for (const char c : {'\0', '"', '\n', '\xFF', '-', ','}) {
            std::string bad = good;
            bad[i] = c;
            problems(bad);
        }
        problems(good.substr(0, i));
    }
    EXPECT_THAT(problems(good), IsEmpty());
}

TEST_F(LimitTableTest, PlanIsNotATableForItself)
{
    std::string csv = text;
    text.replace(text.find("limits.csv"), 10, "plan.toml");
    EXPECT_THAT(problems("").front(), StartsWith("plan.toml:4:10: plan.toml: no such file"));
    text.replace(text.find("\"plan.toml\""), 11, "\"limits.csv\"");

    EXPECT_THAT(problems(text).front(), StartsWith("plan.toml:4:10: limits.csv:1: expected the columns"));
}

/// Limits and parameters in a run.
class RunnerLimitsTest : public RunnerTest
{
protected:
    RunnerLimitsTest()
    {
        on[0x0201] = [this](const Frame&) { reply(0x82, 0x01, {0x22, 0x2E}); };  // 8750
    }

    const record::Measurement& measured(std::size_t index) const
    {
        return step(index).attempts.back().measurements.at(0);
    }
};

TEST_F(RunnerLimitsTest, StoredValueMakesALimitWhichTheRecordShows)
{
    runSteps(R"x(
        { send = "tuner.frequency", store = "before" },
        { send = "tuner.frequency", expect = { frequency = { min = "${before} - 5", max = "${before} + 5" } } },
        { send = "tuner.frequency", expect = { frequency = { min = "${before} + 0.1", unit = "MHz" } } },
        { send = "tuner.frequency", expect = { frequency = { max = "1 / (${before} - 8750)" } } },
        { send = "tuner.frequency", expect = { frequency = { min = "${before} + 5", max = "${before}" } } },
        { send = "tuner.frequency", expect = { frequency = { min = 8750, max = "${before}" } } },
    )x");

    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass);
    EXPECT_EQ(measured(1).limits.minimum, 8745);
    EXPECT_EQ(measured(1).limits.maximum, 8755);
    EXPECT_EQ(verdictOf(step(2)), Verdict::kFail);
    EXPECT_EQ(measured(2).limits.minimum, 87.6);
    EXPECT_EQ(measured(2).unit, "MHz on FM");
    EXPECT_EQ(verdictOf(step(3)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(3)),
              "frequency: 'max': expected a number, got a division by zero or a number too large from "
              "'1 / (${before} - 8750)'");
    EXPECT_EQ(verdictOf(step(4)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(4)), "frequency: 'max': expected at least 8755, got 8750");
    EXPECT_EQ(verdictOf(step(5)), Verdict::kPass) << reasonOf(step(5));
}

TEST_F(RunnerLimitsTest, AnswerWithTextIsNoLimit)
{
    prompter.answers = {{"nominal", "87.5"}, {"label", "HU7"}};
    runSteps(R"(
        { prompt = "N?", id = "nominal", answer = "number", expect = { min = 1, unit = "MHz" }, store = "nominal" },
        { send = "tuner.frequency", expect = { frequency = { min = "${nominal} - 100 kHz", max = "${nominal}", unit = "MHz" } } },
        { send = "tuner.frequency", store = "twice", keep = "all" },
        { send = "tuner.frequency", store = "twice", keep = "all" },
        { send = "tuner.frequency", expect = { frequency = { min = "${twice}" } } },
    )");

    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
    EXPECT_EQ(measured(1).limits.minimum, 87.4);
    EXPECT_EQ(measured(1).limits.maximum, 87.5);
    EXPECT_EQ(verdictOf(step(4)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(4)), "frequency: 'min': expected a number as 'twice', got a text");
}

TEST_F(RunnerLimitsTest, ParameterIsAVariableOfEveryStepAndStandsInTheRecord)
{
    runText(R"(
[parameters]
limit = { type = "number", default = "87600 kHz", unit = "MHz", help = "The highest" }
line = { type = "text", default = "B+1" }
[[main]]
name = "G"
steps = [
  { send = "tuner.frequency", expect = { frequency = { max = "${limit} - 0.1", unit = "MHz" } } },
  { send = "tuner.frequency", expect = { frequency = "${limit}" } },
  { send = "other.flag", only_if = { line = { "!=" = "B+1" } } },
  { send = "other.flag", only_if = { limit = { "<" = 80 } } },
  { pause = 0.001, only_if = { limit = { "<" = "88000 kHz", in = ["87600 kHz", 1] } } },
  { prompt = "?", id = "q", answer = "text", expect = { matches = "${line}." } },
]
)");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass);
    EXPECT_EQ(measured(0).limits.maximum, 87.5);
    EXPECT_EQ(reasonOf(step(1)), "frequency: expected 87.6 MHz on FM, got 87.5 MHz on FM");
    EXPECT_EQ(verdictOf(step(2)), Verdict::kSkipped);
    EXPECT_EQ(verdictOf(step(3)), Verdict::kSkipped);
    EXPECT_EQ(verdictOf(step(4)), Verdict::kPass) << "compared in the parameter's unit";
    using Parameter = record::Run::Parameter;
    EXPECT_THAT(result.run.plan.parameters, ElementsAre(Parameter{"limit", 87.6, "MHz", "default"},
                                                        Parameter{"line", std::string("B+1"), "", "default"}));
}

TEST_F(RunnerLimitsTest, ParameterOfASecretFieldIsMasked)
{
    const Plan plan = planOf(R"(
[parameters]
password = { type = "text", default = "4711" }
pattern = { type = "text", default = "4712" }
[[main]]
name = "G"
steps = [
  { send = "identity.write-password-number", with = { value = "${password}" } },
  { send = "identity.password-number", expect = { value = { matches = "${pattern}" } } },
  { send = "identity.password-number", store = "stored" },
  { send = "identity.write-password-number", with = { value = "${password}-0${stored}" } },
  { send = "test.mode", only_if = { stored = "${password}" } },
  { send = "test.mode", only_if = { stored = { in = ["815", "${password}${stored}"] } } },
]
)");

    EXPECT_EQ(plan.main.at(0).steps.at(0).what, "identity.write-password-number value=****");
    EXPECT_EQ(shownValue(plan.parameters.at(0)), "****");
    EXPECT_EQ(shownValue(plan.parameters.at(1)), "****");
    EXPECT_EQ(plan.main[0].steps.at(3).what, "identity.write-password-number value=${password}**${stored}");
    const Condition& equal = plan.main[0].steps.at(4).onlyIf.at(0);
    EXPECT_EQ(equal.text, "stored = ****");
    EXPECT_THAT(equal.values, ElementsAre("4711"));
    EXPECT_EQ(plan.main[0].steps.at(5).onlyIf.at(0).text, "stored in ***, ${password}${stored}");
}

}  // namespace
}  // namespace station::plan::tests
