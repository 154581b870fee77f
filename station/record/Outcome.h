#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

/// What the facts of a run amount to: the one place that computes verdicts, and what a reader wants to see first.
namespace station::record {

/// @returns whether something went wrong: neither PASS nor SKIPPED.
constexpr bool isBad(Verdict verdict)
{
    return verdict != Verdict::kPass && verdict != Verdict::kSkipped;
}

/// Of its attempts those count that were not superseded; the worst decides.
Verdict verdictOf(const Step& step);
/// @returns why it has its verdict; empty for PASS.
std::string reasonOf(const Step& step);

Verdict verdictOf(const Group::Try& one);
/// Of its tries those count that were not superseded; the worst decides.
Verdict verdictOf(const Group& group);

Verdict verdictOf(const Phase& phase);
/// @returns why it ended early; empty when it did not.
std::string reasonOf(const Phase& phase);

/// @returns what was wrong with a line: "1 loss, 1 reconnect, 3 corrupt frames"; "clean" for nothing.
std::string lineText(const LineQuality& line);

/// What is said of a run in its first lines.
struct Headline {
    Verdict verdict = Verdict::kSkipped;
    /// Why; empty for PASS.
    std::string reason;
    /// What stands beside it: further findings, trouble in the teardown, when the line was lost and came back.
    std::vector<std::string> beside;
};

/// Setup, main part and findings decide. A run of whose main part nothing was done is SKIPPED. Trouble in the teardown
/// stands beside the verdict, and turns only PASS into ERROR.
Headline headlineOf(const Run& run);

/// @returns the verdict alone.
Verdict verdictOf(const Run& run);

/// A step with where it stands. Points into the run.
struct PlacedStep {
    const Phase* phase = nullptr;
    const Group* group = nullptr;
    const Step* step = nullptr;
    /// Counted from 0.
    std::size_t groupTry = 0;
    Verdict verdict = Verdict::kSkipped;

    /// @returns whether the group's verdict rests on it.
    bool counts() const { return !group->tries[groupTry].superseded; }
};

struct Outcome {
    /// Every step of every try, in order.
    std::vector<PlacedStep> steps;
    /// Those that count and went wrong.
    std::vector<PlacedStep> failed;
    /// Steps that passed after an attempt, or a try of their group, that had not.
    std::vector<PlacedStep> repeated;
    /// Steps that count, by verdict.
    std::size_t passed = 0;
    std::size_t skipped = 0;
    std::size_t total = 0;
};

Outcome outcomeOf(const Run& run);

/// @returns one sentence on the whole: "2 of 34 steps went wrong, 5 were not run."
std::string summaryOf(const Run& run, const Outcome& outcome);

/// @returns how long the run took; 0 when it did not end.
std::chrono::nanoseconds durationOf(const Run& run);

/// @returns how long all attempts of a step took.
std::chrono::nanoseconds durationOf(const Step& step);

/// A line event in words, or a gap where events were left out.
struct EventLine {
    const TraceEvent* event = nullptr;  ///< nullptr for a gap
    std::string bytes;                  ///< as people read them, `8F 00 [01]`; empty for an event without a frame
    std::string meaning;                ///< printable
};

/// @returns what passed on the line within a range.
/// @param groups what the frames are put into words with
std::vector<EventLine> linesOf(const Events& events, EventRange range, protocol::catalogue::Groups groups);

}  // namespace station::record
