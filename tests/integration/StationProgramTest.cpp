#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/BenchTest.h"
#include "tests/support/PtyPeer.h"

namespace tests {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

class StationProgramTest : public BenchTest
{
protected:
    Outcome send(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> all{ENGINEERING_STATION, "send"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return run(all);
    }
};

TEST_F(StationProgramTest, SendPrintsTheReplyWithStatusZero)
{
    startService();

    const auto outcome = send({"0F", "0x00", "01", "--port", link().string(), "--timeout", "20"});

    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "8F 00 [01]\n");
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(StationProgramTest, SendFindsTheServicesDefaultLinkByItself)
{
    startService();

    EXPECT_EQ(send({"f", "0", "--timeout", "20"}).out, "8F 00 []\n");
}

TEST_F(StationProgramTest, SendWithoutReplyHasStatusThree)
{
    startService();

    const auto outcome = send({"02", "01", "--timeout", "0.1"});  // auto-test mode is off

    EXPECT_EQ(outcome.status, 3);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
}

TEST_F(StationProgramTest, SendThatExpectsNoneHasStatusZeroWhenNoneCame)
{
    startService();

    const auto outcome = send({"02", "01", "--timeout", "0.1", "--expect-none"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, IsEmpty());
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST_F(StationProgramTest, SendThatExpectsNoneShowsTheReplyWithStatusOneWhenOneCame)
{
    startService();

    const auto outcome = send({"0F", "FF", "--timeout", "20", "--expect-none"});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "8F FF [00]\n");
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
}

TEST_F(StationProgramTest, SendToAPortThatDoesNotExistHasStatusTen)
{
    const auto outcome = send({"0F", "00", "--port", "/dev/no-such-line"});

    EXPECT_EQ(outcome.status, 10);
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
}

struct MissingPort {
    const char* name;
    std::vector<std::string> arguments;
    const char* hint;
};

class MissingPortTest : public BenchTest, public testing::WithParamInterface<MissingPort>
{
};

TEST_P(MissingPortTest, IsToldWithWhatToDo)
{
    std::vector<std::string> all{ENGINEERING_STATION};
    all.insert(all.end(), GetParam().arguments.begin(), GetParam().arguments.end());

    const auto outcome = run(all);

    EXPECT_EQ(outcome.status, 10);
    EXPECT_THAT(linesOf(outcome.err), testing::ElementsAre(testing::EndsWith(GetParam().hint)));
}

INSTANTIATE_TEST_SUITE_P(
    StationProgram, MissingPortTest,
    testing::Values(
        MissingPort{"DefaultPort",
                    {"send", "0F", "00"},
                    "No such file or directory; is a bench running? Start it with scripts/run, or give --port"},
        MissingPort{"NamedPort",
                    {"send", "0F", "00", "--port", "/dev/no-such-line"},
                    "/dev/no-such-line: cannot open: No such file or directory; 'engineering-station ports' lists "
                    "the ports of this machine"},
        MissingPort{"MonitoredPort", {"monitor"}, "is a bench running? Start it with scripts/run, or give --port"},
        MissingPort{
            "PortOfAUnit", {"identity", "read"}, "is a bench running? Start it with scripts/run, or give --port"},
        MissingPort{"FileThatIsNoPort",
                    {"send", "0F", "00", "--port", "/dev/null"},
                    "/dev/null: expected a serial line, got another file"}),
    [](const auto& row) { return row.param.name; });

TEST_F(StationProgramTest, SendIgnoresWhatWasLeftInTheLine)
{
    PtyPeer peer;
    // 03+8F+00+01 = 0093, two's complement FF6D: the reply to an earlier command
    peer.write({0x2A, 0xA2, 0x00, 0x03, 0x8F, 0x00, 0x01, 0x00, 0xFF, 0x6D});
    peer.waitUntilArrived(10);

    EXPECT_EQ(send({"0F", "00", "01", "--port", peer.path(), "--timeout", "0.1"}).status, 3);
}

struct Failure {
    const char* name;
    std::vector<std::string> arguments;
    const char* kind;
    int status;
};

class FailureTest : public BenchTest, public testing::WithParamInterface<Failure>
{
};

TEST_P(FailureTest, IsOneJsonObjectWithKindAndStatus)
{
    std::ofstream(directory() / "record.json") << "not JSON";
    std::vector<std::string> all{ENGINEERING_STATION, "--json"};
    for (const std::string& argument : GetParam().arguments) {
        all.push_back(argument == "RECORD" ? directory().string() : argument);
    }

    const auto outcome = run(all);

    EXPECT_EQ(outcome.status, GetParam().status);
    EXPECT_THAT(outcome.err, IsEmpty());
    ASSERT_THAT(linesOf(outcome.out), SizeIs(1));
    const auto object = nlohmann::json::parse(outcome.out);
    EXPECT_EQ(object["schema"], 1);
    EXPECT_EQ(object["kind"], GetParam().kind);
    EXPECT_EQ(object["status"], GetParam().status);
    EXPECT_NE(object["error"], "");
}

INSTANTIATE_TEST_SUITE_P(
    StationProgram, FailureTest,
    testing::Values(Failure{"WrongWord", {"send", "tuner.pla"}, "user", 2},
                    Failure{"WrongOption", {"send", "--tiemout", "1"}, "user", 2},
                    Failure{"MissingPort", {"send", "0F", "00", "--port", "/dev/no-such-line"}, "line", 10},
                    Failure{"RecordThatCannotBeRead", {"report", "show", "RECORD"}, "storage", 2}),
    [](const auto& row) { return row.param.name; });

struct WrongUse {
    const char* name;
    std::vector<std::string> arguments;
};

class WrongUseTest : public StationProgramTest, public testing::WithParamInterface<WrongUse>
{
};

TEST_P(WrongUseTest, OfSendIsOneLineWithStatusTwo)
{
    const auto outcome = send(GetParam().arguments);

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
}

INSTANTIATE_TEST_SUITE_P(StationProgram, WrongUseTest,
                         testing::Values(WrongUse{"NoCommand", {}}, WrongUse{"NoHexDigits", {"0F", "GG"}},
                                         WrongUse{"TimeoutIsNoNumber", {"0F", "00", "--timeout", "soon"}},
                                         WrongUse{"TimeoutIsNegative", {"0F", "00", "--timeout", "-1"}},
                                         WrongUse{"TimeoutIsNotANumber", {"0F", "00", "--timeout", "nan"}},
                                         WrongUse{"BaudThatNoLineHas", {"0F", "00", "--port", "/dev/null,12345"}},
                                         WrongUse{"BaudThatIsNoNumber", {"0F", "00", "--port", "/dev/null,abc"}}),
                         [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace tests
