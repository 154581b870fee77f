// The service on the bench: the framework that owns main, the station's line, and the simulated head unit.

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "KYRSystem.h"
#include "host/Descriptor.h"
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

/// Where a run finds the state that the run before its power cycle has left.
const std::string kInherited = "/proc/self/fd/";
constexpr const char* kStateName = "engineering-headunit";

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

/// @returns the address in the store of the Bluetooth controller, such as "00:02:F5:A1:B2:C3"; empty for none.
std::string storedBluetoothAddress()
{
    std::ifstream store(std::string(KYR_GetRootPath()) + "/perm_data/data/bluetooth/PSConfig.psr");
    std::string line;
    for (int number = 1; number <= 2; ++number) {
        std::getline(store, line);
    }
    std::array<unsigned, 4> words{};
    // In the controller's order, see docs/identity-files.md.
    if (std::sscanf(line.c_str(), "&0001 = %4x %4x %4x %4x", &words[0], &words[1], &words[2], &words[3]) != 4) {
        return "";
    }
    const auto [high, low, upper, nonSignificant] = words;
    return fmt::format("{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", nonSignificant >> 8, nonSignificant & 0xFF,
                       upper & 0xFF, high & 0xFF, low >> 8, low & 0xFF);
}

/// Runs the program again with the same options. The controller uses the address that was written since the start.
void powerCycle(runtime::ServiceFramework& framework, std::vector<std::string> arguments, const std::string& state)
{
    auto initial = state.empty() ? nlohmann::json::object() : bench::parseJson(state);
    if (const std::string address = storedBluetoothAddress(); !address.empty()) {
        initial.merge_patch({{"bluetooth", {{"attributes", {{"3", address}}}}}});
    }
    const std::string text = bench::toText(initial);
    // Its file may have been a pipe.
    const host::Descriptor file(memfd_create(kStateName, 0));
    if (!file.valid() || write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        throw std::system_error(errno, std::generic_category(), "power cycle");
    }
    const std::string option = "--headunit=" + kInherited;
    std::erase_if(arguments, [&](const std::string& each) { return each.starts_with(option); });
    arguments.push_back(option + std::to_string(file.get()));
    framework.restart(arguments, file.get());
}

/// Closes the descriptor behind `path` if a power cycle has left it, and no other.
void closeInherited(const std::string& path)
{
    int descriptor = -1;
    const char* const end = path.data() + path.size();
    if (!path.starts_with(kInherited) || std::from_chars(path.data() + kInherited.size(), end, descriptor).ptr != end) {
        return;
    }
    std::error_code ignored;
    const std::string target = std::filesystem::read_symlink(path, ignored).string();
    if (target == fmt::format("/memfd:{} (deleted)", kStateName)) {
        close(descriptor);
    }
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
    closeInherited(options.headUnit);
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
    bench::HeadUnitBus bus(unit, [&framework, &state, arguments = std::vector<std::string>(argv, argv + argc)] {
        powerCycle(framework, arguments, state);
    });
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
