#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/catalogue/Model.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/RunList.h"
#include "station/record/RunRecord.h"
#include "station/record/RunStatistics.h"

/// The reports that are made from a run record. A new format needs its writer in FORMATReport.cpp, a declaration and a
/// row here, and its tests in ReportsTest.cpp.
namespace station::record {

using protocol::catalogue::Groups;

/// Writes the run as one HTML page that needs no other file, no script and no knowledge of the tool. It begins with
/// the steps that went wrong, with the expected and the actual values. The page is well-formed XML, too.
void htmlReport(const Run& run, Groups groups, std::ostream& out);

/// Writes the run as JUnit XML: a test suite for each group, a test case for each step; docs/results.md describes it.
/// A run that did not pass always has a test case that did not.
void junitReport(const Run& run, Groups groups, std::ostream& out);

/// Writes the run as CSV (RFC 4180, UTF-8, with a header line): a line for each measurement, each attempt without
/// measurements and each step without attempts. An apostrophe precedes texts that a spreadsheet would run as a formula.
void csvReport(const Run& run, Groups groups, std::ostream& out);

/// The same with the steps of a record of schema 2, also those that `run` leaves out.
void csvReport(const Run& run, const std::filesystem::path& record, std::ostream& out);

/// Writes the text of record.json. U+FFFD replaces bytes that are not UTF-8.
void jsonReport(const Run& run, Groups groups, std::ostream& out);

struct ReportFormat {
    const char* name;
    /// The file that every run leaves in its folder; nullptr for a format that is made on demand.
    const char* file;
    /// @param groups put the frames into words
    void (*write)(const Run& run, Groups groups, std::ostream& out);
};

inline constexpr auto kReportFormats = std::to_array<ReportFormat>({
    {"html", "report.html", htmlReport},
    {"junit", "junit.xml", junitReport},
    {"csv", nullptr, csvReport},
    {"json", "record.json", jsonReport},
});

/// Writes the report from a record of either schema.
/// @returns the run's id.
std::string writeReport(const ReportFormat& format, const std::filesystem::path& record, Groups groups,
                        std::ostream& out);

/// @returns "try 3 of 9", "tries 3 to 7 of 9 (5)" for failures that are equal; empty for a group with one try.
std::string whichTries(const std::vector<PlacedStep>& equal);

/// Writes the steps of many runs as CSV, with columns for the run in front of those of csvReport().
/// @param broken gets the errors of records that cannot be read; the others follow
void csvReport(std::span<const ListedRun> runs, std::ostream& out,
               const std::function<void(const RecordError&)>& broken);

// Statistics of many runs.

/// @returns the tables for a terminal.
std::string textReport(const RunStatistics& statistics);
Json toJson(const RunStatistics& statistics);
/// Writes one table: a line for each plan, each common failure and each measurement.
void csvReport(const RunStatistics& statistics, std::ostream& out);
/// Writes one HTML page like htmlReport() of a run, with histograms.
/// @param subject what the numbers are about: the directory and the filter
void htmlReport(const RunStatistics& statistics, const std::string& subject, std::ostream& out);

// The figures of a repeated group.

/// @returns "1000000 rounds, 3 failed. Shown: all 3 that failed and one that passed."
std::string roundsText(const Group& group, const Rounds& rounds);

inline constexpr auto kFigures =
    std::to_array<const char*>({"measurement", "count", "missed", "minimum", "mean", "maximum", "std. dev."});

/// @returns a measurement's cells under kFigures.
std::vector<std::string> figuresOf(const RepeatedMeasurement& measurement);

/// @returns "2026-11-21 14:05:08 UTC, 2 min 8 s: 3 of 1200 rounds failed".
std::string intervalText(const Timeline& timeline, std::size_t index);

/// @returns all of them as lines, with a table of the measurements; nothing for a group that was run once.
std::vector<std::string> roundLines(const Group& group);

struct TextStyle {
    bool colour = false;
    /// Shows the frames of every step, not only of those that went wrong.
    bool allFrames = false;
};

/// @returns the run for a terminal: the steps that went wrong, then every step.
std::string textReport(const Run& run, Groups groups, TextStyle style);

/// @returns the name of a verdict in its colour.
std::string coloured(Verdict verdict, bool colour);

}  // namespace station::record
