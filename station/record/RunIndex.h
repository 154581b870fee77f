#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "station/Interrupt.h"
#include "station/Sqlite.h"
#include "station/record/RunFigures.h"
#include "station/record/RunList.h"

namespace station::record {

/// The runs of a results directory, and a database of what their records say, so that a record is read only once. The
/// folders are the truth: whoever asks, each record's size, times and inode are compared first. The database is made
/// when there is something to keep, and again when it is old or broken; without one, everything is read. Several
/// programs may use it at the same time.
class RunIndex
{
public:
    /// In the results directory; if that cannot be written, in the user's cache folder.
    static constexpr const char* kFile = ".runs.sqlite";

    using Clock = std::function<std::chrono::system_clock::time_point()>;

    /// @param clock tells which records changed a moment ago: their times do not tell whether that was the last change
    explicit RunIndex(std::filesystem::path directory, Clock clock = std::chrono::system_clock::now);

    /// Lists all runs. Throws protocol::StorageError if the directory cannot be read.
    RunList list();

    /// Passes the figures of the runs to `take`, in their order, and errors of records that cannot be read to `broken`.
    /// Throws Interrupted, after keeping what it has read.
    /// @param interrupt may be nullptr
    void figures(std::span<const ListedRun> runs, const Interrupt* interrupt, std::vector<std::string>& broken,
                 const std::function<void(const ListedRun&, const RunFigures&)>& take);

    /// @returns how many records were read because the database did not have them.
    std::size_t recordsRead() const { return read_; }

private:
    using Keys = std::shared_ptr<const std::vector<MeasurementKey>>;
    /// What a folder's record says, or its figures, with the stamp of the record.
    struct Kept {
        std::string folder;
        std::string bytes;
        /// Of figures; empty for the list.
        std::string keys;
    };

    std::vector<std::filesystem::path> places() const;
    void open(bool create);
    /// Uses the database, if there is one. @returns whether that went well; if not, it is closed, and removed if it is
    /// not what this program wrote.
    template <class Use>
    bool use(Use work);
    std::vector<Kept> loadList();
    void store(const std::vector<Kept>& changed, const std::vector<std::string>& gone);

    const std::filesystem::path directory_;
    const Clock clock_;
    std::optional<sqlite::Database> database_;
    std::filesystem::path path_;
    std::size_t read_ = 0;
};

}  // namespace station::record
