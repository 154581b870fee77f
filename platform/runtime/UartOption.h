#pragma once

#include <filesystem>
#include <string>

namespace runtime {

/// The line to the station.
struct UartOption {
    enum class Kind {
        kPseudoTerminal,
        kDevice,
    };

    Kind kind = Kind::kPseudoTerminal;
    std::filesystem::path path;  ///< the link to make (empty: the default link), or the device
    unsigned baud = 0;           ///< of a device
};

/// Reads "pty:LINK" or "DEVICE[,BAUD]". The rate follows the last comma, so a device with a comma in its name needs a
/// rate.
/// @throws protocol::UserError
UartOption parseUartOption(const std::string& text);

}  // namespace runtime
