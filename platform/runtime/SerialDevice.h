#pragma once

#include <string>

#include "platform/runtime/Terminal.h"

namespace runtime {

/// @returns whether a serial line can be set to `baud` bits a second.
bool isKnownBaud(unsigned baud);

/// @returns all such rates, "9600, 19200, ...".
std::string knownBauds();

/// A serial device, or anything else with the manners of a terminal: 8 bits, no parity, one stop bit, raw, and nobody
/// else's meanwhile.
class SerialDevice : public Terminal
{
public:
    /// @param path kept as it is, so that a link finds a device that has come back under another name
    /// @param baud a known one
    SerialDevice(const std::filesystem::path& path, unsigned baud);

    std::shared_ptr<const Descriptor> open() override;
    void withdraw() override {}
    const std::filesystem::path& path() const override { return path_; }

private:
    const std::filesystem::path path_;
    const unsigned baud_;
};

}  // namespace runtime
