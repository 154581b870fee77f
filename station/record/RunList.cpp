#include "station/record/RunList.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <glib.h>
#include <sys/file.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <memory>
#include <utility>

#include "host/Descriptor.h"
#include "protocol/Errors.h"
#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "station/record/ResultsFolder.h"
#include "station/record/RunIndex.h"

namespace station::record {

namespace fs = std::filesystem;

bool RunFilter::matches(const ListedRun& run) const
{
    return (plan.empty() || run.plan == plan) && (serial.empty() || run.serial == serial) &&
           (!running || run.running) && (!verdict || (!run.running && run.verdict == *verdict)) &&
           (!since || run.started >= *since);
}

std::optional<std::chrono::system_clock::time_point> parseSince(const std::string& text,
                                                                std::chrono::system_clock::time_point now)
{
    // Far below what nanoseconds in 64 bits reach.
    constexpr double kOldest = 4e9;
    constexpr std::array<std::pair<std::string_view, double>, 2> kLong{{{"d", 86'400}, {"w", 604'800}}};
    std::optional<double> age;
    if (const auto quantity = protocol::parseQuantity(text); quantity && !quantity->unit.empty()) {
        const auto* unit = std::ranges::find(kLong, quantity->unit, &std::pair<std::string_view, double>::first);
        age = unit == kLong.end() ? protocol::parseSeconds(text) : std::optional(quantity->number * unit->second);
    }
    if (age) {
        return *age >= 0 && *age <= kOldest ? std::optional(now - std::chrono::milliseconds(std::llround(*age * 1e3)))
                                            : std::nullopt;
    }
    constexpr std::size_t kDate = 10;
    const std::string whole = text.size() == kDate ? text + "T00:00:00Z" : text;
    const std::unique_ptr<GTimeZone, decltype(&g_time_zone_unref)> utc(g_time_zone_new_utc(), g_time_zone_unref);
    const std::unique_ptr<GDateTime, decltype(&g_date_time_unref)> moment(
        g_date_time_new_from_iso8601(whole.c_str(), utc.get()), g_date_time_unref);
    const auto seconds = moment == nullptr ? 0 : g_date_time_to_unix(moment.get());
    return moment != nullptr && std::abs(static_cast<double>(seconds)) <= kOldest
               ? std::optional(std::chrono::system_clock::time_point(std::chrono::seconds(seconds)))
               : std::nullopt;
}

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
    return RunIndex(directory).list();
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
    if (fs::is_directory(directory, error)) {
        const RunList list = listRuns(directory);
        if (const auto found = std::ranges::find(list.runs, run, &ListedRun::serial); found != list.runs.end()) {
            return recordIn(found->folder);
        }
    }
    throw protocol::UserError(
        fmt::format("{}: expected the name or path of a run's folder, a serial number or 'latest', "
                    "got {}; see 'report list'",
                    directory.string(), protocol::inQuotes(run)));
}

}  // namespace station::record
