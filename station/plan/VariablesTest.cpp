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
