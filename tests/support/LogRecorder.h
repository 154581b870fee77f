#pragma once

#include <string>
#include <vector>

/// Keeps what the service logs, all levels, through zlog itself: "INFO MsgDecode, msg_length = 10".
class LogRecorder
{
public:
    /// Sets the process's log category up, once for all recorders, and forgets earlier lines.
    LogRecorder();

    std::vector<std::string> lines() const;

    /// Where each of the lines comes from, "engineering/base/Log.cpp:12 DoIt".
    std::vector<std::string> places() const;

    /// The lines of error level.
    std::vector<std::string> errors() const;

    /// Waits until a line has come that begins so.
    /// @returns whether one has; false after a generous while.
    bool waitFor(const std::string& beginning) const;

    void clear();
};
