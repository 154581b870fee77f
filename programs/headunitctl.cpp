#include <fmt/format.h>
#include <glib-unix.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/Glib.h"
#include "programs/Cli.h"
#include "protocol/Errors.h"
#include "protocol/Quantity.h"
#include "protocol/Text.h"

namespace {

constexpr const char* kProgram = "headunitctl";
constexpr const char* kBusName = "com.zent.linux.headunit";
constexpr const char* kObjectPath = "/com/zent/linux/headunit";

/// What answers a call.
struct Callee {
    std::string name;  ///< on the bus, and of its interface
    const char* path;
    const char* what;     ///< "the simulated head unit"
    const char* missing;  ///< "no head unit"
    const char* program;  ///< which offers it
};

const Callee kHeadUnit{kBusName, kObjectPath, "the simulated head unit", "no head unit", "engineering-service"};
const Callee kLine{"com.zent.linux.line", "/com/zent/linux/line", "the line", "no line", "engineering-line"};

using Json = nlohmann::ordered_json;  // members are shown in the order in which they came

using Reply = host::GlibPtr<GVariant>;
using protocol::LineError;
using protocol::UserError;

/// Throws what a failed call means to the user.
[[noreturn]] void fail(const Callee& callee, host::GlibError& error)
{
    if (error.is(G_IO_ERROR, G_IO_ERROR_TIMED_OUT) || error.is(G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY)) {
        throw LineError(fmt::format("{} does not answer: {}", callee.what, error.message()), protocol::kNoAnswer);
    }
    if (error.is(G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
        error.is(G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
        throw LineError(fmt::format("{} is on the session bus ({}): start {} on this bus", callee.missing, callee.name,
                                    callee.program),
                        protocol::kFailed);
    }
    const std::string name = error.remoteName();
    // It refuses what the user wrote with an error of its own, but for an action that is missing there.
    const bool mistake = name.starts_with(callee.name + ".Error.") && !name.ends_with(".NoStartAction");
    throw UserError(error.message(), mistake ? protocol::kWrongUse : protocol::kFailed);
}

host::GlibPtr<GDBusConnection> connect()
{
    host::GlibError error;
    auto connection = host::connectToSessionBus(error);
    if (!connection && error.is(G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
        throw LineError("the session bus does not answer", protocol::kNoAnswer);
    }
    if (!connection) {
        const char* const address = g_getenv("DBUS_SESSION_BUS_ADDRESS");
        // Without an address, GLib's message is about a way to start a bus that the user does not need.
        const std::string reason = address == nullptr || *address == '\0' ? "" : error.message() + "; ";
        throw LineError("no session bus: " + reason + "type the export line that scripts/run printed",
                        protocol::kFailed);
    }
    return connection;
}

/// @param arguments floating tuple, null for none
Reply call(GDBusConnection* connection, const char* method, GVariant* arguments, const Callee& callee = kHeadUnit)
{
    host::GlibError error;
    Reply reply(g_dbus_connection_call_sync(connection, callee.name.c_str(), callee.path, callee.name.c_str(), method,
                                            arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr,
                                            error.out()));
    if (!reply) {
        fail(callee, error);
    }
    return reply;
}

std::string textOf(const Reply& reply)
{
    const char* text = "";
    g_variant_get(reply.get(), "(&s)", &text);
    return text;
}

/// @returns an argument of the command line, which a message on the bus can carry.
const char* wireText(const std::string& argument)
{
    if (!g_utf8_validate_len(argument.data(), argument.size(), nullptr)) {
        throw UserError(fmt::format("expected UTF-8, got '{}'", argument));
    }
    return argument.c_str();
}

/// @returns an argument that is JSON.
const char* jsonText(const std::string& place, const std::string& argument, const char* examples)
{
    const char* const text = wireText(argument);
    if (!Json::accept(argument)) {
        throw UserError(fmt::format("{}: expected JSON, such as {}, got '{}'", place, examples, argument));
    }
    return text;
}

void print(const Json& value, int indent)
{
    const std::string text = value.dump(indent, ' ', false, Json::error_handler_t::replace);
    std::puts(protocol::printableJson(text).c_str());
}

void showState(const std::string& path)
{
    const auto connection = connect();
    print(Json::parse(textOf(call(connection.get(), "GetState", g_variant_new("(s)", wireText(path))))), 2);
}

/// Calls a method with two texts, of which the second is JSON such as `examples`.
void callWith(const char* method, const std::string& first, const std::string& json, const char* examples)
{
    // Checks both before it connects.
    const Reply arguments(g_variant_ref_sink(g_variant_new("(ss)", wireText(first), jsonText(first, json, examples))));
    call(connect().get(), method, arguments.get());
}

void startModule(std::uint32_t module)
{
    const Reply reply = call(connect().get(), "StartModule", g_variant_new("(u)", module));
    gint32 result = 0;
    g_variant_get(reply.get(), "(i)", &result);
    std::printf("%d\n", result);
}

/// Switches the unit off and on. @returns when it is on the bus again.
void powerCycle()
{
    constexpr guint kPatienceMs = 20'000;
    struct Wait {
        host::GlibPtr<GMainLoop> loop{g_main_loop_new(nullptr, FALSE)};
        std::string before;
        bool back = false;
    } wait;
    const auto connection = connect();
    const auto onOwner = [](GDBusConnection*, const char*, const char* owner, gpointer data) {
        auto* const waiting = static_cast<Wait*>(data);
        if (waiting->before.empty()) {
            waiting->before = owner;
            g_main_loop_quit(waiting->loop.get());
        } else if (waiting->before != owner) {
            waiting->back = true;
            g_main_loop_quit(waiting->loop.get());
        }
    };
    const auto onNone = [](GDBusConnection*, const char*, gpointer data) {
        auto* const waiting = static_cast<Wait*>(data);
        if (waiting->before.empty()) {
            g_main_loop_quit(waiting->loop.get());
        }
    };
    const guint watch = g_bus_watch_name_on_connection(connection.get(), kBusName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                                       onOwner, onNone, &wait, nullptr);
    const host::GlibPtr<GSource> limit(g_timeout_source_new(kPatienceMs));
    g_source_set_callback(
        limit.get(),
        [](gpointer loop) -> gboolean {
            g_main_loop_quit(static_cast<GMainLoop*>(loop));
            return G_SOURCE_REMOVE;
        },
        wait.loop.get(), nullptr);
    g_source_attach(limit.get(), nullptr);
    g_main_loop_run(wait.loop.get());
    // Without a head unit, the call says so.
    call(connection.get(), "PowerCycle", nullptr);
    g_main_loop_run(wait.loop.get());
    g_bus_unwatch_name(watch);
    if (!wait.back) {
        throw LineError("the unit is not back after its power cycle", protocol::kNoAnswer);
    }
}

void showCalls(bool clears)
{
    const auto connection = connect();
    for (const Json& each : Json::parse(textOf(call(connection.get(), "GetCalls", nullptr)))) {
        print(each, -1);
    }
    if (clears) {
        call(connection.get(), "ClearCalls", nullptr);
    }
}

/// Prints what a method of the line returns.
void showLine(const char* method)
{
    print(Json::parse(textOf(call(connect().get(), method, nullptr, kLine))), 2);
}

void setLine(const std::vector<std::string>& words)
{
    Json faults = Json::object();
    for (const std::string& word : words) {
        const auto equals = word.find('=');
        if (equals == std::string::npos) {
            throw UserError(fmt::format("expected KEY=VALUE, got '{}'", word));
        }
        faults[wireText(word.substr(0, equals))] = wireText(word.substr(equals + 1));
    }
    call(connect().get(), "SetFaults", g_variant_new("(s)", faults.dump().c_str()), kLine);
}

void hangLineUp(const std::string& time)
{
    const auto seconds = protocol::parseSeconds(time);
    if (!seconds) {
        throw UserError(fmt::format("TIME: expected a time such as 2 or 500ms, got '{}'", time));
    }
    call(connect().get(), "HangUp", g_variant_new("(d)", *seconds), kLine);
}

/// Follows the head unit until it leaves the bus or the user has seen enough. Connects once more when its connection is
/// closed.
class Watch
{
public:
    Watch() = default;
    ~Watch() { unwatch(); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    void run()
    {
        follow();
        g_unix_signal_add(SIGINT, onInterrupt, this);
        g_unix_signal_add(SIGTERM, onInterrupt, this);
        g_main_loop_run(loop_.get());
        while (std::exchange(lost_, false)) {
            connectAgain();
            follow();
            g_main_loop_run(loop_.get());
        }
    }

private:
    void follow()
    {
        g_dbus_connection_signal_subscribe(connection_.get(), kBusName, kBusName, nullptr, kObjectPath, nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, onSignal, this, nullptr);
        owner_ = g_bus_watch_name_on_connection(connection_.get(), kBusName, G_BUS_NAME_WATCHER_FLAGS_NONE, nullptr,
                                                onHeadUnitGone, this, nullptr);
        g_signal_connect(connection_.get(), "closed", G_CALLBACK(onBusClosed), this);
        // The bus answers in order: once it has, it knows of the subscriptions.
        call(connection_.get(), "GetState", g_variant_new("(s)", "/source/current"));
        std::fputs("ready\n", stderr);
    }

    void unwatch()
    {
        if (owner_ != 0) {
            g_bus_unwatch_name(std::exchange(owner_, 0));
        }
    }

    void connectAgain()
    {
        unwatch();
        try {
            connection_ = connect();
        } catch (const LineError&) {
            throw LineError("the session bus is gone", protocol::kFailed);
        }
        programs::complain(kProgram, "lost the session bus, connected again: lines may be missing here");
    }

    static void onSignal(GDBusConnection*, const char*, const char*, const char*, const char* name, GVariant* arguments,
                         gpointer)
    {
        if (g_str_equal(name, "Called") != FALSE && g_variant_is_of_type(arguments, G_VARIANT_TYPE("(s)")) != FALSE) {
            showCall(arguments);
        } else if (g_str_equal(name, "StateChanged") != FALSE &&
                   g_variant_is_of_type(arguments, G_VARIANT_TYPE("(ss)")) != FALSE) {
            showChange(arguments);
        }
    }

    static void showCall(GVariant* arguments)
    {
        const char* json = nullptr;
        g_variant_get(arguments, "(&s)", &json);
        show(parse(json));
    }

    static void showChange(GVariant* arguments)
    {
        const char* path = nullptr;
        const char* json = nullptr;
        g_variant_get(arguments, "(&s&s)", &path, &json);
        show({{"path", path}, {"value", parse(json)}});
    }

    static Json parse(const char* text) { return Json::parse(text, nullptr, false); }

    static void show(const Json& value)
    {
        print(value, -1);
        std::fflush(stdout);
    }

    static void onHeadUnitGone(GDBusConnection*, const char*, gpointer data)
    {
        g_main_loop_quit(static_cast<Watch*>(data)->loop_.get());
    }

    static void onBusClosed(GDBusConnection*, gboolean, GError*, gpointer data)
    {
        static_cast<Watch*>(data)->lost_ = true;
        g_main_loop_quit(static_cast<Watch*>(data)->loop_.get());
    }

    static gboolean onInterrupt(gpointer data)
    {
        g_main_loop_quit(static_cast<Watch*>(data)->loop_.get());
        return G_SOURCE_CONTINUE;
    }

    host::GlibPtr<GDBusConnection> connection_ = connect();
    const host::GlibPtr<GMainLoop> loop_{g_main_loop_new(nullptr, FALSE)};
    guint owner_ = 0;    // watches the head unit's name
    bool lost_ = false;  // the connection has been closed
};

constexpr const char* kPathHelp =
    "PATH is a JSON Pointer such as /audio/volume. Write a '/' within a key as ~1: /config/~1engineering~1open_debug.";

/// The command line.
class Commands
{
public:
    Commands()
    {
        programs::setUpHelp(app_);
        app_.require_subcommand(1);
        app_.footer("Exit status: 0 done, 1 failed, 2 wrong use, 3 no answer.");
        addState();
        addSet();
        addEvent();
        addStartModule();
        addCalls();
        addWatch();
        addPowerCycle();
        addLine();
    }

    CLI::App& app() { return app_; }

    void run() { action_(); }

private:
    void addState()
    {
        CLI::App* const command =
            app_.add_subcommand("state", "Print the state, or the value at PATH, as JSON\n" + std::string(kPathHelp));
        command->footer("Examples:\n  headunitctl state\n  headunitctl state /tuner");
        command->add_option("PATH", path_, "Value to print; by default the whole state");
        command->callback([this] { action_ = [this] { showState(path_); }; });
    }

    void addSet()
    {
        CLI::App* const command = app_.add_subcommand("set", "Replace the value at PATH\n" + std::string(kPathHelp));
        command->footer(
            "Examples:\n"
            "  headunitctl set /audio/volume 20\n"
            "  headunitctl set /wifi/text '\"Unit 7\"'\n"
            "  headunitctl set /config/~1engineering~1open_debug true");
        command->add_option("PATH", path_, "Value to replace")->required();
        command->add_option("JSON", json_, "New value, of the same type as the old one")->required();
        command->callback([this] { action_ = [this] { callWith("SetState", path_, json_, "20 or '\"text\"'"); }; });
    }

    void addEvent()
    {
        CLI::App* const command = app_.add_subcommand("event", "Raise an event and wait until it is delivered");
        command->footer(
            "Examples:\n"
            "  headunitctl event OnCarSpeedChange '{\"speed\": 80}'\n"
            "  headunitctl event OnFactoryResetMode");
        command->add_option("NAME", name_, "Event; a wrong name lists them all")->required();
        command->add_option("JSON", arguments_, "Arguments of the event, as an object");
        command->callback(
            [this] { action_ = [this] { callWith("RaiseEvent", name_, arguments_, "'{\"speed\": 70}'"); }; });
    }

    void addStartModule()
    {
        CLI::App* const command =
            app_.add_subcommand("start-module", "Run the start action of a module and print its result");
        command->footer("Examples:\n  headunitctl start-module 17");
        command->add_option("N", module_, "Number of the module on the platform")->required();
        command->callback([this] { action_ = [this] { startModule(module_); }; });
    }

    void addCalls()
    {
        CLI::App* const command =
            app_.add_subcommand("calls",
                                "Print the calls of the service to the head unit\n"
                                "Oldest first, a JSON object per line: {\"service\",\"op\",\"args\"}.");
        command->footer("Examples:\n  headunitctl calls --clear");
        command->add_flag("--clear", clears_, "Forget the calls after printing them");
        command->callback([this] { action_ = [this] { showCalls(clears_); }; });
    }

    void addWatch()
    {
        CLI::App* const command = app_.add_subcommand(
            "watch",
            "Print calls and state changes as they happen\n"
            "A JSON object per line: {\"service\",\"op\",\"args\"} or {\"path\",\"value\"}. The line 'ready' on "
            "standard "
            "error says that it misses nothing from now on. Ends with Ctrl-C, or when the head unit leaves the bus. If "
            "the bus closes the connection, it connects again and says so.");
        command->footer("Examples:\n  headunitctl watch");
        command->callback([this] { action_ = [] { Watch().run(); }; });
    }

    void addPowerCycle()
    {
        CLI::App* const command = app_.add_subcommand(
            "power-cycle",
            "Switch the unit off and on, and wait until it is back\n"
            "The line hangs up and comes back, auto-test mode is off, and the written Bluetooth address is in use. The "
            "files of the unit stay; its state begins anew.");
        command->footer("Examples:\n  headunitctl power-cycle");
        command->callback([this] { action_ = [] { powerCycle(); }; });
    }

    void addLine()
    {
        CLI::App* const noun = app_.add_subcommand(
            "line", "Change the faults of engineering-line and show what it did\nThe line is on the same session bus.");
        noun->require_subcommand(1);

        CLI::App* command = noun->add_subcommand("faults", "Print the faults of both directions, as JSON");
        command->callback([this] { action_ = [] { showLine("GetFaults"); }; });

        command = noun->add_subcommand(
            "set",
            "Change faults\n"
            "KEY is a key of 'engineering-line --help', for both directions or after to_unit. or to_station.; the "
            "other faults stay as they are.");
        command->footer(
            "Examples:\n"
            "  headunitctl line set drop=1% delay=200ms\n"
            "  headunitctl line set to_station.corrupt=0.01");
        command->add_option("KEY=VALUE", words_, "Fault and its new value")->type_name("KEY=VALUE")->required();
        command->callback([this] { action_ = [this] { setLine(words_); }; });

        command = noun->add_subcommand("clear", "End all faults");
        command->callback([this] { action_ = [] { call(connect().get(), "ClearFaults", nullptr, kLine); }; });

        command = noun->add_subcommand("hang-up", "Take the station's end of the line away for a time");
        command->footer("Examples:\n  headunitctl line hang-up 500ms");
        command->add_option("TIME", time_, "How long, up to an hour; by default 1 s")->type_name("TIME");
        command->callback([this] { action_ = [this] { hangLineUp(time_); }; });

        command = noun->add_subcommand("counts", "Print what the line did in each direction, as JSON");
        command->add_flag("--clear", clears_, "Set the counts to 0, too");
        command->callback([this] { action_ = [this] { showLine(clears_ ? "ClearCounts" : "GetCounts"); }; });
    }

    CLI::App app_{"Read, change and record the simulated head unit of engineering-service", kProgram};
    std::function<void()> action_;
    std::string path_;
    std::string json_;
    std::string name_;
    std::string arguments_ = "{}";
    std::string time_ = "1";
    std::vector<std::string> words_;
    std::uint32_t module_ = 0;
    bool clears_ = false;
};

}  // namespace

int main(int argc, char** argv)
{
    Commands commands;
    if (const auto status = programs::parse(commands.app(), argc, argv)) {
        return *status;
    }
    try {
        commands.run();
        return protocol::kPassed;
    } catch (const protocol::Error& error) {
        programs::complain(kProgram, error.what());
        return error.status();
    } catch (const std::exception& error) {
        programs::complain(kProgram, error.what());
        return protocol::kFailed;
    }
}
