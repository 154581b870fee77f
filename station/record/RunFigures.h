#pragma once

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "station/Interrupt.h"
#include "station/record/Statistics.h"

namespace station::record {

/// What is measured. A number with other limits is another measurement.
struct MeasurementKey {
    std::string phase;
    std::string group;
    /// The second step of its name in the group is "NAME (2)".
    std::string step;
    std::string name;
    std::string unit;
    /// Only numbers.
    Limits limits;

    bool operator==(const MeasurementKey&) const = default;
};

/// What a run contributes to the statistics of many.
struct RunFigures {
    /// The most measurements of a run; further ones are left out.
    static constexpr std::size_t kMost = 10'000;

    /// The group and the name of the first step that counts and went wrong; empty for none.
    std::string failedGroup;
    std::string failedStep;
    /// What was measured. Runs of the same plan may share it.
    std::shared_ptr<const std::vector<MeasurementKey>> keys = std::make_shared<std::vector<MeasurementKey>>();
    /// The numbers, one series for each of `keys`.
    std::vector<Series> series;
};

/// Reads a record of either schema, however long. Attempts and tries that another one replaces do not count; a number
/// that must be met exactly and has no unit is a code and not a measurement. Throws RecordError, and Interrupted.
/// @param interrupt may be nullptr
RunFigures readFigures(const std::filesystem::path& record, const Interrupt* interrupt);

/// A list of values as bytes, for the index.
class Packer
{
public:
    template <class Number>
    void number(Number value)
    {
        static_assert(std::is_arithmetic_v<Number>);
        bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
    void text(std::string_view value);

    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_;
};

/// Takes the values out again.
class Unpacker
{
public:
    /// The bytes are not those of such values.
    struct Mismatch {
    };

    explicit Unpacker(std::string_view bytes) : rest_(bytes) {}

    /// Throws Mismatch, as all of them do.
    template <class Number>
    Number number()
    {
        Number value;
        const std::string_view bytes = take(sizeof value);
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<char*>(&value));
        return value;
    }
    std::string text();
    std::string_view rest() { return take(rest_.size()); }

private:
    std::string_view take(std::size_t size);

    std::string_view rest_;
};

std::string pack(const std::vector<MeasurementKey>& keys);
std::vector<MeasurementKey> unpackKeys(std::string_view bytes);

/// @returns the figures without their keys.
std::string packSeries(const RunFigures& figures);
RunFigures unpackSeries(std::string_view bytes, std::shared_ptr<const std::vector<MeasurementKey>> keys);

}  // namespace station::record
