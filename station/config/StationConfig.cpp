#include "station/config/StationConfig.h"

#include <algorithm>
#include <filesystem>

#include "protocol/toml/TableReader.h"
#include "station/Pattern.h"

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
            section.report(key, "'" + std::string(key) + "': expected an array of texts");
            return all;
        }
        for (const toml::node& element : *node->as_array()) {
            if (const auto* text = element.as_string()) {
                all.push_back(text->get());
            } else {
                protocol::toml_file::report(problems_, element, "'" + std::string(key) + "': expected a text");
            }
        }
        return all;
    }

    const identity::Record* record(std::string_view name, const toml::node& place)
    {
        const identity::Record* found = find(records_, name);
        if (found == nullptr) {
            try {
                require(records_, name);
            } catch (const std::invalid_argument& error) {
                protocol::toml_file::report(problems_, place, error.what());
            }
        }
        return found;
    }

    void readUnit(const toml::table& table)
    {
        TableReader section(table, "section [unit]", problems_);
        if (const auto name = section.optionalText("serial")) {
            const identity::Record* found = record(*name, *table.get("serial"));
            if (found != nullptr && (!found->unique || found->isAddress())) {
                section.report("serial",
                               "'" + *name + "' is not a serial number: expected factory-serial or hu-serial");
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
                protocol::toml_file::report(problems_, node, "expected a section [records." + name + "]");
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
                               "'" + pattern + "' is not a regular expression in RE2's syntax: " + error.what());
            }
            section.finish();
        }
    }

    StationConfig& config_;
    identity::Records records_;
    Problems& problems_;
};

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

}  // namespace station
