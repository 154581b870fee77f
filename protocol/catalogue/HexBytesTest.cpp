#include "protocol/catalogue/HexBytes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace protocol::catalogue {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

TEST(HexBytes, AreReadInEveryWayInWhichPeopleWriteThem)
{
    for (const char* text :
         {"00 1A 7D", "00:1A:7D", "0x00,0x1A,0x7d", "001A7D", "  0 1a 7D\n", "001A\t7D", "0x001A7D", "00;1A;7D"}) {
        EXPECT_THAT(parseHexBytes(text), Optional(ElementsAre(0x00, 0x1A, 0x7D))) << text;
    }
}

TEST(HexBytes, OfAnEmptyTextAreNone)
{
    EXPECT_THAT(parseHexBytes(""), Optional(IsEmpty()));
    EXPECT_THAT(parseHexBytes(" :\n"), Optional(IsEmpty()));
}

TEST(HexBytes, AreRefusedWhereADigitIsMissingOrNoneOrTheirNumberOdd)
{
    for (const char* text : {"G", "0x", "001", "00 1A7", "00 -1", "00|1A", "1 0x", "0x0x1", "caf\xC3\xA9"}) {
        EXPECT_EQ(parseHexBytes(text), std::nullopt) << text;
    }
}

TEST(HexBytes, AreWrittenWithBlanksBetween)
{
    EXPECT_EQ(formatHexBytes(std::vector<std::uint8_t>{0x00, 0x1A, 0xFF}), "00 1A FF");
    EXPECT_EQ(formatHexBytes({}), "");
}

}  // namespace
}  // namespace protocol::catalogue
