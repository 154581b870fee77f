#pragma once

#include <string>
#include <string_view>

#include "programs/station/plan/RunSummary.h"
#include "station/plan/Observer.h"

/// How runs are written in lines for people.
namespace programs::station_tool {

/// @returns the verdict in its colour, padded to the longest one.
std::string verdictText(station::record::Verdict verdict, bool colour);

/// @returns "Tuner / tuner.frequency", "Tuner, round 2 / tuner.frequency"; printable.
std::string placeText(const station::plan::StepPlace& place, std::string_view step);

/// @returns "PASS     Tuner / tuner.frequency (1.2 ms)", with the reason in a second line where there is one; no line
/// end. Everything in it is printable.
/// @param label the port, or empty
std::string stepLine(std::string_view label, const station::plan::StepPlace& place, const station::record::Step& step,
                     bool colour);

/// The same of a step that ended before and has turned out otherwise.
std::string amendedLine(std::string_view label, const station::plan::StepPlace& place,
                        const station::record::Step& step, bool colour);

/// @returns the run's summary, several lines with their ends.
std::string summary(const UnitResult& unit, bool colour);

}  // namespace programs::station_tool
