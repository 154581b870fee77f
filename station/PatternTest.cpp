#include "station/Pattern.h"

#include <gmock/gmock.h>

#include <tuple>

namespace station {
namespace {

std::string problemOf(const std::string& pattern)
{
    try {
        checkPattern(pattern);
        return "";
    } catch (const PatternError& error) {
        return error.what();
    }
}

TEST(Pattern, MatchesTheWholeTextOnly)
{
    EXPECT_TRUE(matches("HU7", "HU[0-9]"));
    EXPECT_FALSE(matches("HU77", "HU[0-9]"));
    EXPECT_FALSE(matches("AHU7", "HU[0-9]"));
    EXPECT_FALSE(matches("HU7\n", "HU[0-9]"));
    EXPECT_TRUE(matches("", "(HU7)?"));
}

TEST(Pattern, NestedRepetitionsOfALongTextNeitherHangNorCrash)
{
    const std::string text(20'000, 'a');

    EXPECT_FALSE(matches(text, "(a+)+b"));
    EXPECT_TRUE(matches(text, "(.|x)*"));
    EXPECT_TRUE(matches(text, "(x+x+)*(a|aa|aaa)*"));
}

TEST(Pattern, OneCharacterIsOneDotWhateverItsBytes)
{
    EXPECT_TRUE(matches("Gr\xC3\xBCn", "Gr.n"));
    EXPECT_TRUE(matches("Gr\xC3\xBCn", "Grün"));
}

TEST(Pattern, TextThatIsNotUtf8IsTakenForLatin1)
{
    EXPECT_TRUE(matches("\xFF\xFF\xFF", ".{3}"));
    EXPECT_TRUE(matches("\xFF\xFF\xFF", "\\xFF+"));
    EXPECT_TRUE(matches("Gr\xFCn", "Grün"));
    EXPECT_FALSE(matches("\xFF\xFF\xFF", "[0-9A-Z]*"));
    EXPECT_TRUE(matches(std::string_view("\0\xFF", 2), "\\x00\\xFF"));
}

TEST(Pattern, LiteralMatchesItselfAlone)
{
    for (const std::string text : {"A+B", "(x", "Gr\xC3\xBCn", "\xFF.\xFE", "a/b\\c"}) {
        EXPECT_TRUE(matches(text, literalPattern(text))) << text;
    }
    EXPECT_FALSE(matches("AAB", literalPattern("A+B")));
}

using Row = std::tuple<const char*, const char*>;
class UnsoundPattern : public testing::TestWithParam<Row>
{
};

TEST_P(UnsoundPattern, IsNamed)
{
    EXPECT_EQ(problemOf(std::get<0>(GetParam())), std::get<1>(GetParam()));
    EXPECT_THROW(matches("a", std::get<0>(GetParam())), PatternError);
}

INSTANTIATE_TEST_SUITE_P(
    Pattern, UnsoundPattern,
    testing::Values(Row{"a(?=b)", "look-ahead '(?=' is not supported"},
                    Row{"a(?!b)", "look-ahead '(?!' is not supported"},
                    Row{"(?<=a)b", "look-behind '(?<' is not supported"},
                    Row{"(?<!a)b", "look-behind '(?<' is not supported"},
                    Row{"(a)\\1", "back-reference '\\1' is not supported"},
                    Row{"(a)\\k<1>", "back-reference '\\k' is not supported"},
                    Row{"\\u0041", "escape '\\u' is not supported"}, Row{"(?>a)", "group '(?>' is not supported"},
                    Row{"Head(", "expected a ')' for each '(', and '\\(' for the character itself"},
                    Row{"a{1001}", "expected at most 1000 repetitions in all, the smaller number first, got '{1001}'"},
                    Row{"((a{100}){100}){100}",
                        "expected at most 1000 repetitions in all, the smaller number first, got '{100}'"}));

}  // namespace
}  // namespace station
