#include "station/plan/RunSummary.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "protocol/Text.h"
#include "station/record/Outcome.h"
#include "station/record/Reports.h"
#include "station/record/ResultsFolder.h"
#include "station/record/ValueText.h"

namespace station::plan {

using protocol::ExitStatus;
using protocol::printable;
using record::Verdict;
using enum protocol::ExitStatus;

namespace {

/// The worst first.
constexpr std::array kOrder{kInterrupted, kPortUnavailable, kLineFailed, kNotRecorded, kFailed,
                            kNoAnswer,    kError,           kNothingRun, kPassed};

std::string reasonLine(const std::string& reason)
{
    return reason.empty() ? "" : fmt::format("\n        {}", printable(reason));
}

/// @returns whether the step has sent something, and that was all there was to do.
bool onlySent(const record::Step& step)
{
    if (step.kind != "send" || step.attempts.size() != 1) {
        return false;
    }
    const record::Attempt& only = step.attempts.front();
    return only.verdict == Verdict::kPass && only.measurements.empty() && only.events.end - only.events.begin <= 1;
}

}  // namespace

std::string format(const Tally& tally)
{
    std::vector<std::string> parts;
    for (const Verdict verdict : record::kVerdicts) {
        if (const auto found = tally.find(verdict); found != tally.end()) {
            parts.push_back(fmt::format("{} {}", found->second, record::wordsOf(verdict).counted));
        }
    }
    return fmt::format("{}", fmt::join(parts, ", "));
}

std::string headlineText(const UnitResult& unit)
{
    const Verdict verdict = verdictOf(unit.result.run);
    return verdict == Verdict::kPass && !unit.recordError.empty() ? kNotRecordedText : record::name(verdict);
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

std::string verdictText(Verdict verdict, bool colour)
{
    constexpr std::size_t kLongest = 7;
    const std::size_t length = std::string_view(record::name(verdict)).size();
    return record::coloured(verdict, colour) + std::string(kLongest - length, ' ');
}

std::string placeText(const StepPlace& place, std::string_view step)
{
    return fmt::format("{}{} / {}", printable(place.group),
                       place.round > 1 ? fmt::format(", round {}", place.round) : "", printable(step));
}

std::string StepLines::headOf(const StepPlace& place, const record::Step& step) const
{
    return fmt::format("{}{} {}", label_.empty() ? "" : fmt::format("[{}] ", printable(label_)),
                       verdictText(verdictOf(step), colour_), placeText(place, step.name));
}

std::string StepLines::ended(const StepPlace& place, const record::Step& step)
{
    std::string line = headOf(place, step);
    if (onlySent(step)) {
        line += " (sent; no reply is due)";
    } else if (!step.attempts.empty()) {
        line += fmt::format(" ({}{})", record::toText(durationOf(step)),
                            step.attempts.size() > 1 ? fmt::format(", {} attempts", step.attempts.size()) : "");
    }
    const std::string before = std::exchange(skippedFor_, verdictOf(step) == Verdict::kSkipped ? reasonOf(step) : "");
    return skippedFor_.empty() || skippedFor_ != before ? line + reasonLine(reasonOf(step)) : line;
}

std::string StepLines::amended(const StepPlace& place, const record::Step& step) const
{
    return fmt::format("{} (verdict changed later){}", headOf(place, step), reasonLine(reasonOf(step)));
}

std::string summary(const UnitResult& unit, bool colour, bool verbose)
{
    const auto& run = unit.result.run;
    const Speed& speed = unit.result.speed;
    const std::string counts = format(record::outcomeOf(run).tally);
    const auto headline = record::headlineOf(run);
    const bool recorded = headlineText(unit) != kNotRecordedText;
    const std::string verdict =
        recorded ? verdictText(headline.verdict, colour)
        : colour ? fmt::format("{}{}\033[0m", record::wordsOf(Verdict::kError).colour, kNotRecordedText)
                 : kNotRecordedText;
    std::string text = fmt::format("{} {} at {}{}{}{}\n", verdict, run.plan.name, printable(run.unit.port),
                                   run.unit.serial.empty() ? "" : ", unit " + printable(run.unit.serial),
                                   counts.empty() ? "" : ": ", counts);
    const auto add = [&text](const std::string& line) { text += fmt::format("        {}\n", line); };
    if (!headline.reason.empty()) {
        add(printable(headline.reason) + unit.result.remedy);
    }
    for (const std::string& each : headline.beside) {
        add(printable(each));
    }
    if (!(run.line == LineQuality{})) {
        add("line: " + record::lineText(run.line));
    }
    std::string time = "time " + record::toText(speed.total);
    if (verbose && speed.wire.count() > 0) {
        time += fmt::format(", on the line {} ({:.1f} times that)", record::toText(speed.wire),
                            static_cast<double>(speed.total.count()) / static_cast<double>(speed.wire.count()));
    }
    if (verbose && speed.steps > 0) {
        time += fmt::format(", added per step {:.3f} ms (median of {})",
                            std::chrono::duration<double, std::milli>(speed.addedPerStep).count(), speed.steps);
    }
    add(time);
    if (!unit.folder.empty()) {
        add((unit.folder.ends_with(record::kRunningSuffix) ? "incomplete record in " : "record in ") +
            printable(unit.folder));
    }
    return text;
}

}  // namespace station::plan
