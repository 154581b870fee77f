#include "engineering/autotest/KYRAutoTest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> piecesOf(const std::string& text, const std::string& separator = ":")
{
    std::vector<std::string> pieces;
    splitString(pieces, text, separator);
    return pieces;
}

TEST(SplitString, BlanksBeforeAPieceAreLeftOut)
{
    EXPECT_THAT(piecesOf("a: b:c:"), ElementsAre("a", "b", "c"));
    EXPECT_THAT(piecesOf(" \t a:b"), ElementsAre("a", "b"));
}

TEST(SplitString, BlanksInAndBehindAPieceStay)
{
    EXPECT_THAT(piecesOf("a b :c"), ElementsAre("a b ", "c"));
}

TEST(SplitString, BlanksBeforeTheLastPieceStay)
{
    EXPECT_THAT(piecesOf("a: b"), ElementsAre("a", " b"));
    EXPECT_THAT(piecesOf("a: "), ElementsAre("a", " "));
}

TEST(SplitString, WithoutASeparatorTheTextIsOnePieceAsItIs)
{
    EXPECT_THAT(piecesOf("abc"), ElementsAre("abc"));
    EXPECT_THAT(piecesOf(" abc"), ElementsAre(" abc"));
}

TEST(SplitString, AnEmptyTextHasNoPieces)
{
    EXPECT_THAT(piecesOf(""), IsEmpty());
}

TEST(SplitString, EmptyPiecesCountButNotTheOneAtTheEnd)
{
    EXPECT_THAT(piecesOf(":"), ElementsAre(""));
    EXPECT_THAT(piecesOf("::a"), ElementsAre("", "", "a"));
    EXPECT_THAT(piecesOf("a::"), ElementsAre("a", ""));
    EXPECT_THAT(piecesOf("a: \t:b"), ElementsAre("a", "", "b"));
}

TEST(SplitString, ASeparatorMayBeLong)
{
    EXPECT_THAT(piecesOf("a--b-c--", "--"), ElementsAre("a", "b-c"));
}

TEST(SplitString, ABlankMayBeTheSeparator)
{
    EXPECT_THAT(piecesOf("a b", " "), ElementsAre("a", "b"));
}

TEST(SplitString, AnEmptySeparatorSeparatesNothing)
{
    EXPECT_THAT(piecesOf("a:b", ""), ElementsAre("a:b"));
}

TEST(SplitString, ThePiecesAreAppended)
{
    std::vector<std::string> pieces = {"first"};

    splitString(pieces, "a:b", ":");

    EXPECT_THAT(pieces, ElementsAre("first", "a", "b"));
}

}  // namespace
