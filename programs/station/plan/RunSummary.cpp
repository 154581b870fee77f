#include "programs/station/plan/RunSummary.h"

#include <algorithm>
#include <array>
#include <utility>

#include "station/record/Outcome.h"

namespace programs::station_tool {

using station::record::Verdict;

namespace {

/// The worst first.
constexpr std::array kOrder{kInterrupted, kPortUnavailable, kLineFailed, kNotRecorded, kFailed,
                            kNoAnswer,    kError,           kNothingRun, kPassed};

}  // namespace

Tally tally(const station::record::Run& run)
{
    Tally counts;
    for (const auto& placed : station::record::outcomeOf(run).steps) {
        if (placed.counts()) {
            ++counts[placed.verdict];
        }
    }
    return counts;
}

std::string format(const Tally& tally)
{
    constexpr auto kWords = std::to_array<std::pair<Verdict, const char*>>({
        {Verdict::kPass, "passed"},
        {Verdict::kFail, "failed"},
        {Verdict::kError, "in error"},
        {Verdict::kTimeout, "timed out"},
        {Verdict::kAborted, "aborted"},
        {Verdict::kSkipped, "skipped"},
    });
    std::string text;
    for (const auto& [verdict, word] : kWords) {
        if (const auto found = tally.find(verdict); found != tally.end()) {
            text += (text.empty() ? "" : ", ") + std::to_string(found->second) + " " + word;
        }
    }
    return text;
}

std::string headlineText(const UnitResult& unit)
{
    const Verdict verdict = verdictOf(unit.result.run);
    return verdict == Verdict::kPass && !unit.recordError.empty() ? kNotRecordedText : station::record::name(verdict);
}

ExitStatus exitStatusOf(const UnitResult& unit)
{
    const Verdict verdict = verdictOf(unit.result.run);
    if (verdict == Verdict::kAborted) {
        return kInterrupted;
    }
    if (unit.result.portUnavailable) {
        return kPortUnavailable;
    }
    if (unit.result.linkFailed) {
        return kLineFailed;
    }
    if (!unit.recordError.empty()) {
        return kNotRecorded;
    }
    switch (verdict) {
        case Verdict::kPass:
            return kPassed;
        case Verdict::kSkipped:
            return kNothingRun;
        case Verdict::kTimeout:
            return kNoAnswer;
        case Verdict::kFail:
            return kFailed;
        default:
            return kError;
    }
}

ExitStatus exitStatusOf(std::span<const UnitResult> units)
{
    std::size_t worst = kOrder.size() - 1;
    for (const UnitResult& unit : units) {
        worst = std::min<std::size_t>(worst, std::ranges::find(kOrder, exitStatusOf(unit)) - kOrder.begin());
    }
    return kOrder[worst];
}

}  // namespace programs::station_tool
