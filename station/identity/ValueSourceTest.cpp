#include "station/identity/ValueSource.h"

#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "protocol/catalogue/HexBytes.h"
#include "station/identity/ScriptedUnit.h"

namespace station::identity {
namespace {

using namespace std::chrono_literals;
using protocol::UserError;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ValueSourceTest : public GuardedStationTest
{
protected:
    ValueSource source(ValueOptions options, const std::string& text = {})
    {
        if (!text.empty()) {
            options.csv = csv;
        }
        return {std::move(options), text, all, rules, terms, [this](Registry::Access access) { return open(access); }};
    }

    /// Runs `work` with the unit, on a connection of its own.
    template <class Work>
    auto with(ScriptedUnit& peer, Work work)
    {
        peer.testMode = true;
        Connection connection({peer.line.path()}, {.reconnect = 0ms, .trace = &peer});
        UnitIdentity unit(connection, protocol::catalogue::groups(), 50ms);
        return work(unit);
    }

    static std::vector<Result> resultsOf(const std::vector<Done>& all)
    {
        std::vector<Result> results;
        for (const Done& done : all) {
            results.push_back(done.result);
        }
        return results;
    }

    std::vector<Result> write(ScriptedUnit& peer, ValueOptions options, const std::string& text = {})
    {
        ValueSource values = source(std::move(options), text);
        Journal to(journal, "/dev/x");
        const auto results =
            with(peer, [&](UnitIdentity& unit) { return resultsOf(values.write(unit, &to, [](const Done&) {})); });
        unitName = values.unit();
        return results;
    }

    /// @returns "RECORD=VALUE" of the values that the unit should have.
    std::vector<std::string> find(ScriptedUnit& peer, ValueOptions options, const std::string& text)
    {
        ValueSource values = source(std::move(options), text);
        std::vector<std::string> found;
        for (const Wanted& value : with(peer, [&](UnitIdentity& unit) { return values.find(unit); })) {
            found.push_back(std::string(value.record->name) + "=" + value.value);
        }
        return found;
    }

    template <class Work>
    static std::string refusal(Work work)
    {
        try {
            work();
        } catch (const NotGiven& error) {
            return error.what();
        }
        return "";
    }

    std::vector<nlohmann::json> journalLines() const
    {
        std::vector<nlohmann::json> lines;
        std::ifstream in(journal);
        for (std::string line; std::getline(in, line);) {
            lines.push_back(nlohmann::json::parse(line));
        }
        return lines;
    }

    std::string csv = directory.path() / "units.csv";
    std::string journal = directory.path() / "journal.jsonl";
    ScriptedUnit one;
    ScriptedUnit two;
    std::string unitName;
};

constexpr const char* kRows = "factory-serial,carplay-mac\nSN1,001122334455\nSN2,001122334456\n";

TEST_F(ValueSourceTest, ConversationFindsOutWhichUnitItIsBeforeItWrites)
{
    write(one, {.set = {"factory-serial=SN123"}});

    std::vector<std::string> frames;
    for (const Frame& frame : one.received) {
        frames.push_back(protocol::catalogue::formatHexBytes(std::vector{frame.cmdOne, frame.cmdTwo}) +
                         (frame.params.empty() ? "" : " …"));
    }
    EXPECT_THAT(frames, ElementsAre("0A 03",                    // would it be refused?
                                    "0A 03", "0A 12", "0A 14",  // which unit is it?
                                    "0A 03",                    // which value does it have?
                                    "0A 14", "0A 03",           // is it still that unit?
                                    "0A 02 …", "0A 03"));
    EXPECT_THAT(values(), ElementsAre("SN123 verified"));
}

TEST_F(ValueSourceTest, SecondUnitWithAUsedLabelGetsItsRowOnlyWithAgain)
{
    write(one, {.unit = "PCB-4711"}, kRows);

    EXPECT_THAT(refusal([&] { write(two, {.unit = "PCB-4711"}, kRows); }),
                AllOf(HasSubstr("PCB-4711"), HasSubstr("line 2"), HasSubstr("--again")));
    EXPECT_THAT(two.stored, IsEmpty());
    EXPECT_EQ(journalLines().back()["result"], "ended");

    write(two, {.unit = "PCB-4711", .again = true}, kRows);
    EXPECT_EQ(two.stored[0x03], "SN1");
}

TEST_F(ValueSourceTest, UnitIsKnownByItsValuesOnceItHasThem)
{
    write(one, {.unit = "U1"}, kRows);

    EXPECT_THAT(write(one, {}, kRows), ElementsAre(Result::kUnchanged, Result::kUnchanged));
    EXPECT_EQ(unitName, "U1");
    EXPECT_THAT(find(one, {}, kRows), ElementsAre("factory-serial=SN1", "carplay-mac=001122334455"));
    EXPECT_THAT(find(two, {.unit = "U1"}, kRows), ElementsAre("factory-serial=SN1", "carplay-mac=001122334455"));
    EXPECT_THAT(find(two, {.serial = "SN2"}, kRows), ElementsAre("factory-serial=SN2", "carplay-mac=001122334456"));
    EXPECT_THAT(refusal([&] { find(two, {}, kRows); }), HasSubstr("add --serial or --unit"));
}

TEST_F(ValueSourceTest, AddressThatCannotBeReadBackIsNotVerified)
{
    EXPECT_THAT(write(one, {.unit = "U1"}, "factory-serial,bluetooth-address\nSN1,0002F5A1B2C3\n"),
                ElementsAre(Result::kWritten, Result::kPresent));

    EXPECT_THAT(values(), ElementsAre("0002F5A1B2C3 written", "SN1 verified"));
    EXPECT_EQ(journalLines().at(0)["result"], "written");
    EXPECT_EQ(journalLines().at(1)["result"], "present");
}

TEST_F(ValueSourceTest, JournalThatCannotBeWrittenLeavesNoUnitHalfDone)
{
    journal = "/dev/full";

    EXPECT_THAT(write(one, {.set = {"factory-serial=SN1", "hu-serial=HU7"}}),
                ElementsAre(Result::kWritten, Result::kWritten));
}

TEST_F(ValueSourceTest, UnitThatIsRefusedUsesUpNoRow)
{
    one.stored[0x03] = "OLD";

    EXPECT_THAT(write(one, {}, "factory-serial\nSN1\n"), ElementsAre(Result::kRefused));

    EXPECT_THAT(values(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(csv + ".ledger"));
}

TEST_F(ValueSourceTest, DryRunAndVerifyChangeNothing)
{
    EXPECT_THAT(write(one, {.unit = "U1", .dryRun = true}, kRows),
                ElementsAre(Result::kWouldWrite, Result::kWouldWrite));
    EXPECT_EQ(unitName, "U1");
    EXPECT_THAT(refusal([&] { find(one, {.unit = "U1"}, kRows); }),
                HasSubstr("expected a row that unit U1 was given, got none"));

    EXPECT_FALSE(std::filesystem::exists(csv + ".ledger"));
    EXPECT_FALSE(std::filesystem::exists(registry));
}

TEST_F(ValueSourceTest, SerialThatNoRowHasIsRefused)
{
    write(one, {.unit = "U1"}, kRows);

    EXPECT_EQ(refusal([&] { write(one, {.serial = "SN9"}, kRows); }), csv + ": no row has factory serial SN9");
    EXPECT_EQ(refusal([&] { find(one, {.serial = "SN9"}, kRows); }), csv + ": no row has factory serial SN9");
}

TEST_F(ValueSourceTest, UnitWithoutALabelAndASerialGetsNothing)
{
    for (const char* serial : {"", "00000000"}) {
        one.stored[0x03] = serial;

        try {
            write(one, {.overwrite = true}, kRows);
            FAIL() << "it got values";
        } catch (const UserError& error) {
            EXPECT_THAT(error.what(), HasSubstr("name it with --unit"));
        }
    }
    EXPECT_FALSE(std::filesystem::exists(registry));
}

TEST_F(ValueSourceTest, PlaceholderDoesNotMakeTwoUnitsOne)
{
    one.stored[0x03] = two.stored[0x03] = "00000000";

    write(one, {.unit = "U1", .overwrite = true}, kRows);
    write(two, {.unit = "U2", .overwrite = true}, kRows);

    EXPECT_EQ(one.stored[0x03], "SN1");
    EXPECT_EQ(two.stored[0x03], "SN2");
}

TEST_F(ValueSourceTest, RangesGiveEachUnitItsNextValuesAndItsOwnAgain)
{
    const auto ranges = [](const std::string& unit) {
        return ValueOptions{.ranges = {"factory-serial=SN{000100..000999}"},
                            .macBlocks = {"carplay-mac=001A7D000000/24"},
                            .unit = unit};
    };

    write(one, ranges("U1"));
    write(two, ranges("U2"));

    EXPECT_EQ(one.stored[0x03] + " " + one.stored[0x12], "SN000100 001A7D000000");
    EXPECT_EQ(two.stored[0x03] + " " + two.stored[0x12], "SN000101 001A7D000001");
    EXPECT_THAT(write(one, ranges("U1")), ElementsAre(Result::kUnchanged, Result::kUnchanged));
}

TEST_F(ValueSourceTest, WaivedRulesAreJournalledWithTheValuesThatTheyWereWaivedFor)
{
    write(one, {.set = {"hu-serial=HU7"}});
    write(one, {.set = {"hu-serial=HU7"}, .reissue = "board replaced"});
    write(two, {.set = {"hu-serial=HU7", "carplay-mac=01005E000001"}, .reissue = "board replaced", .allowAny = true});

    const auto lines = journalLines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[1]["result"], "unchanged");
    EXPECT_FALSE(lines[1].contains("waived"));
    EXPECT_EQ(lines[2]["waived"], "--reissue: board replaced");
    EXPECT_EQ(lines[3]["waived"],
              "--allow-any: carplay-mac: expected the address of one device, got 01005E000001, which is a multicast "
              "address; --reissue: board replaced");
}

TEST_F(ValueSourceTest, PatternHoldsForBothEndsOfARange)
{
    rules.patterns["hu-serial"] = std::make_shared<re2::RE2>("HU[2-8]");

    for (const auto& [range, wrong] : {std::pair{"hu-serial=HU{1..8}", "HU1"}, {"hu-serial=HU{2..9}", "HU9"}}) {
        try {
            source({.ranges = {range}});
            ADD_FAILURE() << range << " was taken";
        } catch (const UserError& error) {
            EXPECT_EQ(error.what(),
                      std::string("--range: hu-serial: expected a value that matches HU[2-8], got ") + wrong);
        }
    }
}

TEST_F(ValueSourceTest, PatternHoldsForTheFirstAddressOfABlockThatIsGiven)
{
    rules.patterns["carplay-mac"] = std::make_shared<re2::RE2>("001A7D00000[^1]");

    try {
        source({.macBlocks = {"carplay-mac=001A7D000000/44"}});
        ADD_FAILURE() << "the block was taken";
    } catch (const UserError& error) {
        EXPECT_THAT(error.what(), HasSubstr("got 001A7D000001"));
    }
}

struct WrongValues {
    const char* name;
    ValueOptions options;
    const char* csv;
    const char* message;
};

class WrongValuesTest : public ValueSourceTest, public testing::WithParamInterface<WrongValues>
{
};

TEST_P(WrongValuesTest, AreRefusedWithTheirPlace)
{
    try {
        source(GetParam().options, GetParam().csv);
        FAIL() << "they were taken";
    } catch (const UserError& error) {
        EXPECT_THAT(error.what(), HasSubstr(GetParam().message));
        EXPECT_EQ(error.status(), protocol::kWrongUse);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Identity, WrongValuesTest,
    testing::Values(
        WrongValues{"None", {}, "", "expected values: --set RECORD=VALUE, --csv FILE, --range or --mac-block"},
        WrongValues{"UnknownRecord", {.set = {"color=red"}}, "", "--set: expected one of factory-serial, "},
        WrongValues{"NoValue", {.set = {"factory-serial"}}, "", "--set: expected RECORD=VALUE, as in "},
        WrongValues{
            "WrongValue", {.set = {"carplay-mac=0011"}}, "", "--set: carplay-mac: expected 12 hexadecimal digits"},
        WrongValues{"Multicast", {.set = {"carplay-mac=01005E000001"}}, "", "which is a multicast address"},
        WrongValues{"TwoValues", {.set = {"hu-serial=1", "hu-serial=2"}}, "", "hu-serial: expected one value, got two"},
        WrongValues{"ValueAndRange",
                    {.set = {"hu-serial=1"}, .ranges = {"hu-serial={1..2}"}},
                    "",
                    "--range: hu-serial: expected one value, got two"},
        WrongValues{"SerialWithoutCsv", {.set = {"hu-serial=1"}, .serial = "SN1"}, "", "--serial: expected --csv FILE"},
        WrongValues{"BrokenCsv",
                    {},
                    "factory-serial,carplay-mac\nSN1,0011\n",
                    "units.csv:2: carplay-mac: expected 12 hexadecimal digits, got '0011'"},
        WrongValues{"MulticastInCsv",
                    {},
                    "factory-serial,carplay-mac\nSN1,01005E000001\n",
                    "units.csv:2: carplay-mac: expected the address of one device"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace station::identity
