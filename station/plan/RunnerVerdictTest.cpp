#include <fmt/format.h>

#include "station/plan/RunnerTest.h"
#include "station/record/RecordJson.h"
#include "station/record/ValueText.h"

namespace station::plan::tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

// 0201: ask for the frequency, answered by 82 01 [high low]; 0FFF: ask for the mode, answered by 8F FF [0 or 1].
constexpr unsigned kFrequency = 0x0201;
constexpr unsigned kMode = 0x0FFF;
constexpr const char* kAsk = R"({ send = "tuner.frequency", timeout = 0.05 })";

TEST_F(RunnerTest, ReplyWithinItsLimitsPassesAndIsMeasured)
{
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x22, 0x2E}); };

    const auto& run =
        runSteps(R"({ send = "tuner.frequency", expect = { frequency = { min = 87, max = 88, unit = "MHz" } } })");

    EXPECT_EQ(verdictOf(run), Verdict::kPass) << headlineOf(run).reason;
    ASSERT_THAT(step(0).attempts, SizeIs(1));
    const auto& attempt = step(0).attempts[0];
    ASSERT_THAT(attempt.measurements, SizeIs(1));
    EXPECT_EQ(std::get<double>(attempt.measurements[0].value), 87.5);
    EXPECT_EQ(attempt.measurements[0].unit, "MHz on FM");
    EXPECT_EQ(attempt.measurements[0].limits.minimum, 87);
    EXPECT_TRUE(attempt.measurements[0].passed);
    EXPECT_EQ(attempt.events, (record::EventRange{0, 2}));
    EXPECT_EQ(run.events.kept().at(1).frame, (Frame{0x82, 0x01, {0x22, 0x2E}}));
    // 8 bytes there, 10 back, 10 bits each at 115200 baud
    EXPECT_EQ(attempt.wireTime, 1'562'500ns);
    EXPECT_THAT(run.events.kept(), SizeIs(2));
}

TEST_F(RunnerTest, ReplyBeyondItsLimitsFailsWithWhatCameAndWhatWasExpected)
{
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x24, 0xFE}); };

    const auto& run = runSteps(
        R"({ send = "tuner.frequency", expect = { frequency = { min = 8700, max = 8800, unit = "10 kHz" } } })");

    EXPECT_EQ(verdictOf(run), Verdict::kFail);
    EXPECT_THAT(reasonOf(step(0)),
                HasSubstr("frequency: expected 8700 to 8800 × 10 kHz on FM, got 9470 × 10 kHz on FM"));
    EXPECT_EQ(headlineOf(run).reason, "G / tuner.frequency: " + reasonOf(step(0)));
}

TEST_F(RunnerTest, ScaledValueAtItsLimitPassesAndTheNextOneFails)
{
    // 8707 * 0.01 is 87.07000000000001 in binary
    std::uint8_t low = 0x03;
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x22, low++}); };

    runSteps(R"(
        { send = "tuner.frequency", expect = { frequency = { min = 87.07, max = 87.07, unit = "MHz" } } },
        { send = "tuner.frequency", expect = { frequency = { min = 87.07, max = 87.07, unit = "MHz" } } })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass) << reasonOf(step(0));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kFail);
}

TEST_F(RunnerTest, ExpectedValueIsRecordedInTheUnitOfTheMeasuredOne)
{
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x22, 0x2E}); };

    runSteps(R"({ send = "tuner.frequency", expect = { frequency = { equals = 8750, unit = "MHz" } } })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass) << reasonOf(step(0));
    const auto& measurement = step(0).attempts.at(0).measurements.at(0);
    EXPECT_EQ(std::get<double>(measurement.value), 87.5);
    ASSERT_TRUE(measurement.limits.equals);
    EXPECT_EQ(std::get<double>(*measurement.limits.equals), 87.5);
}

TEST_F(RunnerTest, VariableInAPatternStandsForItself)
{
    std::atomic<bool> renamed = false;
    on[0x040D] = [&](const Frame&) {
        reply(0x84, 0x0D,
              renamed ? std::vector<std::uint8_t>{'A', 'A', 'B'} : std::vector<std::uint8_t>{'A', '+', 'B'});
    };
    prompter.answers = {{"again", "A+B"}};
    prompter.beforeAnswering = [&] { renamed = true; };

    runSteps(R"(
        { send = "bluetooth.name", store = "name" },
        { send = "bluetooth.name", expect = { name = { matches = "${name}" } } },
        { prompt = "Again?", id = "again", answer = "text", expect = { matches = "${name}" } },
        { send = "bluetooth.name", expect = { name = { matches = "${name}" } } })");

    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
    EXPECT_EQ(verdictOf(step(2)), Verdict::kPass) << reasonOf(step(2));
    EXPECT_EQ(verdictOf(step(3)), Verdict::kFail);
}

TEST_F(RunnerTest, PatternOnALongAnswerNeitherHangsNorCrashes)
{
    prompter.answers = {{"long", std::string(20'000, 'a')}, {"again", std::string(20'000, 'a')}};

    runSteps(R"(
        { prompt = "?", id = "long", answer = "text", expect = { matches = "(a+)+b" } },
        { prompt = "?", id = "again", answer = "text", expect = { matches = "(.|x)*" } })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kFail);
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass);
}

TEST_F(RunnerTest, PatternMatchesBytesThatAreNotUtf8AsLatin1)
{
    on[0x040D] = [&](const Frame&) { reply(0x84, 0x0D, {0xFF, 0xFF, 0xFC}); };

    runSteps(R"(
        { send = "bluetooth.name", expect = { name = { matches = "ÿ{2}ü" } }, store = "name" },
        { send = "bluetooth.name", expect = { name = { matches = "${name}" } } },
        { send = "bluetooth.name", expect = { name = { matches = "[A-Z]*" } } })");

    EXPECT_THAT(reasonOf(step(0)), Not(HasSubstr("matches")));
    EXPECT_THAT(reasonOf(step(1)), Not(HasSubstr("matches")));
    EXPECT_THAT(reasonOf(step(2)), HasSubstr("expected a text that matches /[A-Z]*/"));
}

TEST_F(RunnerTest, PatternThatAVariableBreaksIsAnError)
{
    on[0x040D] = [&](const Frame&) { reply(0x84, 0x0D, {'2'}); };

    runSteps(R"(
        { send = "bluetooth.name", store = "name" },
        { send = "bluetooth.name", expect = { name = { matches = "[0-9]{5,${name}}" } } })");

    EXPECT_EQ(verdictOf(step(1)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(1)), "expected at most 1000 repetitions in all, the smaller number first, got '{5,2}'");
}

TEST_F(RunnerTest, SecretIsJudgedAndNowhereInTheRecord)
{
    // Long enough to be in no time stamp.
    static constexpr std::string_view kSecret = "739182645037";
    on[0x0A0F] = [&](const Frame&) { reply(0x8A, 0x0F, {kSecret.begin(), kSecret.end()}); };
    prompter.answers = {{"password", std::string(kSecret)}};

    const auto& run = runSteps(R"(
        { prompt = "Password number?", id = "password", answer = "text", expect = { matches = "[0-9]+" }, store = "password" },
        { send = "identity.write-password-number", with = { value = "${password}" } },
        { send = "identity.write-password-number", with = { value = "739182645037" } },
        { send = "identity.password-number", expect = { value = "${password}" } },
        { send = "identity.password-number", expect = { value = { matches = "(${password})?" } } },
        { send = "identity.password-number", expect = { value = "7391826450370" } },
        { send = "identity.password-number", expect = { value = { matches = "739182645037x" } } })");

    for (const std::size_t good : {0, 1, 2, 3, 4}) {
        EXPECT_EQ(verdictOf(step(good)), Verdict::kPass) << good;
    }
    EXPECT_EQ(reasonOf(step(5)), "value: expected \"*************\", got \"************\" (masked)");
    EXPECT_EQ(verdictOf(step(6)), Verdict::kFail);
    std::ostringstream written;
    record::writeJson(written, run, protocol::catalogue::groups());
    const std::string json = written.str();
    EXPECT_THAT(json, Not(HasSubstr(kSecret)));
    EXPECT_THAT(json, Not(HasSubstr("37 33 39 31 38 32")));
    EXPECT_THAT(json, HasSubstr("\"masked\": true"));
}

/// A limit and a value read the same in the reason, the reports and the record.
TEST_F(RunnerTest, ReasonShowsLimitAndValueAsTheReportsDo)
{
    on[0x090B] = [&](const Frame&) { reply(0x89, 0x0B, {0x00, 70}); };
    on[0x050B] = [&](const Frame&) { reply(0x85, 0x0B, {3}); };
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x24, 0xFE}); };

    runSteps(R"(
        { send = "car.speed", expect = { speed = 0 } },
        { send = "gps.antenna", expect = { state = "good" } },
        { send = "tuner.frequency", expect = { frequency = { min = 87, max = 88, unit = "MHz" } } })");

    EXPECT_EQ(reasonOf(step(0)), "speed: expected 0, got 70");
    EXPECT_EQ(reasonOf(step(1)), "state: expected \"good\", got 3");
    EXPECT_EQ(reasonOf(step(2)), "frequency: expected 87 to 88 MHz on FM, got 94.7 MHz on FM");
    for (const std::size_t each : {0, 1, 2}) {
        const auto& measurement = step(each).attempts.at(0).measurements.at(0);
        EXPECT_EQ(reasonOf(step(each)),
                  fmt::format("{}: expected {}, got {}", measurement.name, toText(measurement.limits, measurement.unit),
                              record::toText(measurement.value, measurement.unit)));
    }
}

TEST_F(RunnerTest, UnusualAddressAndNameInUtf8Pass)
{
    on[0x0407] = [&](const Frame&) { reply(0x84, 0x07, {0x00, 0x1A}); };
    on[0x0A12] = [&](const Frame&) { reply(0x8A, 0x12, {'n', 'o', 'n', 'e'}); };
    on[0x040D] = [&](const Frame&) { reply(0x84, 0x0D, {'Z', 0xC3, 0xBC, 'g'}); };

    const auto& run = runSteps(R"({ send = "bluetooth.address" }, { send = "identity.carplay-mac" },
        { send = "bluetooth.name", expect = { name = "Züg" } })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass) << reasonOf(step(0));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
    EXPECT_EQ(verdictOf(run), Verdict::kPass) << headlineOf(run).reason;
}

TEST_F(RunnerTest, YesOrNoIsStoredWithoutAVerdictWhenAnyAnswerWillDo)
{
    prompter.answers = {{"towbar", "no"}};
    on[0x040D] = [&](const Frame&) { reply(0x84, 0x0D, {'H', 'U'}); };

    runSteps(R"(
        { prompt = "Is there a tow bar?", id = "towbar", expect = "any", store = "towbar" },
        { send = "bluetooth.name", only_if = { towbar = "no" } },
        { send = "bluetooth.name", only_if = { towbar = "yes" } })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass) << reasonOf(step(0));
    const auto& measurement = step(0).attempts.at(0).measurements.at(0);
    EXPECT_FALSE(std::get<bool>(measurement.value));
    EXPECT_FALSE(any(measurement.limits));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
    EXPECT_EQ(verdictOf(step(2)), Verdict::kSkipped);
}

TEST_F(RunnerTest, EveryFieldThatMissesIsNamed)
{
    on[0x0502] = [&](const Frame&) { reply(0x85, 0x02, {0, 0, 0, 1, 0, 0, 0, 2}); };

    runSteps(R"({ send = "gps.position", expect = { latitude = 5, longitude = 6 } })");

    EXPECT_THAT(reasonOf(step(0)), HasSubstr("latitude: expected 5, got 1"));
    EXPECT_THAT(reasonOf(step(0)), HasSubstr("longitude: expected 6, got 2"));
}

TEST_F(RunnerTest, ChoicesTextsAndBytesAreCompared)
{
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {1}); };
    on[0x040D] = [&](const Frame&) { reply(0x84, 0x0D, {'H', 'U', '7'}); };
    on[0x0407] = [&](const Frame&) { reply(0x84, 0x07, {0x00, 0x1A, 0x7D, 0xDA, 0x71, 0x13}); };

    runSteps(R"(
        { send = "test.mode", expect = { mode = "on" } },
        { send = "test.mode", expect = { mode = "off" } },
        { send = "bluetooth.name", expect = { name = { matches = "HU[0-9]" } } },
        { send = "bluetooth.name", expect = { name = "HU8" } },
        { send = "bluetooth.address", expect = { address = "00:1a:7d:da:71:13" } },
        { send = "bluetooth.address", expect = { address = "00:1a:7d:da:71:14" } })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass) << reasonOf(step(0));
    EXPECT_EQ(reasonOf(step(1)), "mode: expected \"off\", got \"on\"");
    EXPECT_EQ(verdictOf(step(2)), Verdict::kPass) << reasonOf(step(2));
    EXPECT_EQ(reasonOf(step(3)), "name: expected \"HU8\", got \"HU7\"");
    EXPECT_EQ(verdictOf(step(4)), Verdict::kPass) << reasonOf(step(4));
    EXPECT_EQ(reasonOf(step(5)), "address: expected \"00 1A 7D DA 71 14\", got \"00 1A 7D DA 71 13\"");
}

TEST_F(RunnerTest, SilenceIsATimeoutThatSaysWhenTheUnitIsSilent)
{
    const auto& run = runSteps(kAsk);

    EXPECT_EQ(verdictOf(run), Verdict::kTimeout);
    EXPECT_EQ(reasonOf(step(0)),
              "expected the reply of tuner.frequency within 0.05 s, got none; the unit is silent without a tuner, or "
              "while auto-test mode is off");
}

TEST_F(RunnerTest, SilenceIsNotPutDownToAModeThatTheUnitHasSaidIsOn)
{
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {1}); };

    runSteps(std::string(R"({ send = "test.mode" }, )") + kAsk);

    EXPECT_EQ(
        reasonOf(step(1)),
        "expected the reply of tuner.frequency within 0.05 s, got none although auto-test mode is on; the unit is "
        "silent without a tuner");
}

TEST_F(RunnerTest, SilenceAfterTheModeWasSwitchedOffIsPutDownToThat)
{
    bool mode = true;
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {static_cast<std::uint8_t>(std::exchange(mode, false))}); };

    runSteps(R"({ send = "test.mode" }, { send = "test.mode" }, { send = "other.flag", timeout = 0.05 })");

    EXPECT_EQ(reasonOf(step(2)), "expected the reply of other.flag within 0.05 s, got none; is auto-test mode on?");
}

TEST_F(RunnerTest, NoiseInsteadOfAnAnswerIsATimeout)
{
    on[kFrequency] = [&](const Frame&) { unit.write({0x2A, 0x00, 0xA2, 0xFF, 0x55, 0x2A}); };

    EXPECT_EQ(verdictOf(runSteps(kAsk)), Verdict::kTimeout);
}

TEST_F(RunnerTest, WrongChecksumInsteadOfAnAnswerIsAnError)
{
    // the sum 04+82+01+22+2E = 00D7 wants FF29
    on[kFrequency] = [&](const Frame&) { unit.write({0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x22, 0x2E, 0xFF, 0x28}); };

    EXPECT_EQ(verdictOf(runSteps(kAsk)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(0)),
              "expected the reply of tuner.frequency within 0.05 s, got 1 frame with a wrong checksum");
}

TEST_F(RunnerTest, AnswerUnderTheWrongGroupIsAnErrorThatNamesBoth)
{
    on[kFrequency] = [&](const Frame&) { reply(0x83, 0x01, {0x22, 0x2E}); };

    EXPECT_EQ(verdictOf(runSteps(kAsk)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(0)),
              "expected the reply of tuner.frequency within 0.05 s, got 83 01 [22 2E]; the reply would be 82 01");
}

TEST_F(RunnerTest, OfManyStrangeFramesEightAreNamed)
{
    on[kFrequency] = [&](const Frame&) {
        for (std::uint8_t i = 0; i < 10; ++i) {
            reply(0x83, 0x01, {i});
        }
    };

    EXPECT_EQ(verdictOf(runSteps(kAsk)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(0)),
              "expected the reply of tuner.frequency within 0.05 s, got 83 01 [00], 83 01 [01], 83 01 [02], 83 01 "
              "[03], 83 01 [04], 83 01 [05], 83 01 [06], 83 01 [07] and 2 more; the reply would be 82 01");
}

TEST_F(RunnerTest, EightStrangeFramesAreAllThereIsToName)
{
    on[kFrequency] = [&](const Frame&) {
        for (std::uint8_t i = 0; i < 8; ++i) {
            reply(0x83, 0x01, {i});
        }
    };

    EXPECT_EQ(verdictOf(runSteps(kAsk)), Verdict::kError);
    EXPECT_THAT(reasonOf(step(0)), testing::EndsWith("83 01 [07]; the reply would be 82 01"));
}

TEST_F(RunnerTest, LaterReplyOfAnotherCommandIsNotStrange)
{
    on[kFrequency] = [&](const Frame&) { reply(0x83, 0x05, {2}); };

    EXPECT_EQ(verdictOf(runSteps(kAsk)), Verdict::kTimeout);
}

TEST_F(RunnerTest, RunSaysWhatWasRunWhenAndHowFast)
{
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {1}); };
    const auto before = std::chrono::system_clock::now();

    const auto& run = runSteps(R"({ send = "test.mode" }, { send = "test.mode" })");

    EXPECT_EQ(run.plan.name + "|" + run.plan.title + "|" + run.plan.path, "test|Test|test.toml");
    EXPECT_EQ(run.plan.steps, 2U);
    EXPECT_EQ(run.unit.port, unit.path());
    EXPECT_EQ(run.unit.baud, 115'200U);
    const auto& attempt = step(1).attempts.at(0);
    EXPECT_LE(before, run.started);
    EXPECT_LE(run.started, step(0).attempts.at(0).started);
    EXPECT_LT(step(0).attempts[0].started, attempt.started);
    EXPECT_LE(attempt.started + std::chrono::duration_cast<std::chrono::microseconds>(attempt.duration) / 2, run.ended);
    EXPECT_GT(attempt.duration, attempt.wireTime / 100);
    EXPECT_LE(run.ended, std::chrono::system_clock::now());
    EXPECT_EQ(result.speed.total, run.ended - run.started);
    EXPECT_EQ(result.speed.wire, 2 * attempt.wireTime);
    EXPECT_EQ(result.speed.steps, 2U);
    EXPECT_FALSE(result.portUnavailable || result.linkFailed || result.serialClashed);
}

TEST_F(RunnerTest, OperatorWhoDoesNotAnswerInTimeIsATimeout)
{
    prompter.late = true;

    runSteps(R"({ prompt = "Lit?", id = "lit", timeout = 2 })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kTimeout);
    EXPECT_EQ(reasonOf(step(0)), "expected the operator's answer within 2 s, got none");
}

TEST_F(RunnerTest, NoticeMeanwhileIsNoAnswerAndNoError)
{
    on[kFrequency] = [&](const Frame&) { reply(0x86, 0x11, {0x25, 0x04}); };

    EXPECT_EQ(verdictOf(runSteps(kAsk)), Verdict::kTimeout);
}

TEST_F(RunnerTest, AnswerWithTooManyBytesIsAnError)
{
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x22, 0x2E, 0x00}); };

    EXPECT_EQ(verdictOf(runSteps(R"({ send = "tuner.frequency", expect = { frequency = 8750 } })")), Verdict::kError);
    EXPECT_EQ(reasonOf(step(0)), "82 01 [22 2E 00] does not fit the catalogue: 1 byte too many");
}

TEST_F(RunnerTest, AnswerWithTooFewBytesIsAnError)
{
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x22}); };

    EXPECT_EQ(verdictOf(runSteps(R"({ send = "tuner.frequency" })")), Verdict::kError);
    EXPECT_THAT(reasonOf(step(0)), HasSubstr("82 01 [22] does not fit the catalogue"));
}

TEST_F(RunnerTest, ValueThatTheCatalogueDoesNotKnowFails)
{
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {7}); };

    EXPECT_EQ(verdictOf(runSteps(R"({ send = "test.mode" })")), Verdict::kFail);
    EXPECT_THAT(reasonOf(step(0)), HasSubstr("got 7"));
}

TEST_F(RunnerTest, TwoAnswersAtOnceAreAnError)
{
    on[kFrequency] = [&](const Frame&) {
        auto twice = wireBytes(Frame{0x82, 0x01, {0x22, 0x2E}});
        const auto second = wireBytes(Frame{0x82, 0x01, {0x24, 0xFE}});
        twice.insert(twice.end(), second.begin(), second.end());
        unit.write(twice);
    };

    EXPECT_EQ(verdictOf(runSteps(R"({ send = "tuner.frequency" })")), Verdict::kError);
    EXPECT_EQ(reasonOf(step(0)), "expected one reply, got a second: 82 01 [24 FE]");
}

TEST_F(RunnerTest, SecondAnswerThatComesDuringTheNextStepIsAnErrorOfTheFirst)
{
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x22, 0x2E}); };
    on[kMode] = [&](const Frame&) {
        reply(0x82, 0x01, {0x24, 0xFE});
        reply(0x8F, 0xFF, {1});
    };

    const auto& run = runSteps(R"({ send = "tuner.frequency" }, { send = "test.mode" })");

    EXPECT_EQ(verdictOf(run), Verdict::kError);
    EXPECT_EQ(verdictOf(step(0)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(0)), "expected one reply, got a second: 82 01 [24 FE]");
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
}

TEST_F(RunnerTest, SecondAnswerThatComesDuringAWaitIsAnErrorOfItsStep)
{
    on[kFrequency] = [&](const Frame&) { reply(0x82, 0x01, {0x22, 0x2E}); };
    on[0x0200] = [&](const Frame&) {
        reply(0x82, 0x01, {0x24, 0xFE});
        reply(0x86, 0x11, {0x10});
    };

    runSteps(R"({ send = "tuner.frequency" }, { send = "tuner.play", with = { frequency = 9470 } },
        { wait = "keys.pressed" })");

    EXPECT_EQ(reasonOf(step(0)), "expected one reply, got a second: 82 01 [24 FE]");
    EXPECT_EQ(verdictOf(step(2)), Verdict::kPass) << reasonOf(step(2));
}

TEST_F(RunnerTest, LateAnswerIsATimeoutThatSaysHowLate)
{
    on[kMode] = [&](const Frame&) {
        reply(0x82, 0x01, {0x22, 0x2E});
        reply(0x8F, 0xFF, {1});
    };

    runSteps(std::string(kAsk) + R"(, { send = "test.mode" })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kTimeout);
    EXPECT_THAT(reasonOf(step(0)), HasSubstr("; the reply came too late, after "));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
}

TEST_F(RunnerTest, LateAnswerThatARetryTakesForItsOwnIsNoSecondAnswer)
{
    int asked = 0;
    on[kFrequency] = [&](const Frame&) {
        if (++asked == 2) {
            reply(0x82, 0x01, {0x22, 0x2E});
            reply(0x82, 0x01, {0x22, 0x2E});
        }
    };
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {1}); };

    const auto& run = runSteps(
        R"({ send = "tuner.frequency", timeout = 0.05, retries = 1, retry_delay = 0 }, { send = "test.mode" })");

    EXPECT_EQ(verdictOf(run), Verdict::kPass) << headlineOf(run).reason;
    EXPECT_THAT(step(0).attempts, SizeIs(2));
}

TEST_F(RunnerTest, AssertedSilencePassesWithoutAnAnswerAndFailsWithOne)
{
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {1}); };

    runSteps(R"(
        { send = "tuner.frequency", reply = "none", timeout = 0.05 },
        { send = "test.mode", reply = "none" })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass) << reasonOf(step(0));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kFail);
    EXPECT_THAT(reasonOf(step(1)), testing::MatchesRegex("expected silence, got 8F FF .01. after [0-9]+ ms"));
}

TEST_F(RunnerTest, AnswerAfterTheAssertedSilenceFailsItToo)
{
    on[kMode] = [&](const Frame&) {
        reply(0x82, 0x01, {0x22, 0x2E});
        reply(0x81, 0x00, {});
        reply(0x8F, 0xFF, {1});
    };

    const auto& run = runSteps(R"(
        { send = "tuner.frequency", reply = "none", timeout = 0.05 },
        { send = "audio.set-volume", with = { volume = 3 }, reply = "none", timeout = 0.05 },
        { send = "test.mode" })");

    EXPECT_EQ(verdictOf(run), Verdict::kFail);
    EXPECT_EQ(verdictOf(step(0)), Verdict::kFail);
    EXPECT_THAT(reasonOf(step(0)), testing::StartsWith("expected silence, got 82 01 [22 2E] after "));
    EXPECT_THAT(reasonOf(step(0)), testing::EndsWith(" ms"));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kFail);
    EXPECT_THAT(reasonOf(step(1)), testing::StartsWith("expected silence, got 81 00 [] after "));
    EXPECT_EQ(verdictOf(step(2)), Verdict::kPass) << reasonOf(step(2));
}

TEST_F(RunnerTest, SecondAnswerIsNotExcusedByAStepThatWaitedForNone)
{
    int asked = 0;
    on[kFrequency] = [&](const Frame&) {
        if (++asked == 3) {
            auto twice = wireBytes(Frame{0x82, 0x01, {0x22, 0x2E}});
            const auto again = twice;
            twice.insert(twice.end(), again.begin(), again.end());
            unit.write(twice);
        }
    };

    runSteps(R"(
        { send = "tuner.frequency", reply = "none", timeout = 0.05 },
        { send = "tuner.frequency", reply = "optional", timeout = 0.05 },
        { send = "tuner.frequency" })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass) << reasonOf(step(0));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
    EXPECT_EQ(reasonOf(step(2)), "expected one reply, got a second: 82 01 [22 2E]");
}

TEST_F(RunnerTest, CommandThatTheCatalogueCallsUnansweredFailsAssertedSilenceWhenAnswered)
{
    on[0x0100] = [&](const Frame&) { reply(0x81, 0x00, {}); };

    runSteps(R"({ send = "audio.set-volume", with = { volume = 3 }, reply = "none" })");

    EXPECT_THAT(reasonOf(step(0)), testing::MatchesRegex("expected silence, got 81 00 .. after [0-9]+ ms"));
}

TEST_F(RunnerTest, OptionalReplyMayStayAway)
{
    EXPECT_EQ(verdictOf(runSteps(R"({ send = "tuner.frequency", reply = "optional", timeout = 0.05 })")),
              Verdict::kPass);
}

TEST_F(RunnerTest, FieldThatIsNotThereMissesUnlessItIsExpectedSo)
{
    on[0x0203] = [&](const Frame&) { reply(0x82, 0x03, {}); };

    runSteps(R"({ send = "tuner.band", expect = { band = "fm" } },
                { send = "tuner.band", expect = { band = { present = false } } })");

    EXPECT_EQ(reasonOf(step(0)), "band: expected \"fm\", got a reply without this field");
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
}

TEST_F(RunnerTest, MissingCarPlayRecordIsAnEmptyValue)
{
    on[0x0A12] = [&](const Frame&) { reply(0x8A, 0x0F, {}); };

    runSteps(R"({ send = "identity.carplay-mac", expect = { value = "" }, store = "old" },
                { send = "identity.carplay-mac", expect = { value = "${old}" } })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass) << reasonOf(step(0));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
}

TEST_F(RunnerTest, NoticeIsAwaited)
{
    on[0x060B] = [&](const Frame&) {
        reply(0x86, 0x0B, {1});
        reply(0x86, 0x11, {0x25, 0x04});
        reply(0x86, 0x11, {0x24});
    };

    runSteps(R"({ send = "keys.set-feedback", with = { value = "on" } },
                { wait = "keys.pressed", expect = { key = 37 }, store = { key = "key" } },
                { wait = "keys.pressed", expect = { key = "${key}" } },
                { wait = "keys.pressed", timeout = 0.05 })");

    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass) << reasonOf(step(1));
    EXPECT_EQ(verdictOf(step(2)), Verdict::kFail);
    EXPECT_THAT(reasonOf(step(2)), HasSubstr("key: expected 37, got 36"));
    EXPECT_EQ(verdictOf(step(3)), Verdict::kTimeout);
    EXPECT_EQ(reasonOf(step(3)), "expected keys.pressed within 0.05 s, got none");
}

TEST_F(RunnerTest, UnitThatNeverFallsSilentDoesNotHoldUpAWait)
{
    on[kMode] = [&](const Frame&) {
        reply(0x8F, 0xFF, {1});
        unit.flood(wireBytes(Frame{0x86, 0x0B, {1}}));
    };

    runSteps(R"({ send = "test.mode" }, { wait = "keys.pressed", timeout = 0.05 })");

    EXPECT_EQ(verdictOf(step(1)), Verdict::kTimeout);
    EXPECT_EQ(reasonOf(step(1)), "expected keys.pressed within 0.05 s, got none");
}

TEST_F(RunnerTest, LaterAnswerIsAwaitedAndCompared)
{
    on[0x0305] = [&](const Frame&) { reply(0x83, 0x05, {2}); };

    runSteps(R"({ send = "media.track-1", expect_later = { index = 2 }, store = "track" },
                { send = "media.track-1", expect_later = { index = 3 } },
                { send = "media.track-2", expect_later = { index = 3 }, timeout = 0.05 })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass) << reasonOf(step(0));
    EXPECT_EQ(reasonOf(step(1)), "index: expected 3, got 2");
    EXPECT_EQ(reasonOf(step(2)), "expected the later reply of media.track-2 within 0.05 s, got none");
}

TEST_F(RunnerTest, StoredValueIsSentAndSerialNamesTheUnit)
{
    std::vector<std::uint8_t> sent;
    on[0x0A14] = [&](const Frame&) { reply(0x8A, 0x14, {'H', 'U', '7'}); };
    on[0x0A13] = [&](const Frame& frame) { sent = frame.params; };
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {1}); };

    const auto& run = runSteps(R"({ send = "identity.hu-serial", store = "serial" },
                { send = "identity.write-hu-serial", with = { value = "${serial}-B" } },
                { send = "test.mode" })");

    EXPECT_EQ(verdictOf(run), Verdict::kPass) << headlineOf(run).reason;
    EXPECT_THAT(sent, ElementsAre('H', 'U', '7', '-', 'B'));
    EXPECT_EQ(run.unit.serial, "HU7");
}

TEST_F(RunnerTest, OperatorsAnswersAreMeasuredAndLimited)
{
    prompter.answers = {{"lit", "no"}, {"voltage", "14.5"}, {"label", "A7"}};

    runSteps(R"({ prompt = "Lit?", id = "lit" },
                { prompt = "Voltage?", id = "voltage", answer = "number", expect = { min = 13, max = 14, unit = "V" } },
                { prompt = "Label?", id = "label", answer = "text", expect = { matches = "A[0-9]" } },
                { prompt = "Else?", id = "else" })");

    EXPECT_EQ(reasonOf(step(0)), "lit: expected yes as the operator's answer, got no");
    EXPECT_EQ(reasonOf(step(1)), "voltage: expected 13 to 14 V as the operator's answer, got 14.5 V");
    EXPECT_EQ(verdictOf(step(2)), Verdict::kPass) << reasonOf(step(2));
    EXPECT_EQ(verdictOf(step(3)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(3)), "the operator is away");
}

TEST_F(RunnerTest, HeadUnitIsSetWhereThereIsOne)
{
    runSteps(R"({ headunit = { set = "/system_misc/gps_antenna", value = 3 } },
                { headunit = { event = "OnCarSpeedChange", with = { speed = 70 } } })");

    EXPECT_THAT(headUnit.told, ElementsAre("/system_misc/gps_antenna 3", R"(OnCarSpeedChange {"speed":70})"));
}

TEST_F(RunnerTest, StepThatNeedsTheHeadUnitIsSkippedWhereThereIsNone)
{
    headUnit.there = false;
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {1}); };

    const auto& run = runSteps(R"({ headunit = { set = "/system_misc/gps_antenna", value = 3 } },
                { send = "gps.antenna", requires = "headunit" }, { send = "test.mode" })");

    EXPECT_EQ(verdictOf(run), Verdict::kPass);
    EXPECT_EQ(verdictOf(step(0)), Verdict::kSkipped);
    EXPECT_EQ(reasonOf(step(1)), "there is no simulated head unit on the session bus");
    EXPECT_THAT(unit.codes(), ElementsAre(kMode));
}

TEST_F(RunnerTest, VariableThatASkippedStepWouldHaveStoredIsAnError)
{
    on[kMode] = [&](const Frame&) { reply(0x8F, 0xFF, {1}); };
    headUnit.there = false;

    runSteps(R"({ send = "test.mode", store = "mode" },
                { send = "audio.volume", store = "volume", requires = "headunit" },
                { send = "audio.set-volume", with = { volume = "${volume}" } },
                { send = "audio.volume", only_if = { mode = 0 } },
                { send = "audio.set-volume", with = { volume = "${volume}" }, if_stored = "volume" })");

    EXPECT_EQ(verdictOf(step(2)), Verdict::kError);
    EXPECT_EQ(reasonOf(step(2)), "nothing has been stored as 'volume' in this run");
    EXPECT_EQ(verdictOf(step(3)), Verdict::kSkipped);
    EXPECT_EQ(verdictOf(step(4)), Verdict::kSkipped);
}

}  // namespace
}  // namespace station::plan::tests
