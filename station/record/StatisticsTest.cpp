#include "station/record/Statistics.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <vector>

namespace station::record {
namespace {

using testing::DoubleEq;
using testing::DoubleNear;
using testing::Optional;

Series seriesOf(const std::vector<double>& numbers)
{
    Series series;
    for (const double each : numbers) {
        series.add(each, true);
    }
    return series;
}

Limits between(std::optional<double> minimum, std::optional<double> maximum)
{
    return {.minimum = minimum, .maximum = maximum};
}

/// NIST/SEMATECH e-Handbook of Statistical Methods, 6.3.2.2 "Individuals Control Charts": ten flow rates, whose mean is
/// 50.81, whose mean moving range is 1.8778 and whose control limits are 45.8159 and 55.8041.
const std::vector<double> kFlowRates{49.6, 47.6, 49.9, 51.3, 47.8, 51.2, 52.6, 52.4, 53.6, 52.1};

TEST(CapabilityTest, SigmaWithinIsThatOfThePublishedFlowRates)
{
    const Series series = seriesOf(kFlowRates);

    EXPECT_NEAR(series.numbers.mean, 50.81, 1e-9);
    EXPECT_NEAR(series.moved / static_cast<double>(series.moves), 1.8778, 5e-5);
    // The handbook's limits are the mean ± 3 sigma.
    EXPECT_NEAR(series.numbers.mean + 3 * *sigmaWithin(series), 55.8041, 5e-5);
    EXPECT_NEAR(series.numbers.mean - 3 * *sigmaWithin(series), 45.8159, 5e-5);
}

TEST(CapabilityTest, LimitsAtThreeSigmaWithinGiveOne)
{
    const Capability capability = capabilityOf(seriesOf(kFlowRates), between(45.8159, 55.8041));

    EXPECT_THAT(capability.cp, Optional(DoubleNear(1, 1e-4)));
    EXPECT_THAT(capability.cpk, Optional(DoubleNear(1, 1e-4)));
}

TEST(CapabilityTest, IndicesAreThoseOfThePublishedProcess)
{
    // NIST/SEMATECH e-Handbook, 6.1.6 "What is Process Capability?": limits 8 and 20, mean 16, standard deviation 2:
    // Cp 1.0, Cpk 0.6667.
    Series series;
    series.numbers = {101, 10, 16, 22, 400};
    series.moved = 2 * 1.128 * 100;
    series.moves = 100;

    const Capability capability = capabilityOf(series, between(8, 20));

    EXPECT_THAT(capability.cp, Optional(DoubleNear(1.0, 1e-12)));
    EXPECT_THAT(capability.cpk, Optional(DoubleNear(0.6667, 5e-5)));
    EXPECT_THAT(capability.pp, Optional(DoubleNear(1.0, 1e-12)));
    EXPECT_THAT(capability.ppk, Optional(DoubleNear(0.6667, 5e-5)));
}

/// NIST StRD, data set NumAcc4: 10000000.2, then 500 times 10000000.1 and 10000000.3; mean 10000000.2, sigma 0.1.
TEST(CapabilityTest, SigmaOverallIsThatOfTheCertifiedData)
{
    std::vector<double> numbers{10000000.2};
    for (int i = 0; i < 500; ++i) {
        numbers.insert(numbers.end(), {10000000.1, 10000000.3});
    }

    const Series series = seriesOf(numbers);

    EXPECT_NEAR(series.numbers.mean, 10000000.2, 1e-8);
    EXPECT_THAT(sigmaOverall(series.numbers), Optional(DoubleNear(0.1, 1e-8)));
}

TEST(CapabilityTest, OneLimitGivesTheDistanceFromItAlone)
{
    const Capability upper = capabilityOf(seriesOf(kFlowRates), between({}, 55.8041));
    const Capability lower = capabilityOf(seriesOf(kFlowRates), between(45.8159, {}));

    EXPECT_EQ(upper.cp, std::nullopt);
    EXPECT_EQ(upper.pp, std::nullopt);
    EXPECT_THAT(upper.cpk, Optional(DoubleNear(1, 1e-4)));
    EXPECT_THAT(lower.cpk, Optional(DoubleNear(1, 1e-4)));
    EXPECT_NE(lower.ppk, std::nullopt);
}

TEST(CapabilityTest, AMeanOutOfLimitsIsNegative)
{
    EXPECT_LT(capabilityOf(seriesOf(kFlowRates), between(60, 70)).cpk, 0.0);
}

TEST(CapabilityTest, WithoutSpreadOrLimitsThereIsNone)
{
    for (const Series& series : {Series(), seriesOf({5}), seriesOf({5, 5, 5})}) {
        const Capability capability = capabilityOf(series, between(0, 10));
        EXPECT_EQ(capability.cp, std::nullopt);
        EXPECT_EQ(capability.cpk, std::nullopt);
        EXPECT_EQ(capability.pp, std::nullopt);
        EXPECT_EQ(capability.ppk, std::nullopt);
    }
    EXPECT_EQ(capabilityOf(seriesOf(kFlowRates), {}).cpk, std::nullopt);
    EXPECT_EQ(sigmaOverall({}), std::nullopt);
}

TEST(SeriesTest, JoinedPartsAreTheWhole)
{
    std::mt19937 random(3);
    std::normal_distribution<double> level(-5, 1000);
    std::vector<double> numbers(5000);
    for (double& each : numbers) {
        each = level(random);
    }
    const Series whole = seriesOf(numbers);

    Series joined;
    for (std::size_t at = 0; at < numbers.size(); at += 37) {
        const auto first = numbers.begin() + static_cast<std::ptrdiff_t>(at);
        joined.append(
            seriesOf({first, numbers.begin() + static_cast<std::ptrdiff_t>(std::min(at + 37, numbers.size()))}), true);
    }

    EXPECT_EQ(joined.histogram, whole.histogram);
    EXPECT_EQ(joined.numbers.count, whole.numbers.count);
    EXPECT_EQ(joined.numbers.minimum, whole.numbers.minimum);
    EXPECT_EQ(joined.numbers.maximum, whole.numbers.maximum);
    EXPECT_NEAR(joined.numbers.mean, whole.numbers.mean, 1e-9);
    EXPECT_NEAR(*sigmaOverall(joined.numbers), *sigmaOverall(whole.numbers), 1e-9);
    EXPECT_NEAR(*sigmaWithin(joined), *sigmaWithin(whole), 1e-9);
}

TEST(SeriesTest, PartsThatAreNoNeighboursAddNoDifference)
{
    Series series = seriesOf({1, 2});
    series.append(seriesOf({100, 101}), false);

    EXPECT_THAT(series.moved, DoubleEq(2));
    EXPECT_EQ(series.moves, 2U);
}

std::uint64_t sumOfBins(const Histogram& histogram)
{
    std::uint64_t sum = 0;
    for (const Histogram::Bin& each : histogram.bins()) {
        sum += each.count;
    }
    return sum;
}

TEST(HistogramTest, HoldsEveryNumberInItsBinHoweverManyAndFar)
{
    Histogram histogram;
    const std::vector<double> extremes{0, -0.0, 5e-324, -5e-324, 1.7e308, -1.7e308, 1, -1, 1e-300};
    for (const double each : extremes) {
        histogram.add(each);
    }
    for (int i = 0; i < 1'000'000; ++i) {
        histogram.add(i);
    }

    EXPECT_EQ(sumOfBins(histogram), extremes.size() + 1'000'000);
    EXPECT_LE(histogram.bins().size(), Histogram::kMost);
}

TEST(HistogramTest, FewNumbersStayApartAndAnOutlierSpoilsNothing)
{
    Histogram histogram;
    for (const double each : {50.0, 50.25, 50.25, 50.5, 65535.0}) {
        histogram.add(each);
    }

    const auto bins = histogram.bins();
    ASSERT_EQ(bins.size(), 4U);
    EXPECT_EQ(bins[1].count, 2U);
    EXPECT_LE(bins[1].from, 50.25);
    EXPECT_GT(bins[1].to, 50.25);
    EXPECT_EQ(histogram.bins(1).size(), 2U);
}

}  // namespace
}  // namespace station::record
