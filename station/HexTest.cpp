#include "station/Hex.h"

#include <gtest/gtest.h>

namespace station {
namespace {

TEST(HexByte, IsReadWithAndWithoutPrefixInEitherCase)
{
    EXPECT_EQ(parseByte("0F"), 0x0F);
    EXPECT_EQ(parseByte("0x0f"), 0x0F);
    EXPECT_EQ(parseByte("0XfF"), 0xFF);
    EXPECT_EQ(parseByte("7"), 0x07);
    EXPECT_EQ(parseByte("00"), 0x00);
}

class NoHexByte : public testing::TestWithParam<const char*>
{
};

TEST_P(NoHexByte, IsRefused)
{
    EXPECT_EQ(parseByte(GetParam()), std::nullopt);
}

INSTANTIATE_TEST_SUITE_P(Text, NoHexByte,
                         testing::Values("", "0x", "100", "0x001", "G", "1G", "-1", "+1", " 1", "1 ", "0x0x1", "x1"));

TEST(HexFrame, WithoutParametersHasEmptyBrackets)
{
    EXPECT_EQ(format({0x0F, 0x01, {}}), "0F 01 []");
}

TEST(HexFrame, WithOneParameterPutsItInBrackets)
{
    EXPECT_EQ(format({0x8F, 0x00, {0x01}}), "8F 00 [01]");
}

TEST(HexFrame, WithMoreParametersSeparatesThemByBlanks)
{
    EXPECT_EQ(format({0x86, 0x11, {0x25, 0x04, 0xAB}}), "86 11 [25 04 AB]");
}

}  // namespace
}  // namespace station
