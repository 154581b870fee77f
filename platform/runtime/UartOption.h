#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>

namespace runtime {

/// A value of --uart that is none; what() says in one line what was wrong and what would be right.
class UartOptionError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

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
/// @throws UartOptionError
UartOption parseUartOption(const std::string& text);

}  // namespace runtime
