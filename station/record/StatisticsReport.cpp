#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "protocol/Text.h"
#include "station/record/Html.h"
#include "station/record/Outcome.h"
#include "station/record/Reports.h"

namespace station::record {

namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string percent(double share)
{
    return std::isfinite(share) ? fmt::format("{:.1f} %", share * 100) : "-";
}

std::string indexText(std::optional<double> index)
{
    return index ? fmt::format("{:.2f}", *index) : "-";
}

std::string numberText(std::optional<double> number)
{
    return number ? fmt::format("{:.6g}", *number) : "-";
}

std::string placeOf(const CommonFailure& failure)
{
    return failure.step.empty() ? "outside of all steps" : fmt::format("{} / {}", failure.group, failure.step);
}

std::vector<std::string> cellsOf(const PlanYield& yield)
{
    return {fmt::to_string(yield.runs),         fmt::to_string(yield.units),   fmt::to_string(yield.firstPassed),
            percent(yield.firstPassYield()),    fmt::to_string(yield.retests), percent(yield.retestRate()),
            fmt::to_string(yield.withoutSerial)};
}

/// @returns the plans, and all of them together if there are several.
std::vector<std::pair<std::string, PlanYield>> yieldsOf(const RunStatistics& statistics)
{
    std::vector<std::pair<std::string, PlanYield>> all;
    for (const PlanYield& each : statistics.plans) {
        all.emplace_back(printable(each.plan), each);
    }
    if (all.size() > 1) {
        all.emplace_back("all plans", statistics.total());
    }
    return all;
}

/// @returns a sentence about the runs that do not count; empty for none.
std::string notCountedText(const RunStatistics& statistics)
{
    std::vector<std::string> parts;
    for (const auto& [word, runs] : statistics.notCounted) {
        parts.push_back(fmt::format("{} {}", runs, word));
    }
    return parts.empty() ? "" : fmt::format("Runs that do not count: {}.", fmt::join(parts, ", "));
}

std::string leftOutText()
{
    return fmt::format("Further measurements than these {} are left out.", RunStatistics::kMost);
}

constexpr auto kYieldTitles = std::to_array<const char*>(
    {"RUNS", "UNITS", "PASSED FIRST", "FIRST-PASS YIELD", "RETESTS", "RETEST RATE", "WITHOUT SERIAL"});

template <class Cells>
void append(std::vector<std::string>& row, const Cells& cells)
{
    row.insert(row.end(), cells.begin(), cells.end());
}

using html::add;
using html::addFact;
using html::addText;
using html::Node;
using html::set;

Node addTable(Node parent, const char* caption, const std::vector<std::string>& titles)
{
    Node table = add(parent, "table", "figures");
    addText(table, "caption", caption, "hidden");
    Node head = add(add(table, "thead"), "tr");
    for (const std::string& title : titles) {
        set(addText(head, "th", title), "scope", "col");
    }
    return add(table, "tbody");
}

Node addRow(Node table, const std::string& title, const std::vector<std::string>& cells)
{
    Node row = add(table, "tr");
    set(addText(row, "th", title), "scope", "row");
    for (const std::string& cell : cells) {
        addText(row, "td", cell, "num");
    }
    return row;
}

void addFailures(Node main, const RunStatistics& statistics)
{
    addText(main, "h2", "Where runs failed first");
    Node table = addTable(add(main, "div", "group"), "Failures, the most frequent first",
                          {"step", "plan", "runs", "share", "cumulative", ""});
    for (const CommonFailure& each : statistics.failures) {
        Node row = addRow(table, placeOf(each),
                          {each.plan, fmt::to_string(each.runs), percent(each.share), percent(each.cumulative)});
        Node bar = add(add(row, "td", "share-of"), "span", "share");
        set(bar, "style", fmt::format("width:{:.1f}%", each.share * 100));
    }
}

void addMeasurement(Node list, const MeasurementFigures& figures)
{
    const MeasurementKey& key = figures.key;
    Node box = add(list, "article", "group");
    addText(box, "h3", key.step == key.name ? key.name : fmt::format("{}: {}", key.step, key.name));
    const std::string limits = toText(key.limits, key.unit);
    addText(
        box, "p",
        fmt::format("{} › {} › {}{}", figures.plan, key.phase, key.group, limits.empty() ? "" : "; expected " + limits),
        "where");
    Node facts = add(box, "dl", "facts");
    const Statistic& numbers = figures.series.numbers;
    const auto withItsUnit = [&key](std::optional<double> number) { return withUnit(numberText(number), key.unit); };
    addFact(facts, "n", fmt::to_string(numbers.count));
    addFact(facts, "Missed", fmt::to_string(figures.series.missed), figures.series.missed > 0 ? "bad" : "");
    addFact(facts, "Minimum", withItsUnit(numbers.minimum));
    addFact(facts, "Maximum", withItsUnit(numbers.maximum));
    addFact(facts, "Mean", withItsUnit(numbers.mean));
    addFact(facts, "Sigma overall", withItsUnit(sigmaOverall(numbers)));
    addFact(facts, "Sigma within", withItsUnit(sigmaWithin(figures.series)));
    addFact(facts, "Cp (within)", indexText(figures.capability.cp));
    addFact(facts, "Cpk (within)", indexText(figures.capability.cpk));
    addFact(facts, "Pp (overall)", indexText(figures.capability.pp));
    addFact(facts, "Ppk (overall)", indexText(figures.capability.ppk));
    addHistogram(box, figures);
}

}  // namespace

std::string textReport(const RunStatistics& statistics)
{
    Rows yields{{"PLAN"}};
    append(yields.front(), kYieldTitles);
    for (const auto& [plan, yield] : yieldsOf(statistics)) {
        append(yields.emplace_back(std::vector{plan}), cellsOf(yield));
    }
    std::string text = protocol::table(yields);
    if (const std::string line = notCountedText(statistics); !line.empty()) {
        text += line + '\n';
    }
    if (!statistics.failures.empty()) {
        Rows rows{{"FAILED FIRST IN", "PLAN", "RUNS", "SHARE", "CUMULATIVE"}};
        for (const CommonFailure& each : statistics.failures) {
            rows.push_back({printable(placeOf(each)), printable(each.plan), fmt::to_string(each.runs),
                            percent(each.share), percent(each.cumulative)});
        }
        text += '\n' + protocol::table(rows);
    }
    if (statistics.measurements.empty()) {
        return text;
    }
    Rows rows{{"MEASUREMENT", "PLAN", "LIMITS", "N", "MISSED", "MINIMUM", "MEAN", "MAXIMUM", "SIGMA OVERALL",
               "SIGMA WITHIN", "CP WITHIN", "CPK WITHIN", "PP OVERALL", "PPK OVERALL"}};
    for (const MeasurementFigures& each : statistics.measurements) {
        const Statistic& numbers = each.series.numbers;
        const std::string limits = toText(each.key.limits, each.key.unit);
        rows.push_back({printable(fmt::format("{} / {}: {}", each.key.group, each.key.step, each.key.name)),
                        printable(each.plan), limits.empty() ? withUnit("-", each.key.unit) : limits,
                        fmt::to_string(numbers.count), fmt::to_string(each.series.missed), numberText(numbers.minimum),
                        numberText(numbers.mean), numberText(numbers.maximum), numberText(sigmaOverall(numbers)),
                        numberText(sigmaWithin(each.series)), indexText(each.capability.cp),
                        indexText(each.capability.cpk), indexText(each.capability.pp), indexText(each.capability.ppk)});
    }
    return text + '\n' + protocol::table(rows) + (statistics.cut ? leftOutText() + '\n' : "");
}

Json toJson(const RunStatistics& statistics)
{
    // JSON has no word for what is not a number.
    const auto number = [](std::optional<double> value) {
        return value && std::isfinite(*value) ? Json(*value) : Json();
    };
    Json plans = Json::array();
    for (const PlanYield& each : statistics.plans) {
        plans.push_back({{"plan", each.plan},
                         {"runs", each.runs},
                         {"passed", each.passed},
                         {"without_serial", each.withoutSerial},
                         {"units", each.units},
                         {"passed_first", each.firstPassed},
                         {"first_pass_yield", number(each.firstPassYield())},
                         {"retests", each.retests},
                         {"retest_rate", number(each.retestRate())}});
    }
    Json failures = Json::array();
    for (const CommonFailure& each : statistics.failures) {
        failures.push_back({{"plan", each.plan},
                            {"group", each.group},
                            {"step", each.step},
                            {"runs", each.runs},
                            {"share", number(each.share)},
                            {"cumulative_share", number(each.cumulative)}});
    }
    Json measurements = Json::array();
    for (const MeasurementFigures& each : statistics.measurements) {
        const Statistic& numbers = each.series.numbers;
        Json bins = Json::array();
        for (const Histogram::Bin& bin : each.series.histogram.bins()) {
            bins.push_back({{"from", bin.from}, {"to", bin.to}, {"count", bin.count}});
        }
        measurements.push_back({{"plan", each.plan},
                                {"phase", each.key.phase},
                                {"group", each.key.group},
                                {"step", each.key.step},
                                {"name", each.key.name},
                                {"unit", each.key.unit},
                                {"limits", limitsJson(each.key.limits)},
                                {"n", numbers.count},
                                {"missed", each.series.missed},
                                {"minimum", number(numbers.minimum)},
                                {"mean", number(numbers.mean)},
                                {"maximum", number(numbers.maximum)},
                                {"sigma_overall", number(sigmaOverall(numbers))},
                                {"sigma_within", number(sigmaWithin(each.series))},
                                {"cp_within", number(each.capability.cp)},
                                {"cpk_within", number(each.capability.cpk)},
                                {"pp_overall", number(each.capability.pp)},
                                {"ppk_overall", number(each.capability.ppk)},
                                {"histogram", std::move(bins)}});
    }
    return {{"plans", std::move(plans)},
            {"not_counted", statistics.notCounted},
            {"failures", std::move(failures)},
            {"measurements", std::move(measurements)},
            {"measurements_left_out", statistics.cut},
            {"broken", statistics.broken}};
}

void htmlReport(const RunStatistics& statistics, const std::string& subject, std::ostream& out)
{
    pugi::xml_document document;
    Node page = add(document.append_child("body"), "div", "page");
    Node top = add(page, "header", "top skipped");
    addText(add(top, "div", "title"), "h1", "Statistics");
    addText(top, "p", subject, "lead");
    if (const std::string line = notCountedText(statistics); !line.empty()) {
        addText(top, "p", line, "why");
    }
    const PlanYield total = statistics.total();
    Node facts = add(top, "dl", "facts");
    addFact(facts, "First-pass yield", percent(total.firstPassYield()));
    addFact(facts, "Units", fmt::format("{}, {} passed in their first run", total.units, total.firstPassed));
    addFact(facts, "Retest rate", percent(total.retestRate()));
    addFact(facts, "Runs", fmt::format("{}, {} retests", total.runs, total.retests));

    Node main = add(page, "main");
    addText(main, "h2", "Yield");
    std::vector<std::string> titles{"plan"};
    for (const char* title :
         {"runs", "units", "passed first", "first-pass yield", "retests", "retest rate", "runs without serial"}) {
        titles.emplace_back(title);
    }
    Node table = addTable(add(main, "div", "group"), "Yield of each plan", titles);
    for (const auto& [plan, yield] : yieldsOf(statistics)) {
        addRow(table, plan, cellsOf(yield));
    }
    if (!statistics.failures.empty()) {
        addFailures(main, statistics);
    }
    if (!statistics.measurements.empty()) {
        addText(main, "h2", "Measurements");
        addText(main, "p",
                "Within: from the differences of neighbours. Overall: from all numbers. The band is the allowed range.",
                "soft");
        Node list = add(main, "div", "measurements");
        for (const MeasurementFigures& each : statistics.measurements) {
            addMeasurement(list, each);
        }
    }
    if (statistics.cut) {
        addText(main, "p", leftOutText(), "soft");
    }
    for (const std::string& each : statistics.broken) {
        addText(main, "p", "Left out: " + each, "soft");
    }
    html::writePage(out, "Statistics – " + subject, document);
}

}  // namespace station::record
