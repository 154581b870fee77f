#include "programs/station/Station.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>

#include "programs/Cli.h"
#include "programs/station/Tool.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "station/plan/Load.h"
#include "web/Login.h"

namespace programs::station_tool {

Station::Station(const station::Interrupt& interrupt)
    : interrupt_(interrupt), records_(station::identity::records(protocol::catalogue::groups()))
{
}

const station::StationConfig& Station::config()
{
    std::call_once(read_, [this] {
        const std::string path = station::findStationFile(given);
        if (path.empty()) {
            return;
        }
        protocol::toml_file::Problems problems;
        config_ = station::readStationConfig(readInput(path, interrupt_), path, records_, problems);
        if (!problems.empty()) {
            throw protocol::UserError(
                format(path, problems.front()) +
                (problems.size() > 1 ? "; 'engineering-station station check' lists all errors" : ""));
        }
    });
    return config_;
}

station::record::Run::StationInfo Station::info(const std::string& operatorName)
{
    std::array<char, 256> host{};
    const bool isNamed = !config().name.empty() || gethostname(host.data(), host.size() - 1) == 0;
    return {config().name.empty() && isNamed ? host.data() : config().name, operatorName, ENGINEERING_VERSION,
            config().line};
}

std::vector<std::string> Station::planFolders()
{
    std::vector<std::string> folders = config().plans;
    std::error_code error;
    folders.push_back(station::plan::shippedPlans(std::filesystem::read_symlink("/proc/self/exe", error)));
    return folders;
}

std::unique_ptr<station::identity::Registry> Station::openRegistry(station::identity::Registry::Access access)
{
    const station::StationConfig& mine = config();
    return std::make_unique<station::identity::Registry>(station::registryPath(mine), records_, mine.unit, &interrupt_,
                                                         access);
}

void Station::guardConnections()
{
    station::Connection::guardBy([this] {
        return std::make_unique<station::identity::IdentityGuard>(
            records_, config().unit, terms,
            [this](station::identity::Registry::Access access) { return openRegistry(access); });
    });
}

namespace {

/// @returns the registry's UUID; empty if the registry does not exist or cannot be read.
std::string uuidOf(Tool& tool, const std::string& registry)
{
    std::error_code error;
    if (!std::filesystem::exists(registry, error)) {
        return {};
    }
    try {
        return tool.station->openRegistry(station::identity::Registry::Access::kLook)->uuid();
    } catch (const protocol::StorageError&) {
        return {};
    }
}

int check(Tool& tool)
{
    const std::string path = station::findStationFile(tool.station->given);
    protocol::toml_file::Problems problems;
    station::StationConfig config;
    if (!path.empty()) {
        config = station::readStationConfig(readInput(path, tool.interrupt), path, tool.station->records(), problems);
    }
    std::vector<std::string> warnings = station::unusablePaths(config);
    for (const station::Product& product : config.products) {
        try {
            problems.empty() ? tool.station->findPlan(product.plan) : "";
        } catch (const protocol::UserError& error) {
            warnings.push_back(fmt::format("[[product]] plan: {}", error.what()));
        }
    }
    const std::string registry = problems.empty() ? station::registryPath(config) : "";
    const std::string uuid = problems.empty() ? uuidOf(tool, registry) : "";
    if (tool.json) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const auto& problem : problems) {
            list.push_back({{"line", problem.line}, {"column", problem.column}, {"text", problem.text}});
        }
        printJson({{"file", path.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(path)},
                   {"sound", problems.empty()},
                   {"problems", std::move(list)},
                   {"registry", {{"path", registry}, {"uuid", uuid}}},
                   {"warnings", warnings}});
        return problems.empty() ? kPassed : kWrongUse;
    }
    if (problems.empty()) {
        std::puts(fmt::format("{}, registry {}{}",
                              path.empty() ? "no station.toml, the defaults apply" : path + ": sound", registry,
                              uuid.empty() ? " (not made yet)" : fmt::format(" ({})", uuid))
                      .c_str());
    }
    for (const auto& problem : problems) {
        complainOfFile(format(path, problem));
    }
    for (const std::string& warning : warnings) {
        complainOfFile(fmt::format("{}: warning: {}", path, warning));
    }
    return problems.empty() ? kPassed : kWrongUse;
}

int hash(Tool& tool)
{
    std::string secret = readInput("-", tool.interrupt);
    if (secret.ends_with('\n')) {
        secret.pop_back();
    }
    if (secret.empty() || secret.size() > web::Login::kLongestSecret || secret.find('\0') != std::string::npos) {
        throw protocol::UserError(fmt::format("standard input: expected a secret of 1 to {} bytes without NUL, got {}",
                                              web::Login::kLongestSecret, protocol::plural(secret.size(), "byte")));
    }
    const std::string made = web::hashOf(secret);
    tool.json ? printJson({{"hash", made}}) : static_cast<void>(std::puts(made.c_str()));
    return kPassed;
}

}  // namespace

void addStation(Tool& tool)
{
    CLI::App* const noun = tool.app.add_subcommand("station", "Check the station's own file, station.toml");
    CLI::App* const hashing = noun->add_subcommand(
        "hash",
        "Hash a password or the number of a badge for [[operator]]\n"
        "Reads the secret from standard input, without its line end, and prints its hash by yescrypt.");
    hashing->footer("Examples:\n  systemd-ask-password | engineering-station station hash");
    hashing->callback([&tool] { tool.action = [&tool] { return hash(tool); }; });
    noun->require_subcommand(1);
    CLI::App* const verb =
        noun->add_subcommand("check",
                             "Check the station's file\n"
                             "The file is that of --config, else of $ENGINEERING_STATION, else "
                             "/etc/engineering/station.toml. Each error is a line FILE:LINE:COLUMN: TEXT on standard "
                             "error.");
    verb->footer("Examples:\n  engineering-station station check --config station.toml");
    verb->callback([&tool] { tool.action = [&tool] { return check(tool); }; });
}

}  // namespace programs::station_tool
