#pragma once

#include <sys/resource.h>

#include <csignal>

/// Stands in for a full disk: while one of these is there, no file of this process grows beyond a size; writing more
/// fails with an error, as it does on a full disk. Printing into a file fails, too: no assertions meanwhile.
class FileSizeLimit
{
public:
    /// @param bytes what a file may hold
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
