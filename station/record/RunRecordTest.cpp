#include "station/record/RunRecord.h"

#include <gtest/gtest.h>

#include <vector>

namespace station::record {
namespace {

TEST(RunRecord, EveryVerdictHasItsWord)
{
    EXPECT_STREQ(name(Verdict::kPass), "PASS");
    EXPECT_STREQ(name(Verdict::kFail), "FAIL");
    EXPECT_STREQ(name(Verdict::kError), "ERROR");
    EXPECT_STREQ(name(Verdict::kTimeout), "TIMEOUT");
    EXPECT_STREQ(name(Verdict::kAborted), "ABORTED");
    EXPECT_STREQ(name(Verdict::kSkipped), "SKIPPED");
}

TEST(RunRecord, TheWorseOfTwoVerdictsHoldsInEitherOrder)
{
    const std::vector worstFirst{Verdict::kAborted, Verdict::kError, Verdict::kTimeout,
                                 Verdict::kFail,    Verdict::kPass,  Verdict::kSkipped};
    for (std::size_t i = 0; i < worstFirst.size(); ++i) {
        for (std::size_t j = i; j < worstFirst.size(); ++j) {
            EXPECT_EQ(worse(worstFirst[i], worstFirst[j]), worstFirst[i]);
            EXPECT_EQ(worse(worstFirst[j], worstFirst[i]), worstFirst[i]);
        }
    }
}

}  // namespace
}  // namespace station::record
