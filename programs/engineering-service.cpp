// The service on the bench: the framework that owns main, the station's line, and the simulated head unit.

#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
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
#include "platform/runtime/Terminal.h"
#include "platform/runtime/TtyWire.h"
#include "platform/runtime/UartOption.h"
#include "platform/runtime/Wire.h"
#include "programs/Cli.h"
#include "protocol/Errors.h"

namespace {

constexpr const char* kProgram = "engineering-service";

struct Options {
    std::string uart = "pty:";
    std::string root;
    std::string headUnit;
    std::string logConfiguration;
};

using protocol::UserError;

void addOptions(CLI::App& app, Options& options)
{
    app.add_option("--uart", options.uart,
                   "the station's line: pty:LINK makes a pseudo-terminal and a link to it, DEVICE[,BAUD] opens a "
                   "serial device, at 115200 baud if not told otherwise; the default is a pseudo-terminal at 'uart' in "
                   "the run directory ($XDG_RUNTIME_DIR/engineering or /tmp/engineering-$UID)")
        ->take_last();
    app.add_option("--root", options.root,
                   "the directory that stands for / in the paths on the persistent partition (/perm_data, /media, "
                   "/kyr); the default is the real root")
        ->take_last();
    app.add_option("--headunit", options.headUnit,
                   "a JSON file that is merged over the simulated head unit's built-in state (RFC 7396)")
        ->take_last();
    app.add_option("--log-conf", options.logConfiguration,
                   "a zlog configuration with rules for the category 'engineering'; the default logs info and above "
                   "to /perm_data/log/log_engineering.log")
        ->take_last();
}

std::string readFile(const std::string& path)
{
    const auto refuse = [&](const std::string& reason) { throw UserError("--headunit " + path + ": " + reason); };
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        refuse("expected a file, got a directory");
    }
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        refuse(std::generic_category().message(errno));
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

std::unique_ptr<runtime::Terminal> openTerminal(const runtime::UartOption& option)
{
    if (option.kind == runtime::UartOption::Kind::kDevice) {
        return std::make_unique<runtime::SerialDevice>(option.path, option.baud);
    }
    return std::make_unique<runtime::PseudoTerminal>(option.path.empty() ? runtime::makeRunDirectory() / "uart"
                                                                         : option.path);
}

/// Runs the service; the process ends in here, by a signal.
[[noreturn]] void run(const CLI::App& given, const Options& options, int argc, char** argv)
{
    const runtime::UartOption uart = runtime::parseUartOption(options.uart);
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

    runtime::TtyWire wire(openTerminal(uart));
    runtime::ServiceFramework framework(wire);
    runtime::installWire(&wire);
    runtime::setRoot(options.root);
    runtime::makeHeadUnitDirectories(KYR_GetRootPath());
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
    CLI::App app("The engineering service on the bench, with a simulated head unit behind it.", kProgram);
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
