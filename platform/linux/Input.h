#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/Descriptor.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// A number that a GPIO line, a file or the configuration says.
class Input
{
public:
    /// As ioctl(2).
    using Ioctl = std::function<int(int descriptor, unsigned long request, void* argument)>;
    static int systemIoctl(int descriptor, unsigned long request, void* argument);

    /// @param takesLine whether to request the GPIO line; else a line is 0 if it is free or a running service has it
    Input(UnitConfig::Input config, Ioctl ioctl, bool takesLine)
        : config_(std::move(config)), ioctl_(std::move(ioctl)), takesLine_(takesLine)
    {
    }

    /// May block as long as the line's chip or the file's driver does.
    /// @param reason set if there is no number
    std::optional<int> read(std::string& reason);

private:
    std::optional<int> readLine(std::string& reason);
    std::optional<int> readFile(std::string& reason) const;

    const UnitConfig::Input config_;
    const Ioctl ioctl_;
    const bool takesLine_;
    host::Descriptor line_;
};

/// Runs an action again and again, on a thread of its own: inputs may block.
class Poller
{
public:
    Poller(std::chrono::milliseconds period, std::function<void()> action);

    /// Waits until the action has ended.
    ~Poller();
    Poller(const Poller&) = delete;
    Poller& operator=(const Poller&) = delete;

private:
    std::mutex mutex_;
    std::condition_variable ends_;
    bool isEnding_ = false;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace unit
