#include "station/identity/SharedFile.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "protocol/Text.h"
#include "station/ClockText.h"

namespace station::identity {

namespace {

/// Of every line of a ledger and of a journal.
constexpr int kLineSchema = 1;

bool endsWithinALine(int descriptor)
{
    struct stat file = {};
    char last = '\n';
    return fstat(descriptor, &file) == 0 && S_ISREG(file.st_mode) && file.st_size > 0 &&
           pread(descriptor, &last, 1, file.st_size - 1) == 1 && last != '\n';
}

}  // namespace

SharedFile::SharedFile(std::string path, int flags, mode_t mode, protocol::ExitStatus status)
    : path_(std::move(path)), descriptor_(open(path_.c_str(), flags | O_CLOEXEC, mode))
{
    if (!isOpen() && ((flags & O_CREAT) != 0 || errno != ENOENT)) {
        throw protocol::StorageError(
            fmt::format("{}: cannot be {}: {}", path_, (flags & O_CREAT) != 0 ? "written" : "read",
                        std::generic_category().message(errno)),
            status);
    }
}

int SharedFile::lockByte(off_t offset, short type) const
{
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = offset;
    lock.l_len = 1;
    return fcntl(descriptor(), F_OFD_SETLK, &lock) == 0 ? 0 : errno;
}

void SharedFile::append(const nlohmann::ordered_json& object) const
{
    nlohmann::ordered_json line{{"schema", kLineSchema}, {"time", isoUtc(std::chrono::system_clock::now(), 6)}};
    line.update(object);
    const std::string text =
        (endsWithinALine(descriptor()) ? "\n" : "") +
        protocol::printableJson(line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace)) + "\n";
    // One call: text that is appended at once does not mix with that of others.
    const ssize_t written = ::write(descriptor(), text.data(), text.size());
    if (written >= 0 && written != static_cast<ssize_t>(text.size())) {
        errno = ENOSPC;
    }
    // Files that are not on a disk cannot be synchronised: EINVAL.
    if (written != static_cast<ssize_t>(text.size()) || (fsync(descriptor()) != 0 && errno != EINVAL)) {
        fail("cannot be written: " + std::generic_category().message(errno));
    }
}

void SharedFile::fail(const std::string& what) const
{
    throw protocol::StorageError(path_ + ": " + what);
}

}  // namespace station::identity
