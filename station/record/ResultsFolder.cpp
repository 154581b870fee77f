#include "station/record/ResultsFolder.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <ostream>
#include <system_error>
#include <utility>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "station/ClockText.h"
#include "station/record/RecordJson.h"
#include "station/record/Reports.h"
#include "station/record/RunFacts.h"
#include "station/record/StoredFile.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace fs = std::filesystem;

namespace {

/// Some two million short frames; Wireshark opens that.
constexpr std::int64_t kLargestCapture = std::int64_t{256} << 20;

/// The lines of a minute or more on a disk that is full for a while.
constexpr std::size_t kMostPending = std::size_t{8} << 20;

[[noreturn]] void failToMake(const fs::path& path, int error)
{
    throw protocol::StorageError(fmt::format("{}: cannot be made: {}", path.string(), std::strerror(error)));
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
    , attribution_(groups)
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
        const fs::path path = folder_ / kRecordFile;
        record_.reset(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0640));
        if (!record_.valid()) {
            failToMake(path, errno);
        }
        append(lines::started(run));
        if (!pending_.empty()) {
            throw protocol::StorageError(failure_);
        }
        ::fsync(record_.get());
        syncDirectory(folder_);
        syncDirectory(directory_);
    } catch (...) {
        fs::remove_all(folder_, error);
        throw;
    }
    syncer_ = std::jthread([this](const std::stop_token& stop) { syncEverySecond(stop); });
}

void ResultsFolder::append(Json line)
{
    steps_ += line["event"] == "step" ? 1 : 0;
    if (!claimed_.empty()) {
        line["claimed"] = std::exchange(claimed_, {});
    }
    pending_ += lost_ ? std::string() : toLine(line);
    write();
}

void ResultsFolder::write()
{
    std::size_t done = 0;
    while (done < pending_.size()) {
        const ssize_t written = ::write(record_.get(), pending_.data() + done, pending_.size() - done);
        if (written < 0 && errno != EINTR) {
            failure_ = fmt::format("{}: cannot be written: {}", (folder_ / kRecordFile).string(), std::strerror(errno));
            break;
        }
        done += static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
    pending_.erase(0, done);
    if (pending_.size() > kMostPending) {
        pending_.clear();
        lost_ = true;
    }
}

void ResultsFolder::note(const Run& run)
{
    Json facts = lines::facts(run);
    if (std::string text = facts.dump(-1, ' ', false, Json::error_handler_t::replace); text != noted_) {
        noted_ = std::move(text);
        append(std::move(facts));
    }
}

void ResultsFolder::syncEverySecond(const std::stop_token& stop) const
{
    std::mutex mutex;
    std::condition_variable_any never;
    std::unique_lock lock(mutex);
    while (!never.wait_for(lock, stop, std::chrono::milliseconds(900), [&stop] { return stop.stop_requested(); })) {
        for (const char* name : {kRecordFile, kTraceFile}) {
            const host::Descriptor file(::open((folder_ / name).c_str(), O_RDONLY | O_CLOEXEC));
            if (file.valid()) {
                ::fdatasync(file.get());
            }
        }
    }
}

void ResultsFolder::openCapture()
{
    if (capture_ || !captureFailure_.empty()) {
        return;
    }
    try {
        capture_.emplace(
            folder_ / kTraceFile, source_, [this](const TraceEvent&) { return meaning_; }, kLargestCapture);
    } catch (const std::system_error& error) {
        captureFailure_ = error.what();
    }
}

void ResultsFolder::capture(const TraceEvent& event)
{
    meaning_ = describe(groups_, event, attribution_.on(event).decoded);
    append(lines::line(events_++, event, protocol::printable(meaning_)));
    openCapture();
    if (capture_) {
        capture_->on(event);
        captureFailure_ = capture_->failure();
    }
}

void ResultsFolder::completeRecord(const Run& run)
{
    append(lines::ended(run));
    if (pending_.empty() && !lost_ && ::fsync(record_.get()) != 0) {
        failure_ = fmt::format("{}: cannot be written: {}", (folder_ / kRecordFile).string(), std::strerror(errno));
        lost_ = true;
    }
    if (!pending_.empty() || lost_) {
        throw protocol::StorageError("not recorded: " + failure_);
    }
}

std::string ResultsFolder::writeReports(const Run& run)
{
    std::string failure;
    for (const ReportFormat& format : kReportFormats) {
        const bool whole = format.write == jsonReport;
        if (format.file == nullptr || (whole && steps_ > RunFacts::kWholeRun)) {
            continue;
        }
        try {
            writeAtomically(folder_ / format.file, [&](std::ostream& out) {
                if (whole) {
                    writeReport(format, folder_ / kRecordFile, groups_, out);
                } else {
                    format.write(run, groups_, out);
                }
            });
        } catch (const std::exception& error) {
            // The first tells the cause: a full disk fails the others, too.
            failure = failure.empty() ? error.what() : failure;
        }
    }
    return failure;
}

void ResultsFolder::amend(const Run& run)
{
    completeRecord(run);
    expectNoFailure(writeReports(run));
}

void ResultsFolder::finish(const Run& run)
{
    syncer_ = {};
    completeRecord(run);
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

fs::path recordIn(const fs::path& folder)
{
    std::error_code error;
    for (const char* name : {kRecordFile, kWholeRecordFile}) {
        if (fs::exists(folder / name, error)) {
            return folder / name;
        }
    }
    return {};
}

}  // namespace station::record
