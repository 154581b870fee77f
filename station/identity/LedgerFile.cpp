#include "station/identity/LedgerFile.h"

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
#include <utility>

#include "station/identity/JsonLine.h"
#include "station/identity/Registry.h"

namespace station::identity {

namespace {

namespace fs = std::filesystem;
using nlohmann::ordered_json;

/// A ledger is held for a moment only; a station that was stopped in it must not stop all others without a word.
constexpr auto kLockPatience = std::chrono::seconds(10);
constexpr int kLookAgainMs = 10;

/// Stands for the whole file, beyond every line that there can be.
constexpr off_t kWhole = off_t{1} << 60;

/// More than a million units take.
constexpr std::size_t kMostBytes = std::size_t{1} << 29;

}  // namespace

std::string ledgerPath(const std::string& csvPath)
{
    std::error_code error;
    const fs::path file = fs::canonical(csvPath, error);
    return (error ? fs::path(csvPath) : file).string() + ".ledger";
}

LedgerFile::LedgerFile(std::string path, const Interrupt* interrupt, bool mayCreate) : path_(std::move(path))
{
    descriptor_ = open(path_.c_str(), (mayCreate ? O_RDWR | O_CREAT : O_RDONLY) | O_APPEND | O_CLOEXEC, 0666);
    if (descriptor_ < 0 && (mayCreate || errno != ENOENT)) {
        fail(std::generic_category().message(errno));
    }
    if (descriptor_ < 0) {
        return;
    }
    try {
        if (mayCreate) {
            lock(interrupt);
        }
        std::string text;
        std::array<char, 65536> chunk;
        ssize_t got = 0;
        while ((got = ::read(descriptor_, chunk.data(), chunk.size())) > 0 && text.size() < kMostBytes) {
            text.append(chunk.data(), static_cast<std::size_t>(got));
        }
        if (got != 0) {
            fail(got < 0 ? std::generic_category().message(errno) : "expected a ledger of less than 512 MiB");
        }
        end_ = static_cast<off_t>(text.size());
        endsWithinLine_ = !text.empty() && text.back() != '\n';
        std::size_t number = 0;
        for (std::size_t begin = 0; begin < text.size();) {
            const std::size_t end = std::min(text.find('\n', begin), text.size());
            take(text.substr(begin, end - begin), ++number);
            begin = end + 1;
        }
    } catch (...) {
        close(descriptor_);
        throw;
    }
}

LedgerFile::~LedgerFile()
{
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

void LedgerFile::lock(const Interrupt* interrupt)
{
    struct flock request = {};
    request.l_type = F_WRLCK;
    request.l_start = kWhole;
    request.l_len = 1;
    const auto giveUpAt = std::chrono::steady_clock::now() + kLockPatience;
    while (fcntl(descriptor_, F_OFD_SETLK, &request) != 0) {
        if (errno != EAGAIN && errno != EACCES) {
            fail("cannot be locked: " + std::generic_category().message(errno));
        }
        if (std::chrono::steady_clock::now() >= giveUpAt) {
            fail("another station keeps it locked");
        }
        pollfd wish{interrupt == nullptr ? -1 : interrupt->descriptor(), POLLIN, 0};
        poll(&wish, 1, kLookAgainMs);
        if (wish.revents != 0) {
            throw Interrupted();
        }
    }
}

void LedgerFile::take(const std::string& text, std::size_t number)
{
    try {
        const auto line = ordered_json::parse(text);
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
        fail("line " + std::to_string(number) +
             " cannot be read: nothing is given away until somebody has looked which unit it stands for");
    }
}

void LedgerFile::nameRegistry(const std::string& uuid)
{
    if (registry_ == uuid && reservations_.empty()) {
        return;
    }
    const std::string line = (endsWithinLine_ ? "\n" : "") + jsonLine({{"event", "registry"}, {"uuid", uuid}});
    errno = ENOSPC;  // of a write that took a part only
    const ssize_t written = ::write(descriptor_, line.data(), line.size());
    if (written == static_cast<ssize_t>(line.size()) && fsync(descriptor_) == 0) {
        registry_ = uuid;
        return;
    }
    const std::string why = std::generic_category().message(errno);
    // Half a line would keep everybody from using it.
    [[maybe_unused]] const int cut = ftruncate(descriptor_, end_);
    fail("cannot be written: " + why);
}

void LedgerFile::fail(const std::string& what) const
{
    throw RegistryError(path_ + ": " + what);
}

}  // namespace station::identity
