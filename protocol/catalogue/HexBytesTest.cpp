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

TEST(HexBytes, HaveAllDigitsInEitherCase)
{
    EXPECT_THAT(parseHexBytes("0X01 23456789 abcdef ABCDEF"),
                Optional(ElementsAre(0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0xAB, 0xCD, 0xEF)));
}

TEST(HexBytes, OfAnEmptyTextAreNone)
{
    EXPECT_THAT(parseHexBytes(""), Optional(IsEmpty()));
    EXPECT_THAT(parseHexBytes(" :\n"), Optional(IsEmpty()));
}

TEST(HexBytes, AreRefusedWhereADigitIsMissingOrNoneOrTheirNumberOdd)
{
    for (const char* text : {"G", "0x", "001", "00 1A7", "00 -1", "00|1A", "1 0x", "0x0x1", "caf\xC3\xA9", "0/", "0:/",
                             "0@", "0`", "0g", "00G0", "00:00000"}) {
        EXPECT_EQ(parseHexBytes(text), std::nullopt) << text;
    }
}

TEST(HexBytes, AreWrittenWithBlanksBetween)
{
    EXPECT_EQ(formatHexBytes(std::vector<std::uint8_t>{0x00, 0x1A, 0xFF}), "00 1A FF");
    EXPECT_EQ(formatHexBytes({}), "");
}

TEST(HexByte, IsReadWithAndWithoutPrefixInEitherCase)
{
    EXPECT_EQ(parseHexByte("0F"), 0x0F);
    EXPECT_EQ(parseHexByte("0x0f"), 0x0F);
    EXPECT_EQ(parseHexByte("0XfF"), 0xFF);
    EXPECT_EQ(parseHexByte("7"), 0x07);
    EXPECT_EQ(parseHexByte("00"), 0x00);
}

class NoHexByte : public testing::TestWithParam<const char*>
{
};

TEST_P(NoHexByte, IsRefused)
{
    EXPECT_EQ(parseHexByte(GetParam()), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(HexBytes, NoHexByte,
                         testing::Values("", "0x", "100", "0x001", "G", "1G", "-1", "+1", " 1", "1 ", "0x0x1", "x1"));

TEST(HexFrame, WithoutParametersHasEmptyBrackets)
{
    EXPECT_EQ(formatFrame({0x0F, 0x01, {}}), "0F 01 []");
}

TEST(HexFrame, WithOneParameterPutsItInBrackets)
{
    EXPECT_EQ(formatFrame({0x8F, 0x00, {0x01}}), "8F 00 [01]");
}

TEST(HexFrame, WithMoreParametersSeparatesThemByBlanks)
{
    EXPECT_EQ(formatFrame({0x86, 0x11, {0x25, 0x04, 0xAB}}), "86 11 [25 04 AB]");
}

}  // namespace
}  // namespace protocol::catalogue
