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

TraceEvent notice(std::uint8_t n)
{
    return {TraceEvent::Kind::kReceived, {}, {}, {0x86, 0x11, {n}}, {}};
}

TEST(Events, TheFirstAndTheLastThousandUnexpectedOnesAreKept)
{
    Events events;
    for (std::size_t i = 0; i < 5000; ++i) {
        events.add(notice(static_cast<std::uint8_t>(i % 251)));
    }

    EXPECT_EQ(events.next(), 5000U);
    EXPECT_EQ(events.kept().size(), 2000U);
    EXPECT_TRUE(events.kept().contains(999));
    EXPECT_FALSE(events.kept().contains(1000));
    EXPECT_FALSE(events.kept().contains(3999));
    EXPECT_TRUE(events.kept().contains(4000));
}

TEST(Events, ExpectedOnesAreKeptHoweverManyFollow)
{
    Events events;
    for (std::size_t i = 0; i < Events::kKept; ++i) {
        events.add(notice(1));
    }
    const std::size_t sent = events.add({TraceEvent::Kind::kSent, {}, {}, {0x02, 0x01, {}}, {}});
    const std::size_t reply = events.add({TraceEvent::Kind::kReceived, {}, {}, {0x82, 0x01, {}}, {}});
    events.claim(reply, events.kept().at(reply));
    for (std::size_t i = 0; i < 3 * Events::kKept; ++i) {
        events.add(notice(2));
    }

    EXPECT_TRUE(events.kept().contains(sent));
    EXPECT_TRUE(events.kept().contains(reply));
    EXPECT_EQ(events.kept().size(), 2 * Events::kKept + 2);
}

TEST(Events, DroppedOneComesBackWhenItIsClaimed)
{
    Events events;
    for (std::size_t i = 0; i < 3 * Events::kKept; ++i) {
        events.add(notice(3));
    }
    ASSERT_FALSE(events.kept().contains(1500));

    events.claim(1500, notice(7));

    EXPECT_EQ(events.kept().at(1500).frame.params.at(0), 7);
}

}  // namespace
}  // namespace station::record
