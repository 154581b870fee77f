#include "station/ClockText.h"

#include <gtest/gtest.h>

namespace station {
namespace {

using namespace std::chrono_literals;
using TimePoint = std::chrono::system_clock::time_point;

constexpr TimePoint kNoon{1795262400'000042999ns};

TEST(ClockText, IsoHasAsManyDigitsOfTheSecondAsAreAskedFor)
{
    EXPECT_EQ(isoUtc(kNoon, 6), "2026-11-21T12:00:00.000042Z");
    EXPECT_EQ(isoUtc(kNoon, 9), "2026-11-21T12:00:00.000042999Z");
    EXPECT_EQ(isoUtc(TimePoint{}, 3), "1970-01-01T00:00:00.000Z");
}

TEST(ClockText, MomentBeforeTheEpochIsPastTheSecondBefore)
{
    EXPECT_EQ(isoUtc(TimePoint{-1ns}, 9), "1969-12-31T23:59:59.999999999Z");
}

TEST(ClockText, FormatsInUtcAndInTheMachinesZone)
{
    ASSERT_EQ(setenv("TZ", "UTC-3", 1), 0);
    tzset();

    EXPECT_EQ(formatUtc(kNoon, "%H:%M"), "12:00");
    EXPECT_EQ(formatLocal(kNoon, "%H:%M"), "15:00");
}

}  // namespace
}  // namespace station
