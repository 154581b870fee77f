#include "station/Conversation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"
#include "station/FrameScanner.h"
#include "tests/support/PtyPeer.h"

namespace station {
namespace {

using namespace std::chrono_literals;
using protocol::Frame;
using protocol::catalogue::groups;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
using Words = std::vector<std::string>;

const Frame kFrequency{0x82, 0x01, {0x24, 0xFE}};
const Frame kModeOff{0x8F, 0xFF, {0x00}};
const Frame kModeOn{0x8F, 0xFF, {0x01}};
const Frame kKeyReport{0x86, 0x11, {0x25, 0x04}};

Request request(const Words& words)
{
    return parseRequest(groups(), words.front(), {words.begin() + 1, words.end()});
}

/// One command on a line whose unit sends its answers once the command is written.
class ConverseTest : public testing::Test, TraceSink
{
protected:
    Answer hold(const Words& words, const std::vector<Frame>& answers, SendTerms terms = {.timeout = 20s})
    {
        answers_ = answers;
        words_ = words;
        terms_ = terms;
        Connection connection({unit_.path()}, {.trace = this});
        return answer_ = converse(connection, groups(), request(words), terms);
    }

    Judgement judgement() const { return judge(request(words_), terms_, answer_); }

private:
    void on(const TraceEvent& event) override
    {
        if (event.kind == TraceEvent::Kind::kSent) {
            for (const Frame& frame : answers_) {
                unit_.write(wireBytes(frame));
            }
        }
    }

    tests::PtyPeer unit_;
    std::vector<Frame> answers_;
    Words words_;
    SendTerms terms_;
    Answer answer_;
};

TEST_F(ConverseTest, ReplyIsFoundAmongTheFramesOfOthers)
{
    const auto answer = hold({"tuner.frequency"}, {kKeyReport, kFrequency});

    EXPECT_THAT(answer.frames(), ElementsAre(kFrequency));
    EXPECT_GT(answer.roundTrip.count(), 0);
    EXPECT_EQ(judgement().status, protocol::kPassed);
}

TEST_F(ConverseTest, CommandWithoutAReplyReturnsAtOnce)
{
    EXPECT_THAT(hold({"tuner.play", "frequency=8750"}, {}).frames(), IsEmpty());
    EXPECT_EQ(judgement().status, protocol::kPassed);
    EXPECT_EQ(judgement().complaint, "tuner.play: sent; no reply is due");
}

TEST_F(ConverseTest, CommandThatIsOnlyAnsweredLaterReturnsAtOnceAndSaysSo)
{
    EXPECT_THAT(hold({"media.track-1"}, {}).frames(), IsEmpty());
    EXPECT_EQ(judgement().status, protocol::kPassed);
    EXPECT_EQ(judgement().complaint, "media.track-1: sent; the reply comes later: --wait-later waits for it");
}

TEST_F(ConverseTest, MissingRecordIsAReplyUnderItsOtherCode)
{
    const Frame missing{0x8A, 0x0F, {}};
    EXPECT_THAT(hold({"0A", "12"}, {missing}).frames(), ElementsAre(missing));
}

TEST_F(ConverseTest, UnknownCommandIsAnsweredByItsOwnCode)
{
    const Frame unknown{0xB3, 0x44, {0x01}};
    EXPECT_THAT(hold({"33", "44"}, {kFrequency, unknown}).frames(), ElementsAre(unknown));
}

TEST_F(ConverseTest, LaterReplyMayComeBeforeTheReply)
{
    const Frame reply{0x82, 0x08, {0x01}};
    const Frame later{0x84, 0x08, {0x01}};
    const SendTerms terms{.timeout = 20s, .waitLater = true, .yes = true};

    EXPECT_THAT(hold({"bluetooth.delete-pairings"}, {later, reply}, terms).frames(), ElementsAre(reply, later));
    EXPECT_THAT(hold({"bluetooth.delete-pairings"}, {reply, kKeyReport, later}, terms).frames(),
                ElementsAre(reply, later));
}

TEST_F(ConverseTest, CommandThatIsOnlyAnsweredLaterIsAwaitedIfTheTermsSaySo)
{
    const Frame later{0x83, 0x05, {0x02}};
    EXPECT_THAT(hold({"media.track-1"}, {later}, {.timeout = 20s, .waitLater = true}).frames(), ElementsAre(later));
    EXPECT_EQ(judgement().status, protocol::kPassed);
}

TEST_F(ConverseTest, LaterReplyThatStaysAwayIsNoAnswer)
{
    hold({"bluetooth.delete-pairings"}, {{0x82, 0x08, {0x01}}}, {.timeout = 10ms, .waitLater = true, .yes = true});

    EXPECT_EQ(judgement().status, protocol::kNoAnswer);
    EXPECT_THAT(judgement().complaint, StartsWith("bluetooth.delete-pairings: expected the later reply within 0.01 s"));
}

TEST_F(ConverseTest, ReplyInSpiteOfExpectNoneFails)
{
    EXPECT_THAT(hold({"0F", "FF"}, {{0x8F, 0xFF, {0x00}}}, {.timeout = 20s, .expectNone = true}).frames(),
                ElementsAre(Frame{0x8F, 0xFF, {0x00}}));
    EXPECT_EQ(judgement().status, protocol::kFailed);
    EXPECT_EQ(judgement().complaint, "test.mode: expected no reply, got one");
}

TEST_F(ConverseTest, SilenceWithExpectNonePasses)
{
    hold({"02", "01"}, {}, {.timeout = 10ms, .expectNone = true});

    EXPECT_EQ(judgement().status, protocol::kPassed);
    EXPECT_EQ(judgement().complaint, "");
}

struct Silence {
    const char* name;
    Words words;
    const char* complaint;
    std::vector<Frame> answers = {};  ///< to test.mode
};

class SilentUnit : public ConverseTest, public testing::WithParamInterface<Silence>
{
};

TEST_P(SilentUnit, IsNoAnswerWithItsUsualReason)
{
    hold(GetParam().words, GetParam().answers, {.timeout = 10ms});

    EXPECT_EQ(judgement().status, protocol::kNoAnswer);
    EXPECT_EQ(judgement().complaint, GetParam().complaint);
}

INSTANTIATE_TEST_SUITE_P(
    Conversation, SilentUnit,
    testing::Values(
        Silence{"WithAutoTestModeOff",
                {"tuner.frequency"},
                "tuner.frequency: expected a reply within 0.01 s, got none; auto-test mode is off: 'send "
                "test.set-mode mode=on' switches it on",
                {kModeOff}},
        Silence{"WithAutoTestModeOn",
                {"tuner.frequency"},
                "tuner.frequency: expected a reply within 0.01 s, got none; the unit did not answer although "
                "auto-test mode is on; it does not reply without a tuner",
                {kModeOn}},
        Silence{"AboutItsModeToo",
                {"tuner.frequency"},
                "tuner.frequency: expected a reply within 0.01 s, got none; the unit does not answer test.mode either: "
                "is it connected and switched on?"},
        Silence{"ModeItself", {"test.mode"}, "test.mode: expected a reply within 0.01 s, got none"},
        Silence{"UnknownCommand",
                {"33", "44"},
                "33 44: expected a reply within 0.01 s, got none; the catalogue does not know the command"},
        // It is sent in bytes, so the tool waits, but there is nothing to wait for.
        Silence{"CommandThatNothingAnswers",
                {"02", "00", "22", "2E"},
                "tuner.play: expected a reply within 0.01 s, got none; the command has no reply: add "
                "--expect-none"},
        Silence{"CommandThatIsAnsweredLater",
                {"03", "05"},
                "media.track-1: expected a reply within 0.01 s, got none; the reply comes later: add --wait-later"}),
    [](const auto& row) { return row.param.name; });

TEST(Judgement, CountsFramesWithAWrongChecksum)
{
    const auto judgement = judge(request({"test.mode"}), {}, {.corrupt = 2});

    EXPECT_THAT(judgement.complaint, EndsWith("got none; frames with a wrong checksum: 2"));
}

struct Mistake {
    const char* name;
    Words words;
    SendTerms terms;
    const char* complaint;
};

class RequestMistake : public testing::TestWithParam<Mistake>
{
};

TEST_P(RequestMistake, IsToldWithWhatIsRight)
{
    std::string complaint;
    try {
        check(request(GetParam().words), GetParam().terms);
    } catch (const protocol::UserError& error) {
        complaint = error.what();
    }

    EXPECT_THAT(complaint, HasSubstr(GetParam().complaint));
}

INSTANTIATE_TEST_SUITE_P(
    Conversation, RequestMistake,
    testing::Values(
        Mistake{"MistypedCommand", {"tuner.pla"}, {}, "did you mean 'tuner.play'?"},
        Mistake{"GroupOnly", {"tuner"}, {}, "as in 'tuner."},
        Mistake{"MistypedParameter", {"tuner.play", "frequenzy=8750"}, {}, "did you mean 'frequency'?"},
        Mistake{"MissingParameter", {"tuner.play"}, {}, "tuner.play: "},
        Mistake{"ValueWithoutName",
                {"tuner.play", "8750"},
                {},
                "tuner.play: expected NAME=VALUE, as in 'frequency=8750', got '8750'"},
        Mistake{"ValueForNoParameter", {"tuner.frequency", "1"}, {}, "expected no parameter, got '1'"},
        Mistake{"MistypedChoice", {"tuner.tune", "action=seek-pu"}, {}, "did you mean 'seek-up'?"},
        Mistake{"ValueOutOfRange", {"tuner.play", "frequency=65536"}, {}, "frequency: expected 0 to 65535, got 65536"},
        Mistake{"HalfACommand",
                {"0F"},
                {},
                "0F: expected the command's code after the group's, as in '0F 00 01', got none"},
        Mistake{"NoHexDigits", {"0F", "GG"}, {}, "expected one or two hexadecimal digits, got 'GG'"},
        Mistake{"GroupBeyondAByte", {"100", "00"}, {}, "'100'"},
        Mistake{"ParameterBeyondAByte", {"0F", "00", "1FF"}, {}, "got '1FF'"},
        Mistake{"TooManyParameters", Words(255, "00"), {}, "expected at most 252 parameter bytes, got 253"},
        Mistake{"WholeFrame",
                {"2A", "A2", "00", "02", "02", "01", "FF", "FB"},
                {},
                "2A A2 begins a whole frame; give its content: 02 01"},
        Mistake{"WholeFrameWithPadding",
                {"2a", "a2", "0", "3", "f", "0", "1", "0", "FF", "ED"},
                {},
                "2A A2 begins a whole frame; give its content: 0F 00 01"},
        Mistake{"DestructiveByName",
                {"bluetooth.delete-pairings"},
                {},
                "bluetooth.delete-pairings is destructive (Delete all pairings): add --yes"},
        Mistake{"DestructiveInBytes", {"0x4", "8", "00"}, {}, "bluetooth.delete-pairings is destructive"},
        Mistake{"NothingComesLater", {"tuner.frequency"}, {.waitLater = true}, "no later reply to tuner.frequency"},
        Mistake{"WaitsForSomethingAndNothing",
                {"media.track-1"},
                {.expectNone = true, .waitLater = true},
                "expected --wait-later or --expect-none, got both"}),
    [](const auto& row) { return row.param.name; });

TEST(Request, OfBytesHasTheNameThatTheCatalogueKnows)
{
    EXPECT_EQ(request({"0F", "0x00", "01"}).title, "test.set-mode");
    EXPECT_EQ(request({"f", "0"}).frame, (Frame{0x0F, 0x00, {}}));
    EXPECT_EQ(request({"33", "44"}).title, "33 44");
    EXPECT_FALSE(request({"0F", "00"}).named);
    // A frame needs a checksum that holds.
    EXPECT_EQ(request({"2A", "A2", "00", "02", "02", "01", "FF", "FC"}).title, "2A A2");
}

}  // namespace
}  // namespace station
