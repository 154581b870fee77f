#include "RotatingLog.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdio>
#include <utility>

namespace bench {

RotatingLog::RotatingLog(int directory, std::string name, off_t partSize, int oldParts)
    : directory_(directory), name_(std::move(name)), partSize_(partSize), oldParts_(oldParts)
{
}

bool RotatingLog::open()
{
    const std::lock_guard lock(mutex_);
    return openLocked();
}

bool RotatingLog::add(std::string_view line)
{
    const std::lock_guard lock(mutex_);
    off_t size = 0;
    if (!isCurrentLocked(size)) {
        if (!openLocked() || !isCurrentLocked(size))
            return false;
    }
    if (size > 0 && size + static_cast<off_t>(line.size()) > partSize_) {
        rotateLocked();
        if (!openLocked())
            return false;
    }
    return write(file_->get(), line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

bool RotatingLog::openLocked()
{
    file_.reset();
    constexpr mode_t kMode = S_IRUSR | S_IWUSR;
    // Non-blocking: what stands there may be a pipe that nobody reads.
    auto file = std::make_unique<const Descriptor>(
        openat(directory_, name_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, kMode));
    struct stat status = {};
    if (!file->valid() || fstat(file->get(), &status) != 0)
        return false;
    inode_ = status.st_ino;
    file_ = std::move(file);
    return true;
}

/// @returns whether the open file is the one that has the name; then with its size.
bool RotatingLog::isCurrentLocked(off_t& size) const
{
    struct stat status = {};
    if (!file_ || fstatat(directory_, name_.c_str(), &status, 0) != 0 || status.st_ino != inode_)
        return false;
    size = status.st_size;
    return true;
}

/// A rename that fails leaves the part where it is: then the log is longer than it should be, and nothing is lost.
void RotatingLog::rotateLocked()
{
    for (int part = oldParts_ - 1; part >= 0; --part) {
        const std::string to = name_ + "." + std::to_string(part);
        const std::string from = part == 0 ? name_ : name_ + "." + std::to_string(part - 1);
        renameat(directory_, from.c_str(), directory_, to.c_str());
    }
}

}  // namespace bench
