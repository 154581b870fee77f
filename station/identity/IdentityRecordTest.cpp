#include "station/identity/IdentityRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

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

TEST_F(IdentityRecordTest, AddressesShareANameSpaceAndSerialsHaveTheirOwn)
{
    EXPECT_EQ(require(all, "carplay-mac").space, require(all, "bluetooth-address").space);
    EXPECT_NE(require(all, "carplay-mac").space, require(all, "hu-serial").space);
    EXPECT_NE(require(all, "factory-serial").space, require(all, "hu-serial").space);
    EXPECT_EQ(require(all, "drawing-code").space, "");
    EXPECT_TRUE(require(all, "bluetooth-address").isAddress());
    EXPECT_FALSE(require(all, "hu-serial").isAddress());
}

TEST_F(IdentityRecordTest, RecordNeedsAWriterWithAParameterAndAReadBackWithAReply)
{
    using namespace protocol::catalogue;
    static constexpr std::array kText{Field{.name = "value", .type = Type::kAscii, .maximum = 9}};
    static constexpr std::array kFlag{Field{.name = "there", .type = Type::kU8, .maximum = 1}};
    static constexpr std::array kReplies{Reply{0x8A, 0x01, {}, kText}, Reply{0x8A, 0x01, "none", {}}};
    static constexpr std::array kFlags{Reply{0x8A, 0x02, {}, kFlag}};
    static constexpr std::array kNothing{Reply{0x8A, 0x09, {}, {}}};
    static constexpr std::array kCommands{
        Command{.cmdOne = 0x0A, .cmdTwo = 0x01, .key = "name", .replies = kReplies},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x02, .key = "flag", .replies = kFlags},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x03, .key = "silent"},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x09, .key = "empty", .replies = kNothing},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x04, .key = "write-name", .params = kText, .readBack = "identity.name"},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x05, .key = "write-flag", .params = kText, .readBack = "identity.flag"},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x06, .key = "write-more", .readBack = "identity.name"},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x07, .key = "write-lost", .params = kText},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x08, .key = "write-mute", .params = kText, .readBack = "identity.silent"},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x0A, .key = "rewrite-x", .params = kText, .readBack = "identity.name"},
        Command{.cmdOne = 0x0A, .cmdTwo = 0x0B, .key = "write-empty", .params = kText, .readBack = "identity.empty"},
    };
    static constexpr std::array kGroups{Group{.code = 0x0A, .key = "identity", .commands = kCommands}};

    std::vector<std::string> found;
    for (const Record& record : records(kGroups)) {
        found.push_back(std::string(record.name) + (record.presenceOnly ? " present" : "") +
                        (record.unique ? " unique" : ""));
    }

    EXPECT_THAT(found, ElementsAre("name", "flag present", "empty"));
    EXPECT_TRUE(records({}).empty());
}

TEST_F(IdentityRecordTest, NameUnlikeAllIsRefusedWithAllNames)
{
    EXPECT_EQ(find(all, "color"), nullptr);
    try {
        require(all, "color");
        FAIL() << "there is such a record";
    } catch (const protocol::UserError& error) {
        EXPECT_THAT(error.what(), AllOf(HasSubstr("'color'"), HasSubstr("factory-serial, production-date, ")));
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
