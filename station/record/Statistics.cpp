#include "station/record/Statistics.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace station::record {

namespace {

/// So that the place of every number is a whole number that a double holds.
constexpr int kDigits = std::numeric_limits<double>::digits - 1;

int finestFor(double number)
{
    return number == 0 ? std::numeric_limits<double>::min_exponent - 2 * kDigits : std::ilogb(number) - kDigits;
}

/// @returns floor(place / 2^levels).
std::int64_t wider(std::int64_t place, int levels)
{
    return place >> std::min(levels, 63);
}

/// Adds the numbers of another part (Chan, Golub, LeVeque).
void join(Statistic& to, const Statistic& part)
{
    if (to.count == 0 || part.count == 0) {
        to = to.count == 0 ? part : to;
        return;
    }
    const auto before = static_cast<double>(to.count);
    const auto added = static_cast<double>(part.count);
    const double difference = part.mean - to.mean;
    to.minimum = std::min(to.minimum, part.minimum);
    to.maximum = std::max(to.maximum, part.maximum);
    to.count += part.count;
    to.mean += difference * (added / (before + added));
    to.squares += part.squares + difference * difference * (before * added / (before + added));
}

std::optional<double> spread(std::optional<double> sigma, const Limits& limits)
{
    return sigma > 0.0 && limits.minimum && limits.maximum
               ? std::optional((*limits.maximum - *limits.minimum) / (6 * *sigma))
               : std::nullopt;
}

std::optional<double> centred(std::optional<double> sigma, double mean, const Limits& limits)
{
    if (!(sigma > 0.0) || (!limits.minimum && !limits.maximum)) {
        return std::nullopt;
    }
    constexpr double kFar = std::numeric_limits<double>::infinity();
    const double above = limits.minimum ? mean - *limits.minimum : kFar;
    const double below = limits.maximum ? *limits.maximum - mean : kFar;
    return std::min(above, below) / (3 * *sigma);
}

}  // namespace

Histogram Histogram::restored(int exponent, Bins bins)
{
    Histogram histogram;
    histogram.exponent_ = exponent;
    histogram.bins_ = std::move(bins);
    return histogram;
}

void Histogram::add(double number)
{
    const int finest = finestFor(number);
    if (bins_.empty()) {
        exponent_ = finest;
    }
    widenTo(finest);
    count(static_cast<std::int64_t>(std::floor(std::ldexp(number, -exponent_))), 1);
    limit();
}

void Histogram::add(const Histogram& other)
{
    if (bins_.empty()) {
        *this = other;
        return;
    }
    widenTo(other.exponent_);
    for (const auto& [place, number] : other.bins_) {
        count(wider(place, exponent_ - other.exponent_), number);
    }
    limit();
}

std::vector<Histogram::Bin> Histogram::bins(double width) const
{
    Histogram drawn = *this;
    if (width > 0 && std::isfinite(width) && !bins_.empty()) {
        drawn.widenTo(static_cast<int>(std::ceil(std::log2(width))));
    }
    std::vector<Bin> all;
    for (const auto& [place, number] : drawn.bins_) {
        all.push_back({std::ldexp(static_cast<double>(place), drawn.exponent_),
                       std::ldexp(static_cast<double>(place + 1), drawn.exponent_), number});
    }
    return all;
}

void Histogram::widenTo(int exponent)
{
    if (exponent <= exponent_) {
        return;
    }
    Bins merged;
    for (const auto& [place, number] : bins_) {
        const std::int64_t at = wider(place, exponent - exponent_);
        if (merged.empty() || merged.back().first != at) {
            merged.emplace_back(at, 0);
        }
        merged.back().second += number;
    }
    bins_ = std::move(merged);
    exponent_ = exponent;
}

void Histogram::count(std::int64_t place, std::uint64_t number)
{
    const auto found = std::ranges::lower_bound(bins_, place, {}, &Bins::value_type::first);
    if (found != bins_.end() && found->first == place) {
        found->second += number;
    } else {
        bins_.insert(found, {place, number});
    }
}

void Histogram::limit()
{
    while (bins_.size() > kMost) {
        widenTo(exponent_ + 1);
    }
}

void Series::add(double number, bool passed)
{
    if (numbers.count == 0) {
        first = number;
    } else {
        moved += std::abs(number - last);
        ++moves;
    }
    last = number;
    missed += passed ? 0 : 1;
    numbers.add(number);
    histogram.add(number);
}

void Series::append(const Series& later, bool neighbours)
{
    if (later.numbers.count == 0) {
        return;
    }
    if (numbers.count == 0) {
        first = later.first;
    } else if (neighbours) {
        moved += std::abs(later.first - last);
        ++moves;
    }
    last = later.last;
    missed += later.missed;
    moved += later.moved;
    moves += later.moves;
    join(numbers, later.numbers);
    histogram.add(later.histogram);
}

std::optional<double> sigmaWithin(const Series& series)
{
    constexpr double kD2 = 1.128;
    return series.moves < 1 ? std::nullopt : std::optional(series.moved / static_cast<double>(series.moves) / kD2);
}

std::optional<double> sigmaOverall(const Statistic& numbers)
{
    return numbers.count < 2 ? std::nullopt : std::optional(numbers.sigma());
}

Capability capabilityOf(const Series& series, const Limits& limits)
{
    const auto within = sigmaWithin(series);
    const auto overall = sigmaOverall(series.numbers);
    const double mean = series.numbers.mean;
    return {spread(within, limits), centred(within, mean, limits), spread(overall, limits),
            centred(overall, mean, limits)};
}

}  // namespace station::record
