#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "station/record/RunRecord.h"

/// The statistics of a measurement in many runs; docs/results.md has the formulas.
namespace station::record {

/// How many numbers are near each other, however many there are. All bins have one width, a power of two, and begin at
/// multiples of it. The width doubles while more than kMost bins hold numbers, so the result depends neither on the
/// order of the numbers nor on the parts that were joined.
class Histogram
{
public:
    static constexpr std::size_t kMost = 64;

    struct Bin {
        double from = 0;
        double to = 0;
        std::uint64_t count = 0;
    };

    /// @param number finite
    void add(double number);
    void add(const Histogram& other);

    /// @returns the bins that hold numbers, ascending: none is narrower than `width`.
    std::vector<Bin> bins(double width = 0) const;

    // As it is stored: the width is 2^exponent; each bin has its place in widths, ascending.
    using Bins = std::vector<std::pair<std::int64_t, std::uint64_t>>;
    int exponent() const { return exponent_; }
    const Bins& stored() const { return bins_; }
    static Histogram restored(int exponent, Bins bins);

    bool operator==(const Histogram&) const = default;

private:
    void widenTo(int exponent);
    void count(std::int64_t place, std::uint64_t number);
    void limit();

    int exponent_ = 0;
    Bins bins_;
};

/// The numbers of a measurement in the order in which they came, however many.
struct Series {
    Statistic numbers;
    /// How many of them were out of limits.
    std::size_t missed = 0;
    double first = 0;
    double last = 0;
    /// The sum of the differences between neighbours, and their number.
    double moved = 0;
    std::size_t moves = 0;
    Histogram histogram;

    void add(double number, bool passed);

    /// Adds the numbers of a later part.
    /// @param neighbours whether its first number follows the last one of this: without other limits in between
    void append(const Series& later, bool neighbours);

    bool operator==(const Series&) const = default;
};

/// @returns the standard deviation within: the mean difference between neighbours / 1.128 (d2 of two numbers); nothing
/// without neighbours.
std::optional<double> sigmaWithin(const Series& series);

/// @returns the standard deviation overall: that of the sample; nothing for fewer than two numbers.
std::optional<double> sigmaOverall(const Statistic& numbers);

/// How well the numbers keep their limits. Each value is missing if it is not defined: without spread, without limits.
struct Capability {
    std::optional<double> cp;   ///< width of the limits / 6 sigma within
    std::optional<double> cpk;  ///< distance of the mean from the nearer limit / 3 sigma within
    std::optional<double> pp;   ///< as cp, with sigma overall
    std::optional<double> ppk;  ///< as cpk, with sigma overall
};

/// @param limits of which minimum and maximum count
Capability capabilityOf(const Series& series, const Limits& limits);

}  // namespace station::record
