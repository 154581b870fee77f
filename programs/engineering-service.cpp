// The service on the bench: the framework that owns main, the station's line, and the simulated head unit.

#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

#include "KYRSystem.h"
#include "platform/bench/HeadUnit.h"
#include "platform/bench/HeadUnitBus.h"
#include "platform/bench/JsonText.h"
#include "platform/runtime/LogSystem.h"
#include "platform/runtime/Root.h"
#include "platform/runtime/ServiceFramework.h"
#include "platform/runtime/TtyWire.h"
#include "platform/runtime/UartOption.h"
#include "platform/runtime/Wire.h"
#include "programs/Cli.h"
#include "protocol/Errors.h"
#include "protocol/Text.h"

namespace {

constexpr const char* kProgram = "engineering-service";

struct Options {
    std::string uart;
    std::string root;
    std::string headUnit;
    std::string logConfiguration;
};

using protocol::UserError;

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("--uart", options.uart,
                   "Line of the station: pty:LINK makes a pseudo-terminal and a link to it, DEVICE[,BAUD] opens a "
                   "serial device, by default at 115200 baud. Without it: a pseudo-terminal, linked from "
                   "$XDG_RUNTIME_DIR/engineering/uart or /tmp/engineering-$UID/uart")
        ->type_name("LINE")
        ->take_last();
    app.add_option("--root", options.root,
                   "Directory that stands for / in the paths /perm_data, /media and /kyr; by default the real root")
        ->type_name("DIR")
        ->take_last();
    app.add_option("--headunit", options.headUnit,
                   "JSON file to merge over the built-in state of the simulated head unit (RFC 7396)")
        ->type_name("FILE")
        ->take_last();
    app.add_option("--log-conf", options.logConfiguration,
                   "zlog configuration with rules for the category 'engineering'; the default logs from INFO on to "
                   "/perm_data/log/log_engineering.log")
        ->type_name("FILE")
        ->take_last();
    app.footer(
        "Examples:\n"
        "  engineering-service\n"
        "  engineering-service --root /tmp/unit --uart pty:/tmp/unit/uart\n"
        "  engineering-service --uart /dev/ttyUSB0,115200 --headunit unit.json\n"
        "\n"
        "Exit status: 0 ended by a signal, 1 failed, 2 wrong use.");
}

std::string readFile(const std::string& path)
{
    const auto refuse = [&](const std::string& reason) { throw UserError("--headunit " + path + ": " + reason); };
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        refuse(protocol::unreadable(EISDIR));
    }
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        refuse(protocol::unreadable(errno));
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

void mergeState(bench::HeadUnit& unit, const std::string& text, const std::string& path)
{
    try {
        unit.mergeState(bench::parseJson(text));
    } catch (const std::runtime_error& error) {
        throw UserError("--headunit " + path + ": " + error.what());
    }
}

/// Runs the service; the process ends in here, by a signal.
[[noreturn]] void run(const CLI::App& given, const Options& options, int argc, char** argv)
{
    const runtime::UartOption uart =
        given.count("--uart") > 0 ? runtime::parseUartOption(options.uart) : runtime::UartOption{};
    const bool hasState = given.count("--headunit") > 0;
    // May wait, for the writer of a pipe.
    const std::string state = hasState ? readFile(options.headUnit) : "";
    runtime::holdEndSignals();
    bench::HeadUnit unit;
    if (hasState) {
        mergeState(unit, state, options.headUnit);
    }
    if (given.count("--log-conf") > 0) {
        runtime::useLogConfiguration(options.logConfiguration);
    }

    runtime::setRoot(options.root);
    runtime::makeHeadUnitDirectories(KYR_GetRootPath());
    runtime::TtyWire wire(runtime::openTerminal(uart));
    runtime::ServiceFramework framework(wire);
    runtime::installWire(&wire);
    unit.install();
    bench::HeadUnitBus bus(unit);
    // Beside the service's start, so that a bus that does not answer is waited for once.
    auto busError = std::async(std::launch::async, [&bus] {
        std::string error;
        bus.start(error);
        return error;
    });

    framework.initialise(argc, argv);
    unit.serviceInitialised();
    framework.announceReady([&busError] { return busError.get(); });
    framework.run();
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app(
        "Run the engineering service on the bench, with a simulated head unit behind it\n"
        "Prints 'ready uart=PATH' on standard error when the station may send. Ends with SIGINT or SIGTERM.",
        kProgram);
    Options options;
    addOptions(app, options);
    if (const auto status = programs::parse(app, argc, argv)) {
        return *status;
    }

    runtime::prepareProcess();
    try {
        run(app, options, argc, argv);
    } catch (const protocol::Error& error) {
        runtime::report(error.what());
        return error.status();
    } catch (const std::exception& error) {
        runtime::report(error.what());
        return protocol::kFailed;
    }
}
