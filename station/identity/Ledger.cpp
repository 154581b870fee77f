#include "station/identity/Ledger.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "station/identity/JsonLine.h"

namespace station::identity {

namespace {

namespace fs = std::filesystem;
using nlohmann::ordered_json;
using FileLock = struct flock;

/// A ledger is held for a moment only; a station that was stopped in it must not stop all others without a word.
constexpr auto kPatience = std::chrono::seconds(10);
constexpr int kLookAgainMs = 10;

/// Stands for the whole: beyond every line that there can be.
constexpr off_t kWhole = off_t{1} << 60;

FileLock lockOf(int type, off_t offset)
{
    FileLock lock{};
    lock.l_type = static_cast<short>(type);
    lock.l_whence = SEEK_SET;
    lock.l_start = offset;
    lock.l_len = 1;
    return lock;
}

/// Makes the name of a new file last.
void syncFolder(const std::string& path)
{
    const int folder = open(fs::path(path).parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        fsync(folder);
        close(folder);
    }
}

/// @returns the factory serial number among the values, empty for none.
std::string serialOf(const Values& values)
{
    const auto found = values.find("factory-serial");
    return found == values.end() ? "" : found->second;
}

constexpr const char* kLabel = "label";
constexpr const char* kSerial = "serial";

bool shareAValue(const Values& one, const Values& other)
{
    return std::ranges::any_of(one, [&](const auto& entry) {
        const auto found = other.find(entry.first);
        return found != other.end() && found->second == entry.second;
    });
}

std::string noRowWith(const CsvTable& table, const std::string& serial)
{
    return table.path + ": no row has factory serial " + serial;
}

}  // namespace

/// Held while the ledger is read and added to.
class Ledger::WholeLock
{
public:
    explicit WholeLock(Ledger& ledger) : ledger_(ledger)
    {
        if (ledger.descriptor_ < 0) {
            return;
        }
        const auto giveUpAt = std::chrono::steady_clock::now() + kPatience;
        while (!ledger.tryLock(kWhole)) {
            if (std::chrono::steady_clock::now() >= giveUpAt) {
                ledger.fail("another station keeps it locked");
            }
            pollfd request{ledger.interrupt_ == nullptr ? -1 : ledger.interrupt_->descriptor(), POLLIN, 0};
            poll(&request, 1, kLookAgainMs);
            if (request.revents != 0) {
                throw Interrupted();
            }
        }
    }

    ~WholeLock()
    {
        if (ledger_.descriptor_ < 0) {
            return;
        }
        FileLock lock = lockOf(F_UNLCK, kWhole);
        fcntl(ledger_.descriptor_, F_OFD_SETLK, &lock);
    }

    WholeLock(const WholeLock&) = delete;
    WholeLock& operator=(const WholeLock&) = delete;

private:
    Ledger& ledger_;
};

Ledger::Ledger(const std::string& csvPath, Records records, const Interrupt* interrupt, Access access)
    : records_(records), interrupt_(interrupt), access_(access)
{
    // Two names of one file must not lead to two ledgers.
    std::error_code error;
    const fs::path file = fs::canonical(csvPath, error);
    path_ = (error ? fs::path(csvPath) : file).string() + ".ledger";
    const bool looks = access_ == Access::kLook;
    descriptor_ = open(path_.c_str(), (looks ? O_RDONLY : O_RDWR | O_APPEND) | O_CLOEXEC);
    if (descriptor_ < 0 && errno == ENOENT) {
        if (looks) {
            return;
        }
        descriptor_ = open(path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
        syncFolder(path_);
    }
    if (descriptor_ < 0) {
        fail(std::generic_category().message(errno));
    }
}

Ledger::~Ledger()
{
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

Ledger::Grant Ledger::reserve(const CsvTable& table, const Unit& unit, const std::optional<std::string>& serial,
                              bool dryRun)
{
    const WholeLock lock(*this);
    const Reservations given = load();
    const auto rowOfSerial = [&](const std::string& wanted) {
        return std::ranges::find_if(table.rows, [&](const CsvRow& row) { return serialOf(row.values) == wanted; });
    };

    if (const auto own = ownOf(unit, given); own != given.end()) {
        const CsvRow* row = rowFor(table, *own);
        if (serial && rowOfSerial(*serial) == table.rows.end()) {
            throw NoRow(noRowWith(table, *serial));
        }
        if (serial && serialOf(row->values) != *serial) {
            throw NoRow("unit " + own->unit.text + " has been given line " + std::to_string(row->line) + " of " +
                        table.path + ", not the one of factory serial " + *serial);
        }
        refuseOthers(table, *row, *own, unit);
        if (!dryRun && !tryLock(own->offset)) {
            throw NoRow("another station works on unit " + own->unit.text);
        }
        granted_ = own->unit;
        return {*row, own->unit.text, true};
    }

    const auto owner = [&](const CsvRow& row) {
        const Values unique = uniqueValues(row.values, records_);
        return std::ranges::find_if(given, [&](const Reservation& one) { return shareAValue(one.values, unique); });
    };
    auto row = table.rows.end();
    if (serial) {
        row = rowOfSerial(*serial);
    } else if (unit.id.empty()) {
        row = rowOfSerial(unit.serial);
    }
    if (row == table.rows.end() && !serial) {
        row = std::ranges::find_if(table.rows, [&](const CsvRow& one) { return owner(one) == given.end(); });
    }
    if (row == table.rows.end()) {
        throw NoRow(serial ? noRowWith(table, *serial)
                           : table.path + ": all " + std::to_string(table.rows.size()) + " rows have been given away");
    }
    if (const auto other = owner(*row); other != given.end()) {
        throw NoRow(table.path + ":" + std::to_string(row->line) + ": a value of this row has been given to unit " +
                    other->unit.text);
    }
    const Name name = unit.id.empty() ? Name{unit.serial, kSerial} : Name{unit.id, kLabel};
    if (!dryRun) {
        const off_t offset = end_;
        append(jsonLine({{"event", "reserved"},
                         {"unit", name.text},
                         {"by", name.by},
                         {"held", unit.serial},
                         {"line", row->line},
                         {"values", ordered_json(uniqueValues(row->values, records_))}}));
        if (!tryLock(offset)) {
            fail("another station has locked a reservation that was not there");
        }
    }
    granted_ = name;
    return {*row, name.text, false};
}

std::optional<CsvRow> Ledger::rowOf(const CsvTable& table, const std::string& id)
{
    const WholeLock lock(*this);
    const Reservations given = load();
    const auto own = std::ranges::find_if(given, [&](const Reservation& one) { return one.unit.is(id, kLabel); });
    return own == given.end() ? std::nullopt : std::optional(*rowFor(table, *own));
}

Ledger::Reservations::const_iterator Ledger::ownOf(const Unit& unit, const Reservations& given) const
{
    // What the unit holds is stronger than what somebody calls it.
    const auto holder = unit.serial.empty() ? given.end() : std::ranges::find_if(given, [&](const Reservation& one) {
        return serialOf(one.values) == unit.serial;
    });
    const auto named = [&](const std::string& text, const char* kind) {
        return std::ranges::find_if(given, [&](const Reservation& one) { return one.unit.is(text, kind); });
    };
    if (unit.id.empty()) {
        return holder != given.end() ? holder : named(unit.serial, kSerial);
    }
    if (holder != given.end() && !holder->unit.is(unit.id, kLabel)) {
        throw NoRow("this is no unit " + unit.id + ": it holds factory serial " + unit.serial +
                    ", which was given to unit " + holder->unit.text);
    }
    return named(unit.id, kLabel);
}

void Ledger::refuseOthers(const CsvTable& table, const CsvRow& row, const Reservation& own, const Unit& unit) const
{
    const std::string given = serialOf(own.values);
    if (shareAValue(unit.held, own.values) || (!unit.serial.empty() && unit.serial == given)) {
        return;
    }
    const std::string where = "line " + std::to_string(row.line) + " of " + table.path;
    if (!unit.serial.empty() && !given.empty() && unit.serial != own.held) {
        throw NoRow("this is no unit " + own.unit.text + ": it holds factory serial " + unit.serial + ", and " + where +
                    ", which unit " + own.unit.text + " was given, has " + given);
    }
    if (own.used && !unit.erased) {
        throw NoRow("unit " + own.unit.text + " was given " + where +
                    " and has had its values; the one on the line holds none of them: give another --unit, or --again "
                    "when it is the same unit and its memory was erased");
    }
}

void Ledger::noteUsed(bool verified)
{
    const WholeLock lock(*this);
    load();
    append(jsonLine({{"event", verified ? "verified" : "written"}, {"unit", granted_.text}, {"by", granted_.by}}));
}

const CsvRow* Ledger::rowFor(const CsvTable& table, const Reservation& reservation) const
{
    for (const CsvRow& row : table.rows) {
        const Values unique = uniqueValues(row.values, records_);
        if (unique == reservation.values) {
            return &row;
        }
        if (shareAValue(unique, reservation.values)) {
            throw NoRow(table.path + ":" + std::to_string(row.line) +
                        ": this row has changed since it was given to unit " + reservation.unit.text);
        }
    }
    throw NoRow("the row that was given to unit " + reservation.unit.text + " is no longer in " + table.path);
}

Ledger::Reservations Ledger::load()
{
    std::string text;
    std::array<char, 65536> chunk;
    while (descriptor_ >= 0) {
        const ssize_t got = pread(descriptor_, chunk.data(), chunk.size(), static_cast<off_t>(text.size()));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            fail(std::generic_category().message(errno));
        }
        if (got == 0) {
            break;
        }
        text.append(chunk.data(), static_cast<std::size_t>(got));
    }
    // Behind the last line end stands what a station had begun to write when it died: nothing that it has used.
    const std::size_t whole = text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n') + 1;
    if (whole < text.size() && access_ == Access::kReserve && ftruncate(descriptor_, static_cast<off_t>(whole)) != 0) {
        fail(std::generic_category().message(errno));
    }
    text.resize(whole);
    end_ = static_cast<off_t>(whole);

    const auto nameIn = [](const ordered_json& line) {
        return Name{line.at("unit").get<std::string>(), line.value("by", "")};
    };
    Reservations all;
    std::size_t number = 1;
    for (std::size_t begin = 0; begin < text.size(); ++number) {
        const std::size_t end = text.find('\n', begin);
        try {
            const auto line = ordered_json::parse(text.begin() + static_cast<std::ptrdiff_t>(begin),
                                                  text.begin() + static_cast<std::ptrdiff_t>(end));
            const std::string event = line.at("event").get<std::string>();
            if (event == "reserved") {
                all.push_back(
                    {nameIn(line), line.value("held", ""), line.at("values").get<Values>(), static_cast<off_t>(begin)});
            } else if (event == "verified" || event == "written") {
                const auto own = std::ranges::find(all, nameIn(line), &Reservation::unit);
                if (own != all.end()) {
                    own->used = true;
                }
            }
        } catch (const nlohmann::json::exception&) {
            fail("line " + std::to_string(number) +
                 " cannot be read: nothing is given away until somebody has looked which unit it stands for");
        }
        begin = end + 1;
    }
    return all;
}

void Ledger::append(const std::string& line)
{
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t written = ::write(descriptor_, rest.data(), rest.size());
        if (written > 0) {
            rest.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            const std::string why = std::generic_category().message(errno);
            // If it stays, the next one who reads takes it away.
            [[maybe_unused]] const int cut = ftruncate(descriptor_, end_);
            fail("cannot be written: " + why);
        }
    }
    if (fsync(descriptor_) != 0) {
        fail("cannot be written: " + std::generic_category().message(errno));
    }
}

bool Ledger::tryLock(off_t offset) const
{
    FileLock lock = lockOf(access_ == Access::kLook ? F_RDLCK : F_WRLCK, offset);
    if (fcntl(descriptor_, F_OFD_SETLK, &lock) == 0) {
        return true;
    }
    if (errno != EAGAIN && errno != EACCES) {
        fail("cannot be locked: " + std::generic_category().message(errno));
    }
    return false;
}

void Ledger::fail(const std::string& what) const
{
    throw LedgerError(path_ + ": " + what);
}

}  // namespace station::identity
