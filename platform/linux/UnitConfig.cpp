#include "platform/linux/UnitConfig.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <glib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

#include "host/Glib.h"
#include "platform/runtime/UartOption.h"
#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "protocol/toml/TableReader.h"

namespace unit {
namespace {

using protocol::toml_file::Problems;
using protocol::toml_file::TableReader;

/// Every interface of the platform that a unit may lack, and the backend that it can have; without one it is off.
constexpr std::pair<const char*, const char*> kInterfaces[] = {
    {"app-manager", "systemd"}, {"power", "logind"},        {"system-info", "hostname1"}, {"config", "file"},
    {"audio", "alsa"},          {"source", "table"},        {"tuner", nullptr},           {"bluetooth", "bluez"},
    {"phone", "ofono"},         {"media-player", nullptr},  {"location", "gpsd"},         {"wifi", nullptr},
    {"system-misc", nullptr},   {"system-update", nullptr}, {"file-manager", nullptr},    {"persistence", nullptr},
    {"car-play", nullptr},      {"android-auto", nullptr},  {"device-app", nullptr},
};

constexpr std::pair<const char*, ServiceModule> kModules[] = {
    {"audio", MODULE_AUDIO},       {"source", MODULE_SOURCE},       {"system-proxy", MODULE_SYSTEM_PROXY},
    {"tuner", MODULE_TUNER},       {"bluetooth", MODULE_BLUETOOTH}, {"media-player", MODULE_MEDIA_PLAYER},
    {"location", MODULE_LOCATION}, {"wifi", MODULE_WIFI},           {"device-app", MODULE_DEVICE_APP},
};

using Source = UnitConfig::Version::Source;
constexpr std::pair<const char*, Source> kSources[] = {
    {"text", Source::kText},
    {"hostname1", Source::kHostname},
    {"os-release", Source::kOsRelease},
    {"uname", Source::kUname},
};

using SourceKind = UnitConfig::AudioSource::Kind;
constexpr std::pair<const char*, SourceKind> kSourceKinds[] = {
    {"none", SourceKind::kNone}, {"unit", SourceKind::kUnit}, {"mpris", SourceKind::kPlayer}};

template <class Table>
std::string namesIn(const Table& table)
{
    std::vector<std::string_view> names;
    std::ranges::transform(table, std::back_inserter(names), [](const auto& row) { return row.first; });
    return fmt::format("{}", fmt::join(names, ", "));
}

template <class Table>
auto find(const Table& table, std::string_view name)
{
    const auto row = std::ranges::find_if(table, [&](const auto& each) { return each.first == name; });
    return row == std::end(table) ? std::nullopt : std::optional(row->second);
}

class UnitFile
{
public:
    UnitFile(UnitConfig& config, Problems& problems) : config_(config), problems_(problems) {}

    void read(const toml::table& file)
    {
        TableReader reader(file, "unit file", problems_);
        config_.root = reader.optionalText("root").value_or(config_.root);
        config_.uart = reader.text("uart", true);
        std::vector<std::string> missing;
        for (const auto& [interface, backend] : kInterfaces) {
            if (const toml::table* const table = reader.table(interface)) {
                readInterface(interface, backend, *table);
            } else if (reader.node(interface) == nullptr) {
                missing.push_back(fmt::format("[{}]", interface));
            }
        }
        if (!missing.empty()) {
            protocol::toml_file::report(
                problems_, file,
                fmt::format("expected the sections {}, got none; backend = \"off\" switches an interface off",
                            fmt::join(missing, ", ")));
        }
        reader.finish();
    }

private:
    void readInterface(const std::string& interface, const char* backend, const toml::table& table)
    {
        TableReader section(table, "section [" + interface + "]", problems_);
        std::vector<std::string_view> backends{"off"};
        if (backend != nullptr) {
            backends.emplace_back(backend);
        }
        const auto chosen = section.oneOf("backend", backends, true);
        config_.backends.emplace_back(interface, backends[chosen.value_or(0)]);
        if (backend != nullptr) {
            readParameters(interface, section, chosen == 1);
        }
        section.finish();
    }

    /// @param isOn a missing parameter is a mistake
    void readParameters(const std::string& interface, TableReader& section, bool isOn)
    {
        if (interface == "app-manager") {
            readModules(section);
        } else if (interface == "power") {
            config_.power.state = static_cast<int>(section.integer("power-state", false, 0, 255).value_or(0));
            config_.power.lightType = static_cast<int>(section.integer("light-type", false, 0, 255).value_or(0));
            config_.power.standbyUnit = section.text("standby-unit");
        } else if (interface == "system-info") {
            readVersions(section);
        } else if (interface == "location") {
            config_.location.host = section.optionalText("host").value_or(config_.location.host);
            config_.location.port =
                static_cast<std::uint16_t>(section.integer("port", false, 1, 65535).value_or(config_.location.port));
        } else if (interface == "audio") {
            config_.audio.card = section.text("card", isOn);
            config_.audio.element = section.text("element", isOn);
            config_.audio.steps =
                static_cast<int>(section.integer("steps", false, 1, 255).value_or(config_.audio.steps));
        } else if (interface == "source") {
            readSources(section, isOn);
        } else if (interface == "bluetooth") {
            config_.bluetooth.adapter = section.text("adapter");
            config_.bluetooth.version = section.text("version");
        } else if (const toml::table* const values = section.table("values")) {
            readValues(*values);
        }
    }

    ServiceModule module(std::string_view name, const toml::node& place)
    {
        const auto found = find(kModules, name);
        if (!found) {
            protocol::toml_file::report(problems_, place,
                                        fmt::format("expected a module ({}), got {}", namesIn(kModules),
                                                    protocol::inQuotes(std::string(name))));
        }
        return found.value_or(MODULE_NONE);
    }

    void readModules(TableReader& section)
    {
        for (const auto& [text, place] : texts(section, "modules")) {
            config_.appManager.modules.push_back(module(text, *place));
        }
        const toml::table* const units = section.table("units");
        if (units == nullptr) {
            return;
        }
        TableReader reader(*units, "section [app-manager.units]", problems_);
        for (const auto& [key, node] : *units) {
            config_.appManager.units[module(key.str(), node)] = reader.text(key.str());
        }
        reader.finish();
    }

    void readVersions(TableReader& section)
    {
        const auto all = texts(section, "versions");
        if (all.size() > config_.versions.size()) {
            section.report("versions",
                           fmt::format("expected {} versions at most, got {}", config_.versions.size(), all.size()));
            return;
        }
        for (std::size_t i = 0; i < all.size(); ++i) {
            const auto& [text, place] = all[i];
            const std::size_t colon = text.find(':');
            const auto source = find(kSources, std::string_view(text).substr(0, colon));
            if (colon == std::string::npos || !source) {
                protocol::toml_file::report(problems_, *place,
                                            fmt::format("expected SOURCE:VALUE with one of {}, got {}",
                                                        namesIn(kSources), protocol::inQuotes(text)));
                continue;
            }
            config_.versions[i] = {*source, text.substr(colon + 1)};
            const std::string& key = config_.versions[i].value;
            if (source == Source::kUname && key != "release" && key != "version" && key != "machine") {
                protocol::toml_file::report(
                    problems_, *place,
                    fmt::format("expected uname:release, uname:version or uname:machine, got {}",
                                protocol::inQuotes(text)));
            }
        }
    }

    /// Calls `each` with a reader, the key and its number, for each row of a table whose keys are numbers.
    template <class Each>
    void readNumbered(TableReader& section, std::string_view name, bool isOn, int least, int most, Each each)
    {
        const toml::table* const table = section.table(name, isOn);
        if (table == nullptr) {
            return;
        }
        TableReader reader(*table, fmt::format("table '{}'", name), problems_);
        for (const auto& [key, node] : *table) {
            const std::string_view text = key.str();
            int number = -1;
            const auto parsed = std::from_chars(text.data(), text.data() + text.size(), number);
            if (parsed.ec == std::errc() && parsed.ptr == text.data() + text.size() && least <= number &&
                number <= most) {
                each(reader, text, number);
            } else {
                reader.report(text, fmt::format("'{}': expected a key from {} to {}, got {}", name, least, most,
                                                protocol::inQuotes(std::string(text))));
            }
        }
    }

    void readSources(TableReader& section, bool isOn)
    {
        constexpr int kHighestSource = 44;
        readNumbered(section, "sources", isOn, 1, kHighestSource, [&](TableReader& reader, auto key, int number) {
            const auto given = reader.optionalText(key);
            if (!given) {
                return;
            }
            const std::string& text = *given;
            const std::size_t colon = text.find(':');
            const auto kind = find(kSourceKinds, std::string_view(text).substr(0, colon));
            const std::string name = colon == std::string::npos ? "" : text.substr(colon + 1);
            if (!kind || name.empty() != (kind == SourceKind::kNone)) {
                reader.report(
                    key, fmt::format("expected unit:NAME, mpris:PLAYER or none, got {}", protocol::inQuotes(text)));
            } else {
                config_.sources[number] = {*kind, name};
            }
        });
    }

    void readValues(const toml::table& values)
    {
        for (const auto& [key, node] : values) {
            if (const auto* const flag = node.as_boolean()) {
                config_.flags[std::string(key.str())] = flag->get();
            } else if (const auto* const text = node.as_string()) {
                config_.texts[std::string(key.str())] = text->get();
            } else {
                protocol::toml_file::report(
                    problems_, node,
                    fmt::format("{}: expected true, false or a text", protocol::inQuotes(std::string(key.str()))));
            }
        }
    }

    std::vector<std::pair<std::string, const toml::node*>> texts(TableReader& section, std::string_view key)
    {
        std::vector<std::pair<std::string, const toml::node*>> all;
        const toml::node* const node = section.node(key);
        if (node != nullptr && !node->is_array()) {
            section.report(key, fmt::format("'{}': expected an array of texts", key));
        } else if (node != nullptr) {
            for (const toml::node& element : *node->as_array()) {
                if (const auto* const text = element.as_string()) {
                    all.emplace_back(text->get(), &element);
                } else {
                    protocol::toml_file::report(problems_, element, fmt::format("'{}': expected a text", key));
                }
            }
        }
        return all;
    }

    UnitConfig& config_;
    Problems& problems_;
};

}  // namespace

bool UnitConfig::isOff(const std::string& interface) const
{
    return std::ranges::find(backends, std::pair<std::string, std::string>(interface, "off")) != backends.end();
}

UnitConfig loadUnitConfig(const std::string& path, std::vector<std::string>& mistakes)
{
    char* content = nullptr;
    gsize size = 0;
    host::GlibError error;
    if (!g_file_get_contents(path.c_str(), &content, &size, error.out())) {
        throw protocol::UserError(fmt::format("{}: cannot be read: {}; docs/linux.md shows what stands in it", path,
                                              std::generic_category().message(errno)));
    }
    const host::GlibPtr<char> owner(content);

    UnitConfig config;
    Problems problems;
    const toml::table file = protocol::toml_file::parse({content, size}, problems);
    if (problems.empty()) {
        UnitFile(config, problems).read(file);
    }
    if (problems.empty()) {
        try {
            runtime::parseUartOption(config.uart, "'uart'");
        } catch (const protocol::UserError& mistake) {
            protocol::toml_file::report(problems, *file.get("uart"), mistake.what());
        }
    }
    protocol::toml_file::sort(problems);
    std::ranges::transform(problems, std::back_inserter(mistakes),
                           [&](const auto& problem) { return protocol::toml_file::format(path, problem); });
    return config;
}

}  // namespace unit
