#include "platform/linux/UnitTestFile.h"

namespace tests {

std::string unitFile(const std::string& was, const std::string& is)
{
    std::string text = R"(root = "/tmp/root"
uart = "pty:/tmp/uart"
[app-manager]
backend = "systemd"
modules = ["media-player"]
units = { wifi = "car-wifi.service" }
[power]
backend = "logind"
power-state = 3
light-type = 2
standby-unit = "standby.service"
[system-info]
backend = "hostname1"
versions = ["hostname1:KernelRelease", "text:7", "uname:release"]
[config]
backend = "file"
values = { "/engineering/open_debug" = true, "/project/project_name" = "board" }
[bluetooth]
backend = "bluez"
adapter = "hci0"
[phone]
backend = "ofono"
[location]
backend = "gpsd"
port = 9
[audio]
backend = "off"
card = "hw:0"
element = "Master"
steps = 40
[source]
backend = "off"
sources = { 1 = "unit:radio.service", 16 = "mpris:usb", 44 = "none" }
[tuner]
backend = "v4l2"
device = "/nonexistent/radio0"
fm = { low = 8750, high = 10800, step = 20 }
am = { step = 10 }
station-signal = 40
settle = "20ms"
scan = 3
sound-unit = "radio-sound.service"
[wifi]
backend = "networkmanager"
interface = "wlan7"
ssid = "Car 12"
password = "secret-12"
)";
    for (const char* interface : {"media-player", "car-play", "android-auto", "device-app"}) {
        text += std::string("[") + interface + "]\nbackend = \"off\"\n";
    }
    text += R"([system-misc]
backend = "linux"
speed = { interface = "can0", frame = 0x3e9, start = 7, length = 16, order = "big-endian", scale = 0.01, offset = -1 }
radio-antenna = { gpio = "/dev/gpiochip9", line = 7, active-low = true, active = 4, inactive = 1 }
gps-antenna = { file = "/tmp/antenna", values = { ok = 4, open = 2 } }
state = { value = 1 }
reset-unit = "reset.service"
[system-update]
backend = "rauc"
bundles = { 13 = "/tmp/update.raucb" }
[file-manager]
backend = "systemd"
unit = "clear.service"
[persistence]
backend = "systemd"
reset-unit = "reset.target"
auto-reset-unit = "auto-reset.target"
[hmi]
keyboard = "/tmp/keyboard"
keys = { 115 = 1, 114 = 2 }
players = { 1 = "usb", 3 = "usb" }
actions = ["Play", "Pause", "Next", "Previous"]
eq-switch = "Tone"
long-press = 2
)";
    return was.empty() ? text : text.replace(text.find(was), was.size(), is);
}

}  // namespace tests
