#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "station/Interrupt.h"
#include "station/record/RunIndex.h"

/// Numbers over many runs; docs/results.md defines them.
namespace station::record {

/// The yield of a plan. A unit is a serial number; runs without one count for no unit.
struct PlanYield {
    std::string plan;
    /// Runs that count: those that ended PASS, FAIL, ERROR or TIMEOUT.
    std::size_t runs = 0;
    std::size_t passed = 0;
    /// Of the runs that count, those without a serial number.
    std::size_t withoutSerial = 0;
    /// Units whose first run is among them, and how many of these first runs passed.
    std::size_t units = 0;
    std::size_t firstPassed = 0;
    /// Runs that are not the first of their unit.
    std::size_t retests = 0;

    /// @returns a share from 0 to 1; not a number without units, or without runs that have a serial number.
    double firstPassYield() const;
    double retestRate() const;

    void add(const PlanYield& other);
};

/// Runs that went wrong in the same step first.
struct CommonFailure {
    std::string plan;
    /// Both are empty if the run did not fail in a step.
    std::string group;
    std::string step;
    std::size_t runs = 0;
    /// Of all runs that went wrong: the share of these, and of these and those before them in the list.
    double share = 0;
    double cumulative = 0;
};

/// The numbers of a measurement in all runs with the same limits.
struct MeasurementFigures {
    std::string plan;
    MeasurementKey key;
    Series series;
    Capability capability;
};

struct RunStatistics {
    /// The most measurements; further ones are left out.
    static constexpr std::size_t kMost = 10'000;

    /// By name.
    std::vector<PlanYield> plans;
    /// Runs that do not count, by verdict or "RUNNING".
    std::map<std::string, std::size_t> notCounted;
    /// The most frequent first.
    std::vector<CommonFailure> failures;
    /// In the order in which they first came.
    std::vector<MeasurementFigures> measurements;
    /// Whether measurements are left out.
    bool cut = false;
    /// A line for each record that cannot be read.
    std::vector<std::string> broken;

    /// @returns all plans together.
    PlanYield total() const;
};

/// Computes the statistics of the runs that match. Which run of a unit is its first, all runs of the directory decide.
/// Throws protocol::StorageError, and Interrupted.
/// @param interrupt may be nullptr
RunStatistics statisticsOf(RunIndex& index, const RunFilter& filter, const Interrupt* interrupt);

}  // namespace station::record
