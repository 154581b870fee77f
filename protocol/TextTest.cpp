#include "protocol/Text.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace protocol
