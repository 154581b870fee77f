#include "platform/runtime/BusName.h"

#include <unistd.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "host/Glib.h"

namespace runtime {
namespace {

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";
constexpr const char* kNoAnswer = "the session bus does not answer";

/// A main context that is this thread's default as long as the object lives.
class OwnContext
{
public:
    OwnContext() { g_main_context_push_thread_default(get()); }
    ~OwnContext() { g_main_context_pop_thread_default(get()); }
    OwnContext(const OwnContext&) = delete;
    OwnContext& operator=(const OwnContext&) = delete;

    GMainContext* get() const { return context_.get(); }

private:
    const host::GlibPtr<GMainContext> context_{g_main_context_new()};
};

/// One look at the bus; everything runs on the thread that calls wait().
class Watch
{
public:
    explicit Watch(const std::string& name) : name_(name), cancellable_(g_cancellable_new()) {}

    BusName wait(std::chrono::milliseconds patience)
    {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        host::GlibError error;
        connection_ = host::connectToSessionBus(error, patience);
        if (!connection_) {
            return {BusName::State::kNoBus, error.is(G_IO_ERROR, G_IO_ERROR_CANCELLED) ? kNoAnswer : error.message()};
        }
        startDeadline(
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()));
        follow();
        iterateUntil([this] { return outcome_.has_value(); });
        end();
        return *outcome_;
    }

private:
    template <class Condition>
    void iterateUntil(Condition condition)
    {
        while (!condition()) {
            g_main_context_iteration(context_.get(), TRUE);
        }
    }

    void startDeadline(std::chrono::milliseconds patience)
    {
        deadline_.reset(g_timeout_source_new(static_cast<guint>(std::max<std::int64_t>(patience.count(), 0))));
        g_source_set_callback(
            deadline_.get(),
            [](gpointer data) -> gboolean {
                auto& self = *static_cast<Watch*>(data);
                self.answered_ ? self.decide(BusName::State::kLate) : self.decide(BusName::State::kNoBus, kNoAnswer);
                return G_SOURCE_REMOVE;
            },
            this, nullptr);
        g_source_attach(deadline_.get(), context_.get());
    }

    void decide(BusName::State state, const std::string& reason = "")
    {
        if (!outcome_) {
            outcome_ = BusName{state, reason};
        }
    }

    void follow()
    {
        closed_ = g_signal_connect(connection_.get(), "closed", G_CALLBACK(onClosed), this);
        if (g_dbus_connection_is_closed(connection_.get()) != FALSE) {
            onClosed(nullptr, FALSE, nullptr, this);
        }
        // First the signal, then the question, so that no change is missed between the two.
        subscription_ = g_dbus_connection_signal_subscribe(
            connection_.get(), kBus, kBus, "NameOwnerChanged", kBusPath, name_.c_str(), G_DBUS_SIGNAL_FLAGS_NONE,
            [](GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*, GVariant* arguments,
               gpointer self) { static_cast<Watch*>(self)->onOwnerChanged(arguments); },
            this, nullptr);
        ask(name_.c_str());
    }

    static void onClosed(GDBusConnection*, gboolean, GError*, gpointer self)
    {
        static_cast<Watch*>(self)->decide(BusName::State::kNoBus, "the session bus is gone");
    }

    void onOwnerChanged(GVariant* arguments)
    {
        const gchar* owner = nullptr;
        g_variant_get(arguments, "(&s&s&s)", nullptr, nullptr, &owner);
        if (*owner != '\0') {
            ask(owner);
        }
    }

    void onProcess(GAsyncResult* result)
    {
        --pending_;
        host::GlibError error;
        const host::GlibPtr<GVariant> reply(g_dbus_connection_call_finish(connection_.get(), result, error.out()));
        if (outcome_) {
            return;
        }
        answered_ = true;
        if (!reply) {
            return;  // the name has no owner yet; the signal reports one
        }
        guint32 process = 0;
        g_variant_get(reply.get(), "(u)", &process);
        const bool ours = process == static_cast<guint32>(getpid());
        decide(ours ? BusName::State::kOwned : BusName::State::kTaken);
    }

    /// Asks the bus for the process that has a name, or is a connection.
    void ask(const char* owner)
    {
        ++pending_;
        g_dbus_connection_call(
            connection_.get(), kBus, kBusPath, kBus, "GetConnectionUnixProcessID", g_variant_new("(s)", owner), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, cancellable_.get(),
            [](GObject*, GAsyncResult* result, gpointer self) { static_cast<Watch*>(self)->onProcess(result); }, this);
    }

    /// Gives up what is under way and waits until nothing refers to this object any more.
    void end()
    {
        deadline_.reset();
        g_dbus_connection_signal_unsubscribe(connection_.get(), subscription_);
        g_signal_handler_disconnect(connection_.get(), closed_);
        g_cancellable_cancel(cancellable_.get());
        iterateUntil([this] { return pending_ == 0; });
    }

    const std::string name_;
    const OwnContext context_;
    const host::GlibPtr<GCancellable> cancellable_;
    host::GlibPtr<GDBusConnection> connection_;
    guint subscription_ = 0;
    gulong closed_ = 0;
    host::GlibPtr<GSource> deadline_;
    int pending_ = 0;
    bool answered_ = false;
    std::optional<BusName> outcome_;
};

}  // namespace

BusName awaitBusName(const std::string& name, std::chrono::milliseconds patience)
{
    return Watch(name).wait(patience);
}

}  // namespace runtime
