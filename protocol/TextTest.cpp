#include "protocol/Text.h"

#include <gtest/gtest.h>

#include <array>
#include <nlohmann/json.hpp>
#include <string>

namespace protocol {
namespace {

TEST(Printable, TextThatShowsItselfStaysAsItIs)
{
    EXPECT_EQ(printable("87.5 MHz – dBµV, <b> 😀"), "87.5 MHz – dBµV, <b> 😀");
}

TEST(Printable, ControlCharactersBecomeTheirPictures)
{
    EXPECT_EQ(printable(std::string("a\0b\x1b[31m\r\n\x7f", 11)), "a␀b␛[31m␍␊␡");
}

TEST(Printable, WhatIsNotUtf8IsReplacedByteByByte)
{
    EXPECT_EQ(printable("\xff\xfeZ\xc3("), "\uFFFD\uFFFDZ\uFFFD(");
    // Cut short, overlong, a surrogate, beyond Unicode.
    EXPECT_EQ(printable("\xe2\x82"), "\uFFFD\uFFFD");
    EXPECT_EQ(printable("\xc0\xaf"), "\uFFFD\uFFFD");
    EXPECT_EQ(printable("\xe0\x80\xaf"), "\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(printable("\xed\xa0\x80"), "\uFFFD\uFFFD\uFFFD");
    EXPECT_EQ(printable("\xf4\x90\x80\x80"), "\uFFFD\uFFFD\uFFFD\uFFFD");
}

TEST(Printable, WhatXmlForbidsOrTurnsTheTextIsReplaced)
{
    EXPECT_EQ(printable("\uFFFF|\u202E|\u2028|\u0085|\u009B"), "\uFFFD|\uFFFD|\uFFFD|\uFFFD|\uFFFD");
}

TEST(Printable, JsonKeepsItsMeaningAndHasNothingThatATerminalObeys)
{
    const nlohmann::json value{{"a", "\u009B31m\u202E\u061C\u200F\x7F\x1B\nü😀\U0001FFFE"}};

    const std::string text = printableJson(value.dump(1));

    EXPECT_EQ(text, "{\n \"a\": \"\\u009b31m\\u202e\\u061c\\u200f\\u007f\\u001b\\nü😀\\ud83f\\udffe\"\n}");
    EXPECT_EQ(nlohmann::json::parse(text), value);
}

TEST(Table, ColumnsAreAlignedByCharactersAndWithoutColours)
{
    EXPECT_EQ(table({{"PLAN", "TOOK", "WHY"}, {"smoke", "\x1b[31m4 µs\x1b[0m", ""}, {"ä", "12.5 s", "late"}}),
              "PLAN   TOOK    WHY\n"
              "smoke  \x1b[31m4 µs\x1b[0m\n"
              "ä      12.5 s  late\n");
}

TEST(Table, NoRowsAreNoLines)
{
    EXPECT_EQ(table({}), "");
}

constexpr std::array<std::string_view, 4> kWords{"frequency", "volume", "up", "down"};

TEST(Suggest, NamesTheWordWithAMistypedCharacter)
{
    EXPECT_EQ(nearest("frequenzy", kWords), "frequency");
    EXPECT_EQ(nearest("volum", kWords), "volume");
    EXPECT_EQ(nearest("dwon", kWords), "down");
    EXPECT_EQ(nearest("VOLUME", kWords), "volume");
}

TEST(Suggest, NamesTheWordOfWhichOnlyTheBeginningWasWritten)
{
    EXPECT_EQ(nearest("freq", kWords), "frequency");
}

TEST(Suggest, NamesNothingForAWordUnlikeAll)
{
    EXPECT_EQ(nearest("balance", kWords), "");
    EXPECT_EQ(nearest("", kWords), "");
    EXPECT_EQ(nearest("xy", kWords), "");
    EXPECT_EQ(nearest(std::string(100000, 'f'), kWords), "");
}

}  // namespace
}  // namespace protocol
