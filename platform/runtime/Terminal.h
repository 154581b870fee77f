#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "host/Descriptor.h"

namespace runtime {

/// A terminal that cannot be had; what() says in one line which and why.
class TerminalError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Where a line comes from: opened anew whenever it was lost.
class Terminal
{
public:
    virtual ~Terminal() = default;

    /// Opens the line, raw and non-blocking. Whoever holds what it returns keeps the line open.
    /// @throws TerminalError
    virtual std::shared_ptr<const host::Descriptor> open() = 0;

    /// Removes what leads the station to the line. May be called more than once and from any thread.
    virtual void withdraw() = 0;

    /// @returns the absolute path under which the line is known.
    virtual const std::filesystem::path& path() const = 0;
};

/// A pseudo-terminal whose other end the station opens by a symbolic link. The end is held open here as well, so that
/// the line stays when the station closes it.
class PseudoTerminal : public Terminal
{
public:
    /// Opens the terminal and makes `link`; a link that leads to no running service's terminal is replaced.
    /// @throws TerminalError, also when `link` is anything but such a link.
    explicit PseudoTerminal(const std::filesystem::path& link);

    /// As withdraw().
    ~PseudoTerminal() override;

    std::shared_ptr<const host::Descriptor> open() override { return master_; }

    /// Removes the link, unless it has become another's.
    void withdraw() override;

    const std::filesystem::path& path() const override { return link_; }

private:
    const std::filesystem::path link_;
    std::shared_ptr<const host::Descriptor> master_;
    std::string stationEnd_;
    host::Descriptor station_;
    std::mutex mutex_;
    bool linked_ = false;  // guarded by mutex_
};

/// A serial device, or anything else with the manners of a terminal: 8 bits, no parity, one stop bit, raw, and nobody
/// else's meanwhile.
class SerialDevice : public Terminal
{
public:
    /// @param path kept as it is, so that a link finds a device that has come back under another name
    /// @param baud a known one
    SerialDevice(const std::filesystem::path& path, unsigned baud);

    std::shared_ptr<const host::Descriptor> open() override;
    void withdraw() override {}
    const std::filesystem::path& path() const override { return path_; }

private:
    const std::filesystem::path path_;
    const unsigned baud_;
};

}  // namespace runtime
