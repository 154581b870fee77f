#include "platform/runtime/RotatingLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace runtime {
namespace {

/// A clock that is right to a few milliseconds, and read without asking the hardware.
std::chrono::milliseconds coarseNow()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::seconds(now.tv_sec) + std::chrono::milliseconds(now.tv_nsec / 1'000'000);
}

}  // namespace

RotatingLog::RotatingLog(int directory, std::string name, off_t partSize, int oldParts,
                         std::chrono::milliseconds lookEvery)
    : directory_(directory), name_(std::move(name)), partSize_(partSize), oldParts_(oldParts), lookEvery_(lookEvery)
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
    if (!lookLocked() && !openLocked())
        return false;
    if (size_ > 0 && size_ + static_cast<off_t>(line.size()) > partSize_) {
        rotateLocked();
        if (!openLocked())
            return false;
    }
    const ssize_t written = write(file_->get(), line.data(), line.size());
    size_ += std::max<ssize_t>(written, 0);
    return written == static_cast<ssize_t>(line.size());
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
    size_ = status.st_size;
    lookedAt_ = coarseNow();
    file_ = std::move(file);
    return true;
}

/// Looks, when it is time to, whether the open file is still the one that has the name, and how long it is.
/// @returns false when it has to be opened.
bool RotatingLog::lookLocked()
{
    if (!file_)
        return false;
    const std::chrono::milliseconds now = coarseNow();
    struct stat status = {};
    // A file that was removed has no name any more; what is told right after a factory reset must not go with it.
    if (lookEvery_ > lookEvery_.zero() && now - lookedAt_ < lookEvery_)
        return fstat(file_->get(), &status) == 0 && status.st_nlink > 0;
    lookedAt_ = now;
    if (fstatat(directory_, name_.c_str(), &status, 0) != 0 || status.st_ino != inode_)
        return false;
    size_ = status.st_size;
    return true;
}

/// A rename that fails leaves the part where it is: then the log is longer than it should be, and nothing is lost.
void RotatingLog::rotateLocked()
{
    struct stat status = {};
    // Another process may have made a new part meanwhile.
    if (fstatat(directory_, name_.c_str(), &status, 0) != 0 || status.st_ino != inode_)
        return;
    for (int part = oldParts_ - 1; part >= 0; --part) {
        const std::string to = name_ + "." + std::to_string(part);
        const std::string from = part == 0 ? name_ : name_ + "." + std::to_string(part - 1);
        renameat(directory_, from.c_str(), directory_, to.c_str());
    }
}

}  // namespace runtime
