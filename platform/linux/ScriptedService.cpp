#include "platform/linux/ScriptedService.h"

#include <cstring>
#include <stdexcept>
#include <utility>

#include "tests/support/ChildProcess.h"

namespace tests {
namespace {

constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

host::GlibPtr<GVariant> parsed(const std::string& text)
{
    host::GlibError error;
    host::GlibPtr<GVariant> value(g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, error.out()));
    if (!value) {
        throw std::runtime_error("not a GVariant: " + text);
    }
    return value;
}

}  // namespace

ScriptedService::ScriptedService(const std::string& address, std::string name, Answers answers)
{
    host::GlibError error;
    connection_ = host::connectToBus(nullptr, error, address.c_str());
    if (!connection_) {
        throw std::runtime_error("no bus at " + address);
    }
    {
        const std::lock_guard lock(mutex_);
        answers_ = std::move(answers);
        filter_ = g_dbus_connection_add_filter(connection_.get(), filter, this, nullptr);
    }
    const host::GlibPtr<GVariant> owned(g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", name.c_str(), 0U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
    if (!owned) {
        throw std::runtime_error("no name: " + error.message());
    }
}

ScriptedService::~ScriptedService()
{
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
    const std::lock_guard lock(mutex_);
    g_dbus_connection_remove_filter(connection_.get(), filter_);
}

void ScriptedService::answer(const std::string& method, const std::string& reply)
{
    const std::lock_guard lock(mutex_);
    answers_[method] = reply;
}

void ScriptedService::setSilently(const std::string& name, const std::string& value)
{
    const std::lock_guard lock(mutex_);
    properties_[name] = value;
}

void ScriptedService::setProperty(const std::string& path, const std::string& interface, const std::string& name,
                                  const std::string& value)
{
    setSilently(name, value);
    emit(path, kProperties, "PropertiesChanged", "('" + interface + "', {'" + name + "': <" + value + ">}, @as [])");
}

void ScriptedService::emit(const std::string& path, const std::string& interface, const std::string& signal,
                           const std::string& arguments)
{
    const host::GlibPtr<GDBusMessage> message(
        g_dbus_message_new_signal(path.c_str(), interface.c_str(), signal.c_str()));
    g_dbus_message_set_body(message.get(), parsed(arguments).get());
    send(message.get());
}

std::string ScriptedService::callBack(const std::string& path, const std::string& interface, const std::string& method,
                                      const std::string& arguments)
{
    std::string caller;
    {
        const std::lock_guard lock(mutex_);
        caller = caller_;
    }
    host::GlibError error;
    const host::GlibPtr<GVariant> reply(g_dbus_connection_call_sync(
        connection_.get(), caller.c_str(), path.c_str(), interface.c_str(), method.c_str(), parsed(arguments).get(),
        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error.out()));
    return reply ? host::GlibPtr<char>(g_variant_print(reply.get(), FALSE)).get() : error.remoteName();
}

std::vector<std::string> ScriptedService::waitForCalls(std::size_t count)
{
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kGenerous, [&] { return calls_.size() >= count; });
    return calls_;
}

void ScriptedService::send(GDBusMessage* message)
{
    g_dbus_connection_send_message(connection_.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
}

GDBusMessage* ScriptedService::filter(GDBusConnection*, GDBusMessage* message, gboolean isIncoming, gpointer self)
{
    if (isIncoming && g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
        const std::lock_guard lock(mutex_);
        static_cast<ScriptedService*>(self)->serveLocked(message);
        g_object_unref(message);
        return nullptr;
    }
    return message;
}

void ScriptedService::serveLocked(GDBusMessage* call)
{
    const std::string method = g_dbus_message_get_member(call);
    const auto given = answers_.find(method);
    const std::string reply = given == answers_.end() ? "()" : given->second;
    if (std::strcmp(g_dbus_message_get_interface(call), kProperties) != 0) {
        GVariant* const body = g_dbus_message_get_body(call);
        const host::GlibPtr<char> arguments(body == nullptr ? g_strdup("()") : g_variant_print(body, FALSE));
        caller_ = g_dbus_message_get_sender(call);
        calls_.push_back(method + " " + arguments.get());
        changed_.notify_all();
    }
    if (reply.empty()) {
        return;
    }
    const bool isError = reply.front() == '!';
    const host::GlibPtr<GDBusMessage> answer(
        isError ? g_dbus_message_new_method_error(call, reply.substr(1).c_str(), "%s", "as the test wants it")
                : g_dbus_message_new_method_reply(call));
    if (!isError) {
        const auto body = method == "GetAll" && reply == "()" ? allPropertiesLocked()
                          : method == "Get" && reply == "()"  ? propertyLocked(g_dbus_message_get_body(call))
                                                              : parsed(reply);
        g_dbus_message_set_body(answer.get(), body.get());
    }
    send(answer.get());
}

host::GlibPtr<GVariant> ScriptedService::propertyLocked(GVariant* asked)
{
    const char* name = nullptr;
    g_variant_get(asked, "(&s&s)", nullptr, &name);
    return parsed("(<" + properties_[name] + ">,)");
}

host::GlibPtr<GVariant> ScriptedService::allPropertiesLocked()
{
    GVariantBuilder all;
    g_variant_builder_init(&all, G_VARIANT_TYPE("a{sv}"));
    for (const auto& [name, value] : properties_) {
        g_variant_builder_add(&all, "{sv}", name.c_str(), parsed(value).get());
    }
    return host::GlibPtr<GVariant>(g_variant_ref_sink(g_variant_new("(a{sv})", &all)));
}

}  // namespace tests
