#include "station/identity/LedgerFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/engine/FileSizeLimit.h"
#include "tests/support/TempDir.h"

namespace station::identity {
namespace {

using protocol::StorageError;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

class LedgerFileTest : public testing::Test
{
protected:
    void write(const std::string& text) const { std::ofstream(path) << text; }
    LedgerFile read() const { return {path, nullptr, false}; }

    std::string content() const
    {
        std::ifstream in(path);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    tests::TempDir directory;
    std::string path = directory.path() / "units.csv.ledger";
};

TEST_F(LedgerFileTest, MissingOneReadsAsAnEmptyOneAndIsNotMade)
{
    const LedgerFile ledger = read();

    EXPECT_THAT(ledger.reservations(), IsEmpty());
    EXPECT_EQ(ledger.registry(), "");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(LedgerFileTest, ReservationHasAllOfItsLine)
{
    write(R"({"event":"reserved","unit":"U1","by":"label","held":"OLD","values":{"factory-serial":"SN1"}})"
          "\n"
          R"({"event":"reserved","unit":"SN2","values":{}})");

    const LedgerFile ledger = read();

    ASSERT_THAT(ledger.reservations(), SizeIs(2));
    const auto& first = ledger.reservations()[0];
    EXPECT_EQ(first.unit + " " + first.by + " " + first.held, "U1 label OLD");
    EXPECT_THAT(first.values, ElementsAre(Pair("factory-serial", "SN1")));
    EXPECT_FALSE(first.used);
    const auto& second = ledger.reservations()[1];
    EXPECT_EQ(second.unit + "," + second.by + "," + second.held, "SN2,,");
}

TEST_F(LedgerFileTest, NewestReservationOfAUnitIsUsedWhenItWasWritten)
{
    write(R"({"event":"reserved","unit":"U1","by":"label","values":{"factory-serial":"SN1"}})"
          "\n"
          R"({"event":"reserved","unit":"U1","by":"label","values":{"factory-serial":"SN2"}})"
          "\n"
          R"({"event":"reserved","unit":"U1","by":"serial","values":{"factory-serial":"SN3"}})"
          "\n"
          R"({"event":"verified","unit":"U1","by":"label"})"
          "\n"
          R"({"event":"verified","unit":"U2","by":"label"})"
          "\n");

    std::vector<bool> used;
    const auto ledger = read();
    for (const auto& one : ledger.reservations()) {
        used.push_back(one.used);
    }
    EXPECT_THAT(used, ElementsAre(false, true, false));
}

TEST_F(LedgerFileTest, ReservationsBeforeARegistryWasNamedDoNotCount)
{
    write(R"({"event":"reserved","unit":"U1","by":"label","values":{}})"
          "\n"
          R"({"event":"registry","uuid":"one"})"
          "\n"
          R"({"event":"verified","unit":"U1","by":"label"})"
          "\n");

    EXPECT_THAT(read().reservations(), IsEmpty());
    EXPECT_EQ(read().registry(), "one");
}

TEST_F(LedgerFileTest, LineThatIsNoneIsNamed)
{
    const std::string sound = R"({"event":"registry","uuid":"one"})";
    for (const char* wrong : {"", "{", "[]", "{}", R"({"event":1})", R"({"event":"reserved"})",
                              R"({"event":"registry"})", R"({"event":"reserved","unit":"U1"})"}) {
        write(sound + "\n" + wrong + "\n" + sound + "\n");
        try {
            read();
            ADD_FAILURE() << wrong << " was taken";
        } catch (const StorageError& error) {
            EXPECT_THAT(error.what(), HasSubstr("units.csv.ledger: line 2: ")) << wrong;
        }
    }
}

TEST_F(LedgerFileTest, NamesItsRegistryOnce)
{
    for (int i = 0; i < 2; ++i) {
        LedgerFile ledger(path, nullptr, true);
        ledger.nameRegistry("one");
        EXPECT_EQ(ledger.registry(), "one");
    }
    EXPECT_EQ(std::ranges::count(content(), '\n'), 1);

    write(content() + R"({"event":"reserved","unit":"U1","by":"label","values":{}})" + "\n");
    LedgerFile(path, nullptr, true).nameRegistry("one");
    EXPECT_EQ(std::ranges::count(content(), '\n'), 3);
    LedgerFile(path, nullptr, true).nameRegistry("two");
    EXPECT_EQ(read().registry(), "two");
}

TEST_F(LedgerFileTest, OnAFullDiskStaysAsItWas)
{
    const std::string before = R"({"event":"registry","uuid":"one"})"
                               "\n";
    write(before);
    LedgerFile ledger(path, nullptr, true);
    std::string why;
    {
        const FileSizeLimit limit(before.size() + 5);
        try {
            ledger.nameRegistry("two");
        } catch (const StorageError& error) {
            why = error.what();
        }
    }
    EXPECT_THAT(why, HasSubstr("units.csv.ledger: cannot be written: No space left on device"));
    EXPECT_EQ(content(), before);
    EXPECT_EQ(ledger.registry(), "one");
}

TEST_F(LedgerFileTest, LockedOneIsWaitedForUntilTheUserInterrupts)
{
    Interrupt interrupt;
    const LedgerFile first(path, &interrupt, true);
    EXPECT_THAT(read().reservations(), IsEmpty());  // reading needs no lock

    interrupt.request();
    EXPECT_THROW(LedgerFile(path, &interrupt, true), Interrupted);
}

TEST_F(LedgerFileTest, IsNamedIfItCannotBeOpened)
{
    std::filesystem::create_directory(path);

    EXPECT_THROW(LedgerFile(path, nullptr, true), StorageError);
    EXPECT_THROW(read(), StorageError);
}

TEST_F(LedgerFileTest, IsBesideTheFileEvenOfOneThatIsMissing)
{
    const std::string csv = directory.path() / "none.csv";

    EXPECT_EQ(ledgerPath(csv), csv + ".ledger");
}

}  // namespace
}  // namespace station::identity
