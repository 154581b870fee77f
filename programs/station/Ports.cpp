#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "programs/Cli.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"
#include "station/PortUsers.h"
#include "station/SerialLink.h"
#include "station/ports/SerialPorts.h"

namespace programs::station_tool {

namespace {

using nlohmann::ordered_json;
using station::SerialPort;

struct Listed {
    SerialPort port;
    bool bench = false;
    std::string user;  // empty: free
};

/// @returns the machine's ports, and the bench's link when it leads somewhere.
std::vector<Listed> list()
{
    std::vector<Listed> all;
    std::error_code error;
    const std::string link = station::defaultPort();
    if (station::SerialLink::isInOwnDirectory(link) && std::filesystem::exists(link, error)) {
        SerialPort bench;
        bench.device = std::filesystem::canonical(link, error).string();
        bench.stableNames = {link};
        all.push_back({bench, true, station::portUser(bench.device)});
    }
    for (SerialPort& port : station::listSerialPorts()) {
        std::string user = station::portUser(port.device);
        all.push_back({std::move(port), false, std::move(user)});
    }
    return all;
}

ordered_json textOrNull(const std::string& text)
{
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

ordered_json toJson(const Listed& listed)
{
    const SerialPort& port = listed.port;
    return {{"path", port.stableNames.empty() ? port.device : port.stableNames.front()},
            {"device", port.device},
            {"stable_names", port.stableNames},
            {"kind", listed.bench   ? "bench"
                     : port.isUsb() ? "usb"
                                    : "built-in"},
            {"vid", textOrNull(port.vendorId)},
            {"pid", textOrNull(port.productId)},
            {"serial", textOrNull(port.serial)},
            {"manufacturer", textOrNull(port.manufacturer)},
            {"product", textOrNull(port.product)},
            {"busy", !listed.user.empty()},
            {"user", textOrNull(listed.user)}};
}

/// @returns the kind of port: "0403:6001:A50285BI FTDI FT232R".
std::string kindOf(const Listed& listed)
{
    const SerialPort& port = listed.port;
    if (listed.bench) {
        return "bench";
    }
    if (!port.isUsb()) {
        return "built-in";
    }
    std::string text = port.vendorId + ":" + port.productId;
    if (!port.serial.empty()) {
        text += ":" + port.serial;
    }
    for (const std::string* more : {&port.manufacturer, &port.product}) {
        text += more->empty() ? "" : " " + *more;
    }
    return text;
}

void printText(const std::vector<Listed>& all)
{
    std::size_t width = 0;
    for (const Listed& listed : all) {
        width = std::max(width, listed.port.device.size());
    }
    for (const Listed& listed : all) {
        const std::string state = listed.user.empty() ? "free" : "in use by " + listed.user;
        std::printf("%-*s  %s  (%s)\n", static_cast<int>(width), listed.port.device.c_str(), kindOf(listed).c_str(),
                    protocol::printable(state).c_str());
        for (const std::string& name : listed.port.stableNames) {
            std::printf("    %s\n", protocol::printable(name).c_str());
        }
    }
}

int ports(const Tool& tool)
{
    const auto all = list();
    if (tool.json) {
        ordered_json array = ordered_json::array();
        for (const Listed& listed : all) {
            array.push_back(toJson(listed));
        }
        printJson({{"ports", std::move(array)}});
        return kPassed;
    }
    printText(all);
    if (all.empty()) {
        complain(kProgram, fmt::format("expected a serial port, or a bench at {}, got none", station::defaultPort()));
    }
    return kPassed;
}

}  // namespace

void addPorts(Tool& tool)
{
    CLI::App* verb = tool.app.add_subcommand(
        "ports",
        "List the serial ports\n"
        "For each port: device, kind (for a USB adapter VID:PID:SERIAL and name), user, and stable names. A stable "
        "name "
        "stays the same when you plug the adapter in again: give it to --port. The list has a running bench on the "
        "default link, but none on another link (--uart pty:LINK). Only root sees a program of another user that "
        "does not lock the port.");
    verb->footer(
        "Examples:\n"
        "  engineering-station ports\n"
        "  engineering-station ports --json");
    verb->callback([&tool] { tool.action = [&tool] { return ports(tool); }; });
}

}  // namespace programs::station_tool
