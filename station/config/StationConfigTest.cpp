#include "station/config/StationConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "protocol/Errors.h"
#include "protocol/catalogue/Catalogue.h"
#include "tests/support/TempDir.h"

namespace station {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class StationConfigTest : public testing::Test
{
protected:
    StationConfig read(const std::string& text)
    {
        return readStationConfig(text, "/etc/engineering/station.toml", records, problems);
    }

    std::vector<std::string> messages() const
    {
        std::vector<std::string> all;
        for (const auto& problem : problems) {
            all.push_back(format("f", problem));
        }
        return all;
    }

    std::vector<identity::Record> records = identity::records(protocol::catalogue::groups());
    protocol::toml_file::Problems problems;
};

TEST_F(StationConfigTest, EveryKeyIsRead)
{
    const auto config = read(R"(
[station]
name = "EOL 3"
line = "B"
[paths]
results = "results"
registry = "/var/lib/engineering/registry.sqlite"
plans = ["plans", "/srv/plans"]
[unit]
serial = "factory-serial"
placeholders = ["", "TEST"]
[records.factory-serial]
pattern = "SN[0-9]{6}"
[parameters]
limit = 40
nominal = "94.7 MHz"
)");

    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(config.name, "EOL 3");
    EXPECT_EQ(config.line, "B");
    using plan::GivenValue;
    ASSERT_THAT(config.parameters, testing::SizeIs(2));
    EXPECT_EQ(config.parameters[0].name + "=" + config.parameters[0].value, "limit=40");
    EXPECT_EQ(config.parameters[0].type, GivenValue::Type::kNumber);
    EXPECT_EQ(config.parameters[0].from, "/etc/engineering/station.toml:15:9");
    EXPECT_EQ(config.parameters[1].value, "94.7 MHz");
    EXPECT_EQ(config.parameters[1].type, GivenValue::Type::kText);
    EXPECT_EQ(config.results, "/etc/engineering/results");
    EXPECT_EQ(config.registry, "/var/lib/engineering/registry.sqlite");
    EXPECT_THAT(config.plans, ElementsAre("/etc/engineering/plans", "/srv/plans"));
    EXPECT_EQ(config.unit.serial.name, "factory-serial");
    const auto& serial = identity::require(records, "factory-serial");
    EXPECT_TRUE(config.unit.isPlaceholder(serial, "TEST"));
    EXPECT_FALSE(config.unit.isPlaceholder(serial, "00000000"));
    EXPECT_EQ(config.unit.objection(serial, "SN000100"), "");
    // The whole value has to match.
    EXPECT_EQ(config.unit.objection(serial, "SN0001000"),
              "factory-serial: expected a value that matches SN[0-9]{6}, got SN0001000");
}

TEST_F(StationConfigTest, EquipmentIsRead)
{
    const auto config = read(R"(scripts = "scripts"
[instruments.psu]
scpi = "tcp:10.0.0.5"
[instruments.dmm]
scpi = "serial:/dev/ttyUSB1:9600"
[power]
instrument = "psu"
off = "OUTP OFF"
on = "OUTP ON"
pause = "2s"
)");

    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_EQ(config.equipment.scripts, "/etc/engineering/scripts");
    EXPECT_EQ(config.equipment.instruments.at("psu").number, 5025U);
    EXPECT_EQ(config.equipment.instruments.at("dmm").target, "/dev/ttyUSB1");
    EXPECT_EQ(config.equipment.power.value().on, "OUTP ON");
    EXPECT_EQ(config.equipment.power->pause, std::chrono::seconds(2));
}

TEST_F(StationConfigTest, EquipmentIsCheckedWithItsPlaces)
{
    read(R"([instruments]
a = 7
send = { scpi = "tcp:x" }
"b c" = { scpi = "tcp:x" }
psu = { scpi = "usb:x", port = 1 }
dmm = {}
[power]
instrument = "none"
off = "A\nB"
)");

    EXPECT_THAT(
        messages(),
        ElementsAre("f:2:5: expected a section [instruments.a], got a value",
                    "f:3:8: expected a name of letters, digits, '-' and '_' that is not a key of a step, got 'send'",
                    "f:4:9: expected a name of letters, digits, '-' and '_' that is not a key of a step, got 'b c'",
                    "f:5:16: expected tcp:HOST[:PORT] or serial:DEVICE[:BAUD], got 'usb:x'",
                    testing::StartsWith("f:5:25: "), testing::StartsWith("f:6:"), testing::StartsWith("f:7:1: "),
                    "f:8:14: 'instrument': expected a section [instruments.none], got none",
                    "f:9:7: 'off': expected one line of text, got 'A␊B'"));
}

TEST_F(StationConfigTest, PowerIsSwitchedByOneWay)
{
    read("[power]\nrun = [\"relay\"]\n");
    EXPECT_THAT(messages(), ElementsAre("f:2:7: 'run': expected the folder of programs as 'scripts' at the top of the "
                                        "file, got none"));
    problems.clear();

    read("scripts = \"s\"\n[power]\nrun = [\"relay\"]\ninstrument = \"psu\"\n");
    EXPECT_THAT(messages(), testing::Contains("f:2:1: section [power]: expected either 'run' or 'instrument'"));
}

TEST_F(StationConfigTest, EmptyFileLeavesTheDefaults)
{
    const auto config = read("");

    EXPECT_THAT(messages(), IsEmpty());
    const auto& serial = identity::require(records, "hu-serial");
    EXPECT_EQ(config.unit.serial.name, "hu-serial");
    EXPECT_TRUE(config.unit.isPlaceholder(serial, "00000000"));
    EXPECT_TRUE(config.unit.isPlaceholder(serial, "\xFF\xFF"));
    EXPECT_FALSE(config.unit.isPlaceholder(serial, "FF"));
}

TEST_F(StationConfigTest, SlotsProductsOperatorsAndTheirFaceAreRead)
{
    const std::string hash = web::hashOf("4711");
    const auto config = read(R"(
[[slot]]
name = "left"
port = "/dev/ttyUSB0,9600"
barcode = "SLOT-L"
[[slot]]
name = "right"
port = "/dev/ttyUSB1"
[[product]]
pattern = "HU[0-9]+"
plan = "smoke"
[[product]]
plan = "end-of-line"
destructive = true
[[operator]]
name = "anna"
role = "engineer"
password = ")" + hash + R"("
[web]
address = "0.0.0.0"
port = 8443
certificate = "web.pem"
key = "web.key"
names = ["station3.plant.example"]
)");

    EXPECT_THAT(messages(), IsEmpty());
    ASSERT_EQ(config.slots.size(), 2U);
    EXPECT_EQ(config.slots[0].port, "/dev/ttyUSB0,9600");
    EXPECT_EQ(config.slots[0].barcode, "SLOT-L");
    EXPECT_EQ(config.slots[1].name, "right");
    ASSERT_EQ(config.products.size(), 2U);
    EXPECT_EQ(config.products[0].pattern, "HU[0-9]+");
    EXPECT_FALSE(config.products[0].destructive);
    EXPECT_EQ(config.products[1].plan, "end-of-line");
    EXPECT_TRUE(config.products[1].destructive);
    ASSERT_EQ(config.accounts.size(), 1U);
    EXPECT_EQ(config.accounts[0].user.name, "anna");
    EXPECT_EQ(config.accounts[0].user.role, web::Role::kEngineer);
    EXPECT_EQ(config.accounts[0].passwordHash, hash);
    EXPECT_EQ(config.web.address, "0.0.0.0");
    EXPECT_EQ(config.web.port, 8443);
    EXPECT_EQ(config.web.certificate, "/etc/engineering/web.pem");
    EXPECT_EQ(config.web.key, "/etc/engineering/web.key");
    EXPECT_THAT(config.web.names, ElementsAre("station3.plant.example"));
}

TEST_F(StationConfigTest, MistakesOfSlotsProductsAndOperatorsHaveTheirPlace)
{
    read(R"([[slot]]
name = "left"
port = "/dev/ttyUSB0"
[[slot]]
name = "left"
port = "/dev/ttyUSB0,12"
[[slot]]
name = "a/b"
port = "/dev/ttyUSB0"
[[product]]
plan = "smoke"
[[product]]
pattern = "("
plan = "smoke"
[[operator]]
name = "anna"
role = "chief"
password = "blue"
[[operator]]
name = "anna"
role = "viewer"
[web]
port = 0
key = "web.key"
)");

    EXPECT_THAT(
        messages(),
        ElementsAre(
            "f:5:8: 'name': expected another one for each slot, got 'left' twice",
            "f:6:8: 'port': expected a baud rate such as 9600, 115200 or 921600, got '12'",
            "f:8:8: 'name': expected a name without / ? # %, got 'a/b'",
            "f:9:8: 'port': expected another one for each slot, got '/dev/ttyUSB0' twice",
            testing::StartsWith("f:13:11: 'pattern': expected a regular expression"),
            "f:13:11: expected no product behind one without 'pattern', which takes every serial number",
            testing::StartsWith("f:17:8: 'role': expected "),
            "f:18:12: 'password': expected a hash that 'engineering-station station hash' prints, got another text",
            "f:19:1: expected 'password' or 'badge', got neither",
            "f:20:8: 'name': expected another one for each operator, got 'anna' twice", testing::StartsWith("f:22:1: "),
            testing::StartsWith("f:23:8: 'port': expected ")));
}

TEST_F(StationConfigTest, PatternIsCheckedAsInAPlan)
{
    read("[records.hu-serial]\npattern = \"(?=HU)\"\n");

    EXPECT_THAT(
        messages(),
        ElementsAre("f:2:11: 'pattern': expected a regular expression in RE2's syntax, got '(?=HU)': look-ahead '(?=' "
                    "is not supported"));
}

TEST_F(StationConfigTest, AllErrorsAreReportedWithTheirPlace)
{
    read(R"([station]
nam = "EOL 3"
[paths]
plans = "plans"
[unit]
serial = "carplay-mac"
placeholders = [7]
[records.colour]
pattern = "red"
[records.hu-serial]
pattern = "("
[wep]
)");

    EXPECT_THAT(messages(),
                ElementsAre(testing::StartsWith("f:2:1: "), "f:4:9: 'plans': expected an array of texts, got \"plans\"",
                            "f:6:10: 'serial': expected factory-serial or hu-serial, got \"carplay-mac\"",
                            "f:7:17: 'placeholders': expected a text, got 7", testing::StartsWith("f:8:"),
                            testing::StartsWith("f:11:"), testing::StartsWith("f:12:")));
}

TEST_F(StationConfigTest, ParameterIsANumberOrAText)
{
    read("[parameters]\na = true\nb = inf\nc = [1]\n");

    EXPECT_THAT(messages(), ElementsAre("f:2:5: 'a': expected a number or a text, got true",
                                        "f:3:5: 'b': expected a number or a text, got inf",
                                        "f:4:5: 'c': expected a number or a text, got an array"));
}

TEST_F(StationConfigTest, SerialThatIsNotARecordIsRefusedLikeOneThatNamesNoUnit)
{
    read("[unit]\nserial = \"serial\"\n");

    EXPECT_THAT(messages(), ElementsAre("f:2:10: 'serial': expected factory-serial or hu-serial, got \"serial\""));
}

TEST_F(StationConfigTest, PathsThatTheMachineCannotUseAreReported)
{
    const tests::TempDir directory;
    const std::string plain = directory.path() / "plain";
    std::ofstream{plain};
    StationConfig config;
    config.registry = plain + "/registry.sqlite";
    config.results = plain + "/results";
    config.plans = {directory.path() / "none", directory.path()};

    EXPECT_THAT(unusablePaths(config),
                ElementsAre("[paths] registry: " + plain + ": expected a directory, got a file",
                            "[paths] results: " + plain + ": expected a directory, got a file",
                            "[paths] plans: " + config.plans[0] + ": expected a directory, got none"));
    EXPECT_THAT(unusablePaths({}), IsEmpty());
}

TEST_F(StationConfigTest, PlanIsFoundInTheFirstFolderThatHasIt)
{
    const tests::TempDir directory;
    const std::string first = directory.path() / "first";
    const std::string second = directory.path() / "second";
    for (const std::string& folder : {first, second}) {
        std::filesystem::create_directory(folder);
        std::ofstream(folder + "/two.toml");
    }
    std::ofstream(second + "/one.toml");

    EXPECT_EQ(findPlan("one", {first, second}), second + "/one.toml");
    EXPECT_EQ(findPlan("two.toml", {first, second}), first + "/two.toml");
    EXPECT_EQ(findPlan("./one", {second}), "./one");
    try {
        findPlan("three", {first, second});
        FAIL() << "it was found";
    } catch (const protocol::UserError& error) {
        EXPECT_EQ(error.what(), "three: no such file or plan; plan folders: " + first + ", " + second);
    }
}

TEST_F(StationConfigTest, FileOfTheCommandLineComesBeforeThatOfTheEnvironment)
{
    setenv("ENGINEERING_STATION", "/named.toml", 1);
    EXPECT_EQ(findStationFile(""), "/named.toml");
    EXPECT_EQ(findStationFile("/given.toml"), "/given.toml");
    unsetenv("ENGINEERING_STATION");
}

TEST_F(StationConfigTest, RegistryIsInTheStateFolderUnlessTheFileNamesOne)
{
    StationConfig config;
    EXPECT_EQ(registryPath(config), stateFolder() + "/registry.sqlite");

    config.registry = "/var/lib/registry.sqlite";
    EXPECT_EQ(registryPath(config), "/var/lib/registry.sqlite");
}

}  // namespace
}  // namespace station
