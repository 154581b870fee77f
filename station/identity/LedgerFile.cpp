#include "station/identity/LedgerFile.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "protocol/Text.h"

namespace station::identity {

namespace {

/// Stations hold a ledger for a moment; one that was stopped meanwhile must not block the others for ever.
constexpr auto kLockPatience = std::chrono::seconds(10);
constexpr int kTryLockAgainMs = 10;

/// The byte that is locked for the whole file, after every line that there can be.
constexpr off_t kWholeFile = off_t{1} << 60;

/// More than a million units take.
constexpr std::size_t kMostBytes = std::size_t{1} << 29;

}  // namespace

std::string ledgerPath(const std::string& csvPath)
{
    std::error_code error;
    const std::filesystem::path file = std::filesystem::canonical(csvPath, error);
    return (error ? csvPath : file.string()) + ".ledger";
}

LedgerFile::LedgerFile(const std::string& path, const Interrupt* interrupt, bool mayCreate)
    : file_(path, (mayCreate ? O_RDWR | O_CREAT : O_RDONLY) | O_APPEND, 0666)
{
    if (!file_.isOpen()) {
        return;
    }
    if (mayCreate) {
        lock(interrupt);
    }
    const std::string text = read();
    end_ = static_cast<off_t>(text.size());
    std::size_t number = 0;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        take(text.substr(begin, end - begin), ++number);
        begin = end + 1;
    }
}

void LedgerFile::lock(const Interrupt* interrupt) const
{
    const auto giveUpAt = std::chrono::steady_clock::now() + kLockPatience;
    while (const int error = file_.lockByte(kWholeFile)) {
        if (error != EAGAIN && error != EACCES) {
            file_.fail("cannot be locked: " + std::generic_category().message(error));
        }
        if (std::chrono::steady_clock::now() >= giveUpAt) {
            file_.fail("another station keeps it locked: try again when it is done");
        }
        pollfd wish{interrupt == nullptr ? -1 : interrupt->descriptor(), POLLIN, 0};
        poll(&wish, 1, kTryLockAgainMs);
        if (wish.revents != 0) {
            throw Interrupted();
        }
    }
}

std::string LedgerFile::read() const
{
    std::string text;
    std::array<char, 65536> chunk;
    ssize_t got = 0;
    while ((got = ::read(file_.descriptor(), chunk.data(), chunk.size())) > 0 && text.size() < kMostBytes) {
        text.append(chunk.data(), static_cast<std::size_t>(got));
    }
    if (got != 0) {
        file_.fail(got < 0 ? protocol::unreadable(errno) : "expected a ledger of less than 512 MiB");
    }
    return text;
}

void LedgerFile::take(const std::string& text, std::size_t number)
{
    try {
        const auto line = nlohmann::json::parse(text);
        const std::string event = line.at("event").get<std::string>();
        if (event == "registry") {
            registry_ = line.at("uuid").get<std::string>();
            reservations_.clear();
            newest_.clear();
            return;
        }
        const std::string unit = line.at("unit").get<std::string>();
        const std::string by = line.value("by", "");
        if (event == "reserved") {
            newest_[{unit, by}] = reservations_.size();
            reservations_.push_back({unit, by, line.value("held", ""), line.at("values").get<Values>()});
        } else if (const auto own = newest_.find({unit, by}); own != newest_.end()) {
            reservations_[own->second].used = true;  // "verified" or "written"
        }
    } catch (const nlohmann::json::exception&) {
        file_.fail(
            fmt::format("line {}: expected a JSON object of a ledger; no value is given until you repair it", number));
    }
}

void LedgerFile::nameRegistry(const std::string& uuid)
{
    if (registry_ == uuid && reservations_.empty()) {
        return;
    }
    try {
        file_.append({{"event", "registry"}, {"uuid", uuid}});
    } catch (const protocol::StorageError&) {
        // Half a line would make the ledger unreadable.
        [[maybe_unused]] const int cut = ftruncate(file_.descriptor(), end_);
        throw;
    }
    registry_ = uuid;
}

}  // namespace station::identity
