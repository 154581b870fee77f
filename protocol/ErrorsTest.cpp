#include "protocol/Errors.h"

#include <gtest/gtest.h>

namespace protocol {
namespace {

// Scripts depend on these numbers. docs/station.md explains them.
TEST(ExitStatus, NumbersAreThoseOfTheDocument)
{
    EXPECT_EQ(kPassed, 0);
    EXPECT_EQ(kFailed, 1);
    EXPECT_EQ(kWrongUse, 2);
    EXPECT_EQ(kNoAnswer, 3);
    EXPECT_EQ(kInterrupted, 4);
    EXPECT_EQ(kNothingRun, 5);
    EXPECT_EQ(kError, 6);
    EXPECT_EQ(kNotRecorded, 7);
    EXPECT_EQ(kPortUnavailable, 10);
    EXPECT_EQ(kLineFailed, 11);
    EXPECT_EQ(kReadBackDiffers, 12);
}

TEST(Error, HasItsLineItsKindAndItsStatus)
{
    struct Row {
        Error error;
        std::string kind;
        int status;
    };
    const Row rows[] = {
        {UserError("line"), "user", 2},
        {UserError("line", kReadBackDiffers), "user", 12},
        {LineError("line", kPortUnavailable), "line", 10},
        {StorageError("line"), "storage", 1},
        {StorageError("line", kNotRecorded), "storage", 7},
    };
    for (const auto& [error, kind, status] : rows) {
        EXPECT_STREQ(error.what(), "line");
        EXPECT_EQ(error.kind(), kind);
        EXPECT_EQ(error.status(), status) << kind;
    }
}

}  // namespace
}  // namespace protocol
