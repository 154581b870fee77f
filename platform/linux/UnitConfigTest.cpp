#include "platform/linux/UnitConfig.h"

#include <gmock/gmock.h>

#include <fstream>
#include <ostream>

#include "platform/linux/UnitTestFile.h"
#include "protocol/Errors.h"
#include "tests/support/TempDir.h"

namespace unit {
namespace {

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
    EXPECT_FALSE(config.isOff("power"));
    EXPECT_TRUE(config.isOff("audio"));
}

TEST_F(UnitConfigTest, FileThatIsNotThereIsTheUsersMistake)
{
    EXPECT_THROW(loadUnitConfig("/nowhere/unit.toml", mistakes_), protocol::UserError);
}

struct Mistake {
    const char* name;
    const char* was;
    const char* is;
    const char* line;
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
    load(tests::unitFile(GetParam().was, GetParam().is));

    EXPECT_THAT(mistakes_, ElementsAre(testing::StartsWith(GetParam().line)));
}

INSTANTIATE_TEST_SUITE_P(
    File, UnitMistakeTest,
    testing::Values(
        Mistake{"Line", "\"pty:/tmp/uart\"", "\"pty:\"", "unit.toml:2:8: 'uart': expected pty:LINK or DEVICE[,BAUD]"},
        Mistake{"Rate", "pty:/tmp/uart", "/dev/ttyS0,7", "unit.toml:2:8: 'uart': expected a baud rate such as 9600, "},
        Mistake{"Backend", "\"logind\"", "\"systemd\"",
                "unit.toml:8:11: 'backend': expected \"off\" or \"logind\", got \"systemd\""},
        Mistake{"BackendThatIsNotBuilt", "[car-play]\nbackend = \"off\"", "[car-play]\nbackend = \"usb\"",
                "unit.toml:49:11: 'backend': expected \"off\", got \"usb\""},
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
        Mistake{"Card", "\"off\"\ncard = \"hw:0\"", "\"alsa\"",
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
        Mistake{"SourceKind", "mpris:usb", "usb",
                "unit.toml:33:44: expected unit:NAME, mpris:PLAYER or none, got 'usb'"},
        Mistake{"SourceWithoutAName", "unit:radio.service",
                "unit:", "unit.toml:33:17: expected unit:NAME, mpris:PLAYER or none, got 'unit:'"},
        Mistake{"SourceThatIsNoText", "\"none\"", "7", "unit.toml:33:62: '44': expected a text, got 7"},
        Mistake{
            "MissingSection", "[car-play]\nbackend = \"off\"\n", "",
            "unit.toml:1:1: expected the sections [car-play], got none; backend = \"off\" switches an interface off"},
        Mistake{"Syntax", "[power]", "[power", "unit.toml:7:"}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace unit
