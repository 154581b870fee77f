#pragma once

#include <sys/resource.h>

#include <csignal>

/// Stands in for a full disk: while an object exists, no file of this process grows beyond a size, and writing more
/// fails. Printing into a file fails, too, so make no assertions meanwhile.
class FileSizeLimit
{
public:
    /// @param bytes the largest size of a file
    explicit FileSizeLimit(rlim_t bytes) : oldHandler_(std::signal(SIGXFSZ, SIG_IGN))
    {
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit limit = old_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    ~FileSizeLimit()
    {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, oldHandler_);
    }

    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit old_{};
    void (*oldHandler_)(int);
};
