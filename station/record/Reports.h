#pragma once

#include <array>
#include <string>
#include <string_view>

#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"

/// The reports that are made from a run record. A new format needs its writer in FORMATReport.cpp, a declaration and a
/// row here, and its tests in ReportsTest.cpp.
namespace station::record {

using protocol::catalogue::Groups;

/// @returns the run as one HTML page that needs no other file, no script and no knowledge of the tool. It begins with
/// the steps that went wrong, with the expected and the actual values. The page is well-formed XML, too.
std::string htmlReport(const Run& run, Groups groups);

/// @returns the run as JUnit XML: a test suite for each group, a test case for each step; docs/results.md describes it.
/// A run that did not pass always has a test case that did not.
std::string junitReport(const Run& run, Groups groups);

/// @returns the run as CSV (RFC 4180, UTF-8, with a header line): a line for each measurement, each attempt without
/// measurements and each step without attempts. An apostrophe precedes texts that a spreadsheet would run as a formula.
std::string csvReport(const Run& run, Groups groups);

/// @returns the text of record.json. U+FFFD replaces bytes that are not UTF-8.
std::string jsonReport(const Run& run, Groups groups);

struct ReportFormat {
    const char* name;
    /// The file that every run leaves in its folder; nullptr for a format that is made on demand.
    const char* file;
    /// @param groups put the frames into words
    std::string (*write)(const Run& run, Groups groups);
};

inline constexpr auto kReportFormats = std::to_array<ReportFormat>({
    {"html", "report.html", htmlReport},
    {"junit", "junit.xml", junitReport},
    {"csv", nullptr, csvReport},
    {"json", nullptr, jsonReport},  // the run's folder has record.json from the start
});

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
