#include "station/identity/RegistryFile.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <random>
#include <system_error>

#include "station/identity/SharedFile.h"

namespace station::identity {

namespace {

using protocol::StorageError;
using sqlite::Statement;
using sqlite::Transaction;

constexpr std::int64_t kRegistrySchema = 1;
/// Tells the file from other SQLite databases: "ENGR".
constexpr std::int64_t kApplication = 0x454E4752;

constexpr const char* kTables = R"(
CREATE TABLE registry(uuid TEXT NOT NULL, mark TEXT NOT NULL);
CREATE TABLE unit(id INTEGER PRIMARY KEY, label TEXT UNIQUE);
CREATE TABLE value(space TEXT NOT NULL, value TEXT NOT NULL, record TEXT NOT NULL, unit INTEGER NOT NULL,
                   state TEXT NOT NULL, time TEXT NOT NULL, reason TEXT NOT NULL, PRIMARY KEY(space, value))
    WITHOUT ROWID;
CREATE INDEX value_of_unit ON value(unit, record);
CREATE TABLE event(id INTEGER PRIMARY KEY, time TEXT NOT NULL, event TEXT NOT NULL, space TEXT NOT NULL,
                   value TEXT NOT NULL, unit INTEGER NOT NULL, reason TEXT NOT NULL);
)";

/// For the history of one value. Older registries get it when they are opened for giving.
constexpr const char* kEventIndex = "CREATE INDEX IF NOT EXISTS event_of_value ON event(space, value)";

std::string newUuid()
{
    std::random_device random;
    std::array<unsigned, 4> bits{random(), random(), random(), random()};
    bits[1] = (bits[1] & 0xFFFF0FFF) | 0x4000;
    bits[2] = (bits[2] & 0x3FFFFFFF) | 0x80000000;
    return fmt::format("{:08x}-{:04x}-{:04x}-{:04x}-{:04x}{:08x}", bits[0], bits[1] >> 16, bits[1] & 0xFFFF,
                       bits[2] >> 16, bits[2] & 0xFFFF, bits[3]);
}

/// @returns a mark that a copy of the file does not have: the inode and, if the file system keeps it, the birth time.
std::string markOf(const std::string& path)
{
    struct statx file = {};
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &file) != 0) {
        return {};
    }
    return (file.stx_mask & STATX_BTIME) == 0
               ? fmt::format("{}", file.stx_ino)
               : fmt::format("{} {}.{}", file.stx_ino, file.stx_btime.tv_sec, file.stx_btime.tv_nsec);
}

/// @returns whether both marks may be of one file: not every client of a file server sees the time of birth.
bool sameFile(const std::string& one, const std::string& other)
{
    const auto inode = [](const std::string& mark) { return mark.substr(0, mark.find(' ')); };
    const bool both = one.find(' ') != std::string::npos && other.find(' ') != std::string::npos;
    return both ? one == other : inode(one) == inode(other);
}

std::string lockRefusedFor(int descriptor)
{
    struct stat file = {};
    fstat(descriptor, &file);
    std::ifstream mounts("/proc/self/mountinfo");
    return lockRefusedByMount(mounts, file.st_dev);
}

/// The first byte for units, and the first byte on which locks are tried.
constexpr off_t kFirstUnit = off_t{1} << 20;
constexpr off_t kTrial = off_t{1} << 61;

std::int64_t number(sqlite::Database& database, const char* sql)
{
    Statement statement = database.prepare(sql);
    return statement.step() ? statement.number(0) : 0;
}

constexpr const char* kEvents = "SELECT max(id) FROM event";

}  // namespace

std::string lockRefusedByMount(std::istream& mounts, dev_t of)
{
    const std::string device = fmt::format(" {}:{} ", major(of), minor(of));
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(device) == std::string::npos) {
            continue;
        }
        const std::string options = "," + line.substr(line.rfind(' ') + 1) + ",";
        for (const char* each : {"nolock", "nobrl", "local_lock=all", "local_lock=posix"}) {
            if (options.find(fmt::format(",{},", each)) != std::string::npos) {
                return each;
            }
        }
    }
    return {};
}

/// The file beside the database: how many events the registry had, and a byte for each unit that is worked on.
class LockFile
{
public:
    explicit LockFile(const std::string& registry) : file_(registry + ".lock", O_RDWR | O_CREAT, 0666) { tryLocks(); }

    bool lockUnit(UnitId unit) const { return file_.lockByte(kFirstUnit + static_cast<off_t>(unit)) == 0; }

    /// @returns the number of events that was noted last; 0 for none.
    std::int64_t count() const
    {
        std::array<char, 24> text{};
        const ssize_t length = pread(file_.descriptor(), text.data(), text.size(), 0);
        std::int64_t found = 0;
        std::from_chars(text.data(), text.data() + std::max<ssize_t>(length, 0), found);
        return found;
    }

    void noteCount(std::int64_t count) const
    {
        const std::string text = fmt::format("{:020}\n", count);
        // A count that is not written only hides that the database was replaced by an older one.
        [[maybe_unused]] const ssize_t written = pwrite(file_.descriptor(), text.data(), text.size(), 0);
    }

private:
    /// Throws unless a byte that is locked cannot be locked again.
    void tryLocks() const
    {
        const SharedFile second(file_.path(), O_RDWR | O_CREAT, 0666);
        std::string why = lockRefusedFor(file_.descriptor());
        // Another station may be trying the same byte.
        constexpr int kTries = 64;
        for (int i = 0; i < kTries && why.empty(); ++i) {
            const off_t offset = kTrial + static_cast<off_t>(std::random_device()());
            const int first = file_.lockByte(offset);
            if (first == EAGAIN || first == EACCES) {
                continue;
            }
            const int other = second.lockByte(offset);
            file_.lockByte(offset, F_UNLCK);
            if (first == 0 && (other == EAGAIN || other == EACCES)) {
                return;
            }
            why = first == 0 ? "one lock was given twice" : std::generic_category().message(first);
        }
        file_.fail(
            fmt::format("file locks do not work here ({}): a registry on this file system gives no values", why));
    }

    const SharedFile file_;
};

RegistryFile::RegistryFile(const std::string& path, Registry::Access access, const Interrupt* interrupt) : path_(path)
{
    std::error_code error;
    const bool gives = access == Registry::Access::kGive;
    const bool creates = gives || !std::filesystem::exists(path, error);
    if (gives) {
        std::filesystem::create_directories(std::filesystem::absolute(path).parent_path(), error);
        if (error) {
            throw StorageError(
                fmt::format("{}: cannot be written: its folder cannot be made: {}", path, error.message()));
        }
        locks_ = std::make_unique<LockFile>(path);
    }
    database_.emplace(creates && !gives ? ":memory:" : path, SQLITE_OPEN_READWRITE | (creates ? SQLITE_OPEN_CREATE : 0),
                      interrupt);
    if (gives) {
        // A write-ahead log needs memory that all stations share. EXTRA makes a transaction's end last, too.
        Statement mode = database_->prepare("PRAGMA journal_mode = DELETE");
        if (!mode.step() || mode.text(0) != "delete") {
            throw StorageError(path + ": the registry's write-ahead log cannot be switched off");
        }
    }
    database_->run("PRAGMA synchronous = EXTRA");
    if (creates) {
        create();
    }
    check();
}

RegistryFile::~RegistryFile() = default;

void RegistryFile::create()
{
    if (number(*database_, "PRAGMA user_version") != 0) {
        return;
    }
    Transaction transaction(*database_);
    if (number(*database_, "SELECT count(*) FROM sqlite_schema") == 0) {
        database_->runAll(kTables);
        database_->run("INSERT INTO registry VALUES(?, ?)", newUuid(), markOf(path_));
        database_->runAll(
            fmt::format("PRAGMA user_version = {}; PRAGMA application_id = {}", kRegistrySchema, kApplication));
    }
    transaction.commit();
}

void RegistryFile::check()
{
    if (number(*database_, "PRAGMA application_id") != kApplication ||
        number(*database_, "PRAGMA user_version") != kRegistrySchema) {
        throw StorageError(
            fmt::format("{}: expected a registry of schema {}, got another database", path_, kRegistrySchema));
    }
    std::string mark;
    {
        Statement statement = database_->prepare("SELECT uuid, mark FROM registry");
        if (!statement.step()) {
            throw StorageError(path_ + ": expected a registry with a UUID, got one without: restore it from a backup");
        }
        uuid_ = statement.text(0);
        mark = statement.text(1);
    }
    if (locks_ == nullptr) {
        return;
    }
    if (!sameFile(mark, markOf(path_))) {
        trouble_ = fmt::format("{}: this is a copy of registry {}", path_, uuid_);
    } else if (const auto before = locks_->count(); number(*database_, kEvents) < before) {
        trouble_ = path_ + ": this is older than what the registry had given before";
    } else {
        database_->run(kEventIndex);
    }
}

void RegistryFile::refuseCopy() const
{
    if (!trouble_.empty()) {
        throw StorageError(trouble_ +
                           ": it gives no values. When the other registry is out of use for good, run "
                           "'engineering-station identity registry adopt'");
    }
}

void RegistryFile::commit(Transaction& transaction)
{
    const auto count = number(*database_, kEvents);
    transaction.commit();
    if (locks_ != nullptr) {
        locks_->noteCount(count);
    }
}

void RegistryFile::adopt(const std::function<void(const std::string&)>& note)
{
    Transaction transaction(*database_);
    database_->run("UPDATE registry SET mark = ?", markOf(path_));
    note(trouble_);
    commit(transaction);
    trouble_.clear();
}

bool RegistryFile::lockUnit(UnitId unit) const
{
    return locks_ == nullptr || locks_->lockUnit(unit);
}

}  // namespace station::identity
