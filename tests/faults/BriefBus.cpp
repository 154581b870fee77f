#include "tests/faults/BriefBus.h"

#include <gio/gio.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>

namespace tests {

namespace {

int listenAt(const std::string& path)
{
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (listener < 0 || bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, SOMAXCONN) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return listener;
}

/// What the greeting, the client's first message, is answered with.
std::string greeting()
{
    GDBusMessage* const message = g_dbus_message_new();
    g_dbus_message_set_message_type(message, G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
    g_dbus_message_set_serial(message, 1);
    g_dbus_message_set_reply_serial(message, 1);
    g_dbus_message_set_sender(message, "org.freedesktop.DBus");
    g_dbus_message_set_destination(message, ":1.1");
    g_dbus_message_set_body(message, g_variant_new("(s)", ":1.1"));
    gsize size = 0;
    guchar* const blob = g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
    std::string bytes(reinterpret_cast<const char*>(blob), size);
    g_free(blob);
    g_object_unref(message);
    return bytes;
}

/// Reads until `mark` has come.
/// @returns whether it has; false when the client has gone.
bool readUntil(int client, std::string& text, const std::string& mark)
{
    std::array<char, 1024> chunk;
    while (text.find(mark) == std::string::npos) {
        const ssize_t got = read(client, chunk.data(), chunk.size());
        if (got <= 0) {
            return false;
        }
        text.append(chunk.data(), static_cast<std::size_t>(got));
    }
    text.erase(0, text.find(mark) + mark.size());
    return true;
}

void say(int client, const std::string& text)
{
    static_cast<void>(!send(client, text.data(), text.size(), MSG_NOSIGNAL));
}

void serve(int client)
{
    std::string text;
    if (!readUntil(client, text, "AUTH")) {
        return;
    }
    // The client may ask which ways there are before it takes one.
    while (!text.starts_with(" EXTERNAL")) {
        if (!readUntil(client, text, "\r\n")) {
            return;
        }
        say(client, "REJECTED EXTERNAL\r\n");
        if (!readUntil(client, text, "AUTH")) {
            return;
        }
    }
    if (!readUntil(client, text, "\r\n")) {
        return;
    }
    say(client, "OK 0123456789abcdef0123456789abcdef\r\n");
    if (text.find("BEGIN") == std::string::npos && !readUntil(client, text, "NEGOTIATE_UNIX_FD\r\n")) {
        return;
    }
    say(client, "ERROR\r\n");
    if (readUntil(client, text, "BEGIN\r\n") && readUntil(client, text, "Hello")) {
        say(client, greeting());
    }
}

}  // namespace

BriefBus::BriefBus(const std::filesystem::path& path)
    : address_("unix:path=" + path.string()), listener_(listenAt(path.string())), thread_([this] { run(); })
{
}

BriefBus::~BriefBus()
{
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
}

void BriefBus::run()
{
    for (int client = 0; (client = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        serve(client);
        // The moment is what is tried, nothing is waited for.
        std::this_thread::sleep_for(std::chrono::microseconds(7 * clients_++ % 500));
        close(client);
    }
}

}  // namespace tests
