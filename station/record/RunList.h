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
    std::filesystem::path folder;
    std::string id;
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point ended;
    Verdict verdict = Verdict::kSkipped;
    std::string reason;
    std::string plan;
    std::string unit;
    /// The first step that went wrong; empty for none.
    std::string failedStep;
    std::size_t failedSteps = 0;
    /// Whether the run goes on, so its verdict may change.
    bool running = false;
};

/// Reads the first and the last line of a record of schema 2, which may be long.
/// @param running whether the run goes on: then the first line suffices
/// @returns nothing if it does not end with the end of the run. Throws RecordError.
std::optional<ListedRun> readEnds(const std::filesystem::path& record, bool running);

struct RunList {
    /// The newest first.
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
/// folder or of a record.
/// @returns the path of its record. Throws protocol::UserError if there is none.
std::filesystem::path findRecord(const std::filesystem::path& directory, const std::string& run);

}  // namespace station::record
