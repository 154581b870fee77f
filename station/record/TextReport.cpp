#include <fmt/format.h>

#include <algorithm>

#include "station/record/Outcome.h"
#include "station/record/Reports.h"
#include "station/record/ValueText.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

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
        line(0, "Run " + printable(run_.id) + behind(", operator ", run_.station.operatorName));
    }

    void failed()
    {
        if (outcome_.failed.empty()) {
            return;
        }
        line(0, "");
        line(0, bold(headline_.verdict == Verdict::kAborted ? "What went wrong, or where the run was ended"
                                                            : "What went wrong"));
        for (const PlacedStep& placed : outcome_.failed) {
            const Step& step = *placed.step;
            line(0, "");
            line(2, verdict(placed.verdict) + "  " + bold(printable(step.name)));
            const std::size_t tries = placed.group->tries.size();
            line(4, fmt::format("{} > {}{}{}", printable(placed.phase->name), printable(placed.group->name),
                                tries > 1 ? fmt::format(" > try {} of {}", placed.groupTry + 1, tries) : "",
                                behind(": ", step.what)));
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
                    if (group.tries.size() > 1) {
                        line(6, fmt::format("try {} of {}  {}", i + 1, group.tries.size(),
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

std::string coloured(Verdict verdict, bool colour)
{
    return colour ? fmt::format("{}{}\033[0m", wordsOf(verdict).colour, name(verdict)) : name(verdict);
}

std::string textReport(const Run& run, Groups groups, TextStyle style)
{
    return TextWriter(run, groups, style).write();
}

}  // namespace station::record
