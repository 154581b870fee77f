#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <ostream>
#include <utility>
#include <vector>

#include "station/record/Html.h"
#include "station/record/Outcome.h"
#include "station/record/Reports.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

using html::add;
using html::addChip;
using html::addFact;
using html::addText;
using html::Node;
using html::set;
using html::write;

/// The style sheet, which the build makes a literal.
constexpr const char* kStyle =
#include "report.css.inc"
    ;

const char* classOf(Verdict verdict)
{
    return wordsOf(verdict).style;
}

/// An eye cannot tell more segments apart.
constexpr std::size_t kLongestStrip = 400;

/// Builds the page for one run.
class Page
{
public:
    Page(const Run& run, Groups groups)
        : run_(run)
        , groups_(groups)
        , outcome_(outcomeOf(run))
        , failures_(equalFailures(outcome_))
        , headline_(headlineOf(run))
    {
        for (std::size_t i = 0; i < outcome_.steps.size(); ++i) {
            numbers_.emplace(outcome_.steps[i].step, i + 1);
        }
        for (const auto& equal : failures_) {
            for (const PlacedStep& placed : equal) {
                numbers_[placed.step] = numbers_[equal.front().step];
            }
        }
    }

    void build(Node body)
    {
        Node page = add(body, "div", "page");
        addTop(page);
        Node main = add(page, "main");
        addRepeatedGroups(main);
        addFailed(main);
        addRepeated(main);
        addAll(main);
        addOrigin(page);
    }

private:
    std::string anchor(const Step& step) const { return fmt::format("step-{}", numbers_.at(&step)); }

    void addTop(Node page)
    {
        Node top = add(page, "header", std::string("top ") + classOf(headline_.verdict));
        Node title = add(top, "div", "title");
        addChip(title, headline_.verdict);
        addText(title, "h1", planTitle());
        addText(top, "p", summaryOf(run_, outcome_), "lead");
        if (!headline_.reason.empty()) {
            addText(top, "p", headline_.reason, "why");
        }
        for (const std::string& each : headline_.beside) {
            addText(top, "p", each, "beside");
        }
        addStrip(top);
        Node facts = add(top, "dl", "facts");
        addFact(facts, "Unit", run_.unit.serial.empty() ? "not known" : run_.unit.serial);
        addFact(facts, "Started", toText(run_.started));
        addFact(facts, "Took", run_.ended < run_.started ? "not known" : toText(durationOf(run_)));
        addFact(facts, "Port", fmt::format("{}, {} baud", run_.unit.port, run_.unit.baud));
        addFact(facts, "Line", lineText(run_.line));
        addFact(facts, "Station", run_.station.host);
        addFact(facts, "Production line", run_.station.line);
        addFact(facts, "Operator", run_.station.operatorName);
        addFact(facts, "Verifies the limits as a unit that is", run_.verifies);
    }

    std::string planTitle() const
    {
        return run_.plan.title.empty() ? (run_.plan.name.empty() ? run_.id : run_.plan.name) : run_.plan.title;
    }

    /// The whole run at a glance: a segment for each step.
    void addStrip(Node top)
    {
        const auto counted = std::ranges::count_if(outcome_.steps, &PlacedStep::counts);
        if (outcome_.total < 2 || outcome_.total > kLongestStrip || std::cmp_less(counted, outcome_.total)) {
            return;
        }
        Node strip = add(top, "div", "strip");
        set(strip, "role", "img");
        set(strip, "aria-label", summaryOf(run_, outcome_));
        for (const PlacedStep& placed : outcome_.steps) {
            if (placed.counts()) {
                Node segment = add(strip, "span", classOf(placed.verdict));
                set(segment, "title", placed.step->name + ": " + name(placed.verdict));
            }
        }
    }

    void addFailed(Node main)
    {
        if (outcome_.failed.empty() && !isBad(headline_.verdict)) {
            return;
        }
        Node section = add(main, "section");
        const bool onlyEnded = headline_.verdict == Verdict::kAborted &&
                               std::ranges::all_of(outcome_.failed, [](const PlacedStep& placed) {
                                   return placed.verdict == Verdict::kAborted;
                               });
        set(addText(section, "h2", onlyEnded ? "Where the run was ended" : "What went wrong"), "id", "failed");
        set(section, "aria-labelledby", "failed");
        for (const auto& equal : failures_) {
            addCard(section, equal);
        }
        if (outcome_.wrong > outcome_.failed.size()) {
            addText(section, "p",
                    fmt::format("{} more went wrong; record.jsonl has them all.",
                                protocol::plural(outcome_.wrong - outcome_.failed.size(), "step")),
                    "soft");
        }
        if (outcome_.failed.empty()) {
            Node card = add(section, "article", std::string("card ") + classOf(headline_.verdict));
            Node heading = add(card, "h3");
            addChip(heading, headline_.verdict);
            addText(heading, "span", "The run as a whole");
            addText(card, "p", headline_.reason.empty() ? wordsOf(headline_.verdict).meaning : headline_.reason,
                    "reason");
        }
    }

    void addCard(Node section, const std::vector<PlacedStep>& equal)
    {
        const PlacedStep& placed = equal.front();
        const Step& step = *placed.step;
        Node card = add(section, "article", std::string("card ") + classOf(placed.verdict));
        set(card, "id", anchor(step));
        Node heading = add(card, "h3");
        addChip(heading, placed.verdict);
        addText(heading, "span", step.name);
        Node where = addText(card, "p", placed.phase->name + " › " + placed.group->name, "where");
        if (const std::string tries = whichTries(equal); !tries.empty()) {
            write(where, " › " + tries);
        }
        if (!step.what.empty()) {
            write(where, " · ");
            addText(where, "code", step.what);
        }
        addText(card, "p", whyOf(step), "reason");
        addText(card, "p", wordsOf(placed.verdict).meaning, "meaning");
        addAttempts(card, step, true);
    }

    static std::string whyOf(const Step& step)
    {
        const std::string reason = reasonOf(step);
        return reason.empty() ? "The plan gives no other reason." : reason;
    }

    void addRepeated(Node main)
    {
        if (outcome_.repeated.empty()) {
            return;
        }
        Node section = add(main, "section");
        set(addText(section, "h2", "Passed only when repeated"), "id", "repeated");
        set(section, "aria-labelledby", "repeated");
        Node list = add(section, "ul", "repeated");
        for (const PlacedStep& placed : outcome_.repeated) {
            Node item = add(list, "li");
            Node link = addText(item, "a", placed.step->name);
            set(link, "href", '#' + anchor(*placed.step));
            const std::size_t attempts = placed.step->attempts.size();
            std::string how = fmt::format(", {} › {}:", placed.phase->name, placed.group->name);
            how += attempts > 1 ? fmt::format(" attempt {}", attempts) : "";
            how += attempts > 1 && placed.groupTry > 0 ? "," : "";
            how += placed.groupTry > 0
                       ? fmt::format(" try {} of the group", numberOf(*placed.group, placed.groupTry) + 1)
                       : "";
            addText(item, "span", how, "soft");
        }
    }

    void addAll(Node main)
    {
        Node section = add(main, "section");
        set(addText(section, "h2", "All steps"), "id", "all");
        set(section, "aria-labelledby", "all");
        if (run_.phases.empty()) {
            addText(section, "p", "The run ended before its first step.", "soft");
        }
        for (const Phase& phase : run_.phases) {
            Node part = add(section, "div", "phase");
            Node heading = add(part, "h3");
            addText(heading, "span", phase.name);
            addChip(heading, verdictOf(phase));
            if (const std::string reason = reasonOf(phase); !reason.empty()) {
                addText(part, "p", reason, "where");
            }
            for (const Group& group : phase.groups) {
                addGroup(part, group);
            }
        }
    }

    void addGroup(Node part, const Group& group)
    {
        Node box = add(part, "div", "group");
        Node heading = add(box, "h4");
        addText(heading, "span", group.name);
        addChip(heading, verdictOf(group));
        for (std::size_t i = 0; i < group.tries.size(); ++i) {
            const Group::Try& each = group.tries[i];
            const bool counting = !each.superseded;
            if (const std::size_t tries = triesOf(group); tries > 1) {
                Node title = addText(box, "h5", fmt::format("Try {} of {} ", numberOf(group, i) + 1, tries));
                addChip(title, verdictOf(each));
            }
            if (each.steps.empty()) {
                addText(box, "p", "No step was run.", "where");
                continue;
            }
            Node list = add(box, "ol", counting ? "steps" : "steps past");
            for (const Step& step : each.steps) {
                addStep(list, step, counting);
            }
        }
    }

    void addRepeatedGroups(Node main)
    {
        Node section = add(main, "section");
        set(addText(section, "h2", "Repeated groups"), "id", "groups");
        set(section, "aria-labelledby", "groups");
        bool any = false;
        for (const Phase& phase : run_.phases) {
            for (const Group& group : phase.groups) {
                if (const Rounds rounds = roundsOf(group); rounds.counted > 1) {
                    any = true;
                    addFigures(add(section, "div", "group"), group, rounds);
                }
            }
        }
        if (!any) {
            main.remove_child(section);
        }
    }

    static void addFigures(Node box, const Group& group, const Rounds& rounds)
    {
        Node heading = add(box, "h3");
        addText(heading, "span", group.name + " ");
        addChip(heading, verdictOf(group));
        addText(box, "p", roundsText(group, rounds), "where");
        const Timeline& timeline = rounds.timeline;
        if (rounds.failed > 0) {
            Node strip = add(box, "div", "strip");
            set(strip, "role", "img");
            set(strip, "aria-label", "Failed rounds over time");
            for (std::size_t i = 0; i < timeline.intervals.size(); ++i) {
                const bool failed = timeline.intervals[i].failed > 0;
                set(add(strip, "span",
                        failed                             ? "fail"
                        : timeline.intervals[i].rounds > 0 ? "pass"
                                                           : "skipped"),
                    "title", intervalText(timeline, i));
            }
            Node folded = add(box, "details");
            addText(folded, "summary", "When rounds failed");
            Node list = add(folded, "ul", "repeated");
            for (std::size_t i = 0; i < timeline.intervals.size(); ++i) {
                if (timeline.intervals[i].failed > 0) {
                    addText(list, "li", intervalText(timeline, i));
                }
            }
        }
        if (rounds.measurements.empty()) {
            return;
        }
        Node table = add(box, "table", "figures");
        addText(table, "caption", "Measured in all rounds of " + group.name, "hidden");
        Node titles = add(add(table, "thead"), "tr");
        for (const char* title : kFigures) {
            set(addText(titles, "th", title), "scope", "col");
        }
        Node lines = add(table, "tbody");
        for (const RepeatedMeasurement& each : rounds.measurements) {
            Node line = add(lines, "tr");
            const std::vector<std::string> cells = figuresOf(each);
            set(addText(line, "th", cells.front()), "scope", "row");
            for (std::size_t i = 1; i < cells.size(); ++i) {
                addText(line, "td", cells[i], "num");
            }
        }
    }

    void addStep(Node list, const Step& step, bool counting)
    {
        const Verdict verdict = verdictOf(step);
        const std::string reason = reasonOf(step);
        const bool above = counting && isBad(verdict);
        Node item = add(list, "li");
        Node head = add(item, "div", "head");
        addChip(head, verdict);
        addText(head, "span", step.name, "name");
        addText(head, "code", step.what);
        addText(head, "span", step.attempts.empty() ? "" : toText(durationOf(step)), "took");
        if (above) {
            Node body = add(item, "div", std::string("body ") + classOf(verdict));
            Node line = addText(body, "p", whyOf(step) + " ", "reason");
            set(addText(line, "a", "details above"), "href", '#' + anchor(step));
            return;
        }
        set(item, "id", anchor(step));
        if (reason.empty() && step.attempts.empty()) {
            return;
        }
        Node body = add(item, "div", std::string("body ") + classOf(verdict));
        if (!reason.empty()) {
            addText(body, "p", reason, "reason");
        }
        addAttempts(body, step, false);
    }

    void addAttempts(Node parent, const Step& step, bool large)
    {
        for (std::size_t i = 0; i < step.attempts.size(); ++i) {
            const Attempt& attempt = step.attempts[i];
            if (step.attempts.size() > 1) {
                Node line = add(parent, "p", std::string("attempt ") + classOf(attempt.verdict));
                addChip(line, attempt.verdict);
                write(line, fmt::format(" Attempt {} of {}{}", i + 1, step.attempts.size(),
                                        attempt.reason.empty() ? "" : ": " + attempt.reason));
            }
            addMeasurements(parent, step, attempt, large);
            for (const Detail& detail : attempt.details) {
                addText(parent, "p", fmt::format("{}: {}", detail.name, detail.text));
            }
            addFrames(parent, step, attempt);
        }
    }

    static void addMeasurements(Node parent, const Step& step, const Attempt& attempt, bool large)
    {
        if (attempt.measurements.empty()) {
            return;
        }
        std::vector<Measurement> rows = attempt.measurements;
        std::stable_partition(rows.begin(), rows.end(), [](const Measurement& each) { return !each.passed; });
        Node table = add(parent, "table", "measured");
        addText(table, "caption", "Measured in " + step.name, "hidden");
        Node titles = add(add(table, "thead"), "tr");
        const bool drawn = std::ranges::any_of(rows, isDrawn);
        for (const char* title : {"Value", "Expected", "Got", "Against its limits"}) {
            set(addText(titles, "th", title), "scope", "col");
        }
        if (!drawn) {
            titles.remove_child(titles.last_child());
        }
        Node lines = add(table, "tbody");
        for (const Measurement& each : rows) {
            Node line = add(lines, "tr");
            set(addText(line, "th", each.name), "scope", "row");
            const bool demanded = any(each.limits);
            set(addText(line, "td", demanded ? toText(each.limits, each.unit) : "anything", demanded ? "num" : "soft"),
                "data-label", "expected");
            Node got = addText(line, "td", withUnit(toText(each.value), each.unit), each.passed ? "num" : "num bad");
            set(got, "data-label", "got");
            if (const std::string missed = miss(each); !missed.empty()) {
                addText(got, "span", missed, "miss");
            }
            if (drawn) {
                addLimitChart(add(line, "td"), each, large && !each.passed);
            }
        }
    }

    void addFrames(Node parent, const Step& step, const Attempt& attempt)
    {
        if (attempt.events.begin == attempt.events.end) {
            return;
        }
        Node folded = add(parent, "details");
        addText(folded, "summary",
                protocol::plural(attempt.events.end - attempt.events.begin, "event") + " on the line");
        Node table = add(folded, "table", "frames");
        addText(table, "caption", "Events on the line during " + step.name + ", times from its start", "hidden");
        Node titles = add(add(table, "thead"), "tr");
        for (const char* title : {"Time", "Direction", "Group, command, [parameters]", "Meaning"}) {
            set(addText(titles, "th", title), "scope", "col");
        }
        Node lines = add(table, "tbody");
        for (const EventLine& each : linesOf(run_.events, attempt.events, groups_)) {
            Node line = add(lines, "tr");
            addText(
                line, "td",
                each.event == nullptr
                    ? ""
                    : toText(std::chrono::duration_cast<std::chrono::nanoseconds>(each.event->at - attempt.started)),
                "num");
            addText(line, "td", each.event == nullptr ? "…" : caption(each.event->kind));
            addText(add(line, "td"), "code", each.bytes);
            addText(line, "td", each.meaning);
        }
    }

    void addOrigin(Node page)
    {
        Node footer = add(page, "footer");
        addText(footer, "h2", "What the words mean");
        Node legend = add(footer, "dl", "legend");
        for (const Verdict verdict : kVerdicts) {
            addChip(add(legend, "dt"), verdict);
            addText(legend, "dd", wordsOf(verdict).meaning);
        }
        addText(footer, "h2", "Where this comes from");
        Node origin = add(footer, "dl", "origin");
        addFact(origin, "Run", run_.id, "mono");
        addFact(origin, "Ended", toText(run_.ended));
        addFact(origin, "Plan", run_.plan.path, "mono");
        addFact(origin, "Version of the plan", run_.plan.version);
        for (const Run::Parameter& each : run_.plan.parameters) {
            addFact(origin, "Parameter " + printable(each.name),
                    fmt::format("{} ({})", toText(each.value, each.unit), printable(each.from)));
        }
        addFact(origin, "SHA-256 of the plan", run_.plan.sha256, "mono");
        addFact(origin, "SHA-256 of the protocol catalogue", run_.catalogueSha256, "mono");
        addFact(origin, "Version of the station tool", run_.station.version);
    }

    const Run& run_;
    Groups groups_;
    Outcome outcome_;
    std::vector<std::vector<PlacedStep>> failures_;
    Headline headline_;
    /// Of the step in the page; failures that share a card have one number.
    std::map<const Step*, std::size_t> numbers_;
};

}  // namespace

void htmlReport(const Run& run, Groups groups, std::ostream& out)
{
    pugi::xml_document document;
    Page(run, groups).build(document.append_child("body"));
    html::writePage(
        out,
        fmt::format("{} – {}{}", name(verdictOf(run)), run.plan.title.empty() ? run.plan.name : run.plan.title,
                    run.unit.serial.empty() ? "" : " – " + run.unit.serial),
        document);
}

void html::writePage(std::ostream& out, const std::string& title, const pugi::xml_document& body)
{
    pugi::xml_document head;
    addText(head, "title", title);
    out << "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\"/>\n"
           "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'\"/>\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\"/>\n"
           "<meta name=\"color-scheme\" content=\"light dark\"/>\n";
    // HTML has no short form of empty elements.
    constexpr unsigned kFlags = pugi::format_raw | pugi::format_no_declaration | pugi::format_no_empty_element_tags;
    head.save(out, "", kFlags, pugi::encoding_utf8);
    out << "\n<style>" << kStyle << "</style>\n</head>\n";
    body.save(out, "", kFlags, pugi::encoding_utf8);
    out << "\n</html>\n";
}

}  // namespace station::record
