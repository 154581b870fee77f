#include "tests/support/BusClient.h"

#include <gio/gunixfdlist.h>
#include <unistd.h>

#include <future>
#include <stdexcept>

namespace tests {

namespace {

constexpr const char* kEngineering = "com.zent.linux.engineering";
constexpr const char* kEngineeringPath = "/com/zent/linux/engineering";
constexpr const char* kHeadUnit = "com.zent.linux.headunit";
constexpr const char* kHeadUnitPath = "/com/zent/linux/headunit";
constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr int kTimeoutMs = 20'000;

std::string print(GVariant* value)
{
    return host::GlibPtr<char>(g_variant_print(value, TRUE)).get();
}

host::GlibPtr<GVariant> parse(const std::string& text)
{
    host::GlibPtr<GVariant> value(g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, nullptr));
    if (!value) {
        throw std::runtime_error("no arguments: " + text);
    }
    return value;
}

/// @returns the reply as text, or the name of the error (its message if it did not come over the bus).
std::string outcomeOf(const host::GlibPtr<GVariant>& reply, host::GlibError& error)
{
    if (reply) {
        return print(reply.get());
    }
    const std::string name = error.remoteName();
    return name.empty() ? error.message() : name;
}

}  // namespace

BusClient::BusClient(const std::string& address)
    : context_(g_main_context_new()), loop_(g_main_loop_new(context_.get(), FALSE))
{
    host::GlibError error;
    connection_ = host::connectToBus(nullptr, error, address.c_str());
    if (!connection_.get()) {
        throw std::runtime_error("no bus at " + address);
    }
    std::promise<void> subscribed;
    thread_ = std::thread([this, &subscribed] {
        g_main_context_push_thread_default(context_.get());
        subscribe();
        subscribed.set_value();
        g_main_loop_run(loop_.get());
        g_main_context_pop_thread_default(context_.get());
    });
    subscribed.get_future().wait();
    // The bus serves a client's messages in their order: when it answers this one, the subscription holds.
    call(kBus, kBusPath, kBus, "GetId", nullptr);
}

BusClient::~BusClient()
{
    // In the loop's own thread, so that the loop runs before it is asked to end.
    g_main_context_invoke(
        context_.get(),
        [](gpointer loop) -> gboolean {
            g_main_loop_quit(static_cast<GMainLoop*>(loop));
            return G_SOURCE_REMOVE;
        },
        loop_.get());
    thread_.join();
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
}

void BusClient::subscribe()
{
    g_dbus_connection_signal_subscribe(
        connection_.get(), nullptr, kEngineering, nullptr, kEngineeringPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar* name, GVariant* arguments,
           gpointer self) { static_cast<BusClient*>(self)->record(name, arguments); },
        this, nullptr);
}

void BusClient::record(const char* name, GVariant* arguments)
{
    const std::lock_guard lock(mutex_);
    signals_.push_back(std::string(name) + " " + print(arguments));
    changed_.notify_all();
}

std::vector<std::string> BusClient::waitForSignals(std::size_t count)
{
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kGenerous, [&] { return signals_.size() >= count; });
    return signals_;
}

std::string BusClient::callEngineering(const std::string& method, const std::string& arguments)
{
    return call(kEngineering, kEngineeringPath, kEngineering, method, parse(arguments).get());
}

std::string BusClient::pingEngineering()
{
    return call(kEngineering, kEngineeringPath, "org.freedesktop.DBus.Peer", "Ping", nullptr);
}

std::string BusClient::callHeadUnit(const std::string& method, const std::string& arguments)
{
    return call(kHeadUnit, kHeadUnitPath, kHeadUnit, method, parse(arguments).get());
}

std::string BusClient::callBus(const std::string& method, const std::string& arguments)
{
    return call(kBus, kBusPath, kBus, method, parse(arguments).get());
}

bool BusClient::waitForOwner(const std::string& name, bool wanted)
{
    const auto deadline = std::chrono::steady_clock::now() + kGenerous;
    while (std::chrono::steady_clock::now() < deadline) {
        if (callBus("NameHasOwner", "('" + name + "',)") == (wanted ? "(true,)" : "(false,)")) {
            return true;
        }
    }
    return false;
}

std::vector<std::string> BusClient::connectionsOf(pid_t process)
{
    const host::GlibPtr<GVariant> reply(g_dbus_connection_call_sync(connection_.get(), kBus, kBusPath, kBus,
                                                                    "ListNames", nullptr, G_VARIANT_TYPE("(as)"),
                                                                    G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr));
    if (!reply) {
        throw std::runtime_error("the bus lists no names");
    }
    std::vector<std::string> names;
    GVariantIter* each = nullptr;
    g_variant_get(reply.get(), "(as)", &each);
    const std::string wanted = "(uint32 " + std::to_string(process) + ",)";
    for (const gchar* name = nullptr; g_variant_iter_next(each, "&s", &name);) {
        if (*name == ':' && callBus("GetConnectionUnixProcessID", "('" + std::string(name) + "',)") == wanted) {
            names.emplace_back(name);
        }
    }
    g_variant_iter_free(each);
    return names;
}

void BusClient::sendUndecodable(const std::string& destination, GDBusMessageType type)
{
    GVariant* value = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, "x", 1, 1);
    for (int depth = 0; depth < 64; ++depth) {
        value = g_variant_new_variant(value);
    }
    const host::GlibPtr<GDBusMessage> owner(g_dbus_message_new());
    GDBusMessage* const message = owner.get();
    g_dbus_message_set_message_type(message, type);
    g_dbus_message_set_flags(message, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    g_dbus_message_set_destination(message, destination.c_str());
    g_dbus_message_set_path(message, kEngineeringPath);
    g_dbus_message_set_interface(message, kEngineering);
    g_dbus_message_set_member(message, "uart_send_data");
    g_dbus_message_set_body(message, g_variant_new("(yy@vq)", 0x83, 0x05, value, 1));
    g_dbus_connection_send_message(connection_.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_dbus_connection_flush_sync(connection_.get(), nullptr, nullptr);
}

std::string BusClient::call(const char* name, const char* path, const char* interface, const std::string& method,
                            GVariant* arguments)
{
    host::GlibError error;
    const host::GlibPtr<GVariant> reply(
        g_dbus_connection_call_sync(connection_.get(), name, path, interface, method.c_str(), arguments, nullptr,
                                    G_DBUS_CALL_FLAGS_NO_AUTO_START, kTimeoutMs, nullptr, error.out()));
    return outcomeOf(reply, error);
}

std::string BusClient::callWithDescriptors(const std::string& destination, int count)
{
    const host::GlibPtr<GUnixFDList> descriptors(g_unix_fd_list_new());
    for (int i = 0; i < count; ++i) {
        g_unix_fd_list_append(descriptors.get(), STDERR_FILENO, nullptr);
    }
    host::GlibError error;
    const host::GlibPtr<GVariant> reply(g_dbus_connection_call_with_unix_fd_list_sync(
        connection_.get(), destination.c_str(), kEngineeringPath, kEngineering, "auto_test_set_track_index",
        g_variant_new("(yy)", 0, 0), nullptr, G_DBUS_CALL_FLAGS_NONE, kTimeoutMs, descriptors.get(), nullptr, nullptr,
        error.out()));
    return outcomeOf(reply, error);
}

bool BusClient::own(const std::string& name)
{
    constexpr guint32 kDoNotQueue = 4;
    return call(kBus, kBusPath, kBus, "RequestName", g_variant_new("(su)", name.c_str(), kDoNotQueue)) == "(uint32 1,)";
}

void BusClient::emitEngineering(const std::string& signal, const std::string& arguments)
{
    g_dbus_connection_emit_signal(connection_.get(), nullptr, kEngineeringPath, kEngineering, signal.c_str(),
                                  parse(arguments).get(), nullptr);
}

}  // namespace tests
