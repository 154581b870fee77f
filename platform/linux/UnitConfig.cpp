#include "platform/linux/UnitConfig.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <glib.h>
#include <linux/input.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
#include <optional>
#include <string_view>
#include <system_error>

#include "host/Glib.h"
#include "platform/linux/CanSignal.h"
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
    {"app-manager", "systemd"}, {"power", "logind"},       {"system-info", "hostname1"},
    {"config", "file"},         {"audio", "alsa"},         {"source", "table"},
    {"tuner", "v4l2"},          {"bluetooth", "bluez"},    {"phone", "ofono"},
    {"media-player", nullptr},  {"location", "gpsd"},      {"wifi", "networkmanager"},
    {"system-misc", "linux"},   {"system-update", "rauc"}, {"file-manager", "systemd"},
    {"persistence", "systemd"}, {"car-play", nullptr},     {"android-auto", nullptr},
    {"device-app", nullptr},
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
        if (const toml::table* const table = reader.table("hmi")) {
            readHmi(*table);
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
            config_.power.standbyUnit = unitName(section, "standby-unit");
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
        } else if (interface == "system-misc") {
            readVehicleData(section);
        } else if (interface == "system-update") {
            readBundles(section, isOn);
        } else if (interface == "file-manager") {
            config_.clearUnit = unitName(section, "unit", isOn);
        } else if (interface == "persistence") {
            config_.persistence.resetUnit = unitName(section, "reset-unit");
            config_.persistence.autoResetUnit = unitName(section, "auto-reset-unit");
        } else if (interface == "tuner") {
            readTuner(section);
        } else if (interface == "wifi") {
            readWifi(section, isOn);
        } else if (const toml::table* const values = section.table("values")) {
            readValues(section, *values);
        }
    }

    /// @returns whether this has the suffix without which systemd refuses a unit's name.
    static bool isUnitName(const std::string& name)
    {
        static constexpr const char* kSuffixes[] = {".service", ".target", ".socket", ".mount", ".automount", ".path",
                                                    ".timer",   ".device", ".swap",   ".slice", ".scope"};
        return std::ranges::any_of(kSuffixes, [&](const std::string& suffix) {
            return name.ends_with(suffix) && name.size() > suffix.size();
        });
    }

    /// The name of a systemd unit.
    static std::string unitName(TableReader& reader, std::string_view key, bool isRequired = false)
    {
        std::string name = reader.text(key, isRequired);
        if (!name.empty() && !isUnitName(name)) {
            reader.report(key, fmt::format("'{}': expected the name of a systemd unit, such as NAME.service, got {}",
                                           key, protocol::inQuotes(name)));
        }
        return name;
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
            config_.appManager.units[module(key.str(), node)] = unitName(reader, key.str());
        }
        reader.finish();
    }

    void readTuner(TableReader& section)
    {
        UnitConfig::Tuner& tuner = config_.tuner;
        const auto milliseconds = [&](const char* key, std::chrono::milliseconds otherwise) {
            const auto seconds = section.seconds(key, 0.001, 60);
            return seconds ? std::chrono::milliseconds(std::lround(*seconds * 1000)) : otherwise;
        };
        tuner.device = section.optionalText("device").value_or(tuner.device);
        readBand(section, "fm", tuner.fm);
        readBand(section, "am", tuner.am);
        tuner.stationSignal =
            static_cast<int>(section.integer("station-signal", false, 1, 100).value_or(tuner.stationSignal));
        tuner.settle = milliseconds("settle", tuner.settle);
        tuner.scan = milliseconds("scan", tuner.scan);
        tuner.soundUnit = unitName(section, "sound-unit");
    }

    void readBand(TableReader& section, const std::string& key, UnitConfig::Tuner::Band& band)
    {
        const toml::table* const table = section.table(key);
        if (table == nullptr) {
            return;
        }
        // The station's frequencies have 16 bits.
        constexpr std::int64_t kMost = 65535;
        TableReader reader(*table, "section [tuner." + key + "]", problems_);
        band.low = static_cast<unsigned>(reader.integer("low", false, 1, kMost).value_or(band.low));
        band.high = static_cast<unsigned>(
            reader.integer("high", false, std::max<std::int64_t>(band.low, 1), kMost).value_or(band.high));
        band.step = static_cast<unsigned>(reader.integer("step", false, 1, 1000).value_or(band.step));
        reader.finish();
    }

    void readWifi(TableReader& section, bool isOn)
    {
        UnitConfig::Wifi& wifi = config_.wifi;
        constexpr std::size_t kLongestSsid = 32;
        wifi.interface = section.text("interface", isOn);
        wifi.ssid = section.text("ssid");
        wifi.password = section.text("password");
        wifi.profile = section.text("profile");
        wifi.activate = section.boolean("activate", false);
        if (isOn && wifi.ssid.empty() == wifi.profile.empty()) {
            section.report("ssid",
                           "expected either 'ssid', the name of an access point to make, or 'profile', the "
                           "name of a profile of NetworkManager");
        } else if (wifi.ssid.size() > kLongestSsid) {
            section.report("ssid",
                           fmt::format("'ssid': expected {} bytes at most, got {}", kLongestSsid, wifi.ssid.size()));
        }
        // The limits of WPA.
        if (!wifi.password.empty() && (wifi.password.size() < 8 || wifi.password.size() > 63 || wifi.ssid.empty())) {
            section.report("password", "'password': expected 8 to 63 characters, beside 'ssid'");
        }
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
            // 1 and 01 would be two rows for the same number.
            if (parsed.ec == std::errc() && std::to_string(number) == text && least <= number && number <= most) {
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
            } else if (kind == SourceKind::kUnit && !isUnitName(name)) {
                reader.report(key, fmt::format("expected unit:NAME with the name of a systemd unit, such as "
                                               "NAME.service, got {}",
                                               protocol::inQuotes(text)));
            } else {
                config_.sources[number] = {*kind, name};
            }
        });
    }

    void readVehicleData(TableReader& section)
    {
        if (const toml::table* const speed = section.table("speed")) {
            config_.vehicleData.speed = readSignal(*speed, "section [system-misc.speed]");
        }
        for (const char* key : {"radio-antenna", "dab-antenna", "gps-antenna", "state", "car-info"}) {
            if (const toml::table* const input = section.table(key)) {
                config_.vehicleData.inputs[key] = readInput(*input, fmt::format("section [system-misc.{}]", key));
            }
        }
        config_.vehicleData.resetUnit = unitName(section, "reset-unit");
    }

    UnitConfig::CanSignal readSignal(const toml::table& table, std::string place)
    {
        constexpr std::size_t kLongestInterface = 15;
        constexpr std::int64_t kShortIdentifiers = 0x7FF;
        constexpr std::int64_t kIdentifiers = 0x1FFFFFFF;
        constexpr unsigned kLongestFrame = 64;  // of CAN FD
        constexpr int kBits = 8 * kLongestFrame;
        TableReader reader(table, std::move(place), problems_);
        UnitConfig::CanSignal signal;
        signal.interface = reader.text("interface", true);
        if (signal.interface.size() > kLongestInterface) {
            reader.report("interface", fmt::format("'interface': expected at most {} characters, got {}",
                                                   kLongestInterface, signal.interface.size()));
        }
        const std::int64_t frame = reader.integer("frame", true, 0, kIdentifiers).value_or(0);
        signal.frame = static_cast<std::uint32_t>(frame);
        signal.isExtended = reader.boolean("extended", frame > kShortIdentifiers);
        if (frame > kShortIdentifiers && !signal.isExtended) {
            reader.report("extended", "'extended': expected true for an identifier above 0x7ff, got false");
        }
        signal.start = static_cast<unsigned>(reader.integer("start", true, 0, kBits - 1).value_or(0));
        signal.length = static_cast<unsigned>(reader.integer("length", true, 1, 64).value_or(1));
        signal.isBigEndian = reader.oneOf("order", {"little-endian", "big-endian"}, true) == 1U;
        if (bytesOf(signal) > kLongestFrame) {
            reader.report("length", fmt::format("'length': expected a signal in the first {} bytes, got one up to byte "
                                                "{}",
                                                kLongestFrame, bytesOf(signal)));
        }
        for (const auto& [key, number] : {std::pair("scale", &signal.scale), std::pair("offset", &signal.offset)}) {
            *number = reader.number(key).value_or(*number);
            if (!std::isfinite(*number)) {
                reader.mistyped(key, *reader.node(key), "a finite number");
            }
        }
        reader.finish();
        return signal;
    }

    UnitConfig::Input readInput(const toml::table& table, std::string place)
    {
        constexpr int kMost = 255;
        TableReader reader(table, place, problems_);
        UnitConfig::Input input;
        const auto number = [&](const char* key, bool required) {
            return static_cast<int>(reader.integer(key, required, 0, kMost).value_or(0));
        };
        if (table.contains("gpio") + table.contains("file") + table.contains("value") != 1) {
            protocol::toml_file::report(problems_, table,
                                        place + ": expected one of 'gpio', 'file' and 'value' as its source");
        }
        if (input.gpio = reader.text("gpio"); !input.gpio.empty()) {
            input.line = static_cast<unsigned>(reader.integer("line", true, 0, G_MAXUINT16).value_or(0));
            input.isActiveLow = reader.boolean("active-low", false);
            input.active = number("active", true);
            input.inactive = number("inactive", false);
        }
        if (input.file = reader.text("file"); !input.file.empty()) {
            if (const toml::table* const values = reader.table("values", true)) {
                TableReader each(*values, place + " values", problems_);
                for (const auto& [key, node] : *values) {
                    input.values[std::string(key.str())] =
                        static_cast<int>(each.integer(key.str(), true, 0, kMost).value_or(0));
                }
            }
        }
        input.value = number("value", false);
        reader.finish();
        return input;
    }

    void readBundles(TableReader& section, bool isOn)
    {
        readNumbered(section, "bundles", isOn, 0, G_MAXINT, [&](TableReader& reader, auto key, int code) {
            const auto bundle = reader.optionalText(key);
            if (bundle && !bundle->starts_with('/') && bundle->find("://") == std::string::npos) {
                reader.report(key, fmt::format("'bundles': expected an absolute path or a URL, got {}",
                                               protocol::inQuotes(*bundle)));
            }
            config_.updateBundles[code] = bundle.value_or("");
        });
    }

    void readHmi(const toml::table& table)
    {
        TableReader section(table, "section [hmi]", problems_);
        UnitConfig::Hmi& hmi = config_.hmi.emplace();
        constexpr int kMediaTypes = 4;
        readNumbered(section, "players", false, 1, kMediaTypes,
                     [&](TableReader& reader, auto key, int type) { hmi.players[type] = reader.text(key); });
        readActions(section, hmi);
        hmi.eqSwitch = section.text("eq-switch");
        hmi.keyboard = section.text("keyboard");
        readNumbered(section, "keys", !hmi.keyboard.empty(), 1, KEY_MAX, [&](TableReader& reader, auto key, int code) {
            hmi.keys[code] = static_cast<int>(reader.integer(key, false, 0, 255).value_or(0));
        });
        const double seconds = section.seconds("long-press", 0.1, 60).value_or(1);
        hmi.longPress = std::chrono::milliseconds(std::lround(seconds * 1000));
        section.finish();
    }

    void readActions(TableReader& section, UnitConfig::Hmi& hmi)
    {
        static constexpr std::string_view kActions[] = {"Play", "Pause", "PlayPause", "Stop", "Next", "Previous"};
        constexpr std::size_t kPlayActions = 4;
        for (const auto& [text, place] : texts(section, "actions")) {
            hmi.actions.push_back(text);
            if (std::ranges::find(kActions, text) == std::end(kActions)) {
                protocol::toml_file::report(
                    problems_, *place,
                    fmt::format("expected one of {}, got {}", fmt::join(kActions, ", "), protocol::inQuotes(text)));
            }
        }
        if (!(hmi.players.empty() && hmi.actions.empty()) && hmi.actions.size() != kPlayActions) {
            section.report("actions",
                           fmt::format("expected {} actions, for the play actions 1 to {} of 'players', got {}",
                                       kPlayActions, kPlayActions, hmi.actions.size()));
        }
    }

    void readValues(TableReader& section, const toml::table& values)
    {
        for (const auto& [key, node] : values) {
            if (const auto* const flag = node.as_boolean()) {
                config_.flags[std::string(key.str())] = flag->get();
            } else if (const auto* const text = node.as_string()) {
                config_.texts[std::string(key.str())] = text->get();
            } else {
                section.mistyped(key.str(), node, "true, false or a text");
            }
        }
    }

    std::vector<std::pair<std::string, const toml::node*>> texts(TableReader& section, std::string_view key)
    {
        std::vector<std::pair<std::string, const toml::node*>> all;
        const toml::node* const node = section.node(key);
        if (node != nullptr && !node->is_array()) {
            section.mistyped(key, *node, "an array of texts");
        } else if (node != nullptr) {
            for (const toml::node& element : *node->as_array()) {
                if (const auto* const text = element.as_string()) {
                    all.emplace_back(text->get(), &element);
                } else {
                    section.mistyped(key, element, "a text");
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
        throw protocol::UserError(
            fmt::format("{}: {}; docs/linux.md shows what stands in it", path, protocol::unreadable(errno)));
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
