#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "station/record/RunRecord.h"

/// The runs in a results directory.
namespace station::record {

/// A run in a list.
struct ListedRun {
    /// The path of its folder.
    std::string folder;
    std::string id;
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point ended;
    Verdict verdict = Verdict::kSkipped;
    std::string reason;
    std::string plan;
    std::string planVersion;
    /// As in Run.
    std::string verifies;
    /// Empty if it is not known.
    std::string serial;
    std::string port;
    Run::StationInfo station;
    LineQuality line;
    /// The first step that went wrong; empty for none.
    std::string failedStep;
    std::size_t failedSteps = 0;
    /// Whether the run goes on, so its verdict may change.
    bool running = false;
    /// Differs when the record differs; empty if that is not certain.
    std::string stamp = {};

    /// @returns its serial number, or the port if that is not known.
    const std::string& unit() const { return serial.empty() ? port : serial; }
};

/// Reads the first and the last line of a record of schema 2, which may be long.
/// @param running whether the run goes on: then the first line suffices
/// @returns nothing if it does not end with the end of the run. Throws RecordError.
std::optional<ListedRun> readEnds(const std::filesystem::path& record, bool running);

/// Which runs are wanted; what is empty does not matter.
struct RunFilter {
    std::string plan;
    std::string serial;
    std::optional<Verdict> verdict;
    /// Only those that go on; none that go on match `verdict`.
    bool running = false;
    std::optional<std::chrono::system_clock::time_point> since;

    bool matches(const ListedRun& run) const;
};

/// Reads an age ("7d", "12 h", "30min") or a moment in UTC ("2026-11-21", "2026-11-21T14:05:08Z").
/// @returns nothing for any other text.
std::optional<std::chrono::system_clock::time_point> parseSince(const std::string& text,
                                                                std::chrono::system_clock::time_point now);

struct RunList {
    /// The newest first; runs of the same moment by the names of their folders.
    std::vector<ListedRun> runs;
    /// A line for each record that cannot be read, with path and place.
    std::vector<std::string> broken;
    /// Folders without a record.
    std::vector<std::filesystem::path> passedOver;
};

/// Throws protocol::StorageError if `directory` cannot be read.
RunList listRuns(const std::filesystem::path& directory);

/// @returns whether a station still writes into a run's folder.
bool isRunning(const std::filesystem::path& folder);

/// @param run "latest", the name of a run's folder in `directory` (".running" may be left out), the path of a run's
/// folder or of a record, or the serial number of a unit, which means its latest run.
/// @returns the path of its record. Throws protocol::UserError if there is none.
std::filesystem::path findRecord(const std::filesystem::path& directory, const std::string& run);

}  // namespace station::record
