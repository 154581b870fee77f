#pragma once

#include <thread>

#include "host/Descriptor.h"

namespace runtime {

/// Keeps code that writes to standard output or standard error from waiting for the reader. The descriptor becomes a
/// pipe of up to 1 MiB, and a thread copies from the pipe to the reader. The pump drops what does not fit. printf(),
/// zlog and libraries work as before.
class OutputPump
{
public:
    /// Leaves a regular file as it is, since a file has no reader to wait for. Sanitizers write their reports directly
    /// to the original descriptor, since the thread ends with the process.
    /// @param descriptor STDOUT_FILENO or STDERR_FILENO; not owned
    /// @throws std::system_error
    explicit OutputPump(int descriptor);

    /// As stop().
    ~OutputPump();
    OutputPump(const OutputPump&) = delete;
    OutputPump& operator=(const OutputPump&) = delete;

    /// Restores the descriptor and waits, without limit, until the reader has read everything in the pipe.
    void stop();

private:
    void run() const;
    void passOn(const char* data, std::size_t size) const;

    const int descriptor_;
    const host::Descriptor original_;
    host::Descriptor pipe_;  // the read end
    std::thread thread_;
};

}  // namespace runtime
