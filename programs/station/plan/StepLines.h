#pragma once

#include <string>
#include <string_view>

#include "programs/station/plan/RunSummary.h"
#include "station/plan/Observer.h"

/// How runs are written in lines for people.
namespace programs::station_tool {

/// @returns the verdict in its colour, padded to the longest one.
std::string verdictText(station::record::Verdict verdict, bool colour);

/// The lines of one unit's steps, one after the other: why steps are skipped is said at the first of them.
class StepLines
{
public:
    /// @param label the port, or empty
    StepLines(std::string label, bool colour) : label_(std::move(label)), colour_(colour) {}

    /// @returns "PASS     Tuner / tuner.frequency (1.2 ms)", with the reason in a second line where there is one; no
    /// line end. Everything in it is printable.
    std::string ended(const station::plan::StepPlace& place, const station::record::Step& step);

    /// The same of a step that ended before and has turned out otherwise.
    std::string amended(const station::plan::StepPlace& place, const station::record::Step& step) const;

private:
    std::string headOf(const station::plan::StepPlace& place, const station::record::Step& step) const;

    const std::string label_;
    const bool colour_;
    std::string skippedFor_;
};

/// @returns "Tuner / tuner.frequency", "Tuner, round 2 / tuner.frequency"; printable.
std::string placeText(const station::plan::StepPlace& place, std::string_view step);

/// @returns the run's summary, several lines with their ends.
std::string summary(const UnitResult& unit, bool colour);

}  // namespace programs::station_tool
