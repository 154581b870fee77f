#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <pugixml.hpp>

#include "station/record/Outcome.h"
#include "station/record/Reports.h"
#include "station/record/ValueText.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace {

struct Counts {
    std::size_t tests = 0;
    std::size_t failures = 0;
    std::size_t errors = 0;
    std::size_t skipped = 0;
    std::chrono::nanoseconds time{0};

    void add(const Counts& other)
    {
        tests += other.tests;
        failures += other.failures;
        errors += other.errors;
        skipped += other.skipped;
        time += other.time;
    }
};

void setAttribute(pugi::xml_node node, const char* name, const std::string& text)
{
    node.append_attribute(name).set_value(printable(text).c_str());
}

std::string secondsText(std::chrono::nanoseconds duration)
{
    return fmt::format("{:.6f}", std::chrono::duration<double>(duration).count());
}

void setAttribute(pugi::xml_node node, const Counts& counts)
{
    node.append_attribute("tests").set_value(counts.tests);
    node.append_attribute("failures").set_value(counts.failures);
    node.append_attribute("errors").set_value(counts.errors);
    node.append_attribute("skipped").set_value(counts.skipped);
    setAttribute(node, "time", secondsText(counts.time));
}

/// Adds the element of a verdict, and counts it.
void addVerdict(pugi::xml_node testcase, Verdict verdict, const std::string& reason, Counts& counts)
{
    ++counts.tests;
    const char* element = nullptr;
    switch (verdict) {
        case Verdict::kPass:
            return;
        case Verdict::kSkipped:
            ++counts.skipped;
            element = "skipped";
            break;
        case Verdict::kFail:
            ++counts.failures;
            element = "failure";
            break;
        case Verdict::kError:
        case Verdict::kTimeout:
        case Verdict::kAborted:
            ++counts.errors;
            element = "error";
            break;
    }
    pugi::xml_node node = testcase.append_child(element);
    setAttribute(node, "message", reason.empty() ? wordsOf(verdict).meaning : reason);
    setAttribute(node, "type", name(verdict));
}

std::string describe(const Measurement& measurement)
{
    return fmt::format("{} = {}{}{}", printable(measurement.name), toText(measurement.value, measurement.unit),
                       any(measurement.limits) ? ", expected " : "", toText(measurement.limits, measurement.unit));
}

/// The attempts of a step, with measurements and frames, as lines.
std::string protocolOf(const Run& run, const Step& step, Groups groups)
{
    std::string text = step.what.empty() ? "" : printable(step.what) + '\n';
    for (std::size_t i = 0; i < step.attempts.size(); ++i) {
        const Attempt& attempt = step.attempts[i];
        text += fmt::format("attempt {}: {} after {}{}\n", i + 1, name(attempt.verdict), toText(attempt.duration),
                            attempt.reason.empty() ? "" : ": " + printable(attempt.reason));
        for (const Measurement& measurement : attempt.measurements) {
            text += fmt::format("  {}\n", describe(measurement));
        }
        for (const Detail& detail : attempt.details) {
            text += fmt::format("  {}\n", printable(fmt::format("{}: {}", detail.name, detail.text)));
        }
        for (const EventLine& line : linesOf(run.events, attempt.events, groups)) {
            text += fmt::format("  {}{}  {}\n", line.event == nullptr ? "…" : name(line.event->kind),
                                line.bytes.empty() ? "" : " " + line.bytes, line.meaning);
        }
    }
    return text;
}

Counts addStep(pugi::xml_node suite, const Run& run, const std::string& suiteName, const Step& step,
               const std::string& suffix, Groups groups)
{
    Counts counts;
    counts.time = durationOf(step);
    pugi::xml_node testcase = suite.append_child("testcase");
    setAttribute(testcase, "name", step.name + suffix);
    setAttribute(testcase, "classname", suiteName);
    setAttribute(testcase, "time", secondsText(counts.time));
    addVerdict(testcase, verdictOf(step), reasonOf(step), counts);
    // Without invisible characters: each line has been made printable.
    testcase.append_child("system-out").text().set(protocolOf(run, step, groups).c_str());
    return counts;
}

/// A reader who counts test cases would miss a finding outside of all steps: it is a case, too.
Counts addNote(pugi::xml_node suite, const std::string& suiteName, Verdict verdict, const std::string& reason)
{
    Counts counts;
    pugi::xml_node testcase = suite.append_child("testcase");
    setAttribute(testcase, "name", suiteName);
    setAttribute(testcase, "classname", suiteName);
    setAttribute(testcase, "time", secondsText(counts.time));
    addVerdict(testcase, verdict, reason, counts);
    return counts;
}

void addProperties(pugi::xml_node suite, const Run& run)
{
    pugi::xml_node properties = suite.append_child("properties");
    const auto add = [&properties](const std::string& key, const std::string& value) {
        if (!value.empty()) {
            pugi::xml_node property = properties.append_child("property");
            setAttribute(property, "name", key);
            setAttribute(property, "value", value);
        }
    };
    add("run", run.id);
    add("verdict", name(verdictOf(run)));
    add("unit.serial", run.unit.serial);
    add("unit.port", run.unit.port);
    add("unit.baud", fmt::to_string(run.unit.baud));
    add("line", lineText(run.line));
    add("uuid", run.uuid);
    add("station.line", run.station.line);
    add("station.operator", run.station.operatorName);
    add("station.version", run.station.version);
    add("plan.path", run.plan.path);
    add("plan.version", run.plan.version);
    add("verify_limits", run.verifies);
    add("plan.sha256", run.plan.sha256);
    for (const Run::Parameter& each : run.plan.parameters) {
        add("plan.parameter." + each.name, toText(each.value, each.unit));
    }
    add("catalogue.sha256", run.catalogueSha256);
}

std::string isoSeconds(std::chrono::system_clock::time_point time)
{
    // "2026-11-21 14:05:08 UTC" as JUnit's readers want it.
    std::string text = toText(time);
    text.resize(19);
    text[10] = 'T';
    return text;
}

pugi::xml_node beginSuite(pugi::xml_node root, const std::string& name, const Run& run)
{
    pugi::xml_node suite = root.append_child("testsuite");
    setAttribute(suite, "name", name);
    if (run.started != std::chrono::system_clock::time_point{}) {
        setAttribute(suite, "timestamp", isoSeconds(run.started));
    }
    setAttribute(suite, "hostname", run.station.host);
    return suite;
}

/// @returns the steps of a try that does not count, as lines.
std::string triesText(const Run& run, const std::string& which, const Group::Try& each, Groups groups)
{
    std::string text = fmt::format("{}: {}\n", which, name(verdictOf(each)));
    for (const Step& step : each.steps) {
        const std::string reason = reasonOf(step);
        text += fmt::format("{}: {}{}\n{}", printable(step.name), name(verdictOf(step)),
                            reason.empty() ? "" : ": " + printable(reason), protocolOf(run, step, groups));
    }
    return text;
}

Counts addGroup(pugi::xml_node root, const Run& run, const Phase& phase, const Group& group, Groups groups)
{
    const std::string suiteName = phase.name + "." + group.name;
    pugi::xml_node suite = beginSuite(root, suiteName, run);
    addProperties(suite, run);
    Counts counts;
    const std::vector<std::string> figures = roundLines(group);
    std::string about = fmt::format("{}{}", fmt::join(figures, "\n"), figures.empty() ? "" : "\n");
    for (std::size_t i = 0; i < group.tries.size(); ++i) {
        const Group::Try& each = group.tries[i];
        const std::string which = triesOf(group) > 1 ? fmt::format("try {}", numberOf(group, i) + 1) : "";
        if (each.superseded) {
            about += triesText(run, which, each, groups);
            continue;
        }
        const std::string suffix = !figures.empty() ? " (" + which + ")" : "";
        for (const Step& step : each.steps) {
            counts.add(addStep(suite, run, suiteName, step, suffix, groups));
        }
    }
    if (counts.tests == 0) {
        counts.add(addNote(suite, suiteName, verdictOf(group), reasonOf(phase)));
    }
    if (!about.empty()) {
        suite.append_child("system-out").text().set(about.c_str());
    }
    setAttribute(suite, counts);
    return counts;
}

}  // namespace

void junitReport(const Run& run, Groups groups, std::ostream& out)
{
    pugi::xml_document document;
    pugi::xml_node declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version") = "1.0";
    declaration.append_attribute("encoding") = "UTF-8";
    pugi::xml_node root = document.append_child("testsuites");
    setAttribute(root, "name", run.plan.title.empty() ? run.plan.name : run.plan.title);
    Counts counts;
    for (const Phase& phase : run.phases) {
        for (const Group& group : phase.groups) {
            counts.add(addGroup(root, run, phase, group, groups));
        }
    }
    const Headline headline = headlineOf(run);
    std::vector<Finding> outside = run.findings;
    std::erase_if(outside, [](const Finding& finding) { return !isBad(finding.verdict); });
    if (outside.empty() && (counts.tests == 0 || (isBad(headline.verdict) && counts.failures + counts.errors == 0))) {
        outside.push_back({headline.verdict, headline.reason});
    }
    if (!outside.empty()) {
        pugi::xml_node suite = beginSuite(root, "run", run);
        addProperties(suite, run);
        Counts notes;
        for (const Finding& finding : outside) {
            notes.add(addNote(suite, "run", finding.verdict, finding.text));
        }
        setAttribute(suite, notes);
        counts.add(notes);
    }
    if (!headline.beside.empty()) {
        pugi::xml_node suite = beginSuite(root, "beside", run);
        setAttribute(suite, Counts{});
        std::string text;
        for (const std::string& each : headline.beside) {
            text += printable(each) + '\n';
        }
        suite.append_child("system-out").text().set(text.c_str());
    }
    if (run.ended > run.started) {
        counts.time = durationOf(run);
    }
    setAttribute(root, counts);
    document.save(out, " ", pugi::format_default, pugi::encoding_utf8);
}

}  // namespace station::record
