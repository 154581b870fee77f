#include "station/identity/ValueRange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/Errors.h"
#include "protocol/catalogue/Catalogue.h"

namespace station::identity {
namespace {

const std::vector<Record>& all()
{
    static const std::vector<Record> kAll = records(protocol::catalogue::groups());
    return kAll;
}

TEST(ValueRange, OfATextHasItsNumbersInTheirWidth)
{
    const ValueRange range = parseRange(all(), "factory-serial=SN{008..110}-X");

    EXPECT_EQ(range.record->name, "factory-serial");
    EXPECT_EQ(range.first, 8U);
    EXPECT_EQ(range.last, 110U);
    EXPECT_EQ(range.value(9), "SN009-X");
    EXPECT_EQ(range.value(110), "SN110-X");
}

TEST(ValueRange, OfATextContainsItsValuesOnly)
{
    const ValueRange range = parseRange(all(), "factory-serial=SN{008..110}-X");
    std::uint64_t number = 0;

    EXPECT_TRUE(range.contains("SN008-X", number));
    EXPECT_EQ(number, 8U);
    EXPECT_TRUE(range.contains("SN110-X", number));
    EXPECT_EQ(number, 110U);
    for (const char* other : {"SN007-X", "SN111-X", "SN08-X", "SN0008-X", "TN008-X", "SN008-Y", "SN00A-X", "SN 08-X",
                              "SN-08-X", "SN008", "008-X", ""}) {
        EXPECT_FALSE(range.contains(other, number)) << other;
    }
}

TEST(ValueRange, MayHaveOneValueAndUpTo18Digits)
{
    EXPECT_EQ(parseRange(all(), "hu-serial={7..7}").last, 7U);
    EXPECT_EQ(parseRange(all(), "hu-serial={000000000000000000..999999999999999999}").last, 999999999999999999U);
    EXPECT_THROW(parseRange(all(), "hu-serial={0000000000000000000..0000000000000000001}"), protocol::UserError);
}

TEST(ValueRange, HasOnlyValuesThatAUnitCanSendBack)
{
    EXPECT_THROW(parseRange(all(), "hu-serial=ä{1..2}"), protocol::UserError);
    EXPECT_THROW(parseRange(all(), "hu-serial={1..x}"), protocol::UserError);
    EXPECT_THROW(parseRange(all(), "hu-serial={x..1}"), protocol::UserError);
    EXPECT_THROW(parseRange(all(), "hu-serial={..}"), protocol::UserError);
    EXPECT_THROW(parseRange(all(), "carplay-mac={000000000001..000000000002}"), protocol::UserError);
}

TEST(MacBlock, IsTheAddressesThatBeginWithItsBits)
{
    struct Row {
        const char* text;
        const char* first;
        const char* last;
    };
    const Row rows[] = {
        {"carplay-mac=00:1a:7d:00:00:00/24", "001A7D000000", "001A7DFFFFFF"},
        {"bluetooth-address=001A7D00000C/46", "001A7D00000C", "001A7D00000F"},
        {"carplay-mac=001A7D000001/48", "001A7D000001", "001A7D000001"},
        {"carplay-mac=020000000000/8", "020000000000", "02FFFFFFFFFF"},
    };
    for (const auto& [text, first, last] : rows) {
        const ValueRange block = parseMacBlock(all(), text);
        std::uint64_t number = 0;

        EXPECT_EQ(block.value(block.first), first);
        EXPECT_EQ(block.value(block.last), last);
        EXPECT_TRUE(block.contains(first, number));
        EXPECT_EQ(number, block.first);
        EXPECT_TRUE(block.contains(last, number));
        EXPECT_FALSE(block.contains("FE1A7D000000", number));
    }
}

TEST(MacBlock, ThatIsNoneIsRefused)
{
    for (const char* text : {"carplay-mac=001A7D000000/49", "carplay-mac=020000000000/7", "carplay-mac=001A7D000001/47",
                             "carplay-mac=010000000000/8", "carplay-mac=001A7D000000/", "carplay-mac=001A7D000000/24x",
                             "carplay-mac=001A7D00000/24", "hu-serial=001A7D000000/24", "001A7D000000/24"}) {
        EXPECT_THROW(parseMacBlock(all(), text), protocol::UserError) << text;
    }
}

}  // namespace
}  // namespace station::identity
