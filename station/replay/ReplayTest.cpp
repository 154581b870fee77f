#include "station/replay/Replay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <sstream>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/FrameScanner.h"
#include "station/plan/ScriptedUnit.h"

namespace station {
namespace {

using namespace std::chrono_literals;
using protocol::Frame;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using Result = Replayed::Result;

/// A unit that answers each command with the frames of a table, and a capture to replay to it.
class ReplayTest : public testing::Test
{
protected:
    ReplaySummary replay(const std::string& capture, ReplayTerms terms = {})
    {
        terms.port.path = unit.path();
        const auto groups = protocol::catalogue::groups();
        std::istringstream first(capture);
        CaptureReader surveyed(first, "trace", {});
        recording = survey(groups, surveyed, "trace", terms);
        std::istringstream second(capture);
        CaptureReader sent(second, "trace", {});
        unit.start();
        ReplaySummary summary;
        const auto tell = [this](const Replayed& each) {
            for (const std::string& difference : each.differences) {
                differences.push_back(std::to_string(each.number) + " " + difference);
            }
            results.push_back(each.result);
        };
        station::replay(groups, sent, recording, terms, interrupt, tell, summary);
        unit.stop();
        return summary;
    }

    std::string refusalOf(const std::string& capture, const ReplayTerms& terms = {})
    {
        try {
            replay(capture, terms);
        } catch (const protocol::Error& error) {
            unit.stop();
            return error.what();
        }
        return "(replayed)";
    }

    void serve(const Frame& frame)
    {
        received.push_back(protocol::catalogue::formatFrame(frame));
        for (const Frame& answer : answers[received.back()]) {
            unit.write(wireBytes(answer));
        }
    }

    std::map<std::string, std::vector<Frame>> answers{{"02 01 []", {{0x82, 0x01, {0x24, 0xFE}}}},
                                                      {"0F 00 [01]", {{0x8F, 0x00, {0x01}}}}};
    std::vector<std::string> received;
    plan::tests::ScriptedUnit unit{[this](const Frame& frame) { serve(frame); }};
    Recording recording;
    std::vector<std::string> differences;
    std::vector<Result> results;
    Interrupt interrupt;
};

TEST_F(ReplayTest, UnitThatAnswersAsRecordedHasNoDifference)
{
    const auto summary = replay("0F 00 [01]\n8F 00 [01]\n02 01 []\n82 01 [24 FE]\n");

    EXPECT_THAT(received, ElementsAre("0F 00 [01]", "02 01 []"));
    EXPECT_THAT(results, ElementsAre(Result::kSame, Result::kSame));
    EXPECT_EQ(summary.sent, 2u);
    EXPECT_EQ(summary.status(), protocol::kPassed);
}

TEST_F(ReplayTest, OtherValueIsToldByItsField)
{
    const auto summary = replay("02 01 []\n82 01 [22 2E]\n");

    EXPECT_THAT(differences, ElementsAre("1 frequency: expected 8750 (87.5 MHz on FM), got 9470 (94.7 MHz on FM)"));
    EXPECT_EQ(summary.status(), protocol::kFailed);
}

TEST_F(ReplayTest, AnswerThatDoesNotComeIsMissedAfterTheTimeOut)
{
    answers.clear();

    const auto summary = replay("02 01 []\n82 01 [24 FE]\n", {.timeout = 50ms});

    EXPECT_THAT(differences, ElementsAre(AllOf(StartsWith("1 expected 82 01 [24 FE] (tuner.frequency: "),
                                               HasSubstr("within 0.05 s, got no answer"))));
    EXPECT_EQ(summary.status(), protocol::kNoAnswer);
}

TEST_F(ReplayTest, AnswerThatTheCaptureDoesNotHaveIsADifference)
{
    const auto summary = replay("02 01 []\n0F 00 [01]\n8F 00 [01]\n");

    EXPECT_THAT(results, ElementsAre(Result::kUnexpected, Result::kSame));
    EXPECT_THAT(differences, ElementsAre(StartsWith("1 expected no answer, got 82 01 [24 FE]")));
    EXPECT_EQ(summary.status(), protocol::kFailed);
}

TEST_F(ReplayTest, AnswerToTheLastCommandIsAwaitedEvenIfTheCaptureHasNone)
{
    replay("02 01 []\n", {.timeout = 50ms});

    EXPECT_THAT(results, ElementsAre(Result::kUnexpected));
}

TEST_F(ReplayTest, AnswerOfAnotherKindIsShownWhole)
{
    answers["0A 12 []"] = {{0x8A, 0x0F, {}}};

    replay("0A 12 []\n8A 12 [30 30 31 31 32 32 33 33 34 34 35 35]\n");

    ASSERT_THAT(differences, SizeIs(1));
    EXPECT_THAT(differences[0], AllOf(StartsWith("1 expected 8A 12 ["), HasSubstr(", got 8A 0F []")));
}

TEST_F(ReplayTest, CommandsThatTheCatalogueDoesNotKnowAreComparedByTheirBytes)
{
    answers["33 44 []"] = {{0xB3, 0x44, {0x02}}};

    replay("33 44 []\nB3 44 [01]\n");

    EXPECT_THAT(differences, ElementsAre("1 expected [01] behind the fields, got [02]"));
}

TEST_F(ReplayTest, PipelinedCommandsGoOutBeforeTheirAnswers)
{
    answers.clear();
    answers["02 01 []"] = {{0x82, 0x01, {0x24, 0xFE}}, {0x8F, 0x00, {0x01}}};

    const auto summary = replay("0F 00 [01]\n02 01 []\n82 01 [24 FE]\n8F 00 [01]\n");

    EXPECT_EQ(summary.status(), protocol::kPassed);
    EXPECT_THAT(results, ElementsAre(Result::kSame, Result::kSame));
}

TEST_F(ReplayTest, WhatTheUnitSendsByItselfIsCountedButNotCompared)
{
    answers["02 01 []"].insert(answers["02 01 []"].begin(), {0x86, 0x11, {0x25, 0x04}});

    const auto summary = replay("86 11 [05 01]\n02 01 []\n82 01 [24 FE]\n86 11 [05 02]\n");

    EXPECT_EQ(summary.status(), protocol::kPassed);
    EXPECT_EQ(summary.notices, 1u);
}

// Two reads without a write between them show that the value moves by itself.
TEST_F(ReplayTest, OfAValueThatVariesInTheCaptureOnlyTheRangeIsCompared)
{
    answers["09 0B []"] = {{0x89, 0x0B, {0x00, 0x63}}};

    const auto summary = replay("09 0B []\n89 0B [00 0A]\n09 0B []\n89 0B [00 0B]\n");

    EXPECT_EQ(summary.status(), protocol::kPassed);
    EXPECT_THAT(recording.varying, ElementsAre("car.speed.speed"));
}

TEST_F(ReplayTest, ValueThatChangedAfterAWriteIsCompared)
{
    replay("02 01 []\n82 01 [22 2E]\n02 00 [24 FE]\n02 01 []\n82 01 [24 FE]\n");

    EXPECT_THAT(recording.varying, IsEmpty());
    EXPECT_THAT(results, ElementsAre(Result::kDiffers, Result::kSame, Result::kSame));
}

TEST_F(ReplayTest, IgnoredCommandsAreSentButNotCompared)
{
    const auto summary = replay("02 01 []\n82 01 [22 2E]\n0F 00 [01]\n8F 00 [01]\n", {.ignore = "tuner"});

    EXPECT_THAT(received, SizeIs(2));
    EXPECT_THAT(results, ElementsAre(Result::kIgnored, Result::kSame));
    EXPECT_EQ(summary.status(), protocol::kPassed);
}

TEST_F(ReplayTest, MaskedCommandEndsIt)
{
    const auto summary = replay("02 01 []\n82 01 [24 FE]\n0A 0E [2A 2A 2A 2A]\n0F 00 [01]\n8F 00 [01]\n");

    EXPECT_THAT(received, ElementsAre("02 01 []"));
    EXPECT_EQ(summary.maskedAt, 2u);
    EXPECT_EQ(summary.status(), protocol::kWrongUse);
}

TEST_F(ReplayTest, SecretsInAnswersAreComparedByTheirLengthAndNeverShown)
{
    answers["0A 0F []"] = {{0x8A, 0x0F, {'1', '2', '3'}}};

    replay("0A 0F []\n8A 0F [2A 2A 2A]\n0F 00 [01]\n8F 00 [01]\n0A 0F []\n8A 0F [2A 2A 2A 2A]\n");

    EXPECT_THAT(results, ElementsAre(Result::kSame, Result::kSame, Result::kDiffers));
    EXPECT_THAT(differences, ElementsAre("3 value: expected **** (masked), got *** (masked)"));
}

TEST_F(ReplayTest, DestructiveCommandIsRefusedBeforeAnythingIsSent)
{
    const std::string capture = "02 01 []\n82 01 [24 FE]\n04 08 []\n";

    EXPECT_THAT(refusalOf(capture), AllOf(StartsWith("trace: command 2: bluetooth.delete-pairings is destructive"),
                                          HasSubstr("add --yes to send it")));
    EXPECT_THAT(received, IsEmpty());
    EXPECT_EQ(replay(capture, {.timeout = 10ms, .yes = true}).sent, 2u);
}

TEST_F(ReplayTest, CaptureWithoutCommandsIsRefused)
{
    EXPECT_EQ(refusalOf("82 01 [24 FE]\n"), "trace: expected commands of a station, got none");
}

TEST_F(ReplayTest, PausesOfTheCaptureAreKeptUnlessItShallBeFast)
{
    const std::string capture =
        "1.00 TX: 2A A2 00 02 02 01 FF FB\n1.01 RX: 2A A2 00 04 82 01 24 FE FE 57\n"
        "1.25 TX: 2A A2 00 02 02 01 FF FB\n1.26 RX: 2A A2 00 04 82 01 24 FE FE 57\n";
    const auto begin = std::chrono::steady_clock::now();

    EXPECT_EQ(replay(capture).sent, 2u);

    EXPECT_GE(std::chrono::steady_clock::now() - begin, 240ms);
}

TEST_F(ReplayTest, PauseOfMoreThanAnHourNeedsFast)
{
    const std::string capture =
        "1.0 TX: 2A A2 00 02 02 01 FF FB\n1.1 RX: 2A A2 00 04 82 01 24 FE FE 57\n"
        "3700.0 TX: 2A A2 00 02 02 01 FF FB\n3700.1 RX: 2A A2 00 04 82 01 24 FE FE 57\n";

    EXPECT_THAT(refusalOf(capture), HasSubstr("command 2: expected a pause of at most an hour before it, got more"));
    EXPECT_EQ(replay(capture, {.fast = true}).sent, 2u);
}

TEST_F(ReplayTest, AnswerHasTheTimeThatItTookInTheCaptureAndTheTimeOut)
{
    const std::string capture =
        "1.0 TX: 2A A2 00 02 03 05 FF F6\n1.2 RX: 2A A2 00 03 83 05 02 00 FF 73\n"
        "1.3 TX: 2A A2 00 02 02 01 FF FB\n1.5 RX: 2A A2 00 04 82 01 24 FE FE 57\n";
    answers.clear();
    for (const bool fast : {false, true}) {
        differences.clear();
        const auto begin = std::chrono::steady_clock::now();

        EXPECT_EQ(replay(capture, {.timeout = 50ms, .fast = fast}).status(), protocol::kNoAnswer);

        EXPECT_GE(std::chrono::steady_clock::now() - begin, 490ms);
        EXPECT_THAT(differences, ElementsAre(HasSubstr("within 0.25 s"), HasSubstr("within 0.25 s")));
    }
}

TEST_F(ReplayTest, LaterReplyOfACaptureWithoutTimesHasTenTimeOuts)
{
    const auto begin = std::chrono::steady_clock::now();

    replay("03 05 []\n83 05 [02]\n", {.timeout = 20ms});

    EXPECT_GE(std::chrono::steady_clock::now() - begin, 190ms);
    EXPECT_THAT(differences, ElementsAre(HasSubstr("within 0.2 s, got no answer")));
}

TEST_F(ReplayTest, NoiseOfTheCaptureIsCounted)
{
    replay("11 22 2A A2 00 02 02 01 FF FB 2A A2 00 04 82 01 24 FE FE 57 2A A2 00 02 02 01 FF FC 2A A2 00\n");

    EXPECT_EQ(recording.noise(), "1 corrupt frame, 1 incomplete frame and 2 bytes outside frames");
    EXPECT_EQ(Recording().noise(), "");
    EXPECT_THAT(received, SizeIs(1));
}

class ReplayLineTest : public ReplayTest
{
};

TEST_F(ReplayLineTest, LostLineEndsItAndTheCommandsBeforeAreTold)
{
    plan::tests::ScriptedUnit leaving([&](const Frame& frame) {
        if (frame.cmdOne == 0x0F) {
            leaving.vanish();
        } else {
            leaving.write(wireBytes({0x82, 0x01, {0x22, 0x2E}}));
        }
    });
    const std::string capture = "02 01 []\n82 01 [24 FE]\n0F 00 [01]\n8F 00 [01]\n02 01 []\n82 01 [24 FE]\n";
    std::istringstream in(capture);
    CaptureReader reader(in, "trace", {});
    ReplayTerms terms;
    terms.port.path = leaving.path();
    leaving.start();

    ReplaySummary summary;

    try {
        station::replay(
            protocol::catalogue::groups(), reader, {}, terms, interrupt,
            [this](const Replayed& each) { results.push_back(each.result); }, summary);
        FAIL() << "the line was not lost";
    } catch (const protocol::LineError& error) {
        EXPECT_EQ(error.status(), protocol::kLineFailed);
    }
    leaving.stop();
    EXPECT_THAT(results, ElementsAre(Result::kDiffers));
    EXPECT_EQ(summary.count(Result::kDiffers), 1u);
}

TEST_F(ReplayLineTest, UnitThatNeverFallsSilentEndsNoWaitLate)
{
    plan::tests::ScriptedUnit loud([&](const Frame&) { loud.flood(wireBytes({0x86, 0x11, {0x25, 0x04}})); });
    std::istringstream in("02 01 []\n82 01 [24 FE]\n");
    CaptureReader reader(in, "trace", {});
    ReplayTerms terms{.timeout = 50ms};
    terms.port.path = loud.path();
    loud.start();

    ReplaySummary summary;
    const auto tell = [](const Replayed&) {};
    station::replay(protocol::catalogue::groups(), reader, {}, terms, interrupt, tell, summary);

    EXPECT_EQ(summary.status(), protocol::kNoAnswer);
    loud.stop();
}

}  // namespace
}  // namespace station
