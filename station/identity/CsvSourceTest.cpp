#include "station/identity/CsvSource.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"

namespace station::identity {
namespace {

using testing::ElementsAre;
using testing::Pair;

class CsvSourceTest : public testing::Test
{
protected:
    CsvTable read(const std::string& content) { return readCsv(content, path, all); }

    /// @returns what is wrong, without the file's name.
    std::string errorOf(const std::string& content)
    {
        try {
            read(content);
        } catch (const protocol::UserError& error) {
            const std::string what = error.what();
            return what.starts_with(path) ? what.substr(path.size()) : "(the file is not named) " + what;
        }
        return "";
    }

    std::string path = "values.csv";
    std::vector<Record> all = records(protocol::catalogue::groups());
};

TEST_F(CsvSourceTest, RowsHoldTheirValuesByNameAndTheirLine)
{
    const auto table = read("factory-serial,carplay-mac\nSN1,00:11:22:33:44:55\n\nSN2,\n");

    ASSERT_EQ(table.rows.size(), 2u);
    EXPECT_EQ(table.rows[0].line, 2u);
    EXPECT_THAT(table.rows[0].values, ElementsAre(Pair("carplay-mac", "001122334455"), Pair("factory-serial", "SN1")));
    EXPECT_EQ(table.rows[1].line, 4u);
    EXPECT_THAT(table.rows[1].values, ElementsAre(Pair("factory-serial", "SN2")));
}

TEST_F(CsvSourceTest, SpreadsheetsFilesAreRead)
{
    const auto table = read(
        "\xEF\xBB\xBF"
        "factory-serial;drawing-code\r\n\"SN;1\";\"a \"\"b\"\"\"\r\n");

    ASSERT_EQ(table.rows.size(), 1u);
    EXPECT_THAT(table.rows[0].values, ElementsAre(Pair("drawing-code", "a \"b\""), Pair("factory-serial", "SN;1")));
}

TEST_F(CsvSourceTest, CommasSeparateUnlessThereAreSemicolonsOnly)
{
    EXPECT_EQ(read("factory-serial,hu-serial\nSN;1,HU1\n").rows[0].values.at("factory-serial"), "SN;1");
    EXPECT_EQ(read("factory-serial;hu-serial\nSN,1;HU1\n").rows[0].values.at("factory-serial"), "SN,1");
    EXPECT_EQ(read("factory-serial\nSN;1\n").rows[0].values.at("factory-serial"), "SN;1");
}

TEST_F(CsvSourceTest, LinesOfBlanksAreSkippedAndCounted)
{
    const auto table = read(" \t\r\n\nfactory-serial\n \nSN1\n\t\nSN2");

    ASSERT_EQ(table.rows.size(), 2u);
    EXPECT_EQ(table.rows[0].line, 5u);
    EXPECT_EQ(table.rows[1].line, 7u);
}

TEST_F(CsvSourceTest, ByteOrderMarkBeginsTheFileOnly)
{
    EXPECT_NE(errorOf("\n\xEF\xBB\xBF"
                      "factory-serial\nSN1\n"),
              "");
}

TEST_F(CsvSourceTest, LineMayHaveAMebibyte)
{
    const std::string blanks((1u << 20) - 3, ' ');

    EXPECT_EQ(errorOf("factory-serial\n" + blanks + "SN1"), "");
    EXPECT_THAT(errorOf("factory-serial\n" + blanks + "SN12\n"), testing::StartsWith(":2: expected a line of at most"));
}

TEST_F(CsvSourceTest, LastLineNeedsNoEnd)
{
    EXPECT_EQ(read("factory-serial\nSN1").rows.size(), 1u);
}

struct Broken {
    const char* name;
    const char* content;
    const char* error;
};

class BrokenCsv : public CsvSourceTest, public testing::WithParamInterface<Broken>
{
};

TEST_P(BrokenCsv, IsRefusedWithItsLine)
{
    EXPECT_EQ(errorOf(GetParam().content), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(
    CsvSource, BrokenCsv,
    testing::Values(
        Broken{"NothingInIt", "",
               ":1: expected a line with the names of records, as in 'factory-serial,carplay-mac', got none"},
        Broken{"NamesOnly", "factory-serial\n", ":2: expected a row of values after the names, got none"},
        Broken{"UnknownName", "factory-serial,color\nSN1,red\n",
               ":1: expected one of factory-serial, production-date, password-number, bluetooth-address, carplay-mac, "
               "hu-serial, drawing-code, got 'color'"},
        Broken{"NameTwice", "factory-serial,factory-serial\nSN1,SN2\n",
               ":1: expected one column 'factory-serial', got two"},
        Broken{"TooManyValues", "factory-serial\nSN1\nSN2,x\n",
               ":3: expected 1 value for the names of the first line, got 2"},
        Broken{"ValueMissing", "factory-serial,hu-serial\nSN1\n",
               ":2: expected 2 values for the names of the first line, got 1"},
        Broken{"WrongValue", "factory-serial,carplay-mac\nSN1,0011\n",
               ":2: carplay-mac: expected 12 hexadecimal digits, got '0011'"},
        Broken{"SameAddressTwice", "factory-serial,carplay-mac\nSN1,001122334455\nSN2,00:11:22:33:44:55\n",
               ":3: carplay-mac 001122334455 is already in line 2"},
        Broken{"SameAddressInAnotherColumn",
               "carplay-mac,bluetooth-address\n001122334455,001122334456\n001122334457,00:11:22:33:44:55\n",
               ":3: bluetooth-address 001122334455 is already in line 2, as carplay-mac"},
        Broken{"SameSerialInTwoRowsOfThree", "hu-serial\nHU1\nHU2\nHU1\n", ":4: hu-serial HU1 is already in line 2"},
        Broken{"NamesOnlyWithoutLineEnd", "factory-serial", ":2: expected a row of values after the names, got none"},
        Broken{"RowWithoutAUniqueValue", "factory-serial,drawing-code\n,D-42\n",
               ":2: expected a value of a unique record, such as factory-serial, got none"},
        Broken{"UnclosedQuote", "factory-serial\n\"SN1\nSN2\n",
               ":2: expected a closing quote before the end of the line"},
        Broken{"QuoteWithinAValue", "factory-serial\nSN\"1\n",
               ":2: expected comma-separated values: error parsing data while strict checking enabled"},
        Broken{"ControlCharacters", "\x01\x02\x03\n",
               ":1: expected one of factory-serial, production-date, password-number, bluetooth-address, carplay-mac, "
               "hu-serial, drawing-code, got '\x01\x02\x03'"}),
    [](const auto& row) { return row.param.name; });

TEST_F(CsvSourceTest, UnitMayUseOneAddressForBoth)
{
    EXPECT_EQ(read("carplay-mac,bluetooth-address\n001122334455,001122334455\n").rows.size(), 1u);
}

TEST_F(CsvSourceTest, RowIsFoundByItsFactorySerial)
{
    const auto table = read("factory-serial,hu-serial\nSN1,HU1\n,HU2\n");

    EXPECT_EQ(table.find("SN1"), &table.rows[0]);
    EXPECT_EQ(table.find("HU2"), nullptr);
    EXPECT_THROW(table.rowOf("SN2"), NotGiven);
}

}  // namespace
}  // namespace station::identity
