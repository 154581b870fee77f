#include "station/identity/Journal.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <system_error>

#include "station/identity/JsonLine.h"

namespace station::identity {

namespace {

using nlohmann::ordered_json;

ordered_json valueOf(const Stored& stored)
{
    return stored.present ? ordered_json(stored.value) : ordered_json(nullptr);
}

}  // namespace

Journal::Journal(const std::string& path) : path_(path), descriptor_(-1)
{
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    descriptor_ = open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor_ < 0) {
        fail();
    }
}

Journal::~Journal()
{
    close(descriptor_);
}

void Journal::note(const std::string& port, const std::string& unit, const Done& done, const std::string& waived)
{
    ordered_json line{{"port", port},
                      {"unit", unit},
                      {"record", done.record->name},
                      {"old", valueOf(done.before)},
                      {"new", done.wanted},
                      {"read", valueOf(done.after)},
                      {"result", name(done.result)}};
    if (!waived.empty()) {
        line["waived"] = waived;
    }
    append(jsonLine(line));
}

void Journal::noteEnd(const std::string& port, const std::string& unit, const std::string& why)
{
    append(jsonLine({{"port", port}, {"unit", unit}, {"result", "ended"}, {"reason", why}}));
}

/// @returns whether the last line has no end: a disk was full, or a station died.
bool Journal::endsWithinALine() const
{
    struct stat file = {};
    char last = '\n';
    return fstat(descriptor_, &file) == 0 && S_ISREG(file.st_mode) && file.st_size > 0 &&
           pread(descriptor_, &last, 1, file.st_size - 1) == 1 && last != '\n';
}

void Journal::append(std::string line)
{
    if (endsWithinALine()) {
        line.insert(0, 1, '\n');
    }
    // One call: what is appended at once does not mix with what others append.
    const ssize_t written = ::write(descriptor_, line.data(), line.size());
    if (written >= 0 && static_cast<std::size_t>(written) != line.size()) {
        errno = ENOSPC;
    }
    if (written != static_cast<ssize_t>(line.size()) || (fsync(descriptor_) != 0 && errno != EINVAL)) {
        fail();
    }
}

void Journal::fail() const
{
    throw std::system_error(errno, std::generic_category(), path_ + ": cannot write the journal");
}

}  // namespace station::identity
