#pragma once

#include <mutex>
#include <string>

#include "platform/runtime/Terminal.h"

namespace runtime {

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

    std::shared_ptr<const Descriptor> open() override { return master_; }

    /// Removes the link, unless it has become another's.
    void withdraw() override;

    const std::filesystem::path& path() const override { return link_; }

private:
    const std::filesystem::path link_;
    std::shared_ptr<const Descriptor> master_;
    std::string stationEnd_;
    std::unique_ptr<Descriptor> station_;
    std::mutex mutex_;
    bool linked_ = false;  // guarded by mutex_
};

}  // namespace runtime
