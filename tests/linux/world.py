"""What is around the unit in the guest of scripts/test-linux: drivers, a phone, a GPS receiver, an operator's hands.

Prepares the board and installs the unit. Then carries out what the operator is asked to do: a line of JSON on the third
serial port names it, {"do": ID}, and a line tells how it went, {"ok": …, "reason": …}.
"""

import fcntl
import functools
import json
import operator
import os
import pathlib
import pty
import struct
import subprocess
import time
import traceback
import tty

import dbus
import dbus.bus
import dbus.mainloop.glib
import dbus.service
import evdev
from evdev import ecodes
from gi.repository import GLib

dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
BUS = dbus.SystemBus()
BLUEZ = "org.bluez"
PROPERTIES = "org.freedesktop.DBus.Properties"
UNIT, PHONE = "/org/bluez/hci0", "/org/bluez/hci1"
HANDS_FREE = "0000111e-0000-1000-8000-00805f9b34fb"
HANDS_FREE_GATEWAY = "0000111f-0000-1000-8000-00805f9b34fb"
REMOTE_CONTROL = "0000110e-0000-1000-8000-00805f9b34fb"


UPDATE = pathlib.Path("/var/lib/updates/unit.raucb")


def say(text):
    print(f"world: {text}", flush=True)


def run(*command, limit=60):
    """Runs a command. Fails if it fails or takes longer than `limit` seconds."""
    say(" ".join(map(str, command)))
    done = subprocess.run(command, timeout=limit, capture_output=True, text=True, stdin=subprocess.DEVNULL)
    if done.returncode != 0:
        output = (done.stderr + done.stdout)[-800:]
        raise RuntimeError(f"{' '.join(map(str, command))}: exit status {done.returncode}: {output}")
    return done.stdout


def wait(what, condition, limit=20):
    """Serves the main loop until the condition holds. @returns its value."""
    say(f"waits for {what}")
    end = time.monotonic() + limit
    tick = GLib.timeout_add(100, lambda: True)
    try:
        while not (value := condition()):
            if time.monotonic() > end:
                raise TimeoutError(f"expected {what} within {limit} s")
            GLib.MainContext.default().iteration(True)
        return value
    finally:
        GLib.source_remove(tick)


def bluez(path, interface):
    return dbus.Interface(BUS.get_object(BLUEZ, path), interface)


def adapter_set(path, name, value):
    bluez(path, PROPERTIES).Set("org.bluez.Adapter1", name, value)


def bluez_objects():
    try:
        return bluez("/", "org.freedesktop.DBus.ObjectManager").GetManagedObjects()
    except dbus.DBusException:
        return {}


def call(what, method, *arguments, limit=20):
    """Calls a method of D-Bus while the main loop runs: the phone's own objects have to answer meanwhile."""
    outcome = []
    method(
        *arguments,
        reply_handler=lambda *_: outcome.append(None),
        error_handler=outcome.append,
        timeout=limit,
    )
    wait(f"an answer to {what}", lambda: outcome, limit + 1)
    if outcome[0] is not None:
        raise RuntimeError(f"{what}: {outcome[0]}")


class Agent(dbus.service.Object):
    """Confirms on the phone."""

    @dbus.service.method("org.bluez.Agent1", in_signature="ou")
    def RequestConfirmation(self, device, passkey):
        pass

    @dbus.service.method("org.bluez.Agent1", in_signature="os")
    def AuthorizeService(self, device, uuid):
        pass

    @dbus.service.method("org.bluez.Agent1")
    def Cancel(self):
        pass

    @dbus.service.method("org.bluez.Agent1")
    def Release(self):
        pass


class Gateway(dbus.service.Object):
    """The phone's side of the hands-free profile: a modem with one call."""

    NONE, RINGS, TALKS = range(3)
    state = NONE
    line = None

    @dbus.service.method("org.bluez.Profile1", in_signature="oha{sv}")
    def NewConnection(self, device, descriptor, properties):
        # The guest has one BlueZ: oFono also sees the unit as a phone of the phone.
        if not device.startswith(PHONE):
            raise dbus.DBusException("not a phone", name="org.bluez.Error.Rejected")
        self.line, self.received = descriptor.take(), b""
        GLib.io_add_watch(self.line, GLib.IO_IN | GLib.IO_HUP | GLib.IO_ERR, self.take)

    @dbus.service.method("org.bluez.Profile1", in_signature="o")
    def RequestDisconnection(self, device):
        pass

    @dbus.service.method("org.bluez.Profile1")
    def Release(self):
        pass

    def say(self, *lines):
        os.write(self.line, "".join(f"\r\n{line}\r\n" for line in lines).encode())

    def take(self, descriptor, condition):
        try:
            received = os.read(descriptor, 512)
        except OSError:
            received = b""
        if not received:
            self.line = None
            return False
        *commands, self.received = (self.received + received).split(b"\r")
        for command in commands:
            say(f"hands-free: {command}")
            self.say(*self.answers(command.decode().strip()))
        return True

    def answers(self, command):
        if command.startswith("AT+BRSF"):
            return "+BRSF: 33", "OK"
        if command == "AT+CIND=?":
            ranges = "service 0,1;call 0,1;callsetup 0-3;callheld 0-2;signal 0-5;roam 0,1;battchg 0-5".split(";")
            return "+CIND: " + ",".join('("{}",({}))'.format(*each.split()) for each in ranges), "OK"
        if command == "AT+CIND?":
            return "+CIND: 1,0,0,0,5,0,5", "OK"
        if command == "AT+CHLD=?":
            return "+CHLD: (0,1,2)", "OK"
        if command == "AT+CLCC" and self.state != self.NONE:
            return f'+CLCC: 1,1,{4 if self.state == self.RINGS else 0},0,0,"+491234567",145', "OK"
        if command == "ATA":
            self.state = self.TALKS
            return "OK", "+CIEV: 2,1", "+CIEV: 3,0"
        if command == "AT+CHUP":
            self.state = self.NONE
            return "OK", "+CIEV: 2,0", "+CIEV: 3,0"
        return ("OK",)

    def ring(self):
        self.state = self.RINGS
        self.say("+CIEV: 3,1", "RING", '+CLIP: "+491234567",145')


class Player(dbus.service.Object):
    """A player with MPRIS: the phone's music, or an application of the board."""

    INTERFACE = "org.mpris.MediaPlayer2.Player"
    playback = "Stopped"

    def properties(self):
        can = {name: True for name in ("CanPlay", "CanPause", "CanControl", "CanGoNext", "CanGoPrevious")}
        metadata = dbus.Dictionary({"xesam:title": "Song", "xesam:trackNumber": 3}, signature="sv")
        return dbus.Dictionary({"PlaybackStatus": self.playback, "Metadata": metadata, **can}, signature="sv")

    @dbus.service.method(PROPERTIES, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return self.properties()

    @dbus.service.method(PROPERTIES, in_signature="ss", out_signature="v")
    def Get(self, interface, name):
        return self.properties()[name]

    @dbus.service.signal(PROPERTIES, signature="sa{sv}as")
    def PropertiesChanged(self, interface, changed, invalidated):
        pass

    def change(self, playback):
        self.playback = playback
        self.PropertiesChanged(self.INTERFACE, {"PlaybackStatus": dbus.String(playback)}, dbus.Array([], signature="s"))

    @dbus.service.method(INTERFACE)
    def Play(self):
        self.change("Playing")

    @dbus.service.method(INTERFACE)
    def Pause(self):
        self.change("Paused")

    @dbus.service.method(INTERFACE)
    def Stop(self):
        self.change("Stopped")


class Receiver:
    """A GPS receiver on a pseudo-terminal."""

    LINK = "/run/gps0"
    has_fix = True

    def __init__(self):
        self.port, line = pty.openpty()
        tty.setraw(line)
        os.chmod(os.ttyname(line), 0o666)  # gpsd has its own user
        os.symlink(os.ttyname(line), self.LINK)
        self.line = line  # keeps it open
        os.set_blocking(self.port, False)
        GLib.timeout_add(500, self.report)

    def report(self):
        now, today = time.strftime("%H%M%S.00", time.gmtime()), time.strftime("%d%m%y", time.gmtime())
        place = "4807.038,N,01131.000,E"
        sentences = [
            "GPGSV,2,1,07,04,40,083,46,05,17,308,41,09,07,344,39,12,13,228,45",
            "GPGSV,2,2,07,24,40,083,33,25,17,308,,29,07,344,12",
        ]
        if self.has_fix:
            sentences += [
                f"GPGGA,{now},{place},1,05,0.9,545.4,M,46.9,M,,",
                "GPGSA,A,3,04,05,09,12,24,,,,,,,,2.5,1.3,2.1",
                f"GPRMC,{now},A,{place},022.4,084.4,{today},003.1,W",
            ]
        else:
            sentences += [
                f"GPGGA,{now},,,,,0,00,,,M,,M,,",
                "GPGSA,A,1,,,,,,,,,,,,,,,",
                f"GPRMC,{now},V,,,,,,,{today},,",
            ]
        for sentence in sentences:
            sum_ = functools.reduce(operator.xor, sentence.encode())
            try:
                os.write(self.port, f"${sentence}*{sum_:02X}\r\n".encode())
            except BlockingIOError:
                pass  # gpsd does not read
        return True


# What the board runs for the unit: the names stand in tests/linux/unit.toml.
UNITS = {
    "guest-player": "/bin/sleep infinity",
    "guest-radio": "/bin/sleep infinity",
    "guest-radio-sound": "/bin/sleep infinity",
    "guest-standby": "/bin/sleep infinity",
    "guest-user-reset": "/bin/true",
    "guest-auto-reset": "/bin/true",
    # The restart follows a second later: the console keeps what has run.
    "guest-factory-settings": "/bin/sh -c 'echo guest: factory settings restored >/dev/console'",
    "guest-clear-data": "/bin/sh -c 'echo guest: user data cleared >/dev/console'",
}
BOARD = pathlib.Path("/run/board")
# The card snd-dummy has no switch for playback: these are controls of user space.
SOUND_CONTROLS = """
state.Dummy {
  control.900 {
    iface MIXER name 'Master Playback Switch' value true comment { access 'read write user' type BOOLEAN count 1 }
  }
  control.901 {
    iface MIXER name 'Tone Playback Switch' value true comment { access 'read write user' type BOOLEAN count 1 }
  }
}
"""
RAUC_CONFIGURATION = """
[system]
compatible=guest
bootloader=custom
bundle-formats=plain verity
data-directory=/var/lib/rauc
[keyring]
path=/etc/rauc/certificate.pem
[handlers]
bootloader-custom-backend=/etc/rauc/boot-loader
[slot.rootfs.0]
device=/var/lib/rauc/a.img
type=raw
bootname=A
[slot.rootfs.1]
device=/var/lib/rauc/b.img
type=raw
bootname=B
"""
BOOT_LOADER = """#!/bin/sh
case $1 in
  get-primary | get-current) echo A ;;
  get-state) echo good ;;
esac
"""
MANIFEST = "[update]\ncompatible=guest\nversion=2\n[image.rootfs]\nfilename=rootfs.img\n"


class World:
    """The operator's hands: a method for each question of the plan."""

    def __init__(self):
        # The drivers that the kernel lacks: what cannot be tested, and why.
        self.missing = {}
        for driver in ("hci_vhci", "mac80211_hwsim", "vivid", "vcan", "snd-dummy", "uinput", "gpio-sim"):
            try:
                run("modprobe", driver)
            except RuntimeError as error:
                self.missing[driver] = str(error)
        self.receiver = Receiver()
        self.car = None
        pathlib.Path("/etc/default/gpsd").write_text(f'DEVICES="{Receiver.LINK}"\n')
        self.start_controllers()
        self.make_board()
        self.make_update()
        self.install()
        self.gateway, self.player = Gateway(BUS, "/gateway"), Player(BUS, "/player")
        Agent(BUS, "/agent")
        bluez("/org/bluez", "org.bluez.AgentManager1").RegisterAgent("/agent", "DisplayYesNo")
        profile = {"Name": "Phone", "Version": dbus.UInt16(0x107), "Features": dbus.UInt16(1)}
        bluez("/org/bluez", "org.bluez.ProfileManager1").RegisterProfile(
            "/gateway", HANDS_FREE_GATEWAY, dbus.Dictionary(profile, signature="sv")
        )
        for path in (UNIT, PHONE):
            adapter_set(path, "Powered", True)
        bluez(PHONE, "org.bluez.Media1").RegisterPlayer("/player", self.player.properties())

    def start_controllers(self):
        run("systemctl", "start", "bluetooth.service")
        for last in (False, False, True):
            controllers = subprocess.Popen(["btvirt", "-l2"], stdout=subprocess.DEVNULL)
            try:
                return wait("two Bluetooth controllers", lambda: {UNIT, PHONE} <= bluez_objects().keys(), 10)
            except TimeoutError:
                # The kernel gives up a controller that needs longer than 2 s for its first answer.
                if last:
                    raise
                controllers.kill()
                controllers.wait()

    def make_board(self):
        BOARD.mkdir()
        for name in ("radio-antenna", "dab-antenna", "gps-antenna"):
            (BOARD / name).write_text("ok")
        (BOARD / "state").write_text("parked")
        (BOARD / "car-info").write_text("seven")
        for name, command in UNITS.items():
            pathlib.Path(f"/etc/systemd/system/{name}.service").write_text(f"[Service]\nExecStart={command}\n")
        run("systemctl", "daemon-reload")
        run("systemctl", "start", "guest-player.service")
        run("ip", "link", "add", "vcan0", "type", "vcan")
        run("ip", "link", "set", "vcan0", "up")
        self.stop_the_car()
        (BOARD / "sound").write_text(SOUND_CONTROLS)
        run("alsactl", "--no-ucm", "--no-init-fallback", "--file", BOARD / "sound", "restore", "0")
        self.keyboard = evdev.UInput({ecodes.EV_KEY: [ecodes.KEY_VOLUMEUP]}, name="keys")
        (BOARD / "keyboard").symlink_to(wait("the keyboard's device", lambda: self.keyboard.device).path)
        # The phone's radio.
        run("nmcli", "device", "set", "wlan1", "managed", "no")
        run("ip", "link", "set", "wlan1", "up")

    def make_update(self):
        """Two slots, which are files, and a signed bundle."""
        rauc, slots, content = pathlib.Path("/etc/rauc"), pathlib.Path("/var/lib/rauc"), BOARD / "bundle"
        for directory in (rauc, slots, content, UPDATE.parent):
            directory.mkdir(parents=True, exist_ok=True)
        (rauc / "system.conf").write_text(RAUC_CONFIGURATION)
        (rauc / "boot-loader").write_text(BOOT_LOADER)
        (rauc / "boot-loader").chmod(0o755)
        key, certificate = BOARD / "key.pem", rauc / "certificate.pem"
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=guest", "-days", "30", "-keyout",
            key, "-out", certificate, limit=60)
        for name in ("a.img", "b.img"):
            (slots / name).write_bytes(bytes(65536))
        (content / "rootfs.img").write_bytes(os.urandom(65536))
        (content / "manifest.raucm").write_text(MANIFEST)
        run("rauc", "--cert", certificate, "--key", key, "bundle", content, UPDATE, limit=60)

    def install(self):
        deb = str(next(pathlib.Path("/test").glob("*.deb")))
        run("apt-get", "install", "--yes", "--no-install-recommends", deb, limit=120)
        pathlib.Path("/etc/engineering/unit.toml").write_text(pathlib.Path("/test/unit.toml").read_text())
        run("systemctl", "enable", "--now", "engineering-unit", "engineering-hmi-unit", limit=60)
        session = dbus.bus.BusConnection("unix:path=/run/engineering/bus")
        self.name = dbus.service.BusName("org.mpris.MediaPlayer2.guest", session)
        self.usb = Player(session, "/org/mpris/MediaPlayer2")

    def device(self, adapter):
        """@returns the device that an adapter sees; an empty path if it sees none."""
        return next((path for path in bluez_objects() if path.startswith(adapter + "/dev_")), "")

    def has_paired(self):
        return bluez_objects().get(self.device(UNIT), {}).get("org.bluez.Device1", {}).get("Paired", False)

    def switch_bluetooth_off(self):
        adapter_set(UNIT, "Powered", False)

    def switch_bluetooth_on(self):
        adapter_set(UNIT, "Powered", True)

    def pair_a_phone(self):
        for path in (UNIT, PHONE):
            adapter_set(path, "Pairable", True)
        adapter_set(UNIT, "Discoverable", True)
        phone = bluez(PHONE, "org.bluez.Adapter1")
        phone.StartDiscovery()
        unit = wait("the phone to find the unit", lambda: self.device(PHONE))
        phone.StopDiscovery()
        call("Pair", bluez(unit, "org.bluez.Device1").Pair)
        wait("the unit to have paired", self.has_paired)

    def call_the_phone(self):
        wait("a hands-free connection", lambda: self.gateway.line is not None)
        self.gateway.ring()

    def play_music(self):
        call("ConnectProfile", bluez(self.device(PHONE), "org.bluez.Device1").ConnectProfile, REMOTE_CONTROL)
        self.player.Play()

    def pause_music(self):
        self.player.Pause()

    def forget_the_unit(self):
        wait("the unit to have forgotten the phone", lambda: not self.has_paired())
        bluez(PHONE, "org.bluez.Adapter1").RemoveDevice(self.device(PHONE))

    def cover_gps(self):
        self.receiver.has_fix = False

    def uncover_gps(self):
        self.receiver.has_fix = True

    def mute(self):
        run("amixer", "--device", "hw:0", "set", "Master", "mute")

    def unmute(self):
        run("amixer", "--device", "hw:0", "set", "Master", "unmute")

    def equalizer_is_off(self):
        wait("[off]", lambda: "[off]" in run("amixer", "--device", "hw:0", "get", "Tone"))

    def is_active(self, unit):
        return subprocess.run(["systemctl", "is-active", "--quiet", unit], timeout=20).returncode == 0

    def radio_plays(self):
        wait("the radio to be active", lambda: self.is_active("guest-radio"))

    def player_plays(self):
        wait("the player to play", lambda: self.usb.playback == "Playing")
        wait("the radio to have stopped", lambda: not self.is_active("guest-radio"))

    def player_is_paused(self):
        wait("the player to be paused", lambda: self.usb.playback == "Paused")

    def unit_stands_by(self):
        wait("the standby unit to be active", lambda: self.is_active("guest-standby"))

    def unit_is_awake(self):
        wait("the standby unit to have stopped", lambda: not self.is_active("guest-standby"))

    def scans(self):
        """The radio plays one frequency after another."""
        frequencies = set()

        def look():
            wanted = bytearray(struct.pack("III32x", 0, 1, 0))
            with open("/dev/radio0", "rb") as radio:
                fcntl.ioctl(radio, 0xC02C5638, wanted)  # VIDIOC_G_FREQUENCY
            frequencies.add(struct.unpack_from("I", wanted, 8)[0])
            return len(frequencies) > 2

        wait("the radio to change its frequency", look)

    def phone_sees_the_access_point(self):
        def look():
            try:
                return "SSID: Guest 12" in run("iw", "dev", "wlan1", "scan", limit=10)
            except (RuntimeError, subprocess.TimeoutExpired):
                return False  # another scan is under way

        wait("the SSID", look, 45)

    def drive(self):
        self.send_speed("1F40000000000000")

    def stop_the_car(self):
        self.send_speed("0000000000000000")

    def send_speed(self, data):
        """Sends a frame again and again, as a car does, in place of the one before."""
        if self.car:
            self.car.kill()
            self.car.wait()
        self.car = subprocess.Popen(["cangen", "vcan0", "-g", "500", "-I", "3E9", "-L", "8", "-D", data])

    def disconnect_antennas(self):
        for name in ("radio-antenna", "dab-antenna", "gps-antenna"):
            (BOARD / name).write_text("open")

    def connect_antennas(self):
        for name in ("radio-antenna", "dab-antenna", "gps-antenna"):
            (BOARD / name).write_text("ok")

    def change_the_state(self):
        (BOARD / "state").write_text("driving")

    def press_volume_up(self):
        for value in (1, 0):
            self.keyboard.write(ecodes.EV_KEY, ecodes.KEY_VOLUMEUP, value)
            self.keyboard.syn()

    def update_is_installed(self):
        image = (BOARD / "bundle/rootfs.img").read_bytes()
        wait("the image in slot B", lambda: pathlib.Path("/var/lib/rauc/b.img").read_bytes() == image, 60)

    def reset_by_the_user(self):
        run("systemctl", "start", "guest-user-reset")

    def reset_automatically(self):
        run("systemctl", "start", "guest-auto-reset")

    def check(self):
        """What `engineering-unit check` says; the player answers it meanwhile."""
        command = ["runuser", "-u", "engineering", "--", "engineering-unit", "check"]
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        wait("the check", lambda: process.poll() is not None, 30)
        return process.stdout.read()

    def journal(self):
        units = ("engineering-unit", "engineering-hmi-unit", "engineering-bus")
        return run("journalctl", "--no-pager", "--output=cat", "--lines=150", *(f"--unit={unit}" for unit in units))


def main():
    port = os.open("/dev/ttyS2", os.O_RDWR | os.O_NOCTTY)
    tty.setraw(port)

    def tell(**facts):
        os.write(port, (json.dumps(facts) + "\n").encode())

    def attempt(action):
        began = time.monotonic()
        try:
            result = action()
            tell(ok=True, result=result if isinstance(result, str) else "", seconds=round(time.monotonic() - began, 1))
        except Exception as error:
            say(traceback.format_exc())
            tell(ok=False, reason=str(error))

    world = None

    def begin():
        nonlocal world
        world = World()
        return json.dumps(world.missing)

    attempt(begin)
    received = b""

    def take(descriptor, condition):
        nonlocal received
        *lines, received = (received + os.read(descriptor, 512)).split(b"\n")
        for line in lines:
            attempt(getattr(world, json.loads(line)["do"].replace("-", "_")))
        return True

    GLib.io_add_watch(port, GLib.IO_IN, take)
    GLib.MainLoop().run()


main()
