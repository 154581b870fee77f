#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "protocol/catalogue/Model.h"
#include "station/record/RunRecord.h"
#include "station/trace/Pcapng.h"

namespace station::record {

/// A record could not be written: the disk is full, the directory is not writable. One line that names the file and
/// the reason.
class ResultsError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The record itself is complete; what belongs to it could not be written.
class ReportError : public ResultsError
{
public:
    /// @param cause "cannot write PATH: REASON"
    explicit ReportError(const std::string& cause)
        : ResultsError("a report is missing: " + cause + "; the record itself is complete")
    {
    }
};

/// Where results go when nobody says otherwise, below the current directory.
inline constexpr const char* kDefaultResults = "results";

/// The one truth of a run's folder; everything else in it can be made from it again.
inline constexpr const char* kRecordFile = "record.json";

/// Everything that passed on the line, up to a limit.
inline constexpr const char* kTraceFile = "trace.pcapng";

/// What a folder's name ends in while its run goes on, and for ever when the run was killed.
inline constexpr const char* kRunningSuffix = ".running";

/// @returns PLAN-YYYYMMDD-HHMMSS.mmm-PORT in UTC, made of letters, digits, '.', '_' and '-' only.
/// @param port path of the device; the last part of it counts.
std::string makeRunId(std::string_view planKey, std::chrono::system_clock::time_point started, std::string_view port);

/// @returns a new UUID (version 4) in small letters.
std::string makeUuid();

/// The folder of one run, which is called ID.running while the run goes on and ID once all of it is there.
/// Its record.json is there from the start and says ABORTED until the run has ended, so that also a run that was killed
/// leaves a record behind. Every file is replaced as a whole: it is the old one or the new one, never a part.
/// For one thread; several runs may share a results directory.
class ResultsFolder
{
public:
    /// Makes the folder (and `directory`, with its parents) and the first record in it.
    /// Puts "-2", "-3", … behind `run.id` when a folder of that name is there.
    /// @param groups what the record's frames are put into words with; catalogue::groups() outlives everything.
    /// Throws ResultsError.
    ResultsFolder(std::filesystem::path directory, Run& run, protocol::catalogue::Groups groups);
    ~ResultsFolder();
    ResultsFolder(const ResultsFolder&) = delete;
    ResultsFolder& operator=(const ResultsFolder&) = delete;

    /// Replaces record.json by what has been done so far, with the verdict ABORTED and no end time, whatever `run` says
    /// about these. To be called at the end of each group. Throws ResultsError; the record before it then stands.
    void save(const Run& run);

    /// Adds an event to trace.pcapng, with its meaning as comment. That file holds what came until the station was
    /// killed.
    void capture(const TraceEvent& event);

    /// Writes record.json, junit.xml and report.html, completes trace.pcapng, and gives the folder its final name.
    /// Throws ResultsError when record.json cannot be written: the folder keeps the name ID.running and the record
    /// before it. Throws ReportError when another file cannot be written: the folder has its final name and lacks that
    /// file.
    /// @returns the folder.
    std::filesystem::path finish(const Run& run);

    /// Writes record.json, junit.xml and report.html again, after finish(), for a run that has got another finding.
    /// Throws ResultsError when record.json cannot be written, ReportError when another file cannot be.
    void amend(const Run& run);

    /// Where the files are now.
    const std::filesystem::path& folder() const { return folder_; }

private:
    void openCapture();

    std::filesystem::path directory_;
    std::filesystem::path folder_;
    protocol::catalogue::Groups groups_;
    pcapng::Source source_;
    std::optional<pcapng::File> capture_;
    /// Why there is no capture; empty while there is one.
    std::string captureFailure_;
    int lock_ = -1;
};

}  // namespace station::record
