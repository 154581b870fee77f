#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <ostream>
#include <string_view>
#include <vector>

#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/Reports.h"
#include "station/record/ResultsFolder.h"
#include "station/record/RunFacts.h"
#include "station/record/ValueText.h"

namespace station::record {

namespace {

constexpr auto kColumns = std::to_array<std::string_view>(
    {"run",        "unit",           "phase",          "group",           "try",    "step",       "kind",
     "what",       "verdict",        "attempt",        "attempt_verdict", "reason", "duration_s", "measurement",
     "value",      "unit_of_value",  "minimum",        "maximum",         "equals", "matches",    "passed",
     "reconnects", "repeated_sends", "corrupt_frames", "garbage_bytes"});

/// In front of kColumns for many runs.
constexpr auto kColumnsOfRun = std::to_array<std::string_view>(
    {"time", "station", "operator", "plan", "plan_version", "tool_version", "run_verdict"});

/// Always in quotes, so the cell stays one, whatever separates cells for a spreadsheet.
std::string textCell(std::string_view text)
{
    const std::string safe = printable(text);
    std::string out = "\"";
    if (!safe.empty() && std::string_view("=+-@").find(safe.front()) != std::string_view::npos) {
        out += '\'';
    }
    for (const char c : safe) {
        out += c == '"' ? "\"\"" : std::string(1, c);
    }
    return out + '"';
}

const char* flagCell(bool yes)
{
    return yes ? "true" : "false";
}

std::string scalarCell(const Scalar& value)
{
    if (const auto* number = std::get_if<double>(&value)) {
        return toText(*number);
    }
    const auto* yes = std::get_if<bool>(&value);
    return yes != nullptr ? flagCell(*yes) : textCell(std::get<std::string>(value));
}

std::string limitCell(const std::optional<double>& limit)
{
    return limit ? toText(*limit) : "";
}

std::string attemptCells(const Attempt* attempt, std::size_t number, const Step& step)
{
    return attempt == nullptr
               ? fmt::format(",,{},", textCell(reasonOf(step)))
               : fmt::format("{},{},{},{}", number, textCell(name(attempt->verdict)), textCell(attempt->reason),
                             toText(std::chrono::duration<double>(attempt->duration).count()));
}

std::string measurementCells(const Measurement* measurement)
{
    if (measurement == nullptr) {
        return ",,,,,,,";
    }
    const Limits& limits = measurement->limits;
    return fmt::format("{},{},{},{},{},{},{},{}", textCell(measurement->name), scalarCell(measurement->value),
                       textCell(measurement->unit), limitCell(limits.minimum), limitCell(limits.maximum),
                       limits.equals ? scalarCell(*limits.equals) : "", limits.matches ? textCell(*limits.matches) : "",
                       flagCell(measurement->passed));
}

/// Writes the lines of a step.
class CsvWriter
{
public:
    CsvWriter(const Run& run, std::ostream& out) : out_(out)
    {
        begin(run.id, run.unit.serial, run.line);
        out_ << header() << "\r\n";
    }

    explicit CsvWriter(std::ostream& out) : out_(out)
    {
        out_ << fmt::format("\"{}\",{}\r\n", fmt::join(kColumnsOfRun, "\",\""), header());
    }

    void begin(const ListedRun& run)
    {
        begin(run.id, run.serial, run.line);
        std::vector<std::string> cells{isoText(run.started), run.station.host,    run.station.operatorName, run.plan,
                                       run.planVersion,      run.station.version, name(run.verdict)};
        std::ranges::transform(cells, cells.begin(), textCell);
        left_ = fmt::format("{},{}", fmt::join(cells, ","), left_);
    }

    void write(const StepPlace& place, const Step& step)
    {
        const std::string left =
            fmt::format("{},{},{},{},{},{},{},{}", left_, textCell(place.phase), textCell(place.group), place.round,
                        textCell(step.name), textCell(step.kind), textCell(step.what), textCell(name(verdictOf(step))));
        const auto add = [&](const Attempt* attempt, std::size_t number, const Measurement* measurement) {
            out_ << left << ',' << attemptCells(attempt, number, step) << ',' << measurementCells(measurement) << ','
                 << right_;
        };
        if (step.attempts.empty()) {
            add(nullptr, 0, nullptr);
        }
        for (std::size_t i = 0; i < step.attempts.size(); ++i) {
            const Attempt& attempt = step.attempts[i];
            if (attempt.measurements.empty()) {
                add(&attempt, i + 1, nullptr);
            }
            for (const Measurement& measurement : attempt.measurements) {
                add(&attempt, i + 1, &measurement);
            }
        }
    }

private:
    static std::string header() { return fmt::format("\"{}\"", fmt::join(kColumns, "\",\"")); }

    void begin(const std::string& id, const std::string& serial, const LineQuality& line)
    {
        left_ = textCell(id) + ',' + textCell(serial);
        right_ =
            fmt::format("{},{},{},{}\r\n", line.reconnects, line.repeatedSends, line.corruptFrames, line.garbageBytes);
    }

    std::ostream& out_;
    std::string left_;
    std::string right_;
};

void writeSteps(const Run& run, CsvWriter& writer)
{
    for (const PlacedStep& placed : outcomeOf(run).steps) {
        const std::size_t round = numberOf(*placed.group, placed.groupTry) + 1;
        writer.write({placed.phase->name, placed.group->name, round}, *placed.step);
    }
}

}  // namespace

void csvReport(const Run& run, Groups, std::ostream& out)
{
    CsvWriter writer(run, out);
    writeSteps(run, writer);
}

void csvReport(const Run& run, const std::filesystem::path& record, std::ostream& out)
{
    CsvWriter writer(run, out);
    readSteps(record, [&writer](const StepPlace& place, const Step& step) { writer.write(place, step); });
}

void csvReport(std::span<const ListedRun> runs, std::ostream& out,
               const std::function<void(const RecordError&)>& broken)
{
    CsvWriter writer(out);
    for (const ListedRun& run : runs) {
        try {
            const auto record = recordIn(run.folder);
            writer.begin(run);
            if (isOfLines(record)) {
                readSteps(record, [&writer](const StepPlace& place, const Step& step) { writer.write(place, step); });
            } else {
                writeSteps(readRun(record), writer);
            }
        } catch (const RecordError& error) {
            broken(error);
        }
    }
}

void csvReport(const RunStatistics& statistics, std::ostream& out)
{
    constexpr auto kTitles = std::to_array<std::string_view>({"kind",
                                                              "plan",
                                                              "phase",
                                                              "group",
                                                              "step",
                                                              "measurement",
                                                              "unit",
                                                              "lower_limit",
                                                              "upper_limit",
                                                              "n",
                                                              "missed",
                                                              "mean",
                                                              "sigma_overall",
                                                              "sigma_within",
                                                              "minimum",
                                                              "maximum",
                                                              "cp_within",
                                                              "cpk_within",
                                                              "pp_overall",
                                                              "ppk_overall",
                                                              "units",
                                                              "first_pass_yield",
                                                              "retest_rate",
                                                              "share",
                                                              "cumulative_share"});
    using Cells = std::vector<std::pair<std::string_view, std::string>>;
    const auto number = [](std::optional<double> value) {
        return value && std::isfinite(*value) ? toText(*value) : std::string();
    };
    const auto line = [&out, &kTitles](const Cells& cells) {
        std::array<std::string, kTitles.size()> row;
        for (const auto& [title, cell] : cells) {
            row.at(static_cast<std::size_t>(std::ranges::find(kTitles, title) - kTitles.begin())) = cell;
        }
        out << fmt::format("{}\r\n", fmt::join(row, ","));
    };
    out << fmt::format("\"{}\"\r\n", fmt::join(kTitles, "\",\""));
    for (const PlanYield& each : statistics.plans) {
        line({{"kind", textCell("plan")},
              {"plan", textCell(each.plan)},
              {"n", fmt::to_string(each.runs)},
              {"units", fmt::to_string(each.units)},
              {"first_pass_yield", number(each.firstPassYield())},
              {"retest_rate", number(each.retestRate())}});
    }
    for (const CommonFailure& each : statistics.failures) {
        line({{"kind", textCell("failure")},
              {"plan", textCell(each.plan)},
              {"group", textCell(each.group)},
              {"step", textCell(each.step)},
              {"n", fmt::to_string(each.runs)},
              {"share", number(each.share)},
              {"cumulative_share", number(each.cumulative)}});
    }
    for (const MeasurementFigures& each : statistics.measurements) {
        const Statistic& numbers = each.series.numbers;
        const Limits& limits = each.key.limits;
        const auto exact = limits.equals ? std::optional(std::get<double>(*limits.equals)) : std::nullopt;
        line({{"kind", textCell("measurement")},
              {"plan", textCell(each.plan)},
              {"phase", textCell(each.key.phase)},
              {"group", textCell(each.key.group)},
              {"step", textCell(each.key.step)},
              {"measurement", textCell(each.key.name)},
              {"unit", textCell(each.key.unit)},
              {"lower_limit", number(exact ? exact : limits.minimum)},
              {"upper_limit", number(exact ? exact : limits.maximum)},
              {"n", fmt::to_string(numbers.count)},
              {"missed", fmt::to_string(each.series.missed)},
              {"mean", number(numbers.mean)},
              {"sigma_overall", number(sigmaOverall(numbers))},
              {"sigma_within", number(sigmaWithin(each.series))},
              {"minimum", number(numbers.minimum)},
              {"maximum", number(numbers.maximum)},
              {"cp_within", number(each.capability.cp)},
              {"cpk_within", number(each.capability.cpk)},
              {"pp_overall", number(each.capability.pp)},
              {"ppk_overall", number(each.capability.ppk)}});
    }
}

std::string writeReport(const ReportFormat& format, const std::filesystem::path& record, Groups groups,
                        std::ostream& out)
{
    const bool json = format.write == jsonReport;
    const Run run = readRun(record, json ? RunFacts::kWholeRun : 0);
    if (std::string_view(format.name) == "csv" && isOfLines(record)) {
        csvReport(run, record, out);
    } else {
        format.write(run, groups, out);
    }
    return run.id;
}

}  // namespace station::record
