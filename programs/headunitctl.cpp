#include <gio/gio.h>
#include <glib-unix.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>

#include "programs/Cli.h"
#include "programs/SessionBus.h"
#include "protocol/Text.h"

namespace {

constexpr const char* kProgram = "headunitctl";
constexpr const char* kBusName = "com.zent.linux.headunit";
constexpr const char* kObjectPath = "/com/zent/linux/headunit";
constexpr const char* kErrorPrefix = "com.zent.linux.headunit.Error.";

using Json = nlohmann::ordered_json;  // members are shown in the order in which they came

template <class Object>
struct Unref {
    void operator()(Object* object) const { g_object_unref(object); }
};
struct UnrefVariant {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using Connection = std::unique_ptr<GDBusConnection, Unref<GDBusConnection>>;
using Reply = std::unique_ptr<GVariant, UnrefVariant>;

/// Why the program ends before it has done what it was asked to do.
struct Failure {
    programs::Exit status;
    std::string message;
};

/// @returns the message of `error`, which is freed.
std::string take(GError* error)
{
    std::string message = error == nullptr ? "unknown reason" : error->message;
    g_clear_error(&error);
    return message;
}

/// What a failed call to the head unit means to the user; frees `error`.
Failure failureOf(GError* error)
{
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY)) {
        return {programs::kNoAnswer, "the head unit does not answer: " + take(error)};
    }
    if (g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_SERVICE_UNKNOWN) ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
        g_clear_error(&error);
        return {programs::kFailed, std::string("no head unit is on the session bus (") + kBusName +
                                       "): start engineering-service on this bus"};
    }
    if (char* const name = g_dbus_error_get_remote_error(error)) {
        const std::string kind = g_str_has_prefix(name, kErrorPrefix) ? name + std::string(kErrorPrefix).size() : name;
        g_free(name);
        g_dbus_error_strip_remote_error(error);
        return {programs::kFailed, kind + ": " + take(error)};
    }
    return {programs::kFailed, take(error)};
}

Connection connect()
{
    GError* error = nullptr;
    GDBusConnection* const connection = programs::connectToSessionBus(&error);
    if (connection == nullptr && g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED)) {
        g_clear_error(&error);
        throw Failure{programs::kNoAnswer, "the session bus does not answer"};
    }
    if (connection == nullptr) {
        throw Failure{programs::kFailed, "no session bus, is DBUS_SESSION_BUS_ADDRESS set? " + take(error)};
    }
    return Connection(connection);
}

/// @param arguments floating tuple, null for none
Reply call(GDBusConnection* connection, const char* method, GVariant* arguments)
{
    GError* error = nullptr;
    GVariant* const reply = g_dbus_connection_call_sync(connection, kBusName, kObjectPath, kBusName, method, arguments,
                                                        nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, &error);
    if (reply == nullptr) {
        throw failureOf(error);
    }
    return Reply(reply);
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
        throw Failure{programs::kWrongUse, "an argument is not UTF-8"};
    }
    return argument.c_str();
}

/// @returns an argument that is JSON.
const char* jsonText(const std::string& argument)
{
    const char* const text = wireText(argument);
    if (!Json::accept(argument)) {
        throw Failure{
            programs::kWrongUse,
            "not JSON: " + argument + " (numbers as they are, texts in double quotes: '\"text\"', see --help)"};
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
    const Connection connection = connect();
    print(Json::parse(textOf(call(connection.get(), "GetState", g_variant_new("(s)", wireText(path))))), 2);
}

void setState(const std::string& path, const std::string& json)
{
    GVariant* const arguments = g_variant_ref_sink(g_variant_new("(ss)", wireText(path), jsonText(json)));
    const Reply holder(arguments);
    call(connect().get(), "SetState", arguments);
}

void raiseEvent(const std::string& name, const std::string& json)
{
    GVariant* const arguments = g_variant_ref_sink(g_variant_new("(ss)", wireText(name), jsonText(json)));
    const Reply holder(arguments);
    call(connect().get(), "RaiseEvent", arguments);
}

void startModule(std::uint32_t module)
{
    const Reply reply = call(connect().get(), "StartModule", g_variant_new("(u)", module));
    gint32 result = 0;
    g_variant_get(reply.get(), "(i)", &result);
    std::printf("%d\n", result);
}

void showCalls(bool clears)
{
    const Connection connection = connect();
    for (const Json& each : Json::parse(textOf(call(connection.get(), "GetCalls", nullptr)))) {
        print(each, -1);
    }
    if (clears) {
        call(connection.get(), "ClearCalls", nullptr);
    }
}

/// Follows the head unit until it leaves the bus or the user has seen enough. Connects once more when its connection is
/// closed.
class Watch
{
public:
    Watch() : connection_(connect()), loop_(g_main_loop_new(nullptr, FALSE)) {}
    ~Watch() { g_main_loop_unref(loop_); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    void run()
    {
        follow();
        g_unix_signal_add(SIGINT, onInterrupt, this);
        g_unix_signal_add(SIGTERM, onInterrupt, this);
        g_main_loop_run(loop_);
        while (std::exchange(lost_, false)) {
            connectAgain();
            follow();
            g_main_loop_run(loop_);
        }
    }

private:
    void follow()
    {
        g_dbus_connection_signal_subscribe(connection_.get(), kBusName, kBusName, nullptr, kObjectPath, nullptr,
                                           G_DBUS_SIGNAL_FLAGS_NONE, onSignal, this, nullptr);
        g_dbus_connection_signal_subscribe(connection_.get(), "org.freedesktop.DBus", "org.freedesktop.DBus",
                                           "NameOwnerChanged", "/org/freedesktop/DBus", kBusName,
                                           G_DBUS_SIGNAL_FLAGS_NONE, onOwnerChanged, this, nullptr);
        g_signal_connect(connection_.get(), "closed", G_CALLBACK(onBusClosed), this);
        // The bus answers in order: once it has, it knows of the subscriptions.
        call(connection_.get(), "GetState", g_variant_new("(s)", "/source/current"));
        std::fputs("ready\n", stderr);
    }

    void connectAgain()
    {
        try {
            connection_ = connect();
        } catch (const Failure&) {
            throw Failure{programs::kFailed, "the session bus is gone"};
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

    static void onOwnerChanged(GDBusConnection*, const char*, const char*, const char*, const char*,
                               GVariant* arguments, gpointer data)
    {
        const char* owner = nullptr;
        g_variant_get(arguments, "(&s&s&s)", nullptr, nullptr, &owner);
        if (*owner == '\0') {
            g_main_loop_quit(static_cast<Watch*>(data)->loop_);
        }
    }

    static void onBusClosed(GDBusConnection*, gboolean, GError*, gpointer data)
    {
        static_cast<Watch*>(data)->lost_ = true;
        g_main_loop_quit(static_cast<Watch*>(data)->loop_);
    }

    static gboolean onInterrupt(gpointer data)
    {
        g_main_loop_quit(static_cast<Watch*>(data)->loop_);
        return G_SOURCE_CONTINUE;
    }

    Connection connection_;
    GMainLoop* const loop_;
    bool lost_ = false;  // the connection has been closed
};

/// The command line.
class Commands
{
public:
    Commands()
    {
        app_.require_subcommand(1);
        app_.footer(
            "PATH is a JSON Pointer: /audio/volume. A '/' within a key is spelled ~1:\n"
            "/config/~1engineering~1open_debug. Exit status: 0 done, 1 failed, 2 wrong use, 3 no answer.");
        addState();
        addSet();
        addEvent();
        addStartModule();
        addCalls();
        addWatch();
    }

    CLI::App& app() { return app_; }

    void run() { action_(); }

private:
    void addState()
    {
        CLI::App* const command = app_.add_subcommand("state", "Print the state, or the value at PATH, as JSON");
        command->footer("Example: headunitctl state /tuner");
        command->add_option("PATH", path_, "JSON Pointer; without, the whole state");
        command->callback([this] { action_ = [this] { showState(path_); }; });
    }

    void addSet()
    {
        CLI::App* const command = app_.add_subcommand("set", "Replace the value at PATH");
        command->footer(
            "Examples: headunitctl set /audio/volume 20\n          headunitctl set /wifi/text '\"Unit 7\"'");
        command->add_option("PATH", path_, "JSON Pointer")->required();
        command->add_option("JSON", json_, "the new value, of the old one's type")->required();
        command->callback([this] { action_ = [this] { setState(path_, json_); }; });
    }

    void addEvent()
    {
        CLI::App* const command = app_.add_subcommand("event", "Raise an event, and wait until it is delivered");
        command->footer("Example: headunitctl event OnCarSpeedChange '{\"speed\": 80}'");
        command->add_option("NAME", name_, "name of the listener operation")->required();
        command->add_option("JSON", arguments_, "object of its arguments")->capture_default_str();
        command->callback([this] { action_ = [this] { raiseEvent(name_, arguments_); }; });
    }

    void addStartModule()
    {
        CLI::App* const command =
            app_.add_subcommand("start-module", "Run the start action of module N, and print what it returns");
        command->footer("Example: headunitctl start-module 17");
        command->add_option("N", module_, "the platform's number of the module")->required();
        command->callback([this] { action_ = [this] { startModule(module_); }; });
    }

    void addCalls()
    {
        CLI::App* const command = app_.add_subcommand(
            "calls", "Print what the service had the head unit do, oldest first, a JSON object per line");
        command->footer("Example: headunitctl calls --clear");
        command->add_flag("--clear", clears_, "empty the record after printing it");
        command->callback([this] { action_ = [this] { showCalls(clears_); }; });
    }

    void addWatch()
    {
        CLI::App* const command = app_.add_subcommand(
            "watch",
            "Print calls and state changes as they come, a JSON object per line: {\"service\",\"op\",\"args\"} or\n"
            "{\"path\",\"value\"}; until interrupted, or the head unit leaves the bus. Connects again when its "
            "connection\n"
            "is closed");
        command->footer("Prints \"ready\" on standard error when it follows. Example: headunitctl watch");
        command->callback([this] { action_ = [] { Watch().run(); }; });
    }

    CLI::App app_{"Reads, sets and records the simulated head unit of engineering-service", kProgram};
    std::function<void()> action_;
    std::string path_;
    std::string json_;
    std::string name_;
    std::string arguments_ = "{}";
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
        return programs::kDone;
    } catch (const Failure& failure) {
        programs::complain(kProgram, failure.message);
        return failure.status;
    } catch (const std::exception& error) {
        programs::complain(kProgram, error.what());
        return programs::kFailed;
    }
}
