#pragma once

#include <filesystem>
#include <string>

namespace runtime {

/// Which line the station is on.
struct UartOption {
    enum class Kind {
        kPseudoTerminal,
        kDevice,
    };

    Kind kind = Kind::kPseudoTerminal;
    std::filesystem::path path;  ///< the link to make (empty: the default one) or the device
    unsigned baud = 0;           ///< of a device
};

/// Reads "pty:LINK" or "DEVICE[,BAUD]". The last comma is the one before the rate, so a device whose name has a comma
/// is given with its rate.
/// @throws protocol::UserError
UartOption parseUartOption(const std::string& text);

}  // namespace runtime
