#include "programs/station/Station.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "programs/Cli.h"
#include "programs/station/InputFile.h"
#include "programs/station/Tool.h"
#include "programs/station/plan/PlanFile.h"
#include "protocol/catalogue/Catalogue.h"

namespace programs::station_tool {

namespace {

constexpr const char* kSystemFile = "/etc/engineering/station.toml";

std::string variable(const char* name)
{
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace

std::string stateFolder()
{
    std::string folder = variable("XDG_STATE_HOME");
    if (folder.empty()) {
        folder = variable("HOME");
        folder += folder.empty() ? "" : "/.local/state";
    }
    return folder.empty() ? "" : folder + "/" + kProgram;
}

Station::Station(const station::Interrupt& interrupt)
    : interrupt_(interrupt), records_(station::identity::records(protocol::catalogue::groups()))
{
}

std::string Station::file() const
{
    if (!given.empty()) {
        return given;
    }
    if (std::string named = variable("ENGINEERING_STATION"); !named.empty()) {
        return named;
    }
    std::error_code error;
    return std::filesystem::exists(kSystemFile, error) ? kSystemFile : "";
}

const station::StationConfig& Station::config()
{
    std::call_once(read_, [this] {
        const std::string path = file();
        if (path.empty()) {
            return;
        }
        protocol::toml_file::Problems problems;
        config_ = station::readStationConfig(readInput(path, interrupt_), path, records_, problems);
        if (!problems.empty()) {
            const std::string more = problems.size() > 1 ? " (and more: see 'engineering-station station check')" : "";
            throw WrongUse(format(path, problems.front()) + more);
        }
    });
    return config_;
}

std::string Station::registryPath()
{
    if (!config().registry.empty()) {
        return config_.registry;
    }
    const std::string folder = stateFolder();
    if (folder.empty()) {
        throw WrongUse("no place for the registry: set [paths] registry in station.toml, or HOME");
    }
    return folder + "/registry.sqlite";
}

std::vector<std::string> Station::planFolders()
{
    std::vector<std::string> folders = config().plans;
    std::error_code error;
    folders.push_back(shippedPlans(std::filesystem::read_symlink("/proc/self/exe", error)));
    return folders;
}

std::string Station::findPlan(const std::string& plan)
{
    namespace fs = std::filesystem;
    std::error_code error;
    if (plan.find('/') != std::string::npos || fs::exists(plan, error)) {
        return plan;
    }
    std::string searched = ".";
    for (const std::string& folder : planFolders()) {
        searched += ", " + folder;
        for (const char* ending : {"", ".toml"}) {
            const fs::path path = fs::path(folder) / (plan + ending);
            if (fs::is_regular_file(path, error)) {
                return path.string();
            }
        }
    }
    throw WrongUse("there is no plan '" + plan + "'; looked in " + searched);
}

std::unique_ptr<station::identity::Registry> Station::openRegistry(station::identity::Registry::Access access)
{
    return std::make_unique<station::identity::Registry>(registryPath(), records_, config().unit, &interrupt_, access);
}

void Station::guardConnections()
{
    station::Connection::guardBy([this] {
        return std::make_unique<station::identity::IdentityGuard>(records_, config().unit, terms,
                                                                  [this] { return openRegistry(); });
    });
}

namespace {

/// @returns why nothing can be written in a folder that would be made with its parents; empty when it can.
std::string obstacleAt(std::filesystem::path folder)
{
    std::error_code error;
    while (folder.has_parent_path() && !std::filesystem::exists(folder, error)) {
        folder = folder.parent_path();
    }
    if (!std::filesystem::is_directory(folder, error)) {
        return folder.string() + " is not a directory";
    }
    return access(folder.c_str(), W_OK | X_OK) == 0
               ? ""
               : "cannot write in " + folder.string() + ": " + std::strerror(errno);
}

/// @returns what is sound in the file but of no use on this machine.
std::vector<std::string> unusablePaths(const station::StationConfig& config)
{
    std::vector<std::string> lines;
    const auto add = [&lines](const char* key, const std::string& obstacle) {
        if (!obstacle.empty()) {
            lines.push_back(std::string("[paths] ") + key + ": " + obstacle);
        }
    };
    if (!config.registry.empty()) {
        add("registry", obstacleAt(std::filesystem::absolute(config.registry).parent_path()));
    }
    if (!config.results.empty()) {
        add("results", obstacleAt(std::filesystem::absolute(config.results)));
    }
    for (const std::string& folder : config.plans) {
        std::error_code error;
        add("plans", std::filesystem::is_directory(folder, error) ? "" : folder + " is not a directory");
    }
    return lines;
}

/// @returns the registry's UUID; empty when there is none yet, or it cannot be read.
std::string uuidOf(Tool& tool, const std::string& registry)
{
    std::error_code error;
    if (!std::filesystem::exists(registry, error)) {
        return {};
    }
    try {
        return tool.station->openRegistry(station::identity::Registry::Access::kLook)->uuid();
    } catch (const station::identity::RegistryError&) {
        return {};
    }
}

int check(Tool& tool)
{
    const std::string path = tool.station->file();
    protocol::toml_file::Problems problems;
    station::StationConfig config;
    if (!path.empty()) {
        config = station::readStationConfig(readInput(path, tool.interrupt), path, tool.station->records(), problems);
    }
    const std::vector<std::string> warnings = unusablePaths(config);
    const std::string registry = problems.empty() ? tool.station->registryPath() : "";
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
    } else if (problems.empty()) {
        const std::string file = path.empty() ? "no station.toml: the defaults hold" : path + ": sound";
        std::printf("%s, registry %s%s\n", file.c_str(), registry.c_str(),
                    uuid.empty() ? " (not made yet)" : (" (" + uuid + ")").c_str());
    }
    for (const auto& problem : problems) {
        if (!tool.json) {
            std::fprintf(stderr, "%s\n", format(path, problem).c_str());
        }
    }
    for (const std::string& warning : warnings) {
        if (!tool.json) {
            std::fprintf(stderr, "%s: warning: %s\n", path.c_str(), warning.c_str());
        }
    }
    return problems.empty() ? kPassed : kWrongUse;
}

}  // namespace

void addStation(Tool& tool)
{
    CLI::App* const noun = tool.app.add_subcommand("station", "The station's own file, station.toml");
    noun->require_subcommand(1);
    CLI::App* const verb =
        noun->add_subcommand("check",
                             "Checks the station's file\n"
                             "It is the one of --config, else of $ENGINEERING_STATION, else "
                             "/etc/engineering/station.toml. Every mistake is a "
                             "line FILE:LINE:COLUMN: TEXT on standard error, all of the file at once; exit status 2.");
    verb->footer("  engineering-station station check --config station.toml");
    verb->callback([&tool] { tool.action = [&tool] { return check(tool); }; });
}

}  // namespace programs::station_tool
