#include "station/record/CsvReport.h"

#include <array>
#include <optional>
#include <span>
#include <string_view>

#include "station/record/Outcome.h"
#include "station/record/ValueText.h"

namespace station::record {

namespace {

constexpr auto kColumns = std::to_array<std::string_view>(
    {"run",        "unit",           "phase",          "group",           "try",    "step",       "kind",
     "what",       "verdict",        "attempt",        "attempt_verdict", "reason", "duration_s", "measurement",
     "value",      "unit_of_value",  "minimum",        "maximum",         "equals", "matches",    "passed",
     "reconnects", "repeated_sends", "corrupt_frames", "garbage_bytes"});

/// Always in quotes: whatever separates cells for a spreadsheet, blanks and semicolons too, the cell stays one.
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

std::string scalarCell(const Scalar& value)
{
    if (const auto* number = std::get_if<double>(&value)) {
        return toText(*number);
    }
    if (const auto* yes = std::get_if<bool>(&value)) {
        return *yes ? "true" : "false";
    }
    return textCell(std::get<std::string>(value));
}

std::string limitCell(const std::optional<double>& limit)
{
    return limit ? toText(*limit) : "";
}

std::string attemptCells(const Attempt* attempt, std::size_t number, const Step& step)
{
    if (attempt == nullptr) {
        return ",," + textCell(reasonOf(step)) + ",";
    }
    return std::to_string(number) + ',' + textCell(name(attempt->verdict)) + ',' + textCell(attempt->reason) + ',' +
           toText(std::chrono::duration<double>(attempt->duration).count());
}

std::string measurementCells(const Measurement* measurement)
{
    if (measurement == nullptr) {
        return ",,,,,,,";
    }
    const Limits& limits = measurement->limits;
    return textCell(measurement->name) + ',' + scalarCell(measurement->value) + ',' + textCell(measurement->unit) +
           ',' + limitCell(limits.minimum) + ',' + limitCell(limits.maximum) + ',' +
           (limits.equals ? scalarCell(*limits.equals) : "") + ',' + (limits.matches ? textCell(*limits.matches) : "") +
           ',' + (measurement->passed ? "true" : "false");
}

}  // namespace

std::string csvReport(const Run& run)
{
    const std::string right = ',' + std::to_string(run.line.reconnects) + ',' + std::to_string(run.line.repeatedSends) +
                              ',' + std::to_string(run.line.corruptFrames) + ',' +
                              std::to_string(run.line.garbageBytes) + "\r\n";
    std::string out;
    for (const std::string_view column : kColumns) {
        out += (out.empty() ? "" : ",") + textCell(column);
    }
    out += "\r\n";
    for (const PlacedStep& placed : outcomeOf(run).steps) {
        const Step& step = *placed.step;
        const std::string left =
            textCell(run.id) + ',' + textCell(run.unit.serial) + ',' + textCell(placed.phase->name) + ',' +
            textCell(placed.group->name) + ',' + std::to_string(placed.groupTry + 1) + ',' + textCell(step.name) + ',' +
            textCell(step.kind) + ',' + textCell(step.what) + ',' + textCell(name(placed.verdict)) + ',';
        const auto add = [&](const Attempt* attempt, std::size_t number, const Measurement* measurement) {
            out += left + attemptCells(attempt, number, step) + ',' + measurementCells(measurement) + right;
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
    return out;
}

}  // namespace station::record
