#include "station/identity/Registry.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <system_error>
#include <thread>

#include "protocol/catalogue/Catalogue.h"
#include "station/Sqlite.h"
#include "station/identity/LedgerFile.h"
#include "tests/engine/FileSizeLimit.h"
#include "tests/faults/SmallDisk.h"
#include "tests/support/TempDir.h"

namespace station::identity {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RegistryTest : public testing::Test
{
protected:
    RegistryTest() { write("factory-serial,carplay-mac,drawing-code\nSN1,001122334455,D\nSN2,001122334456,D\n"); }

    void write(const std::string& content)
    {
        std::ofstream(csv) << content;
        table = readCsv(content, csv, all);
    }

    std::unique_ptr<Registry> open(Registry::Access access = Registry::Access::kGive)
    {
        return std::make_unique<Registry>(path, all, rules, nullptr, access);
    }

    const Record& record(std::string_view name) const { return require(all, name); }

    /// A station of its own, which ends with the call.
    Registry::Grant reserve(const UnitOnLine& unit, const std::string& serial = {}, bool dryRun = false)
    {
        return open()->reserve(table, unit, serial, dryRun);
    }

    std::string serialFor(const UnitOnLine& unit) { return reserve(unit).row.values.at("factory-serial"); }

    /// Gives a unit its row and sends all of it; the unit dies before anything is read back.
    Registry::Grant sendRow(const UnitOnLine& unit)
    {
        const auto registry = open();
        const auto grant = registry->reserve(table, unit, {}, false);
        for (const auto& [name, value] : grant.row.values) {
            if (record(name).unique) {
                registry->send(record(name), value, unit, grant.unit);
            }
        }
        return grant;
    }

    /// The same, and the unit has all of it.
    void use(const UnitOnLine& unit, State state = State::kVerified)
    {
        const auto grant = sendRow(unit);
        open()->conclude(grant.unit, std::vector<Registry::Arrival>{
                                         {&record("factory-serial"), grant.row.values.at("factory-serial"), state}});
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

    template <class Work>
    static std::string error(Work work)
    {
        try {
            work();
        } catch (const protocol::StorageError& error) {
            return error.what();
        }
        return "";
    }

    std::string refusal(const UnitOnLine& unit, const std::string& serial = {})
    {
        return refusal([&] { reserve(unit, serial); });
    }

    /// Sends one value to a unit, as `send` does.
    bool send(std::string_view name, const std::string& value, const UnitOnLine& unit)
    {
        return open()->send(record(name), value, unit, {}).second;
    }

    /// @returns the values by name with their states.
    std::map<std::string, std::string> states()
    {
        std::map<std::string, std::string> found;
        open(Registry::Access::kLook)->list([&](const Registry::Entry& entry) {
            found[entry.value] = name(entry.state);
        });
        return found;
    }

    void ledger(const std::string& content) const { std::ofstream(csv + ".ledger") << content; }

    tests::TempDir directory;
    std::string csv = directory.path() / "values.csv";
    std::string path = directory.path() / "state" / "registry.sqlite";
    std::vector<Record> all = records(protocol::catalogue::groups());
    UnitRules rules;
    CsvTable table;
};

constexpr const char* kReservedU1 =
    R"({"schema":1,"event":"reserved","unit":"U1","by":"label","held":"","line":2,"values":{"factory-serial":"SN1","carplay-mac":"001122334455"}})";

// Rows of a file.

TEST_F(RegistryTest, EachUnitGetsARowOfItsOwnUntilNoneIsLeft)
{
    EXPECT_EQ(serialFor({"U1"}), "SN1");
    EXPECT_EQ(serialFor({"U2"}), "SN2");
    EXPECT_THAT(refusal({"U3"}), HasSubstr("all 2 rows have been given away"));
}

TEST_F(RegistryTest, LookMakesNoFileAndFindsNoRow)
{
    const auto look = open(Registry::Access::kLook);

    EXPECT_EQ(look->reserve(table, {"U1"}, {}, true).row.values.at("factory-serial"), "SN1");
    EXPECT_FALSE(look->rowOf(table, "U1"));
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(std::filesystem::exists(csv + ".ledger"));
}

TEST_F(RegistryTest, LookSeesWhatWasGivenAndGivesNothing)
{
    reserve({"U1"});

    const auto look = open(Registry::Access::kLook);

    EXPECT_EQ(look->reserve(table, {"U2"}, {}, true).row.line, 3u);
    EXPECT_EQ(look->rowOf(table, "U1")->values.at("factory-serial"), "SN1");
    EXPECT_EQ(serialFor({"U3"}), "SN2");
}

TEST_F(RegistryTest, SameUnitGetsItsOwnRowAgain)
{
    EXPECT_FALSE(reserve({"U1"}).again);
    reserve({"U2"});

    const auto second = reserve({"U1"});

    EXPECT_TRUE(second.again);
    EXPECT_EQ(second.row.values.at("factory-serial"), "SN1");
}

TEST_F(RegistryTest, RowCanBeChosenByItsFactorySerial)
{
    EXPECT_EQ(reserve({"U1"}, "SN2").row.line, 3u);
    EXPECT_EQ(reserve({"U2"}).row.line, 2u);
    EXPECT_THAT(refusal({"U3"}, "SN9"), HasSubstr("no row has factory serial SN9"));
    EXPECT_THAT(refusal({"U3"}, "SN2"), AllOf(HasSubstr("values.csv:3"), HasSubstr("given to unit U1")));
    EXPECT_THAT(refusal({"U1"}, "SN1"), HasSubstr("has been given line 3"));
    EXPECT_THAT(refusal({"U1"}, "SN9"), HasSubstr("no row has factory serial SN9"));
}

TEST_F(RegistryTest, UnitIsKnownByAValueThatItWasGiven)
{
    reserve({"U1"});

    EXPECT_EQ(reserve({"", {{"factory-serial", "SN1"}}}).name, "U1");
    EXPECT_EQ(reserve({"", {{"carplay-mac", "001122334455"}}}).row.line, 2u);
}

TEST_F(RegistryTest, UnitIsKnownByTheSerialThatItHadBefore)
{
    EXPECT_EQ(reserve({"", {{"factory-serial", "OLD"}}}).row.line, 2u);

    EXPECT_TRUE(reserve({"", {{"factory-serial", "OLD"}}}).again);
    EXPECT_TRUE(reserve({"", {{"factory-serial", "SN1"}}}).again);
}

TEST_F(RegistryTest, UnitWhoseFactorySerialStandsInTheFileGetsThatRow)
{
    EXPECT_EQ(reserve({"", {{"factory-serial", "SN2"}}}).row.line, 3u);
    EXPECT_EQ(reserve({"U1"}).row.line, 2u);
}

TEST_F(RegistryTest, UnitWithAnotherUnitsLabelIsRefused)
{
    reserve({"U1"});
    reserve({"U2"});

    EXPECT_THAT(refusal({"U2", {{"factory-serial", "SN1"}}}),
                HasSubstr("it holds factory-serial SN1, which belongs to unit U1"));
}

TEST_F(RegistryTest, UnitThatHoldsAnotherSerialThanItWasGivenIsRefused)
{
    reserve({"U1"});

    EXPECT_THAT(refusal({"U1", {{"factory-serial", "SN9"}}}),
                HasSubstr("this is not unit U1: it holds factory-serial SN9, and unit U1 was given SN1"));
}

TEST_F(RegistryTest, UsedRowIsNotGivenToAnotherUnitWithTheSameLabel)
{
    use({"U1"});

    EXPECT_THAT(refusal({"U1"}), AllOf(HasSubstr("unit U1 was given"), HasSubstr("--again")));
    EXPECT_EQ(states().count("SN2"), 0u);
}

TEST_F(RegistryTest, UsedRowIsGivenAgainToTheUnitThatShowsAValueOfIt)
{
    use({"U1"});

    EXPECT_TRUE(reserve({"U1", {{"factory-serial", "SN1"}}}).again);
    EXPECT_TRUE(reserve({"U1", {{"carplay-mac", "001122334455"}}}).again);
}

TEST_F(RegistryTest, UsedRowIsGivenAgainToAnErasedUnitOnDemand)
{
    use({"U1"});

    EXPECT_EQ(reserve({"U1", {}, true}).row.line, 2u);
}

TEST_F(RegistryTest, BoardThatReplacesAnotherGetsItsUnitsValues)
{
    use({"U1"});

    EXPECT_EQ(reserve({"U1", {{"hu-serial", "BOARD2"}}, false, "board replaced"}).row.line, 2u);
    EXPECT_EQ(open()
                  ->claim({{"factory-serial", "SN1"}}, {}, {"", {}, false, "board replaced"}, false)
                  .row.values.at("factory-serial"),
              "SN1");
}

TEST_F(RegistryTest, ValueIsNotGivenAgainInAnotherRow)
{
    reserve({"U1"});
    write("factory-serial,carplay-mac\nSN7,001122334455\nSN8,001122334457\n");

    EXPECT_EQ(serialFor({"U2"}), "SN8");
    EXPECT_THAT(refusal({"U1"}), HasSubstr("values.csv:2: this row has changed since it was given to unit U1"));
}

TEST_F(RegistryTest, RowsMayMoveInTheFile)
{
    reserve({"U1"});
    write("drawing-code,carplay-mac,factory-serial\nE,001122334457,SN3\nE,001122334455,SN1\n");

    EXPECT_EQ(reserve({"U1"}).row.values.at("drawing-code"), "E");
    EXPECT_EQ(serialFor({"U2"}), "SN3");
}

TEST_F(RegistryTest, RowThatIsNoLongerInTheFileIsNotReplacedByAnother)
{
    reserve({"U1"});
    write("factory-serial\nSN2\n");

    EXPECT_THAT(refusal({"U1"}), HasSubstr("is no longer in"));
}

TEST_F(RegistryTest, TwoStationsDoNotWorkOnTheSameUnit)
{
    const auto first = open();
    first->reserve(table, {"U1"}, {}, false);

    EXPECT_THAT(refusal({"U1"}), HasSubstr("another station works on unit U1"));
    EXPECT_EQ(reserve({"U2"}).row.line, 3u);
}

// Ways in which two units could get one identity.

TEST_F(RegistryTest, UnitsWithAPlaceholderAreNeverTheSameUnit)
{
    for (const std::string& placeholder : {std::string("00000000"), std::string(8, '\xFF')}) {
        const UnitOnLine unit{"", {{"factory-serial", placeholder}, {"hu-serial", placeholder}}};
        write("factory-serial\nA" + std::to_string(placeholder[0]) + "\nB" + std::to_string(placeholder[0]) + "\n");
        sendRow(unit);

        EXPECT_EQ(reserve(unit).row.line, 3u);
    }
}

TEST_F(RegistryTest, RowOfAUnitThatDiesBeforeItsReadBackIsNotGivenAgain)
{
    sendRow({"", {{"factory-serial", "DEFAULT"}}});

    EXPECT_THAT(refusal({"", {{"factory-serial", "DEFAULT"}}}), HasSubstr("--again"));
    EXPECT_EQ(serialFor({"U2"}), "SN2");
}

TEST_F(RegistryTest, ValuesInStateSendingAreNotGivenToAnotherUnitWithTheSameLabel)
{
    sendRow({"U1"});

    EXPECT_THAT(refusal({"U1"}), AllOf(HasSubstr("unit U1 was given"), HasSubstr("--again")));
    EXPECT_EQ(reserve({"U1", {{"carplay-mac", "001122334455"}}}).row.line, 2u);
    EXPECT_EQ(reserve({"U1", {}, true}).row.line, 2u);
}

TEST_F(RegistryTest, LastLineOfALedgerCountsWithoutALineEnd)
{
    ledger(kReservedU1);

    EXPECT_EQ(serialFor({"U2"}), "SN2");
    EXPECT_EQ(serialFor({"U1", {}, true}), "SN1");
}

TEST_F(RegistryTest, LastLineOfALedgerThatCannotBeReadStopsTheImport)
{
    const std::string content = std::string(kReservedU1) + "\n" + R"({"schema":1,"event":"reserved","unit":"U2","val)";
    ledger(content);

    EXPECT_THAT(error([&] { reserve({"U3"}); }), AllOf(HasSubstr("values.csv.ledger"), HasSubstr("line 2")));
    std::ifstream in(csv + ".ledger");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), content);
    EXPECT_THAT(states(), IsEmpty());
}

TEST_F(RegistryTest, CopyOfTheFileGivesNoValueTwice)
{
    reserve({"U1"});
    csv = directory.path() / "copy.csv";
    write("factory-serial,carplay-mac,drawing-code\nSN1,001122334455,D\nSN2,001122334456,D\n");

    EXPECT_EQ(serialFor({"U2"}), "SN2");
}

TEST_F(RegistryTest, ValueOfARowIsNotGivenByNameEither)
{
    reserve({"U1"});

    EXPECT_THAT(refusal([&] {
                    open()->claim({{"factory-serial", "SN1"}}, {}, {"U2"}, false);
                }),
                HasSubstr("factory-serial SN1 has been given to unit U1"));
    EXPECT_THAT(refusal([&] { send("factory-serial", "SN1", {}); }), HasSubstr("unit U1"));
}

TEST_F(RegistryTest, TwoUnknownUnitsAreTwoUnits)
{
    EXPECT_TRUE(send("hu-serial", "HU7", {}));

    EXPECT_THAT(refusal([&] { send("hu-serial", "HU7", {}); }), HasSubstr("hu-serial HU7 has been given to unit"));
}

// Values.

TEST_F(RegistryTest, AddressesAreOneNameSpaceInAnySpelling)
{
    send("carplay-mac", "00:1a:7d:00:00:01", {"U1"});

    EXPECT_THAT(refusal([&] {
                    send("bluetooth-address", "001A7D000001", {"", {{"hu-serial", "HU2"}}});
                }),
                HasSubstr("bluetooth-address 001A7D000001 has been given to unit U1"));
}

TEST_F(RegistryTest, SerialsThatAreNotTextAreKeptAsHexadecimalAndMatchAgain)
{
    const std::string bytes = "\xC3\x28\x01";
    send("hu-serial", bytes, {"U1"});

    EXPECT_THAT(states(), ElementsAre(testing::Pair("hex:C32801", "sending")));
    EXPECT_FALSE(send("hu-serial", bytes, {"", {{"hu-serial", bytes}}}));
    EXPECT_THAT(refusal([&] { send("hu-serial", bytes, {}); }), HasSubstr("unit U1"));
    EXPECT_TRUE(send("hu-serial", "hex:C32801", {"U2"}));
}

TEST_F(RegistryTest, ValueIsFoundAndBlockedInTheSpellingInWhichItIsListed)
{
    send("hu-serial", "\x80\x81", {"U1"});
    const auto found = [&](const std::string& spelled) {
        std::vector<std::string> told;
        open(Registry::Access::kLook)
            ->list([&](const Registry::Entry& entry) { told.push_back(entry.value + " " + entry.unit); }, spelled);
        return told;
    };

    EXPECT_THAT(found("hex:8081"), ElementsAre("hex:8081 U1"));
    EXPECT_THAT(refusal([&] { open()->block("hex:8081", ""); }), HasSubstr("hex:8081 has been given to unit U1"));

    open()->block("hex:8082", "scrapped");
    EXPECT_THAT(refusal([&] { send("hu-serial", "\x80\x82", {"U2"}); }), HasSubstr("hex:8082 is blocked: scrapped"));
}

TEST_F(RegistryTest, PlaceholderIsNotBlocked)
{
    EXPECT_THAT(refusal([&] { open()->block("00000000", ""); }),
                HasSubstr("'00000000': expected the factory-serial of a unit, got a placeholder"));
    EXPECT_THAT(states(), IsEmpty());
}

TEST_F(RegistryTest, WritingBackWhatTheUnitHoldsGivesNothingAndIsSeen)
{
    EXPECT_FALSE(send("hu-serial", "HU7", {"", {{"hu-serial", "HU7"}}}));

    EXPECT_THAT(states(), ElementsAre(testing::Pair("HU7", "seen")));
    EXPECT_THAT(refusal([&] { send("hu-serial", "HU7", {}); }), HasSubstr("which was seen with it"));
}

TEST_F(RegistryTest, ValueIsSendingBeforeItIsSentAndVerifiedAfterIt)
{
    const auto registry = open();
    const auto grant = registry->claim({{"factory-serial", "SN1"}}, {}, {"U1"}, false);
    EXPECT_EQ(states().at("SN1"), "reserved");

    registry->send(record("factory-serial"), "SN1", {"U1"}, grant.unit);
    EXPECT_EQ(states().at("SN1"), "sending");

    registry->conclude(grant.unit,
                       std::vector<Registry::Arrival>{{&record("factory-serial"), "SN1", State::kVerified}});
    EXPECT_EQ(states().at("SN1"), "verified");
    registry->send(record("factory-serial"), "SN1", {"U1"}, grant.unit);
    registry->conclude(grant.unit, std::vector<Registry::Arrival>{{&record("factory-serial"), "SN1", State::kWritten}});
    EXPECT_EQ(states().at("SN1"), "verified");
}

TEST_F(RegistryTest, BlockedValueIsNotGiven)
{
    open()->block("SN1", "scrapped");

    EXPECT_EQ(serialFor({"U1"}), "SN2");
    EXPECT_THAT(refusal([&] { send("factory-serial", "SN1", {"U2"}); }),
                HasSubstr("factory-serial SN1 is blocked: scrapped"));
    EXPECT_THAT(refusal([&] { open()->block("SN2", ""); }), HasSubstr("has been given to unit U1"));
}

TEST_F(RegistryTest, RangeGivesTheNextFreeValueAndTheUnitItsOwnAgain)
{
    const std::vector<ValueRange> ranges{parseRange(all, "factory-serial=SN{08..10}X"),
                                         parseMacBlock(all, "carplay-mac=001A7D000000/46"),
                                         parseMacBlock(all, "bluetooth-address=001A7D000000/46")};
    const auto take = [&](const UnitOnLine& unit) {
        const auto values = open()->claim({}, ranges, unit, false).row.values;
        return values.at("factory-serial") + " " + values.at("carplay-mac") + " " + values.at("bluetooth-address");
    };
    send("factory-serial", "SN09X", {"V"});

    EXPECT_EQ(take({"U1"}), "SN10X 001A7D000000 001A7D000001");
    EXPECT_EQ(take({"U2"}), "SN08X 001A7D000002 001A7D000003");
    EXPECT_EQ(take({"U1"}), "SN10X 001A7D000000 001A7D000001");
    EXPECT_THAT(refusal([&] { take({"U3"}); }), HasSubstr("all values from SN08X to SN10X have been given away"));
}

TEST_F(RegistryTest, RangeBeginsAgainAtItsLowestFreeValueAndPassesOtherTexts)
{
    const std::vector<ValueRange> ranges{parseRange(all, "hu-serial=HU{1..5}")};
    const auto take = [&](const char* label) {
        return open()->claim({}, ranges, {label}, false).row.values.at("hu-serial");
    };
    // Texts between those of the range that are not of it.
    for (const char* other : {"HU1x", "HU2", "HU3x", "HU4x"}) {
        send("hu-serial", other, {std::string("V") + other});
    }

    EXPECT_EQ(take("U1"), "HU3");
    EXPECT_EQ(take("U2"), "HU4");
    EXPECT_EQ(take("U3"), "HU5");
    EXPECT_EQ(take("U4"), "HU1");
    EXPECT_THAT(refusal([&] { take("U5"); }), HasSubstr("hu-serial: all values from HU1 to HU5 have been given away"));
    EXPECT_EQ(take("U2"), "HU4");
}

TEST_F(RegistryTest, RangeOfOneValueIsGivenOnce)
{
    const std::vector<ValueRange> ranges{parseRange(all, "hu-serial=HU{1..1}")};

    EXPECT_EQ(open()->claim({}, ranges, {"U1"}, false).row.values.at("hu-serial"), "HU1");
    EXPECT_THAT(refusal([&] { open()->claim({}, ranges, {"U2"}, false); }), HasSubstr("from HU1 to HU1"));
}

TEST_F(RegistryTest, RangeLeavesTheValueThatTheUnitHolds)
{
    const std::vector<ValueRange> ranges{parseRange(all, "hu-serial=HU{1..9}")};

    EXPECT_EQ(open()->claim({}, ranges, {"", {{"hu-serial", "HU7"}}}, false).row.values.at("hu-serial"), "HU7");
    EXPECT_EQ(open()->claim({}, ranges, {"", {{"hu-serial", "OLD"}}}, false).row.values.at("hu-serial"), "HU8");
}

TEST_F(RegistryTest, RangeGivesNoAddressThatNoDeviceHas)
{
    const std::vector<ValueRange> lowest{parseMacBlock(all, "carplay-mac=000000000000/46")};
    const std::vector<ValueRange> highest{parseMacBlock(all, "carplay-mac=FEFFFFFFFFFC/46")};

    EXPECT_EQ(open()->claim({}, lowest, {"U1"}, false).row.values.at("carplay-mac"), "000000000001");
    EXPECT_EQ(open()->claim({}, highest, {"U2"}, false).row.values.at("carplay-mac"), "FEFFFFFFFFFC");
}

TEST_F(RegistryTest, ClaimSaysWhetherTheUnitHadItsValuesBefore)
{
    const std::vector<ValueRange> ranges{parseRange(all, "hu-serial=HU{1..9}")};
    const auto again = [&] { return open()->claim({}, ranges, {"U1"}, false).again; };

    EXPECT_FALSE(again());
    EXPECT_TRUE(again());
}

TEST_F(RegistryTest, DryRunOfAClaimReservesNothing)
{
    const auto grant = open()->claim({{"hu-serial", "HU7"}, {"drawing-code", "D"}}, {}, {"U1"}, true);

    EXPECT_EQ(grant.name, "U1");
    EXPECT_EQ(grant.row.values.at("drawing-code"), "D");
    EXPECT_THAT(states(), IsEmpty());
}

TEST_F(RegistryTest, DryRunOfARowReservesNothing)
{
    EXPECT_EQ(reserve({"U1"}, {}, true).row.line, 2u);

    EXPECT_THAT(states(), IsEmpty());
    EXPECT_FALSE(std::filesystem::exists(csv + ".ledger"));
}

TEST_F(RegistryTest, SwappedUnitIsRefusedEvenIfItIsKnown)
{
    const auto first = open()->send(record("hu-serial"), "HU1", {"U1"}, {}).first;
    send("hu-serial", "HU2", {"U2"});

    EXPECT_THAT(refusal([&] {
                    open()->send(record("carplay-mac"), "001A7D000001", {"", {{"hu-serial", "HU2"}}}, first);
                }),
                HasSubstr("expected unit U1 on the line, as before, got unit U2"));
    const auto same = open()->send(record("carplay-mac"), "001A7D000001", {"", {{"hu-serial", "HU1"}}}, first);
    EXPECT_EQ(same, (std::pair<UnitId, bool>{first, true}));
}

TEST_F(RegistryTest, ValueThatWasWrittenStaysSoWhenItIsSentAgain)
{
    for (const auto& [value, state] : {std::pair{"HU1", State::kWritten}, {"HU2", State::kVerified}}) {
        const UnitOnLine unit{std::string("U") + value};
        const UnitId id = open()->send(record("hu-serial"), value, unit, {}).first;
        open()->conclude(id, std::vector<Registry::Arrival>{{&record("hu-serial"), value, state}});

        open()->send(record("hu-serial"), value, {unit.label, {}, true}, id);

        EXPECT_EQ(states().at(value), name(state));
    }
}

TEST_F(RegistryTest, ArrivalOfAValueThatTheUnitWasNotGivenIsNotNoted)
{
    send("hu-serial", "HU1", {"U1"});
    const UnitId other = open()->send(record("hu-serial"), "HU2", {"U2"}, {}).first;
    send("hu-serial", "HU3", {"", {{"hu-serial", "HU3"}}});

    open()->conclude(other, std::vector<Registry::Arrival>{{&record("hu-serial"), "HU1", State::kVerified},
                                                           {&record("hu-serial"), "HU3", State::kVerified},
                                                           {&record("hu-serial"), "HU9", State::kVerified}});

    EXPECT_EQ(states(), (std::map<std::string, std::string>{{"HU1", "sending"}, {"HU2", "sending"}, {"HU3", "seen"}}));
}

TEST_F(RegistryTest, EntryHasItsHistory)
{
    const UnitId unit = open()->send(record("hu-serial"), "HU1", {"U1"}, {}).first;
    open()->conclude(unit, std::vector<Registry::Arrival>{{&record("hu-serial"), "HU1", State::kVerified}});
    open()->send(record("hu-serial"), "HU1", {"", {}, false, "board replaced"}, {});
    std::vector<Registry::Entry> entries;

    open(Registry::Access::kLook)->list([&](const Registry::Entry& entry) { entries.push_back(entry); }, "HU1");

    ASSERT_EQ(entries.size(), 1u);
    const Registry::Entry& entry = entries[0];
    EXPECT_EQ(entry.space, record("hu-serial").space);
    EXPECT_EQ(entry.value + " " + entry.record + " " + entry.unit + " " + name(entry.state),
              "HU1 hu-serial U1 verified");
    EXPECT_THAT(entry.time, testing::MatchesRegex("20..-..-..T..:..:..[.]......Z"));
    EXPECT_EQ(entry.reason, "");
    std::vector<std::string> events;
    for (const auto& event : entry.events) {
        EXPECT_THAT(event.time, testing::MatchesRegex("20..-..-..T..:..:..[.]......Z"));
        events.push_back(event.event + "," + event.unit + "," + event.reason);
    }
    EXPECT_THAT(events, ElementsAre("sending,U1,", "verified,U1,", "reissued,#2,board replaced"));
}

TEST_F(RegistryTest, ListHasNoHistoryAndOnlyTheAskedValue)
{
    send("hu-serial", "HU1", {"U1"});
    send("hu-serial", "HU2", {"U2"});
    std::size_t entries = 0;
    const auto count = [&](const Registry::Entry& entry) {
        ++entries;
        EXPECT_TRUE(entry.events.empty() || entry.value == "HU2");
    };
    open(Registry::Access::kLook)->list(count);
    EXPECT_EQ(entries, 2u);

    open(Registry::Access::kLook)->list(count, "HU2");
    open(Registry::Access::kLook)->list(count, "HU3");
    EXPECT_EQ(entries, 3u);
}

TEST_F(RegistryTest, BlockedValueIsListedOnceInEachNameSpaceWithItsReason)
{
    open()->block("00:1a:7d:00:00:01", "scrapped");
    open()->block("00:1a:7d:00:00:01", "scrapped for good");
    std::vector<std::string> listed;

    open(Registry::Access::kLook)->list([&](const Registry::Entry& entry) {
        listed.push_back(entry.value + "|" + entry.record + "|" + entry.unit + "|" + name(entry.state) + "|" +
                         entry.reason);
    });

    // As an address, as a factory serial, and as a serial of the head unit.
    EXPECT_THAT(listed, testing::UnorderedElementsAre("001A7D000001|||blocked|scrapped for good",
                                                      "00:1a:7d:00:00:01|||blocked|scrapped for good",
                                                      "00:1a:7d:00:00:01|||blocked|scrapped for good"));
    EXPECT_THAT(refusal([&] { send("bluetooth-address", "001A7D000001", {"U1"}); }), HasSubstr("scrapped for good"));
}

TEST_F(RegistryTest, WhatCannotBeAValueIsNotBlocked)
{
    EXPECT_THAT([&] { open()->block("", ""); },
                testing::ThrowsMessage<protocol::UserError>("expected a serial number or an address, got ''"));
    open()->block("HU1", "");
    EXPECT_THAT(refusal([&] { send("hu-serial", "HU1", {"U1"}); }), testing::EndsWith("hu-serial HU1 is blocked"));
}

TEST_F(RegistryTest, UnitIsNamedByItsLabelElseByItsSerialElseByItsNumber)
{
    const auto nameFor = [&](const UnitOnLine& unit, const Values& values) {
        return open()->claim(values, {}, unit, false).name;
    };
    EXPECT_EQ(nameFor({}, {{"carplay-mac", "001A7D000001"}}), "#1");
    EXPECT_EQ(nameFor({"U2"}, {{"carplay-mac", "001A7D000002"}}), "U2");
    EXPECT_EQ(nameFor({}, {{"factory-serial", "SN3"}}), "SN3");
    EXPECT_EQ(nameFor({}, {{"factory-serial", "SN4"}, {"hu-serial", "HU4"}}), "HU4");
}

TEST_F(RegistryTest, UnitWithoutALabelGetsTheOneWithWhichItComesNext)
{
    send("hu-serial", "HU1", {});
    const UnitOnLine held{"U1", {{"hu-serial", "HU1"}}};

    EXPECT_EQ(open()->claim({}, {}, held, false).name, "U1");
    EXPECT_THAT(refusal([&] {
                    open()->claim({}, {}, {"U2", held.held}, false);
                }),
                HasSubstr("this is not unit U2: it holds hu-serial HU1, which belongs to unit U1"));
}

TEST_F(RegistryTest, CopiedAddressDoesNotMakeAUnitAnother)
{
    const UnitOnLine first{"", {{"hu-serial", "HU1"}, {"carplay-mac", "001A7D000001"}}};
    send("hu-serial", "HU1", {});
    open()->send(record("carplay-mac"), "001A7D000001", {"", {{"hu-serial", "HU1"}}}, {});

    // Another serial number, and the address of the first unit.
    const auto copy = open()->claim({}, {}, {"", {{"hu-serial", "HU2"}, {"carplay-mac", "001A7D000001"}}}, false);
    EXPECT_EQ(copy.name, "HU2");
    EXPECT_EQ(open()->claim({}, {}, first, false).name, "HU1");
    // Without a serial number, the address tells.
    EXPECT_EQ(open()->claim({}, {}, {"", {{"carplay-mac", "001A7D000001"}}}, false).name, "HU1");
}

// Ledgers from before there was a registry.

TEST_F(RegistryTest, LedgersBySerialAddToTheUnitThatHasTheSerial)
{
    send("factory-serial", "SN1", {"U1"});
    ledger(R"({"event":"reserved","unit":"SN1","by":"serial","held":"SN1","values":{"carplay-mac":"001122334455"}})"
           "\n"
           R"({"event":"reserved","unit":"SN9","by":"serial","held":"OLD","values":{"carplay-mac":"001122334459"}})"
           "\n");

    EXPECT_EQ(open()->importLedger(csv + ".ledger"), 2u);
    EXPECT_NE(LedgerFile(csv + ".ledger", nullptr, true).registry(), "");

    std::map<std::string, std::string> found;
    open(Registry::Access::kLook)->list([&](const Registry::Entry& entry) {
        found[entry.value] = entry.unit + " " + name(entry.state);
    });
    EXPECT_EQ(found["001122334455"], "U1 sending");
    EXPECT_EQ(found["001122334459"].substr(found["001122334459"].find(' ')), " sending");
    EXPECT_EQ(found["SN1"], "U1 sending");
    EXPECT_TRUE(found["SN9"].ends_with(" seen"));
    EXPECT_TRUE(found["OLD"].ends_with(" seen"));
    EXPECT_EQ(found["OLD"], found["SN9"]);
}

TEST_F(RegistryTest, LedgerWhoseUnitHasItsValuesTurnsSendingIntoWritten)
{
    ledger(kReservedU1);
    open()->importLedger(csv + ".ledger");
    EXPECT_EQ(states().at("SN1"), "sending");

    const std::string other = directory.path() / "other.csv.ledger";
    std::ofstream(other) << kReservedU1 << "\n"
                         << R"({"event":"verified","unit":"U1","by":"label"})"
                         << "\n";
    EXPECT_EQ(open()->importLedger(other), 0u);

    EXPECT_EQ(states().at("SN1"), "written");
}

TEST_F(RegistryTest, ValueThatWasGivenTwiceIsNamedWithItsUnit)
{
    send("hu-serial", "HU2", {"U2"});
    ledger(std::string(kReservedU1) + "\n" +
           R"({"event":"reserved","unit":"U2","by":"label","values":{"factory-serial":"SN1"}})" + "\n");
    const auto registry = open();

    registry->importLedger(csv + ".ledger");

    EXPECT_THAT(registry->givenTwice(), ElementsAre("factory-serial SN1, which unit U1 has"));
    std::vector<std::string> events;
    registry->list(
        [&](const Registry::Entry& entry) {
            for (const auto& event : entry.events) {
                events.push_back(event.event + "," + event.unit + "," + event.reason);
            }
        },
        "SN1");
    EXPECT_THAT(events, ElementsAre("sending,U1,imported", "given-twice,U2,imported from a ledger"));
}

TEST_F(RegistryTest, RowOfALabelIsFoundInALedgerThatWasNotImported)
{
    ledger(kReservedU1);

    EXPECT_EQ(open(Registry::Access::kLook)->rowOf(table, "U1")->line, 2u);
    EXPECT_FALSE(open(Registry::Access::kLook)->rowOf(table, "U2"));
    EXPECT_FALSE(open(Registry::Access::kLook)->rowOf(table, ""));
}

TEST_F(RegistryTest, LedgerIsImportedAndNamesItsRegistry)
{
    ledger(std::string(kReservedU1) + "\n" + R"({"schema":1,"event":"verified","unit":"U1","by":"label"})" + "\n");

    EXPECT_EQ(serialFor({"U2"}), "SN2");

    EXPECT_EQ(states().at("SN1"), "written");
    EXPECT_THAT(refusal({"U1"}), HasSubstr("--again"));
    EXPECT_EQ(LedgerFile(csv + ".ledger", nullptr, false).registry(), open()->uuid());
}

TEST_F(RegistryTest, StationWithAnotherRegistryIsRefused)
{
    reserve({"U1"});
    const std::string first = open()->uuid();
    path = directory.path() / "other.sqlite";

    EXPECT_THAT(
        error([&] { reserve({"U2"}); }),
        AllOf(HasSubstr("values.csv.ledger: registry " + first + " gives out its values"), HasSubstr("other.sqlite")));
}

TEST_F(RegistryTest, LinksToOneFileShareItsLedger)
{
    const std::string other = directory.path() / "other.csv";
    std::filesystem::create_symlink(csv, other);
    reserve({"U1"});

    EXPECT_EQ(ledgerPath(other), csv + ".ledger");
}

TEST_F(RegistryTest, LedgersThatGaveOneValueTwiceAreImportedAndItStaysWithTheFirst)
{
    ledger(std::string(kReservedU1) + "\n" +
           R"({"event":"reserved","unit":"00000000","by":"serial","values":{"factory-serial":"SN1"}})" + "\n");

    EXPECT_EQ(open()->importLedger(csv + ".ledger"), 2u);

    EXPECT_EQ(open()->importLedger(csv + ".ledger"), 0u);
    EXPECT_EQ(serialFor({"U1", {}, true}), "SN1");
}

TEST_F(RegistryTest, EmptyLedgerIsImportedAndAMissingOneIsNotMade)
{
    ledger("");

    EXPECT_EQ(open()->importLedger(csv + ".ledger"), 0u);
    EXPECT_THAT(error([&] { open()->importLedger(csv + ".other"); }), HasSubstr(".other: no such file"));
    EXPECT_FALSE(std::filesystem::exists(csv + ".other"));
}

TEST_F(RegistryTest, ValuesOfAFileThatUnitsHaveAreImported)
{
    EXPECT_EQ(open()->importTable(table), 4u);
    EXPECT_EQ(open()->importTable(table), 0u);
    EXPECT_EQ(states().at("SN1"), "written");

    EXPECT_THAT(refusal({"U1"}), HasSubstr("all 2 rows have been given away"));
}

// The database.

TEST_F(RegistryTest, CopyOfARegistryGivesNothingUntilItIsAdopted)
{
    reserve({"U1"});
    const std::string copy = directory.path() / "copy.sqlite";
    std::filesystem::copy_file(path, copy);
    path = copy;

    EXPECT_THAT(error([&] { reserve({"U2"}); }),
                AllOf(HasSubstr("copy.sqlite: this is a copy of registry"), HasSubstr("adopt")));
    EXPECT_THAT(error([&] { send("hu-serial", "HU1", {}); }), HasSubstr("this is a copy"));
    EXPECT_THAT(error([&] { open()->claim({}, {}, {"U2"}, false); }), HasSubstr("this is a copy"));
    EXPECT_THAT(error([&] { open()->block("HU1", ""); }), HasSubstr("this is a copy"));
    EXPECT_THAT(error([&] { open()->importTable(table); }), HasSubstr("this is a copy"));
    EXPECT_THAT(error([&] { open()->importLedger(csv + ".ledger"); }), HasSubstr("this is a copy"));
    EXPECT_EQ(states().at("SN1"), "reserved");

    open()->adopt();
    EXPECT_EQ(serialFor({"U2"}), "SN2");
    auto events = sqlite::Database(path, SQLITE_OPEN_READONLY, nullptr);
    auto adopted = events.prepare("SELECT reason FROM event WHERE event = 'adopted'");
    ASSERT_TRUE(adopted.step());
    EXPECT_THAT(adopted.text(0), HasSubstr("this is a copy of registry"));
}

TEST_F(RegistryTest, BackupInTheOriginalsPlaceGivesNothing)
{
    reserve({"U1"});
    const std::string backup = directory.path() / "backup";
    std::filesystem::copy_file(path, backup);
    reserve({"U2"});
    std::ofstream(path, std::ios::binary) << std::ifstream(backup, std::ios::binary).rdbuf();

    EXPECT_THAT(error([&] { reserve({"U3"}); }), HasSubstr("older than what the registry had given before"));

    open()->adopt();
    EXPECT_EQ(serialFor({"U3"}), "SN2");
}

TEST_F(RegistryTest, RegistryThatWasRemovedIsNotBegunAnew)
{
    reserve({"U1"});
    std::filesystem::remove(path);

    EXPECT_THAT(error([&] { reserve({"U2"}); }), HasSubstr("older than what the registry had given before"));
}

TEST_F(RegistryTest, RegistryWithoutTheIndexOfEventsIsReadAndGetsItWhenItGives)
{
    reserve({"U1"});
    sqlite::Database database(path, SQLITE_OPEN_READWRITE, nullptr);
    database.run("DROP INDEX event_of_value");

    EXPECT_EQ(states().at("SN1"), "reserved");
    EXPECT_EQ(serialFor({"U2"}), "SN2");

    auto index = database.prepare("SELECT count(*) FROM sqlite_schema WHERE name = 'event_of_value'");
    ASSERT_TRUE(index.step());
    EXPECT_EQ(index.number(0), 1);
}

TEST_F(RegistryTest, FileThatIsNotARegistryIsNamed)
{
    std::filesystem::create_directory(directory.path() / "state");
    std::ofstream(path) << "not a database at all, but long enough to have a header, were it one";

    EXPECT_THAT(error([&] { reserve({"U1"}); }), AllOf(HasSubstr("registry.sqlite"), HasSubstr("not a database")));
}

TEST_F(RegistryTest, OnAFullDiskNothingIsGiven)
{
    reserve({"U1"});
    std::string full;
    {
        const FileSizeLimit limit(4096);
        full = error([&] { reserve({"U2"}); });
    }

    EXPECT_THAT(full, HasSubstr("registry.sqlite"));
    EXPECT_EQ(states().count("SN2"), 0u);
    EXPECT_EQ(serialFor({"U3"}), "SN2");
}

TEST_F(RegistryTest, OnAFullOrReadOnlyDiskNothingIsGivenAndOneLineSaysWhy)
{
    tests::SmallDisk disk(directory.path() / "state", 512 * 1024);
    if (disk.problem()) {
        GTEST_SKIP() << *disk.problem();
    }
    reserve({"U1"});

    disk.fill();
    const std::string full = error([&] { reserve({"U2"}); });
    disk.free();
    disk.makeReadOnly();
    const std::string readOnly = error([&] { reserve({"U2"}); });

    EXPECT_THAT(full, AllOf(HasSubstr("registry.sqlite"), HasSubstr("full"), testing::Not(HasSubstr("\n"))));
    EXPECT_THAT(readOnly, AllOf(HasSubstr("registry.sqlite"), HasSubstr("Read-only file system")));
    EXPECT_THAT(states(), testing::UnorderedElementsAre(testing::Pair("SN1", "reserved"),
                                                        testing::Pair("001122334455", "reserved")));
}

/// Lets the process's file locks of the given kind fail as on a file system that has none.
bool takeLocksAway(int error)
{
    std::array<sock_filter, 6> program{{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_fcntl, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, F_OFD_SETLK, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog filter{program.size(), program.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

class RegistryWithoutLocksTest : public RegistryTest, public testing::WithParamInterface<int>
{
};

TEST_P(RegistryWithoutLocksTest, GivesNothing)
{
    constexpr int kNoFilter = 77;
    const pid_t child = fork();
    if (child == 0) {
        if (!takeLocksAway(GetParam())) {
            _exit(kNoFilter);
        }
        const std::string why = error([&] { reserve({"U1"}); });
        const std::string expected =
            GetParam() == 0 ? "one lock was given twice" : std::generic_category().message(GetParam());
        _exit(why.find("file locks do not work here (" + expected + ")") == std::string::npos ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoFilter) {
        GTEST_SKIP() << "system calls cannot be filtered here";
    }

    EXPECT_EQ(status, 0);
    EXPECT_FALSE(std::filesystem::exists(path));
}

// No locks at all, and locks that two holders can have.
INSTANTIATE_TEST_SUITE_P(Identity, RegistryWithoutLocksTest, testing::Values(ENOLCK, 0),
                         [](const auto& row) { return row.param == 0 ? "LocksThatAreGivenTwice" : "NoLocks"; });

TEST_F(RegistryTest, InterruptEndsTheWaitForAnotherStation)
{
    Interrupt interrupt;
    Registry waiting(path, all, rules, &interrupt);
    const pid_t other = fork();
    if (other == 0) {
        // SQLite's own lock byte for those that write.
        struct flock pending = {};
        pending.l_type = F_WRLCK;
        pending.l_start = 0x40000000;
        pending.l_len = 512;
        const int descriptor = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
        fcntl(descriptor, F_SETLK, &pending);
        raise(SIGSTOP);
        _exit(0);
    }
    int status = 0;
    waitpid(other, &status, WUNTRACED);
    interrupt.request();

    EXPECT_THROW(waiting.reserve(table, {"U1"}, {}, false), Interrupted);
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
}

TEST_F(RegistryTest, DatabaseThatStaysLockedIsGivenUpAfterItsPatience)
{
    constexpr auto kPatience = std::chrono::milliseconds(50);
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    const std::string file = directory.path() / "locked.sqlite";
    sqlite::Database holder(file, kFlags, nullptr);
    const sqlite::Transaction transaction(holder);
    sqlite::Database waiting(file, kFlags, nullptr, kPatience);
    const auto start = std::chrono::steady_clock::now();

    EXPECT_EQ(error([&] { const sqlite::Transaction second(waiting); }),
              file + ": another station keeps the registry locked: try again when it is done");

    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, kPatience);
    EXPECT_LT(took, std::chrono::seconds(10));
}

TEST_F(RegistryTest, DatabaseThatIsLockedForAMomentIsWaitedFor)
{
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    const std::string file = directory.path() / "locked.sqlite";
    sqlite::Database holder(file, kFlags, nullptr);
    std::optional<sqlite::Transaction> transaction(holder);
    std::string trouble;
    std::atomic<bool> starts = false;
    std::thread other([&] {
        sqlite::Database waiting(file, kFlags, nullptr);
        starts = true;
        trouble = error([&] { const sqlite::Transaction second(waiting); });
    });
    while (!starts) {
        std::this_thread::yield();
    }

    transaction.reset();
    other.join();

    EXPECT_EQ(trouble, "");
}

TEST_F(RegistryTest, OwnValueThatIsGivenForAReasonHasTheReasonInItsHistory)
{
    const auto claim = [&](const std::string& reason, const Values& held) {
        open()->claim({{"hu-serial", "HU1"}}, {}, {"U1", held, false, reason}, false);
    };
    claim("", {});
    claim("", {});
    claim("board replaced", {});
    claim("memory replaced", {{"hu-serial", "HU1"}});
    std::vector<std::string> events;

    open(Registry::Access::kLook)
        ->list(
            [&](const Registry::Entry& entry) {
                for (const auto& event : entry.events) {
                    events.push_back(event.event + "," + event.unit + "," + event.reason);
                }
            },
            "HU1");

    EXPECT_THAT(events, ElementsAre("reserved,U1,", "reissued,U1,board replaced", "reissued,U1,memory replaced"));
}

TEST_F(RegistryTest, ValueThatWasSeenWithAUnitIsReservedForItOnceItLacksIt)
{
    const UnitOnLine holds{"U1", {{"hu-serial", "HU7"}}};
    send("hu-serial", "HU7", holds);
    const auto stateAfter = [&](const UnitOnLine& unit) {
        open()->claim({{"hu-serial", "HU7"}}, {}, unit, false);
        return states().at("HU7");
    };

    EXPECT_EQ(stateAfter(holds), "seen");
    EXPECT_EQ(stateAfter({"U1"}), "reserved");
}

TEST_F(RegistryTest, StationsThatAreKilledAtAnyMomentGiveNoValueTwice)
{
    const std::vector<ValueRange> ranges{parseRange(all, "factory-serial=SN{0000..9999}")};
    std::mt19937 random(1);
    std::map<std::string, std::string> unitOf;
    // Each station tells through a pipe what it gave, after it gave it.
    const auto collect = [&](int pipe) {
        std::string text;
        char chunk[4096];
        for (ssize_t got = 0; (got = ::read(pipe, chunk, sizeof chunk)) > 0;) {
            text.append(chunk, static_cast<std::size_t>(got));
        }
        for (std::size_t begin = 0, end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
            const std::string line = text.substr(begin, end - begin);
            const auto [found, fresh] = unitOf.emplace(line.substr(line.find(' ') + 1), line.substr(0, line.find(' ')));
            EXPECT_EQ(found->second, line.substr(0, line.find(' '))) << found->first << " was given twice";
        }
    };
    open();

    constexpr int kKills = 200;
    constexpr int kAtOnce = 4;
    for (int kills = 0; kills < kKills; kills += kAtOnce) {
        std::array<pid_t, kAtOnce> stations{};
        int told[2];
        ASSERT_EQ(pipe2(told, O_CLOEXEC), 0);
        for (int i = 0; i < kAtOnce; ++i) {
            stations[static_cast<std::size_t>(i)] = fork();
            if (stations[static_cast<std::size_t>(i)] == 0) {
                // A station that another one, which is just being killed, keeps from its unit ends. It must not go on
                // as this test.
                try {
                    for (int unit = 0;; ++unit) {
                        const std::string label = std::to_string(kills + i) + "-" + std::to_string(unit);
                        const auto grant = open()->claim({}, ranges, {label}, false);
                        const std::string line = label + " " + grant.row.values.at("factory-serial") + "\n";
                        [[maybe_unused]] const ssize_t written = ::write(told[1], line.data(), line.size());
                    }
                } catch (const std::exception&) {
                    _exit(1);
                }
            }
        }
        close(told[1]);
        for (const pid_t station : stations) {
            usleep(static_cast<useconds_t>(random() % 10'000));  // the moment is what is tried
            kill(station, SIGKILL);
            waitpid(station, nullptr, 0);
        }
        collect(told[0]);
        close(told[0]);
    }

    EXPECT_EQ(open()->claim({}, ranges, {"behind"}, false).again, false);
    EXPECT_GT(unitOf.size(), 0u);
    const auto kept = states();
    for (const auto& [value, unit] : unitOf) {
        EXPECT_EQ(kept.count(value), 1u) << value;
    }
}

TEST(AddressTest, NoDeviceHasMulticastAllZeroOrAllF)
{
    const auto all = records(protocol::catalogue::groups());
    const Record& mac = require(all, "carplay-mac");

    EXPECT_THAT(reservedAddress(mac, "01005E000001"), HasSubstr("carplay-mac: expected the address of one device"));
    EXPECT_THAT(reservedAddress(mac, "01005E000001"), HasSubstr("multicast"));
    EXPECT_THAT(reservedAddress(mac, "000000000000"), HasSubstr("all zero"));
    EXPECT_THAT(reservedAddress(mac, "ff:ff:ff:ff:ff:ff"), HasSubstr("all F"));
    EXPECT_EQ(reservedAddress(mac, "001A7D000001"), "");
    EXPECT_EQ(reservedAddress(require(all, "hu-serial"), "FFFFFFFFFFFF"), "");
}

struct WrongRange {
    const char* name;
    bool block;
    const char* text;
    const char* message;
};

class WrongRangeTest : public testing::TestWithParam<WrongRange>
{
};

TEST_P(WrongRangeTest, IsRefusedWithTheExpectedForm)
{
    const auto all = records(protocol::catalogue::groups());

    try {
        GetParam().block ? parseMacBlock(all, GetParam().text) : parseRange(all, GetParam().text);
        FAIL() << "it was taken";
    } catch (const protocol::UserError& error) {
        EXPECT_THAT(error.what(), HasSubstr(GetParam().message));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Identity, WrongRangeTest,
    testing::Values(WrongRange{"NoRecord", false, "SN{1..2}", "RECORD=TEXT{FIRST..LAST}"},
                    WrongRange{"NoNumbers", false, "factory-serial=SN1", "RECORD=TEXT{FIRST..LAST}"},
                    WrongRange{"TwoWidths", false, "factory-serial=SN{1..10}", "same width"},
                    WrongRange{"Descending", false, "factory-serial=SN{2..1}", "lower one first"},
                    WrongRange{"NotUnique", false, "drawing-code=D{1..2}", "several units may have"},
                    WrongRange{"Address", false, "carplay-mac={1..2}", "--mac-block"},
                    WrongRange{"SerialBlock", true, "hu-serial=001A7D000000/24", "ADDRESS/BITS"},
                    WrongRange{"NoBits", true, "carplay-mac=001A7D000000", "ADDRESS/BITS"},
                    WrongRange{"TooWideBlock", true, "carplay-mac=000000000000/7", "BITS from 8 to 48"},
                    WrongRange{"MulticastBlock", true, "carplay-mac=01005E000000/24", "multicast"},
                    WrongRange{"InsideOfBlock", true, "carplay-mac=001A7D000001/24", "first address of the block"},
                    WrongRange{"ShortAddress", true, "carplay-mac=001A7D/24", "12 hexadecimal digits"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace station::identity
