#include "station/record/RunList.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "host/Descriptor.h"
#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/ResultsFolder.h"

namespace station::record {

namespace fs = std::filesystem;

namespace {

ListedRun summary(const fs::path& folder, const fs::path& record)
{
    const bool running = isRunning(folder);
    if (isOfLines(record)) {
        if (auto listed = readEnds(record, running)) {
            return *std::move(listed);
        }
    }
    const Run run = readRun(record);
    const Outcome outcome = outcomeOf(run);
    const Headline headline = headlineOf(run);
    return {.folder = folder,
            .id = run.id,
            .started = run.started,
            .ended = run.ended,
            .verdict = headline.verdict,
            .reason = headline.reason,
            .plan = run.plan.name.empty() ? run.plan.title : run.plan.name,
            .unit = run.unit.serial.empty() ? run.unit.port : run.unit.serial,
            .failedStep = outcome.failed.empty() ? "" : outcome.failed.front().step->name,
            .failedSteps = outcome.wrong,
            .running = running};
}

/// @returns the folders of a directory.
std::vector<fs::path> foldersOf(const fs::path& directory)
{
    std::error_code error;
    std::vector<fs::path> folders;
    for (fs::directory_iterator each(directory, error), end; !error && each != end; each.increment(error)) {
        std::error_code gone;
        if (each->is_directory(gone)) {
            folders.push_back(each->path());
        }
    }
    if (error == std::errc::no_such_file_or_directory) {
        const std::string place = (directory.is_relative() ? "." / directory : directory).string();
        throw protocol::StorageError(fmt::format("no results in {} yet (--results DIR)", place), protocol::kWrongUse);
    }
    if (error) {
        throw protocol::StorageError(fmt::format("{}: {}", directory.string(), protocol::unreadable(error.value())),
                                     protocol::kWrongUse);
    }
    std::ranges::sort(folders);
    return folders;
}

}  // namespace

bool isRunning(const fs::path& folder)
{
    if (!folder.filename().string().ends_with(kRunningSuffix)) {
        return false;
    }
    const host::Descriptor lock(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return lock.valid() && ::flock(lock.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

RunList listRuns(const fs::path& directory)
{
    RunList list;
    for (const fs::path& folder : foldersOf(directory)) {
        const fs::path record = recordIn(folder);
        if (record.empty()) {
            list.passedOver.push_back(folder);
            continue;
        }
        try {
            list.runs.push_back(summary(folder, record));
        } catch (const RecordError& broken) {
            list.broken.emplace_back(broken.what());
        }
    }
    std::ranges::stable_sort(list.runs, std::greater(), &ListedRun::started);
    return list;
}

fs::path findRecord(const fs::path& directory, const std::string& run)
{
    std::error_code error;
    if (run == "latest") {
        const RunList list = listRuns(directory);
        if (list.runs.empty()) {
            throw protocol::UserError("there is no run in " + directory.string());
        }
        return recordIn(list.runs.front().folder);
    }
    for (const fs::path& folder : {directory / run, directory / (run + kRunningSuffix), fs::path(run)}) {
        if (fs::path record = recordIn(folder); !record.empty()) {
            return record;
        }
    }
    if (fs::is_regular_file(run, error)) {
        return run;
    }
    throw protocol::UserError(
        fmt::format("{}: expected the name or path of a run's folder, or 'latest', got {}; see "
                    "'report list'",
                    directory.string(), protocol::inQuotes(run)));
}

}  // namespace station::record
