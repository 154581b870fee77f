// A station speaks with engineering-unit, behind which gpsd, hostnamed and RAUC are real, and the other daemons are
// templates of their interfaces, on a private bus.

#include <gmock/gmock.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <map>
#include <numeric>
#include <set>
#include <sstream>

#include "platform/linux/UnitTestFile.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "station/Connection.h"
#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"
#include "tests/support/PtyPeer.h"

namespace tests {
namespace {

using protocol::Frame;
using namespace protocol::catalogue;
using Stream = ChildProcess::Stream;

constexpr const char* kMock = "org.freedesktop.DBus.Mock";
constexpr const char* kSystemd = "org.freedesktop.systemd1";
constexpr const char* kUnits = "/org/freedesktop/systemd1/unit/";
constexpr const char* kPhone = "/org/bluez/hci0/dev_11_22_33_44_55_66";

/// A receiver of satellites for gpsd: speaks NMEA on a pseudo-terminal.
class Receiver
{
public:
    const std::string& path() const { return line_.path(); }

    /// Sends the sentences of the next second.
    void tell(bool hasFix)
    {
        ++now_;
        std::array<char, 32> time{};
        std::array<char, 32> date{};
        std::strftime(time.data(), time.size(), "%H%M%S.00", std::gmtime(&now_));
        std::strftime(date.data(), date.size(), "%d%m%y", std::gmtime(&now_));
        const std::string at = time.data();
        say("GPGGA," + at + (hasFix ? ",4807.038,N,01131.000,E,1,05,0.9,545.4,M,46.9,M,," : ",,,,,0,00,,,M,,M,,"));
        say(hasFix ? "GPGSA,A,3,04,05,09,12,,,,,,,,,2.5,1.3,2.1" : "GPGSA,A,1,,,,,,,,,,,,,,,");
        say("GPGSV,1,1,04,04,40,083,46,05,17,308,41,09,07,344,39,12,13,228,45");
        say("GPRMC," + at + (hasFix ? ",A,4807.038,N,01131.000,E,022.4,084.4," : ",V,,,,,,,") + date.data() +
            ",003.1,W");
    }

private:
    void say(const std::string& sentence)
    {
        const int sum = std::accumulate(sentence.begin(), sentence.end(), 0, [](int all, char c) { return all ^ c; });
        std::array<char, 8> end{};
        std::snprintf(end.data(), end.size(), "*%02X\r\n", static_cast<unsigned>(sum));
        const std::string line = "$" + sentence + end.data();
        line_.write({line.begin(), line.end()});
    }

    PtyPeer line_;
    std::time_t now_ = std::time(nullptr);
};

class UnitConversationTest : public BenchTest
{
protected:
    UnitConversationTest() : bus_(bus().address())
    {
        environment()["DBUS_SYSTEM_BUS_ADDRESS"] = bus().address();
        std::filesystem::create_directories(link().parent_path());
        file_ = unitFile();
        replace("/tmp/root", root());
        replace("/tmp/uart", link());
    }

    void replace(const std::string& was, const std::string& is)
    {
        ASSERT_NE(file_.find(was), std::string::npos) << was;
        file_.replace(file_.find(was), was.size(), is);
    }

    void write(const std::string& name, const std::string& text) { std::ofstream(directory() / name) << text; }

    /// Starts a program that the end of the test kills.
    ChildProcess& startDaemon(const std::string& name, const std::vector<std::string>& arguments)
    {
        return *(daemons_[name] = std::make_unique<ChildProcess>(arguments, environment()));
    }

    /// Starts a template of a daemon's interface, which prints its calls.
    void startMock(const std::string& name, const std::string& owns, const std::vector<std::string>& arguments)
    {
        std::vector<std::string> all{"/usr/bin/python3", "-u", "-m", "dbusmock", "--system"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        startDaemon(name, all);
        ASSERT_TRUE(bus_.waitForOwner(owns, true)) << daemons_[name]->output(Stream::kErr);
    }

    /// Calls a method with `arguments` in GVariant's text format.
    void call(const std::string& name, const std::string& path, const std::string& interface, const std::string& method,
              const std::string& arguments)
    {
        host::GlibError error;
        const host::GlibPtr<GVariant> tuple(g_variant_parse(nullptr, arguments.c_str(), nullptr, nullptr, error.out()));
        ASSERT_TRUE(tuple) << error.message() << ": " << arguments;
        const host::GlibPtr<GVariant> reply(g_dbus_connection_call_sync(
            bus_.connection(), name.c_str(), path.c_str(), interface.c_str(), method.c_str(), tuple.get(), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
        ASSERT_TRUE(reply) << method << ": " << error.message();
    }

    void startSystemd()
    {
        startMock("systemd", kSystemd, {kSystemd, "/org/freedesktop/systemd1", "org.freedesktop.systemd1.Manager"});
        const auto addMethod = [&](const std::string& method, const std::string& in, const std::string& code) {
            call(kSystemd, "/org/freedesktop/systemd1", kMock, "AddMethod",
                 "('', '" + method + "', '" + in + "', '', '" + code + "')");
        };
        const auto setState = [](const std::string& object, const std::string& state) {
            return object + ".UpdateProperties(\"org.freedesktop.systemd1.Unit\", {\"ActiveState\": \"" + state +
                   "\"})";
        };
        const std::string named = "objects[\"" + std::string(kUnits) +
                                  "\" + \"\".join(c if c.isalnum() else \"_%02x\" % ord(c) for c in str(args[0]))]";
        addMethod("Subscribe", "", "");
        addMethod("StartUnit", "ss", setState(named, "active"));
        addMethod("StopUnit", "ss", setState(named, "inactive"));
        for (const char* unit : {"standby_2eservice", "reset_2eservice", "clear_2eservice", "reset_2etarget",
                                 "auto_2dreset_2etarget", "radio_2eservice"}) {
            call(kSystemd, "/org/freedesktop/systemd1", kMock, "AddObject",
                 "('" + std::string(kUnits) + unit +
                     "', 'org.freedesktop.systemd1.Unit', {'LoadState': <'loaded'>, 'ActiveState': <'inactive'>}, "
                     "[('Start', 's', '', '" +
                     setState("self", "active") + "'), ('Stop', 's', '', '" + setState("self", "inactive") + "')])");
        }
    }

    void startBluez()
    {
        startMock("bluez", "org.bluez", {"-t", "bluez5"});
        const auto mock = [&](const char* method, const std::string& arguments) {
            call("org.bluez", "/org/bluez", "org.bluez.Mock", method, arguments);
        };
        mock("AddAdapter", "('hci0', 'car')");
        mock("AddDevice", "('hci0', '11:22:33:44:55:66', 'Phone')");
        mock("PairDevice", "('hci0', '11:22:33:44:55:66', 5898764)");
        const std::string player = std::string(kPhone) + "/player0";
        call("org.bluez", kPhone, kMock, "AddProperties",
             "('org.bluez.MediaControl1', {'Connected': <true>, 'Player': <objectpath '" + player + "'>})");
        call("org.bluez", "/", kMock, "AddObject",
             "('" + player + "', 'org.bluez.MediaPlayer1', {'Status': <'playing'>}, @a(ssss) [])");
    }

    void startPlayer()
    {
        const std::string name = "org.mpris.MediaPlayer2.usb";
        const std::string interface = "org.mpris.MediaPlayer2.Player";
        startMock("player", name, {name, "/org/mpris/MediaPlayer2", interface});
        call(name, "/org/mpris/MediaPlayer2", kMock, "AddMethods",
             "('" + interface + "', [('Play', '', '', ''), ('Pause', '', '', '')])");
    }

    void startNetworkManager()
    {
        const std::string name = "org.freedesktop.NetworkManager";
        startMock("networkmanager", name, {"-t", "networkmanager"});
        call(name, "/org/freedesktop", kMock, "AddWiFiDevice", "('wlan7', 'wlan7', 30)");
        replace("units = { wifi = \"car-wifi.service\" }\n", "");
    }

    void startGpsd()
    {
        // A port that is free now.
        const host::GlibPtr<GSocketListener> listener(g_socket_listener_new());
        const auto port = std::to_string(g_socket_listener_add_any_inet_port(listener.get(), nullptr, nullptr));
        g_socket_listener_close(listener.get());
        replace("port = 9", "port = " + port);
        startDaemon("gpsd", {"/usr/sbin/gpsd", "-N", "-n", "-S", port, receiver_.path()});
    }

    /// Starts the unit and waits until these interfaces are up.
    void startUnit(const std::vector<std::string>& interfaces)
    {
        write("unit.toml", file_);
        unit_ = &start({ENGINEERING_UNIT, "--config", directory() / "unit.toml"});
        ASSERT_TRUE(unit_->waitForLine(Stream::kErr, "ready uart="));
        for (const std::string& interface : interfaces) {
            EXPECT_TRUE(unit_->waitForLine(Stream::kErr,
                                           [&](const std::string& line) {
                                               return line.find(" " + interface + ": ") != std::string::npos &&
                                                      line.ends_with(" is up");
                                           }))
                << interface << "\n"
                << unit_->output(Stream::kErr);
        }
        line_ =
            std::make_unique<station::Connection>(station::PortSpec{link().string()}, station::Connection::Options{});
    }

    /// @param words GROUP.COMMAND NAME=VALUE…
    /// @returns what came before the echo of a mark that was sent behind the command, in the catalogue's words.
    std::string ask(const std::string& words)
    {
        std::istringstream in(words);
        std::string key;
        in >> key;
        const Command* const command = findCommand(groups(), key);
        if (command == nullptr) {
            return noSuchCommand(groups(), key);
        }
        std::vector<Argument> arguments;
        for (std::string word; in >> word;) {
            arguments.emplace_back(word.substr(0, word.find('=')), word.substr(word.find('=') + 1));
        }
        line_->send(encode(*command, arguments));
        mark_ ^= 1;
        const Frame echo{0x86, 0x12, {static_cast<std::uint8_t>(0x60 | mark_)}};
        line_->send({0x06, 0x12, echo.params});
        std::string answers;
        for (;;) {
            const auto frame = line_->receive(std::chrono::steady_clock::now() + kGenerous);
            if (!frame) {
                return answers + "the line fell silent";
            }
            if (*frame == echo) {
                return answers;
            }
            const std::string text = format(groups(), decodeFromUnit(groups(), *frame, command), *frame);
            if (protocol::catalogue::answers(*command, *frame)) {
                answers += text;
            } else {
                later_.push_back(text);
            }
        }
    }

    /// Waits for the next frame that answers no command.
    std::string next()
    {
        if (later_.empty()) {
            const auto frame = line_->receive(std::chrono::steady_clock::now() + kGenerous);
            return frame ? format(groups(), decodeFromUnit(groups(), *frame), *frame) : "the line fell silent";
        }
        const std::string first = later_.front();
        later_.erase(later_.begin());
        return first;
    }

    bool saw(const std::string& daemon, const std::string& line)
    {
        const auto found = daemons_.at(daemon)->waitForLine(Stream::kOut, line);
        EXPECT_TRUE(found) << daemons_.at(daemon)->output(Stream::kOut);
        return found.has_value();
    }

    /// Asks until the answer is `wanted`: the daemons' news comes when it comes.
    /// @returns the last answer.
    std::string askFor(const std::string& words, const std::string& wanted)
    {
        const auto giveUp = std::chrono::steady_clock::now() + kGenerous;
        std::string answer = ask(words);
        while (answer != wanted && std::chrono::steady_clock::now() < giveUp) {
            receiver_.tell(hasFix_);
            answer = ask(words);
        }
        return answer;
    }

    void ring()
    {
        call("org.ofono", "/ril_0", "org.ofono.VoiceCallManager", "Dial", "('123', '')");
        call("org.ofono", "/ril_0/voicecall01", kMock, "EmitSignal",
             "('org.ofono.VoiceCall', 'PropertyChanged', 'sv', [<'State'>, <'incoming'>])");
    }
    static std::string release()
    {
        utsname names{};
        uname(&names);
        return names.release;
    }
    void loseFix() { hasFix_ = false; }

    BusClient bus_;
    std::string file_;
    Receiver receiver_;
    bool hasFix_ = true;
    std::map<std::string, std::unique_ptr<ChildProcess>> daemons_;
    ChildProcess* unit_ = nullptr;
    std::unique_ptr<station::Connection> line_;
    std::vector<std::string> later_;
    unsigned char mark_ = 0;

    // A row of the conversation.
    struct Row {
        const char* command;           ///< in the catalogue's words
        const char* answer = "";       ///< the same; empty: silence; null: some answer, by the machine
        const char* daemon = nullptr;  ///< who saw it
        const char* saw = nullptr;     ///< and what
        const char* later = nullptr;   ///< what the unit sends later
        void (UnitConversationTest::*before)() = nullptr;
    };
    static const std::vector<Row> kRows;
};

// In the order of the catalogue. CarPlay and Android Auto are off; of a tuner, a sound card and a CAN bus the tests of
// the guest tell.
const std::vector<UnitConversationTest::Row> UnitConversationTest::kRows{
    {"test.set-mode mode=on", "test.set-mode: mode=1 (on)"},
    {"test.media-ready", "test.media-ready: ready=1 (yes)"},
    {"test.mode", "test.mode: mode=1 (on)"},
    {"source.request source=1", "", "systemd", "Start \"replace\""},
    {"source.current", "source.current: source=1"},
    {"audio.set-volume volume=20"},
    {"audio.volume", "audio.volume: volume=0"},
    {"audio.set-fader-balance fader=7 balance=10"},
    {"audio.hardware-mute", "audio.hardware-mute: state=0"},
    {"audio.set-eq-switch value=5"},
    {"audio.eq-switch", "audio.eq-switch: value=5"},
    {"tuner.play frequency=8750", ""},
    {"tuner.frequency", "tuner.frequency: frequency=0 (0 MHz on FM)"},
    {"tuner.switch-band band=band-0"},
    {"tuner.band", "tuner.band: band=0 (fm)"},
    {"tuner.tune action=seek-up"},
    {"tuner.set-rds-af setting=on"},
    {"tuner.set-rds-ta setting=on"},
    {"tuner.radio-antenna", "tuner.radio-antenna: antenna=1 (good)"},
    {"tuner.dab-antenna", "tuner.dab-antenna: antenna=0 (bad)"},
    {"tuner.traffic-announcement", "tuner.traffic-announcement: active=0 (no)"},
    {"tuner.fm-frequency", "tuner.fm-frequency: frequency=0 (0 MHz)"},
    {"media.action-1-2 select=action-1"},
    {"media.select-track-1 any=0 track=3"},
    {"media.action-4-3 select=action-4"},
    {"media.track-1"},
    {"media.select-track-3 any=0 track=3"},
    {"media.track-3"},
    {"media.track-2"},
    {"bluetooth.action-2-1 select=action-2"},
    {"bluetooth.action-3-4 select=action-3"},
    {"bluetooth.call-state", "bluetooth.call-state: code=1", nullptr, nullptr, nullptr, &UnitConversationTest::ring},
    {"bluetooth.call action=accept", "", "ofono", "Answer"},
    {"bluetooth.call action=end", "", "ofono", "Hangup"},
    {"bluetooth.address", "bluetooth.address: address=00 01 02 03 04 05"},
    {"bluetooth.set-capability-0 value=on"},
    {"bluetooth.power-status", "bluetooth.power-status: status=1"},
    {"bluetooth.name", "bluetooth.name: name=\"car\""},
    {"bluetooth.audio-connected", "bluetooth.audio-connected: connected=1 (yes)"},
    {"bluetooth.phone-connected", "bluetooth.phone-connected: connected=1 (yes)"},
    {"bluetooth.music", "bluetooth.music: status=1 (plays)"},
    {"bluetooth.set-capability-9 value=on"},
    {"bluetooth.capability-9", "bluetooth.capability-9: value=1 (on)"},
    {"bluetooth.delete-pairings", "bluetooth.delete-pairings: result=1", "bluez", "RemoveDevice",
     "bluetooth.delete-pairings: status=1"},
    {"gps.satellites",
     "gps.satellites: count=4 satellites=[{number=4 signal=46}, {number=5 signal=45}, {number=9 signal=41}, "
     "{number=12 signal=39}]"},
    {"gps.position", "gps.position: latitude=481173000 longitude=115166667"},
    {"gps.position", "gps.position: latitude=0 longitude=0", nullptr, nullptr, nullptr, &UnitConversationTest::loseFix},
    {"gps.antenna", "gps.antenna: state=4 (good)"},
    {"gps.car-information", "gps.car-information: value=9"},
    {"keys.echo-0a value=0x55", "keys.echo-0a: value=85"},
    {"keys.set-feedback value=5", "keys.set-feedback: value=5"},
    {"keys.feedback", "keys.feedback: value=5"},
    {"keys.echo-12 value=0x55", "keys.echo-12: value=85"},
    {"keys.power-state", "keys.power-state: state=3"},
    {"info.version-9", "info.version-9: text=\"\""},
    {"info.version-0", "info.version-0: text=\"KERNEL\""},
    {"info.bluetooth-version", "info.bluetooth-version: text=\"usb:v1D6Bp0245d050A\""},
    {"info.project-name", "info.project-name: text=\"board\""},
    {"info.version-2", "info.version-2: text=\"KERNEL\""},
    {"car.state", "car.state: state=1 (set)"},
    {"car.screen-light", "car.screen-light: type-1=0 (no)"},
    {"car.speed", "car.speed: speed=0"},
    {"car.set-power-mode mode=off", "", "systemd", "StartUnit \"standby.service\" \"replace\""},
    {"car.set-power-mode mode=on", "", "systemd", "StopUnit \"standby.service\" \"replace\""},
    {"car.shut-down", "", "logind", "PowerOff"},
    {"identity.write-factory-serial value=SN123"},
    {"identity.factory-serial", "identity.factory-serial: value=\"SN123\""},
    {"identity.write-production-date value=20261121"},
    {"identity.production-date", "identity.production-date: value=\"20261121\""},
    {"identity.write-password-number value=1234"},
    {"identity.password-number", "identity.password-number: value=**** (masked)"},
    {"identity.write-bluetooth-address value=0002F5A1B2C3"},
    {"identity.write-carplay-mac value=001122334455"},
    {"identity.carplay-mac", "identity.carplay-mac: value=\"001122334455\""},
    {"identity.write-hu-serial value=HU7"},
    {"identity.hu-serial", "identity.hu-serial: value=\"HU7\""},
    {"identity.write-drawing-code value=D-42"},
    {"identity.drawing-code", "identity.drawing-code: value=\"D-42\""},
    {"identity.bluetooth-address-present", "identity.bluetooth-address-present: present=1 (yes)"},
    {"identity.carplay-mac-present", "identity.carplay-mac-present: present=1 (yes)"},
    {"other.set-flag flag=7"},
    {"other.flag", "other.flag: flag=7"},
    {"other.aging-test start=yes", "", "player", "Play"},
    {"other.status", "other.status: status=0"},
    {"other.system-update", ""},
    {"other.select-page page=2"},
    {"wifi.start start=yes", "", "networkmanager", "ActivateConnection"},
    {"wifi.bluetooth-name", "wifi.bluetooth-name: text=\"car\""},
    {"wifi.name", "wifi.name: text=\"Car 12\""},
    {"wifi.address", nullptr},
    {"wifi.ready", "wifi.ready: ready=1 (yes)"},
    {"phone.carplay-connected", "phone.carplay-connected: connected=0 (no)"},
    {"phone.android-auto-state"},
    {"phone.usb-mac", nullptr},
    {"phone.usb-mac-matches", nullptr},
};

TEST_F(UnitConversationTest, EveryCommandIsAnsweredOutOfTheMiddleware)
{
    startSystemd();
    startBluez();
    startMock("logind", "org.freedesktop.login1", {"-t", "logind"});
    startMock("ofono", "org.ofono", {"-t", "ofono"});
    startDaemon("hostnamed", {"/lib/systemd/systemd-hostnamed"});
    startNetworkManager();
    startGpsd();
    write("antenna", "ok\n");
    replace("/tmp/antenna", directory() / "antenna");
    replace("gpio = \"/dev/gpiochip9\", line = 7, active-low = true, active = 4, inactive = 1", "value = 4");
    replace("state = { value", "car-info = { value = 9 }\nstate = { value");
    replace("speed = {", "#");
    replace("[source]\nbackend = \"off\"", "[source]\nbackend = \"table\"");
    replace("[audio]\nbackend = \"off\"\ncard = \"hw:0\"", "[audio]\nbackend = \"alsa\"\ncard = \"none\"");
    startPlayer();
    startUnit({"app-manager", "source", "power", "system-info", "bluetooth", "phone", "location", "system-misc",
               "file-manager", "persistence", "wifi"});

    for (const Row& row : kRows) {
        SCOPED_TRACE(row.command);
        if (row.before != nullptr) {
            (this->*row.before)();
        }
        const std::string key = std::string(row.command).substr(0, std::string(row.command).find(' '));
        const Command* const command = findCommand(groups(), key);
        ASSERT_NE(command, nullptr);
        if (row.answer == nullptr) {
            EXPECT_NE(ask(row.command), "");
        } else {
            std::string answer = row.answer;
            if (const auto place = answer.find("KERNEL"); place != std::string::npos) {
                answer.replace(place, 6, release());
            }
            EXPECT_EQ(command->access == Access::kRead ? askFor(row.command, answer) : ask(row.command), answer);
        }
        if (row.daemon != nullptr) {
            EXPECT_TRUE(saw(row.daemon, row.saw));
        }
        if (row.later != nullptr) {
            EXPECT_EQ(next(), row.later);
        }
    }
    EXPECT_THAT(later_, testing::IsEmpty());

    EXPECT_EQ(ask("keys.factory-reset confirm=yes"), "");
    EXPECT_TRUE(saw("systemd", "StartUnit \"reset.service\""));
    EXPECT_TRUE(saw("systemd", "StartUnit \"clear.service\""));
    EXPECT_THAT(next(), testing::StartsWith("keys.reset-under-way"));
    EXPECT_TRUE(saw("logind", "Reboot"));
}

TEST_F(UnitConversationTest, HasARowForEveryCommandOfTheCatalogue)
{
    std::set<std::string> missing;  // the factory reset ends the conversation
    for (const Group& group : groups()) {
        for (const Command& command : group.commands) {
            missing.insert(fullKey(groups(), command));
        }
    }
    for (const Row& row : kRows) {
        missing.erase(std::string(row.command).substr(0, std::string(row.command).find(' ')));
    }

    EXPECT_THAT(missing, testing::ElementsAre("keys.factory-reset"));
}

class UnitUpdateTest : public UnitConversationTest
{
protected:
    /// A RAUC with two slots that are files, and a bundle for it.
    void startRauc()
    {
        write("system.conf",
              "[system]\ncompatible=Test Board\nbootloader=custom\nbundle-formats=plain verity\ndata-directory=" +
                  path("data") + "\n[keyring]\npath=" + path("cert.pem") + "\n[handlers]\nbootloader-custom-backend=" +
                  path("boot") + "\n[slot.rootfs.0]\ndevice=" + path("a.img") +
                  "\ntype=raw\nbootname=A\n[slot.rootfs.1]\ndevice=" + path("b.img") + "\ntype=raw\nbootname=B\n");
        write("boot",
              "#!/bin/sh\ncase \"$1\" in get-primary) echo A;; get-state) echo good;; get-current) echo A;; "
              "set-primary) echo \"$2\" >" +
                  path("primary") + ";; esac\n");
        std::filesystem::permissions(path("boot"), std::filesystem::perms::owner_all);
        for (const char* folder : {"data", "mount", "new"}) {
            std::filesystem::create_directory(path(folder));
        }
        write("a.img", std::string(kImage.size(), 'a'));
        write("b.img", std::string(kImage.size(), 'b'));
        write("new/rootfs.img", kImage);
        write("new/manifest.raucm",
              "[update]\ncompatible=Test Board\nversion=2026.1\n[image.rootfs]\nfilename=rootfs.img\n");
        expectSuccess({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                       "-keyout", path("key.pem"), "-out", path("cert.pem"), "-subj", "/CN=test", "-days", "2"});
        expectSuccess(
            {"rauc", "--cert", path("cert.pem"), "--key", path("key.pem"), "bundle", path("new"), path("new.raucb")});
        // In a namespace of its own, in which a mount ends with the program.
        startDaemon("rauc", {"unshare", "--mount", "rauc", "--conf", path("system.conf"), "--mount=" + path("mount"),
                             "--override-boot-slot=A", "service"});
        ASSERT_TRUE(bus_.waitForOwner("de.pengutronix.rauc", true)) << daemons_["rauc"]->output(Stream::kErr);
    }

    std::string path(const std::string& name) const { return directory() / name; }

    std::string content(const std::string& name) const
    {
        std::ifstream in(directory() / name);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    void expectSuccess(const std::vector<std::string>& arguments)
    {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0) << outcome.err;
    }

    /// Waits until RAUC has ended its work, some time after it has told the result.
    void awaitIdle()
    {
        std::string operation;
        const auto giveUp = std::chrono::steady_clock::now() + kGenerous;
        while (operation != "(<'idle'>,)" && std::chrono::steady_clock::now() < giveUp) {
            const host::GlibPtr<GVariant> reply(g_dbus_connection_call_sync(
                bus_.connection(), "de.pengutronix.rauc", "/", "org.freedesktop.DBus.Properties", "Get",
                g_variant_new("(ss)", "de.pengutronix.rauc.Installer", "Operation"), nullptr, G_DBUS_CALL_FLAGS_NONE,
                -1, nullptr, nullptr));
            operation = reply ? host::GlibPtr<char>(g_variant_print(reply.get(), FALSE)).get() : "";
        }
    }

    const std::string kImage = std::string(65536, 'n');
};

TEST_F(UnitUpdateTest, BundleIsInstalledByRaucAndABrokenOneIsNot)
{
    if (geteuid() != 0 || access("/dev/loop-control", R_OK | W_OK) != 0) {
        GTEST_SKIP() << "RAUC mounts the bundle: this needs root and loop devices";
    }
    startRauc();
    replace("/tmp/update.raucb", path("new.raucb"));
    startUnit({"system-update"});
    EXPECT_EQ(ask("test.set-mode mode=on"), "test.set-mode: mode=1 (on)");
    const std::string line = "system-update: " + path("new.raucb");

    EXPECT_EQ(ask("other.system-update"), "");
    EXPECT_TRUE(unit_->waitForLine(Stream::kErr, line + " is installed")) << unit_->output(Stream::kErr);
    EXPECT_TRUE(unit_->waitForLine(Stream::kErr, line + ": 100 %, Installing done."));
    EXPECT_EQ(content("b.img"), kImage);
    EXPECT_EQ(content("primary"), "B\n");

    awaitIdle();
    write("new.raucb", "broken");
    EXPECT_EQ(ask("other.system-update"), "");
    EXPECT_TRUE(unit_->waitForLine(Stream::kErr, line + " is not installed: ")) << unit_->output(Stream::kErr);

    daemons_.erase("rauc");
    EXPECT_TRUE(unit_->waitForLine(Stream::kErr, "system-update: rauc is absent: de.pengutronix.rauc is not running"));
}

}  // namespace
}  // namespace tests
