#pragma once

#include <string>
#include <vector>

/// Records the log of the service at all levels, through zlog: "INFO MsgDecode, msg_length = 10".
class LogRecorder
{
public:
    /// Sets up the log category of the process once, and forgets earlier lines.
    LogRecorder();

    std::vector<std::string> lines() const;

    /// Where each of the lines comes from, "engineering/base/Log.cpp:12 DoIt".
    std::vector<std::string> places() const;

    /// The lines of error level.
    std::vector<std::string> errors() const;

    /// Waits for a line that begins with `beginning`.
    /// @returns whether it came in time.
    bool waitFor(const std::string& beginning) const;

    void clear();
};
