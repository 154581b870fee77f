#include "station/plan/Variables.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "protocol/Errors.h"

namespace station::plan {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(Variables, StandInTextsAsOftenAsTheyLike)
{
    const Variables variables{{"a", "1"}, {"b-2", ""}};

    EXPECT_EQ(substitute("${a}-${b-2}-${a}", variables), "1--1");
    EXPECT_EQ(substitute("none", variables), "none");
    EXPECT_THAT(variablesIn("${a}-${b-2}"), ElementsAre("a", "b-2"));
}

TEST(Variables, BracketThatIsNotClosedIsText)
{
    EXPECT_EQ(substitute("[0-9]${a", {}), "[0-9]${a");
    EXPECT_THAT(variablesIn("a$ {b} $"), IsEmpty());
}

TEST(Variables, NamesAreLettersDigitsHyphensAndUnderscores)
{
    for (const char* name : {"a", "azAZ09-_", "-", "0"}) {
        EXPECT_TRUE(isVariableName(name)) << name;
    }
    for (const char* name : {"", "a b", "a.", "a/", "a:", "a@", "a[", "a`", "a{", "ä", "a$"}) {
        EXPECT_FALSE(isVariableName(name)) << name;
    }
}

TEST(Variables, StandBetweenOtherTexts)
{
    EXPECT_EQ(substitute("x${a}yz${a}", {{"a", "1"}}), "x1yz1");
    EXPECT_THAT(variablesIn("x${}y${a}"), ElementsAre("", "a"));
    EXPECT_EQ(substitute("}${a}}", {{"a", "1"}}), "}1}");
}

TEST(Variables, ValueIsNotLookedThroughAgain)
{
    EXPECT_EQ(substitute("${a}", {{"a", "${a}"}}), "${a}");
}

TEST(Variables, UnknownOneIsNamed)
{
    try {
        substitute("${serial}", {});
        FAIL() << "it was taken";
    } catch (const protocol::UserError& error) {
        EXPECT_STREQ(error.what(), "nothing has been stored as 'serial' in this run");
    }
}

}  // namespace
}  // namespace station::plan
