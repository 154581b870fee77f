#include "line/LineBus.h"

#include <fmt/format.h>

#include <cstring>
#include <utility>

#include "host/Glib.h"
#include "line/Line.h"
#include "line_dbus.h"
#include "protocol/Text.h"

namespace line {

namespace {

constexpr const char* kLineName = "com.zent.linux.line";
constexpr const char* kLinePath = "/com/zent/linux/line";
constexpr const char* kInvalidValue = "com.zent.linux.line.Error.InvalidValue";
constexpr int kCallTimeoutMs = 3000;
constexpr std::size_t kLongestJson = std::size_t{64} << 10;
constexpr double kLongestHangUp = 3600;

// Numbers of the bus daemon: own the name alone, or not at all.
constexpr guint32 kNoQueue = 4;
constexpr guint32 kOwner = 1;

}  // namespace

struct LineBus::State {
    Line& line;
    std::function<void(const std::string&)> report;
    host::GlibPtr<GDBusConnection> connection = nullptr;
    host::GlibPtr<ComZentLinuxLine> object = nullptr;

    std::string start()
    {
        host::GlibError error;
        connection = host::connectToSessionBus(error);
        if (!connection) {
            return fmt::format("no session bus: {}", protocol::printable(error.message()));
        }
        object.reset(com_zent_linux_line_skeleton_new());
        const auto handle = [this](const char* method, GCallback handler) {
            g_signal_connect(object.get(), method, handler, this);
        };
        handle("handle-get-faults", G_CALLBACK(onGetFaults));
        handle("handle-set-faults", G_CALLBACK(onSetFaults));
        handle("handle-clear-faults", G_CALLBACK(onClearFaults));
        handle("handle-hang-up", G_CALLBACK(onHangUp));
        handle("handle-get-counts", G_CALLBACK(onGetCounts));
        handle("handle-clear-counts", G_CALLBACK(onClearCounts));
        g_signal_connect(connection.get(), "closed", G_CALLBACK(onClosed), this);
        if (g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(object.get()), connection.get(), kLinePath,
                                             error.out()) == FALSE) {
            return fmt::format("the line cannot be offered on the session bus: {}",
                               protocol::printable(error.message()));
        }
        return ownName();
    }

    std::string ownName()
    {
        host::GlibError error;
        const host::GlibPtr<GVariant> reply(g_dbus_connection_call_sync(
            connection.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
            g_variant_new("(su)", kLineName, kNoQueue), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, kCallTimeoutMs,
            nullptr, error.out()));
        if (!reply) {
            return fmt::format("the bus name {} cannot be had: {}", kLineName, protocol::printable(error.message()));
        }
        guint32 result = 0;
        g_variant_get(reply.get(), "(u)", &result);
        return result == kOwner ? "" : fmt::format("the bus name {} is taken by another process", kLineName);
    }

    static void refuse(GDBusMethodInvocation* call, const std::string& reason)
    {
        g_dbus_method_invocation_return_dbus_error(call, kInvalidValue, protocol::printable(reason).c_str());
    }

    static void answer(GDBusMethodInvocation* call, const nlohmann::ordered_json& json)
    {
        g_dbus_method_invocation_return_value(call, g_variant_new("(s)", json.dump().c_str()));
    }

    static Line& lineOf(gpointer state) { return static_cast<State*>(state)->line; }

    static gboolean onGetFaults(ComZentLinuxLine*, GDBusMethodInvocation* call, gpointer state)
    {
        answer(call, toJson(lineOf(state).faults()));
        return TRUE;
    }

    static gboolean onSetFaults(ComZentLinuxLine*, GDBusMethodInvocation* call, const char* text, gpointer state)
    {
        const auto json = std::strlen(text) > kLongestJson ? nlohmann::json(nlohmann::json::value_t::discarded)
                                                           : nlohmann::json::parse(text, nullptr, false);
        if (json.is_discarded()) {
            refuse(call, fmt::format("expected JSON of at most {} bytes", kLongestJson));
            return TRUE;
        }
        Change change;
        if (const std::string wrong = change.addObject(json); !wrong.empty()) {
            refuse(call, wrong);
        } else {
            lineOf(state).change(change);
            g_dbus_method_invocation_return_value(call, nullptr);
        }
        return TRUE;
    }

    static gboolean onClearFaults(ComZentLinuxLine*, GDBusMethodInvocation* call, gpointer state)
    {
        lineOf(state).clearFaults();
        g_dbus_method_invocation_return_value(call, nullptr);
        return TRUE;
    }

    static gboolean onHangUp(ComZentLinuxLine*, GDBusMethodInvocation* call, double seconds, gpointer state)
    {
        if (!(seconds >= 0 && seconds <= kLongestHangUp)) {
            refuse(call, fmt::format("expected a time from 0 up to {} s, got {}", kLongestHangUp, seconds));
        } else {
            lineOf(state).hangUp(seconds);
            g_dbus_method_invocation_return_value(call, nullptr);
        }
        return TRUE;
    }

    static gboolean onGetCounts(ComZentLinuxLine*, GDBusMethodInvocation* call, gpointer state)
    {
        answer(call, lineOf(state).counts());
        return TRUE;
    }

    static gboolean onClearCounts(ComZentLinuxLine*, GDBusMethodInvocation* call, gpointer state)
    {
        answer(call, lineOf(state).counts());
        lineOf(state).clearCounts();
        return TRUE;
    }

    static void onClosed(GDBusConnection*, gboolean, GError*, gpointer state)
    {
        static_cast<State*>(state)->report("lost the session bus; the line goes on with its present faults");
    }

    ~State()
    {
        if (object) {
            g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(object.get()));
            g_signal_handlers_disconnect_by_data(object.get(), this);
        }
        if (connection) {
            g_signal_handlers_disconnect_by_data(connection.get(), this);
            g_dbus_connection_close_sync(connection.get(), nullptr, nullptr);
        }
    }
};

LineBus::LineBus(Line& line, std::function<void(const std::string&)> report)
    : state_(new State{line, std::move(report)})
{
}

LineBus::~LineBus() = default;

std::string LineBus::start()
{
    return state_->start();
}

}  // namespace line
