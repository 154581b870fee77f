#include "station/record/Outcome.h"

#include <string>

#include "station/record/Text.h"

namespace station::record {

Outcome outcomeOf(const Run& run)
{
    Outcome outcome;
    const auto add = [&outcome](const PlacedStep& placed) {
        outcome.steps.push_back(placed);
        if (!placed.last()) {
            return;
        }
        ++outcome.total;
        outcome.skipped += placed.step->verdict == Verdict::kSkipped ? 1 : 0;
        if (isBad(placed.step->verdict)) {
            outcome.failed.push_back(placed);
        }
        if (placed.step->verdict == Verdict::kPass) {
            ++outcome.passed;
            if (placed.groupTry > 0 || placed.step->attempts.size() > 1) {
                outcome.repeated.push_back(placed);
            }
        }
    };
    for (const Phase& phase : run.phases) {
        for (const Group& group : phase.groups) {
            for (std::size_t i = 0; i < group.tries.size(); ++i) {
                for (const Step& step : group.tries[i].steps) {
                    add({&phase, &group, &step, i});
                }
            }
        }
    }
    return outcome;
}

std::string summaryOf(const Run& run, const Outcome& outcome)
{
    const auto were = [](std::size_t number) { return std::to_string(number) + (number == 1 ? " was" : " were"); };
    std::string text;
    if (outcome.total == 0) {
        text = "No step was run";
    } else if (!outcome.failed.empty()) {
        text = std::to_string(outcome.failed.size()) + " of " + count(outcome.total, "step") + " went wrong";
    } else if (outcome.passed == outcome.total) {
        text = outcome.total == 1 ? "The step passed" : "All " + std::to_string(outcome.total) + " steps passed";
    } else {
        text = std::to_string(outcome.passed) + " of " + count(outcome.total, "step") + " passed";
    }
    if (outcome.total > 0 && outcome.skipped > 0) {
        text += ", " + were(outcome.skipped) + " not run";
    }
    if (!outcome.repeated.empty()) {
        text += ", " + std::to_string(outcome.repeated.size()) + " passed only when repeated";
    }
    text += '.';
    if (!run.reason.empty()) {
        text += ' ' + printable(run.reason);
    }
    return text;
}

std::chrono::nanoseconds durationOf(const Run& run)
{
    return run.ended < run.started ? std::chrono::nanoseconds(0)
                                   : std::chrono::duration_cast<std::chrono::nanoseconds>(run.ended - run.started);
}

std::chrono::nanoseconds durationOf(const Step& step)
{
    std::chrono::nanoseconds sum{0};
    for (const Attempt& attempt : step.attempts) {
        sum += attempt.duration;
    }
    return sum;
}

}  // namespace station::record
