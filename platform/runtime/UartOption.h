#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "platform/runtime/Terminal.h"

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
/// @param name begins the message of a mistake
/// @throws protocol::UserError
UartOption parseUartOption(const std::string& text, const std::string& name = "--uart");

/// Opens the line, without a reader yet. Throws std::runtime_error on failure.
std::unique_ptr<Terminal> openTerminal(const UartOption& option);

}  // namespace runtime
