// A stand-in for the HMI: follows every signal of the engineering service and answers as an HMI would.

#include <engineering_dbus.h>
#include <glib-unix.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "host/Glib.h"
#include "platform/linux/BoardHmi.h"
#include "platform/linux/UnitConfig.h"
#include "platform/runtime/Report.h"
#include "programs/Cli.h"
#include "programs/Hmi.h"
#include "protocol/Text.h"

namespace {

using programs::complain;

constexpr const char* kProgram = "engineering-hmi";
constexpr const char* kServiceName = "com.zent.linux.engineering";
constexpr const char* kServicePath = "/com/zent/linux/engineering";
constexpr const char* kHeadUnitName = "com.zent.linux.headunit";
constexpr const char* kHeadUnitPath = "/com/zent/linux/headunit";

/// What the signal handlers share; lives in main. Everything runs on the main thread, in the main loop.
struct Follower {
    bool json = false;
    bool waiting = false;  // the service has not been seen yet, and that was said
    bool lost = false;     // the connection to the bus has been closed
    int status = protocol::kPassed;
    programs::Hmi hmi;
    GMainLoop* loop = nullptr;
    ComZentLinuxEngineering* proxy = nullptr;
};

nlohmann::ordered_json toJson(GVariant* value)
{
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_VARIANT)) {
        const host::GlibPtr<GVariant> inner(g_variant_get_variant(value));
        return toJson(inner.get());
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN)) {
        return g_variant_get_boolean(value) != FALSE;
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BYTE)) {
        return g_variant_get_byte(value);
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_UINT32)) {
        return g_variant_get_uint32(value);
    }
    if (g_variant_is_of_type(value, G_VARIANT_TYPE_BYTESTRING)) {
        gsize count = 0;
        const auto* bytes = static_cast<const std::uint8_t*>(g_variant_get_fixed_array(value, &count, 1));
        return std::vector<std::uint8_t>(bytes, bytes + count);
    }
    return nullptr;
}

/// Reads the arguments' names from the interface description, so that a signal added there is followed too.
programs::Signal toSignal(const char* name, GVariant* parameters)
{
    programs::Signal signal{name};
    const GDBusSignalInfo* info =
        g_dbus_interface_info_lookup_signal(com_zent_linux_engineering_interface_info(), name);
    if (info == nullptr) {
        return signal;
    }
    for (gsize i = 0; i < g_variant_n_children(parameters) && info->args[i] != nullptr; ++i) {
        const host::GlibPtr<GVariant> value(g_variant_get_child_value(parameters, i));
        signal.arguments[info->args[i]->name] = toJson(value.get());
    }
    return signal;
}

void complainAbout(const char* what, host::GlibError& error)
{
    complain(kProgram, std::string(what) + ": " + error.message());
}

void trackReported(GObject* source, GAsyncResult* result, gpointer)
{
    host::GlibError error;
    if (!com_zent_linux_engineering_call_auto_test_set_track_index_finish(COM_ZENT_LINUX_ENGINEERING(source), result,
                                                                          error.out())) {
        complainAbout("the service did not take the track index", error);
    }
}

void volumeApplied(GObject* source, GAsyncResult* result, gpointer)
{
    host::GlibError error;
    const host::GlibPtr<GVariant> reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, error.out()));
    if (!reply) {
        complainAbout("the head unit did not take the volume", error);
    }
}

void perform(Follower& follower, const programs::Reaction& reaction)
{
    if (const auto* report = std::get_if<programs::ReportTrack>(&reaction)) {
        com_zent_linux_engineering_call_auto_test_set_track_index(follower.proxy, report->track.mediaType,
                                                                  report->track.index, nullptr, trackReported, nullptr);
    } else if (const auto* apply = std::get_if<programs::ApplyVolume>(&reaction)) {
        const std::string volume = std::to_string(apply->volume);
        g_dbus_connection_call(g_dbus_proxy_get_connection(G_DBUS_PROXY(follower.proxy)), kHeadUnitName, kHeadUnitPath,
                               kHeadUnitName, "SetState", g_variant_new("(ss)", "/audio/volume", volume.c_str()),
                               nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, volumeApplied, nullptr);
    }
}

void end(Follower& follower, int status)
{
    follower.status = status;
    g_main_loop_quit(follower.loop);
}

void signalReceived(GDBusProxy*, gchar*, gchar* name, GVariant* parameters, gpointer data)
{
    auto& follower = *static_cast<Follower*>(data);
    const programs::Signal signal = toSignal(name, parameters);
    const std::string line = follower.json ? programs::asJson(signal) : programs::asText(signal);
    if (std::puts(line.c_str()) < 0 || std::fflush(stdout) != 0) {
        complain(kProgram, "standard output cannot be written");
        end(follower, protocol::kFailed);
        return;
    }
    perform(follower, follower.hmi.react(signal));
}

void noteOwner(Follower& follower)
{
    const host::GlibPtr<char> owner(g_dbus_proxy_get_name_owner(G_DBUS_PROXY(follower.proxy)));
    if (!owner && !follower.waiting) {
        follower.waiting = true;
        complain(kProgram, std::string("waiting for ") + kServiceName + " on the session bus");
    }
}

void connectionClosed(GDBusConnection*, gboolean, GError*, gpointer data)
{
    auto& follower = *static_cast<Follower*>(data);
    follower.lost = true;
    end(follower, protocol::kFailed);
}

gboolean askedToEnd(gpointer data)
{
    end(*static_cast<Follower*>(data), protocol::kPassed);
    return G_SOURCE_CONTINUE;
}

/// @returns a proxy that hears the service's signals, whether the service is there yet or not; null after an error
/// was said.
host::GlibPtr<ComZentLinuxEngineering> subscribe(Follower& follower)
{
    host::GlibError error;
    const auto bus = host::connectToSessionBus(error);
    if (!bus) {
        complain(kProgram, "no session bus: " + error.message() + "; is DBUS_SESSION_BUS_ADDRESS set?");
        return nullptr;
    }
    g_signal_connect(bus.get(), "closed", G_CALLBACK(connectionClosed), &follower);
    constexpr auto kFlags =
        static_cast<GDBusProxyFlags>(G_DBUS_PROXY_FLAGS_DO_NOT_LOAD_PROPERTIES | G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START);
    host::GlibPtr<ComZentLinuxEngineering> proxy(
        com_zent_linux_engineering_proxy_new_sync(bus.get(), kFlags, kServiceName, kServicePath, nullptr, error.out()));
    if (!proxy) {
        complainAbout("cannot follow the service", error);
        return nullptr;
    }
    g_signal_connect(proxy.get(), "g-signal", G_CALLBACK(signalReceived), &follower);
    return proxy;
}

void runLoop(Follower& follower, ComZentLinuxEngineering* proxy)
{
    follower.proxy = proxy;
    noteOwner(follower);
    std::fputs("ready\n", stderr);
    g_main_loop_run(follower.loop);
}

int follow(Follower& follower)
{
    const host::GlibPtr<GMainLoop> loop(g_main_loop_new(nullptr, FALSE));
    follower.loop = loop.get();
    auto proxy = subscribe(follower);
    if (!proxy) {
        return protocol::kFailed;
    }
    // Not before: until the loop runs, the signals end the process as they do by default.
    g_unix_signal_add(SIGINT, askedToEnd, &follower);
    g_unix_signal_add(SIGTERM, askedToEnd, &follower);
    runLoop(follower, proxy.get());
    while (std::exchange(follower.lost, false)) {
        proxy = subscribe(follower);
        if (!proxy) {
            return protocol::kFailed;
        }
        complain(kProgram, "lost the session bus, connected again: signals may be missing here");
        runLoop(follower, proxy.get());
    }
    return follower.status;
}

/// Is the HMI of a unit until a signal asks it to end.
/// @returns the exit status.
int serveUnit(const std::string& file)
{
    runtime::reportAs(kProgram);
    runtime::reportGlibMessagesOnce();
    std::vector<std::string> mistakes;
    unit::UnitConfig config = unit::loadUnitConfig(file, mistakes);
    if (mistakes.empty() && !config.hmi) {
        mistakes.push_back(file + ": expected the section [hmi], got none");
    }
    std::ranges::for_each(mistakes, runtime::report);
    if (!mistakes.empty()) {
        return protocol::kWrongUse;
    }
    // All threads wait for the end on this one.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    auto mixer = config.isOff("audio") ? nullptr : unit::alsaMixer(config.audio.card);
    const unit::BoardHmi hmi(std::move(config), std::move(mixer), [] { std::fputs("ready\n", stderr); });
    int received = 0;
    sigwait(&ends, &received);
    return protocol::kPassed;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app(
        "Stand in for the HMI: follow every signal of the engineering service and answer as an HMI does\n"
        "It keeps a track index per media type, stores a selected track, answers a request for the track with "
        "auto_test_set_track_index, and applies a volume change to the simulated head unit.\n"
        "\n"
        "Each signal is one line on standard output: the name, then the arguments by name, numbers in decimal, "
        "commands "
        "and parameter bytes in hexadecimal:\n"
        "  OnAutoTestModeChangeSignal mode=true\n"
        "  uart_data_changed_signal cmd_one=0F cmd_two=00 param=[01] param_size=1\n"
        "\n"
        "The line 'ready' on standard error says that it misses no signal from now on. The service may start before or "
        "after it. If the bus closes the connection, it connects again and prints a line and 'ready'. Ends with SIGINT "
        "or SIGTERM, or when the bus is gone.\n"
        "\n"
        "With --unit it is the HMI of a board that has none: the section [hmi] of the unit's file says which MPRIS "
        "players, ALSA elements and keys it uses. It prints no signals, and waits for a bus that is gone.",
        kProgram);
    Follower follower;
    app.add_flag("--json", follower.json,
                 "Print one JSON object per line: 'signal' and the arguments by name; 'param' is an array of numbers");
    std::vector<std::string> tracks;
    app.add_option("--track", tracks, "Current track of a media type, by default 0; may be given several times")
        ->type_name("TYPE=INDEX")
        ->allow_extra_args(false)
        ->check([](const std::string& text) {
            return programs::parseTrack(text)
                       ? ""
                       : "expected TYPE=INDEX, each from 0 to 255, got " + protocol::inQuotes(text);
        });
    bool isUnit = false;
    std::string file = "/etc/engineering/unit.toml";
    auto* const unit = app.add_flag("--unit", isUnit, "Use the players, the sound card and the keys of this unit");
    app.add_option("--config", file, "Unit's file of --unit; by default /etc/engineering/unit.toml")->type_name("FILE");
    unit->excludes("--json")->excludes("--track");
    app.footer(
        "Examples:\n"
        "  engineering-hmi\n"
        "  engineering-hmi --unit --config unit.toml\n"
        "  engineering-hmi --json --track 1=7\n"
        "\n"
        "Exit status: 0 ended by a signal, 1 failed, 2 wrong use.");
    if (const auto status = programs::parse(app, argc, argv)) {
        return *status;
    }
    for (const std::string& track : tracks) {
        follower.hmi.select(*programs::parseTrack(track));
    }
    // A reader that went away shows as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return isUnit ? serveUnit(file) : follow(follower);
    } catch (const protocol::Error& error) {
        complain(kProgram, error.what());
        return error.status();
    } catch (const std::exception& error) {
        complain(kProgram, error.what());
        return protocol::kFailed;
    }
}
