#include "station/config/StationConfig.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <system_error>

#include "protocol/Errors.h"
#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/toml/TableReader.h"
#include "station/Pattern.h"
#include "station/ports/SerialPorts.h"

namespace station {

namespace {

namespace fs = std::filesystem;
using protocol::toml_file::Problems;
using protocol::toml_file::TableReader;

class Reader
{
public:
    Reader(StationConfig& config, identity::Records records, Problems& problems)
        : config_(config), records_(records), problems_(problems)
    {
    }

    void read(const toml::table& root)
    {
        TableReader reader(root, "station file", problems_);
        if (const toml::table* table = reader.table("station")) {
            TableReader section(*table, "section [station]", problems_);
            config_.name = section.text("name");
            config_.line = section.text("line");
            section.finish();
        }
        if (const toml::table* table = reader.table("paths")) {
            TableReader section(*table, "section [paths]", problems_);
            config_.results = resolved(section.text("results"));
            config_.registry = resolved(section.text("registry"));
            config_.plans = texts(section, "plans");
            std::ranges::transform(config_.plans, config_.plans.begin(),
                                   [this](const std::string& path) { return resolved(path); });
            section.finish();
        }
        if (const toml::table* table = reader.table("unit")) {
            readUnit(*table);
        }
        if (const toml::table* table = reader.table("records")) {
            readRecords(*table);
        }
        if (const toml::table* table = reader.table("parameters")) {
            readParameters(*table);
        }
        config_.equipment = instrument::readEquipment(reader, fs::path(config_.file).parent_path());
        readSlots(reader);
        for (const toml::table* table : reader.tables("product")) {
            readProduct(*table);
        }
        readOperators(reader);
        if (const toml::table* table = reader.table("web")) {
            readWeb(*table);
        }
        reader.finish();
    }

private:
    std::string resolved(const std::string& path) const
    {
        return path.empty() ? "" : (fs::path(config_.file).parent_path() / path).lexically_normal().string();
    }

    std::vector<std::string> texts(TableReader& section, std::string_view key)
    {
        std::vector<std::string> all;
        const toml::node* node = section.node(key);
        if (node == nullptr) {
            return all;
        }
        if (!node->is_array()) {
            section.mistyped(key, *node, "an array of texts");
            return all;
        }
        for (const toml::node& element : *node->as_array()) {
            if (const auto* text = element.as_string()) {
                all.push_back(text->get());
            } else {
                section.mistyped(key, element, "a text");
            }
        }
        return all;
    }

    const identity::Record* record(std::string_view name, const toml::node& place)
    {
        try {
            return &require(records_, name);
        } catch (const protocol::UserError& error) {
            protocol::toml_file::report(problems_, place, error.what());
            return nullptr;
        }
    }

    void readUnit(const toml::table& table)
    {
        TableReader section(table, "section [unit]", problems_);
        if (const auto name = section.optionalText("serial")) {
            const identity::Record* found = identity::find(records_, *name);
            if (found == nullptr || !found->unique || found->isAddress()) {
                section.mistyped("serial", *table.get("serial"), "factory-serial or hu-serial");
            }
            config_.unit.serial.name = *name;
        }
        if (section.node("placeholders") != nullptr) {
            config_.unit.serial.placeholders = texts(section, "placeholders");
        }
        section.finish();
    }

    void readRecords(const toml::table& table)
    {
        for (const auto& [key, node] : table) {
            const std::string name(key.str());
            if (record(name, node) == nullptr) {
                continue;
            }
            if (!node.is_table()) {
                protocol::toml_file::report(problems_, node, "expected a section [records." + name + "], got a value");
                continue;
            }
            TableReader section(*node.as_table(), "section [records." + name + "]", problems_);
            const std::string pattern = section.text("pattern");
            // A record is bytes, not characters.
            re2::RE2::Options options(re2::RE2::Latin1);
            options.set_log_errors(false);
            auto compiled = std::make_shared<re2::RE2>(pattern, options);
            try {
                checkPattern(pattern);
                if (!compiled->ok()) {
                    throw PatternError(compiled->error(), false);
                }
                if (!pattern.empty()) {
                    config_.unit.patterns[name] = std::move(compiled);
                }
            } catch (const PatternError& error) {
                section.report("pattern",
                               fmt::format("'pattern': expected a regular expression in RE2's syntax, got {}: {}",
                                           protocol::inQuotes(pattern), error.what()));
            }
            section.finish();
        }
    }

    void readParameters(const toml::table& table)
    {
        TableReader section(table, "section [parameters]", problems_);
        for (const auto& [key, node] : table) {
            const auto place = node.source().begin;
            const std::string from = fmt::format("{}:{}:{}", config_.file, place.line, place.column);
            const std::string name(key.str());
            if (const auto* text = node.as_string()) {
                config_.parameters.push_back({name, text->get(), from, plan::GivenValue::Type::kText});
            } else if (const auto number = node.is_number() ? node.value<double>() : std::nullopt;
                       number && std::isfinite(*number)) {
                config_.parameters.push_back({name, protocol::toText(*number), from, plan::GivenValue::Type::kNumber});
            } else {
                section.mistyped(name, node, "a number or a text");
            }
        }
    }

    void readSlots(TableReader& reader)
    {
        for (const toml::table* table : reader.tables("slot")) {
            TableReader section(*table, "section [[slot]]", problems_);
            const Slot slot{section.text("name", true), section.text("port", true), section.text("barcode")};
            const auto isTwice = [&](const char* key, std::string Slot::*value) {
                if (!(slot.*value).empty() &&
                    std::ranges::find(config_.slots, slot.*value, value) != config_.slots.end()) {
                    section.report(key, fmt::format("'{}': expected another one for each slot, got {} twice", key,
                                                    protocol::inQuotes(slot.*value)));
                }
            };
            isTwice("name", &Slot::name);
            isTwice("port", &Slot::port);
            isTwice("barcode", &Slot::barcode);
            if (std::string_view(slot.name).find_first_of("/?#%") != slot.name.npos) {
                section.report("name", fmt::format("'name': expected a name without / ? # %, got {}",
                                                   protocol::inQuotes(slot.name)));
            }
            if (const std::string error = checkPort(slot.port); section.raw().contains("port") && !error.empty()) {
                section.report("port", "'port': " + error);
            }
            section.finish();
            config_.slots.push_back(slot);
        }
    }

    void readProduct(const toml::table& table)
    {
        TableReader section(table, "section [[product]]", problems_);
        Product product{section.text("pattern"), section.text("plan", true), section.boolean("destructive", false)};
        try {
            checkPattern(product.pattern);
        } catch (const PatternError& error) {
            section.report("pattern",
                           fmt::format("'pattern': expected a regular expression in RE2's syntax, got {}: {}",
                                       protocol::inQuotes(product.pattern), error.what()));
        }
        if (!config_.products.empty() && config_.products.back().pattern.empty()) {
            section.report("pattern",
                           "expected no product behind one without 'pattern', which takes every serial number");
        }
        section.finish();
        config_.products.push_back(std::move(product));
    }

    void readOperators(TableReader& reader)
    {
        for (const toml::table* table : reader.tables("operator")) {
            TableReader section(*table, "section [[operator]]", problems_);
            web::Account account{{section.text("name", true)}, section.text("password"), section.text("badge")};
            if (const auto role = section.oneOf("role", {web::kRoleNames.begin() + 1, web::kRoleNames.end()}, true)) {
                account.user.role = static_cast<web::Role>(*role + 1);
            }
            for (const auto& [key, hash] :
                 {std::pair("password", account.passwordHash), {"badge", account.badgeHash}}) {
                if (section.raw().contains(key) && !web::isHash(hash)) {
                    section.report(key, fmt::format("'{}': expected a hash that 'engineering-station station hash' "
                                                    "prints, got another text",
                                                    key));
                }
            }
            if (account.passwordHash.empty() && account.badgeHash.empty()) {
                section.report("password", "expected 'password' or 'badge', got neither");
            }
            if (std::ranges::any_of(config_.accounts,
                                    [&](const web::Account& each) { return each.user.name == account.user.name; })) {
                section.report("name", fmt::format("'name': expected another one for each operator, got {} twice",
                                                   protocol::inQuotes(account.user.name)));
            }
            section.finish();
            config_.accounts.push_back(std::move(account));
        }
    }

    void readWeb(const toml::table& table)
    {
        TableReader section(table, "section [web]", problems_);
        if (const auto address = section.optionalText("address")) {
            config_.web.address = *address;
        }
        if (const auto port = section.integer("port", false, 1, 65535)) {
            config_.web.port = static_cast<std::uint16_t>(*port);
        }
        config_.web.certificate = resolved(section.text("certificate"));
        config_.web.key = resolved(section.text("key"));
        config_.web.names = texts(section, "names");
        if (config_.web.certificate.empty() != config_.web.key.empty()) {
            section.report("certificate", "expected 'certificate' and 'key' together, got one of them");
        }
        section.finish();
    }

    StationConfig& config_;
    identity::Records records_;
    Problems& problems_;
};

/// @returns why the tool cannot write in a folder that it would make with its parents; empty if it can.
std::string obstacleAt(fs::path folder)
{
    std::error_code error;
    while (folder.has_parent_path() && !fs::exists(folder, error)) {
        folder = folder.parent_path();
    }
    if (!fs::is_directory(folder, error)) {
        return folder.string() + ": expected a directory, got a file";
    }
    return access(folder.c_str(), W_OK | X_OK) == 0
               ? ""
               : fmt::format("{}: cannot be written: {}", folder.string(), std::generic_category().message(errno));
}

}  // namespace

StationConfig readStationConfig(std::string_view text, const std::string& file, identity::Records records,
                                Problems& problems)
{
    StationConfig config;
    config.file = file;
    const toml::table root = protocol::toml_file::parse(text, problems);
    if (problems.empty()) {
        Reader(config, records, problems).read(root);
    }
    protocol::toml_file::sort(problems);
    return config;
}

std::string findStationFile(const std::string& given)
{
    constexpr const char* kSystemFile = "/etc/engineering/station.toml";
    if (!given.empty()) {
        return given;
    }
    if (const char* named = g_getenv("ENGINEERING_STATION"); named != nullptr && *named != '\0') {
        return named;
    }
    std::error_code error;
    return fs::exists(kSystemFile, error) ? kSystemFile : "";
}

std::string stateFolder()
{
    return std::string(g_get_user_state_dir()) + "/engineering-station";
}

std::string registryPath(const StationConfig& config)
{
    return config.registry.empty() ? stateFolder() + "/registry.sqlite" : config.registry;
}

std::string findPlan(const std::string& plan, const std::vector<std::string>& folders)
{
    std::error_code error;
    if (plan.find('/') != std::string::npos || fs::exists(plan, error)) {
        return plan;
    }
    for (const std::string& folder : folders) {
        for (const char* ending : {"", ".toml"}) {
            const fs::path path = fs::path(folder) / (plan + ending);
            if (fs::is_regular_file(path, error)) {
                return path.string();
            }
        }
    }
    throw protocol::UserError(
        fmt::format("{}: no such file or plan; plan folders: {}", plan, fmt::join(folders, ", ")));
}

std::vector<std::string> unusablePaths(const StationConfig& config)
{
    std::vector<std::string> lines;
    const auto add = [&lines](const char* key, const std::string& obstacle) {
        if (!obstacle.empty()) {
            lines.push_back(fmt::format("[paths] {}: {}", key, obstacle));
        }
    };
    if (!config.registry.empty()) {
        add("registry", obstacleAt(fs::absolute(config.registry).parent_path()));
    }
    if (!config.results.empty()) {
        add("results", obstacleAt(fs::absolute(config.results)));
    }
    if (const auto& power = config.equipment.power; power && !power->run.empty()) {
        try {
            instrument::findProgram(power->run.front(), {config.equipment.scripts});
        } catch (const protocol::UserError& error) {
            lines.push_back(fmt::format("[power] run: {}", error.what()));
        }
    }
    for (const std::string& folder : config.plans) {
        std::error_code error;
        add("plans", fs::is_directory(folder, error) ? "" : folder + ": expected a directory, got none");
    }
    return lines;
}

}  // namespace station
