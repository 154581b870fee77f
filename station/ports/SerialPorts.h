#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "station/Connection.h"

namespace station {

/// @returns the link at which a bench is found when neither side is told a port.
std::string defaultPort();

/// Takes PATH[,BAUD] apart. A baud rate that is not a number becomes 0.
PortSpec parsePort(std::string_view text);

/// @returns the error in PATH[,BAUD]; empty if there is none.
std::string checkPort(const std::string& text);

/// A serial device of this machine. A text that the device does not have is empty.
struct SerialPort {
    std::string device;                    ///< "/dev/ttyUSB0": may be another one the next time
    std::vector<std::string> stableNames;  ///< "/dev/serial/by-id/…": the same whenever it is plugged in
    std::string vendorId;                  ///< of a USB device, four hexadecimal digits
    std::string productId;
    std::string serial;
    std::string manufacturer;
    std::string product;

    bool isUsb() const { return !vendorId.empty(); }
};

/// @returns the serial devices, in the order of their names. None is opened: that would raise its modem lines.
/// @param root stands for / in tests.
std::vector<SerialPort> listSerialPorts(const std::filesystem::path& root = "/");

}  // namespace station
