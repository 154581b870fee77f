#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <nlohmann/json.hpp>

#include "tests/integration/BenchTest.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

using Bytes = wire::Bytes;

// 02+02+01 = 0005
const Bytes kAskFrequency{0x2A, 0xA2, 0x00, 0x02, 0x02, 0x01, 0xFF, 0xFB};
// 04+82+01+24+FE = 01A9
const Bytes kFrequency9470{0x2A, 0xA2, 0x00, 0x04, 0x82, 0x01, 0x24, 0xFE, 0xFE, 0x57};

/// The program on the bench.
class StationSendTest : public BenchTest
{
protected:
    Outcome send(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {ENGINEERING_STATION, "send"});
        arguments.insert(arguments.end(), {"--timeout", "20"});
        return run(arguments);
    }

    std::string calls() { return run({HEADUNITCTL, "calls"}).out; }
};

/// The program on a line whose other end the test speaks for.
class StationLineEndTest : public BenchTest
{
protected:
    ChildProcess& startSend(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {ENGINEERING_STATION, "send"});
        arguments.insert(arguments.end(), {"--port", peer.path(), "--timeout", "20"});
        return start(arguments);
    }

    /// Waits for `request`, answers with `reply`, and for the end of the program.
    /// @returns what it printed.
    std::string answer(ChildProcess& program, const Bytes& request, const Bytes& reply, int status = 0)
    {
        EXPECT_EQ(peer.read(request.size()), request);
        peer.write(reply);
        expectEnd(program, status);
        return program.output(ChildProcess::Stream::kOut);
    }

    PtyPeer peer;
};

TEST_F(StationSendTest, ByNameIsAnsweredWithBytesAndTheirMeaning)
{
    startService();

    const auto outcome = send({"test.set-mode", "mode=on"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "8F 00 [01]  test.set-mode: mode=1 (on)\n");
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(StationSendTest, OfACommandWithoutReplyReturnsAtOnceAndIsCarriedOut)
{
    startService();
    send({"test.set-mode", "mode=on"});

    const auto outcome = send({"tuner.play", "frequency=94.7MHz"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_EQ(outcome.err, "engineering-station: tuner.play: sent; no reply is due\n");
    EXPECT_THAT(send({"tuner.play", "frequency=94.7MHz", "--json"}).err, IsEmpty());
    EXPECT_EQ(send({"tuner.frequency"}).out, "82 01 [24 FE]  tuner.frequency: frequency=9470 (94.7 MHz on FM)\n");
}

TEST_F(StationSendTest, AsJsonIsOneObjectWithTheRequestAndTheDecodedReply)
{
    startService();
    send({"test.set-mode", "mode=on"});

    const auto outcome = send({"tuner.frequency", "--json"});

    EXPECT_EQ(outcome.status, 0);
    ASSERT_THAT(linesOf(outcome.out), SizeIs(1));
    const json object = json::parse(outcome.out);
    EXPECT_EQ(object["schema"], 1);
    EXPECT_EQ(object["status"], 0);
    EXPECT_EQ(object["request"]["key"], "tuner.frequency");
    ASSERT_EQ(object["replies"].size(), 1U);
    EXPECT_EQ(object["replies"][0]["kind"], "reply");
    EXPECT_EQ(object["replies"][0]["params"], "22 2E");
    EXPECT_EQ(object["replies"][0]["fields"]["frequency"]["value"], 8750);
    EXPECT_EQ(object["replies"][0]["fields"]["frequency"]["scaled"]["value"], 87.5);
    EXPECT_GT(object["round_trip_ms"], 0);
}

TEST_F(StationSendTest, WithoutReplySaysWhatKeepsASoundUnitSilent)
{
    startService();

    const auto outcome = run({ENGINEERING_STATION, "send", "tuner.frequency", "--timeout", "0.1", "--json"});

    EXPECT_EQ(outcome.status, 3);
    EXPECT_EQ(json::parse(outcome.out)["replies"].size(), 0U);
    EXPECT_EQ(json::parse(outcome.out)["status"], 3);
    EXPECT_EQ(linesOf(outcome.err),
              (std::vector<std::string>{"engineering-station: tuner.frequency: expected a reply within 0.1 s, got "
                                        "none; auto-test mode is off: 'send test.set-mode mode=on' switches it "
                                        "on"}));
}

TEST_F(StationSendTest, OfADestructiveCommandIsRefusedUnlessToldYes)
{
    startService();
    send({"test.set-mode", "mode=on"});

    for (const std::vector<std::string>& words :
         {std::vector<std::string>{"bluetooth.delete-pairings"}, {"04", "08"}, {"0x4", "8", "00"}}) {
        const auto outcome = send(words);
        EXPECT_EQ(outcome.status, 2);
        EXPECT_THAT(outcome.err, AllOf(StartsWith("engineering-station: bluetooth.delete-pairings is destructive"),
                                       HasSubstr("--yes")));
        EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
    }
    EXPECT_THAT(calls(), testing::Not(HasSubstr("DeletePairDeviceList")));

    EXPECT_THAT(send({"04", "08", "--yes"}).out, StartsWith("82 08 [01]\n"));
    EXPECT_THAT(calls(), HasSubstr("DeletePairDeviceList"));
}

TEST_F(StationSendTest, WaitsForTheLaterReplyWhenToldTo)
{
    startService();
    send({"test.set-mode", "mode=on"});

    const auto outcome = send({"bluetooth.delete-pairings", "--yes", "--wait-later"});

    EXPECT_EQ(outcome.status, 0) << outcome.err;
    ASSERT_THAT(linesOf(outcome.out), SizeIs(2));
    EXPECT_THAT(linesOf(outcome.out)[0], StartsWith("82 08 [01]  bluetooth.delete-pairings: "));
    EXPECT_THAT(linesOf(outcome.out)[1], StartsWith("84 08 [01]  bluetooth.delete-pairings: "));
}

TEST_F(StationSendTest, ToAPortThatSomebodyUsesHasStatusTenAndSaysSo)
{
    startService();
    const int other = open(link().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(other, 0);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);

    const auto outcome = send({"test.mode"});
    close(other);

    EXPECT_EQ(outcome.status, 10);
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
    EXPECT_THAT(outcome.err, AllOf(HasSubstr(link().string()), HasSubstr("use")));
    EXPECT_EQ(send({"test.mode"}).status, 0);
}

/// The default port, which leads to a terminal of the test's.
class DefaultPortTest : public BenchTest
{
protected:
    DefaultPortTest()
    {
        std::filesystem::create_directories(link().parent_path());
        std::filesystem::create_symlink(peer.path(), link());
    }

    /// Gives away what the default port is made of. @returns whether that could be done.
    static bool giveToAnotherUser(const std::filesystem::path& path) { return chown(path.c_str(), 4242, 4242) == 0; }

    void expectRefusal(const std::string& reason)
    {
        const auto outcome = run({ENGINEERING_STATION, "send", "test.mode", "--timeout", "0.1"});

        EXPECT_EQ(outcome.status, 10);
        EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr(link().string() + ": " + reason)));
        EXPECT_EQ(run({ENGINEERING_STATION, "send", "test.mode", "--timeout", "0.1", "--port", link()}).status, 10);
    }

    PtyPeer peer;
};

TEST_F(DefaultPortTest, InADirectoryOfAnotherUserIsRefusedAndNotListed)
{
    if (!giveToAnotherUser(link().parent_path())) {
        GTEST_SKIP() << "only root can give a directory away";
    }

    expectRefusal("expected a directory of your own, got another user's");
    EXPECT_THAT(run({ENGINEERING_STATION, "ports"}).out, Not(HasSubstr(link().string())));
}

TEST_F(DefaultPortTest, ThatLeadsToATerminalOfAnotherUserIsRefused)
{
    if (!giveToAnotherUser(peer.path())) {
        GTEST_SKIP() << "only root can give a terminal away";
    }

    expectRefusal("expected a terminal of your own, got another user's");
}

TEST_F(DefaultPortTest, WhoseDirectoryIsALinkIsRefused)
{
    std::filesystem::rename(link().parent_path(), directory() / "elsewhere");
    std::filesystem::create_symlink(directory() / "elsewhere", link().parent_path());

    expectRefusal("expected a directory of your own, got another user's");
}

TEST_F(StationLineEndTest, ReplyOutOfTheCataloguesRangeIsShownAndFlagged)
{
    auto& program = startSend({"tuner.radio-antenna"});

    // 02+02+12 = 0016; 03+82+12+07 = 009E
    const auto out = answer(program, {0x2A, 0xA2, 0x00, 0x02, 0x02, 0x12, 0xFF, 0xEA},
                            {0x2A, 0xA2, 0x00, 0x03, 0x82, 0x12, 0x07, 0x00, 0xFF, 0x62});

    EXPECT_EQ(out, "82 12 [07]  tuner.radio-antenna: antenna=7 (! antenna: expected bad (0) or good (1), got 7)\n");
}

TEST_F(StationLineEndTest, ReplyThatIsTooShortIsShownAndFlagged)
{
    auto& program = startSend({"tuner.frequency"});

    // 03+82+01+24 = 00AA
    EXPECT_EQ(answer(program, kAskFrequency, {0x2A, 0xA2, 0x00, 0x03, 0x82, 0x01, 0x24, 0x00, 0xFF, 0x56}),
              "82 01 [24]  tuner.frequency: + 24 (! frequency: expected 2 bytes, got 1)\n");
}

TEST_F(StationLineEndTest, InterruptEndsTheWaitingWithStatusFour)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        auto& program = startSend({"tuner.frequency"});
        ASSERT_EQ(peer.read(kAskFrequency.size()), kAskFrequency);

        program.signal(number);

        expectEnd(program, 4);
        EXPECT_EQ(program.output(ChildProcess::Stream::kErr), "engineering-station: interrupted\n");
    }
}

struct Mistake {
    const char* name;
    std::vector<std::string> arguments;
    const char* text;
};

class SendMistakeTest : public testing::TestWithParam<Mistake>
{
};

TEST_P(SendMistakeTest, IsOneLineThatSaysWhatWouldBeRightWithStatusTwo)
{
    std::vector<std::string> arguments{ENGINEERING_STATION, "send", "--port", "/dev/no-such-line"};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());

    const auto outcome = run(arguments);

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1)) << outcome.err;
    EXPECT_THAT(outcome.err, AllOf(StartsWith("engineering-station: "), HasSubstr(GetParam().text)));
}

INSTANTIATE_TEST_SUITE_P(
    StationSend, SendMistakeTest,
    testing::Values(
        Mistake{"MistypedCommand", {"tuner.pla"}, "'tuner.pla' is not a command; did you mean 'tuner.play'?"},
        Mistake{"ValueOutOfRange", {"tuner.play", "frequency=65536"}, "tuner.play: frequency: "},
        Mistake{"MistypedOption", {"tuner.frequency", "--tiemout", "1"}, "did you mean '--timeout'?"},
        Mistake{"NothingComesLater", {"tuner.frequency", "--wait-later"}, "has no later reply to tuner.frequency"},
        Mistake{"WholeFrame", {"2A", "A2", "00", "02", "02", "01", "FF", "FB"}, "give its content: 02 01"},
        Mistake{"LineBreakInAnArgument", {"tuner.play\nframe"}, "is not a command"},
        Mistake{"EmptyWord", {""}, "'' is not a command"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace tests
