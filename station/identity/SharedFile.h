#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "host/Descriptor.h"
#include "protocol/Errors.h"

namespace station::identity {

/// An open file that several stations share: locks bytes of it and appends JSON lines. Throws StorageError.
class SharedFile
{
public:
    /// Without O_CREAT a file that does not exist is an object that is not open.
    /// @param flags,mode as open() takes them
    /// @param status of the error if the file cannot be opened
    SharedFile(std::string path, int flags, mode_t mode, protocol::ExitStatus status = protocol::kFailed);
    SharedFile(const SharedFile&) = delete;
    SharedFile& operator=(const SharedFile&) = delete;

    bool isOpen() const { return descriptor_.valid(); }
    int descriptor() const { return descriptor_.get(); }
    const std::string& path() const { return path_; }

    /// Takes an open-file-description lock on one byte, or releases it (F_UNLCK); does not wait.
    /// @returns 0, or the error number
    int lockByte(off_t offset, short type = F_WRLCK) const;

    /// Appends the object as one line, led by "schema" and "time"; on the disk when this returns. Lines of several
    /// stations do not mix. If the last line has no end, because the disk was full or a station died, it gets one.
    void append(const nlohmann::ordered_json& object) const;

    [[noreturn]] void fail(const std::string& what) const;

private:
    const std::string path_;
    const host::Descriptor descriptor_;
};

}  // namespace station::identity
