#include "protocol/Text.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
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

TEST(Printable, ReplacesUnsafeCharactersOnly)
{
    struct Row {
        const char32_t first;
        const char32_t last;
    };
    // Each range is unsafe; the characters beside it are safe.
    const Row rows[] = {{0x80, 0x9F},     {0x061C, 0x061C}, {0x200E, 0x200F},   {0x2028, 0x202E},
                        {0x2066, 0x2069}, {0xFDD0, 0xFDEF}, {0x1FFFE, 0x1FFFF}, {0x10FFFE, 0x10FFFF}};
    const auto utf8 = [](char32_t character) {
        std::string text(6, '\0');
        text.resize(static_cast<std::size_t>(g_unichar_to_utf8(character, text.data())));
        return text;
    };
    for (const auto& [first, last] : rows) {
        const std::string before = first == 0x80 ? "~" : utf8(first - 1);
        const std::string after = last == 0x10FFFF ? "" : utf8(last + 1);
        EXPECT_EQ(printable(before + after), before + after);
        for (char32_t each = first; each <= last; ++each) {
            EXPECT_EQ(printable(utf8(each)), "\uFFFD") << std::hex << static_cast<unsigned>(each);
        }
    }
    EXPECT_EQ(printable("\x1f "), "␟ ");
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

TEST(Plural, HasAnSUnlessItIsOne)
{
    EXPECT_EQ(plural(0, "step"), "0 steps");
    EXPECT_EQ(plural(1, "step"), "1 step");
    EXPECT_EQ(plural(2, "step"), "2 steps");
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
    EXPECT_EQ(nearest("fr", kWords), "frequency");
    EXPECT_EQ(nearest("f", kWords), "");
    EXPECT_EQ(nearest("fractuxy", std::array<std::string_view, 1>{"fractured-together"}), "");
}

TEST(Suggest, PrefersAWordWithAnotherEndingToALongerOne)
{
    EXPECT_EQ(nearest("retry", std::array<std::string_view, 2>{"retry_delay", "retries"}), "retries");
    EXPECT_EQ(nearest("retry", std::array<std::string_view, 1>{"retry_delay"}), "retry_delay");
}

TEST(Suggest, NamesNothingForAWordUnlikeAll)
{
    EXPECT_EQ(nearest("balance", kWords), "");
    EXPECT_EQ(nearest("", kWords), "");
    EXPECT_EQ(nearest("xy", kWords), "");
    EXPECT_EQ(nearest("x", std::array<std::string_view, 1>{"y"}), "");
    EXPECT_EQ(nearest(std::string(100000, 'f'), kWords), "");
}

TEST(Suggest, AllowsAThirdOfTheCharactersToBeWrong)
{
    struct Row {
        std::string_view typed;
        std::string_view meant;
    };
    const Row rows[] = {{"dxwn", "down"},
                        {"dxxn", ""},
                        {"volxxe", "volume"},
                        {"voxxxe", ""},
                        {"frxquxnxy", "frequency"},
                        {"frxqxxnxy", ""},
                        {"ovlume", "volume"},
                        {"volumex", "volume"},
                        {"odwn", "down"},
                        {"donw", "down"},
                        {"DWON", "down"},
                        {"vloumex", "volume"},
                        {"uo", "up"},
                        {"frequecnyy", "frequency"}};
    for (const auto& [typed, meant] : rows) {
        EXPECT_EQ(nearest(typed, kWords), meant) << typed;
    }
}

TEST(Suggest, NamesTheNearestWordAndOfTwoTheFirst)
{
    constexpr std::array<std::string_view, 4> kAlike{"stop-group", "stop-groups", "cat", "hat"};

    EXPECT_EQ(nearest("stop-grops", kAlike), "stop-groups");
    EXPECT_EQ(nearest("bat", kAlike), "cat");
}

TEST(Suggest, LooksAtNoMoreThan64Characters)
{
    const std::string longest(64, 'f');
    const std::string tooLong(65, 'f');
    const std::array<std::string_view, 2> words{longest, tooLong};

    EXPECT_EQ(nearest(longest, words), longest);
    EXPECT_EQ(nearest(tooLong, words), "");
}

TEST(Unreadable, TellsAMissingFileFromAllOtherReasons)
{
    EXPECT_EQ(unreadable(ENOENT), "no such file");
    EXPECT_EQ(unreadable(EISDIR), "cannot be read: Is a directory");
}

TEST(Suggest, EndsAComplaintWithTheWordIfThereIsOne)
{
    EXPECT_EQ(didYouMean("dwon", kWords), "; did you mean 'down'?");
    EXPECT_EQ(didYouMean("balance", kWords), "");
}

}  // namespace
}  // namespace protocol
