#include "station/record/ResultsFolder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>
#include <utility>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "station/ClockText.h"
#include "station/record/RecordJson.h"
#include "station/record/Reports.h"
#include "station/record/StoredFile.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace fs = std::filesystem;

namespace {

/// Some two million short frames; Wireshark opens that.
constexpr std::int64_t kLargestCapture = std::int64_t{256} << 20;

constexpr const char* kUnfinished = "the run did not end: the station was stopped or lost its power";

[[noreturn]] void failToMake(const fs::path& path, int error)
{
    throw protocol::StorageError(fmt::format("cannot make {}: {}", path.string(), std::strerror(error)));
}

std::string plain(std::string_view text)
{
    // Well below the limit of a file system, with room for the parts around it.
    constexpr std::size_t kLongest = 64;
    std::string out(text.substr(0, kLongest));
    for (char& c : out) {
        const bool harmless = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                              c == '_' || c == '-';
        c = harmless ? c : '-';
    }
    return out;
}

nlohmann::ordered_json unfinished(const Run& run, protocol::catalogue::Groups groups)
{
    auto json = toJson(run, groups);
    json["ended"] = nullptr;
    json["verdict"] = name(Verdict::kAborted);
    json["reason"] = kUnfinished;
    json["findings"].push_back({{"verdict", name(Verdict::kAborted)}, {"text", kUnfinished}});
    return json;
}

/// @returns whether this program has got the folder; false if a run has that name already.
bool takeName(const fs::path& running, const fs::path& final)
{
    if (::mkdir(running.c_str(), 0750) != 0) {
        if (errno == EEXIST) {
            return false;
        }
        failToMake(running, errno);
    }
    std::error_code error;
    // Only the owner of ID.running may become ID, so no other run takes the name after this check.
    if (fs::symlink_status(final, error).type() != fs::file_type::not_found) {
        ::rmdir(running.c_str());
        return false;
    }
    return true;
}

void expectNoFailure(const std::string& ofReport)
{
    if (!ofReport.empty()) {
        throw protocol::StorageError(fmt::format("a report is missing: {}; the record itself is complete", ofReport));
    }
}

}  // namespace

std::string makeRunId(std::string_view planKey, std::chrono::system_clock::time_point started, std::string_view port)
{
    const std::string time = formatUtc(started, "%Y%m%d-%H%M%S") + fractionOfSecond(started, 3);
    const std::string device = plain(port.substr(port.rfind('/') + 1));
    std::string id = plain(planKey) + '-' + time + (device.empty() ? "" : "-" + device);
    // A name that begins with a dot would hide.
    if (id.front() == '.') {
        id.front() = '-';
    }
    return id;
}

std::string makeUuid()
{
    const std::unique_ptr<gchar, decltype(&g_free)> text(g_uuid_string_random(), g_free);
    return text.get();
}

ResultsFolder::ResultsFolder(fs::path directory, Run& run, protocol::catalogue::Groups groups)
    : directory_(std::move(directory))
    , groups_(groups)
    , source_{"engineering-station " + run.station.version, run.unit.port, run.unit.baud}
{
    std::error_code error;
    fs::create_directories(directory_, error);
    if (error) {
        failToMake(directory_, error.value());
    }
    if (run.id.empty() || run.id.find('/') != std::string::npos || run.id == "." || run.id == "..") {
        throw protocol::StorageError("expected the name of a folder, got " + protocol::inQuotes(run.id));
    }
    const std::string wanted = run.id;
    for (int n = 2; !takeName(folder_ = directory_ / (run.id + kRunningSuffix), directory_ / run.id); ++n) {
        run.id = fmt::format("{}-{}", wanted, n);
    }
    // Held while the run goes on: by it `report list` tells such a run from one that was killed.
    lock_.reset(::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (lock_.valid()) {
        // Readers hold it only for a moment.
        ::flock(lock_.get(), LOCK_EX);
    }
    try {
        save(run);
        syncDirectory(directory_);
    } catch (...) {
        fs::remove_all(folder_, error);
        throw;
    }
}

void ResultsFolder::save(const Run& run)
{
    writeAtomically(folder_ / kRecordFile, serialise(unfinished(run, groups_)));
}

void ResultsFolder::openCapture()
{
    if (capture_ || !captureFailure_.empty()) {
        return;
    }
    try {
        capture_.emplace(
            folder_ / kTraceFile, source_,
            [attribution = Attribution(groups_)](const TraceEvent& event) mutable {
                return describe(attribution.groups(), event, attribution.on(event).decoded);
            },
            kLargestCapture);
    } catch (const std::system_error& error) {
        captureFailure_ = error.what();
    }
}

void ResultsFolder::capture(const TraceEvent& event)
{
    openCapture();
    if (capture_) {
        capture_->on(event);
        captureFailure_ = capture_->failure();
    }
}

void ResultsFolder::writeRecord(const nlohmann::ordered_json& json)
{
    try {
        writeAtomically(folder_ / kRecordFile, serialise(json));
    } catch (const protocol::StorageError& error) {
        throw protocol::StorageError(fmt::format("not recorded: {}", error.what()));
    }
}

std::string ResultsFolder::writeReports(const Run& run)
{
    std::string failure;
    for (const ReportFormat& format : kReportFormats) {
        try {
            if (format.file != nullptr) {
                writeAtomically(folder_ / format.file, format.write(run, groups_));
            }
        } catch (const std::exception& error) {
            // The first tells the cause: a full disk fails the others, too.
            failure = failure.empty() ? error.what() : failure;
        }
    }
    return failure;
}

void ResultsFolder::amend(const Run& run)
{
    writeRecord(toJson(run, groups_));
    expectNoFailure(writeReports(run));
}

void ResultsFolder::finish(const Run& run)
{
    writeRecord(toJson(run, groups_));
    openCapture();
    capture_.reset();
    const std::string ofReports = writeReports(run);
    std::string failure = captureFailure_.empty() ? ofReports : captureFailure_;

    const fs::path final = directory_ / run.id;
    if (std::rename(folder_.c_str(), final.c_str()) != 0) {
        throw protocol::StorageError(fmt::format("not recorded: cannot rename {} to {}: {}", folder_.string(),
                                                 final.string(), std::strerror(errno)));
    }
    // The message names the file at its final place.
    if (const auto at = failure.find(folder_.string()); at != std::string::npos) {
        failure.replace(at, folder_.string().size(), final.string());
    }
    folder_ = final;
    syncDirectory(directory_);
    expectNoFailure(failure);
}

}  // namespace station::record
