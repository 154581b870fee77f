#include "station/identity/IdentityRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/Errors.h"
#include "protocol/catalogue/Catalogue.h"

namespace station::identity {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

class IdentityRecordTest : public testing::Test
{
protected:
    std::string errorOf(std::string_view name, std::string_view value) const
    {
        try {
            normalise(require(all, name), value);
        } catch (const protocol::UserError& error) {
            return error.what();
        }
        return "";
    }

    std::vector<Record> all = records(protocol::catalogue::groups());
};

TEST_F(IdentityRecordTest, RecordsAreTheWritersOfTheCatalogueAndTheirReadBacks)
{
    std::vector<std::string> names;
    for (const Record& record : all) {
        names.emplace_back(record.name);
    }

    EXPECT_THAT(names, ElementsAre("factory-serial", "production-date", "password-number", "bluetooth-address",
                                   "carplay-mac", "hu-serial", "drawing-code"));
    EXPECT_EQ(require(all, "carplay-mac").read->cmdTwo, 0x12);
    EXPECT_FALSE(require(all, "carplay-mac").presenceOnly);
    EXPECT_TRUE(require(all, "bluetooth-address").presenceOnly);
}

TEST_F(IdentityRecordTest, SerialsAndAddressesAreUniqueAndTheRestIsNot)
{
    for (const char* name : {"factory-serial", "hu-serial", "carplay-mac", "bluetooth-address"}) {
        EXPECT_TRUE(require(all, name).unique) << name;
    }
    for (const char* name : {"production-date", "password-number", "drawing-code"}) {
        EXPECT_FALSE(require(all, name).unique) << name;
    }
}

TEST_F(IdentityRecordTest, UnknownNameIsRefusedWithTheNearestOne)
{
    try {
        require(all, "factory-serail");
        FAIL() << "there is such a record";
    } catch (const protocol::UserError& error) {
        EXPECT_THAT(error.what(),
                    AllOf(HasSubstr("expected a record, got 'factory-serail'"), HasSubstr("'factory-serial'")));
    }
}

TEST_F(IdentityRecordTest, CharactersAreSentUnchanged)
{
    EXPECT_EQ(normalise(require(all, "factory-serial"), "sn 12:3-a"), "sn 12:3-a");
}

TEST_F(IdentityRecordTest, AddressesAreSentInUpperCaseWithoutSeparators)
{
    EXPECT_EQ(normalise(require(all, "carplay-mac"), "00:11:aa:33:44:5f"), "0011AA33445F");
    EXPECT_EQ(normalise(require(all, "bluetooth-address"), "0002-F5A1-B2C3"), "0002F5A1B2C3");
}

TEST_F(IdentityRecordTest, ValueThatTheUnitCouldNotSendBackIsRefused)
{
    EXPECT_THAT(errorOf("factory-serial", ""),
                HasSubstr("factory-serial: expected 1 to 246 printable ASCII characters, got ''"));
    EXPECT_THAT(errorOf("factory-serial", std::string(247, 'x')), HasSubstr("1 to 246"));
    EXPECT_THAT(errorOf("factory-serial", "line\n"), HasSubstr("printable"));
    EXPECT_THAT(errorOf("factory-serial", "\xC3\xA4"), HasSubstr("printable"));
    EXPECT_THAT(errorOf("carplay-mac", "00112233445"), HasSubstr("carplay-mac: expected 12 hexadecimal digits"));
    EXPECT_THAT(errorOf("carplay-mac", "0011223344GG"), HasSubstr("carplay-mac: expected 12 hexadecimal digits"));
    EXPECT_EQ(errorOf("factory-serial", std::string(246, 'x')), "");
}

TEST_F(IdentityRecordTest, WriterIsItsCodeAndTheCharacters)
{
    EXPECT_EQ(writeFrame(require(all, "factory-serial"), "SN123"),
              (protocol::Frame{0x0A, 0x02, {0x53, 0x4E, 0x31, 0x32, 0x33}}));
}

}  // namespace
}  // namespace station::identity
