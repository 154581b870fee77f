#include "station/identity/UnitRules.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/catalogue/Catalogue.h"

namespace station::identity {
namespace {

using testing::HasSubstr;

class UnitRulesTest : public testing::Test
{
protected:
    const Record& record(std::string_view name) const { return require(all, name); }

    const std::vector<Record> all = records(protocol::catalogue::groups());
    const std::string erased{"\xFF\xFF\xFF"};
    UnitRules rules;
};

TEST_F(UnitRulesTest, PlaceholdersIdentifyNoUnit)
{
    for (const std::string& serial : {std::string(), std::string("00000000"), erased}) {
        EXPECT_TRUE(rules.isPlaceholder(record("factory-serial"), serial)) << serial;
    }
    for (const std::string& address :
         {std::string(), erased, std::string("000000000000"), std::string("ff:ff:ff:ff:ff:ff")}) {
        EXPECT_TRUE(rules.isPlaceholder(record("carplay-mac"), address)) << address;
    }
}

TEST_F(UnitRulesTest, EveryOtherValueIdentifiesAUnit)
{
    for (const std::string& serial : {std::string("0000000"), std::string("00000001"), std::string("FFFFFFFFFFFF"),
                                      std::string("000000000000"), "a" + erased}) {
        EXPECT_FALSE(rules.isPlaceholder(record("factory-serial"), serial)) << serial;
    }
    for (const std::string& address :
         {std::string("00000000000F"), std::string("FFFFFFFFFFF0"), std::string("00000000"), std::string("F"),
          std::string("0000000000000"), erased + "F"}) {
        EXPECT_FALSE(rules.isPlaceholder(record("carplay-mac"), address)) << address;
    }
}

TEST_F(UnitRulesTest, PatternHoldsForTheWholeValueOfItsRecord)
{
    rules.patterns["hu-serial"] = std::make_shared<re2::RE2>("HU[0-9]");

    EXPECT_EQ(rules.objection(record("hu-serial"), "HU7"), "");
    EXPECT_EQ(rules.objection(record("factory-serial"), "X"), "");
    for (const char* wrong : {"HU77", "xHU7", ""}) {
        EXPECT_THAT(rules.objection(record("hu-serial"), wrong), HasSubstr("HU[0-9]")) << wrong;
    }
}

TEST_F(UnitRulesTest, NoDeviceHasAMulticastAddress)
{
    for (const char digit : std::string("0123456789abcdefABCDEF")) {
        const std::string address = std::string("0") + digit + "1A7D000001";
        const bool odd = std::string("13579bdfBDF").find(digit) != std::string::npos;
        EXPECT_EQ(reservedAddress(record("carplay-mac"), address).empty(), !odd) << address;
    }
    EXPECT_EQ(reservedAddress(record("carplay-mac"), "10 00 00 00 00 01"), "");
    EXPECT_EQ(reservedAddress(record("carplay-mac"), "0F"), "");
    EXPECT_EQ(reservedAddress(record("carplay-mac"), "0F000000000G"), "");
}

TEST_F(UnitRulesTest, UnitStoresWhatItWasSent)
{
    struct Row {
        const char* record;
        std::string value;
        bool mangled;
    };
    const Row rows[] = {
        {"carplay-mac", "001A7D000001", false},
        {"carplay-mac", "00:1A:7D:00:00:01", true},
        {"carplay-mac", "001A7D00000", true},
        {"carplay-mac", "001A7D00000G", true},
        {"carplay-mac", "001A7D0000011", true},
        {"hu-serial", "HU7", false},
        {"hu-serial", "HU\n7", true},
        {"hu-serial", "HU\r7", true},
        {"hu-serial", "", false},
        {"drawing-code", "D\n1", false},
        {"bluetooth-address", "0G1A7D00000", true},
    };
    for (const auto& [name, value, isMangled] : rows) {
        EXPECT_EQ(!mangled(record(name), value).empty(), isMangled) << name << ' ' << value;
    }
}

TEST_F(UnitRulesTest, RegistryKeepsTextsAndSpellsOtherBytesInHexadecimal)
{
    struct Row {
        const char* record;
        std::string value;
        const char* text;
    };
    const Row rows[] = {
        {"carplay-mac", "00:1a-7d 000001", "001A7D000001"},
        {"carplay-mac", "00:1a", "00:1a"},
        {"hu-serial", "HU 7 ä€", "HU 7 ä€"},
        {"hu-serial", "", ""},
        {"hu-serial", "0a:1b", "0a:1b"},
        {"hu-serial", "\x80\x81", "hex:8081"},
        {"hu-serial", "a\x01", "hex:6101"},
        {"hu-serial", "€\x7F", "hex:E282AC7F"},
        {"hu-serial", "hex:61", "hex:6865783A3631"},
    };
    for (const auto& [name, value, text] : rows) {
        EXPECT_EQ(registryText(record(name), value), text);
    }
}

}  // namespace
}  // namespace station::identity
