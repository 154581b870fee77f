#include "station/record/TextReport.h"

#include <algorithm>

#include "station/record/Outcome.h"
#include "station/record/ValueText.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

using protocol::catalogue::Groups;

const char* colourOf(Verdict verdict)
{
    switch (verdict) {
        case Verdict::kPass:
            return "\033[32m";
        case Verdict::kFail:
            return "\033[1;31m";
        case Verdict::kError:
            return "\033[1;31m";
        case Verdict::kTimeout:
            return "\033[1;33m";
        case Verdict::kAborted:
            return "\033[1;35m";
        case Verdict::kSkipped:
            return "\033[2m";
    }
    return "";
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
        line(0, verdict(headline_.verdict) + "  " +
                    bold(printable(run_.plan.title.empty() ? run_.plan.name : run_.plan.title)));
        line(0, summaryOf(run_, outcome_));
        if (!headline_.reason.empty()) {
            line(0, printable(headline_.reason));
        }
        for (const std::string& each : headline_.beside) {
            line(0, printable(each));
        }
        std::string facts = "Unit " + (run_.unit.serial.empty() ? "not known" : printable(run_.unit.serial)) + " at " +
                            printable(run_.unit.port) + ", " + std::to_string(run_.unit.baud) + " baud; started " +
                            toText(run_.started);
        if (run_.ended >= run_.started) {
            facts += ", took " + toText(durationOf(run_));
        }
        line(0, facts);
        line(0, "Line " + lineText(run_.line));
        line(0, "Run " + printable(run_.id) +
                    (run_.station.operatorName.empty() ? "" : ", operator " + printable(run_.station.operatorName)));
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
            std::string where = printable(placed.phase->name) + " > " + printable(placed.group->name);
            if (placed.group->tries.size() > 1) {
                where += " > try " + std::to_string(placed.groupTry + 1) + " of " +
                         std::to_string(placed.group->tries.size());
            }
            line(4, where + (step.what.empty() ? "" : ": " + printable(step.what)));
            const std::string reason = reasonOf(step);
            line(4, reason.empty() ? meaning(placed.verdict) : printable(reason));
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
            const std::string reason = reasonOf(phase);
            line(2, printable(phase.name) + "  " + verdict(verdictOf(phase)) +
                        (reason.empty() ? "" : "  " + printable(reason)));
            for (const Group& group : phase.groups) {
                line(4, printable(group.name) + "  " + verdict(verdictOf(group)));
                for (std::size_t i = 0; i < group.tries.size(); ++i) {
                    const bool counting = !group.tries[i].superseded;
                    if (group.tries.size() > 1) {
                        line(6, "try " + std::to_string(i + 1) + " of " + std::to_string(group.tries.size()) + "  " +
                                    verdict(verdictOf(group.tries[i])));
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
                line(indent, "attempt " + std::to_string(i + 1) + " of " + std::to_string(step.attempts.size()) + "  " +
                                 verdict(attempt.verdict) +
                                 (attempt.reason.empty() ? "" : "  " + printable(attempt.reason)));
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
        std::string text = std::string(each.passed ? "" : "✕ ") + printable(each.name) + " = " +
                           withUnit(toText(each.value), each.unit);
        if (any(each.limits)) {
            text += ", expected " + toText(each.limits, each.unit);
        }
        if (const std::string missed = miss(each); !missed.empty()) {
            text += ": " + missed;
        }
        line(indent, text);
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
    return colour ? colourOf(verdict) + std::string(name(verdict)) + "\033[0m" : name(verdict);
}

std::string textReport(const Run& run, Groups groups, TextStyle style)
{
    return TextWriter(run, groups, style).write();
}

}  // namespace station::record
