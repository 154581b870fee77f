#include "station/ports/SerialPorts.h"

#include <fmt/format.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <system_error>

#include "protocol/Text.h"

namespace station {

namespace {

namespace fs = std::filesystem;

/// @returns the line that a file of sysfs holds, with nothing in it that a terminal would obey.
std::string attribute(const fs::path& file)
{
    std::string line;
    std::getline(std::ifstream(file), line);
    while (line.ends_with(' ')) {
        line.pop_back();
    }
    return protocol::printable(line);
}

void describeUsb(const fs::path& sysfs, const fs::path& port, SerialPort& out)
{
    std::error_code error;
    // An interface of the USB device, or something below one.
    for (fs::path folder = fs::canonical(port / "device", error); folder.has_relative_path() && folder != sysfs;
         folder = folder.parent_path()) {
        if (fs::exists(folder / "idVendor", error)) {
            out.vendorId = attribute(folder / "idVendor");
            out.productId = attribute(folder / "idProduct");
            out.serial = attribute(folder / "serial");
            out.manufacturer = attribute(folder / "manufacturer");
            out.product = attribute(folder / "product");
            return;
        }
    }
}

std::vector<std::string> stableNames(const fs::path& root, const fs::path& device)
{
    std::vector<std::string> names;
    std::error_code error;
    const fs::path folder = fs::path("dev") / "serial" / "by-id";
    for (fs::directory_iterator it(root / folder, error), end; !error && it != end; it.increment(error)) {
        std::error_code dangling;
        if (fs::canonical(it->path(), dangling) == device && !dangling) {
            names.push_back("/" + (folder / it->path().filename()).string());
        }
    }
    std::ranges::sort(names);
    return names;
}

}  // namespace

std::string defaultPort()
{
    if (const char* runtime = std::getenv("XDG_RUNTIME_DIR"); runtime != nullptr && *runtime != '\0') {
        return fmt::format("{}/engineering/uart", runtime);
    }
    return fmt::format("/tmp/engineering-{}/uart", getuid());
}

PortSpec parsePort(std::string_view text)
{
    const auto comma = text.rfind(',');
    PortSpec port{std::string(text.substr(0, comma))};
    if (comma != std::string_view::npos) {
        const auto digits = text.substr(comma + 1);
        const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), port.baud);
        port.baud = result.ec == std::errc() && result.ptr == digits.data() + digits.size() ? port.baud : 0;
    }
    // In /tmp any user can be the first to make its directory.
    port.ownOnly = port.path == defaultPort();
    return port;
}

std::string checkPort(const std::string& text)
{
    const PortSpec port = parsePort(text);
    if (port.path.empty()) {
        return fmt::format("expected PATH[,BAUD], got '{}'", text);
    }
    return host::speedOf(port.baud) ? ""
                                    : fmt::format("expected a baud rate such as 9600, 115200 or 921600, got '{}'",
                                                  text.substr(text.rfind(',') + 1));
}

std::vector<SerialPort> listSerialPorts(const fs::path& root)
{
    std::vector<SerialPort> ports;
    std::error_code error;
    const fs::path sysfs = root / "sys";
    for (fs::directory_iterator it(sysfs / "class" / "tty", error), end; !error && it != end; it.increment(error)) {
        const fs::path& port = it->path();
        std::error_code missing;
        // Consoles and pseudo-terminals have no device behind them; the kernel keeps places for built-in ports
        // that are not there, of type 0.
        if (!fs::exists(port / "device", missing) || attribute(port / "type") == "0") {
            continue;
        }
        SerialPort found;
        found.device = "/dev/" + port.filename().string();
        const fs::path device = fs::canonical(root / "dev" / port.filename(), missing);
        if (missing) {
            continue;
        }
        found.stableNames = stableNames(root, device);
        describeUsb(fs::canonical(sysfs, missing), port, found);
        ports.push_back(std::move(found));
    }
    std::ranges::sort(ports, [](const SerialPort& one, const SerialPort& other) {
        return strverscmp(one.device.c_str(), other.device.c_str()) < 0;
    });
    return ports;
}

}  // namespace station
