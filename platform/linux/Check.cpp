#include "platform/linux/Check.h"

#include <fmt/format.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "platform/linux/Unit.h"
#include "platform/runtime/UartOption.h"

namespace unit {
namespace {

/// What backs an interface: a Debian package, and the systemd unit in it.
struct Daemon {
    std::string backend;  ///< or the line's own name
    const char* package;
    const char* unit;
};

const Daemon kDaemons[] = {
    {"system-bus", "dbus", "dbus.service"},    {"session-bus", "engineering-unit", "engineering-bus.service"},
    {"systemd", "systemd-sysv", "init.scope"}, {"logind", "systemd", "systemd-logind.service"},
    {"bluez", "bluez", "bluetooth.service"},   {"ofono", "ofono", "ofono.service"},
    {"gpsd", "gpsd", "gpsd.socket"},           {"networkmanager", "network-manager", "NetworkManager.service"},
    {"rauc", "rauc-service", "rauc.service"},
};

InterfaceStatus absentUart(const std::string& device, const std::string& reason)
{
    return {"uart", "tty", State::kAbsent, device + ": " + reason, std::chrono::system_clock::now()};
}

}  // namespace

InterfaceStatus uartStatus(const std::string& uart)
{
    const runtime::UartOption option = runtime::parseUartOption(uart);
    const std::string device = option.path;
    if (option.kind == runtime::UartOption::Kind::kPseudoTerminal) {
        return {"uart", "pty", State::kUp, "", std::chrono::system_clock::now()};
    }
    struct stat status {
    };
    if (stat(device.c_str(), &status) != 0) {
        return absentUart(device, std::generic_category().message(errno) + "; correct 'uart' in the unit's file");
    }
    if (!S_ISCHR(status.st_mode)) {
        return absentUart(device, "expected a serial device, got another file");
    }
    if (access(device.c_str(), R_OK | W_OK) != 0) {
        const std::string reason = std::generic_category().message(errno);
        const group* const owner = getgrgid(status.st_gid);
        return absentUart(device, fmt::format("{}; add this user to the group {}", reason,
                                              owner != nullptr ? owner->gr_name : std::to_string(status.st_gid)));
    }
    return {"uart", "tty", State::kUp, "", std::chrono::system_clock::now()};
}

void addHelp(InterfaceStatus& status, const std::vector<std::filesystem::path>& unitFolders)
{
    const auto* const daemon = std::ranges::find_if(kDaemons, [&](const Daemon& each) {
        return each.backend == status.backend || each.backend == status.interface;
    });
    if (status.state != State::kAbsent || daemon == std::end(kDaemons)) {
        return;
    }
    const std::string install = fmt::format("; install {}", daemon->package);
    if (status.reason.ends_with(install)) {
        status.reason.resize(status.reason.size() - install.size());
    } else if (!status.reason.ends_with("is not running") &&
               !(status.backend == "dbus" && status.reason.starts_with("no bus")) &&
               !status.reason.ends_with("Connection refused")) {
        return;  // the daemon is there, and lacks something else
    }
    const bool isInstalled = std::ranges::any_of(
        unitFolders, [&](const auto& folder) { return std::filesystem::exists(folder / daemon->unit); });
    status.reason += isInstalled ? fmt::format("; 'systemctl enable --now {}' starts it", daemon->unit) : install;
}

std::vector<InterfaceStatus> check(const UnitConfig& config, std::chrono::milliseconds patience)
{
    Unit unit(config, Unit::Role::kCheck);
    unit.board().await(
        [](const auto& all) {
            return std::ranges::none_of(all, [](const auto& each) { return each.state == State::kAbsent; });
        },
        patience);
    // A slow board takes its time to answer at all.
    unit.board().await(
        [](const auto& all) {
            return std::ranges::none_of(all, [](const auto& each) {
                return each.reason == kNotAnswered || each.reason.find(kNotRead) != std::string::npos;
            });
        },
        2 * patience);
    std::vector<InterfaceStatus> all{uartStatus(config.uart)};
    std::ranges::copy(unit.board().all(), std::back_inserter(all));
    for (InterfaceStatus& status : all) {
        addHelp(status, {"/etc/systemd/system", "/usr/lib/systemd/system", "/lib/systemd/system"});
    }
    return all;
}

}  // namespace unit
