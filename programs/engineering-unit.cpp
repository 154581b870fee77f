// The service on a unit with stock Linux: the framework that owns main, the station's line, and the unit's middleware.

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "KYRSystem.h"
#include "platform/linux/Check.h"
#include "platform/linux/Unit.h"
#include "platform/linux/UnitConfig.h"
#include "platform/runtime/Report.h"
#include "platform/runtime/Root.h"
#include "platform/runtime/ServiceFramework.h"
#include "platform/runtime/TtyWire.h"
#include "platform/runtime/UartOption.h"
#include "platform/runtime/Wire.h"
#include "programs/Cli.h"
#include "protocol/Text.h"

namespace {

constexpr const char* kProgram = "engineering-unit";

/// For how long `check` waits for the backends.
constexpr std::chrono::seconds kCheckPatience{5};

/// The bus that the package starts.
constexpr const char* kSessionBus = "unix:path=/run/engineering/bus";

constexpr int kFeedsPerTimeout = 3;

/// Runs the service; the process ends in here, by a signal.
[[noreturn]] void serve(const unit::UnitConfig& config, int argc, char** argv)
{
    runtime::holdEndSignals();
    runtime::setRoot(config.root);
    runtime::makeHeadUnitDirectories(KYR_GetRootPath());
    runtime::TtyWire wire(runtime::openTerminal(runtime::parseUartOption(config.uart)));
    runtime::ServiceFramework framework(wire);
    runtime::installWire(&wire);
    unit::Unit unit(config);
    unit.install();
    std::uint64_t watchdogUs = 0;
    if (sd_watchdog_enabled(0, &watchdogUs) > 0) {
        const auto interval = std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::microseconds(watchdogUs) / kFeedsPerTimeout);
        unit.feedWatchdog(wire, interval, [] { sd_notify(0, "WATCHDOG=1"); });
    }

    framework.initialise(argc, argv);
    if (unit.appManager) {
        unit.appManager->serviceStarted();
    }
    framework.announceReady([] { return std::string(); });
    framework.run();
}

/// Prints how the line, the buses and all interfaces stand.
/// @returns the exit status.
int check(const unit::UnitConfig& config, bool asJson)
{
    const std::vector<unit::InterfaceStatus> all = unit::check(config, kCheckPatience);
    std::vector<std::vector<std::string>> rows{{"INTERFACE", "BACKEND", "STATE", "REASON"}};
    auto json = nlohmann::ordered_json::array();
    for (const auto& [interface, backend, state, reason, since] : all) {
        rows.push_back({interface, backend, nameOf(state), reason});
        json.push_back({{"interface", interface}, {"backend", backend}, {"state", nameOf(state)}, {"reason", reason}});
    }
    std::fputs((asJson ? json.dump(2) + "\n" : protocol::table(rows)).c_str(), stdout);
    const bool isComplete =
        std::ranges::none_of(all, [](const auto& each) { return each.state == unit::State::kAbsent; });
    return isComplete ? protocol::kPassed : protocol::kFailed;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app(
        "Run the engineering service on a unit with stock Linux\n"
        "Prints 'ready uart=PATH' on standard error when the station may send. Ends with SIGINT or SIGTERM.",
        kProgram);
    programs::setUpHelp(app);
    std::string file = "/etc/engineering/unit.toml";
    app.add_option("--config", file, "Unit's file; by default /etc/engineering/unit.toml")
        ->type_name("FILE")
        ->take_last();
    app.fallthrough();
    CLI::App* const checkVerb =
        app.add_subcommand("check", "Print what of the line, the buses and the interfaces is there, and what helps");
    bool asJson = false;
    checkVerb->add_flag("--json", asJson, "Print JSON");
    app.footer(
        "Examples:\n"
        "  engineering-unit\n"
        "  engineering-unit check --config unit.toml\n"
        "\n"
        "Exit status: 0 ended by a signal, or all of `check` is there; 1 failed, or something is absent; 2 wrong use.");
    if (const auto status = programs::parse(app, argc, argv)) {
        return *status;
    }

    runtime::reportAs(kProgram);
    runtime::prepareProcess();
    setenv("DBUS_SESSION_BUS_ADDRESS", kSessionBus, 0);
    try {
        std::vector<std::string> mistakes;
        const unit::UnitConfig config = unit::loadUnitConfig(file, mistakes);
        std::ranges::for_each(mistakes, runtime::report);
        if (!mistakes.empty()) {
            return protocol::kWrongUse;
        }
        if (checkVerb->parsed()) {
            return check(config, asJson);
        }
        serve(config, argc, argv);
    } catch (const protocol::Error& error) {
        runtime::report(error.what());
        return error.status();
    } catch (const std::exception& error) {
        runtime::report(error.what());
        return protocol::kFailed;
    }
}
