#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

/// The only place that computes verdicts, and the first lines of a report, from the facts of a run.
namespace station::record {

/// @returns whether something went wrong: neither PASS nor SKIPPED.
constexpr bool isBad(Verdict verdict)
{
    return verdict != Verdict::kPass && verdict != Verdict::kSkipped;
}

/// The worst of the attempts that were not superseded.
Verdict verdictOf(const Step& step);
/// @returns the reason for the verdict; empty for PASS.
std::string reasonOf(const Step& step);

Verdict verdictOf(const Group::Try& one);
/// The worst of the tries that were not superseded.
Verdict verdictOf(const Group& group);

/// @returns the number of a kept try among all tries of its group, from 0.
std::size_t numberOf(const Group& group, std::size_t index);

/// @returns how many tries the group has, those that were left out included.
std::size_t triesOf(const Group& group);

/// The figures of a group have the duration of each attempt as a measurement of this name.
inline constexpr const char* kTimeOfAttempt = "time";

/// Adds a try to the figures of its group.
/// @param again whether it was made because the try before it failed
void add(Rounds& rounds, const Group::Try& one, bool again);

/// @returns all tries of the group in figures.
Rounds roundsOf(const Group& group);

Verdict verdictOf(const Phase& phase);
/// @returns why it ended early; empty if it did not.
std::string reasonOf(const Phase& phase);

/// @returns the faults of a line: "1 loss, 1 reconnect, 3 corrupt frames"; "clean" if it had none.
std::string lineText(const LineQuality& line);

/// The first lines of every report.
struct Headline {
    Verdict verdict = Verdict::kSkipped;
    /// Why; empty for PASS.
    std::string reason;
    /// Further findings, trouble in the teardown, and when the line was lost and came back.
    std::vector<std::string> beside;
};

/// Setup, main part and findings decide. A run that did nothing of its main part is SKIPPED. Trouble in the teardown
/// is listed beside the verdict; it turns only PASS into ERROR.
Headline headlineOf(const Run& run);

/// @returns the verdict alone.
Verdict verdictOf(const Run& run);

/// A step and its place. Points into the run.
struct PlacedStep {
    const Phase* phase = nullptr;
    const Group* group = nullptr;
    const Step* step = nullptr;
    /// The place of its try in the list of the group.
    std::size_t groupTry = 0;
    Verdict verdict = Verdict::kSkipped;

    /// @returns whether it contributes to the verdict of its group.
    bool counts() const { return !group->tries[groupTry].superseded; }
};

struct Outcome {
    /// Every kept step, in order.
    std::vector<PlacedStep> steps;
    /// Kept steps that count and went wrong.
    std::vector<PlacedStep> failed;
    /// Kept steps that passed only after another attempt or another try of their group.
    std::vector<PlacedStep> repeated;
    /// All steps that count, those that were left out included.
    Tally tally;
    std::size_t total = 0;
    /// How many of them went wrong, and how many passed only when repeated.
    std::size_t wrong = 0;
    std::size_t passedWhenRepeated = 0;
};

Outcome outcomeOf(const Run& run);

/// @returns the failures, those together that a step has for the same reason in tries of its group that follow each
/// other.
std::vector<std::vector<PlacedStep>> equalFailures(const Outcome& outcome);

/// @returns how many steps have the verdict.
std::size_t count(const Tally& tally, Verdict verdict);

/// @returns one sentence about the run: "2 of 34 steps went wrong, 5 were not run."
std::string summaryOf(const Run& run, const Outcome& outcome);

/// @returns the duration of the run; 0 if it did not end.
std::chrono::nanoseconds durationOf(const Run& run);

/// @returns the duration of all attempts of a step.
std::chrono::nanoseconds durationOf(const Step& step);

/// A line event in words, or a gap where events were left out.
struct EventLine {
    const TraceEvent* event = nullptr;  ///< nullptr for a gap
    std::string bytes;                  ///< as people read them, `8F 00 [01]`; empty for an event without a frame
    std::string meaning;                ///< printable
};

/// @returns the events of a range.
/// @param groups put the frames into words
std::vector<EventLine> linesOf(const Events& events, EventRange range, protocol::catalogue::Groups groups);

}  // namespace station::record
