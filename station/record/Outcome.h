#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "station/record/RunRecord.h"

/// What of a run a reader wants to see first.
namespace station::record {

/// @returns whether something went wrong: neither PASS nor SKIPPED.
constexpr bool isBad(Verdict verdict)
{
    return verdict != Verdict::kPass && verdict != Verdict::kSkipped;
}

/// A step with where it stands. Points into the run.
struct PlacedStep {
    const Phase* phase = nullptr;
    const Group* group = nullptr;
    const Step* step = nullptr;
    /// Counted from 0.
    std::size_t groupTry = 0;

    /// @returns whether the group was not tried again after it.
    bool last() const { return groupTry + 1 == group->tries.size(); }
};

struct Outcome {
    /// Every step of every try, in order.
    std::vector<PlacedStep> steps;
    /// Those of a group's last try that went wrong.
    std::vector<PlacedStep> failed;
    /// Steps that passed, but not at the first attempt or not in the group's first try.
    std::vector<PlacedStep> repeated;
    /// Steps of the last tries, by verdict.
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

}  // namespace station::record
