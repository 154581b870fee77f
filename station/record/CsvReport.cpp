#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <optional>
#include <ostream>
#include <string_view>

#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/Reports.h"
#include "station/record/RunFacts.h"
#include "station/record/ValueText.h"

namespace station::record {

namespace {

constexpr auto kColumns = std::to_array<std::string_view>(
    {"run",        "unit",           "phase",          "group",           "try",    "step",       "kind",
     "what",       "verdict",        "attempt",        "attempt_verdict", "reason", "duration_s", "measurement",
     "value",      "unit_of_value",  "minimum",        "maximum",         "equals", "matches",    "passed",
     "reconnects", "repeated_sends", "corrupt_frames", "garbage_bytes"});

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
    CsvWriter(const Run& run, std::ostream& out)
        : out_(out)
        , left_(textCell(run.id) + ',' + textCell(run.unit.serial))
        , right_(fmt::format("{},{},{},{}\r\n", run.line.reconnects, run.line.repeatedSends, run.line.corruptFrames,
                             run.line.garbageBytes))
    {
        out_ << fmt::format("\"{}\"\r\n", fmt::join(kColumns, "\",\""));
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
    std::ostream& out_;
    const std::string left_;
    const std::string right_;
};

}  // namespace

void csvReport(const Run& run, Groups, std::ostream& out)
{
    CsvWriter writer(run, out);
    for (const PlacedStep& placed : outcomeOf(run).steps) {
        const std::size_t round = numberOf(*placed.group, placed.groupTry) + 1;
        writer.write({placed.phase->name, placed.group->name, round, 0, 0}, *placed.step);
    }
}

void csvReport(const Run& run, const std::filesystem::path& record, std::ostream& out)
{
    CsvWriter writer(run, out);
    readSteps(record, [&writer](const StepPlace& place, const Step& step) { writer.write(place, step); });
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
