#include "station/identity/Registry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <random>
#include <system_error>
#include <utility>

#include "protocol/catalogue/HexBytes.h"
#include "station/ClockText.h"
#include "station/identity/LedgerFile.h"
#include "station/identity/Sqlite.h"

namespace station::identity {

namespace {

namespace fs = std::filesystem;
using sqlite::Database;
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

static_assert(State::kReserved < State::kSending && State::kSending < State::kWritten &&
              State::kWritten < State::kVerified);

constexpr std::string_view kFactorySerial = "factory-serial";

/// Units are numbered from 1; this one owns what is blocked.
constexpr UnitId kNobody = 0;

std::string now()
{
    return isoUtc(std::chrono::system_clock::now(), 6);
}

std::string newUuid()
{
    std::random_device random;
    std::array<unsigned, 4> bits{random(), random(), random(), random()};
    bits[1] = (bits[1] & 0xFFFF0FFF) | 0x4000;
    bits[2] = (bits[2] & 0x3FFFFFFF) | 0x80000000;
    char text[40];
    std::snprintf(text, sizeof text, "%08x-%04x-%04x-%04x-%04x%08x", bits[0], bits[1] >> 16, bits[1] & 0xFFFF,
                  bits[2] >> 16, bits[2] & 0xFFFF, bits[3]);
    return text;
}

/// @returns what tells this file from a copy of it: its inode and, where the file system keeps it, its time of birth.
std::string markOf(const std::string& path)
{
    struct statx file = {};
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_INO | STATX_BTIME, &file) != 0) {
        return {};
    }
    const bool born = (file.stx_mask & STATX_BTIME) != 0;
    return std::to_string(file.stx_ino) +
           (born ? " " + std::to_string(file.stx_btime.tv_sec) + "." + std::to_string(file.stx_btime.tv_nsec) : "");
}

/// @returns whether a mark may be that of the same file: clients of one file server may see the time of birth or not.
bool sameFile(const std::string& one, const std::string& other)
{
    const auto inode = [](const std::string& mark) { return mark.substr(0, mark.find(' ')); };
    const bool both = one.find(' ') != std::string::npos && other.find(' ') != std::string::npos;
    return both ? one == other : inode(one) == inode(other);
}

struct flock lockOf(int type, off_t offset)
{
    struct flock lock = {};
    lock.l_type = static_cast<short>(type);
    lock.l_whence = SEEK_SET;
    lock.l_start = offset;
    lock.l_len = 1;
    return lock;
}

/// @returns the option by which the file system was mounted without locks between its users; empty for none.
std::string lockRefusedByMount(int descriptor)
{
    struct stat file = {};
    fstat(descriptor, &file);
    const std::string device =
        " " + std::to_string(major(file.st_dev)) + ":" + std::to_string(minor(file.st_dev)) + " ";
    std::ifstream mounts("/proc/self/mountinfo");
    for (std::string line; std::getline(mounts, line);) {
        if (line.find(device) == std::string::npos) {
            continue;
        }
        const std::string options = "," + line.substr(line.rfind(' ') + 1) + ",";
        for (const char* each : {"nolock", "nobrl", "local_lock=all", "local_lock=posix"}) {
            if (options.find("," + std::string(each) + ",") != std::string::npos) {
                return each;
            }
        }
    }
    return {};
}

/// Where the bytes that stand for units begin, and those by which locks are tried.
constexpr off_t kFirstUnit = off_t{1} << 20;
constexpr off_t kTrial = off_t{1} << 61;

/// The file beside the database: how far the registry has come, a byte for each unit that is worked on.
class LockFile
{
public:
    explicit LockFile(const std::string& path) : path_(path + ".lock"), descriptor_(open())
    {
        try {
            tryLocks();
        } catch (...) {
            close(descriptor_);
            throw;
        }
    }

    ~LockFile() { close(descriptor_); }
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;

    bool tryLock(off_t offset) const { return tryLock(descriptor_, offset) == 0; }

    /// @returns how many events the registry had when that was noted last; 0 when nothing was.
    std::int64_t count() const
    {
        std::array<char, 24> text{};
        const ssize_t length = pread(descriptor_, text.data(), text.size(), 0);
        std::int64_t number = 0;
        std::from_chars(text.data(), text.data() + std::max<ssize_t>(length, 0), number);
        return number;
    }

    void noteCount(std::int64_t number) const
    {
        char text[24];
        const int length = std::snprintf(text, sizeof text, "%020lld\n", static_cast<long long>(number));
        // It only helps to notice a database that was put in the place of a newer one.
        [[maybe_unused]] const ssize_t written = pwrite(descriptor_, text, static_cast<std::size_t>(length), 0);
    }

private:
    int open() const
    {
        const int descriptor = ::open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
        if (descriptor < 0) {
            throw RegistryError(path_ + ": " + std::generic_category().message(errno));
        }
        return descriptor;
    }

    static int tryLock(int descriptor, off_t offset)
    {
        struct flock lock = lockOf(F_WRLCK, offset);
        return fcntl(descriptor, F_OFD_SETLK, &lock) == 0 ? 0 : errno;
    }

    /// A lock that two holders can have is none.
    void tryLocks() const
    {
        const int second = open();
        const std::unique_ptr<const int, void (*)(const int*)> end(&second, [](const int* each) { close(*each); });
        std::string why = lockRefusedByMount(descriptor_);
        // Another station may be trying the same byte.
        constexpr int kTries = 64;
        for (int i = 0; i < kTries && why.empty(); ++i) {
            const off_t offset = kTrial + static_cast<off_t>(std::random_device()());
            const int first = tryLock(descriptor_, offset);
            if (first == EAGAIN || first == EACCES) {
                continue;
            }
            const int other = tryLock(second, offset);
            struct flock unlock = lockOf(F_UNLCK, offset);
            fcntl(descriptor_, F_OFD_SETLK, &unlock);
            if (first == 0 && (other == EAGAIN || other == EACCES)) {
                return;
            }
            why = first == 0 ? "a lock was given twice" : std::generic_category().message(first);
        }
        throw RegistryError(path_ + ": file locks do not work here (" + why +
                            "): nothing is given away from a registry on such a file system");
    }

    const std::string path_;
    const int descriptor_;
};

State stateOf(const std::string& text)
{
    for (const State each :
         {State::kReserved, State::kSending, State::kWritten, State::kVerified, State::kSeen, State::kBlocked}) {
        if (text == name(each)) {
            return each;
        }
    }
    return State::kBlocked;
}

/// @returns whether a unit may have the value by the registry's doing.
bool isGiven(State state)
{
    return state != State::kSeen && state != State::kBlocked;
}

/// @returns the bytes of a value that is spelled as the registry lists it, "hex:8081"; any other as it is.
std::string bytesOf(const std::string& spelled)
{
    const auto bytes = spelled.starts_with(kHex)
                           ? protocol::catalogue::parseHexBytes(std::string_view(spelled).substr(kHex.size()))
                           : std::nullopt;
    return bytes && !bytes->empty() ? std::string(bytes->begin(), bytes->end()) : spelled;
}

std::string shown(std::string_view record, const std::string& value)
{
    return std::string(record) + " " + value;
}

}  // namespace

const char* name(State state)
{
    switch (state) {
        case State::kReserved:
            return "reserved";
        case State::kSending:
            return "sending";
        case State::kWritten:
            return "written";
        case State::kVerified:
            return "verified";
        case State::kSeen:
            return "seen";
        case State::kBlocked:
            return "blocked";
    }
    return "";
}

struct Registry::Impl {
    Impl(const std::string& given, Records allRecords, const UnitRules& unitRules, const Interrupt* toInterrupt,
         Access howTo)
        : path(given), records(allRecords), rules(unitRules), interrupt(toInterrupt), access(howTo)
    {
        std::error_code error;
        const bool creates = access == Access::kGive || !fs::exists(path, error);
        if (access == Access::kGive) {
            makeFolder();
            locks.emplace(path);
        }
        database.emplace(access == Access::kLook && creates ? ":memory:" : path,
                         SQLITE_OPEN_READWRITE | (creates ? SQLITE_OPEN_CREATE : 0), interrupt);
        if (access == Access::kGive) {
            // A write-ahead log needs memory that all stations share. EXTRA makes a transaction's end last, too.
            Statement mode = database->prepare("PRAGMA journal_mode = DELETE");
            if (!mode.step() || mode.text(0) != "delete") {
                throw RegistryError(path + ": the registry's write-ahead log cannot be switched off");
            }
        }
        database->run("PRAGMA synchronous = EXTRA");
        if (creates) {
            create();
        }
        check();
    }

    void makeFolder() const
    {
        std::error_code error;
        fs::create_directories(fs::absolute(path).parent_path(), error);
        if (error) {
            throw RegistryError(path + ": the registry's folder cannot be made: " + error.message());
        }
    }

    std::int64_t number(const char* sql)
    {
        Statement statement = database->prepare(sql);
        return statement.step() ? statement.number(0) : 0;
    }

    void create()
    {
        if (number("PRAGMA user_version") != 0) {
            return;
        }
        Transaction transaction(*database);
        if (number("SELECT count(*) FROM sqlite_schema") == 0) {
            database->runAll(kTables);
            database->run("INSERT INTO registry VALUES(?, ?)", newUuid(), markOf(path));
            database->runAll(("PRAGMA user_version = " + std::to_string(kRegistrySchema) +
                              "; PRAGMA application_id = " + std::to_string(kApplication))
                                 .c_str());
        }
        transaction.commit();
    }

    /// Reads what the file says of itself; refuses to give from what is not the registry.
    void check()
    {
        if (number("PRAGMA application_id") != kApplication || number("PRAGMA user_version") != kRegistrySchema) {
            throw RegistryError(path + ": expected a registry of schema " + std::to_string(kRegistrySchema) +
                                ", got another database");
        }
        Statement statement = database->prepare("SELECT uuid, mark FROM registry");
        if (!statement.step()) {
            throw RegistryError(path + ": the registry has lost its UUID");
        }
        uuid = statement.text(0);
        if (access != Access::kGive) {
            return;
        }
        if (!sameFile(statement.text(1), markOf(path))) {
            trouble = path + ": this is a copy of registry " + uuid;
        } else if (const auto before = locks->count(); number("SELECT max(id) FROM event") < before) {
            trouble = path + ": this is older than what the registry had given before";
        }
    }

    void refuseCopy() const
    {
        if (!trouble.empty()) {
            throw RegistryError(trouble +
                                ": nothing is given away from it; when the other one is out of use for good, say "
                                "'engineering-station identity registry adopt'");
        }
    }

    void commit(Transaction& transaction)
    {
        const auto count = number("SELECT max(id) FROM event");
        transaction.commit();
        if (locks) {
            locks->noteCount(count);
        }
    }

    // --- units and values ---

    struct Owner {
        UnitId unit = kNobody;
        State state = State::kSeen;
        std::string record;
        std::string reason;
    };

    std::optional<Owner> ownerOf(std::string_view space, std::string_view value)
    {
        if (!owners) {
            owners.emplace(
                database->prepare("SELECT unit, state, record, reason FROM value WHERE space = ? AND value = ?"));
        }
        owners->bindAll(space, value);
        if (!owners->step()) {
            return std::nullopt;
        }
        const Owner owner{owners->number(0), stateOf(owners->text(1)), owners->text(2), owners->text(3)};
        owners->reset();
        return owner;
    }

    UnitId unitOfLabel(const std::string& label)
    {
        Statement statement = database->prepare("SELECT id FROM unit WHERE label = ?", label);
        return !label.empty() && statement.step() ? statement.number(0) : kNobody;
    }

    std::string labelOf(UnitId unit)
    {
        Statement statement = database->prepare("SELECT label FROM unit WHERE id = ?", unit);
        return statement.step() ? statement.text(0) : "";
    }

    /// @returns what a unit is called: its label, else a serial number of it, else its number here.
    std::string nameOf(UnitId unit)
    {
        if (std::string label = labelOf(unit); !label.empty()) {
            return label;
        }
        Statement statement = database->prepare(
            "SELECT value FROM value WHERE unit = ? AND record IN (?, ?) ORDER BY record = ? DESC, time DESC", unit,
            rules.serial.name, kFactorySerial, rules.serial.name);
        return statement.step() ? statement.text(0) : "#" + std::to_string(unit);
    }

    /// @returns the values of a unit by record, with their states; of several of one record the given ones.
    std::vector<std::pair<std::string, Owner>> valuesOf(UnitId unit)
    {
        std::vector<std::pair<std::string, Owner>> all;
        Statement statement = database->prepare("SELECT value, state, record FROM value WHERE unit = ?", unit);
        while (statement.step()) {
            all.push_back({statement.text(0), {unit, stateOf(statement.text(1)), statement.text(2), {}}});
        }
        return all;
    }

    /// @returns whether the unit was given another value of the record than this.
    std::string otherValue(UnitId unit, std::string_view record, const std::string& value)
    {
        for (const auto& [text, owner] : valuesOf(unit)) {
            if (owner.record == record && text != value && isGiven(owner.state)) {
                return text;
            }
        }
        return {};
    }

    /// What is known of the unit on the line.
    struct Known {
        UnitId unit = kNobody;
        bool shown = false;  // it holds something that it was given
    };

    /// @returns the unit's values that tell it from others, the serial number first.
    std::vector<std::pair<const Record*, std::string>> telling(const Values& held) const
    {
        std::vector<std::pair<const Record*, std::string>> all;
        for (const auto& [key, value] : held) {
            const Record* record = find(records, key);
            if (record == nullptr || !record->unique || rules.isPlaceholder(*record, value)) {
                continue;
            }
            const auto place = record->name == rules.serial.name ? all.begin() : all.end();
            all.insert(place, {record, registryText(*record, value)});
        }
        return all;
    }

    Known identify(const UnitOnLine& line)
    {
        const auto held = telling(line.held);
        Known known;
        std::string by;
        for (const auto& [record, text] : held) {
            const auto owner = ownerOf(record->space, text);
            if (!owner || owner->unit == kNobody) {
                continue;
            }
            // A value that was copied from another unit does not make it that unit.
            const bool contradicted = held.front().first->name == rules.serial.name && &held.front().second != &text &&
                                      !otherValue(owner->unit, rules.serial.name, held.front().second).empty();
            if (known.unit == kNobody && !contradicted) {
                known.unit = owner->unit;
                by = shown(record->name, text);
            }
            known.shown = known.shown || (owner->unit == known.unit && isGiven(owner->state));
        }
        if (line.label.empty()) {
            return known;
        }
        const UnitId labelled = unitOfLabel(line.label);
        const std::string label = known.unit == kNobody ? "" : labelOf(known.unit);
        const bool other = known.unit != kNobody && known.unit != labelled && (labelled != kNobody || !label.empty());
        if (labelled != kNobody && !line.reissue.empty()) {
            return {labelled, false};
        }
        if (other) {
            throw NotGiven("this is not unit " + line.label + ": it holds " + by + ", which belongs to unit " +
                           nameOf(known.unit));
        }
        if (labelled == kNobody || labelled == known.unit) {
            return known;
        }
        for (const auto& [record, text] : held) {
            const std::string given = otherValue(labelled, record->name, text);
            if (!given.empty()) {
                throw NotGiven("this is not unit " + line.label + ": it holds " + shown(record->name, text) +
                               ", and unit " + line.label + " was given " + given);
            }
        }
        return {labelled, false};
    }

    /// Refuses to give a unit's values, which are told as `what`, to what may be another one.
    void refuseStranger(const Known& known, const UnitOnLine& line, const std::string& what)
    {
        if (known.shown || line.erased || !line.reissue.empty()) {
            return;
        }
        for (const auto& [value, owner] : valuesOf(known.unit)) {
            // One that is on its way may have arrived when the station was killed.
            if (isGiven(owner.state) && owner.state != State::kReserved) {
                throw NotGiven(
                    "unit " + nameOf(known.unit) + " was given " + what +
                    " and may have had its values; the one on the line holds none of them: give another --unit, "
                    "or --again when it is the same unit and its memory was erased");
            }
        }
    }

    void note(const char* event, std::string_view space, const std::string& value, UnitId unit,
              const std::string& reason = {})
    {
        database->run("INSERT INTO event(time, event, space, value, unit, reason) VALUES(?, ?, ?, ?, ?, ?)", now(),
                      event, space, value, unit, reason);
    }

    void put(const Record& record, const std::string& value, UnitId unit, State state, const std::string& reason = {})
    {
        database->run(
            "INSERT INTO value VALUES(?, ?, ?, ?, ?, ?, '') ON CONFLICT DO UPDATE SET state = excluded.state, "
            "record = excluded.record, time = excluded.time",
            record.space, value, record.name, unit, name(state), now());
        note(name(state), record.space, value, unit, reason);
    }

    /// Makes the unit known, with what it holds.
    UnitId settle(const Known& known, const UnitOnLine& line)
    {
        UnitId unit = known.unit;
        if (unit == kNobody) {
            database->run("INSERT INTO unit(label) VALUES(NULL)");
            unit = database->lastRow();
        }
        if (!line.label.empty() && labelOf(unit).empty() && unitOfLabel(line.label) == kNobody) {
            database->run("UPDATE unit SET label = ? WHERE id = ?", line.label, unit);
        }
        for (const auto& [record, text] : telling(line.held)) {
            if (!ownerOf(record->space, text)) {
                put(*record, text, unit, State::kSeen);
            }
        }
        return unit;
    }

    static bool holds(const UnitOnLine& line, const Record& record, const std::string& text)
    {
        const auto found = line.held.find(record.name);
        return found != line.held.end() && registryText(record, found->second) == text;
    }

    static bool holdsAny(const UnitOnLine& line, const std::vector<std::pair<const Record*, std::string>>& values)
    {
        return std::ranges::any_of(values, [&](const auto& one) { return holds(line, *one.first, one.second); });
    }

    enum class Claim { kFree, kOwn, kHeld, kReissued };

    /// Says what giving a value to the unit would be; throws NotGiven when it may not be.
    Claim judge(const Known& known, const UnitOnLine& line, const Record& record, const std::string& text)
    {
        const auto owner = ownerOf(record.space, text);
        if (holds(line, record, text)) {
            return owner && owner->unit == known.unit && isGiven(owner->state) ? Claim::kOwn : Claim::kHeld;
        }
        if (!owner) {
            return Claim::kFree;
        }
        if (owner->state == State::kBlocked) {
            throw NotGiven(shown(record.name, text) + " is blocked" +
                           (owner->reason.empty() ? "" : ": " + owner->reason));
        }
        if (owner->unit == known.unit) {
            refuseStranger(known, line, shown(record.name, text));
            return Claim::kOwn;
        }
        if (!line.reissue.empty()) {
            return Claim::kReissued;
        }
        throw NotGiven(shown(record.name, text) + " has been given to unit " + nameOf(owner->unit) +
                       (owner->state == State::kSeen ? ", which was seen with it" : "") +
                       "; 'identity write --reissue REASON' gives it to a board that replaces that unit's");
    }

    /// Reserves what was judged.
    void reserveValue(Claim claim, const Record& record, const std::string& text, UnitId unit, const UnitOnLine& line)
    {
        const auto owner = ownerOf(record.space, text);
        if (claim == Claim::kReissued) {
            note("reissued", record.space, text, unit, line.reissue);
        } else if (claim != Claim::kHeld && (!owner || owner->state == State::kSeen)) {
            put(record, text, unit, State::kReserved);
        }
        if (claim == Claim::kOwn && !line.reissue.empty()) {
            note("reissued", record.space, text, unit, line.reissue);
        }
    }

    void lockUnit(UnitId unit)
    {
        if (locks && std::ranges::find(locked, unit) == locked.end()) {
            if (!locks->tryLock(kFirstUnit + static_cast<off_t>(unit))) {
                throw NotGiven("another station works on unit " + nameOf(unit));
            }
            locked.push_back(unit);
        }
    }

    std::vector<std::pair<const Record*, std::string>> uniqueOf(const Values& values) const
    {
        std::vector<std::pair<const Record*, std::string>> all;
        for (const auto& [key, value] : values) {
            const Record* record = find(records, key);
            if (record != nullptr && record->unique && !rules.isPlaceholder(*record, value)) {
                all.emplace_back(record, registryText(*record, value));
            }
        }
        return all;
    }

    /// @returns the row that the unit was given; nothing when it was given none.
    const CsvRow* rowFor(const CsvTable& table, UnitId unit)
    {
        if (unit == kNobody) {
            return nullptr;
        }
        const auto own = valuesOf(unit);
        const auto isOwn = [&](const auto& entry) {
            return std::ranges::any_of(own, [&](const auto& one) {
                const Record* record = find(records, one.second.record);
                return one.first == entry.second && record != nullptr && record->space == entry.first->space;
            });
        };
        for (const CsvRow& row : table.rows) {
            const auto unique = uniqueOf(row.values);
            if (std::ranges::none_of(unique, isOwn)) {
                continue;
            }
            for (const auto& entry : unique) {
                if (!isOwn(entry) && !otherValue(unit, entry.first->name, entry.second).empty()) {
                    throw NotGiven(table.path + ":" + std::to_string(row.line) +
                                   ": this row has changed since it was given to unit " + nameOf(unit));
                }
            }
            return &row;
        }
        for (const auto& [value, owner] : own) {
            const std::string& record = owner.record;
            const bool column =
                std::ranges::any_of(table.rows, [&](const CsvRow& row) { return row.values.contains(record); });
            if (isGiven(owner.state) && column) {
                throw NotGiven("the row that was given to unit " + nameOf(unit) + " (" + shown(owner.record, value) +
                               ") is no longer in " + table.path);
            }
        }
        return nullptr;
    }

    /// @returns the unit's own value of a range, else the one behind the highest that was given, else the lowest that
    /// is free. Throws NotGiven when all were given.
    /// @param taken goes to the unit, too
    std::string nextOf(const ValueRange& range, const Known& known, const UnitOnLine& line, const Values& taken)
    {
        const Record& record = *range.record;
        std::uint64_t number = 0;
        if (const auto held = line.held.find(record.name);
            held != line.held.end() && range.contains(registryText(record, held->second), number)) {
            return range.value(number);
        }
        for (const auto& [value, owner] : valuesOf(known.unit)) {
            if (known.unit != kNobody && owner.record == record.name && isGiven(owner.state) &&
                range.contains(value, number)) {
                return value;
            }
        }
        const auto isFree = [&](std::uint64_t candidate) {
            const std::string value = range.value(candidate);
            return !ownerOf(record.space, value) && reservedAddress(record, value).empty() &&
                   std::ranges::none_of(uniqueOf(taken), [&](const auto& entry) {
                       return entry.first->space == record.space && entry.second == value;
                   });
        };
        // As texts of one length, values are in the order of their numbers.
        constexpr const char* kDown =
            "SELECT value FROM value WHERE space = ? AND value >= ? AND value <= ? ORDER BY value DESC";
        constexpr const char* kUp =
            "SELECT value FROM value WHERE space = ? AND value >= ? AND value <= ? ORDER BY value";
        std::uint64_t candidate = range.first;
        for (Statement down = database->prepare(kDown, record.space, range.value(range.first), range.value(range.last));
             down.step();) {
            if (range.contains(down.text(0), number)) {
                candidate = number + 1;
                break;
            }
        }
        for (; candidate <= range.last; ++candidate) {
            if (isFree(candidate)) {
                return range.value(candidate);
            }
        }
        candidate = range.first;
        for (Statement up = database->prepare(kUp, record.space, range.value(range.first), range.value(range.last));
             up.step();) {
            if (!range.contains(up.text(0), number)) {
                continue;
            }
            for (; candidate < number; ++candidate) {
                if (isFree(candidate)) {
                    return range.value(candidate);
                }
            }
            candidate = number + 1;
        }
        throw NotGiven(std::string(record.name) + ": all values from " + range.value(range.first) + " to " +
                       range.value(range.last) + " have been given away");
    }

    // --- importing ---

    std::size_t take(const LedgerFile::Reservation& one)
    {
        std::size_t fresh = 0;
        const Record* const factory = find(records, kFactorySerial);
        UnitId unit = one.by == "serial" ? kNobody : unitOfLabel(one.unit);
        if (one.by == "serial" && factory != nullptr && !rules.isPlaceholder(*factory, one.unit)) {
            const auto owner = ownerOf(factory->space, registryText(*factory, one.unit));
            unit = owner ? owner->unit : kNobody;
        }
        for (const auto& [record, text] : uniqueOf(one.values)) {
            const auto owner = ownerOf(record->space, text);
            unit = unit == kNobody && owner ? owner->unit : unit;
        }
        if (unit == kNobody) {
            database->run("INSERT INTO unit(label) VALUES(NULLIF(?, ''))", one.by == "serial" ? "" : one.unit);
            unit = database->lastRow();
        }
        const State state = one.used ? State::kWritten : State::kSending;
        for (const auto& [record, text] : uniqueOf(one.values)) {
            const auto owner = ownerOf(record->space, text);
            if (!owner) {
                put(*record, text, unit, state, "imported");
                ++fresh;
            } else if (owner->unit != unit) {
                note("given-twice", record->space, text, unit, "imported from a ledger");
                givenTwice.push_back(shown(record->name, text) + ", which unit " + nameOf(owner->unit) + " has");
            } else if (owner->state == State::kSending && one.used) {
                put(*record, text, unit, state, "imported");
            }
        }
        for (const std::string& serial : {one.held, one.by == "label" ? std::string() : one.unit}) {
            if (factory != nullptr && !rules.isPlaceholder(*factory, serial) &&
                !ownerOf(factory->space, registryText(*factory, serial))) {
                put(*factory, registryText(*factory, serial), unit, State::kSeen, "imported");
            }
        }
        return fresh;
    }

    std::size_t takeAll(const LedgerFile& ledger)
    {
        std::size_t fresh = 0;
        for (const auto& one : ledger.reservations()) {
            fresh += take(one);
        }
        return fresh;
    }

    void refuseForeign(const LedgerFile& ledger, const std::string& file) const
    {
        if (!ledger.registry().empty() && ledger.registry() != uuid) {
            throw RegistryError(file + ": its values are given away by registry " + ledger.registry() +
                                ", and this station has registry " + uuid + " (" + path + ")");
        }
    }

    const std::string path;
    const Records records;
    const UnitRules& rules;
    const Interrupt* interrupt;
    const Access access;
    std::optional<LockFile> locks;  // nothing when it only looks
    std::optional<Database> database;
    std::optional<Statement> owners;
    std::vector<UnitId> locked;
    std::string uuid;
    std::string trouble;  // why nothing may be given
    std::vector<std::string> givenTwice;
};

Registry::Registry(const std::string& path, Records records, const UnitRules& rules, const Interrupt* interrupt,
                   Access access)
    : impl_(std::make_unique<Impl>(path, records, rules, interrupt, access))
{
}

Registry::~Registry() = default;

Registry::Grant Registry::reserve(const CsvTable& table, const UnitOnLine& unit,
                                  const std::optional<std::string>& serial, bool dryRun)
{
    Impl& my = *impl_;
    my.refuseCopy();
    const std::string file = ledgerPath(table.path);
    std::optional<LedgerFile> ledger(std::in_place, file, my.interrupt, !dryRun);
    my.refuseForeign(*ledger, file);
    if (!dryRun && !ledger->reservations().empty()) {
        Transaction import(*my.database);
        my.takeAll(*ledger);
        my.commit(import);
    }
    if (!dryRun) {
        ledger->nameRegistry(my.uuid);
    }

    Transaction transaction(*my.database);
    if (dryRun) {
        my.takeAll(*ledger);
    }
    ledger.reset();
    const auto rowOfSerial = [&](const std::string& wanted) {
        const auto found = std::ranges::find_if(table.rows, [&](const CsvRow& row) {
            const auto value = row.values.find(kFactorySerial);
            return value != row.values.end() && value->second == wanted;
        });
        return found == table.rows.end() ? nullptr : &*found;
    };
    if (serial && rowOfSerial(*serial) == nullptr) {
        throw NotGiven(table.path + ": no row has factory serial " + *serial);
    }
    Impl::Known known = my.identify(unit);
    const CsvRow* row = my.rowFor(table, known.unit);
    const bool again = row != nullptr;
    if (again && serial && row != rowOfSerial(*serial)) {
        throw NotGiven("unit " + my.nameOf(known.unit) + " has been given line " + std::to_string(row->line) + " of " +
                       table.path + ", not the one of factory serial " + *serial);
    }
    if (again) {
        known.shown = known.shown || my.holdsAny(unit, my.uniqueOf(row->values));
        my.refuseStranger(known, unit, "line " + std::to_string(row->line) + " of " + table.path);
    } else if (serial) {
        row = rowOfSerial(*serial);
    } else if (const auto held = unit.held.find(kFactorySerial); unit.label.empty() && held != unit.held.end()) {
        row = rowOfSerial(held->second);
    }
    if (row == nullptr) {
        const auto isFree = [&](const CsvRow& one) {
            return std::ranges::all_of(my.uniqueOf(one.values), [&](const auto& entry) {
                const auto owner = my.ownerOf(entry.first->space, entry.second);
                return !owner || (owner->unit == known.unit && known.unit != kNobody);
            });
        };
        const auto found = std::ranges::find_if(table.rows, isFree);
        if (found == table.rows.end()) {
            throw NotGiven(table.path + ": all " + std::to_string(table.rows.size()) + " rows have been given away");
        }
        row = &*found;
    }
    std::vector<std::pair<Impl::Claim, std::pair<const Record*, std::string>>> claims;
    for (const auto& entry : my.uniqueOf(row->values)) {
        try {
            claims.emplace_back(my.judge(known, unit, *entry.first, entry.second), entry);
        } catch (const NotGiven& error) {
            throw NotGiven(table.path + ":" + std::to_string(row->line) + ": " + error.what());
        }
    }
    const UnitId id = my.settle(known, unit);
    for (const auto& [claim, entry] : claims) {
        my.reserveValue(claim, *entry.first, entry.second, id, unit);
    }
    Grant grant{id, my.nameOf(id), *row, again};
    if (!dryRun) {
        my.lockUnit(id);
        my.commit(transaction);
    }
    return grant;
}

Registry::Grant Registry::claim(const Values& values, std::span<const ValueRange> ranges, const UnitOnLine& unit,
                                bool dryRun)
{
    Impl& my = *impl_;
    my.refuseCopy();
    Transaction transaction(*my.database);
    Impl::Known known = my.identify(unit);
    known.shown = known.shown || my.holdsAny(unit, my.uniqueOf(values));
    Grant grant{0, {}, {0, values}, false};
    std::vector<std::pair<Impl::Claim, std::pair<const Record*, std::string>>> claims;
    for (const auto& entry : my.uniqueOf(values)) {
        claims.emplace_back(my.judge(known, unit, *entry.first, entry.second), entry);
    }
    for (const ValueRange& range : ranges) {
        const std::string value = my.nextOf(range, known, unit, grant.row.values);
        grant.again = grant.again || my.ownerOf(range.record->space, value).has_value();
        claims.emplace_back(my.judge(known, unit, *range.record, value), std::pair(range.record, value));
        grant.row.values[std::string(range.record->name)] = value;
    }
    grant.unit = my.settle(known, unit);
    for (const auto& [claim, entry] : claims) {
        my.reserveValue(claim, *entry.first, entry.second, grant.unit, unit);
    }
    grant.name = my.nameOf(grant.unit);
    if (!dryRun) {
        my.lockUnit(grant.unit);
        my.commit(transaction);
    }
    return grant;
}

std::optional<CsvRow> Registry::rowOf(const CsvTable& table, const std::string& label)
{
    Impl& my = *impl_;
    const LedgerFile ledger(ledgerPath(table.path), my.interrupt, false);
    my.refuseForeign(ledger, ledgerPath(table.path));
    Transaction transaction(*my.database);
    my.takeAll(ledger);
    const CsvRow* row = my.rowFor(table, my.unitOfLabel(label));
    return row == nullptr ? std::nullopt : std::optional(*row);
}

std::pair<UnitId, bool> Registry::send(const Record& record, std::string_view value, const UnitOnLine& unit,
                                       std::optional<UnitId> before)
{
    Impl& my = *impl_;
    my.refuseCopy();
    Transaction transaction(*my.database);
    Impl::Known known = my.identify(unit);
    if (before && known.unit != kNobody && known.unit != *before && unit.reissue.empty()) {
        throw NotGiven("another unit is on the line than before: " + my.nameOf(known.unit) + ", not " +
                       my.nameOf(*before));
    }
    if (before) {
        known = {*before, true};
    }
    const std::string text = registryText(record, value);
    const Impl::Claim claim = my.judge(known, unit, record, text);
    const UnitId id = my.settle(known, unit);
    const bool gives = claim != Impl::Claim::kHeld && !Impl::holds(unit, record, text);
    if (!gives) {
        my.note("seen", record.space, text, id);
    } else if (claim == Impl::Claim::kReissued) {
        my.note("reissued", record.space, text, id, unit.reissue);
    } else if (const auto owner = my.ownerOf(record.space, text);
               owner && (owner->state == State::kWritten || owner->state == State::kVerified)) {
        my.note("sending", record.space, text, id);
    } else {
        my.put(record, text, id, State::kSending);
    }
    my.commit(transaction);
    return {id, gives};
}

void Registry::conclude(UnitId unit, std::span<const Arrival> arrivals)
{
    Impl& my = *impl_;
    Transaction transaction(*my.database);
    for (const Arrival& one : arrivals) {
        const std::string text = registryText(*one.record, one.value);
        const auto owner = my.ownerOf(one.record->space, text);
        if (owner && owner->unit == unit && isGiven(owner->state) && owner->state < one.state) {
            my.put(*one.record, text, unit, one.state);
        }
    }
    my.commit(transaction);
}

void Registry::list(const std::function<void(const Entry&)>& tell, const std::optional<std::string>& value)
{
    Impl& my = *impl_;
    constexpr const char* kEvents =
        "SELECT time, event, unit, reason FROM event WHERE space = ? AND value = ? ORDER BY id";
    const auto nameOf = [&](UnitId unit) { return unit == kNobody ? "" : my.nameOf(unit); };
    const auto tellAll = [&](Statement statement) {
        while (statement.step()) {
            Entry entry{statement.text(0),          statement.text(1), statement.text(2), nameOf(statement.number(3)),
                        stateOf(statement.text(4)), statement.text(5), statement.text(6), {}};
            if (value) {
                Statement events = my.database->prepare(kEvents, entry.space, entry.value);
                while (events.step()) {
                    entry.events.push_back({events.text(0), events.text(1), nameOf(events.number(2)), events.text(3)});
                }
            }
            tell(entry);
        }
    };
    constexpr const char* kAll =
        "SELECT space, value, record, unit, state, time, reason FROM value ORDER BY space, value";
    constexpr const char* kOne =
        "SELECT space, value, record, unit, state, time, reason FROM value WHERE space = ? AND value = ?";
    if (!value) {
        tellAll(my.database->prepare(kAll));
        return;
    }
    std::vector<std::string_view> done;
    for (const Record& record : my.records) {
        if (record.unique && std::ranges::find(done, record.space) == done.end()) {
            done.push_back(record.space);
            tellAll(my.database->prepare(kOne, record.space, registryText(record, bytesOf(*value))));
        }
    }
}

void Registry::block(const std::string& value, const std::string& reason)
{
    Impl& my = *impl_;
    my.refuseCopy();
    Transaction transaction(*my.database);
    std::vector<std::string_view> done;
    for (const Record& record : my.records) {
        std::string text;
        try {
            const std::string bytes = bytesOf(value);
            text = record.unique ? registryText(record, bytes == value ? normalise(record, value) : bytes) : "";
        } catch (const std::invalid_argument&) {
            continue;
        }
        if (text.empty() || std::ranges::find(done, record.space) != done.end()) {
            continue;
        }
        if (my.rules.isPlaceholder(record, bytesOf(value))) {
            throw NotGiven("'" + value + "' means that a unit has no " + std::string(record.name) +
                           ": it belongs to nobody, and blocking it would keep it from no unit");
        }
        done.push_back(record.space);
        if (const auto owner = my.ownerOf(record.space, text); owner && owner->state != State::kBlocked) {
            throw NotGiven(shown(owner->record, text) + " has been given to unit " + my.nameOf(owner->unit) +
                           " and is not given again anyway");
        }
        my.database->run("INSERT OR REPLACE INTO value VALUES(?, ?, '', ?, 'blocked', ?, ?)", record.space, text,
                         kNobody, now(), reason);
        my.note("blocked", record.space, text, kNobody, reason);
    }
    if (done.empty()) {
        throw NotGiven("'" + value + "' cannot be a value of any unique record");
    }
    my.commit(transaction);
}

std::size_t Registry::importLedger(const std::string& path)
{
    Impl& my = *impl_;
    my.refuseCopy();
    if (!fs::exists(path)) {
        throw RegistryError(path + ": there is no such file");
    }
    LedgerFile ledger(path, my.interrupt, true);
    my.refuseForeign(ledger, path);
    Transaction transaction(*my.database);
    const std::size_t fresh = my.takeAll(ledger);
    my.commit(transaction);
    ledger.nameRegistry(my.uuid);
    return fresh;
}

std::size_t Registry::importTable(const CsvTable& table)
{
    Impl& my = *impl_;
    my.refuseCopy();
    Transaction transaction(*my.database);
    std::size_t fresh = 0;
    for (const CsvRow& row : table.rows) {
        fresh += my.take({"", "serial", "", row.values, true});
    }
    my.commit(transaction);
    return fresh;
}

void Registry::adopt()
{
    Impl& my = *impl_;
    Transaction transaction(*my.database);
    my.database->run("UPDATE registry SET mark = ?", markOf(my.path));
    my.note("adopted", "", "", kNobody, my.trouble);
    my.commit(transaction);
    my.trouble.clear();
}

const std::vector<std::string>& Registry::givenTwice() const
{
    return impl_->givenTwice;
}

const std::string& Registry::uuid() const
{
    return impl_->uuid;
}

const std::string& Registry::path() const
{
    return impl_->path;
}

}  // namespace station::identity
