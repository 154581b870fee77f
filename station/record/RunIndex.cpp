#include "station/record/RunIndex.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <glib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <iterator>
#include <map>
#include <numeric>
#include <system_error>
#include <utility>

#include "host/Descriptor.h"
#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "station/record/Outcome.h"
#include "station/record/RecordJson.h"
#include "station/record/ResultsFolder.h"
#include "station/record/StoredFile.h"

namespace station::record {

namespace fs = std::filesystem;

namespace {

/// Changes with everything that is kept.
constexpr std::int64_t kFormat = 2;

constexpr const char* kTables = R"(
    BEGIN IMMEDIATE;
    CREATE TABLE IF NOT EXISTS run(folder TEXT PRIMARY KEY, bytes BLOB) WITHOUT ROWID;
    CREATE TABLE IF NOT EXISTS keys(id INTEGER PRIMARY KEY, bytes BLOB UNIQUE);
    CREATE TABLE IF NOT EXISTS figures(folder TEXT PRIMARY KEY, keys INTEGER, bytes BLOB) WITHOUT ROWID;
    PRAGMA user_version = {};
    COMMIT)";

/// A program that is stopped while it writes must not hold up the others: they do without the database.
constexpr std::chrono::milliseconds kPatience{500};

/// So many records are read before their figures are kept.
constexpr std::size_t kBatch = 500;

/// A file system's clock may tick this seldom.
constexpr std::chrono::milliseconds kTick{100};

/// @returns a sum over the bytes, which are those of a folder. SQLite has none.
std::string sumOf(std::string_view folder, std::string_view bytes)
{
    Packer packer;
    packer.number(std::hash<std::string_view>()(folder) * 31 + std::hash<std::string_view>()(bytes));
    return packer.bytes();
}

std::string sealed(std::string_view folder, const std::string& bytes)
{
    return sumOf(folder, bytes) + bytes;
}

/// @returns the bytes behind their sum; nothing if the sum is wrong.
std::optional<std::string_view> unsealed(std::string_view folder, std::string_view bytes)
{
    constexpr std::size_t kSum = sizeof(std::size_t);
    const bool right = bytes.size() >= kSum && bytes.substr(0, kSum) == sumOf(folder, bytes.substr(kSum));
    return right ? std::optional(bytes.substr(kSum)) : std::nullopt;
}

/// The fields of a ListedRun that its record decides.
template <class Texts, class Numbers>
void eachField(auto& run, Texts texts, Numbers numbers)
{
    for (auto* text :
         {&run.id, &run.reason, &run.plan, &run.planVersion, &run.serial, &run.port, &run.station.host,
          &run.station.operatorName, &run.station.version, &run.station.line, &run.failedStep, &run.verifies}) {
        texts(*text);
    }
    for (auto* number : {&run.line.losses, &run.line.reconnects, &run.line.repeatedSends, &run.line.corruptFrames,
                         &run.line.garbageBytes, &run.failedSteps}) {
        numbers(*number);
    }
}

std::string packRun(const ListedRun& run)
{
    Packer packer;
    packer.text(run.stamp);
    packer.number(run.started.time_since_epoch().count());
    packer.number(run.ended.time_since_epoch().count());
    packer.number(static_cast<std::uint8_t>(run.verdict));
    eachField(
        run, [&packer](const std::string& text) { packer.text(text); },
        [&packer](std::size_t number) { packer.number(number); });
    return packer.bytes();
}

ListedRun unpackRun(std::string_view bytes)
{
    using Time = std::chrono::system_clock::time_point;
    Unpacker unpacker(bytes);
    ListedRun run;
    run.stamp = unpacker.text();
    run.started = Time(Time::duration(unpacker.number<Time::rep>()));
    run.ended = Time(Time::duration(unpacker.number<Time::rep>()));
    run.verdict = static_cast<Verdict>(std::min(unpacker.number<std::uint8_t>(), std::uint8_t(Verdict::kAborted)));
    eachField(
        run, [&unpacker](std::string& text) { text = unpacker.text(); },
        [&unpacker](std::size_t& number) { number = unpacker.number<std::size_t>(); });
    return run;
}

/// The folders of a results directory.
class Folders
{
public:
    explicit Folders(const fs::path& directory)
        : directory_(directory), descriptor_(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        const int error = errno;
        if (!descriptor_.valid() && error == ENOENT) {
            const std::string place = (directory.is_relative() ? "." / directory : directory).string();
            throw protocol::StorageError(fmt::format("no results in {} yet (--results DIR)", place),
                                         protocol::kWrongUse);
        }
        if (!descriptor_.valid()) {
            fail(error);
        }
        const auto close = [](DIR* stream) { ::closedir(stream); };
        const std::unique_ptr<DIR, decltype(close)> stream(::fdopendir(::fcntl(descriptor_.get(), F_DUPFD_CLOEXEC, 0)),
                                                           close);
        errno = stream == nullptr ? errno : 0;
        for (const dirent* entry = nullptr; stream != nullptr && (entry = ::readdir(stream.get())) != nullptr;) {
            const std::string_view name = entry->d_name;
            struct stat status {
            };
            const bool isFolder =
                entry->d_type == DT_DIR ||
                ((entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) &&
                 ::fstatat(descriptor_.get(), entry->d_name, &status, 0) == 0 && S_ISDIR(status.st_mode));
            if (isFolder && name != "." && name != "..") {
                names_.emplace_back(name);
            }
            errno = 0;
        }
        if (errno != 0) {
            fail(errno);
        }
        std::ranges::sort(names_);
    }

    const std::vector<std::string>& names() const { return names_; }

    /// @returns what changes when the record of a run does, beginning with the record's name; nothing without a record.
    std::optional<std::string> stampOf(const std::string& name) const
    {
        for (const char* file : {kRecordFile, kWholeRecordFile}) {
            struct stat status {
            };
            if (::fstatat(descriptor_.get(), fmt::format("{}/{}", name, file).c_str(), &status, 0) == 0) {
                Packer packer;
                packer.text(file);
                packer.number(status.st_ino);
                packer.number(status.st_size);
                for (const timespec& time : {status.st_ctim, status.st_mtim}) {
                    packer.number(time.tv_sec * 1'000'000'000 + time.tv_nsec);
                }
                return packer.bytes();
            }
        }
        return std::nullopt;
    }

private:
    [[noreturn]] void fail(int error) const
    {
        throw protocol::StorageError(fmt::format("{}: {}", directory_.string(), protocol::unreadable(error)),
                                     protocol::kWrongUse);
    }

    const fs::path& directory_;
    const host::Descriptor descriptor_;
    std::vector<std::string> names_;
};

ListedRun readListed(const fs::path& record, bool running)
{
    if (isOfLines(record)) {
        if (auto listed = readEnds(record, running)) {
            return *std::move(listed);
        }
    }
    const Run run = readRun(record);
    const Outcome outcome = outcomeOf(run);
    const Headline headline = headlineOf(run);
    return {.folder = record.parent_path().string(),
            .id = run.id,
            .started = run.started,
            .ended = run.ended,
            .verdict = headline.verdict,
            .reason = headline.reason,
            .plan = run.plan.name.empty() ? run.plan.title : run.plan.name,
            .planVersion = run.plan.version,
            .verifies = run.verifies,
            .serial = run.unit.serial,
            .port = run.unit.port,
            .station = run.station,
            .line = run.line,
            .failedStep = outcome.failed.empty() ? "" : outcome.failed.front().step->name,
            .failedSteps = outcome.wrong,
            .running = running};
}

/// @returns whether the record may still change without another time of its last change.
bool isFresh(const std::string& stamp, std::chrono::system_clock::time_point now)
{
    Unpacker unpacker(stamp);
    unpacker.text();
    unpacker.number<decltype(stat::st_ino)>();
    unpacker.number<decltype(stat::st_size)>();
    const std::chrono::nanoseconds changed(unpacker.number<std::int64_t>());
    return std::chrono::abs(now.time_since_epoch() - changed) < kTick;
}

std::int64_t numberOf(sqlite::Database& database, const char* sql)
{
    sqlite::Statement statement = database.prepare(sql);
    return statement.step() ? statement.number(0) : 0;
}

}  // namespace

RunIndex::RunIndex(fs::path directory, Clock clock) : directory_(std::move(directory)), clock_(std::move(clock)) {}

std::vector<fs::path> RunIndex::places() const
{
    std::error_code error;
    const std::string whole = fs::canonical(directory_, error).string();
    const fs::path cache =
        fs::path(g_get_user_cache_dir()) / "engineering-station" / fmt::format("runs-{:.16}.sqlite", sha256(whole));
    return ::access(directory_.c_str(), W_OK) == 0 ? std::vector{directory_ / kFile, cache} : std::vector{cache};
}

void RunIndex::open(bool create)
{
    for (const fs::path& path : places()) {
        std::error_code error;
        if (database_ || (!create && !fs::exists(path, error))) {
            continue;
        }
        if (create) {
            g_mkdir_with_parents(path.parent_path().c_str(), 0700);
            // As readable as the results.
            const host::Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660));
        }
        path_ = path;
        try {
            database_.emplace(path.string(), SQLITE_OPEN_READWRITE, nullptr, kPatience);
        } catch (const protocol::StorageError&) {
            continue;
        }
        use([&] {
            // What a loss of power breaks is made again.
            database_->runAll("PRAGMA synchronous = OFF");
            const std::int64_t format = numberOf(*database_, "PRAGMA user_version");
            if (format == 0) {
                database_->runAll(fmt::format(kTables, kFormat));
            } else if (format != kFormat) {
                throw Unpacker::Mismatch();
            }
        });
    }
}

template <class Use>
bool RunIndex::use(Use work)
{
    if (!database_) {
        return false;
    }
    bool broken = false;
    try {
        work();
        return true;
    } catch (const Unpacker::Mismatch&) {
        broken = true;
    } catch (const protocol::StorageError&) {
        const int code = sqlite3_errcode(database_->handle()) & 0xFF;
        broken = code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_ERROR;
    }
    database_.reset();
    if (broken) {
        std::error_code error;
        fs::remove(path_, error);
        fs::remove(path_.string() + "-journal", error);
    }
    return false;
}

std::vector<RunIndex::Kept> RunIndex::loadList()
{
    std::vector<Kept> all;
    use([&] {
        sqlite::Statement rows = database_->prepare("SELECT folder, bytes FROM run ORDER BY folder");
        while (rows.step()) {
            all.push_back({rows.text(0), std::string(rows.bytes(1)), {}});
        }
    });
    return all;
}

void RunIndex::store(const std::vector<Kept>& changed, const std::vector<std::string>& gone)
{
    if (changed.empty() && gone.empty()) {
        return;
    }
    if (!database_) {
        open(true);
    }
    use([&] {
        sqlite::Transaction transaction(*database_);
        for (const Kept& each : changed) {
            if (each.keys.empty()) {
                database_->run("INSERT OR REPLACE INTO run VALUES(?, ?)", each.folder,
                               sqlite::Blob{sealed(each.folder, each.bytes)});
                continue;
            }
            const std::string keys = sealed("", each.keys);
            database_->run("INSERT OR IGNORE INTO keys(bytes) VALUES(?)", sqlite::Blob{keys});
            database_->run("INSERT OR REPLACE INTO figures SELECT ?, id, ? FROM keys WHERE bytes = ?", each.folder,
                           sqlite::Blob{sealed(each.folder, each.bytes)}, sqlite::Blob{keys});
        }
        for (const std::string& folder : gone) {
            database_->run("DELETE FROM run WHERE folder = ?", folder);
            database_->run("DELETE FROM figures WHERE folder = ?", folder);
        }
        if (!gone.empty()) {
            database_->runAll("DELETE FROM keys WHERE id NOT IN (SELECT keys FROM figures)");
        }
        transaction.commit();
    });
}

RunList RunIndex::list()
{
    const Folders folders(directory_);
    open(false);
    const std::vector<Kept> known = loadList();
    const std::string base = directory_.string() + '/';
    RunList list;
    std::vector<Kept> changed;
    std::vector<std::string> gone;
    auto row = known.begin();
    for (const std::string& name : folders.names()) {
        for (; row != known.end() && row->folder < name; ++row) {
            gone.push_back(row->folder);
        }
        const auto mine = row != known.end() && row->folder == name ? row++ : known.end();
        const auto stamp = folders.stampOf(name);
        if (!stamp) {
            list.passedOver.push_back(directory_ / name);
            continue;
        }
        const bool running = name.ends_with(kRunningSuffix) && isRunning(directory_ / name);
        if (mine != known.end() && !running) {
            try {
                const auto bytes = unsealed(name, mine->bytes);
                if (bytes && Unpacker(*bytes).text() == *stamp) {
                    list.runs.push_back(unpackRun(*bytes));
                    list.runs.back().folder = base + name;
                    continue;
                }
            } catch (const Unpacker::Mismatch&) {
                // As good as no row.
            }
        }
        try {
            ++read_;
            ListedRun run = readListed(recordIn(base + name), running);
            run.folder = base + name;
            if (!running && !isFresh(*stamp, clock_()) && folders.stampOf(name) == stamp) {
                run.stamp = *stamp;
                changed.push_back({name, packRun(run), {}});
            }
            list.runs.push_back(std::move(run));
        } catch (const RecordError& broken) {
            list.broken.emplace_back(broken.what());
        }
    }
    for (; row != known.end(); ++row) {
        gone.push_back(row->folder);
    }
    store(changed, gone);
    // Runs are large.
    std::vector<std::size_t> order(list.runs.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::ranges::stable_sort(order, std::greater(), [&list](std::size_t i) { return list.runs[i].started; });
    std::vector<ListedRun> sorted;
    sorted.reserve(order.size());
    std::ranges::transform(order, std::back_inserter(sorted),
                           [&list](std::size_t i) { return std::move(list.runs[i]); });
    list.runs = std::move(sorted);
    return list;
}

void RunIndex::figures(std::span<const ListedRun> runs, const Interrupt* interrupt, std::vector<std::string>& broken,
                       const std::function<void(const ListedRun&, const RunFigures&)>& take)
{
    struct Found {
        Keys keys;
        std::string series;
    };
    std::vector<Found> all(runs.size());
    std::map<std::string, Keys, std::less<>> shared;
    const auto share = [&shared](std::string_view bytes) {
        auto found = shared.find(bytes);
        if (found == shared.end()) {
            auto keys = std::make_shared<const std::vector<MeasurementKey>>(unpackKeys(bytes));
            found = shared.emplace(bytes, std::move(keys)).first;
        }
        return found;
    };
    use([&] {
        // One look at the file for all of them.
        database_->runAll("BEGIN");
        std::map<std::int64_t, Keys> keys;
        sqlite::Statement rows = database_->prepare("SELECT id, bytes FROM keys");
        while (rows.step()) {
            if (const auto bytes = unsealed("", rows.bytes(1))) {
                keys[rows.number(0)] = share(*bytes)->second;
            }
        }
        sqlite::Statement row = database_->prepare("SELECT keys, bytes FROM figures WHERE folder = ?", "");
        for (std::size_t i = 0; i < runs.size(); ++i) {
            const std::string_view name = std::string_view(runs[i].folder).substr(runs[i].folder.rfind('/') + 1);
            row.bindAll(name);
            if (runs[i].stamp.empty() || !row.step()) {
                continue;
            }
            const auto bytes = unsealed(name, row.bytes(1));
            const auto found = keys.find(row.number(0));
            if (bytes && found != keys.end()) {
                Unpacker unpacker(*bytes);
                if (unpacker.text() == runs[i].stamp) {
                    all[i] = {found->second, std::string(unpacker.rest())};
                }
            }
        }
        row.reset();
        database_->runAll("COMMIT");
    });
    std::vector<Kept> changed;
    try {
        for (std::size_t i = 0; i < runs.size(); ++i) {
            if (all[i].keys != nullptr) {
                continue;
            }
            if (interrupt != nullptr && interrupt->requested()) {
                throw Interrupted();
            }
            auto keys = shared.end();
            try {
                ++read_;
                const RunFigures figures = readFigures(recordIn(runs[i].folder), interrupt);
                keys = share(pack(*figures.keys));
                all[i] = {keys->second, packSeries(figures)};
            } catch (const RecordError& error) {
                broken.emplace_back(error.what());
                continue;
            }
            if (!runs[i].stamp.empty()) {
                Packer packer;
                packer.text(runs[i].stamp);
                changed.push_back({runs[i].folder.substr(runs[i].folder.rfind('/') + 1), packer.bytes() + all[i].series,
                                   keys->first});
            }
            if (changed.size() == kBatch) {
                store(std::exchange(changed, {}), {});
            }
        }
    } catch (const Interrupted&) {
        store(changed, {});
        throw;
    }
    store(changed, {});
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (all[i].keys != nullptr) {
            take(runs[i], unpackSeries(all[i].series, all[i].keys));
        }
    }
}

}  // namespace station::record
