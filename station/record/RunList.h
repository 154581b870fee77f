#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "station/record/RecordJson.h"
#include "station/record/RunRecord.h"

/// The runs in a results directory.
namespace station::record {

/// The runs cannot be listed, or there is none of that name; one line.
class StoreError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// What a list says of a run.
struct ListedRun {
    std::filesystem::path folder;
    std::string id;
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point ended;
    Verdict verdict = Verdict::kSkipped;
    std::string reason;
    std::string plan;
    std::string unit;
    /// Name of the first step that went wrong; empty for none.
    std::string failedStep;
    std::size_t failedSteps = 0;
    /// Whether somebody still works on it: its verdict is not the last word.
    bool running = false;
};

struct RunList {
    /// The newest first.
    std::vector<ListedRun> runs;
    /// Records that cannot be read, one line each with path and place.
    std::vector<std::string> broken;
    /// Folders without a record.
    std::vector<std::filesystem::path> passedOver;
};

/// Throws StoreError when `directory` cannot be read.
RunList listRuns(const std::filesystem::path& directory);

/// @param run "latest", the name of a run's folder in `directory` (".running" may be left out), the path of a run's
/// folder or of a record.json.
/// @returns the path of its record.json. Throws StoreError when there is none.
std::filesystem::path findRecord(const std::filesystem::path& directory, const std::string& run);

}  // namespace station::record
