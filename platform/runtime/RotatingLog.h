#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/runtime/Descriptor.h"

namespace runtime {

/// A log file in a directory, cut when it is full: NAME is the newest part, NAME.0 the one before, and so on. Each line
/// is one write to a file that stays open, so that a line costs as little as it can and is in the file when add()
/// returns. Any thread.
///
/// The file may be removed or replaced by others at any time, as a factory reset does: the first line that is added a
/// tenth of a second later, if not one before, makes it anew.
class RotatingLog
{
public:
    /// How often the file is looked at. To do so for each line would take as long as the line's write.
    static constexpr std::chrono::milliseconds kLookEvery{100};

    /// @param directory descriptor of the directory, O_PATH is enough; not owned, it outlives this object
    /// @param name of the newest part, without a directory
    /// @param partSize bytes; a line that would make a part longer begins a new one
    /// @param oldParts how many parts are kept besides the newest
    RotatingLog(int directory, std::string name, off_t partSize, int oldParts,
                std::chrono::milliseconds lookEvery = kLookEvery);
    RotatingLog(const RotatingLog&) = delete;
    RotatingLog& operator=(const RotatingLog&) = delete;

    /// Opens the file, makes it where there is none.
    /// @returns false when that cannot be done; errno says why.
    bool open();

    /// Adds one line, its newline included.
    /// @returns false when it could not be written, or only a part of it.
    bool add(std::string_view line);

private:
    bool openLocked();
    bool lookLocked();
    void rotateLocked();

    const int directory_;
    const std::string name_;
    const off_t partSize_;
    const int oldParts_;
    const std::chrono::milliseconds lookEvery_;

    std::mutex mutex_;
    std::unique_ptr<const Descriptor> file_;  // null: not open; guarded by mutex_
    ino_t inode_ = 0;                         // of file_; guarded by mutex_
    off_t size_ = 0;                          // as far as it is known; guarded by mutex_
    std::chrono::milliseconds lookedAt_{};    // guarded by mutex_
};

}  // namespace runtime
