#include "station/record/ResultsFolder.h"

#include <fcntl.h>
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

#include "station/ClockText.h"
#include "station/record/AtomicFile.h"
#include "station/record/HtmlReport.h"
#include "station/record/JunitReport.h"
#include "station/record/RecordJson.h"
#include "station/trace/Describe.h"

namespace station::record {

namespace fs = std::filesystem;

namespace {

/// Some two million short frames; Wireshark opens that.
constexpr std::int64_t kLargestCapture = std::int64_t{256} << 20;

constexpr const char* kUnfinished = "the run did not end: the station was stopped or lost its power";

[[noreturn]] void fail(const std::string& what, const fs::path& path, int error)
{
    throw ResultsError("cannot " + what + " " + path.string() + ": " + std::strerror(error));
}

std::string plain(std::string_view text)
{
    // Well below what a file system takes, with room for what is put around it.
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

/// @returns whether the folder is this program's own now; false when a run of that name is there.
bool takeName(const fs::path& running, const fs::path& final)
{
    if (::mkdir(running.c_str(), 0750) != 0) {
        if (errno == EEXIST) {
            return false;
        }
        fail("make", running, errno);
    }
    std::error_code error;
    // Only who has ID.running may become ID: asked in this order, nobody slips in between.
    if (fs::symlink_status(final, error).type() != fs::file_type::not_found) {
        ::rmdir(running.c_str());
        return false;
    }
    return true;
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
        fail("make", directory_, error.value());
    }
    if (run.id.empty() || run.id.find('/') != std::string::npos || run.id == "." || run.id == "..") {
        throw ResultsError("'" + run.id + "' cannot name a folder");
    }
    const std::string wanted = run.id;
    for (int n = 2; !takeName(folder_ = directory_ / (run.id + kRunningSuffix), directory_ / run.id); ++n) {
        run.id = wanted + '-' + std::to_string(n);
    }
    // Held as long as the run goes on: `report list` tells a run that goes on from one that was killed by it.
    lock_ = ::open(folder_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (lock_ >= 0) {
        // Readers hold it for a moment only.
        ::flock(lock_, LOCK_EX);
    }
    try {
        save(run);
        syncDirectory(directory_);
    } catch (...) {
        fs::remove_all(folder_, error);
        ::close(lock_);
        throw;
    }
}

ResultsFolder::~ResultsFolder()
{
    if (lock_ >= 0) {
        ::close(lock_);
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

void ResultsFolder::amend(const Run& run)
{
    writeAtomically(folder_ / kRecordFile, serialise(toJson(run, groups_)));
    try {
        writeAtomically(folder_ / kJunitFile, junitReport(run, groups_));
        writeAtomically(folder_ / kHtmlFile, htmlReport(run, groups_));
    } catch (const std::exception& error) {
        throw ReportError(error.what());
    }
}

fs::path ResultsFolder::finish(const Run& run)
{
    writeAtomically(folder_ / kRecordFile, serialise(toJson(run, groups_)));

    std::string trouble;
    const auto attempt = [&trouble](const auto& write) {
        try {
            write();
        } catch (const std::exception& error) {
            // The first tells the cause: a full disk fails the others, too.
            trouble = trouble.empty() ? error.what() : trouble;
        }
    };
    attempt([&] {
        openCapture();
        if (!captureFailure_.empty()) {
            throw ResultsError(captureFailure_);
        }
        capture_.reset();
    });
    attempt([&] { writeAtomically(folder_ / kJunitFile, junitReport(run, groups_)); });
    attempt([&] { writeAtomically(folder_ / kHtmlFile, htmlReport(run, groups_)); });

    const fs::path final = directory_ / run.id;
    if (std::rename(folder_.c_str(), final.c_str()) != 0) {
        fail("rename " + folder_.string() + " to", final, errno);
    }
    // Its message, should one come, names the file where it is now.
    if (const auto at = trouble.find(folder_.string()); at != std::string::npos) {
        trouble.replace(at, folder_.string().size(), final.string());
    }
    folder_ = final;
    syncDirectory(directory_);
    if (!trouble.empty()) {
        throw ReportError(trouble);
    }
    return folder_;
}

}  // namespace station::record
