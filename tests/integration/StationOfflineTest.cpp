// What engineering-station does without a line.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <nlohmann/json.hpp>

#include "station/trace/Pcapng.h"
#include "tests/integration/BenchTest.h"

namespace tests {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

Outcome station(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), ENGINEERING_STATION);
    return run(arguments);
}

/// Runs a shell's command line in which $STATION is the program.
Outcome shell(const std::string& line)
{
    return run({"bash", "-c", line}, {{"STATION", shellWords(ENGINEERING_STATION)}});
}

TEST(StationEncode, PrintsTheFrameOfACommand)
{
    EXPECT_EQ(station({"encode", "tuner.play", "frequency=8750"}).out, "2A A2 00 04 02 00 22 2E FF AA\n");
    EXPECT_EQ(station({"encode", "tuner.play", "frequency=87.5MHz"}).out, "2A A2 00 04 02 00 22 2E FF AA\n");
    EXPECT_EQ(station({"encode", "0F", "00", "01"}).out, "2A A2 00 03 0F 00 01 00 FF ED\n");
}

TEST(StationEncode, AsJsonSaysWhatTheFrameMeans)
{
    const json object = json::parse(station({"encode", "tuner.tune", "action=seek-up", "--json"}).out);

    EXPECT_EQ(object["schema"], 1);
    EXPECT_EQ(object["bytes"], "2A A2 00 03 02 04 01 00 FF F6");
    EXPECT_EQ(object["request"]["fields"]["action"]["choice"], "seek-up");
}

TEST(StationEncode, OfADestructiveCommandNeedsNoYes)
{
    EXPECT_EQ(station({"encode", "bluetooth.delete-pairings"}).status, 0);
}

TEST(StationDecode, PrintsFramesWithTheirSenderAndMeaning)
{
    const auto outcome = station({"decode", "2A", "A2", "00", "02", "02", "01", "FF", "FB", "2A", "A2", "00", "04",
                                  "82", "01", "24", "FE", "FE", "57"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
              "station  02 01 []  tuner.frequency\n"
              "unit     82 01 [24 FE]  tuner.frequency: frequency=9470 (94.7 MHz on FM)\n");
}

TEST(StationDecode, ShowsGarbageWrongChecksumsAndACutEndWhereTheyStand)
{
    const auto outcome = station({"decode", "11 22", "2AA20004820124FEFE58", "2A A2 00 02 02 01 FF FB", "2A A2 00 04"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
              "garbage: 11 22\n"
              "corrupt  82 01 [24 FE]  (! wrong checksum)\n"
              "station  02 01 []  tuner.frequency\n"
              "incomplete: 2A A2 00 04\n");
}

TEST(StationDecode, LeavesWhatTheCatalogueDoesNotKnowAsBytes)
{
    EXPECT_EQ(station({"decode", "8F 77 [01 02]"}).out, "unit     8F 77 [01 02]  8F 77: 01 02\n");
    EXPECT_EQ(station({"decode", "33 44 []"}).out, "station  33 44 []  33 44\n");
}

TEST(StationDecode, GoesByTheSenderThatItIsTold)
{
    EXPECT_THAT(station({"decode", "02 01 []", "--from", "unit"}).out, StartsWith("unit     02 01 []  02 01"));
    EXPECT_THAT(station({"decode", "82 01 []", "--from=station"}).out, StartsWith("station  82 01 []  82 01"));
}

TEST(StationDecode, TakesASharedCodeAsTheReplyToTheRequestBeforeIt)
{
    const auto lines = linesOf(shell("printf '0A 12 []\\n8A 0F []\\n' | $STATION decode").out);

    ASSERT_THAT(lines, SizeIs(2));
    const auto key = [](const std::string& line) { return line.substr(line.find(']')); };
    EXPECT_THAT(key(lines[1]), StartsWith(key(lines[0])));
}

TEST(StationDecode, AsJsonIsOneObjectForEachPiece)
{
    const auto lines = linesOf(station({"decode", "11 2A A2 00 04 82 01 24 FE FE 57", "--json"}).out);

    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(json::parse(lines[0]), json::parse(R"({"schema": 1, "type": "garbage", "bytes": "11"})"));
    EXPECT_EQ(json::parse(lines[1])["from"], "unit");
    EXPECT_EQ(json::parse(lines[1])["fields"]["frequency"]["value"], 9470);
}

TEST(StationDecode, AsJsonHasTheBytesOfACorruptFrame)
{
    const json object = json::parse(station({"decode", "2A A2 00 04 82 01 24 FE FE 58", "--json"}).out);

    EXPECT_EQ(object["type"], "corrupt");
    EXPECT_EQ(object["params"], "24 FE");
    EXPECT_EQ(object.value("bytes", ""), "2A A2 00 04 82 01 24 FE FE 58");
}

TEST(StationDecode, ReadsHexadecimalTextFromAFileAndStandardInput)
{
    const TempDir directory;
    const auto path = directory.path() / "frames.txt";
    std::ofstream(path) << "# a question\n2A A2 00 02 02 01 FF FB\n82 01 [24 FE]  # and its answer\n";

    const auto fromFile = station({"decode", path.string()});

    EXPECT_THAT(linesOf(fromFile.out),
                ElementsAre(StartsWith("station  02 01 []"), StartsWith("unit     82 01 [24 FE]")));
    EXPECT_EQ(shell("$STATION decode < " + path.string()).out, fromFile.out);
    EXPECT_EQ(shell("$STATION decode - < " + path.string()).out, fromFile.out);
}

TEST(StationDecode, ReadsTheBareBytesOfALine)
{
    EXPECT_EQ(shell("printf '\\x2A\\xA2\\x00\\x02\\x02\\x01\\xFF\\xFB' | $STATION decode").out,
              "station  02 01 []  tuner.frequency\n");
}

TEST(StationDecode, ReadsACaptureWithItsDirections)
{
    const TempDir directory;
    const auto path = directory.path() / "trace.pcapng";
    {
        station::pcapng::File file(path.string(), {"test", "/dev/ttyUSB0", 115200}, {});
        using Kind = station::TraceEvent::Kind;
        const std::chrono::system_clock::time_point at(std::chrono::seconds(1'800'000'000));
        file.on({Kind::kSent, at, {}, {0x02, 0x01, {}}, {}});
        file.on({Kind::kReceived, at, {}, {0x82, 0x01, {0x24, 0xFE}}, {}});
    }

    EXPECT_EQ(station({"decode", path.string()}).out,
              "station  02 01 []  tuner.frequency\n"
              "unit     82 01 [24 FE]  tuner.frequency: frequency=9470 (94.7 MHz on FM)\n");
    const auto lines = linesOf(station({"decode", path.string(), "--json"}).out);
    ASSERT_THAT(lines, SizeIs(2));
    EXPECT_EQ(json::parse(lines[1])["time_ns"], 1'800'000'000'000'000'000);
}

TEST(StationDecode, ReadsWhatOtherToolsWrite)
{
    const std::string captures = SOURCE_FOLDER "/station/trace/captures/";
    const std::string frames =
        "station  02 01 []  tuner.frequency\n"
        "unit     82 01 [24 FE]  tuner.frequency: frequency=9470 (94.7 MHz on FM)\n"
        "station  0F 00 [01]  test.set-mode: mode=1 (on)\n"
        "unit     8F 00 [01]  test.set-mode: mode=1 (on)\n";
    for (const char* const file :
         {"saleae-logic1.csv", "saleae-logic2.csv", "sigrok-classes.txt", "xxd.txt", "hexdump.txt", "big-ns.pcap"}) {
        EXPECT_EQ(station({"decode", captures + file}).out, frames) << file;
    }
    const auto log = station({"decode", captures + "log-utc.txt", "--json"});
    EXPECT_EQ(json::parse(linesOf(log.out).at(0))["time_ns"], 1'795'262'400'001'000'000);
    EXPECT_THAT(log.err, HasSubstr("log-utc.txt: ignored 1 line without TX: or RX: and bytes"));
}

TEST(StationDecode, ReadsTheFormThatItIsTold)
{
    // The beginning looks like hexadecimal text.
    EXPECT_EQ(shell("printf '11\\nTX: 2A A2 00 02 02 01 FF FB\\n' | $STATION decode").status, 2);
    EXPECT_EQ(shell("printf '11\\nTX: 2A A2 00 02 02 01 FF FB\\n' | $STATION decode --format log").out,
              "station  02 01 []  tuner.frequency\n");
}

TEST(StationDecode, WithoutASoundFrameHasStatusOne)
{
    const auto outcome = station({"decode", "11", "22"});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "garbage: 11 22\n");
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
    EXPECT_EQ(shell("$STATION decode < /dev/null").status, 1);
}

class StationDecodeWaiting : public BenchTest
{
};

TEST_F(StationDecodeWaiting, IsEndedByAnInterruptWithStatusFour)
{
    const auto path = directory() / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    auto& program = start({ENGINEERING_STATION, "decode", path.string()});
    const int writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);  // returns once the program has opened its end

    program.signal(SIGINT);

    expectEnd(program, 4);
    close(writer);
}

TEST_F(StationDecodeWaiting, TakesWhatAPipeBringsInPieces)
{
    const auto path = directory() / "pipe";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    auto& program = start({ENGINEERING_STATION, "decode", path.string()});
    std::ofstream writer(path);

    writer << "82 01 " << std::flush;
    writer << "[24 FE]" << std::flush;
    writer.close();

    expectEnd(program, 0);
    EXPECT_THAT(program.output(ChildProcess::Stream::kOut), StartsWith("unit     82 01 [24 FE]"));
}

struct Mistake {
    const char* name;
    const char* line;
    const char* text;
};

class OfflineMistakeTest : public testing::TestWithParam<Mistake>
{
};

TEST_P(OfflineMistakeTest, IsOneLineThatSaysWhatWouldBeRightWithStatusTwo)
{
    const auto outcome = shell(GetParam().line);

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(linesOf(outcome.err), ElementsAre(HasSubstr(GetParam().text)));
}

INSTANTIATE_TEST_SUITE_P(
    Station, OfflineMistakeTest,
    testing::Values(
        Mistake{"NoVerb", "$STATION", "expected a verb (ports, send, "},
        Mistake{"MistypedVerb", "$STATION sned", "engineering-station: unknown verb 'sned'; did you mean 'send'?"},
        Mistake{"UnlikeAnyVerb", "$STATION transmogrify", "unknown verb 'transmogrify'; expected one of "},
        Mistake{"NounWithoutVerb", "$STATION catalogue",
                "engineering-station: catalogue: expected a verb (show, list, check), got none"},
        Mistake{"MistypedSubverb", "$STATION catalogue chekc x", "did you mean 'check'?"},
        Mistake{"OneArgumentTooMany", "$STATION catalogue list tuner", "expected no further argument, got 'tuner'"},
        Mistake{"UnknownCodesToShow", "$STATION catalogue show 02.77", "'02.77' is not a command"},
        Mistake{"WholeFrame", "$STATION encode 2A A2 00 02 02 01 FF FB",
                "2A A2 begins a whole frame; give its content: 02 01"},
        Mistake{"RecordWithoutSet", "$STATION identity write hu-serial=X", "did you mean '--set hu-serial=X'?"},
        Mistake{"VerbForAPort", "$STATION --port send tuner.frequency", "--port: expected PORT, got the verb 'send'"},
        Mistake{"PortWithoutAVerb", "$STATION --port", "engineering-station: expected a verb behind --port ("},
        Mistake{"UnknownKeyToShow", "$STATION catalogue show tuner.tone", "did you mean 'tuner.tune'?"},
        Mistake{"UnknownShell", "$STATION completion tcsh", "bash"},
        Mistake{"UnknownSender", "$STATION decode 00 --from nobody", "station"},
        Mistake{"NoSuchFileToDecode", "$STATION decode trace.pcapng",
                "no such file: trace.pcapng (or bytes such as '2A A2')"},
        Mistake{"NoHexadecimalInAFile", "printf '00\\nxyz\\n' | $STATION decode",
                "standard input:2: expected bytes in hexadecimal"},
        Mistake{"NoHexadecimal", "$STATION decode '8F 00 [01'", "expected two codes and at most 252 bytes in brackets"},
        Mistake{"NoSuchFileNorBytes", "$STATION decode nosuchfile", "no such file: nosuchfile (or bytes"},
        Mistake{"PcapThatIsCutOff", "printf '\\xD4\\xC3\\xB2\\xA1' | $STATION decode",
                "standard input: the file ends within its header"},
        Mistake{"NothingThatFits", "printf '\\x89PNG\\r\\n\\x1A\\n\\0' | $STATION decode",
                "standard input: expected a capture (pcapng, pcap, Saleae CSV, "},
        Mistake{"UnknownFormat", "$STATION decode --format vcd x", "--format: expected one of auto, pcapng"},
        Mistake{"FormWithoutACapture", "$STATION monitor --format pcap",
                "monitor: --format: expected --replay with it, got none"},
        Mistake{"ChannelThatIsNotThere", "echo 'TX: 2A A2 00 02 02 01 FF FB' | $STATION decode --station A",
                "standard input: expected a channel 'A', got 'TX'"},
        Mistake{"CaptureThatIsCutOff", "printf '\\x0A\\x0D\\x0D\\x0A\\x1C' | $STATION decode", "standard input"},
        Mistake{"NoSuchCatalogue", "$STATION catalogue check /no/such.toml", "/no/such.toml: no such file"},
        Mistake{"DirectoryForACatalogue", "$STATION catalogue check /", "/: cannot be read: Is a directory"},
        Mistake{"CatalogueThatIsNoToml", "printf '\\nschema = \\n' | $STATION catalogue check -", "-:2:"}),
    [](const auto& row) { return row.param.name; });

class StationOutput : public testing::TestWithParam<const char*>
{
};

TEST_P(StationOutput, ThatCannotBeWrittenIsToldWithItsReason)
{
    const auto outcome = shell(std::string("$STATION ") + GetParam() + " > /dev/full");

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "engineering-station: standard output: cannot be written: No space left on device\n");
}

TEST_P(StationOutput, WhoseReaderHasWhatItWantedIsNoReasonForAWord)
{
    const TempDir directory;
    // A pipe that has lost its reader before the first byte.
    const std::string pipe = directory.path() / "pipe";
    const auto outcome =
        shell("mkfifo " + pipe + " && exec 3<>" + pipe + " 4>" + pipe + " 3<&- && $STATION " + GetParam() + " >&4");

    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Station, StationOutput,
                         testing::Values("--help", "--version", "send --help", "catalogue show", "catalogue list",
                                         "catalogue show --json", "catalogue list --json", "encode 0F 00",
                                         "decode '8F 00 [01]'", "completion bash", "man", "ports --json"),
                         [](const auto& row) {
                             std::string name(row.param);
                             std::erase_if(name, [](unsigned char c) { return std::isalnum(c) == 0; });
                             return name;
                         });

TEST(Station, TellsItsVersionAsJson)
{
    EXPECT_EQ(json::parse(station({"--version", "--json"}).out),
              json::parse(R"({"schema": 1, "program": "engineering-station", "version": "1.0.0"})"));
    EXPECT_EQ(station({"--json", "--version"}).out, station({"--version", "--json"}).out);
}

class StationText : public testing::TestWithParam<const char*>
{
};

TEST_P(StationText, IsOneObjectAsJson)
{
    const auto text = shell(std::string("$STATION ") + GetParam());
    const auto object = shell(std::string("$STATION --json ") + GetParam());

    EXPECT_EQ(object.status, 0);
    EXPECT_EQ(json::parse(object.out), (json{{"schema", 1}, {"text", text.out}}));
}

INSTANTIATE_TEST_SUITE_P(Station, StationText, testing::Values("--help", "send --help", "completion bash", "man"),
                         [](const auto& row) {
                             std::string name(row.param);
                             std::erase_if(name, [](unsigned char c) { return std::isalnum(c) == 0; });
                             return name;
                         });

TEST(StationCatalogue, ListsCommandsAndWhatTheUnitSendsByItself)
{
    const auto lines = linesOf(station({"catalogue", "list"}).out);
    const json list = json::parse(station({"catalogue", "list", "--json"}).out);

    EXPECT_EQ(lines.size(), list["commands"].size() + list["notices"].size());
    ASSERT_THAT(list["notices"], SizeIs(testing::Ge(1U)));
    for (const std::string key : list["notices"]) {
        EXPECT_THAT(lines, testing::Contains(AllOf(HasSubstr(" " + key + " "), EndsWith("(sent unasked)")))) << key;
    }
}

TEST(StationCatalogue, CheckSaysWhatASoundOneHolds)
{
    const TempDir directory;
    const auto path = (directory.path() / "catalogue.toml").string();
    std::ofstream(path) << R"(schema = 1
[[group]]
code = 0x02
key = "tuner"
title = "Tuner"
meaning = "Plays."
[[group.command]]
code = 0x01
key = "frequency"
title = "Frequency"
meaning = "Asks for it."
access = "read"
)";

    const auto outcome = station({"catalogue", "check", path});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, path + ": sound, 1 command, 0 notices\n");
    EXPECT_THAT(outcome.err, IsEmpty());
}

TEST(StationCatalogue, ShowsOneCommandWithAnExampleThatCanBeTyped)
{
    const auto outcome = station({"catalogue", "show", "tuner.play"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, AllOf(StartsWith("tuner.play, 02 00: "),
                                   EndsWith("\nExample:\n"
                                            "  engineering-station send tuner.play frequency=8750\n"
                                            "  2A A2 00 04 02 00 22 2E FF AA\n")));
}

TEST(StationCatalogue, ShowsWhatHasTheCodes)
{
    for (const auto& [codes, key] : {std::pair("02", "tuner"), std::pair("02.00", "tuner.play"),
                                     std::pair("0x82.0", "tuner.play"), std::pair("06.11", "keys.pressed")}) {
        const auto outcome = station({"catalogue", "show", codes});
        EXPECT_EQ(outcome.status, 0) << codes;
        EXPECT_EQ(outcome.out, station({"catalogue", "show", key}).out);
    }
}

TEST(StationCatalogue, EveryCommandHasAnExample)
{
    const json list = json::parse(station({"catalogue", "list", "--json"}).out);

    ASSERT_GT(list["commands"].size(), 50U);
    for (const std::string key : list["commands"]) {
        EXPECT_THAT(station({"catalogue", "show", key}).out, HasSubstr("\nExample:\n")) << key;
    }
}

TEST(StationCatalogue, AsJsonIsWhole)
{
    const json object = json::parse(station({"catalogue", "show", "--json"}).out);

    EXPECT_EQ(object["schema"], 1);
    EXPECT_THAT(object["sha256"].get<std::string>(), SizeIs(64));
    std::size_t commands = 0;
    for (const json& group : object["groups"]) {
        commands += group["commands"].size();
    }
    EXPECT_EQ(commands, json::parse(station({"catalogue", "list", "--json"}).out)["commands"].size());
}

TEST(StationCatalogue, CheckTellsEveryMistakeByItsPlace)
{
    const TempDir directory;
    const auto path = (directory.path() / "catalogue.toml").string();
    std::ofstream(path) << "schema = 1\n[[group]]\ncode = 0x100\nkey = 7\n";

    const auto outcome = station({"catalogue", "check", path});

    EXPECT_EQ(outcome.status, 2);
    ASSERT_THAT(linesOf(outcome.err), SizeIs(testing::Ge(2U)));
    for (const std::string& line : linesOf(outcome.err)) {
        EXPECT_THAT(line, testing::MatchesRegex(path + ":[0-9]+:[0-9]+: .+"));
    }
    const json object = json::parse(station({"catalogue", "check", path, "--json"}).out);
    EXPECT_EQ(object["problems"].size(), linesOf(outcome.err).size());
}

TEST(StationOutput, NamesSteerNoTerminal)
{
    const TempDir directory;
    const std::string name = (directory.path() / "a\u009B31m\u202E\x1B[31m\x7F.toml").string();
    const std::vector<std::vector<std::string>> verbs{{"plan", "check", name},
                                                      {"plan", "check", name, "--json"},
                                                      {"catalogue", "check", name},
                                                      {"catalogue", "check", name, "--json"},
                                                      {"report", "show", name},
                                                      {"report", "list", "--results", name, "--json"},
                                                      {"monitor", "--replay", name},
                                                      {"send", "test.mode", "--port", name},
                                                      {"send", name},
                                                      {"decode", name}};

    for (const bool exists : {false, true}) {
        if (exists) {
            std::ofstream(name) << "schema = 1\n\"\u009B\u202E\" = 1\n";
        }
        for (const auto& verb : verbs) {
            const auto outcome = station(verb);

            for (const char* steering : {"\u009B", "\u202E", "\x1B", "\x7F"}) {
                EXPECT_THAT(outcome.out + outcome.err, Not(HasSubstr(steering))) << verb[0] << " " << verb[1];
            }
        }
    }
}

TEST(StationFiles, KeyOfFiftyThousandPartsIsOneErrorLineWhicheverFileIsRead)
{
    const TempDir directory;
    const auto path = (directory.path() / "deep.toml").string();
    const auto sound = (directory.path() / "sound.toml").string();
    std::ofstream(sound) << "schema = 1\nname = \"a\"\ntitle = \"A\"\n[[main]]\nname = \"G\"\n"
                            "steps = [{ prompt = \"?\", id = \"a\" }]\n";
    std::string key = "a";
    for (int i = 1; i < 50'000; ++i) {
        key += ".a";
    }

    for (const auto& text : {key + " = 1\n", "[" + key + "]\n", "[[" + key + "]]\n", "a = { " + key + " = 1 }\n"}) {
        std::ofstream(path) << text;
        for (const std::vector<std::string>& verb : {std::vector<std::string>{"plan", "check", path},
                                                     {"catalogue", "check", path},
                                                     {"plan", "run", sound, "--answers", path}}) {
            const auto outcome = station(verb);

            EXPECT_EQ(outcome.status, 2) << outcome.err;
            EXPECT_THAT(
                linesOf(outcome.err),
                ElementsAre(AllOf(StartsWith(path + ":1:"), EndsWith(": expected at most 16 parts in a dotted key"))));
        }
    }
}

TEST(StationReport, TheIndexIsInTheCacheIfItCannotBeInTheResults)
{
    const TempDir directory;
    const auto results = directory.path() / "results";
    const auto cache = directory.path() / "cache" / "engineering-station";
    std::filesystem::create_directories(results / "run-1");
    // A directory takes the index's name, so that even root cannot make the file.
    std::filesystem::create_directories(results / ".runs.sqlite" / "taken");
    std::ofstream(results / "run-1" / "record.jsonl")
        << R"({"event":"started","schema":2,"id":"run-1","uuid":"","at":"2026-11-21T14:05:08Z","serial":"A",)"
           R"("port":"/dev/ttyUSB0","baud":115200,"station":{"host":"EOL 3","operator":"","version":"1.0.0"},)"
           R"("plan":"end-of-line","title":"","path":"","plan_sha256":"","steps":0,"catalogue_sha256":"","phases":[]})"
           "\n"
           R"({"event":"ended","serial":"A","verdict":"PASS","reason":"","at":"2026-11-21T14:05:18Z","failed_step":"",)"
           R"("failed_steps":0,"findings":[],"cuts":[],"line":{"losses":0,"reconnects":0,"repeated_sends":0,)"
           R"("corrupt_frames":0,"garbage_bytes":0}})"
           "\n";
    const auto list = [&] {
        return run({ENGINEERING_STATION, "report", "list", results},
                   {{"XDG_CACHE_HOME", (directory.path() / "cache").string()}});
    };

    // A record that changed a moment ago is not kept yet.
    const auto limit = std::chrono::steady_clock::now() + kGenerous;
    Outcome outcome = list();
    while (!std::filesystem::exists(cache) && std::chrono::steady_clock::now() < limit) {
        outcome = list();
    }

    EXPECT_TRUE(std::filesystem::exists(cache));
    EXPECT_EQ(list().out, outcome.out);
    EXPECT_THAT(outcome.out, HasSubstr("end-of-line  A     PASS     10.00 s  run-1"));
    EXPECT_THAT(outcome.err, HasSubstr(".runs.sqlite: expected a run, got a folder without record.jsonl"));
}

}  // namespace
}  // namespace tests
