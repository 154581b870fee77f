#include "station/record/ValueText.h"

#include <gtest/gtest.h>

#include <string>

namespace station::record {
namespace {

TEST(RecordText, LimitsReadAsADemand)
{
    EXPECT_EQ(toText(Limits{.minimum = 87.5, .maximum = 108.0}, "MHz"), "87.5 to 108 MHz");
    EXPECT_EQ(toText(Limits{.minimum = 3.0}, "V"), "at least 3 V");
    EXPECT_EQ(toText(Limits{.maximum = 3.0}, ""), "at most 3");
    EXPECT_EQ(toText(Limits{.equals = 8750.0}, "10 kHz"), "8750 × 10 kHz");
    EXPECT_EQ(toText(Limits{.equals = std::string("up")}, "MHz"), "\"up\"");
    EXPECT_EQ(toText(Limits{.equals = true}, ""), "yes");
    EXPECT_EQ(toText(Limits{.matches = "KYR.*"}, ""), "a text that matches /KYR.*/");
    EXPECT_EQ(toText(Limits{}, "MHz"), "");
}

TEST(RecordText, AMissSaysByHowMuchAndOnWhichSide)
{
    EXPECT_EQ(miss({"f", 9.9, "MHz", {.minimum = 87.5, .maximum = 108.0}, false}), "77.6 MHz below the minimum");
    EXPECT_EQ(miss({"f", 108.3, "MHz", {.minimum = 87.5, .maximum = 108.0}, false}), "0.3 MHz above the maximum");
    EXPECT_EQ(miss({"f", 87.5, "MHz", {.minimum = 87.5, .maximum = 108.0}, true}), "");
    EXPECT_EQ(miss({"name", std::string("x"), "", {.equals = std::string("y")}, false}), "");
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
