#include "station/record/ValueText.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace station::record {
namespace {

using namespace std::chrono_literals;

TEST(RecordText, NumbersHaveNoExponentWhereTheyAreReadableWithout)
{
    EXPECT_EQ(toText(9470.0), "9470");
    EXPECT_EQ(toText(100000.0), "100000");
    EXPECT_EQ(toText(94.7), "94.7");
    EXPECT_EQ(toText(-0.001), "-0.001");
    EXPECT_EQ(toText(4294967295.0), "4294967295");
    EXPECT_EQ(toText(1e300), "1e+300");
    EXPECT_EQ(toText(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(RecordText, LimitsReadAsADemand)
{
    EXPECT_EQ(toText(Limits{.minimum = 87.5, .maximum = 108.0}, "MHz"), "87.5 to 108 MHz");
    EXPECT_EQ(toText(Limits{.minimum = 3.0}, "V"), "at least 3 V");
    EXPECT_EQ(toText(Limits{.maximum = 3.0}, ""), "at most 3");
    EXPECT_EQ(toText(Limits{.equals = 8750.0}, "10 kHz"), "exactly 8750 × 10 kHz");
    EXPECT_EQ(toText(Limits{.equals = std::string("up")}, "MHz"), "exactly \"up\"");
    EXPECT_EQ(toText(Limits{.equals = true}, ""), "exactly yes");
    EXPECT_EQ(toText(Limits{.matches = "KYR.*"}, ""), "whole text matching /KYR.*/");
    EXPECT_EQ(toText(Limits{}, "MHz"), "");
}

TEST(RecordText, AMissSaysByHowMuchAndOnWhichSide)
{
    EXPECT_EQ(miss({"f", 9.9, "MHz", {.minimum = 87.5, .maximum = 108.0}, false}), "77.6 MHz below the minimum");
    EXPECT_EQ(miss({"f", 108.3, "MHz", {.minimum = 87.5, .maximum = 108.0}, false}), "0.3 MHz above the maximum");
    EXPECT_EQ(miss({"f", 87.5, "MHz", {.minimum = 87.5, .maximum = 108.0}, true}), "");
    EXPECT_EQ(miss({"name", std::string("x"), "", {.equals = std::string("y")}, false}), "");
}

TEST(RecordText, DurationsHaveAUnitThatFits)
{
    EXPECT_EQ(toText(4200us), "4.2 ms");
    EXPECT_EQ(toText(123ms), "123 ms");
    EXPECT_EQ(toText(9100ms), "9.10 s");
    EXPECT_EQ(toText(200s), "3 min 20 s");
    EXPECT_EQ(toText(59999ms), "1 min 0 s");
    EXPECT_EQ(toText(2h + 5min), "2 h 5 min");
}

TEST(RecordText, TimesAreUtc)
{
    const std::chrono::system_clock::time_point time{std::chrono::nanoseconds(1795269908123456789)};
    EXPECT_EQ(toText(time), "2026-11-21 14:05:08 UTC");
    EXPECT_EQ(isoText(time), "2026-11-21T14:05:08.123456789Z");
    EXPECT_EQ(toText(std::chrono::system_clock::time_point{}), "not known");
}

}  // namespace
}  // namespace station::record
