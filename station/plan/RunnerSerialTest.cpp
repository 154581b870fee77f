#include "station/plan/RunnerTest.h"

namespace station::plan::tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr unsigned kMode = 0x0FFF;
constexpr unsigned kFlag = 0x0E01;
constexpr unsigned kReadSerial = 0x0A14;
constexpr unsigned kWriteSerial = 0x0A13;
constexpr unsigned kReadFactorySerial = 0x0A03;

constexpr const char* kReadInSetup = R"(
[[setup]]
name = "S"
steps = [{ send = "identity.hu-serial", retries = 3 }, { send = "test.mode" }]
[[main]]
name = "M"
steps = [{ send = "test.mode" }]
[[teardown]]
name = "T"
steps = [{ send = "other.flag" }]
)";

constexpr const char* kReadInMain = R"(
[[main]]
name = "M"
steps = [{ send = "test.mode" }, { send = "identity.hu-serial" }, { send = "test.mode" }]
[[main]]
name = "N"
steps = [{ send = "test.mode" }]
[[teardown]]
name = "T"
steps = [{ send = "other.flag" }]
)";

/// A unit whose serial is HU7.
class RunnerSerialTest : public RunnerTest
{
protected:
    RunnerSerialTest()
    {
        on[kMode] = [this](const Frame&) { reply(0x8F, 0xFF, {1}); };
        on[kFlag] = [this](const Frame&) { reply(0x8E, 0x01, {0}); };
        on[kReadSerial] = [this](const Frame&) { reply(0x8A, 0x14, {'H', 'U', '7'}); };
        on[kReadFactorySerial] = [this](const Frame&) { reply(0x8A, 0x03, {'S', 'N', '1'}); };
    }

    std::string reason() const { return headlineOf(result.run).reason; }
};

TEST_F(RunnerSerialTest, UnitWithTheSerialOfTheOperatorPasses)
{
    known.unit.serial = "HU7";

    EXPECT_EQ(verdictOf(runText(kReadInSetup)), Verdict::kPass) << reason();
    EXPECT_EQ(result.run.unit.serial, "HU7");
}

TEST_F(RunnerSerialTest, OtherUnitEndsTheRunBeforeTheMainPartWhereTheSetupReadsItsSerial)
{
    known.unit.serial = "HU8";

    EXPECT_EQ(verdictOf(runText(kReadInSetup)), Verdict::kError);
    EXPECT_EQ(reason(), "the unit holds serial HU7, expected HU8, which the operator gave");
    EXPECT_THAT(unit.codes(), ElementsAre(kReadSerial, kFlag));
    EXPECT_EQ(verdictOf(result.run.phases[1]), Verdict::kSkipped);
    EXPECT_EQ(result.run.unit.serial, "HU7");
}

TEST_F(RunnerSerialTest, OtherUnitEndsTheMainPartAsSoonAsItsSerialIsRead)
{
    known.unit.serial = "HU8";

    EXPECT_EQ(verdictOf(runText(kReadInMain)), Verdict::kError);
    EXPECT_THAT(unit.codes(), ElementsAre(kMode, kReadSerial, kFlag));
    EXPECT_EQ(verdictOf(step(0)), Verdict::kPass);
    EXPECT_EQ(verdictOf(step(2)), Verdict::kSkipped);
}

TEST_F(RunnerSerialTest, OtherUnitInTheTeardownLetsTheTeardownEnd)
{
    known.unit.serial = "HU8";

    EXPECT_EQ(verdictOf(runText(R"(
[[main]]
name = "M"
steps = [{ send = "test.mode" }]
[[teardown]]
name = "T"
steps = [{ send = "identity.hu-serial" }, { send = "other.flag" }]
)")),
              Verdict::kError);
    EXPECT_THAT(unit.codes(), ElementsAre(kMode, kReadSerial, kFlag));
}

TEST_F(RunnerSerialTest, AnswerOfTheOperatorIsComparedToo)
{
    prompter.answers = {{"label", "HU8"}};

    runSteps(R"({ send = "identity.hu-serial" },
                { prompt = "Label?", id = "label", answer = "text", store = "serial" }, { send = "test.mode" })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kError);
    EXPECT_EQ(reason(), "the unit holds serial HU7, expected HU8, which the operator gave");
    EXPECT_THAT(unit.codes(), ElementsAre(kReadSerial));
}

TEST_F(RunnerSerialTest, WhatAStepStoresAsSerialIsWhatTheUnitHolds)
{
    known.unit.serial = "HU8";

    runSteps(R"({ send = "identity.factory-serial", store = "serial" }, { send = "test.mode" })");

    EXPECT_EQ(reason(), "the unit holds serial SN1, expected HU8, which the operator gave");
    EXPECT_THAT(unit.codes(), ElementsAre(kReadFactorySerial));
}

TEST_F(RunnerSerialTest, RecordOfTheSerialIsThatOfTheStation)
{
    serialRecord.name = "factory-serial";
    known.unit.serial = "SN1";

    runSteps(R"({ send = "identity.hu-serial" }, { send = "identity.factory-serial" })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass) << reason();
    EXPECT_EQ(result.run.unit.serial, "SN1");
}

TEST_F(RunnerSerialTest, SerialThatThePlanWritesMayBeAnother)
{
    known.unit.serial = "HU8";

    runSteps(R"({ send = "identity.write-hu-serial", with = { value = "HU7" } }, { send = "identity.hu-serial" })");

    EXPECT_EQ(verdictOf(result.run), Verdict::kPass) << reason();
    EXPECT_THAT(unit.codes(), ElementsAre(kWriteSerial, kReadSerial));
    EXPECT_EQ(result.run.unit.serial, "HU7");
}

TEST_F(RunnerSerialTest, UnitWithoutASerialIsThatOfTheOperator)
{
    on[kReadSerial] = [this](const Frame&) { reply(0x8A, 0x14, {'0', '0', '0', '0', '0', '0', '0', '0'}); };
    known.unit.serial = "HU8";

    EXPECT_EQ(verdictOf(runText(kReadInSetup)), Verdict::kPass) << reason();
    EXPECT_EQ(result.run.unit.serial, "HU8");
}

TEST_F(RunnerSerialTest, ErasedSerialIsNone)
{
    on[kReadSerial] = [this](const Frame&) { reply(0x8A, 0x14, {0xFF, 0xFF, 0xFF, 0xFF}); };
    known.unit.serial = "HU8";

    runText(kReadInSetup);

    EXPECT_THAT(reason(), Not(HasSubstr("expected HU8")));
    EXPECT_EQ(result.run.unit.serial, "HU8");
}

TEST_F(RunnerSerialTest, RefusedAnswerIsNeitherTheSerialNorAVariable)
{
    prompter.answers = {{"label", "HU8"}};

    runSteps(R"({ prompt = "Label?", id = "label", answer = "text", expect = { matches = "SN.*" }, store = "serial" },
                { send = "test.mode", if_stored = "serial" })");

    EXPECT_EQ(verdictOf(step(0)), Verdict::kFail);
    EXPECT_EQ(verdictOf(step(1)), Verdict::kSkipped);
    EXPECT_EQ(result.run.unit.serial, "");
}

TEST_F(RunnerSerialTest, SerialOfAnotherPortEndsTheRunAtOnce)
{
    serials->add("/dev/other", "HU7");

    EXPECT_EQ(verdictOf(runText(kReadInSetup)), Verdict::kError);
    EXPECT_EQ(reason(), "the unit at /dev/other holds the same serial HU7");
    EXPECT_THAT(unit.codes(), ElementsAre(kReadSerial, kFlag));
    EXPECT_TRUE(result.serialClashed);
}

TEST_F(RunnerSerialTest, SerialThatAnotherPortTellsLaterEndsTheRunBeforeTheNextAttempt)
{
    prompter.answers = {{"lit", "yes"}};
    prompter.beforeAnswering = [this] { serials->add("/dev/other", "HU7"); };

    runSteps(R"({ send = "identity.hu-serial" }, { prompt = "Lit?", id = "lit" }, { send = "test.mode" })");

    EXPECT_EQ(reason(), "the unit at /dev/other holds the same serial HU7");
    EXPECT_THAT(unit.codes(), ElementsAre(kReadSerial));
    EXPECT_EQ(verdictOf(step(1)), Verdict::kPass);
    EXPECT_EQ(verdictOf(step(2)), Verdict::kSkipped);
}

TEST_F(RunnerSerialTest, OtherSerialsAtOtherPortsAreWelcome)
{
    serials->add("/dev/other", "HU8");

    EXPECT_EQ(verdictOf(runText(kReadInSetup)), Verdict::kPass) << reason();
    EXPECT_FALSE(result.serialClashed);
}

}  // namespace
}  // namespace station::plan::tests
