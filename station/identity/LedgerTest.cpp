#include "station/identity/Ledger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "protocol/catalogue/Catalogue.h"
#include "tests/engine/FileSizeLimit.h"
#include "tests/support/TempDir.h"

namespace station::identity {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class LedgerTest : public testing::Test
{
protected:
    LedgerTest() { write("factory-serial,carplay-mac,drawing-code\nSN1,001122334455,D\nSN2,001122334456,D\n"); }

    void write(const std::string& content)
    {
        std::ofstream(csv) << content;
        table = readCsv(content, csv, all);
    }

    /// A station of its own, which ends with the call.
    Ledger::Grant reserve(const std::string& unit, const std::optional<std::string>& serial = {}, bool dryRun = false)
    {
        return Ledger(csv, all, nullptr).reserve(table, {unit, ""}, serial, dryRun);
    }

    /// The same for a unit that holds a factory serial.
    Ledger::Grant reserveHolding(const std::string& held, const std::string& unit = {})
    {
        return Ledger(csv, all, nullptr).reserve(table, {unit, held}, {}, false);
    }

    /// Gives a unit its row, which it then has.
    void use(const Ledger::Unit& unit, bool verified)
    {
        Ledger station(csv, all, nullptr);
        station.reserve(table, unit, {}, false);
        station.noteUsed(verified);
    }

    std::string refusal(const std::string& unit, const std::optional<std::string>& serial = {})
    {
        try {
            reserve(unit, serial);
        } catch (const NoRow& error) {
            return error.what();
        }
        return "";
    }

    std::string ledger() const
    {
        std::ifstream in(csv + ".ledger");
        return {std::istreambuf_iterator<char>(in), {}};
    }

    tests::TempDir directory;
    std::string csv = directory.path() / "values.csv";
    std::vector<Record> all = records(protocol::catalogue::groups());
    CsvTable table;
};

TEST_F(LedgerTest, EachUnitGetsARowOfItsOwnUntilNoneIsLeft)
{
    EXPECT_EQ(reserve("U1").row.values.at("factory-serial"), "SN1");
    EXPECT_EQ(reserve("U2").row.values.at("factory-serial"), "SN2");
    EXPECT_THAT(refusal("U3"), HasSubstr("all 2 rows have been given away"));
}

TEST_F(LedgerTest, LookMakesNoFileAndFindsNoRow)
{
    Ledger look(csv, all, nullptr, Ledger::Access::kLook);

    EXPECT_EQ(look.reserve(table, {"U1", ""}, {}, true).row.values.at("factory-serial"), "SN1");
    EXPECT_FALSE(look.rowOf(table, "U1"));
    EXPECT_FALSE(std::filesystem::exists(csv + ".ledger"));
}

TEST_F(LedgerTest, LookSeesWhatWasGivenAndChangesNothing)
{
    reserve("U1");
    std::ofstream(csv + ".ledger", std::ios::app) << "{\"what a station had begun";
    const std::string before = ledger();

    Ledger look(csv, all, nullptr, Ledger::Access::kLook);

    EXPECT_EQ(look.reserve(table, {"U2", ""}, {}, true).row.values.at("factory-serial"), "SN2");
    EXPECT_EQ(look.rowOf(table, "U1")->values.at("factory-serial"), "SN1");
    EXPECT_EQ(ledger(), before);
}

TEST_F(LedgerTest, SerialThatNoRowHasIsSaidSoToAUnitThatHasARowToo)
{
    reserve("U1");

    EXPECT_THAT(refusal("U1", "SN9"), HasSubstr(": no row has factory serial SN9"));
    EXPECT_THAT(refusal("U1", "SN2"), HasSubstr("has been given line 2"));
}

TEST_F(LedgerTest, SameUnitGetsItsOwnRowAgain)
{
    EXPECT_FALSE(reserve("U1").again);
    reserve("U2");

    const auto second = reserve("U1");

    EXPECT_TRUE(second.again);
    EXPECT_EQ(second.row.values.at("factory-serial"), "SN1");
}

TEST_F(LedgerTest, RowCanBeChosenByItsFactorySerial)
{
    EXPECT_EQ(reserve("U1", "SN2").row.line, 3u);
    EXPECT_EQ(reserve("U2").row.line, 2u);
    EXPECT_THAT(refusal("U3", "SN9"), HasSubstr("no row has factory serial SN9"));
    EXPECT_THAT(refusal("U3", "SN2"), AllOf(HasSubstr("values.csv:3"), HasSubstr("given to unit U1")));
    EXPECT_THAT(refusal("U1", "SN1"), HasSubstr("has been given line 3"));
}

TEST_F(LedgerTest, UnitIsKnownByTheFactorySerialThatItWasGiven)
{
    reserve("U1");

    const auto again = reserveHolding("SN1");

    EXPECT_TRUE(again.again);
    EXPECT_EQ(again.unit, "U1");
    EXPECT_EQ(again.row.line, 2u);
}

TEST_F(LedgerTest, UnitIsKnownByTheFactorySerialThatItHadBefore)
{
    EXPECT_EQ(reserveHolding("OLD").row.line, 2u);

    EXPECT_TRUE(reserveHolding("OLD").again);
    EXPECT_TRUE(reserveHolding("SN1").again);
}

TEST_F(LedgerTest, UnitWhoseFactorySerialStandsInTheFileGetsThatRow)
{
    EXPECT_EQ(reserveHolding("SN2").row.line, 3u);
    EXPECT_EQ(reserve("U1").row.line, 2u);
}

TEST_F(LedgerTest, UnitThatIsCalledByAnotherUnitsNameIsRefused)
{
    reserve("U1");
    reserve("U2");

    try {
        reserveHolding("SN1", "U2");
        FAIL() << "it was given a row";
    } catch (const NoRow& error) {
        EXPECT_THAT(error.what(), HasSubstr("it holds factory serial SN1, which was given to unit U1"));
    }
}

TEST_F(LedgerTest, UnitThatIsCalledByAnothersFactorySerialIsNotTakenForThatUnit)
{
    reserve("U1");

    EXPECT_EQ(reserve("SN1").row.line, 3u);
}

TEST_F(LedgerTest, UsedRowIsNotGivenToAnotherUnitThatIsCalledTheSame)
{
    use({"U1", ""}, true);

    EXPECT_THAT(refusal("U1"),
                AllOf(HasSubstr("unit U1 was given line 2 of"), HasSubstr("values.csv"), HasSubstr("--again")));
    EXPECT_THAT(ledger(), testing::Not(HasSubstr("SN2")));
}

TEST_F(LedgerTest, RowThatWasWrittenButNotComparedIsUsedToo)
{
    use({"U1", ""}, false);

    EXPECT_THAT(ledger(), AllOf(HasSubstr(R"("event":"written")"), testing::Not(HasSubstr("verified"))));
    EXPECT_THAT(refusal("U1"), HasSubstr("--again"));
}

TEST_F(LedgerTest, UsedRowIsGivenAgainToTheUnitThatShowsAValueOfIt)
{
    use({"U1", ""}, true);

    EXPECT_TRUE(reserveHolding("SN1", "U1").again);
    EXPECT_TRUE(reserveHolding("SN1").again);
    EXPECT_TRUE(
        Ledger(csv, all, nullptr).reserve(table, {"U1", "", {{"carplay-mac", "001122334455"}}}, {}, false).again);
}

TEST_F(LedgerTest, UsedRowIsGivenAgainToAnErasedUnitThatSomebodyVouchesFor)
{
    use({"U1", ""}, true);

    const auto grant = Ledger(csv, all, nullptr).reserve(table, {"U1", "", {}, true}, {}, false);

    EXPECT_TRUE(grant.again);
    EXPECT_EQ(grant.row.line, 2u);
}

TEST_F(LedgerTest, UsedRowOfAUnitKnownByItsFormerSerialIsNotGivenToTheNextOneThatHoldsIt)
{
    use({"", "DEFAULT"}, true);

    EXPECT_THROW(reserveHolding("DEFAULT"), NoRow);
}

TEST_F(LedgerTest, FactorySerialIsNotLookedUpAmongTheNamesThatSomebodyGave)
{
    reserve("X7");

    const auto other = reserveHolding("X7");

    EXPECT_FALSE(other.again);
    EXPECT_EQ(other.row.line, 3u);
    EXPECT_EQ(reserve("X7").row.line, 2u);
    EXPECT_EQ(Ledger(csv, all, nullptr).rowOf(table, "X7")->line, 2u);
}

TEST_F(LedgerTest, UnitThatHoldsASerialThatNobodyGaveItIsRefused)
{
    reserve("U1");

    try {
        reserveHolding("SN9", "U1");
        FAIL() << "it was given a row";
    } catch (const NoRow& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("this is no unit U1: it holds factory serial SN9"),
                                        HasSubstr("line 2 of"), HasSubstr("has SN1")));
    }
}

TEST_F(LedgerTest, UnitMayStillHoldTheSerialThatItHadWhenItWasGivenItsRow)
{
    reserveHolding("OLD", "U1");

    EXPECT_TRUE(reserveHolding("OLD", "U1").again);
}

TEST_F(LedgerTest, DryRunGivesNothingAway)
{
    EXPECT_EQ(reserve("U1", {}, true).row.line, 2u);
    EXPECT_EQ(reserve("U2").row.line, 2u);
}

TEST_F(LedgerTest, ValueIsNotGivenAgainInAnotherRow)
{
    reserve("U1");
    write("factory-serial,carplay-mac\nSN7,001122334455\nSN8,001122334457\n");

    EXPECT_EQ(reserve("U2").row.values.at("factory-serial"), "SN8");
    EXPECT_THAT(refusal("U1"), HasSubstr("values.csv:2: this row has changed since it was given to unit U1"));
}

TEST_F(LedgerTest, RowsMayMoveInTheFile)
{
    reserve("U1");
    write("drawing-code,carplay-mac,factory-serial\nE,001122334457,SN3\nE,001122334455,SN1\n");

    EXPECT_EQ(reserve("U1").row.values.at("drawing-code"), "E");
    EXPECT_EQ(reserve("U2").row.values.at("factory-serial"), "SN3");
}

TEST_F(LedgerTest, RowThatIsNoLongerInTheFileIsNotReplacedByAnother)
{
    reserve("U1");
    write("factory-serial\nSN2\n");

    EXPECT_THAT(refusal("U1"), HasSubstr("no longer in"));
}

TEST_F(LedgerTest, RowOfAUnitIsToldWithoutGivingOne)
{
    Ledger ledgers(csv, all, nullptr);
    EXPECT_FALSE(ledgers.rowOf(table, "U1"));
    reserve("U1");
    ASSERT_TRUE(ledgers.rowOf(table, "U1"));
    EXPECT_EQ(ledgers.rowOf(table, "U1")->line, 2u);
}

TEST_F(LedgerTest, TwoStationsDoNotWorkOnTheSameUnit)
{
    Ledger first(csv, all, nullptr);
    first.reserve(table, {"U1", ""}, {}, false);

    EXPECT_THAT(refusal("U1"), HasSubstr("another station works on unit U1"));
    EXPECT_EQ(reserve("U2").row.line, 3u);
}

TEST_F(LedgerTest, LinksToOneFileShareItsLedger)
{
    const std::string other = directory.path() / "other.csv";
    std::filesystem::create_symlink(csv, other);
    reserve("U1");

    EXPECT_EQ(Ledger(other, all, nullptr).reserve(table, {"U2", ""}, {}, false).row.line, 3u);
}

TEST_F(LedgerTest, WhatAStationHadBegunToWriteWhenItDiedCountsForNothing)
{
    reserve("U1");
    const std::string whole = ledger();
    std::ofstream(csv + ".ledger", std::ios::app) << R"({"schema":1,"event":"reserved","unit":"U2","val)";

    EXPECT_EQ(reserve("U3").row.line, 3u);
    EXPECT_EQ(ledger().substr(0, whole.size()), whole);
    EXPECT_EQ(reserve("U3").row.line, 3u);
}

TEST_F(LedgerTest, LineThatCannotBeReadKeepsEverythingFromBeingGivenAway)
{
    reserve("U1");
    std::ofstream(csv + ".ledger", std::ios::app) << "garbage\n";

    try {
        reserve("U2");
        FAIL() << "a row was given away";
    } catch (const LedgerError& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("values.csv.ledger"), HasSubstr("line 2")));
    }
}

TEST_F(LedgerTest, OnAFullDiskNothingIsGivenAway)
{
    reserve("U1");
    const std::string before = ledger();
    bool refused = false;
    {
        const FileSizeLimit full(before.size() + 5);
        try {
            reserve("U2");
        } catch (const LedgerError&) {
            refused = true;
        }
    }

    EXPECT_TRUE(refused);
    EXPECT_EQ(ledger(), before);
    EXPECT_EQ(reserve("U3").row.line, 3u);
}

TEST_F(LedgerTest, InterruptEndsTheWaitForAnotherStation)
{
    Interrupt interrupt;
    Ledger waiting(csv, all, &interrupt);
    const int other = open((csv + ".ledger").c_str(), O_RDWR | O_CLOEXEC);
    struct flock everything = {};
    everything.l_type = F_WRLCK;
    ASSERT_EQ(fcntl(other, F_OFD_SETLK, &everything), 0);
    interrupt.request();

    EXPECT_THROW(waiting.reserve(table, {"U1", ""}, {}, false), Interrupted);
    close(other);
}

TEST_F(LedgerTest, StationThatIsKilledAtAnyMomentGivesNoValueTwice)
{
    std::string content = "factory-serial\n";
    for (int i = 0; i < 200; ++i) {
        content += "SN" + std::to_string(i) + "\n";
    }
    write(content);

    // Stations that are killed while they reserve for one unit after the other.
    constexpr int kStations = 8;
    for (int station = 0; station < kStations; ++station) {
        int ready[2];
        ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
        const pid_t child = fork();
        if (child == 0) {
            for (int i = 0; i < 20; ++i) {
                reserve("U" + std::to_string(station) + "-" + std::to_string(i));
                [[maybe_unused]] const ssize_t told = ::write(ready[1], "x", 1);
            }
            _exit(0);
        }
        close(ready[1]);
        for (int i = 0; i < station + 1; ++i) {
            char told = 0;
            ASSERT_EQ(::read(ready[0], &told, 1), 1);
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        close(ready[0]);
    }

    std::set<std::string> serials;
    for (int station = 0; station < kStations; ++station) {
        for (int i = 0; i < 20; ++i) {
            const auto grant = reserve("U" + std::to_string(station) + "-" + std::to_string(i));
            EXPECT_TRUE(serials.insert(grant.row.values.at("factory-serial")).second);
        }
    }
    EXPECT_EQ(serials.size(), 160u);
}

TEST_F(LedgerTest, HoldsNoValueThatIsNotUnique)
{
    reserve("U1");

    EXPECT_THAT(ledger(), AllOf(HasSubstr("SN1"), HasSubstr("001122334455"), testing::Not(HasSubstr("drawing"))));
}

}  // namespace
}  // namespace station::identity
