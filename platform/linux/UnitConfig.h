#pragma once

#include <KYRAppMgr.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace unit {

/// The unit's file, unit.toml: every interface names its backend and the backend's parameters, or is off.
struct UnitConfig {
    /// Stands for / in the paths of the persistent partition; empty on a unit that has the partition.
    std::string root = "/var/lib/engineering";
    /// The line of the station, as for runtime::parseUartOption().
    std::string uart;

    /// Backends by interface, in the order of the file's documentation: "off", or what the section says.
    std::vector<std::pair<std::string, std::string>> backends;

    /// [app-manager]: systemd.
    struct ApplicationManager {
        std::vector<ServiceModule> modules;          ///< start with the service
        std::map<ServiceModule, std::string> units;  ///< start when their systemd unit is active
    } appManager;

    /// [power]: logind.
    struct Power {
        int state = 0;            ///< what GetPowerState() answers, 0 to 255
        int lightType = 0;        ///< what GetCurScreenLightType() answers, 0 to 255
        std::string standbyUnit;  ///< a systemd unit that is active in standby; empty: none
    } power;

    /// [system-info]: hostname1, os-release and uname.
    struct Version {
        enum class Source { kText, kHostname, kOsRelease, kUname } source = Source::kText;
        std::string value;  ///< the text itself, or the key
    };
    std::array<Version, 11> versions;

    /// [bluetooth]: BlueZ.
    struct Bluetooth {
        std::string adapter;  ///< "hci0"; empty: the first
        std::string version;  ///< empty: the adapter's Modalias
    } bluetooth;

    /// [location]: gpsd.
    struct Location {
        std::string host = "127.0.0.1";
        std::uint16_t port = 2947;
    } location;

    /// [audio]: ALSA.
    struct Audio {
        std::string card;     ///< as ALSA names it: "hw:0", "pipewire"
        std::string element;  ///< of the simple mixer: "Master"
        int steps = 100;      ///< the station's highest volume, 1 to 255
    } audio;

    /// [source]: the table, by number of the source.
    struct AudioSource {
        enum class Kind { kNone, kUnit, kPlayer } kind = Kind::kNone;
        std::string name;  ///< of the systemd unit; of the MPRIS player

        bool operator==(const AudioSource&) const = default;
    };
    std::map<int, AudioSource> sources;
    /// A signal in the frames of a CAN bus, numbered as in a DBC file. Its value is scale * raw + offset.
    struct CanSignal {
        std::string interface;
        std::uint32_t frame = 0;  ///< identifier
        bool isExtended = false;  ///< the identifier has 29 bits
        unsigned start = 0;       ///< its lowest bit, or its highest if it is big-endian
        unsigned length = 0;      ///< in bits, 1 to 64
        bool isBigEndian = false;
        double scale = 1;
        double offset = 0;
    };

    /// A number from 0 to 255: that of a GPIO line, that of a file's text, or without both a fixed one.
    struct Input {
        std::string gpio;   ///< the line's chip
        unsigned line = 0;  ///< its offset
        bool isActiveLow = false;
        int active = 0;  ///< the number while the line is active
        int inactive = 0;
        std::string file;
        std::map<std::string, int> values;  ///< by the file's text
        int value = 0;
    };

    /// [system-misc]: SocketCAN, GPIO lines, files and a systemd unit.
    struct VehicleData {
        std::optional<CanSignal> speed;
        std::map<std::string, Input> inputs;  ///< by key: radio-antenna, dab-antenna, gps-antenna, state, car-info
        std::string resetUnit;                ///< restores the factory settings; empty: none
    } vehicleData;

    /// [system-update]: paths or URLs of RAUC's bundles by the code of the request.
    std::map<int, std::string> updateBundles;

    /// [file-manager]: the systemd unit that deletes the user's data.
    std::string clearUnit;

    /// [persistence]: the systemd units whose start is a reset to the factory state; empty: none.
    struct Persistence {
        std::string resetUnit;
        std::string autoResetUnit;
    } persistence;

    /// [tuner]: V4L2. Frequencies are in the tuner's units: 10 kHz on FM, 1 kHz on AM.
    struct Tuner {
        struct Band {
            unsigned low = 0;   ///< 0: as the radio says
            unsigned high = 0;  ///< 0: as the radio says
            unsigned step = 1;
        };
        std::string device = "/dev/radio0";
        Band fm{.step = 10};
        Band am{.step = 9};
        int stationSignal = 50;                ///< percent of the full signal that make a station
        std::chrono::milliseconds settle{30};  ///< from tuning until the signal counts
        std::chrono::milliseconds scan{5000};  ///< for which a scan plays a station
        std::string soundUnit;                 ///< a systemd unit that plays the radio's sound; empty: none
    } tuner;

    /// [wifi]: an access point over NetworkManager.
    struct Wifi {
        std::string interface;
        std::string ssid;       ///< of a profile that is made; else empty
        std::string password;   ///< of that profile; empty: an open network
        std::string profile;    ///< name of a profile of NetworkManager; else empty
        bool activate = false;  ///< at the start; else when the station asks for it
    } wifi;

    /// [hmi]: of engineering-hmi, on a board without an HMI of its own.
    struct Hmi {
        std::map<int, std::string> players;   ///< MPRIS players by media type, 1 to 4
        std::vector<std::string> actions;     ///< MPRIS methods of the play actions 1 to 4; empty without players
        std::string eqSwitch;                 ///< element of the card of [audio]; empty: none
        std::string keyboard;                 ///< evdev device; empty: none
        std::map<int, int> keys;              ///< the platform's number of a key, by evdev's code
        std::chrono::milliseconds longPress;  ///< from this time on, a key is held
    };
    std::optional<Hmi> hmi;

    /// [config]: what the service looks up in the head unit's configuration, by key.
    std::map<std::string, bool, std::less<>> flags;
    std::map<std::string, std::string, std::less<>> texts;

    bool isOff(const std::string& interface) const;
};

/// Reads unit.toml.
/// @param mistakes gets a line for each: its place, what is wrong, and what is expected
/// @throws protocol::UserError if the file cannot be read.
UnitConfig loadUnitConfig(const std::string& path, std::vector<std::string>& mistakes);

}  // namespace unit
