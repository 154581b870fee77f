#pragma once

#include <chrono>
#include <filesystem>
#include <vector>

#include "platform/linux/Status.h"
#include "platform/linux/UnitConfig.h"

namespace unit {

/// Looks for all that the service needs: its UART, the two buses and the backends of the interfaces. A running service
/// goes on: the UART is not opened, no GPIO line is requested, and the other devices can be opened more than once. Lets
/// the bus start RAUC: until then a RAUC that is installed cannot be told from one that is not.
/// @param patience for how long to wait for what is absent; three times as long for what has not answered at all
/// @returns each in turn; the reason of an absent one says what helps
std::vector<InterfaceStatus> check(const UnitConfig& config, std::chrono::milliseconds patience);

/// @returns how the station's line stands.
InterfaceStatus uartStatus(const std::string& uart);

/// Puts into the reason of an absent daemon what helps: to install its package; or to start its systemd unit, if that
/// is in one of `unitFolders`.
void addHelp(InterfaceStatus& status, const std::vector<std::filesystem::path>& unitFolders);

}  // namespace unit
