#pragma once

#include <thread>

#include "host/Descriptor.h"

namespace runtime {

/// Keeps whoever writes to standard output or standard error from waiting for the reader: the descriptor becomes a pipe
/// of the process's own that takes up to 1 MiB and refuses more, and a thread passes on what is in it. So nobody who
/// writes needs to know, neither printf() nor zlog nor a library. What does not fit is dropped.
class OutputPump
{
public:
    /// A regular file, for which nobody waits, stays as it is. Sanitizers go on to report past the pipe, since the
    /// thread ends with the process.
    /// @param descriptor STDOUT_FILENO or STDERR_FILENO; not owned
    /// @throws std::system_error
    explicit OutputPump(int descriptor);

    /// As stop().
    ~OutputPump();
    OutputPump(const OutputPump&) = delete;
    OutputPump& operator=(const OutputPump&) = delete;

    /// Puts the descriptor back and waits until the reader has got all that is in the pipe, without limit.
    void stop();

private:
    void run() const;
    void passOn(const char* data, std::size_t size) const;

    const int descriptor_;
    const host::Descriptor original_;
    host::Descriptor pipe_;  // the end that is read
    std::thread thread_;
};

}  // namespace runtime
