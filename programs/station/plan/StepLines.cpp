#include "programs/station/plan/StepLines.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "station/plan/Judge.h"
#include "station/plan/Speed.h"
#include "station/record/Text.h"

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

std::string milliseconds(station::plan::Duration time)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.3f ms", std::chrono::duration<double, std::milli>(time).count());
    return text;
}

std::string reasonOf(const station::record::Step& step)
{
    return step.reason.empty() ? "" : "\n        " + printable(step.reason);
}

/// @returns whether the step has sent something, and that was all there was to do.
bool onlySent(const station::record::Step& step)
{
    using Kind = station::TraceEvent::Kind;
    const auto isSent = [](const station::TraceEvent& event) { return event.kind == Kind::kSent; };
    return step.kind == "send" && step.verdict == Verdict::kPass && step.attempts.size() == 1 &&
           step.attempts.front().measurements.empty() && std::ranges::all_of(step.attempts.front().frames, isSent);
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
    return (label_.empty() ? "" : "[" + printable(label_) + "] ") + verdictText(step.verdict, colour_) + " " +
           placeText(place, step.name);
}

std::string StepLines::ended(const station::plan::StepPlace& place, const station::record::Step& step)
{
    station::plan::Duration time{0};
    for (const auto& attempt : step.attempts) {
        time += attempt.duration;
    }
    std::string line = headOf(place, step);
    if (onlySent(step)) {
        line += " (sent; no reply is due)";
    } else if (!step.attempts.empty()) {
        line += " (" + station::record::toText(time);
        line += step.attempts.size() > 1 ? ", " + std::to_string(step.attempts.size()) + " attempts)" : ")";
    }
    const std::string before = std::exchange(skippedFor_, step.verdict == Verdict::kSkipped ? step.reason : "");
    return skippedFor_.empty() || skippedFor_ != before ? line + reasonOf(step) : line;
}

std::string StepLines::amended(const station::plan::StepPlace& place, const station::record::Step& step) const
{
    return headOf(place, step) + " (told afterwards)" + reasonOf(step);
}

std::string summary(const UnitResult& unit, bool colour)
{
    const auto& run = unit.result.run;
    const auto speed = station::plan::speedOf(run);
    const std::string serial = run.unit.serial.empty() ? "" : ", unit " + printable(run.unit.serial);
    const std::string counts = format(tally(run));
    std::string text =
        verdictText(run.verdict, colour) + " " + run.plan.name + " at " + printable(run.unit.port) + serial;
    text += counts.empty() ? "\n" : ": " + counts + "\n";
    if (!run.reason.empty()) {
        text += "        " + printable(run.reason) + "\n";
    }
    text += "        time " + station::record::toText(speed.total);
    if (speed.wire.count() > 0) {
        text += ", on the line " + station::record::toText(speed.wire) + ratio(speed);
    }
    if (speed.steps > 0) {
        text +=
            ", added per step " + milliseconds(speed.addedPerStep) + " (median of " + std::to_string(speed.steps) + ")";
    }
    text += "\n";
    if (!unit.folder.empty()) {
        text += "        record in " + printable(unit.folder) + "\n";
    }
    return text;
}

}  // namespace programs::station_tool
