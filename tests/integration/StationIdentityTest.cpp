#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
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
using Stream = ChildProcess::Stream;
using Bytes = std::vector<std::uint8_t>;

class StationIdentityTest : public BenchTest
{
protected:
    static std::vector<std::string> command(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> all{ENGINEERING_STATION, "identity"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }

    Outcome identity(const std::vector<std::string>& arguments) { return run(command(arguments)); }

    static std::string contentOf(const std::filesystem::path& file)
    {
        std::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::string stored(const std::string& file, const std::string& rootName = "root") const
    {
        return contentOf(directory() / rootName / "perm_data/data/engineering" / file);
    }

    std::vector<json> journal() const
    {
        std::vector<json> all;
        for (const std::string& line :
             linesOf(contentOf(directory() / "state" / "engineering-station" / "identity.jsonl"))) {
            all.push_back(json::parse(line));
        }
        return all;
    }

    /// @returns "VALUE STATE" of all that the registry has.
    std::vector<std::string> states()
    {
        std::vector<std::string> all;
        for (const std::string& line : linesOf(identity({"registry", "list", "--json"}).out)) {
            const auto value = json::parse(line);
            if (value["type"] != "value") {
                continue;
            }
            all.push_back(value["value"].get<std::string>() + " " + value["state"].get<std::string>());
        }
        return all;
    }

    std::string csv(const std::string& content) const
    {
        const std::string path = directory() / "units.csv";
        std::ofstream(path) << content;
        return path;
    }
};

TEST_F(StationIdentityTest, ValuesAreWrittenIntoTheUnitAndReadBack)
{
    startService();

    const auto written = identity({"write", "--set", "factory-serial=SN123", "--set", "carplay-mac=00:11:22:33:44:5f",
                                   "--set", "bluetooth-address=0002F5A1B2C3"});
    EXPECT_EQ(written.status, 0) << written.err;
    EXPECT_THAT(written.err, IsEmpty());
    EXPECT_EQ(stored("factory_serial_num"), "SN123");
    EXPECT_EQ(stored("cp_mac_address"), "00:11:22:33:44:5F");
    EXPECT_EQ(stored("bt_mac_address_for_query"), "&0001 = 00A1 B2C3 00F5 0002");

    const auto read = json::parse(identity({"read", "--json"}).out)["records"];
    EXPECT_EQ(read["factory-serial"], "SN123");
    EXPECT_EQ(read["carplay-mac"], "00112233445F");
    EXPECT_EQ(read["bluetooth-address"]["present"], true);
    EXPECT_TRUE(read["hu-serial"].is_null());

    EXPECT_EQ(identity({"verify", "--set", "factory-serial=SN123"}).status, 0);
    // The bench's controller does not start again.
    EXPECT_EQ(identity({"verify", "--set", "bluetooth-address=0002F5A1B2C3"}).status, 12);
    EXPECT_EQ(identity({"verify", "--set", "factory-serial=SN124"}).status, 12);
}

TEST_F(StationIdentityTest, MaskedPasswordIsMarkedAsSuch)
{
    startService();

    const auto written = json::parse(identity({"write", "--set", "password-number=1234", "--json"}).out);
    EXPECT_EQ(written["new"], "****");
    EXPECT_EQ(written["masked"], true);
    EXPECT_EQ(json::parse(identity({"read", "password-number", "--json"}).out)["masked"], true);
    EXPECT_FALSE(json::parse(identity({"read", "factory-serial", "--json"}).out).contains("masked"));
}

TEST_F(StationIdentityTest, JournalHasTheResults)
{
    startService();
    identity({"write", "--set", "factory-serial=SN1"});
    identity({"write", "--set", "factory-serial=SN2"});
    identity({"write", "--set", "factory-serial=SN2", "--overwrite"});
    identity({"write", "--set", "factory-serial=SN3", "--overwrite", "--dry-run"});

    const auto lines = journal();
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(lines[0]["unit"], "SN1");
    EXPECT_TRUE(lines[0]["old"].is_null());
    EXPECT_EQ(lines[0]["result"], "written");
    EXPECT_EQ(lines[1]["result"], "refused");
    EXPECT_EQ(lines[2]["old"], "SN1");
    EXPECT_EQ(lines[2]["new"], "SN2");
    EXPECT_EQ(lines[2]["port"], link().string());
}

TEST_F(StationIdentityTest, RowsGoToTheUnitsThatAskAtTheSameTime)
{
    startService();
    auto& second = start({ENGINEERING_SERVICE, "--root", (directory() / "root2").string(), "--uart",
                          "pty:" + (directory() / "uart2").string()});
    ASSERT_TRUE(second.waitForLine(Stream::kErr, "ready uart="));
    const std::string file = csv("factory-serial,carplay-mac\nSN1,001122334455\nSN2,001122334456\nSN3,001122334457\n");

    auto& one = start(command({"write", "--csv", file, "--unit", "U1"}));
    auto& two = start(command({"write", "--csv", file, "--unit", "U2", "--port", (directory() / "uart2").string()}));
    expectEnd(one, 0);
    expectEnd(two, 0);

    EXPECT_THAT((std::vector{stored("factory_serial_num"), stored("factory_serial_num", "root2")}),
                testing::UnorderedElementsAre("SN1", "SN2"));
    // Known by what they hold from now on.
    EXPECT_EQ(identity({"write", "--csv", file}).status, 0);
    EXPECT_EQ(identity({"verify", "--csv", file}).status, 0);
    EXPECT_THAT(states(), testing::UnorderedElementsAre("SN1 verified", "001122334455 verified", "SN2 verified",
                                                        "001122334456 verified"));
}

TEST_F(StationIdentityTest, JournalThatCannotBeWrittenLeavesNoUnitHalfDone)
{
    startService();

    const auto outcome =
        identity({"write", "--set", "factory-serial=SN1", "--set", "hu-serial=HU7", "--journal", "/dev/full"});

    EXPECT_EQ(outcome.status, 7);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr("/dev/full: cannot be written: No space left on device")));
    EXPECT_THAT(linesOf(outcome.out), SizeIs(2));
    EXPECT_EQ(stored("factory_serial_num"), "SN1");
    EXPECT_EQ(stored("hu_serial_num"), "HU7");
}

// A unit that plays its part step by step: request and reply in plain bytes.

// 0F FF [], 8F FF [01]
const Bytes kAskMode{0x2A, 0xA2, 0x00, 0x02, 0x0F, 0xFF, 0xFE, 0xF0};
const Bytes kModeIsOn{0x2A, 0xA2, 0x00, 0x03, 0x8F, 0xFF, 0x01, 0x00, 0xFE, 0x6E};
// 0A 03 [], 8A 03 [], 8A 03 [SN123], 8A 03 [SN124]
const Bytes kAskSerial{0x2A, 0xA2, 0x00, 0x02, 0x0A, 0x03, 0xFF, 0xF1};
const Bytes kNoSerial{0x2A, 0xA2, 0x00, 0x02, 0x8A, 0x03, 0xFF, 0x71};
const Bytes kSerial{0x2A, 0xA2, 0x00, 0x07, 0x8A, 0x03, 0x53, 0x4E, 0x31, 0x32, 0x33, 0x00, 0xFE, 0x35};
const Bytes kOtherSerial{0x2A, 0xA2, 0x00, 0x07, 0x8A, 0x03, 0x53, 0x4E, 0x31, 0x32, 0x34, 0x00, 0xFE, 0x34};
// 0A 02 [SN123]
const Bytes kWriteSerial{0x2A, 0xA2, 0x00, 0x07, 0x0A, 0x02, 0x53, 0x4E, 0x31, 0x32, 0x33, 0x00, 0xFE, 0xB6};

// 0A 12 [], 8A 0F []: 02+0A+12 = 001E; 02+8A+0F = 009B
const Bytes kAskMac{0x2A, 0xA2, 0x00, 0x02, 0x0A, 0x12, 0xFF, 0xE2};
const Bytes kNoMac{0x2A, 0xA2, 0x00, 0x02, 0x8A, 0x0F, 0xFF, 0x65};
// 0A 14 [], 8A 14 []: 02+0A+14 = 0020; 02+8A+14 = 00A0
const Bytes kAskHuSerial{0x2A, 0xA2, 0x00, 0x02, 0x0A, 0x14, 0xFF, 0xE0};
const Bytes kNoHuSerial{0x2A, 0xA2, 0x00, 0x02, 0x8A, 0x14, 0xFF, 0x60};

struct Step {
    Bytes request;
    Bytes reply;
};

const std::vector<Step> kConversation{{kAskMode, kModeIsOn},       {kAskSerial, kNoSerial},  // would it be refused?
                                      {kAskSerial, kNoSerial},     {kAskMac, kNoMac},
                                      {kAskHuSerial, kNoHuSerial},                           // which unit is it?
                                      {kAskSerial, kNoSerial},                               // what was there before?
                                      {kAskHuSerial, kNoHuSerial}, {kAskSerial, kNoSerial},  // is it still that unit?
                                      {kWriteSerial, {}},          {kAskSerial, kSerial}};
constexpr std::size_t kReadingBack = 9;

/// Plays the first `count` steps.
void play(PtyPeer& unit, const std::vector<Step>& steps, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_EQ(unit.read(steps[i].request.size()), steps[i].request) << "step " << i;
        unit.write(steps[i].reply);
    }
}

class PlayedUnitTest : public StationIdentityTest
{
protected:
    ChildProcess& write(const std::vector<std::string>& more = {})
    {
        auto all = command({"write", "--set", "factory-serial=SN123", "--port", unit.path()});
        all.insert(all.end(), more.begin(), more.end());
        return start(all);
    }

    PtyPeer unit;
};

TEST_F(PlayedUnitTest, ReadBackThatDiffersHasStatusTwelve)
{
    auto& process = write();
    auto steps = kConversation;
    steps[kReadingBack].reply = kOtherSerial;
    play(unit, steps, steps.size());

    expectEnd(process, 12);
    EXPECT_THAT(linesOf(process.output(Stream::kErr)),
                ElementsAre(HasSubstr("factory-serial: expected SN123, got SN124")));
    EXPECT_EQ(journal().at(0)["result"], "differs");
    EXPECT_EQ(journal().at(0)["read"], "SN124");
}

TEST_F(StationIdentityTest, RefusalIsPrintedOnceOnATerminal)
{
    startService();
    identity({"write", "--set", "factory-serial=SN1"});

    const auto [text, status] = runOnTerminal(command({"write", "--set", "factory-serial=SN2"}), environment(), "");

    EXPECT_EQ(status, 1);
    EXPECT_THAT(linesOf(text), ElementsAre(HasSubstr("factory-serial: refused SN2, the unit has SN1")));
}

TEST_F(PlayedUnitTest, SilentUnitHasStatusThree)
{
    auto& process = write({"--timeout", "0.05"});
    play(unit, kConversation, 1);

    expectEnd(process, 3);
    EXPECT_THAT(linesOf(process.output(Stream::kErr)),
                ElementsAre(HasSubstr("identity.factory-serial: expected a reply within ")));
    EXPECT_EQ(journal().at(0)["result"], "ended");
}

TEST_F(PlayedUnitTest, PortThatGoesHasStatusEleven)
{
    auto& process = write({"--reconnect", "0.1"});
    play(unit, kConversation, kReadingBack);
    unit.read(kConversation[kReadingBack].request.size());
    unit.hangUp();

    expectEnd(process, 11);
    EXPECT_THAT(linesOf(process.output(Stream::kErr)), ElementsAre(HasSubstr(unit.path())));
    EXPECT_THAT(process.output(Stream::kOut), IsEmpty());
}

TEST_F(PlayedUnitTest, InterruptHasStatusFour)
{
    auto& process = write();
    play(unit, kConversation, 1);
    unit.read(kConversation[1].request.size());
    process.signal(SIGINT);

    expectEnd(process, 4);
    EXPECT_THAT(linesOf(process.output(Stream::kErr)), ElementsAre(HasSubstr("interrupted")));
}

TEST_F(PlayedUnitTest, PortThatIsMissingHasStatusTen)
{
    const auto outcome = identity({"read", "--port", "/dev/no-such-line"});

    EXPECT_EQ(outcome.status, 10);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr("/dev/no-such-line")));
}

TEST_F(PlayedUnitTest, StationThatIsKilledLeavesTheRowToItsUnit)
{
    const std::string file = csv("factory-serial\nSN123\nSN2\n");
    auto& process = start(command({"write", "--csv", file, "--unit", "U1", "--port", unit.path()}));
    play(unit,
         {{kAskMode, kModeIsOn},
          {kAskSerial, kNoSerial},
          {kAskMac, kNoMac},
          {kAskHuSerial, kNoHuSerial},
          {kAskSerial, kNoSerial},
          {kAskSerial, kNoSerial},
          {kAskHuSerial, kNoHuSerial},
          {kAskSerial, kNoSerial},
          {kWriteSerial, {}}},
         9);
    EXPECT_EQ(unit.read(kAskSerial.size()), kAskSerial);
    process.signal(SIGKILL);
    EXPECT_EQ(process.wait(), 128 + SIGKILL);
    startService();

    EXPECT_THAT(linesOf(identity({"write", "--csv", file, "--unit", "U1"}).err), ElementsAre(HasSubstr("--again")));
    const auto other = identity({"write", "--csv", file, "--unit", "U2"});
    EXPECT_EQ(other.status, 0) << other.err;
    EXPECT_EQ(stored("factory_serial_num"), "SN2");

    auto& again = start(command({"write", "--csv", file, "--unit", "U1", "--port", unit.path()}));
    play(unit,
         {{kAskMode, kModeIsOn},
          {kAskSerial, kSerial},
          {kAskMac, kNoMac},
          {kAskHuSerial, kNoHuSerial},
          {kAskSerial, kSerial},
          {kAskSerial, kSerial}},
         6);
    expectEnd(again, 0);
    EXPECT_THAT(again.output(Stream::kOut), HasSubstr("factory-serial: unchanged SN123"));
}

TEST_F(StationIdentityTest, OutputThatCannotBeWrittenIsReportedWithTheReason)
{
    startService();

    const auto outcome = run({"bash", "-c", shellWords(ENGINEERING_STATION) + " identity read > /dev/full"});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err),
                ElementsAre(HasSubstr("standard output: cannot be written: No space left on device")));
}

struct Refused {
    const char* name;
    std::vector<std::string> arguments;
    const char* message;
};

class IdentityRefuses : public StationIdentityTest, public testing::WithParamInterface<Refused>
{
};

TEST_P(IdentityRefuses, InOneLineWithStatusTwo)
{
    const std::string broken = csv("factory-serial,carplay-mac\nSN1,0011\n");
    auto arguments = GetParam().arguments;
    std::ranges::replace(arguments, std::string("CSV"), broken);

    const auto outcome = identity(arguments);

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr(GetParam().message)));
}

INSTANTIATE_TEST_SUITE_P(
    Identity, IdentityRefuses,
    testing::Values(Refused{"NoVerb", {}, "identity"}, Refused{"NoValues", {"write"}, "expected values: "},
                    Refused{"ReadOfUnknownRecord", {"read", "color"}, "got 'color'"},
                    Refused{"BrokenCsv", {"write", "--csv", "CSV"}, "units.csv:2: carplay-mac: "},
                    Refused{"MissingCsv", {"verify", "--csv", "/no/such/file"}, "/no/such/file"},
                    Refused{"FolderAsCsv", {"write", "--csv", "/proc", "--unit", "U1"}, "/proc"},
                    Refused{"CsvOnStandardInput", {"write", "--csv", "-"}, "expected a file"},
                    Refused{"VerifyWithoutValues", {"verify"}, "expected values: --set RECORD=VALUE or --csv FILE"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace tests
