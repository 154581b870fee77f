#include "platform/linux/UnitConfig.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <ostream>

#include "platform/linux/UnitTestFile.h"
#include "protocol/Errors.h"
#include "protocol/toml/TableReader.h"
#include "tests/support/TempDir.h"

namespace unit {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

class UnitConfigTest : public testing::Test
{
protected:
    UnitConfig load(const std::string& text)
    {
        const auto path = directory_.path() / "unit.toml";
        std::ofstream(path) << text;
        UnitConfig config = loadUnitConfig(path, mistakes_);
        for (std::string& mistake : mistakes_) {
            mistake.erase(0, directory_.path().string().size() + 1);
        }
        return config;
    }

    tests::TempDir directory_;
    std::vector<std::string> mistakes_;
};

TEST_F(UnitConfigTest, NamesABackendForEveryInterfaceOrSwitchesItOff)
{
    const UnitConfig config = load(tests::unitFile());

    EXPECT_THAT(mistakes_, IsEmpty());
    EXPECT_EQ(config.root, "/tmp/root");
    EXPECT_EQ(config.uart, "pty:/tmp/uart");
    EXPECT_THAT(config.appManager.modules, ElementsAre(MODULE_MEDIA_PLAYER));
    EXPECT_THAT(config.appManager.units, ElementsAre(std::pair(MODULE_WIFI, "car-wifi.service")));
    EXPECT_EQ(config.power.state, 3);
    EXPECT_EQ(config.power.lightType, 2);
    EXPECT_EQ(config.power.standbyUnit, "standby.service");
    EXPECT_EQ(config.versions[1].value, "7");
    EXPECT_THAT(config.flags, ElementsAre(std::pair("/engineering/open_debug", true)));
    EXPECT_THAT(config.texts, ElementsAre(std::pair("/project/project_name", "board")));
    EXPECT_EQ(config.bluetooth.adapter, "hci0");
    EXPECT_EQ(config.location.host, "127.0.0.1");
    EXPECT_EQ(config.location.port, 9);
    EXPECT_EQ(config.audio.card, "hw:0");
    EXPECT_EQ(config.audio.element, "Master");
    EXPECT_EQ(config.audio.steps, 40);
    using AudioSource = UnitConfig::AudioSource;
    EXPECT_THAT(config.sources, ElementsAre(std::pair(1, AudioSource{AudioSource::Kind::kUnit, "radio.service"}),
                                            std::pair(16, AudioSource{AudioSource::Kind::kPlayer, "usb"}),
                                            std::pair(44, AudioSource{AudioSource::Kind::kNone, ""})));
    ASSERT_TRUE(config.vehicleData.speed);
    EXPECT_EQ(config.vehicleData.speed->interface, "can0");
    EXPECT_EQ(config.vehicleData.speed->frame, 0x3E9U);
    EXPECT_FALSE(config.vehicleData.speed->isExtended);
    EXPECT_EQ(config.vehicleData.speed->start, 7U);
    EXPECT_EQ(config.vehicleData.speed->length, 16U);
    EXPECT_TRUE(config.vehicleData.speed->isBigEndian);
    EXPECT_EQ(config.vehicleData.speed->scale, 0.01);
    EXPECT_EQ(config.vehicleData.speed->offset, -1);
    const UnitConfig::Input& line = config.vehicleData.inputs.at("radio-antenna");
    EXPECT_EQ(line.gpio, "/dev/gpiochip9");
    EXPECT_EQ(line.line, 7U);
    EXPECT_TRUE(line.isActiveLow);
    EXPECT_EQ(line.active, 4);
    EXPECT_EQ(line.inactive, 1);
    EXPECT_EQ(config.vehicleData.inputs.at("gps-antenna").file, "/tmp/antenna");
    EXPECT_THAT(config.vehicleData.inputs.at("gps-antenna").values,
                ElementsAre(std::pair("ok", 4), std::pair("open", 2)));
    EXPECT_EQ(config.vehicleData.inputs.at("state").value, 1);
    EXPECT_EQ(config.vehicleData.resetUnit, "reset.service");
    EXPECT_THAT(config.updateBundles, ElementsAre(std::pair(13, "/tmp/update.raucb")));
    EXPECT_EQ(config.clearUnit, "clear.service");
    EXPECT_EQ(config.persistence.resetUnit, "reset.target");
    EXPECT_EQ(config.persistence.autoResetUnit, "auto-reset.target");
    EXPECT_EQ(config.tuner.device, "/nonexistent/radio0");
    EXPECT_EQ(config.tuner.fm.low, 8750U);
    EXPECT_EQ(config.tuner.fm.high, 10800U);
    EXPECT_EQ(config.tuner.fm.step, 20U);
    EXPECT_EQ(config.tuner.am.low, 0U);
    EXPECT_EQ(config.tuner.am.step, 10U);
    EXPECT_EQ(config.tuner.stationSignal, 40);
    EXPECT_EQ(config.tuner.settle, std::chrono::milliseconds(20));
    EXPECT_EQ(config.tuner.scan, std::chrono::seconds(3));
    EXPECT_EQ(config.tuner.soundUnit, "radio-sound.service");
    EXPECT_EQ(config.wifi.interface, "wlan7");
    EXPECT_EQ(config.wifi.ssid, "Car 12");
    EXPECT_EQ(config.wifi.password, "secret-12");
    EXPECT_FALSE(config.wifi.activate);
    ASSERT_TRUE(config.hmi);
    EXPECT_THAT(config.hmi->players, ElementsAre(std::pair(1, "usb"), std::pair(3, "usb")));
    EXPECT_THAT(config.hmi->actions, ElementsAre("Play", "Pause", "Next", "Previous"));
    EXPECT_EQ(config.hmi->eqSwitch, "Tone");
    EXPECT_EQ(config.hmi->keyboard, "/tmp/keyboard");
    EXPECT_THAT(config.hmi->keys, ElementsAre(std::pair(114, 2), std::pair(115, 1)));
    EXPECT_EQ(config.hmi->longPress, std::chrono::seconds(2));
    EXPECT_FALSE(config.isOff("power"));
    EXPECT_TRUE(config.isOff("audio"));
}

TEST_F(UnitConfigTest, FileThatIsNotThereIsTheUsersMistake)
{
    EXPECT_THROW(loadUnitConfig("/nowhere/unit.toml", mistakes_), protocol::UserError);
}

/// Calls `take` with every value of the file, but for the sections, and `takeSection` with those.
template <class Take, class TakeSection>
void visit(const toml::node& node, const Take& take, const TakeSection& takeSection)
{
    const auto* const table = node.as_table();
    const bool isSection = table != nullptr && !table->is_inline();
    isSection ? takeSection(*table) : take(node);
    if (table != nullptr) {
        for (const auto& [key, value] : *table) {
            visit(value, take, takeSection);
        }
    } else if (const auto* const array = node.as_array()) {
        for (const toml::node& value : *array) {
            visit(value, take, takeSection);
        }
    }
}

/// What a file with all keys says when something is written into it.
class UnitFileChange : public UnitConfigTest
{
protected:
    std::size_t offsetOf(const toml::source_position& place) const
    {
        std::size_t begin = 0;
        for (auto line = place.line; line > 1; --line) {
            begin = file_.find('\n', begin) + 1;
        }
        return begin + place.column - 1;
    }

    /// Writes `text` in place of what stands from `begin` to `end`, and expects a mistake at `place` that begins so.
    void expectMistake(const toml::source_position& begin, std::size_t end, const std::string& text,
                       const toml::source_position& place, const std::string& mistake)
    {
        mistakes_.clear();
        std::string changed = file_;
        const std::size_t from = offsetOf(begin);
        load(changed.replace(from, end - from, text));
        EXPECT_THAT(
            mistakes_,
            Contains(testing::StartsWith(fmt::format("unit.toml:{}:{}: {}", place.line, place.column, mistake))))
            << text << " at " << begin;
    }

    UnitFileChange()
    {
        // The keys that the file leaves out.
        for (const auto& [before, more] :
             {std::pair("adapter = \"hci0\"", "\nversion = \"5.2\""), std::pair("port = 9", "\nhost = \"::1\""),
              std::pair("frame = 0x3e9", ", extended = false"),
              std::pair("password = \"secret-12\"", "\nprofile = \"\"\nactivate = true")}) {
            file_.insert(file_.find(before) + std::strlen(before), more);
        }
        load(file_);
        EXPECT_THAT(mistakes_, IsEmpty());
    }

    std::string file_ = tests::unitFile();
};

TEST_F(UnitFileChange, ValueOfAnotherTypeOrOutOfRangeIsAMistakeAtItsPlace)
{
    protocol::toml_file::Problems problems;
    visit(
        protocol::toml_file::parse(file_, problems),
        [&](const toml::node& value) {
            const auto& [begin, end, path] = value.source();
            expectMistake(begin, offsetOf(end), "2026-11-22", begin, "");
            EXPECT_THAT(mistakes_, Contains(testing::ContainsRegex("expected .*, got a date or a time$")));
            if (value.is_table()) {
                mistakes_.clear();
                load(std::string(file_).insert(offsetOf(begin) + 1, " nothing = 2026-11-22,"));
                EXPECT_THAT(mistakes_, Contains(testing::HasSubstr("'nothing'"))) << begin;
            }
            // What may be below 0 has no limits.
            if (value.is_integer() && value.as_integer()->get() >= 0) {
                expectMistake(begin, offsetOf(end), "-1", begin, "");
                expectMistake(begin, offsetOf(end), "99999999999", begin, "");
            }
        },
        [](const toml::table&) {});
}

TEST_F(UnitFileChange, UnknownKeyAndMissingBackendAreMistakesInEverySection)
{
    protocol::toml_file::Problems problems;
    visit(
        protocol::toml_file::parse(file_, problems), [](const toml::node&) {},
        [&](const toml::table& section) {
            const auto* const backend = section.get("backend");
            const auto place = backend == nullptr ? toml::source_position{1, 1}
                                                  : toml::source_position{backend->source().begin.line, 1};
            const std::size_t at = offsetOf(place);
            expectMistake(place, at, "nothing = 1\n", place, "unknown key 'nothing'");
            if (backend != nullptr) {
                expectMistake(place, offsetOf(backend->source().end) + 1, "", section.source().begin,
                              "expected the key 'backend' with ");
            }
        });
}

struct Mistake {
    const char* name;
    const char* was;
    const char* is;
    const char* line;  // from ':' on if it is where `was` begins
};

void PrintTo(const Mistake& mistake, std::ostream* out)
{
    *out << mistake.name;
}

class UnitMistakeTest : public UnitConfigTest, public testing::WithParamInterface<Mistake>
{
};

TEST_P(UnitMistakeTest, IsToldWithItsPlaceAndWhatWouldBeRight)
{
    std::string line = GetParam().line;
    if (line.starts_with(':')) {
        const std::string before = tests::unitFile().substr(0, tests::unitFile().find(GetParam().was));
        line = "unit.toml:" + std::to_string(1 + std::ranges::count(before, '\n')) + line;
    }

    load(tests::unitFile(GetParam().was, GetParam().is));

    EXPECT_THAT(mistakes_, ElementsAre(testing::StartsWith(line)));
}

INSTANTIATE_TEST_SUITE_P(
    File, UnitMistakeTest,
    testing::Values(
        Mistake{"Line", "\"pty:/tmp/uart\"", "\"pty:\"", "unit.toml:2:8: 'uart': expected pty:LINK or DEVICE[,BAUD]"},
        Mistake{"Rate", "pty:/tmp/uart", "/dev/ttyS0,7", "unit.toml:2:8: 'uart': expected a baud rate such as 9600, "},
        Mistake{"Backend", "\"logind\"", "\"systemd\"",
                "unit.toml:8:11: 'backend': expected \"off\" or \"logind\", got \"systemd\""},
        Mistake{"BackendThatIsNotBuilt", "\"off\"\n[device-app]", "\"usb\"\n[device-app]",
                ":11: 'backend': expected \"off\", got \"usb\""},
        Mistake{"Module", "\"media-player\"", "\"media\"",
                "unit.toml:5:12: expected a module (audio, source, system-proxy, tuner, bluetooth, media-player, "
                "location, wifi, device-app), got 'media'"},
        Mistake{"ModuleOfAUnit", "wifi =", "wlan =", "unit.toml:6:18: expected a module ("},
        Mistake{"PowerState", "power-state = 3", "power-state = 256", "unit.toml:9:15: 'power-state'"},
        Mistake{"LightType", "light-type = 2", "light-type = -1", "unit.toml:10:14: 'light-type'"},
        Mistake{"Version", "text:7", "7",
                "unit.toml:14:40: expected SOURCE:VALUE with one of text, hostname1, os-release, uname, got '7'"},
        Mistake{"Uname", "uname:release", "uname:node",
                "unit.toml:14:50: expected uname:release, uname:version or uname:machine, got 'uname:node'"},
        Mistake{"Versions", "\"text:7\"",
                "'text:', 'text:', 'text:', 'text:', 'text:', 'text:', 'text:', 'text:', 'text:', 'text:'",
                "unit.toml:14:12: expected 11 versions at most, got 12"},
        Mistake{"Value", "\"board\"", "7", "unit.toml:17:"},
        Mistake{"UnknownKey", "light-type", "light", "unit.toml:10:"},
        Mistake{"UnknownKeyOfTheFile", "root = ", "roof = ", "unit.toml:1:"},
        Mistake{"Port", "port = 9", "port = 65536", "unit.toml:25:8: 'port'"},
        Mistake{"Card", "[audio]\nbackend = \"off\"\ncard = \"hw:0\"", "[audio]\nbackend = \"alsa\"",
                "unit.toml:26:1: expected the key 'card' with a text in the section [audio]"},
        Mistake{"Element", "\"off\"\ncard = \"hw:0\"\nelement = \"Master\"", "\"alsa\"\ncard = \"hw:0\"",
                "unit.toml:26:1: expected the key 'element' with a text in the section [audio]"},
        Mistake{"CardThatIsNoText", "\"hw:0\"", "0", "unit.toml:28:8: 'card'"},
        Mistake{"ElementThatIsNoText", "\"Master\"", "7", "unit.toml:29:11: 'element'"},
        Mistake{"Steps", "steps = 40", "steps = 256", "unit.toml:30:9: 'steps'"},
        Mistake{"Sources", "\"off\"\nsources = { 1 = \"unit:radio.service\", 16 = \"mpris:usb\", 44 = \"none\" }",
                "\"table\"", "unit.toml:31:1: expected the key 'sources' with"},
        Mistake{"SourceNumber", "44 =", "45 =", "unit.toml:33:62: 'sources': expected a key from 1 to 44, got '45'"},
        Mistake{"SourceKey", "44 =", "usb =", "unit.toml:33:63: 'sources': expected a key from 1 to 44, got 'usb'"},
        Mistake{"SourceKeyTwice", "44 =", "01 =", "unit.toml:33:62: 'sources': expected a key from 1 to 44, got '01'"},
        Mistake{"SourceUnit", "unit:radio.service", "unit:radio",
                "unit.toml:33:17: expected unit:NAME with the name of a systemd unit, such as NAME.service, got "
                "'unit:radio'"},
        Mistake{"SuffixOfAModule", "car-wifi.service", "car-wifi",
                "unit.toml:6:18: 'wifi': expected the name of a systemd unit, such as NAME.service, got 'car-wifi'"},
        Mistake{"SuffixOfStandby", "standby.service", ".service",
                "unit.toml:11:16: 'standby-unit': expected the name of a systemd unit, such as NAME.service, got "
                "'.service'"},
        Mistake{"SuffixOfTheSound", "\"radio-sound.service\"", "\"radio-sound.servic\"",
                ":14: 'sound-unit': expected the name of a systemd unit, such as NAME.service, got "
                "'radio-sound.servic'"},
        Mistake{"SuffixOfTheReset", "\"reset.service\"", "\"reset\"",
                ":14: 'reset-unit': expected the name of a systemd unit, such as NAME.service, got 'reset'"},
        Mistake{"SuffixOfTheUserReset", "\"reset.target\"", "\"reset\"",
                ":14: 'reset-unit': expected the name of a systemd unit, such as NAME.service, got 'reset'"},
        Mistake{"SuffixOfTheAutomaticReset", "\"auto-reset.target\"", "\"auto-reset\"",
                ":19: 'auto-reset-unit': expected the name of a systemd unit, such as NAME.service, got 'auto-reset'"},
        Mistake{"SuffixOfTheUnitToClear", "\"clear.service\"", "\"clear\"",
                ":8: 'unit': expected the name of a systemd unit, such as NAME.service, got 'clear'"},
        Mistake{"SourceKind", "mpris:usb", "usb",
                "unit.toml:33:44: expected unit:NAME, mpris:PLAYER or none, got 'usb'"},
        Mistake{"SourceWithoutAName", "unit:radio.service",
                "unit:", "unit.toml:33:17: expected unit:NAME, mpris:PLAYER or none, got 'unit:'"},
        Mistake{"SourceThatIsNoText", "\"none\"", "7", "unit.toml:33:62: '44': expected a text, got 7"},
        Mistake{"Device", "\"/nonexistent/radio0\"", "0", ":10: 'device'"},
        Mistake{"LowEnd", "low = 8750", "low = 0", ":14: 'low'"},
        Mistake{"HighEnd", "high = 10800", "high = 8700", ":27: 'high'"},
        Mistake{"Step", "step = 20", "step = 0", ":41: 'step'"},
        Mistake{"KeyOfABand", "am = { step", "am = { steps", ":8: "},
        Mistake{"StationSignal", "station-signal = 40", "station-signal = 101", ":18: 'station-signal'"},
        Mistake{"Settle", "\"20ms\"", "\"soon\"", ":10: 'settle': expected a time from "},
        Mistake{"Scan", "scan = 3", "scan = 61", ":8: 'scan': expected a time from "},
        Mistake{"SoundUnit", "\"radio-sound.service\"", "true", ":14: 'sound-unit'"},
        Mistake{"NetworkInterface", "[wifi]\nbackend = \"networkmanager\"\ninterface = \"wlan7\"\n",
                "[wifi]\nbackend = \"networkmanager\"\n", ":1: "},
        Mistake{"NoAccessPoint",
                "[wifi]\nbackend = \"networkmanager\"\ninterface = \"wlan7\"\nssid = \"Car 12\"\npassword = "
                "\"secret-12\"\n",
                "[wifi]\nbackend = \"networkmanager\"\ninterface = \"wlan7\"\n",
                ":1: expected either 'ssid', the name of an access point to make, or 'profile'"},
        Mistake{"TwoAccessPoints", "ssid = \"Car 12\"\npassword = \"secret-12\"",
                "ssid = \"Car 12\"\nprofile = \"car\"", ":8: expected either 'ssid', "},
        Mistake{"Ssid", "Car 12", "A name of thirty-three characters", ":8: 'ssid': expected 32 bytes at most, got 33"},
        Mistake{"Password", "secret-12", "secret", ":12: 'password': expected 8 to 63 characters"},
        Mistake{"PasswordOfAProfile", "ssid = \"Car 12\"\npassword = \"secret-12\"",
                "password = \"secret-12\"\nprofile = \"car\"",
                ":12: 'password': expected 8 to 63 characters, beside 'ssid'"},
        Mistake{"Activate", "ssid = ", "activate = 1\nssid = ", ":12: 'activate'"},
        Mistake{"MediaType", "3 = \"usb\"", "5 = \"usb\"", ":28: 'players': expected a key from 1 to 4, got '5'"},
        Mistake{"Player", "3 = \"usb\"", "3 = 7", ":28: '3': expected a text, got 7"},
        Mistake{"Action", "\"Next\"", "\"Skip\"",
                ":29: expected one of Play, Pause, PlayPause, Stop, Next, Previous, got 'Skip'"},
        Mistake{"Actions", ", \"Previous\"", "",
                ":11: expected 4 actions, for the play actions 1 to 4 of 'players', got 3"},
        Mistake{"NoActions",
                "[hmi]\nkeyboard = \"/tmp/keyboard\"\nkeys = { 115 = 1, 114 = 2 }\nplayers = { 1 = \"usb\", 3 = "
                "\"usb\" }\nactions",
                "[hmi]\nkeyboard = \"/tmp/keyboard\"\nkeys = { 115 = 1, 114 = 2 }\nplayers = { 1 = \"usb\", 3 = "
                "\"usb\" }\n# actions",
                ":1: expected 4 actions, for the play actions 1 to 4 of 'players', got 0"},
        Mistake{"EqSwitch", "\"Tone\"", "true", ":13: 'eq-switch'"},
        Mistake{"Keyboard", "\"/tmp/keyboard\"", "0", ":12: 'keyboard'"},
        Mistake{"NoKeys", "[hmi]\nkeyboard = \"/tmp/keyboard\"\nkeys", "[hmi]\nkeyboard = \"/tmp/keyboard\"\n# keys",
                ":1: expected the key 'keys' with"},
        Mistake{"KeyCode", "115 =", "KEY_VOLUMEUP =", ":25: 'keys': expected a key from 1 to 767, got 'KEY_VOLUMEUP'"},
        Mistake{"KeyNumber", "115 = 1", "115 = 256", ":16: '115'"},
        Mistake{"LongPress", "long-press = 2", "long-press = 0", ":14: 'long-press'"},
        Mistake{"UnknownKeyOfTheHmi", "eq-switch", "eq", ":1: unknown key 'eq'"},
        Mistake{
            "MissingSection", "[car-play]\nbackend = \"off\"\n", "",
            "unit.toml:1:1: expected the sections [car-play], got none; backend = \"off\" switches an interface off"},
        Mistake{"Interface", "\"can0\"", "\"a-name-of-16-ch.\"",
                ":23: 'interface': expected at most 15 characters, got 16"},
        Mistake{"Frame", "0x3e9", "0x20000000", ":39: 'frame'"},
        Mistake{"ShortIdentifier", "0x3e9", "0x800, extended = false",
                ":57: 'extended': expected true for an identifier above 0x7ff, got false"},
        Mistake{"Start", "start = 7", "start = 512", ":54: 'start'"},
        Mistake{"Length", "length = 16", "length = 65", ":66: 'length'"},
        Mistake{"EndOfTheSignal", "start = 7, length = 16", "start = 504, length = 16",
                ":68: 'length': expected a signal in the first 64 bytes, got one up to byte 66"},
        Mistake{"Order", "\"big-endian\"", "\"motorola\"",
                ":78: 'order': expected \"little-endian\" or \"big-endian\", got \"motorola\""},
        Mistake{"Scale", "scale = 0.01", "scale = inf", ":100: 'scale': expected a finite number, got "},
        Mistake{"Offset", "offset = -1", "offset = \"1\"", ":115: 'offset'"},
        Mistake{"LineOfAChip", "line = 7, active-low", "line = -7, active-low", ":51: 'line'"},
        Mistake{"ActiveLow", "active-low = true", "active-low = 1", ":67: 'active-low'"},
        Mistake{"Active", "active = 4, inactive", "inactive",
                ":17: expected the key 'active' with an integer in the section [system-misc.radio-antenna], got none"},
        Mistake{"Inactive", "inactive = 1", "inactive = 256", ":96: 'inactive'"},
        Mistake{"TwoSources", "state = { value = 1 }", "state = { value = 1, file = \"/x\", values = {} }",
                ":9: section [system-misc.state]: expected one of 'gpio', 'file' and 'value' as its source"},
        Mistake{"TextsOfAFile", ", values = { ok = 4, open = 2 }", "",
                ":15: expected the key 'values' with a table in the section [system-misc.gps-antenna], got none"},
        Mistake{"ValueOfAText", "ok = 4", "ok = -4", ":56: 'ok'"},
        Mistake{"FixedValue", "value = 1 }", "value = 256 }", ":19: 'value'"},
        Mistake{"LineWithoutAChip", "value = 1 }", "value = 1, line = 2 }", ":22: unknown key 'line'"},
        Mistake{"Code", "13 =", "thirteen =", ":24: 'bundles': expected a key from 0 to 2147483647, got 'thirteen'"},
        Mistake{"Bundle", "\"/tmp/update.raucb\"", "\"update.raucb\"",
                ":18: 'bundles': expected an absolute path or a URL, got 'update.raucb'"},
        Mistake{"NoBundles",
                "[system-update]\nbackend = \"rauc\"\nbundles =", "[system-update]\nbackend = \"rauc\"\n# bundles =",
                ":1: expected the key 'bundles' with a table in the section [system-update], got none"},
        Mistake{"NoUnitToClear",
                "[file-manager]\nbackend = \"systemd\"\nunit =", "[file-manager]\nbackend = \"systemd\"\n# unit =",
                ":1: expected the key 'unit' with a text in the section [file-manager], got none"},
        Mistake{"UnitOfTheReset", "reset-unit = \"reset.target\"", "reset-unit = 7", ":14: 'reset-unit'"},
        Mistake{"Syntax", "[power]", "[power", "unit.toml:7:"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace unit
