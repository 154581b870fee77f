#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "host/Descriptor.h"

namespace runtime {

/// A terminal that cannot be opened. The message is one line that names it and the reason.
class TerminalError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Opens a line, and opens it again after it was lost.
class Terminal
{
public:
    virtual ~Terminal() = default;

    /// Opens the line, raw and non-blocking. The line stays open as long as the result exists.
    /// @throws TerminalError
    virtual std::shared_ptr<const host::Descriptor> open() = 0;

    /// Removes the link by which the station finds the line. Any thread, any number of times.
    virtual void withdraw() = 0;

    /// @returns the absolute path under which the line is known.
    virtual const std::filesystem::path& path() const = 0;
};

/// A pseudo-terminal whose other end the station opens through a symbolic link. This object keeps the other end open
/// too, so the line stays when the station closes it.
class PseudoTerminal : public Terminal
{
public:
    /// Opens the terminal and makes `link`. Replaces a link that does not lead to the terminal of a running service.
    /// @throws TerminalError, also if `link` is not such a link.
    explicit PseudoTerminal(const std::filesystem::path& link);

    /// As withdraw().
    ~PseudoTerminal() override;

    std::shared_ptr<const host::Descriptor> open() override { return master_; }

    /// Removes the link, unless it leads elsewhere by now.
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

/// A serial device or another terminal, for exclusive use: raw, 8 data bits, no parity, one stop bit.
class SerialDevice : public Terminal
{
public:
    /// @param path used as given, so that a link finds a device that returns under another name
    /// @param baud one of host::kBauds
    SerialDevice(const std::filesystem::path& path, unsigned baud);

    std::shared_ptr<const host::Descriptor> open() override;
    void withdraw() override {}
    const std::filesystem::path& path() const override { return path_; }

private:
    const std::filesystem::path path_;
    const unsigned baud_;
};

}  // namespace runtime
