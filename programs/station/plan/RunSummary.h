#pragma once

#include <map>
#include <span>
#include <string>

#include "programs/station/Tool.h"
#include "station/plan/Runner.h"

namespace programs::station_tool {

/// What became of one unit.
struct UnitResult {
    station::plan::RunResult result;
    /// Where the record is; empty for none.
    std::string folder;
    /// "not recorded: REASON", "a report is missing: REASON; the record itself is complete"; empty when all was
    /// written.
    std::string recordError;
};

/// How many steps have which verdict, in all rounds of their groups; tries that were made again do not count.
using Tally = std::map<station::record::Verdict, std::size_t>;
Tally tally(const station::record::Run& run);

/// @returns "22 passed, 1 failed, 1 skipped".
std::string format(const Tally& tally);

/// Stands where PASS would stand when the results could not be written.
inline constexpr const char* kNotRecordedText = "NOT RECORDED";

/// @returns the run's verdict as people are told it: its name, or kNotRecordedText.
std::string headlineText(const UnitResult& unit);

/// The exit status of one unit. The first that holds: interrupted, port unavailable, link failed, results not written;
/// then by the verdict: failed, no answer, error, nothing run, passed.
ExitStatus exitStatusOf(const UnitResult& unit);

/// The exit status of several units: the worst, in the order of the line above.
ExitStatus exitStatusOf(std::span<const UnitResult> units);

}  // namespace programs::station_tool
