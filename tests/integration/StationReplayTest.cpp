#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/BenchTest.h"
#include "tests/support/PtyPeer.h"

namespace tests {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class StationReplayTest : public BenchTest
{
protected:
    std::string write(const std::string& name, const std::string& text)
    {
        std::ofstream(directory() / name) << text;
        return directory() / name;
    }

    /// Runs a plan that asks for the antenna.
    /// @returns the capture of the run.
    std::string record()
    {
        const auto plan =
            write("antenna.toml",
                  "schema = 1\nname = \"antenna\"\ntitle = \"Antenna\"\n[[main]]\nname = \"G\"\nsteps = [\n"
                  "  { send = \"test.set-mode\", with = { mode = \"on\" } },\n  { send = \"tuner.radio-antenna\" },\n"
                  "  { send = \"tuner.frequency\" },\n]\n");
        const auto results = directory() / "results";
        const auto outcome = run({ENGINEERING_STATION, "plan", "run", plan, "--results", results.string()});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        return std::filesystem::directory_iterator(results)->path() / "trace.pcapng";
    }

    Outcome replay(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {ENGINEERING_STATION, "replay", "--timeout", "20"});
        return run(arguments);
    }
};

TEST_F(StationReplayTest, TellsWhereTheUnitAnswersOtherwiseThanInTheRecording)
{
    startService();
    const auto capture = record();
    const auto same = replay({capture});
    EXPECT_EQ(same.status, 0) << same.err;
    EXPECT_EQ(same.out, capture + ": 3 commands sent, 3 answered as recorded, 0 otherwise, 0 without an answer\n");

    ASSERT_EQ(run({HEADUNITCTL, "set", "/system_misc/radio_antenna", "3"}).status, 0);
    const auto other = replay({capture, "--fast"});

    EXPECT_EQ(other.status, 1);
    EXPECT_THAT(linesOf(other.out),
                ElementsAre("   2  tuner.radio-antenna: antenna: expected 1 (good), got 0 (bad)",
                            capture + ": 3 commands sent, 2 answered as recorded, 1 otherwise, 0 without an answer"));
    EXPECT_EQ(replay({capture, "--ignore", "tuner.radio-antenna"}).status, 0);
}

TEST_F(StationReplayTest, AsJsonIsAnObjectForEachCommandAndASummary)
{
    startService();
    const auto capture = write("unit.log", "TX: 2A A2 00 03 0F 00 01 00 FF ED\nRX: 2A A2 00 03 8F 00 00 00 FF 6E\n");

    const auto outcome = replay({capture, "--json"});

    EXPECT_EQ(outcome.status, 1);
    const auto lines = linesOf(outcome.out);
    ASSERT_THAT(lines, SizeIs(2));
    const json command = json::parse(lines[0]);
    EXPECT_EQ(command["type"], "command");
    EXPECT_EQ(command["number"], 1);
    EXPECT_EQ(command["request"]["key"], "test.set-mode");
    EXPECT_EQ(command["expected"][0]["params"], "00");
    EXPECT_EQ(command["got"][0]["params"], "01");
    EXPECT_EQ(command["result"], "differs");
    EXPECT_EQ(command["differences"], json::array({"mode: expected 0 (off), got 1 (on)"}));
    const json summary = json::parse(lines[1]);
    EXPECT_EQ(summary["type"], "summary");
    EXPECT_EQ(summary["sent"], 1);
    EXPECT_EQ(summary["differs"], 1);
    EXPECT_EQ(summary["masked_at"], nullptr);
    EXPECT_EQ(summary["status"], 1);
}

TEST_F(StationReplayTest, MaskedCommandEndsIt)
{
    startService();

    const auto outcome = replay({write("a.txt", "0F 00 [01]\n8F 00 [01]\n0A 0E [2A 2A]\n0F FF []\n8F FF [01]\n")});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(outcome.out, HasSubstr(": 1 command sent, 1 answered as recorded"));
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr("command 2 is masked")));
}

TEST_F(StationReplayTest, RefusesBeforeItOpensTheLine)
{
    const auto destructive = write("a.txt", "02 01 []\n04 08 []\n");
    const auto nothing = write("b.txt", "82 01 [24 FE]\n");
    const auto prose = write("c.txt", "the unit is silent\n");

    for (const auto& [capture, text] :
         {std::pair(destructive, ": command 2: bluetooth.delete-pairings is destructive"),
          std::pair(nothing, ": expected commands of a station, got none"),
          std::pair(prose, ": expected a capture (pcapng, "), std::pair(std::string("/dev/null"), ": expected a file"),
          std::pair(std::string("/no/such/file"), ": no such file")}) {
        const auto outcome = replay({capture, "--port", "/no/such/port"});

        EXPECT_EQ(outcome.status, 2) << capture;
        EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr(capture + text)));
        EXPECT_THAT(outcome.out, IsEmpty());
    }
    EXPECT_THAT(run({"bash", "-c", "echo '02 01 []' | " + shellWords(ENGINEERING_STATION) + " replay -"}).err,
                HasSubstr("standard input: expected a file"));
    EXPECT_THAT(replay({write("d.txt", "02 01 []\n"), "--ignore", "tunre", "--port", "/no/such/port"}).err,
                HasSubstr("did you mean 'tuner'?"));
    EXPECT_EQ(replay({write("d.txt", "02 01 []\n"), "--port", "/no/such/port"}).status, 10);
}

TEST_F(StationReplayTest, LineThatIsLostEndsItWithTheSummaryAndStatusEleven)
{
    PtyPeer unit;
    auto& program = start({ENGINEERING_STATION, "replay", "--port", unit.path(), "--timeout", "20",
                           write("a.txt", "11\n0F FF []\n8F FF [01]\n02 01 []\n82 01 [24 FE]\n")});
    EXPECT_THAT(unit.read(8), SizeIs(8));
    unit.write({0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E});
    EXPECT_THAT(unit.read(8), SizeIs(8));

    unit.hangUp();

    expectEnd(program, 11);
    EXPECT_THAT(program.output(ChildProcess::Stream::kOut), HasSubstr(" sent, 1 answered as recorded, 0 otherwise"));
    EXPECT_THAT(program.output(ChildProcess::Stream::kErr),
                HasSubstr(": ignored 0 corrupt frames, 0 incomplete frames and 1 byte outside frames"));
}

}  // namespace
}  // namespace tests
