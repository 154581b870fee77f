#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <sstream>
#include <utility>

#include "station/record/Outcome.h"
#include "station/record/Reports.h"
#include "station/record/ValueText.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

/// @returns "all 44 that failed", "the first 200 of 1000 that failed".
std::string firstOf(std::size_t shown, std::size_t all, const char* what)
{
    return all == 1       ? fmt::format("the one that {}", what)
           : shown == all ? fmt::format("all {} that {}", all, what)
                          : fmt::format("the first {} of {} that {}", shown, all, what);
}

/// @returns which tries are left of a group that leaves some out.
std::string shownTries(const Group& group, const Rounds& rounds)
{
    std::map<Verdict, std::size_t> shown;
    std::size_t failed = 0;
    std::size_t again = 0;
    for (const Group::Try& each : group.tries) {
        const Verdict verdict = verdictOf(each);
        ++(each.superseded ? again : isBad(verdict) ? failed : shown[verdict]);
    }
    std::vector<std::string> parts;
    if (failed > 0) {
        parts.push_back(firstOf(failed, rounds.failed, "failed"));
    }
    if (again > 0) {
        const std::size_t all = rounds.tries - rounds.counted;
        parts.push_back(firstOf(again, all, all == 1 ? "was tried again" : "were tried again"));
    }
    for (const auto& [verdict, number] : shown) {
        parts.push_back(fmt::format("{} that {}", parts.empty() ? protocol::plural(number, "try") : "one",
                                    verdict == Verdict::kPass ? "passed" : "was skipped"));
    }
    if (parts.empty()) {
        return "none";
    }
    std::string last = std::move(parts.back());
    parts.pop_back();
    return parts.empty() ? last : fmt::format("{} and {}", fmt::join(parts, ", "), last);
}

/// @returns a number of a measurement: a time with three significant digits, any other with six.
std::string figure(double number, const std::string& unit)
{
    const bool time = unit == "ms" && number != 0 && std::isfinite(number);
    const int decimals = time ? 2 - static_cast<int>(std::floor(std::log10(std::abs(number)))) : 0;
    return withUnit(time ? fmt::format("{:.{}f}", number, std::clamp(decimals, 0, 9)) : fmt::format("{:.6g}", number),
                    unit);
}

/// @returns `text`, made printable, behind a separator; empty for an empty text.
std::string behind(const char* separator, const std::string& text)
{
    return text.empty() ? "" : separator + printable(text);
}

class TextWriter
{
public:
    TextWriter(const Run& run, Groups groups, TextStyle style)
        : run_(run), groups_(groups), style_(style), outcome_(outcomeOf(run)), headline_(headlineOf(run))
    {
    }

    std::string write()
    {
        head();
        repeated();
        failed();
        all();
        return std::move(out_);
    }

private:
    void line(int indent, const std::string& text)
    {
        out_.append(static_cast<std::size_t>(indent), ' ');
        out_ += text + '\n';
    }

    std::string bold(const std::string& text) const { return style_.colour ? "\033[1m" + text + "\033[0m" : text; }

    std::string verdict(Verdict which) const { return coloured(which, style_.colour); }

    void head()
    {
        line(0, fmt::format("{}  {}", verdict(headline_.verdict),
                            bold(printable(run_.plan.title.empty() ? run_.plan.name : run_.plan.title))));
        line(0, summaryOf(run_, outcome_));
        if (!headline_.reason.empty()) {
            line(0, printable(headline_.reason));
        }
        for (const std::string& each : headline_.beside) {
            line(0, printable(each));
        }
        line(0, fmt::format("Unit {} at {}, {} baud; started {}{}",
                            run_.unit.serial.empty() ? "not known" : printable(run_.unit.serial),
                            printable(run_.unit.port), run_.unit.baud, toText(run_.started),
                            run_.ended < run_.started ? "" : ", took " + toText(durationOf(run_))));
        line(0, "Line " + lineText(run_.line));
        line(0, "Run " + printable(run_.id) + behind(", operator ", run_.station.operatorName) +
                    behind(", verifies the limits as a unit that is ", run_.verifies));
        for (const Run::Parameter& each : run_.plan.parameters) {
            line(0, fmt::format("Parameter {} = {} ({})", printable(each.name), toText(each.value, each.unit),
                                printable(each.from)));
        }
    }

    void repeated()
    {
        bool first = true;
        for (const Phase& phase : run_.phases) {
            for (const Group& group : phase.groups) {
                const std::vector<std::string> figures = roundLines(group);
                if (figures.empty()) {
                    continue;
                }
                if (std::exchange(first, false)) {
                    line(0, "");
                    line(0, bold("Repeated groups"));
                }
                line(2, printable(group.name) + "  " + verdict(verdictOf(group)));
                for (const std::string& each : figures) {
                    line(4, each);
                }
            }
        }
    }

    void failed()
    {
        if (outcome_.failed.empty()) {
            return;
        }
        line(0, "");
        line(0, bold(headline_.verdict == Verdict::kAborted ? "What went wrong, or where the run was ended"
                                                            : "What went wrong"));
        for (const auto& equal : equalFailures(outcome_)) {
            const PlacedStep& placed = equal.front();
            const Step& step = *placed.step;
            line(0, "");
            line(2, verdict(placed.verdict) + "  " + bold(printable(step.name)));
            line(4, fmt::format("{} > {}{}{}", printable(placed.phase->name), printable(placed.group->name),
                                behind(" > ", whichTries(equal)), behind(": ", step.what)));
            const std::string reason = reasonOf(step);
            line(4, reason.empty() ? wordsOf(placed.verdict).meaning : printable(reason));
            attempts(4, step, true);
        }
    }

    void all()
    {
        line(0, "");
        line(0, bold("All steps"));
        if (run_.phases.empty()) {
            line(2, "The run ended before its first step.");
        }
        for (const Phase& phase : run_.phases) {
            line(2, fmt::format("{}  {}{}", printable(phase.name), verdict(verdictOf(phase)),
                                behind("  ", reasonOf(phase))));
            for (const Group& group : phase.groups) {
                line(4, printable(group.name) + "  " + verdict(verdictOf(group)));
                for (std::size_t i = 0; i < group.tries.size(); ++i) {
                    const bool counting = !group.tries[i].superseded;
                    if (triesOf(group) > 1) {
                        line(6, fmt::format("try {} of {}  {}", numberOf(group, i) + 1, triesOf(group),
                                            verdict(verdictOf(group.tries[i]))));
                    }
                    for (const Step& step : group.tries[i].steps) {
                        this->step(step, counting);
                    }
                }
            }
        }
    }

    void step(const Step& step, bool counting)
    {
        const Verdict result = verdictOf(step);
        const std::string reason = reasonOf(step);
        std::string padding(8 - std::min<std::size_t>(7, std::string(name(result)).size()), ' ');
        line(6, verdict(result) + padding + printable(step.name) +
                    (step.attempts.empty() ? "" : "  " + toText(durationOf(step))));
        if (!reason.empty()) {
            line(14, printable(reason));
        }
        if (counting && isBad(result)) {
            return;
        }
        attempts(14, step, style_.allFrames);
    }

    void attempts(int indent, const Step& step, bool frames)
    {
        for (std::size_t i = 0; i < step.attempts.size(); ++i) {
            const Attempt& attempt = step.attempts[i];
            if (step.attempts.size() > 1) {
                line(indent, fmt::format("attempt {} of {}  {}{}", i + 1, step.attempts.size(),
                                         verdict(attempt.verdict), behind("  ", attempt.reason)));
            }
            for (const Measurement& each : attempt.measurements) {
                measurement(indent, each);
            }
            for (const Detail& each : attempt.details) {
                line(indent, printable(fmt::format("{}: {}", each.name, each.text)));
            }
            if (!frames) {
                continue;
            }
            for (const EventLine& each : linesOf(run_.events, attempt.events, groups_)) {
                const std::string mark = each.event == nullptr ? "… " : arrow(each.event->kind) + std::string(" ");
                line(indent, mark + (each.bytes.empty() ? "" : each.bytes + "  ") + each.meaning);
            }
        }
    }

    void measurement(int indent, const Measurement& each)
    {
        const std::string missed = miss(each);
        line(indent, fmt::format("{}{} = {}{}{}", each.passed ? "" : "✕ ", printable(each.name),
                                 withUnit(toText(each.value), each.unit),
                                 any(each.limits) ? ", expected " + toText(each.limits, each.unit) : "",
                                 missed.empty() ? "" : ": " + missed));
    }

    const Run& run_;
    Groups groups_;
    TextStyle style_;
    Outcome outcome_;
    Headline headline_;
    std::string out_;
};

}  // namespace

std::string whichTries(const std::vector<PlacedStep>& equal)
{
    const PlacedStep& first = equal.front();
    const std::size_t tries = triesOf(*first.group);
    const std::size_t number = numberOf(*first.group, first.groupTry) + 1;
    if (equal.size() > 1) {
        return fmt::format("tries {} to {} of {} ({})", number, number + equal.size() - 1, tries, equal.size());
    }
    return tries > 1 ? fmt::format("try {} of {}", number, tries) : "";
}

std::string coloured(Verdict verdict, bool colour)
{
    return colour ? fmt::format("{}{}\033[0m", wordsOf(verdict).colour, name(verdict)) : name(verdict);
}

std::string roundsText(const Group& group, const Rounds& rounds)
{
    std::string text = fmt::format("{}, {} failed", protocol::plural(rounds.counted, "round"), rounds.failed);
    if (rounds.tries > rounds.counted) {
        text += fmt::format(", {} tried again", rounds.tries - rounds.counted);
    }
    if (triesOf(group) > group.tries.size()) {
        text += ". Shown: " + shownTries(group, rounds);
    }
    return text + '.';
}

std::vector<std::string> figuresOf(const RepeatedMeasurement& measurement)
{
    const Statistic& numbers = measurement.numbers;
    const std::string place = measurement.step == measurement.name ? "" : printable(measurement.step) + ": ";
    std::vector<std::string> cells{place + printable(measurement.name), fmt::to_string(measurement.count),
                                   fmt::to_string(measurement.missed)};
    for (const double each : {numbers.minimum, numbers.mean, numbers.maximum, numbers.sigma()}) {
        cells.push_back(numbers.count == 0 ? "" : figure(each, measurement.unit));
    }
    return cells;
}

std::string intervalText(const Timeline& timeline, std::size_t index)
{
    const Timeline::Interval& one = timeline.intervals[index];
    const auto begin = timeline.start + timeline.width * static_cast<std::int64_t>(index);
    return fmt::format("{}, {}: {} of {} failed",
                       toText(std::chrono::time_point_cast<std::chrono::system_clock::duration>(begin)),
                       toText(timeline.width), one.failed, protocol::plural(one.rounds, "round"));
}

std::vector<std::string> roundLines(const Group& group)
{
    const Rounds rounds = roundsOf(group);
    if (rounds.counted < 2) {
        return {};
    }
    std::vector<std::string> lines{roundsText(group, rounds)};
    if (!rounds.measurements.empty()) {
        std::vector<std::vector<std::string>> rows{{kFigures.begin(), kFigures.end()}};
        std::ranges::transform(rounds.measurements, std::back_inserter(rows), figuresOf);
        std::istringstream table(protocol::table(rows));
        for (std::string row; std::getline(table, row);) {
            lines.push_back(row);
        }
    }
    for (std::size_t i = 0; i < rounds.timeline.intervals.size(); ++i) {
        if (rounds.timeline.intervals[i].failed > 0) {
            lines.push_back(intervalText(rounds.timeline, i));
        }
    }
    return lines;
}

std::string textReport(const Run& run, Groups groups, TextStyle style)
{
    return TextWriter(run, groups, style).write();
}

}  // namespace station::record
