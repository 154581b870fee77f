#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>

#include "protocol/Errors.h"
#include "station/plan/Runner.h"
#include "station/plan/Surroundings.h"

/// The result of a run for the user of `plan run`: its lines, its speed and its exit status.
namespace station::plan {

/// The run of one unit, and its record.
struct UnitResult {
    RunResult result;
    /// The folder of the record; empty for none.
    std::string folder;
    /// "not recorded: REASON", "a report is missing: REASON; the record itself is complete"; empty if everything was
    /// written.
    std::string recordError;
};

using record::Tally;

/// @returns "22 passed, 1 failed, 1 skipped".
std::string format(const Tally& tally);

/// Takes the place of PASS if the results could not be written.
inline constexpr const char* kNotRecordedText = "NOT RECORDED";

/// @returns the name of the run's verdict, or kNotRecordedText.
std::string headlineText(const UnitResult& unit);

/// The exit status of one unit. The first that holds: interrupted, port unavailable, link failed, results not written;
/// then by the verdict: failed, no answer, error, nothing run, passed.
protocol::ExitStatus exitStatusOf(const UnitResult& unit);

/// The exit status of several units: the worst, in the same order.
protocol::ExitStatus exitStatusOf(std::span<const UnitResult> units);

/// @returns the verdict in its colour, padded to the longest one.
std::string verdictText(record::Verdict verdict, bool colour);

/// The lines of one unit's steps, in order. Of steps that are skipped for one reason, only the first names it.
class StepLines
{
public:
    /// @param label the port, or empty
    StepLines(std::string label, bool colour) : label_(std::move(label)), colour_(colour) {}

    /// @returns "PASS     Tuner / tuner.frequency (1.2 ms)", with the reason in a second line if there is one; no
    /// line end. The text is printable.
    std::string ended(const StepPlace& place, const record::Step& step);

    /// The same for a step that has ended and got another verdict later.
    std::string amended(const StepPlace& place, const record::Step& step) const;

private:
    std::string headOf(const StepPlace& place, const record::Step& step) const;

    const std::string label_;
    const bool colour_;
    std::string skippedFor_;
};

/// @returns "Tuner / tuner.frequency", "Tuner, round 2 / tuner.frequency"; printable.
std::string placeText(const StepPlace& place, std::string_view step);

/// @returns the summary of the run: several lines, each with its end.
std::string summary(const UnitResult& unit, bool colour, bool verbose);

}  // namespace station::plan
