#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/BenchTest.h"

namespace tests {
namespace {

using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;
using Stream = ChildProcess::Stream;

MATCHER_P2(Field, name, value, "")
{
    return arg.at(name) == value;
}

/// Two units and one station.
class StationRegistryTest : public BenchTest
{
protected:
    void startUnits()
    {
        startService();
        auto& second =
            start({ENGINEERING_SERVICE, "--root", (directory() / "root2").string(), "--uart", "pty:" + other()});
        ASSERT_TRUE(second.waitForLine(Stream::kErr, "ready uart="));
        for (const std::string& port : {link().string(), other()}) {
            run({ENGINEERING_STATION, "send", "test.set-mode", "mode=on", "--port", port});
        }
    }

    std::string other() const { return directory() / "uart2"; }

    Outcome station(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), ENGINEERING_STATION);
        return run(arguments);
    }

    Outcome atOther(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.end(), {"--port", other()});
        return station(std::move(arguments));
    }

    std::string file(const std::string& name, const std::string& content) const
    {
        std::ofstream(directory() / name) << content;
        return directory() / name;
    }

    std::string stored(const std::string& record, const std::string& rootName) const
    {
        std::ifstream in(directory() / rootName / "perm_data/data/engineering" / record);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    std::vector<json> values(const std::vector<std::string>& verb = {"identity", "registry", "list", "--json"})
    {
        std::vector<json> all;
        for (const std::string& line : linesOf(station(verb).out)) {
            all.push_back(json::parse(line));
        }
        std::erase_if(all, [](const json& object) { return object["type"] != "value"; });
        return all;
    }

    static std::string planThatWrites(const std::string& record, const std::string& value)
    {
        return "schema = 1\nname = \"write\"\ntitle = \"Write\"\n[[main]]\nname = \"G\"\nsteps = [\n"
               "  { send = \"test.set-mode\", with = { mode = \"on\" } },\n  { send = \"identity.write-" +
               record + "\", with = { value = \"" + value + "\" } },\n]\n";
    }
};

TEST_F(StationRegistryTest, ValueOfAUnitGoesToNoOtherUnitWhateverSendsIt)
{
    startUnits();
    ASSERT_EQ(station({"identity", "write", "--set", "hu-serial=HU7", "--unit", "U1"}).status, 0);
    const std::string plan = file("write.toml", planThatWrites("hu-serial", "HU7"));

    for (const std::vector<std::string>& sender :
         {std::vector<std::string>{"identity", "write", "--set", "hu-serial=HU7"},
          {"send", "identity.write-hu-serial", "value=HU7"},
          {"send", "0A", "13", "48", "55", "37"},
          {"replay", file("capture.txt", "0A 13 [48 55 37]\n")},
          {"plan", "run", plan, "--no-record"}}) {
        const auto refused = atOther(sender);

        EXPECT_EQ(refused.status, sender[0] == "plan" ? 6 : 1) << sender[0];
        EXPECT_THAT(refused.out + refused.err, HasSubstr("hu-serial HU7 has been given to unit U1")) << sender[0];
    }
    EXPECT_EQ(stored("hu_serial_num", "root2"), "");
}

TEST_F(StationRegistryTest, TwoPortsOfOneRunDoNotGetOneValue)
{
    startUnits();
    const std::string plan = file("write.toml", planThatWrites("hu-serial", "HU7"));

    const auto outcome = station({"plan", "run", plan, "--no-record", "--port", link(), "--port", other()});

    EXPECT_EQ(outcome.status, 6);
    EXPECT_THAT(outcome.out + outcome.err, HasSubstr("hu-serial HU7 has been given to unit"));
    EXPECT_THAT((std::vector{stored("hu_serial_num", "root"), stored("hu_serial_num", "root2")}),
                testing::UnorderedElementsAre("HU7", ""));
}

TEST_F(StationRegistryTest, RangesGiveAUnitItsNextValues)
{
    startUnits();

    EXPECT_EQ(station({"identity", "write", "--range", "factory-serial=SN{000100..000999}", "--mac-block",
                       "carplay-mac=001A7D000000/24", "--unit", "U1"})
                  .out,
              "unit U1\nfactory-serial: written SN000100 (was nothing)\ncarplay-mac: written 001A7D000000 (was "
              "nothing)\n");
}

TEST_F(StationRegistryTest, ReplacedBoardGetsItsUnitsValuesWithAReason)
{
    startUnits();
    ASSERT_EQ(station({"identity", "write", "--set", "hu-serial=HU7", "--unit", "U1"}).status, 0);

    EXPECT_EQ(atOther({"identity", "write", "--set", "hu-serial=HU7", "--unit", "U1"}).status, 1);
    EXPECT_EQ(atOther({"identity", "write", "--set", "hu-serial=HU7", "--unit", "U1", "--reissue", ""}).status, 2);
    EXPECT_EQ(
        atOther({"identity", "write", "--set", "hu-serial=HU7", "--unit", "U1", "--reissue", "board replaced"}).status,
        0);

    EXPECT_EQ(stored("hu_serial_num", "root2"), "HU7");
    const auto events = values({"identity", "registry", "who", "HU7", "--json"}).at(0)["events"];
    EXPECT_THAT(events, testing::Contains(testing::AllOf(Field("event", "reissued"), Field("reason", "board replaced"),
                                                         Field("unit", "U1"))));
    EXPECT_THAT(station({"identity", "registry", "who", "HU7"}).out, HasSubstr("reissued     unit U1, board replaced"));
    std::ifstream journal(directory() / "state" / "engineering-station" / "identity.jsonl");
    const std::string text{std::istreambuf_iterator<char>(journal), {}};
    EXPECT_THAT(text, HasSubstr(R"("waived":"--reissue: board replaced")"));
}

TEST_F(StationRegistryTest, AddressThatNoDeviceHasIsWrittenOnlyOnDemand)
{
    startUnits();
    const std::string multicast = "carplay-mac=01005E000001";

    EXPECT_THAT(station({"identity", "write", "--set", multicast}).err, HasSubstr("which is a multicast address"));

    EXPECT_EQ(station({"identity", "write", "--set", multicast, "--allow-any"}).status, 0);
    EXPECT_EQ(stored("cp_mac_address", "root"), "01:00:5E:00:00:01");
}

TEST_F(StationRegistryTest, PatternOfTheStationHoldsForEverySender)
{
    startUnits();
    environment()["ENGINEERING_STATION"] = file("station.toml", "[records.hu-serial]\npattern = \"HU[0-9]{6}\"\n");
    const std::string expected = "hu-serial: expected a value that matches HU[0-9]{6}, got HU7";

    EXPECT_THAT(station({"identity", "write", "--set", "hu-serial=HU7"}).err, HasSubstr(expected));
    EXPECT_THAT(station({"send", "0A", "13", "48", "55", "37"}).err, HasSubstr(expected));
    EXPECT_EQ(station({"identity", "write", "--set", "hu-serial=HU000001"}).status, 0);
}

TEST_F(StationRegistryTest, RegistryListsFindsImportsAndBlocks)
{
    const std::string csv = file("old.csv", "factory-serial,carplay-mac\nSN1,001A7D000001\n");

    EXPECT_EQ(station({"identity", "registry", "import", csv}).out, csv + ": 2 values new in the registry\n");
    EXPECT_EQ(station({"identity", "registry", "block", "00:1A:7D:00:00:02", "--reason", "laboratory"}).out,
              "00:1A:7D:00:00:02: blocked, no unit gets it\n");
    EXPECT_EQ(station({"identity", "registry", "block", ""}).status, 2);
    EXPECT_EQ(station({"identity", "registry", "block", "\xC3\xA4"}).status, 2);

    const auto registry = json::parse(linesOf(station({"identity", "registry", "list", "--json"}).out).at(0));
    EXPECT_EQ(registry["type"], "registry");
    EXPECT_EQ(json::parse(station({"station", "check", "--json"}).out)["registry"],
              (json{{"path", registry["path"]}, {"uuid", registry["uuid"]}}));
    EXPECT_THAT(values(), SizeIs(5));  // what was blocked could be a serial number of either kind, too
    const auto found = values({"identity", "registry", "who", "00:1a:7d:00:00:01", "--json"});
    ASSERT_THAT(found, SizeIs(1));
    EXPECT_EQ(found[0]["space"], "address");
    EXPECT_EQ(found[0]["unit"], "SN1");
    EXPECT_THAT(station({"identity", "registry", "who", "001A7D000002"}).out,
                AllOf(HasSubstr("blocked"), HasSubstr("laboratory")));
    EXPECT_EQ(station({"identity", "registry", "who", "SN9"}).status, 1);
}

TEST_F(StationRegistryTest, OnlyExistingFilesAreImported)
{
    const std::string empty = file("units.csv.ledger", "");
    const std::string mixed = file("mixed.csv", "factory-serial,carplay-mac\nSN1,001A7D000002\n");
    station({"identity", "registry", "import",
             file("old.csv", "factory-serial,carplay-mac\nSN1,001A7D000001\nSN2,001A7D000002\n")});

    EXPECT_THAT(linesOf(station({"identity", "registry", "import", mixed}).err),
                ElementsAre(HasSubstr("mixed.csv: gives another unit factory-serial SN1, which unit SN1 has")));

    EXPECT_EQ(station({"identity", "registry", "import", empty}).out, empty + ": 0 values new in the registry\n");
    EXPECT_EQ(station({"identity", "registry", "import", "-"}).status, 2);
    EXPECT_FALSE(std::filesystem::exists("-"));
}

TEST_F(StationRegistryTest, CopiedRegistryGivesNothingUntilItIsAdopted)
{
    startUnits();
    ASSERT_EQ(station({"identity", "write", "--set", "hu-serial=HU7"}).status, 0);
    std::filesystem::copy_file(directory() / "state" / "engineering-station" / "registry.sqlite",
                               directory() / "copy.sqlite");
    environment()["ENGINEERING_STATION"] = file("station.toml", "[paths]\nregistry = \"copy.sqlite\"\n");

    const auto refused = atOther({"send", "identity.write-hu-serial", "value=HU8"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(linesOf(refused.err), ElementsAre(AllOf(HasSubstr("copy.sqlite: this is a copy"), HasSubstr("adopt"))));
    EXPECT_EQ(stored("hu_serial_num", "root2"), "");

    EXPECT_THAT(station({"identity", "registry", "adopt"}).out, HasSubstr("copy.sqlite: adopted, gives values as "));
    EXPECT_EQ(atOther({"send", "identity.write-hu-serial", "value=HU8"}).status, 0);
}

TEST_F(StationRegistryTest, StationFileIsFoundAndAllItsErrorsArePrinted)
{
    const std::string wrong = file("wrong.toml", "[station]\nnam = \"EOL\"\n[paths]\nregistri = \"x\"\n");
    const std::string right = file("right.toml", "[station]\nname = \"EOL\"\n[paths]\nplans = [\"none\"]\n");
    environment()["ENGINEERING_STATION"] = wrong;

    const auto checked = station({"station", "check"});
    EXPECT_EQ(checked.status, 2);
    EXPECT_THAT(linesOf(checked.err),
                ElementsAre(AllOf(testing::StartsWith(wrong + ":2:1: "), HasSubstr("did you mean 'name'?")),
                            testing::StartsWith(wrong + ":4:1: ")));
    EXPECT_EQ(station({"identity", "registry", "list"}).status, 2);

    const auto sound = station({"station", "check", "--config", right});
    EXPECT_EQ(sound.status, 0);
    EXPECT_THAT(sound.out, testing::StartsWith(right + ": sound"));
    EXPECT_THAT(linesOf(sound.err), ElementsAre(testing::StartsWith(right + ": warning: [paths] plans: ")));
    EXPECT_EQ(json::parse(station({"station", "check", "--config", right, "--json"}).out)["warnings"].size(), 1U);
    EXPECT_THAT(linesOf(station({"station", "check", "--config", "/no/such/file"}).err),
                ElementsAre(HasSubstr("/no/such/file")));
}

TEST_F(StationRegistryTest, StationNamesItsPlansAndItsResults)
{
    startUnits();
    std::filesystem::create_directory(directory() / "plans");
    file("plans/write.toml", planThatWrites("hu-serial", "HU7"));
    const std::string config =
        file("station.toml", "[station]\nname = \"EOL 3\"\n[paths]\nplans = [\"plans\"]\nresults = \"kept\"\n");

    EXPECT_EQ(station({"plan", "run", "write", "--config", config}).status, 0);

    const auto record = json::parse(station({"report", "show", "latest", "--config", config, "--json"}).out);
    EXPECT_EQ(record["station"]["host"], "EOL 3") << record["station"];
    EXPECT_TRUE(std::filesystem::exists(directory() / "kept"));
}

}  // namespace
}  // namespace tests
