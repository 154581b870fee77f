#include "station/plan/Judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "protocol/Errors.h"

namespace station::plan {
namespace {

namespace catalogue = protocol::catalogue;
using catalogue::DecodedField;
using catalogue::Field;
using catalogue::Type;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr catalogue::Choice kBands[] = {{0, "fm"}, {5, "dab"}};
constexpr Field kBand{.name = "band", .type = Type::kU8, .maximum = 255, .choices = kBands, .open = false};
constexpr Field kFrequency{.name = "frequency",
                           .type = Type::kU16be,
                           .unit = "10 kHz",
                           .scale = catalogue::Scale{0.01, "MHz", ""},
                           .maximum = 65535};
constexpr Field kName{.name = "name", .type = Type::kAscii, .maximum = 20};
constexpr Field kMac{.name = "mac", .type = Type::kHexText, .minimum = 12, .maximum = 12};
constexpr Field kAddress{.name = "address", .type = Type::kBytes, .maximum = 6};
constexpr Field kPassword{.name = "password", .type = Type::kAscii, .maximum = 20, .secret = true};
constexpr Field kList{.name = "list", .type = Type::kRecords, .maximum = 9};

/// @returns the judgement of one field by one expectation.
Judgement judgeOne(const DecodedField& field, Expected expected, const Variables& variables = {})
{
    expected.name = field.field->name;
    expected.field = field.field;
    return judge({&expected, 1}, {&field, 1}, variables);
}

struct Limits {
    std::optional<double> minimum;
    std::optional<double> maximum;
    bool scaled;
    bool passes;
};

TEST(Judge, LimitsIncludeTheirEnds)
{
    const Limits rows[] = {
        {8750, 8750, false, true}, {8750, {}, false, true},    {{}, 8750, false, true},    {8751, {}, false, false},
        {{}, 8749, false, false},  {8751, 9000, false, false}, {8000, 8749, false, false}, {87.5, 87.5, true, true},
        {87.51, {}, true, false},  {{}, 87.49, true, false},
    };
    for (const auto& [minimum, maximum, scaled, passes] : rows) {
        Expected expected;
        expected.minimum = minimum;
        expected.maximum = maximum;
        expected.scaled = scaled;
        const Judgement judgement = judgeOne({&kFrequency, std::int64_t{8750}, {}}, expected);

        ASSERT_THAT(judgement.measurements, SizeIs(1));
        const auto& measured = judgement.measurements[0];
        EXPECT_EQ(measured.passed, passes) << judgement.reason();
        EXPECT_EQ(judgement.misses.empty(), passes);
        EXPECT_EQ(std::get<double>(measured.value), scaled ? 87.5 : 8750);
        EXPECT_EQ(measured.limits.minimum, minimum);
        EXPECT_EQ(measured.limits.maximum, maximum);
        EXPECT_EQ(measured.unit, "10 kHz");
    }
}

TEST(Judge, ValueIsInTheUnitOfItsScaleUnlessItsLimitsAreNot)
{
    static constexpr Field kOnFm{.name = "frequency",
                                 .type = Type::kU16be,
                                 .unit = "10 kHz on FM",
                                 .scale = catalogue::Scale{0.01, "MHz", "on FM"},
                                 .maximum = 65535};
    Expected expected;
    expected.unit = kOnFm.unit;

    const auto free = judge({}, {{{&kOnFm, std::int64_t{8750}, {}}}}, {}).measurements.at(0);
    EXPECT_EQ(std::get<double>(free.value), 87.5);
    EXPECT_EQ(free.unit, "MHz on FM");
    expected.equals = "9470";
    EXPECT_EQ(judgeOne({&kOnFm, std::int64_t{8750}, {}}, expected).reason(),
              "frequency: expected 94.7 MHz on FM, got 87.5 MHz on FM");
    expected.equals.reset();
    expected.minimum = 9000;
    EXPECT_EQ(judgeOne({&kOnFm, std::int64_t{8750}, {}}, expected).reason(),
              "frequency: expected at least 9000 × 10 kHz on FM, got 8750 × 10 kHz on FM");
}

TEST(Judge, RoundingOfAScaleIsNotADifference)
{
    EXPECT_TRUE(isAtMost(8707 * 0.01, 87.07));
    EXPECT_TRUE(isAtMost(87.07, 8707 * 0.01));
    EXPECT_TRUE(isAtMost(-8707 * 0.01, -87.07));
    EXPECT_FALSE(isAtMost(4294967295.0, 4294967294.0));
    EXPECT_FALSE(isAtMost(1e-6, 0));
    EXPECT_TRUE(isAtMost(0, 0));
    EXPECT_TRUE(isAtMost(1, std::numeric_limits<double>::infinity()));
    EXPECT_FALSE(isAtMost(1, -std::numeric_limits<double>::infinity()));
}

TEST(Judge, EqualsComparesTheValueThatTheTextMeans)
{
    struct Row {
        DecodedField field;
        const char* equals;
        bool passes;
    };
    const Row rows[] = {
        {{&kBand, std::int64_t{5}, {}}, "dab", true},
        {{&kBand, std::int64_t{5}, {}}, "5", true},
        {{&kBand, std::int64_t{5}, {}}, "fm", false},
        {{&kFrequency, std::int64_t{8750}, {}}, "87.5MHz", true},
        {{&kFrequency, std::int64_t{8750}, {}}, "8751", false},
        {{&kName, std::string("HU 7"), {}}, "HU 7", true},
        {{&kName, std::string("HU 7"), {}}, "${name}", true},
        {{&kName, std::string("HU 7"), {}}, "hu 7", false},
        {{&kName, std::string(), {}}, "", true},
        {{&kMac, std::string("001a7dda71ff"), {}}, "001A7DDA71FF", true},
        {{&kMac, std::string("001a7dda71ff"), {}}, "001A7DDA71FE", false},
        {{&kAddress, std::vector<std::uint8_t>{1, 2}, {}}, "01 02", true},
        {{&kAddress, std::vector<std::uint8_t>{1, 2}, {}}, "01", false},
        {{&kAddress, std::vector<std::uint8_t>{}, {}}, "", true},
    };
    for (const auto& [field, equals, passes] : rows) {
        Expected expected;
        expected.equals = equals;
        const Judgement judgement = judgeOne(field, expected, {{"name", "HU 7"}});

        EXPECT_EQ(judgement.misses.empty(), passes) << field.field->name << ' ' << equals << ' ' << judgement.reason();
        EXPECT_EQ(judgement.measurements.at(0).passed, passes);
        EXPECT_TRUE(judgement.measurements[0].limits.equals.has_value());
    }
}

TEST(Judge, PatternHoldsForTheTextAndVariablesStandForThemselves)
{
    Expected expected;
    expected.matches = "HU-${number}[0-9]";

    EXPECT_THAT(judgeOne({&kName, std::string("HU-1.7"), {}}, expected, {{"number", "1."}}).misses, IsEmpty());
    const Judgement missed = judgeOne({&kName, std::string("HU-127"), {}}, expected, {{"number", "1."}});
    EXPECT_THAT(missed.misses, ElementsAre(AllOf(HasSubstr("name"), HasSubstr("HU-127"))));
    EXPECT_TRUE(missed.measurements.at(0).limits.matches.has_value());
}

TEST(Judge, EveryDemandThatFailsIsNamed)
{
    Expected expected;
    expected.minimum = 9000;
    expected.equals = "9001";

    const Judgement judgement = judgeOne({&kFrequency, std::int64_t{8750}, {}}, expected);

    ASSERT_THAT(judgement.misses, SizeIs(1));
    EXPECT_THAT(judgement.reason(), AllOf(HasSubstr("9000"), HasSubstr("9001"), HasSubstr("8750"), HasSubstr(" and ")));
}

TEST(Judge, FieldWithoutExpectationIsMeasuredAndMissesOutsideOfTheCatalogue)
{
    const DecodedField fields[] = {{&kBand, std::int64_t{5}, {}}, {&kFrequency, std::int64_t{1}, "too low"}};

    const Judgement judgement = judge({}, fields, {});

    ASSERT_THAT(judgement.measurements, SizeIs(2));
    EXPECT_EQ(std::get<std::string>(judgement.measurements[0].value), "dab");
    EXPECT_TRUE(judgement.measurements[0].passed);
    EXPECT_FALSE(judgement.measurements[1].passed);
    EXPECT_EQ(judgement.measurements[1].name, "frequency");
    EXPECT_THAT(judgement.misses, ElementsAre(HasSubstr("too low")));
}

TEST(Judge, FieldThatMustNotBeThereMisses)
{
    Expected absent;
    absent.present = false;
    Expected present;
    present.present = true;

    const Judgement judgement = judgeOne({&kName, std::string("x"), {}}, absent);
    EXPECT_THAT(judgement.misses, ElementsAre("name: expected no value, got \"x\""));
    EXPECT_FALSE(judgement.measurements.at(0).passed);
    EXPECT_THAT(judgeOne({&kName, std::string("x"), {}}, present).misses, IsEmpty());
}

TEST(Judge, FieldThatIsMissingMissesUnlessItMayBe)
{
    const auto missing = [](Expected expected) {
        expected.name = "name";
        expected.field = &kName;
        expected.unit = "V";
        return judge({&expected, 1}, {}, {{"none", ""}, {"one", "1"}});
    };
    Expected expected;
    EXPECT_THAT(missing(expected).misses, ElementsAre(HasSubstr("name")));
    EXPECT_FALSE(missing(expected).measurements.at(0).passed);
    EXPECT_EQ(missing(expected).measurements[0].unit, "V");
    expected.present = true;
    EXPECT_THAT(missing(expected).misses, SizeIs(1));
    expected.present = false;
    EXPECT_THAT(missing(expected).measurements, IsEmpty());
    expected.present = {};
    expected.equals = "${none}";
    EXPECT_THAT(missing(expected).misses, IsEmpty());
    EXPECT_TRUE(missing(expected).measurements.at(0).passed);
    expected.equals = "${one}";
    expected.matches = "[0-9]";
    const Judgement judgement = missing(expected);
    EXPECT_THAT(judgement.misses, SizeIs(1));
    EXPECT_EQ(std::get<std::string>(*judgement.measurements.at(0).limits.equals), "1");
    EXPECT_EQ(judgement.measurements[0].limits.matches, "[0-9]");
}

TEST(Judge, SecretIsMaskedInValuesLimitsAndReasons)
{
    Expected expected;
    expected.equals = "geheim";
    expected.matches = "gehei[n]";

    const Judgement judgement = judgeOne({&kPassword, std::string("1234"), {}}, expected);
    EXPECT_EQ(std::get<std::string>(judgement.measurements.at(0).value), "****");
    EXPECT_EQ(std::get<std::string>(*judgement.measurements[0].limits.equals), "******");
    EXPECT_THAT(judgement.reason(), AllOf(Not(HasSubstr("gehei")), Not(HasSubstr("1234"))));

    expected.name = "password";
    expected.field = &kPassword;
    const Judgement missing = judge({&expected, 1}, {}, {});
    EXPECT_EQ(std::get<std::string>(*missing.measurements.at(0).limits.equals), "******");
    EXPECT_THAT(*missing.measurements[0].limits.matches, Not(HasSubstr("gehei")));
}

Prompt question(Prompt::Kind kind, std::optional<Expected> expect)
{
    return {"q", "?", kind, {}, {}, {}, std::move(expect), {}, Keep::kLast, false, false};
}

TEST(JudgeAnswer, YesOrNoIsComparedWithTheExpectedOne)
{
    Expected yes;
    yes.equals = "yes";

    const Judgement passed = judge(question(Prompt::Kind::kYesNo, yes), "yes", {});
    EXPECT_THAT(passed.misses, IsEmpty());
    EXPECT_TRUE(std::get<bool>(passed.measurements.at(0).value));
    EXPECT_TRUE(std::get<bool>(*passed.measurements[0].limits.equals));
    const Judgement failed = judge(question(Prompt::Kind::kYesNo, yes), "no", {});
    EXPECT_THAT(failed.misses, ElementsAre(AllOf(HasSubstr("q"), HasSubstr("yes"), HasSubstr("no"))));
    EXPECT_FALSE(failed.measurements.at(0).passed);
    EXPECT_FALSE(std::get<bool>(failed.measurements[0].value));
    EXPECT_THAT(judge(question(Prompt::Kind::kYesNo, {}), "no", {}).misses, IsEmpty());
}

TEST(JudgeAnswer, NumberIsComparedWithItsLimits)
{
    Expected limits;
    limits.minimum = 13;
    limits.maximum = 14;
    limits.unit = "V";
    for (const auto& [answer, passes] : {std::pair{"13", true}, {"14", true}, {"12.9", false}, {"14.1", false}}) {
        const Judgement judgement = judge(question(Prompt::Kind::kNumber, limits), answer, {});
        EXPECT_EQ(judgement.misses.empty(), passes) << answer;
        const auto& measured = judgement.measurements.at(0);
        EXPECT_EQ(measured.passed, passes);
        EXPECT_EQ(measured.name + measured.unit, "qV");
        EXPECT_EQ(std::get<double>(measured.value), std::stod(answer));
        EXPECT_EQ(measured.limits.minimum, 13);
        EXPECT_EQ(measured.limits.maximum, 14);
    }
    EXPECT_THAT(judge(question(Prompt::Kind::kNumber, {}), "99", {}).misses, IsEmpty());
}

TEST(JudgeAnswer, TextIsComparedWithTheTextAndThePattern)
{
    Expected expected;
    expected.equals = "HU${n}";
    expected.matches = "HU[0-${n}]";
    const Variables variables{{"n", "7"}};

    const Judgement passed = judge(question(Prompt::Kind::kText, expected), "HU7", variables);
    EXPECT_THAT(passed.misses, IsEmpty());
    EXPECT_EQ(std::get<std::string>(passed.measurements.at(0).value), "HU7");
    EXPECT_EQ(std::get<std::string>(*passed.measurements[0].limits.equals), "HU7");
    EXPECT_EQ(passed.measurements[0].limits.matches, "HU[0-7]");
    EXPECT_THAT(judge(question(Prompt::Kind::kText, expected), "HU6", variables).misses,
                ElementsAre(AllOf(HasSubstr("HU7"), HasSubstr("HU6"))));
    expected.equals = {};
    EXPECT_THAT(judge(question(Prompt::Kind::kText, expected), "HU6", variables).misses, IsEmpty());
    EXPECT_THAT(judge(question(Prompt::Kind::kText, expected), "HU8", variables).misses, SizeIs(1));
    EXPECT_THAT(judge(question(Prompt::Kind::kText, {}), "any", {}).misses, IsEmpty());
}

TEST(JudgeAnswer, SecretIsMasked)
{
    Expected expected;
    expected.equals = "geheim";
    Prompt prompt = question(Prompt::Kind::kText, expected);
    prompt.secret = true;

    const Judgement judgement = judge(prompt, "1234", {});
    EXPECT_EQ(std::get<std::string>(judgement.measurements.at(0).value), "****");
    EXPECT_FALSE(judgement.measurements[0].limits.equals);
    EXPECT_FALSE(judgement.measurements[0].passed);
    EXPECT_THAT(judgement.reason(), AllOf(HasSubstr("q"), Not(HasSubstr("1234")), Not(HasSubstr("geheim"))));
    EXPECT_THAT(judge(prompt, "geheim", {}).misses, IsEmpty());
}

TEST(Mistyped, IsOnlyATextThatDoesNotMatchItsPattern)
{
    Expected expected;
    expected.matches = "HU${n}[0-9]";
    Prompt prompt = question(Prompt::Kind::kText, expected);
    const Variables variables{{"n", "."}};

    EXPECT_EQ(mistyped(prompt, "HU.7", variables), "");
    EXPECT_EQ(mistyped(prompt, "HU17", variables), R"(expected a text that matches /HU\.[0-9]/, got 'HU17')");
    prompt.secret = true;
    EXPECT_EQ(mistyped(prompt, "HU17", variables), "expected another text (masked)");
    EXPECT_EQ(mistyped(prompt, "HU.7", variables), "");
    expected.matches = {};
    expected.equals = "HU7";
    EXPECT_EQ(mistyped(question(Prompt::Kind::kText, expected), "HU8", variables), "");
    EXPECT_EQ(mistyped(question(Prompt::Kind::kText, {}), "HU8", variables), "");
    expected.matches = "yes";
    EXPECT_EQ(mistyped(question(Prompt::Kind::kYesNo, expected), "no", variables), "");
}

constexpr Field kSatellite[] = {{.name = "number", .type = Type::kU8, .maximum = 255},
                                {.name = "signal", .type = Type::kU24be, .unit = "dB", .maximum = 99}};
constexpr Field kSatellites{.name = "satellites", .type = Type::kRecords, .maximum = 20, .fields = kSatellite};

/// @returns the list as a frame has it: number and signal of each.
DecodedField satellites(const std::vector<std::pair<int, int>>& list)
{
    std::vector<catalogue::Record> records;
    for (const auto& [number, signal] : list) {
        records.push_back({{&kSatellite[0], std::int64_t{number}, {}}, {&kSatellite[1], std::int64_t{signal}, {}}});
    }
    return {&kSatellites, std::move(records), {}};
}

/// @returns the demand on the records whose signal is 30 dB or more.
Expected strong(Records records)
{
    Expected signal;
    signal.name = "signal";
    signal.field = &kSatellite[1];
    signal.unit = "dB";
    signal.minimum = 30;
    Expected expected;
    expected.records = records;
    expected.where = {signal};
    return expected;
}

TEST(JudgeRecords, CountIsTheMeasurementAndAMissNamesTheRecords)
{
    Expected expected = strong(Records::kCount);
    expected.minimum = 2;
    expected.maximum = 3;

    const Judgement passed = judgeOne(satellites({{5, 35}, {9, 30}, {12, 29}}), expected);
    EXPECT_THAT(passed.misses, IsEmpty());
    ASSERT_THAT(passed.measurements, SizeIs(1));
    const auto& measured = passed.measurements[0];
    EXPECT_EQ(measured.name, "satellites");
    EXPECT_EQ(std::get<double>(measured.value), 2);
    EXPECT_EQ(measured.limits.minimum, 2);
    EXPECT_EQ(measured.limits.maximum, 3);
    EXPECT_TRUE(measured.passed);

    const Judgement failed = judgeOne(satellites({{5, 35}, {9, 20}, {12, 29}}), expected);
    EXPECT_FALSE(failed.measurements.at(0).passed);
    EXPECT_EQ(failed.reason(),
              "satellites: expected 2 to 3 with signal at least 30 dB, got 1 of 3: [{number=5 signal=35 dB}]");
    EXPECT_EQ(judgeOne(satellites({{5, 20}}), expected).reason(),
              "satellites: expected 2 to 3 with signal at least 30 dB, got none of [{number=5 signal=20 dB}]");
    EXPECT_THAT(judgeOne(satellites({{1, 30}, {2, 30}, {3, 30}, {4, 30}}), expected).misses, SizeIs(1));
}

TEST(JudgeRecords, CountMayBeExactAndOfAllRecords)
{
    Expected expected;
    expected.records = Records::kCount;
    expected.equals = "${n}";

    EXPECT_EQ(judgeOne(satellites({{5, 35}}), expected, {{"n", "1"}}).reason(), "");
    EXPECT_EQ(judgeOne(satellites({{5, 35}}), expected, {{"n", "2"}}).reason(),
              "satellites: expected 2, got 1 of 1: [{number=5 signal=35 dB}]");
    EXPECT_EQ(judgeOne(satellites({}), expected, {{"n", "0"}}).reason(), "");
    EXPECT_THROW(judgeOne(satellites({}), expected, {{"n", "left"}}), protocol::UserError);
    EXPECT_THROW(judgeOne(satellites({}), expected), protocol::UserError);
}

TEST(JudgeRecords, AnyNeedsOneRecordThatMatches)
{
    Expected expected = strong(Records::kAny);
    expected.minimum = 1;

    EXPECT_THAT(judgeOne(satellites({{5, 20}, {9, 30}}), expected).misses, IsEmpty());
    EXPECT_THAT(judgeOne(satellites({{5, 20}, {9, 29}}), expected).misses, SizeIs(1));
    EXPECT_EQ(judgeOne(satellites({}), expected).reason(),
              "satellites: expected at least 1 with signal at least 30 dB, got an empty list");
}

TEST(JudgeRecords, AllNeedsARecordAndEveryRecordToMatch)
{
    const Expected expected = strong(Records::kAll);

    const Judgement passed = judgeOne(satellites({{5, 40}, {9, 30}}), expected);
    EXPECT_THAT(passed.misses, IsEmpty());
    EXPECT_EQ(std::get<double>(passed.measurements.at(0).value), 2);
    EXPECT_EQ(passed.measurements[0].limits.minimum, 2);
    EXPECT_EQ(judgeOne(satellites({{5, 35}, {9, 30}, {12, 29}}), expected).reason(),
              "satellites: expected all with signal at least 30 dB, got 2 of 3, not [{number=12 signal=29 dB}]");
    EXPECT_EQ(judgeOne(satellites({}), expected).reason(),
              "satellites: expected all with signal at least 30 dB, got an empty list");
}

TEST(JudgeRecords, AllDemandsOnARecordHoldForOneRecord)
{
    Expected expected = strong(Records::kAny);
    expected.minimum = 1;
    Expected number;
    number.name = "number";
    number.field = &kSatellite[0];
    number.equals = "${n}";
    expected.where.push_back(number);

    EXPECT_THAT(judgeOne(satellites({{5, 20}, {9, 30}}), expected, {{"n", "9"}}).misses, IsEmpty());
    EXPECT_EQ(judgeOne(satellites({{5, 20}, {9, 30}}), expected, {{"n", "5"}}).reason(),
              "satellites: expected at least 1 with signal at least 30 dB and number 5, got none of "
              "[{number=5 signal=20 dB}, {number=9 signal=30 dB}]");
}

TEST(JudgeRecords, ListWithAProblemFails)
{
    Expected expected = strong(Records::kAny);
    expected.minimum = 1;
    DecodedField field = satellites({{5, 40}});
    field.problem = "expected 2 records, got 1";

    const Judgement judgement = judgeOne(field, expected);
    EXPECT_EQ(judgement.reason(), "satellites: expected 2 records, got 1");
    EXPECT_FALSE(judgement.measurements.at(0).passed);
}

TEST(JudgeRecords, FrameWithoutTheListFails)
{
    Expected expected = strong(Records::kCount);
    expected.minimum = 4;
    expected.name = "satellites";
    expected.field = &kSatellites;

    EXPECT_EQ(judge({&expected, 1}, {}, {}).reason(),
              "satellites: expected at least 4, got a reply without this field");
}

TEST(Literal, MayBeUtf8OfTheFieldsSize)
{
    static constexpr Field kShort{.name = "name", .type = Type::kAscii, .minimum = 3, .maximum = 4};

    EXPECT_EQ(std::get<std::string>(literal(kShort, "\u00FCx")), "\u00FCx");
    EXPECT_EQ(std::get<std::string>(literal(kShort, "\u00FC\u00FC")), "\u00FC\u00FC");
    EXPECT_THROW(literal(kShort, "\u00FC"), protocol::UserError);
    EXPECT_THROW(literal(kShort, "\u00FC\u00FCx"), protocol::UserError);
    EXPECT_THROW(literal(kShort, "a\nb"), protocol::UserError);
}

TEST(Literal, IsTheValueOfTheField)
{
    EXPECT_EQ(std::get<std::int64_t>(literal(kBand, "dab")), 5);
    EXPECT_EQ(std::get<std::string>(literal(kMac, "001a7dda71ff")), "001a7dda71ff");
    EXPECT_EQ(std::get<std::string>(literal(kMac, "")), "");
    EXPECT_THAT(std::get<std::vector<std::uint8_t>>(literal(kAddress, "")), IsEmpty());
    EXPECT_THROW(literal(kBand, ""), protocol::UserError);
    EXPECT_THROW(literal(kBand, "9"), protocol::UserError);
    EXPECT_THROW(literal(kList, "1"), protocol::UserError);
}

TEST(Written, IsWhatAUserWouldWrite)
{
    EXPECT_EQ(written({&kBand, std::int64_t{5}, {}}), "5");
    EXPECT_EQ(written({&kName, std::string("HU 7"), {}}), "HU 7");
    EXPECT_EQ(written({&kAddress, std::vector<std::uint8_t>{0, 0x1A}, {}}), "00 1A");
}

TEST(Same, NeedsValuesOfOneKind)
{
    EXPECT_FALSE(same(kName, std::string("1"), std::int64_t{1}));
    EXPECT_FALSE(same(kMac, std::string("1"), std::int64_t{1}));
    EXPECT_FALSE(same(kMac, std::int64_t{1}, std::string("1")));
    EXPECT_FALSE(same(kList, std::vector<catalogue::Record>{}, std::vector<catalogue::Record>{}));
    EXPECT_TRUE(same(kMac, std::string("azAZ@[`{"), std::string("AZaz@[`{")));
    EXPECT_FALSE(same(kMac, std::string("@"), std::string("`")));
    EXPECT_FALSE(same(kMac, std::string("{"), std::string("[")));
}

}  // namespace
}  // namespace station::plan
