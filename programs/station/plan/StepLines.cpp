#include "programs/station/plan/StepLines.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "station/plan/Judge.h"
#include "station/plan/Speed.h"
#include "station/record/Outcome.h"
#include "station/record/ResultsFolder.h"
#include "station/record/ValueText.h"

namespace programs::station_tool {

using station::record::printable;
using station::record::Verdict;

namespace {

constexpr const char* kGreen = "\x1b[32m";
constexpr const char* kRed = "\x1b[31m";
constexpr const char* kYellow = "\x1b[33m";
constexpr const char* kPlain = "\x1b[0m";

const char* colourOf(Verdict verdict)
{
    switch (verdict) {
        case Verdict::kPass:
            return kGreen;
        case Verdict::kSkipped:
            return kYellow;
        default:
            return kRed;
    }
}

std::string ratio(const station::plan::Speed& speed)
{
    if (speed.wire.count() == 0) {
        return "";
    }
    char text[32];
    std::snprintf(text, sizeof text, " (%.1f times that)",
                  static_cast<double>(speed.total.count()) / static_cast<double>(speed.wire.count()));
    return text;
}

std::string millisecondsText(station::plan::Duration time)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3f ms", std::chrono::duration<double, std::milli>(time).count());
    return text;
}

std::string reasonLine(const std::string& reason)
{
    return reason.empty() ? "" : "\n        " + printable(reason);
}

/// @returns whether the step has sent something, and that was all there was to do.
bool onlySent(const station::record::Step& step)
{
    if (step.kind != "send" || step.attempts.size() != 1) {
        return false;
    }
    const station::record::Attempt& only = step.attempts.front();
    return only.verdict == Verdict::kPass && only.measurements.empty() && only.events.end - only.events.begin <= 1;
}

}  // namespace

std::string verdictText(Verdict verdict, bool colour)
{
    constexpr std::size_t kLongest = 7;
    std::string text = station::record::name(verdict);
    const std::string padding(kLongest - std::min(kLongest, text.size()), ' ');
    return colour ? colourOf(verdict) + text + kPlain + padding : text + padding;
}

std::string placeText(const station::plan::StepPlace& place, std::string_view step)
{
    const std::string round = place.round > 1 ? ", round " + std::to_string(place.round) : "";
    return printable(place.group) + round + " / " + printable(step);
}

std::string StepLines::headOf(const station::plan::StepPlace& place, const station::record::Step& step) const
{
    return (label_.empty() ? "" : "[" + printable(label_) + "] ") + verdictText(verdictOf(step), colour_) + " " +
           placeText(place, step.name);
}

std::string StepLines::ended(const station::plan::StepPlace& place, const station::record::Step& step)
{
    std::string line = headOf(place, step);
    if (onlySent(step)) {
        line += " (sent; no reply is due)";
    } else if (!step.attempts.empty()) {
        line += " (" + station::record::toText(durationOf(step));
        line += step.attempts.size() > 1 ? ", " + std::to_string(step.attempts.size()) + " attempts)" : ")";
    }
    const std::string before = std::exchange(skippedFor_, verdictOf(step) == Verdict::kSkipped ? reasonOf(step) : "");
    return skippedFor_.empty() || skippedFor_ != before ? line + reasonLine(reasonOf(step)) : line;
}

std::string StepLines::amended(const station::plan::StepPlace& place, const station::record::Step& step) const
{
    return headOf(place, step) + " (told afterwards)" + reasonLine(reasonOf(step));
}

std::string summary(const UnitResult& unit, bool colour)
{
    const auto& run = unit.result.run;
    const auto speed = station::plan::speedOf(run);
    const std::string serial = run.unit.serial.empty() ? "" : ", unit " + printable(run.unit.serial);
    const std::string counts = format(tally(run));
    const auto headline = station::record::headlineOf(run);
    const std::string words = headlineText(unit);
    const std::string verdict = words != kNotRecordedText ? verdictText(headline.verdict, colour)
                                : colour                  ? kRed + words + kPlain
                                                          : words;
    std::string text = verdict + " " + run.plan.name + " at " + printable(run.unit.port) + serial;
    text += counts.empty() ? "\n" : ": " + counts + "\n";
    if (!headline.reason.empty()) {
        text += "        " + printable(headline.reason) + "\n";
    }
    for (const std::string& each : headline.beside) {
        text += "        " + printable(each) + "\n";
    }
    if (!(run.line == station::LineQuality{})) {
        text += "        line: " + station::record::lineText(run.line) + "\n";
    }
    text += "        time " + station::record::toText(speed.total);
    if (speed.wire.count() > 0) {
        text += ", on the line " + station::record::toText(speed.wire) + ratio(speed);
    }
    if (speed.steps > 0) {
        text += ", added per step " + millisecondsText(speed.addedPerStep) + " (median of " +
                std::to_string(speed.steps) + ")";
    }
    text += "\n";
    if (!unit.folder.empty()) {
        const bool incomplete = unit.folder.ends_with(station::record::kRunningSuffix);
        text +=
            std::string(incomplete ? "        incomplete" : "       ") + " record in " + printable(unit.folder) + "\n";
    }
    return text;
}

}  // namespace programs::station_tool
