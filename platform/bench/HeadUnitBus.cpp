#include "platform/bench/HeadUnitBus.h"

#include <chrono>
#include <exception>
#include <future>
#include <limits>
#include <mutex>
#include <thread>

#include "headunit_dbus.h"
#include "host/Glib.h"
#include "platform/bench/JsonText.h"
#include "platform/bench/SignalOutbox.h"
#include "platform/runtime/Report.h"
#include "protocol/Text.h"

namespace bench {
namespace {

constexpr const char* kBusName = "com.zent.linux.headunit";
constexpr const char* kObjectPath = "/com/zent/linux/headunit";
constexpr const char* kErrorPrefix = "com.zent.linux.headunit.Error.";
constexpr std::chrono::seconds kStartTimeout{3};
constexpr std::chrono::milliseconds kCloseTimeout{500};

// Numbers of the bus daemon: own the name alone, or not at all.
constexpr guint32 kDoNotQueue = 4;
constexpr guint32 kPrimaryOwner = 1;

const char* nameOf(StateError::Kind kind)
{
    return kind == StateError::Kind::kUnknownPath ? "UnknownPath" : "InvalidValue";
}

const char* nameOf(EventError::Kind kind)
{
    switch (kind) {
        case EventError::Kind::kUnknownEvent:
            return "UnknownEvent";
        case EventError::Kind::kInvalidArguments:
            return "InvalidArguments";
        case EventError::Kind::kNoStartAction:
            return "NoStartAction";
    }
    return "InvalidArguments";
}

/// A method call that needs an answer, from any thread. At the end, a call without an answer gets an error.
class PendingCall
{
public:
    explicit PendingCall(GDBusMethodInvocation* invocation) : invocation_(invocation) {}
    ~PendingCall()
    {
        if (invocation_ != nullptr) {
            refuseAs("org.freedesktop.DBus.Error.Failed", "the head unit has stopped, or a listener has failed");
        }
    }
    PendingCall(const PendingCall&) = delete;
    PendingCall& operator=(const PendingCall&) = delete;

    /// @param result floating tuple of results; null if there are none
    void answer(GVariant* result)
    {
        g_dbus_method_invocation_return_value(std::exchange(invocation_, nullptr), result);
    }

    void answer(const std::string& text) { answer(g_variant_new("(s)", text.c_str())); }

    template <class Refusal>
    void refuse(const Refusal& refusal)
    {
        refuseAs(std::string(kErrorPrefix) + nameOf(refusal.kind()), refusal.what());
    }

private:
    void refuseAs(const std::string& name, const char* message)
    {
        const host::GlibPtr<char> valid(g_utf8_make_valid(message, -1));
        g_dbus_method_invocation_return_dbus_error(std::exchange(invocation_, nullptr), name.c_str(), valid.get());
    }

    GDBusMethodInvocation* invocation_;
};

/// Handles a method call. An exception becomes the answer, since none may leave a C callback.
template <class Action>
gboolean answering(GDBusMethodInvocation* invocation, Action action)
{
    const auto call = std::make_shared<PendingCall>(invocation);
    try {
        action(call);
    } catch (const StateError& error) {
        call->refuse(error);
    } catch (const EventError& error) {
        call->refuse(error);
    } catch (const std::exception& error) {
        runtime::report(std::string("the head unit's bus: ") + error.what());
    } catch (...) {
        runtime::report("the head unit's bus: not a std::exception");
    }
    return TRUE;
}

nlohmann::json parseValue(const char* text)
{
    try {
        return parseJson(text);
    } catch (const JsonError& error) {
        throw StateError(StateError::Kind::kInvalidValue, std::string("the value is ") + error.what());
    }
}

nlohmann::json parseArguments(const char* text)
{
    try {
        return parseJson(text);
    } catch (const JsonError& error) {
        throw EventError(EventError::Kind::kInvalidArguments, std::string("the arguments are ") + error.what());
    }
}

}  // namespace

/// One connection from start to stop. Members without a comment belong to the thread of the session.
class HeadUnitBus::Session
{
public:
    Session(HeadUnit& unit, const std::function<void()>& powerCycle)
        : unit_(unit), powerCycle_(powerCycle), cancellable_(g_cancellable_new()), context_(g_main_context_new())
    {
    }

    ~Session() { stop(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    bool start(std::string& error)
    {
        std::promise<std::string> outcome;
        auto result = outcome.get_future();
        thread_ = std::thread([this, given = std::move(outcome)]() mutable { run(std::move(given)); });
        if (result.wait_for(kStartTimeout) == std::future_status::timeout) {
            g_cancellable_cancel(cancellable_.get());
        }
        error = result.get();
        return error.empty();
    }

    void stop()
    {
        if (!thread_.joinable()) {
            return;
        }
        attach([](gpointer self) -> gboolean {
            static_cast<Session*>(self)->stopped_ = true;
            return G_SOURCE_REMOVE;
        });
        g_cancellable_cancel(cancellable_.get());  // it may be connecting again
        thread_.join();
    }

private:
    /// Belongs to the observers too: they may run after the session has ended.
    struct Outbox {
        std::mutex mutex;
        Session* session = nullptr;  // null: the session has ended; guarded by mutex
        SignalOutbox signals;        // guarded by mutex
        bool scheduled = false;      // whether the session will send; guarded by mutex

        void push(OutgoingSignal signal)
        {
            const std::lock_guard lock(mutex);
            if (session == nullptr) {
                return;
            }
            signals.push(std::move(signal));
            if (std::exchange(scheduled, true)) {
                return;
            }
            // With the lock, so that the session exists; attaching only wakes its thread.
            session->attach([](gpointer self) -> gboolean {
                static_cast<Session*>(self)->sendSignals();
                return G_SOURCE_REMOVE;
            });
        }
    };

    /// Runs `step` on the thread of the session. Any thread.
    void attach(GSourceFunc step)
    {
        GSource* const source = g_idle_source_new();
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        g_source_set_callback(source, step, this, nullptr);
        g_source_attach(source, context_.get());
        g_source_unref(source);
    }

    void run(std::promise<std::string> outcome)
    {
        g_main_context_push_thread_default(context_.get());
        const std::string error = open();
        if (error.empty()) {
            observe();
        }
        outcome.set_value(error);
        while (error.empty() && !stopped_) {
            g_main_context_iteration(context_.get(), TRUE);
            if (std::exchange(lost_, false)) {
                reopen();
            }
        }
        unobserve();
        close();
        g_main_context_pop_thread_default(context_.get());
    }

    /// @returns why the interface is not exported; empty if it is.
    std::string open()
    {
        host::GlibError error;
        connection_ = host::connectToBus(cancellable_.get(), error);
        if (!connection_) {
            return "no session bus: " + protocol::printable(error.message());
        }
        g_signal_connect(connection_.get(), "closed",
                         G_CALLBACK(+[](GDBusConnection*, gboolean, GError*, gpointer self) {
                             static_cast<Session*>(self)->lost_ = true;
                         }),
                         this);
        if (!offerObject(error)) {
            return "the head unit cannot be offered on the session bus: " + protocol::printable(error.message());
        }
        return ownName();
    }

    /// Connects again: GDBus closes a connection after a message that it cannot decode.
    void reopen()
    {
        close();  // GDBus keeps the socket, so the bus keeps the name
        closed_ = false;
        connection_.reset();
        const std::string error = open();
        if (error.empty()) {
            runtime::report(std::string("lost the session bus, connected again as ") + kBusName);
        } else {
            unobserve();
            runtime::report(std::string("the session bus is gone, and ") + kBusName + " with it: " + error);
        }
    }

    bool offerObject(host::GlibError& error)
    {
        object_.reset(com_zent_linux_headunit_skeleton_new());
        const auto handle = [this](const char* method, GCallback handler) {
            g_signal_connect(object_.get(), method, handler, this);
        };
        handle("handle-get-state", G_CALLBACK(onGetState));
        handle("handle-set-state", G_CALLBACK(onSetState));
        handle("handle-raise-event", G_CALLBACK(onRaiseEvent));
        handle("handle-start-module", G_CALLBACK(onStartModule));
        handle("handle-get-calls", G_CALLBACK(onGetCalls));
        handle("handle-clear-calls", G_CALLBACK(onClearCalls));
        handle("handle-power-cycle", G_CALLBACK(onPowerCycle));
        return g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(object_.get()), connection_.get(),
                                                kObjectPath, error.out()) != FALSE;
    }

    std::string ownName()
    {
        host::GlibError error;
        const host::GlibPtr<GVariant> reply(g_dbus_connection_call_sync(
            connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
            g_variant_new("(su)", kBusName, kDoNotQueue), G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE,
            static_cast<gint>(std::chrono::milliseconds(kStartTimeout).count()), cancellable_.get(), error.out()));
        if (!reply) {
            return std::string("the bus name ") + kBusName + " cannot be had: " + protocol::printable(error.message());
        }
        guint32 result = 0;
        g_variant_get(reply.get(), "(u)", &result);
        if (result != kPrimaryOwner) {
            return std::string("the bus name ") + kBusName + " is taken by another process";
        }
        return "";
    }

    void observe()
    {
        outbox_ = std::make_shared<Outbox>();
        outbox_->session = this;
        changeObserver_ = unit_.state().changes().add([outbox = outbox_](const StateChange& change) {
            outbox->push({"StateChanged", change.path, toText(change.value)});
        });
        callObserver_ = unit_.calls().additions().add([outbox = outbox_](const Call& call) {
            outbox->push({"Called", "", toText(toJson(call))});
        });
    }

    void unobserve()
    {
        if (!outbox_) {
            return;
        }
        unit_.state().changes().remove(changeObserver_);
        unit_.calls().additions().remove(callObserver_);
        const std::lock_guard lock(outbox_->mutex);
        outbox_->session = nullptr;
    }

    /// Sends one batch of signals, and the next after the bus has read it: the queue of GDBus has no limit.
    void sendSignals()
    {
        constexpr int kBatch = 64;
        if (flushing_ || !connection_) {
            return;
        }
        for (int count = 0; count < kBatch; ++count) {
            const auto signal = nextSignal();
            if (!signal) {
                break;
            }
            emit(*signal);
            flushing_ = true;
        }
        if (flushing_) {
            g_dbus_connection_flush(connection_.get(), nullptr, onFlushed, this);
        }
    }

    std::optional<OutgoingSignal> nextSignal()
    {
        const std::lock_guard lock(outbox_->mutex);
        auto signal = outbox_->signals.take();
        outbox_->scheduled = signal.has_value();
        return signal;
    }

    void emit(const OutgoingSignal& signal)
    {
        GVariant* const arguments = signal.name == "Called"
                                        ? g_variant_new("(s)", signal.json.c_str())
                                        : g_variant_new("(ss)", signal.path.c_str(), signal.json.c_str());
        g_dbus_connection_emit_signal(connection_.get(), nullptr, kObjectPath, kBusName, signal.name.c_str(), arguments,
                                      nullptr);
    }

    static void onFlushed(GObject* connection, GAsyncResult* result, gpointer data)
    {
        auto* const self = static_cast<Session*>(data);
        g_dbus_connection_flush_finish(G_DBUS_CONNECTION(connection), result, nullptr);
        self->flushing_ = false;
        if (!self->stopped_) {
            self->sendSignals();
        }
    }

    /// Closes the connection, which releases the name. Waits for that for a limited time.
    void close()
    {
        if (!connection_) {
            return;
        }
        g_signal_handlers_disconnect_by_data(connection_.get(), this);
        if (object_) {
            g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(object_.get()));
            g_signal_handlers_disconnect_by_data(object_.get(), this);
        }
        g_dbus_connection_close(connection_.get(), nullptr, onClosed, this);
        const host::GlibPtr<GSource> timeout(g_timeout_source_new(static_cast<guint>(kCloseTimeout.count())));
        bool late = false;
        g_source_set_callback(
            timeout.get(),
            [](gpointer flag) -> gboolean {
                *static_cast<bool*>(flag) = true;
                return G_SOURCE_REMOVE;
            },
            &late, nullptr);
        g_source_attach(timeout.get(), context_.get());
        while ((!closed_ || flushing_) && !late) {
            g_main_context_iteration(context_.get(), TRUE);
        }
    }

    static void onClosed(GObject* connection, GAsyncResult* result, gpointer data)
    {
        g_dbus_connection_close_finish(G_DBUS_CONNECTION(connection), result, nullptr);
        static_cast<Session*>(data)->closed_ = true;
    }

    static gboolean onGetState(ComZentLinuxHeadunit*, GDBusMethodInvocation* invocation, const char* path,
                               gpointer data)
    {
        return answering(invocation, [&](const auto& call) {
            call->answer(toText(static_cast<Session*>(data)->unit_.state().get(path)));
        });
    }

    static gboolean onSetState(ComZentLinuxHeadunit*, GDBusMethodInvocation* invocation, const char* path,
                               const char* json, gpointer data)
    {
        return answering(invocation, [&](const auto& call) {
            static_cast<Session*>(data)->unit_.state().set(path, parseValue(json));
            call->answer(nullptr);
        });
    }

    static gboolean onRaiseEvent(ComZentLinuxHeadunit*, GDBusMethodInvocation* invocation, const char* name,
                                 const char* json, gpointer data)
    {
        return answering(invocation, [&](const auto& call) {
            static_cast<Session*>(data)->unit_.raise(name, parseArguments(json), [call] { call->answer(nullptr); });
        });
    }

    static gboolean onStartModule(ComZentLinuxHeadunit*, GDBusMethodInvocation* invocation, guint module, gpointer data)
    {
        return answering(invocation, [&](const auto& call) {
            // The action may take long and must not block this thread.
            HeadUnit& unit = static_cast<Session*>(data)->unit_;
            unit.events().post([call, &unit, module] {
                try {
                    call->answer(g_variant_new("(i)", unit.startModule(moduleNumber(module))));
                } catch (const EventError& error) {
                    call->refuse(error);
                }
            });
        });
    }

    static gboolean onGetCalls(ComZentLinuxHeadunit*, GDBusMethodInvocation* invocation, gpointer data)
    {
        return answering(invocation, [&](const auto& call) {
            auto record = nlohmann::ordered_json::array();
            for (const Call& each : static_cast<Session*>(data)->unit_.calls().list()) {
                record.push_back(toJson(each));
            }
            call->answer(toText(record));
        });
    }

    static gboolean onClearCalls(ComZentLinuxHeadunit*, GDBusMethodInvocation* invocation, gpointer data)
    {
        return answering(invocation, [&](const auto& call) {
            static_cast<Session*>(data)->unit_.calls().clear();
            call->answer(nullptr);
        });
    }

    static gboolean onPowerCycle(ComZentLinuxHeadunit*, GDBusMethodInvocation* invocation, gpointer data)
    {
        return answering(invocation, [&](const auto& call) {
            const auto* const self = static_cast<Session*>(data);
            call->answer(nullptr);
            // The connection ends with the process.
            g_dbus_connection_flush_sync(self->connection_.get(), self->cancellable_.get(), nullptr);
            self->powerCycle_();
        });
    }

    static int moduleNumber(guint module)
    {
        if (module > static_cast<guint>(std::numeric_limits<int>::max())) {
            throw EventError(EventError::Kind::kNoStartAction,
                             "module " + std::to_string(module) + ": the service has registered no start action");
        }
        return static_cast<int>(module);
    }

    HeadUnit& unit_;
    const std::function<void()>& powerCycle_;
    const host::GlibPtr<GCancellable> cancellable_;  // any thread
    const host::GlibPtr<GMainContext> context_;      // any thread
    std::thread thread_;                             // of whoever starts and stops
    host::GlibPtr<GDBusConnection> connection_;
    host::GlibPtr<ComZentLinuxHeadunit> object_;
    std::shared_ptr<Outbox> outbox_;
    int changeObserver_ = 0;
    int callObserver_ = 0;
    bool stopped_ = false;
    bool lost_ = false;  // the other side has closed the connection
    bool flushing_ = false;
    bool closed_ = false;
};

HeadUnitBus::HeadUnitBus(HeadUnit& unit, std::function<void()> powerCycle)
    : unit_(unit), powerCycle_(std::move(powerCycle))
{
}

HeadUnitBus::~HeadUnitBus()
{
    stop();
}

bool HeadUnitBus::start(std::string& error)
{
    auto session = std::make_unique<Session>(unit_, powerCycle_);
    if (!session->start(error)) {
        return false;
    }
    session_ = std::move(session);
    return true;
}

void HeadUnitBus::stop()
{
    session_.reset();
}

}  // namespace bench
