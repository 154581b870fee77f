#include "platform/runtime/BusName.h"

#include <gio/gio.h>
#include <unistd.h>

#include <memory>
#include <optional>

namespace runtime {
namespace {

constexpr const char* kBus = "org.freedesktop.DBus";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

template <class Object>
struct Unref {
    void operator()(Object* object) const { g_object_unref(object); }
};
template <class Object>
using Ref = std::unique_ptr<Object, Unref<Object>>;

struct FreeError {
    void operator()(GError* error) const { g_error_free(error); }
};
using Error = std::unique_ptr<GError, FreeError>;

struct FreeText {
    void operator()(char* text) const { g_free(text); }
};
using Text = std::unique_ptr<char, FreeText>;

struct UnrefVariant {
    void operator()(GVariant* value) const { g_variant_unref(value); }
};
using Value = std::unique_ptr<GVariant, UnrefVariant>;

/// A main context that is this thread's default for as long as the object lives.
class OwnContext
{
public:
    OwnContext() : context_(g_main_context_new()) { g_main_context_push_thread_default(context_); }
    ~OwnContext()
    {
        g_main_context_pop_thread_default(context_);
        g_main_context_unref(context_);
    }
    OwnContext(const OwnContext&) = delete;
    OwnContext& operator=(const OwnContext&) = delete;

    GMainContext* get() const { return context_; }

private:
    GMainContext* const context_;
};

/// One look at the bus; everything runs on the thread that calls wait().
class Watch
{
public:
    explicit Watch(const std::string& name) : name_(name), cancellable_(g_cancellable_new()) {}

    BusName wait(std::chrono::milliseconds patience)
    {
        startDeadline(patience);
        connect();
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
        deadline_ = g_timeout_source_new(static_cast<guint>(patience.count()));
        g_source_set_callback(
            deadline_,
            [](gpointer self) -> gboolean {
                static_cast<Watch*>(self)->onDeadline();
                return G_SOURCE_REMOVE;
            },
            this, nullptr);
        g_source_attach(deadline_, context_.get());
    }

    void onDeadline()
    {
        if (answered_) {
            decide(BusName::State::kLate);
        } else {
            decide(BusName::State::kNoBus, "the session bus does not answer");
        }
    }

    void decide(BusName::State state, const std::string& reason = "")
    {
        if (!outcome_) {
            outcome_ = BusName{state, reason};
        }
    }

    void connect()
    {
        GError* error = nullptr;
        const Text address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, nullptr, &error));
        if (!address) {
            decide(BusName::State::kNoBus, Error(error)->message);
            return;
        }
        // A connection of its own, which closes when nobody needs it and ends no process when the bus goes.
        constexpr auto kFlags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                                  G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        begin();
        g_dbus_connection_new_for_address(
            address.get(), kFlags, nullptr, cancellable_.get(),
            [](GObject*, GAsyncResult* result, gpointer self) { static_cast<Watch*>(self)->onConnected(result); },
            this);
    }

    void onConnected(GAsyncResult* result)
    {
        --pending_;
        GError* error = nullptr;
        connection_.reset(g_dbus_connection_new_for_address_finish(result, &error));
        if (!connection_) {
            decide(BusName::State::kNoBus, Error(error)->message);
            return;
        }
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
        ask("GetConnectionUnixProcessID", name_, &Watch::onProcess);
    }

    static void onClosed(GDBusConnection*, gboolean, GError*, gpointer self)
    {
        static_cast<Watch*>(self)->decide(BusName::State::kNoBus, "the session bus has gone");
    }

    void onOwnerChanged(GVariant* arguments)
    {
        const gchar* owner = nullptr;
        g_variant_get(arguments, "(&s&s&s)", nullptr, nullptr, &owner);
        if (*owner != '\0') {
            ask("GetConnectionUnixProcessID", owner, &Watch::onProcess);
        }
    }

    void onProcess(GVariant* reply)
    {
        answered_ = true;
        if (reply == nullptr) {
            return;  // nobody has the name: the signal will tell
        }
        guint32 process = 0;
        g_variant_get(reply, "(u)", &process);
        const bool ours = process == static_cast<guint32>(getpid());
        decide(ours ? BusName::State::kOwned : BusName::State::kTaken);
    }

    using Answer = void (Watch::*)(GVariant*);
    struct Question {
        Watch& watch;
        Answer answer;
    };

    void ask(const char* method, const std::string& argument, Answer answer)
    {
        begin();
        g_dbus_connection_call(
            connection_.get(), kBus, kBusPath, kBus, method, g_variant_new("(s)", argument.c_str()), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, cancellable_.get(),
            [](GObject* connection, GAsyncResult* result, gpointer data) {
                const std::unique_ptr<Question> question(static_cast<Question*>(data));
                question->watch.onAnswer(G_DBUS_CONNECTION(connection), result, question->answer);
            },
            new Question{*this, answer});
    }

    void onAnswer(GDBusConnection* connection, GAsyncResult* result, Answer answer)
    {
        --pending_;
        GError* error = nullptr;
        const Value reply(g_dbus_connection_call_finish(connection, result, &error));
        const Error given(error);
        if (!outcome_) {
            (this->*answer)(reply.get());
        }
    }

    void begin() { ++pending_; }

    /// Gives up what is under way and waits until nothing refers to this object any more.
    void end()
    {
        g_source_destroy(deadline_);
        g_source_unref(deadline_);
        if (connection_) {
            g_dbus_connection_signal_unsubscribe(connection_.get(), subscription_);
            g_signal_handler_disconnect(connection_.get(), closed_);
        }
        g_cancellable_cancel(cancellable_.get());
        iterateUntil([this] { return pending_ == 0; });
    }

    const std::string name_;
    const OwnContext context_;
    const Ref<GCancellable> cancellable_;
    Ref<GDBusConnection> connection_;
    guint subscription_ = 0;
    gulong closed_ = 0;
    GSource* deadline_ = nullptr;
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
