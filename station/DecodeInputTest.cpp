#include "station/DecodeInput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/Errors.h"
#include "protocol/catalogue/HexBytes.h"

namespace station {
namespace {

using Words = std::vector<std::string>;

/// @returns the pieces in one line: "?" for garbage, "…" for an incomplete frame, "!" for a wrong checksum.
std::string textOf(const std::vector<ScannedPiece>& pieces)
{
    using Kind = ScannedPiece::Kind;
    std::string text;
    for (const ScannedPiece& piece : pieces) {
        text += text.empty() ? "" : ", ";
        text += piece.kind == Kind::kGarbage      ? "?"
                : piece.kind == Kind::kIncomplete ? "…"
                                                  : protocol::catalogue::formatFrame(piece.frame);
        text += piece.kind == Kind::kCorrupt ? "!" : "";
    }
    return text;
}

struct Accepted {
    const char* name;
    Words words;
    const char* pieces;
};

class HexArguments : public testing::TestWithParam<Accepted>
{
};

TEST_P(HexArguments, AreReadWhole)
{
    EXPECT_EQ(textOf(readHexArguments(GetParam().words)), GetParam().pieces);
}

INSTANTIATE_TEST_SUITE_P(
    DecodeInput, HexArguments,
    testing::Values(Accepted{"Bytes", {"2A", "A2", "00", "02", "02", "01", "FF", "FB"}, "02 01 []"},
                    Accepted{"BytesThenContent",
                             {"11", "2A", "A2", "00", "02", "02", "01", "FF", "FB", "82 01 [24 FE]"},
                             "?, 02 01 [], 82 01 [24 FE]"},
                    Accepted{"ContentThenBytes", {"8F 00 [01]", "2A A2 00 02 02 01 FF FB"}, "8F 00 [01], 02 01 []"},
                    Accepted{"BytesBetweenContents",
                             {"8F 00 [01]", "2A A2 00 02", "0201FFFB", "82 01 [24 FE]"},
                             "8F 00 [01], 02 01 [], 82 01 [24 FE]"},
                    Accepted{"TwoContents", {"82 01 [24 FE]", "8F 00 [01]"}, "82 01 [24 FE], 8F 00 [01]"},
                    Accepted{"TwoContentsInOneArgument", {"82 01 [24 FE] 8F 00 [01]"}, "82 01 [24 FE], 8F 00 [01]"},
                    Accepted{"ContentsWithoutQuotes",
                             {"11", "82", "01", "[24", "FE]", "82", "01", "[24", "FE]"},
                             "?, 82 01 [24 FE], 82 01 [24 FE]"},
                    Accepted{
                        "LinesInOneArgument", {"2AA200020201FFFB # asked\n82 01 [24 FE]\n"}, "02 01 [], 82 01 [24 FE]"},
                    Accepted{"WrongChecksumAndACutEnd", {"2AA20004820124FEFE58", "2A A2 00 04"}, "82 01 [24 FE]!, …"}),
    [](const auto& row) { return row.param.name; });

std::string refusalOf(const std::function<void()>& read)
{
    try {
        read();
    } catch (const protocol::UserError& error) {
        return error.what();
    }
    return "(accepted)";
}

struct Refused {
    const char* name;
    Words words;
    const char* got;
};

class NoHexArguments : public testing::TestWithParam<Refused>
{
};

TEST_P(NoHexArguments, AreRefusedWithTheWord)
{
    EXPECT_THAT(refusalOf([] { readHexArguments(GetParam().words); }),
                testing::AllOf(testing::StartsWith("expected "), testing::EndsWith(GetParam().got)));
}

INSTANTIATE_TEST_SUITE_P(
    DecodeInput, NoHexArguments,
    testing::Values(Refused{"BracketsThatDoNotClose", {"8F 00 [01"}, "got '8F 00 [01'"},
                    Refused{"BracketsThatNeverClose", {"8F", "00", "[01", "02"}, "got '8F 00 [01 02'"},
                    Refused{"BracketsWithoutCodes", {"[01] "}, "got '[01] '"},
                    Refused{
                        "OneCodeOnly",
                        {"82 [24 FE]"},
                        "expected two codes and at most 252 bytes in brackets, as in '8F 00 [01]', got '82 [24 FE]'"},
                    Refused{"TooManyBytesBeforeTheBracket", {"11 8F 00 [01]"}, "got '11 8F 00 [01]'"},
                    Refused{"BytesBehindTheBracket", {"8F 00 [01] 02"}, "got '8F 00 [01] 02'"},
                    Refused{"NoBytesBetweenContents",
                            {"8F 00 [01]", "xy", "8F 00 [01]"},
                            "expected bytes in hexadecimal, as in '2A A2 00 02 0F 01 FF EE', got 'xy'"},
                    Refused{"LongLineIsCut", {std::string(41, 'x')}, "x…'"}),
    [](const auto& row) { return row.param.name; });

TEST(HexText, HandsOutWhatIsWholeAndHoldsBackWhatMayGoOn)
{
    HexText text;

    text.add("11 2A A2 00 02 02  # asked");
    EXPECT_EQ(textOf(text.take()), "");
    text.add("01 FF FB 2A");
    EXPECT_EQ(textOf(text.take()), "?, 02 01 []");
    text.add("82 01 [24 FE] 8F 00 [01]");
    EXPECT_EQ(textOf(text.take()), "…, 82 01 [24 FE], 8F 00 [01]");
    text.add("2A");
    text.end();
    EXPECT_EQ(textOf(text.take()), "…");
}

}  // namespace
}  // namespace station
