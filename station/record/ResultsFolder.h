#pragma once

#include <chrono>
#include <filesystem>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/Descriptor.h"
#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"
#include "station/trace/Attribution.h"
#include "station/trace/Pcapng.h"

namespace station::record {

/// The default results directory, below the working directory.
inline constexpr const char* kDefaultResults = "results";

/// The record: the facts of the run, as they came. The other files of the folder, except for the trace, can be made
/// from it again.
inline constexpr const char* kRecordFile = "record.jsonl";

/// The record of a run of up to RunFacts::kWholeRun steps as one object, and the only record of older runs.
inline constexpr const char* kWholeRecordFile = "record.json";

/// The events of the line, up to a limit.
inline constexpr const char* kTraceFile = "trace.pcapng";

/// The end of a folder's name while its run goes on. It stays if the run is killed.
inline constexpr const char* kRunningSuffix = ".running";

/// @returns PLAN-YYYYMMDD-HHMMSS.mmm-PORT in UTC, of letters, digits, '.', '_' and '-' only.
/// @param port path of the device; the id has its last part
std::string makeRunId(std::string_view planKey, std::chrono::system_clock::time_point started, std::string_view port);

/// @returns a new UUID (version 4) in small letters.
std::string makeUuid();

/// The folder of one run. Its name is ID.running while the run goes on, and ID as soon as it is complete. Its record
/// and its capture grow with each fact and are on the disk within a second, so a run that is killed leaves both. For
/// one thread; several runs may share a results directory.
class ResultsFolder
{
public:
    /// Makes the folder (and `directory`, with its parents) and begins the record.
    /// Appends "-2", "-3", … to `run.id` if a folder has that name already.
    /// @param groups put the frames into words; they outlive this object
    /// Throws protocol::StorageError.
    ResultsFolder(std::filesystem::path directory, Run& run, protocol::catalogue::Groups groups);
    ResultsFolder(const ResultsFolder&) = delete;
    ResultsFolder& operator=(const ResultsFolder&) = delete;

    /// Adds a line to the record. What cannot be written is written with a later line, up to a limit.
    void append(nlohmann::ordered_json line);

    /// Adds the facts of the run as a whole to the record, if they have changed.
    void note(const Run& run);

    /// Adds the next event of the line to the record and, with its meaning as comment, to trace.pcapng.
    void capture(const TraceEvent& event);

    /// A step has used the event of this number.
    void claim(std::size_t number) { claimed_.push_back(number); }

    /// Completes the record and trace.pcapng, writes the reports, and gives the folder its final name.
    /// Throws protocol::StorageError. "not recorded: REASON": a part of the record cannot be written, so the folder
    /// keeps the name ID.running. "a report is missing: REASON; …": the folder has its final name and lacks that file.
    void finish(const Run& run);

    /// Completes the record and writes the reports again, after finish(), for a run that has got another finding.
    /// Throws like finish().
    void amend(const Run& run);

    /// Where the files are now.
    const std::filesystem::path& folder() const { return folder_; }

private:
    void openCapture();
    void write();
    void completeRecord(const Run& run);
    /// @returns why the first report could not be written; empty if all were.
    std::string writeReports(const Run& run);
    void syncEverySecond(const std::stop_token& stop) const;

    std::filesystem::path directory_;
    std::filesystem::path folder_;
    protocol::catalogue::Groups groups_;
    pcapng::Source source_;
    Attribution attribution_;
    /// Of the event that is being added.
    std::string meaning_;
    std::optional<pcapng::File> capture_;
    /// Why the capture ended; empty while it goes on.
    std::string captureFailure_;
    host::Descriptor lock_;
    host::Descriptor record_;
    /// Lines that could not be written yet.
    std::string pending_;
    /// Why; of the last try.
    std::string failure_;
    bool lost_ = false;
    std::size_t events_ = 0;
    std::size_t steps_ = 0;
    std::vector<std::size_t> claimed_;
    std::string noted_;
    std::jthread syncer_;
};

/// @returns the record in a run's folder; empty if there is none.
std::filesystem::path recordIn(const std::filesystem::path& folder);

}  // namespace station::record
