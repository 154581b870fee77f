#pragma once

#include <chrono>
#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "host/Descriptor.h"
#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"
#include "station/trace/Pcapng.h"

namespace station::record {

/// The default results directory, below the working directory.
inline constexpr const char* kDefaultResults = "results";

/// The run record. The other files of the folder, except for the trace, can be made from it again.
inline constexpr const char* kRecordFile = "record.json";

/// The events of the line, up to a limit.
inline constexpr const char* kTraceFile = "trace.pcapng";

/// The end of a folder's name while its run goes on. It stays if the run is killed.
inline constexpr const char* kRunningSuffix = ".running";

/// @returns PLAN-YYYYMMDD-HHMMSS.mmm-PORT in UTC, of letters, digits, '.', '_' and '-' only.
/// @param port path of the device; the id has its last part
std::string makeRunId(std::string_view planKey, std::chrono::system_clock::time_point started, std::string_view port);

/// @returns a new UUID (version 4) in small letters.
std::string makeUuid();

/// The folder of one run. Its name is ID.running while the run goes on, and ID as soon as it is complete. It has a
/// record.json from the start, with the verdict ABORTED until the run has ended, so a run that is killed leaves a
/// record, too. Every file is replaced as a whole. For one thread; several runs may share a results directory.
class ResultsFolder
{
public:
    /// Makes the folder (and `directory`, with its parents) and the first record in it.
    /// Appends "-2", "-3", … to `run.id` if a folder has that name already.
    /// @param groups put the frames into words; they outlive this object
    /// Throws protocol::StorageError.
    ResultsFolder(std::filesystem::path directory, Run& run, protocol::catalogue::Groups groups);
    ResultsFolder(const ResultsFolder&) = delete;
    ResultsFolder& operator=(const ResultsFolder&) = delete;

    /// Replaces record.json by the run so far, with the verdict ABORTED and without an end, whatever `run` says about
    /// these. To be called at the end of each group. Throws protocol::StorageError; the previous record then stays.
    void save(const Run& run);

    /// Adds an event to trace.pcapng, with its meaning as comment. If the station is killed, the file has all events so
    /// far.
    void capture(const TraceEvent& event);

    /// Writes record.json and the reports, completes trace.pcapng, and gives the folder its final name.
    /// Throws protocol::StorageError. "not recorded: REASON": record.json cannot be written, so the folder keeps the
    /// name ID.running and the previous record. "a report is missing: REASON; …": the folder has its final name and
    /// lacks that file.
    void finish(const Run& run);

    /// Writes record.json and the reports again, after finish(), for a run that has got another finding.
    /// Throws like finish().
    void amend(const Run& run);

    /// Where the files are now.
    const std::filesystem::path& folder() const { return folder_; }

private:
    void openCapture();
    void writeRecord(const nlohmann::ordered_json& json);
    /// @returns why the first report could not be written; empty if all were.
    std::string writeReports(const Run& run);

    std::filesystem::path directory_;
    std::filesystem::path folder_;
    protocol::catalogue::Groups groups_;
    pcapng::Source source_;
    std::optional<pcapng::File> capture_;
    /// Why the capture ended; empty while it goes on.
    std::string captureFailure_;
    host::Descriptor lock_;
};

}  // namespace station::record
