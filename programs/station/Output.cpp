#include "programs/station/Output.h"

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

namespace programs::station_tool {

namespace {

/// Of the first write that failed; 0 for none.
std::atomic<int> failure = 0;

/// Writes all of it.
/// @returns how much was written: less when that failed.
ssize_t writeOut(void*, const char* data, std::size_t size)
{
    std::size_t done = 0;
    while (done < size) {
        const ssize_t written = write(STDOUT_FILENO, data + done, size - done);
        if (written < 0) {
            int none = 0;
            failure.compare_exchange_strong(none, errno);
            break;
        }
        done += static_cast<std::size_t>(written);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

void watchStandardOutput()
{
    // A stream only remembers that it failed. When that shows, at the end, errno has long been another one's.
    cookie_io_functions_t functions{};
    functions.write = writeOut;
    FILE* watched = fopencookie(nullptr, "w", functions);
    if (watched == nullptr) {
        return;
    }
    std::setvbuf(watched, nullptr, isatty(STDOUT_FILENO) == 1 ? _IOLBF : _IOFBF, BUFSIZ);
    stdout = watched;
}

int flushStandardOutput()
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
        return 0;
    }
    const int first = failure;
    return first != 0 ? first : EIO;
}

}  // namespace programs::station_tool
