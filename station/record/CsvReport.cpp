#include <fmt/format.h>
#include <fmt/ranges.h>

#include <array>
#include <optional>
#include <string_view>

#include "station/record/Outcome.h"
#include "station/record/Reports.h"
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

}  // namespace

std::string csvReport(const Run& run, Groups)
{
    std::string out = fmt::format("\"{}\"\r\n", fmt::join(kColumns, "\",\""));
    for (const PlacedStep& placed : outcomeOf(run).steps) {
        const Step& step = *placed.step;
        const std::string left =
            fmt::format("{},{},{},{},{},{},{},{},{}", textCell(run.id), textCell(run.unit.serial),
                        textCell(placed.phase->name), textCell(placed.group->name), placed.groupTry + 1,
                        textCell(step.name), textCell(step.kind), textCell(step.what), textCell(name(placed.verdict)));
        const auto add = [&](const Attempt* attempt, std::size_t number, const Measurement* measurement) {
            out += fmt::format("{},{},{},{},{},{},{}\r\n", left, attemptCells(attempt, number, step),
                               measurementCells(measurement), run.line.reconnects, run.line.repeatedSends,
                               run.line.corruptFrames, run.line.garbageBytes);
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
