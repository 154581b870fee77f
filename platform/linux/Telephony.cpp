#include "platform/linux/Telephony.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/runtime/Report.h"

namespace unit {
namespace {

constexpr const char* kOfono = "org.ofono";
constexpr const char* kModem = "org.ofono.Modem";
constexpr const char* kVoiceCallManager = "org.ofono.VoiceCallManager";
constexpr const char* kVoiceCall = "org.ofono.VoiceCall";

/// A phone takes its time to connect.
constexpr std::chrono::seconds kOfonoDeadline{25};

constexpr std::chrono::seconds kAskAgain{1};
constexpr std::chrono::seconds kSwitchOnAgain{3};

Telephony::CallState stateOf(const std::string& state)
{
    return state == "incoming" || state == "waiting"   ? Telephony::kIncoming
           : state == "dialing" || state == "alerting" ? Telephony::kOutgoing
           : state == "active" || state == "held"      ? Telephony::kActive
                                                       : Telephony::kNoCall;
}

/// Calls `each` with the path and the properties of each object in `objects`, (a(oa{sv})).
template <class Each>
void forEachObject(GVariant* objects, Each each)
{
    GVariantIter* all = nullptr;
    g_variant_get(objects, "(a(oa{sv}))", &all);
    const char* path = nullptr;
    GVariant* properties = nullptr;
    while (g_variant_iter_loop(all, "(&o@a{sv})", &path, &properties)) {
        each(path, properties);
    }
    g_variant_iter_free(all);
}

/// Calls `each` with the name and the value of each property, a{sv}.
template <class Each>
void forEachProperty(GVariant* properties, Each each)
{
    GVariantIter all;
    g_variant_iter_init(&all, properties);
    const char* name = nullptr;
    GVariant* value = nullptr;
    while (g_variant_iter_loop(&all, "{&sv}", &name, &value)) {
        each(name, value);
    }
}

std::string textIn(GVariant* value)
{
    return g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) ? g_variant_get_string(value, nullptr) : "";
}

}  // namespace

Telephony::Telephony(Bus& systemBus, StatusBoard& board, bool serves) : bus_(systemBus), board_(board), serves_(serves)
{
    bus_.add(*this);
}

Telephony::~Telephony()
{
    bus_.remove(*this);
    leave();
}

void Telephony::leave()
{
    if (dbus_ != nullptr) {
        g_bus_unwatch_name(watch_);
        g_dbus_connection_signal_unsubscribe(dbus_, subscription_);
        dbus_ = nullptr;
    }
    forget();
}

void Telephony::forget()
{
    ++asked_;
    retry_.reset();
    switchOn_.reset();
    modems_.clear();
    calls_.clear();
    show();
}

void Telephony::onBus(GDBusConnection* connection, const std::string& reason)
{
    leave();
    if (connection == nullptr) {
        board_.set("phone", State::kAbsent, reason);
        return;
    }
    dbus_ = connection;
    subscription_ = g_dbus_connection_signal_subscribe(
        connection, kOfono, nullptr, nullptr, nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar* path, const gchar* interface, const gchar* signal,
           GVariant* arguments,
           gpointer self) { static_cast<Telephony*>(self)->onSignal(path, interface, signal, arguments); },
        this, nullptr);
    watch_ = g_bus_watch_name_on_connection(
        connection, kOfono, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const gchar*, const gchar*, gpointer self) { static_cast<Telephony*>(self)->ask(); },
        [](GDBusConnection*, const gchar*, gpointer self) {
            static_cast<Telephony*>(self)->forget();
            static_cast<Telephony*>(self)->board_.set("phone", State::kAbsent, std::string(kOfono) + " is not running");
        },
        this, nullptr);
}

void Telephony::callModem(const std::string& path, const std::string& interface, const std::string& method,
                          GVariant* arguments, BusObject::Done done)
{
    callService(bus_.loop(), dbus_, {kOfono, path, interface}, method, arguments, kOfonoDeadline, std::move(done));
}

void Telephony::ask()
{
    callModem("/", "org.ofono.Manager", "GetModems", nullptr,
              [this, number = asked_](GVariant* result, const std::string& error) {
                  if (number != asked_) {
                      return;
                  }
                  if (result == nullptr || !g_variant_is_of_type(result, G_VARIANT_TYPE("(a(oa{sv}))"))) {
                      board_.set(
                          "phone", State::kAbsent,
                          std::string(kOfono) + ": " + (error.empty() ? "expected modems, got another answer" : error));
                      retry_ = bus_.loop().after(kAskAgain, [this] { ask(); });
                      return;
                  }
                  forEachObject(result, [this](const char* path, GVariant* each) { readModem(path, each); });
                  board_.set("phone", State::kUp);
              });
}

void Telephony::onSignal(const std::string& path, const std::string& interface, const std::string& signal,
                         GVariant* arguments)
{
    const bool isObject = g_variant_is_of_type(arguments, G_VARIANT_TYPE("(oa{sv})"));
    const bool isPath = g_variant_is_of_type(arguments, G_VARIANT_TYPE("(o)"));
    const bool isProperty = g_variant_is_of_type(arguments, G_VARIANT_TYPE("(sv)"));
    if ((signal == "ModemAdded" || signal == "CallAdded") && isObject) {
        const char* object = nullptr;
        GVariant* properties = nullptr;
        g_variant_get(arguments, "(&o@a{sv})", &object, &properties);
        const host::GlibPtr<GVariant> owner(properties);
        signal == "ModemAdded" ? readModem(object, properties) : readCall(object, properties);
    } else if ((signal == "ModemRemoved" || signal == "CallRemoved") && isPath) {
        const char* object = nullptr;
        g_variant_get(arguments, "(&o)", &object);
        modems_.erase(object);
        calls_.erase(object);
        show();
    } else if (signal == "PropertyChanged" && isProperty) {
        const char* name = nullptr;
        GVariant* value = nullptr;
        g_variant_get(arguments, "(&sv)", &name, &value);
        const host::GlibPtr<GVariant> owner(value);
        if (interface == kModem && modems_.contains(path)) {
            setModem(path, name, value);
        } else if (interface == kVoiceCall && calls_.contains(path)) {
            setCall(path, name, value);
        }
        show();
    }
}

void Telephony::readModem(const std::string& path, GVariant* properties)
{
    modems_[path];
    forEachProperty(properties, [&](const char* name, GVariant* value) { setModem(path, name, value); });
    switchOn(path);
    show();
}

/// A phone that BlueZ has connected becomes a modem that is off. oFono refuses to switch it on as long as the phone is
/// still connecting.
void Telephony::switchOn(const std::string& path)
{
    if (!serves_ || !modems_.contains(path) || modems_[path].powered) {
        return;
    }
    callModem(path, kModem, "SetProperty", g_variant_new("(sv)", "Powered", g_variant_new_boolean(TRUE)),
              [this, path, number = asked_](GVariant* result, const std::string& error) {
                  if (number != asked_ || result != nullptr || !modems_.contains(path)) {
                      return;
                  }
                  if (std::exchange(modems_[path].refusal, error) != error) {
                      runtime::report(path + ": the modem is not switched on: " + error);
                  }
                  switchOn_ = bus_.loop().after(kSwitchOnAgain, [this] {
                      std::vector<std::string> paths;
                      std::ranges::transform(modems_, std::back_inserter(paths),
                                             [](const auto& each) { return each.first; });
                      std::ranges::for_each(paths, [this](const std::string& each) { switchOn(each); });
                  });
              });
}

void Telephony::setModem(const std::string& path, const std::string& name, GVariant* value)
{
    Modem& modem = modems_[path];
    if (name == "Name") {
        modem.name = textIn(value);
    } else if (name == "Powered") {
        modem.powered = g_variant_is_of_type(value, G_VARIANT_TYPE_BOOLEAN) && g_variant_get_boolean(value);
    } else if (name == "Interfaces" && g_variant_is_of_type(value, G_VARIANT_TYPE_STRING_ARRAY)) {
        const gchar** const all = g_variant_get_strv(value, nullptr);
        const bool could = std::exchange(modem.canCall, g_strv_contains(all, kVoiceCallManager));
        g_free(all);
        if (modem.canCall && !could) {
            callModem(path, kVoiceCallManager, "GetCalls", nullptr,
                      [this, number = asked_](GVariant* result, const std::string&) {
                          if (number == asked_ && result != nullptr &&
                              g_variant_is_of_type(result, G_VARIANT_TYPE("(a(oa{sv}))"))) {
                              forEachObject(result, [this](const char* call, GVariant* each) { readCall(call, each); });
                          }
                      });
        }
    }
    show();
}

void Telephony::readCall(const std::string& path, GVariant* properties)
{
    calls_[path];
    forEachProperty(properties, [&](const char* name, GVariant* value) { setCall(path, name, value); });
    show();
}

void Telephony::setCall(const std::string& path, const std::string& name, GVariant* value)
{
    Call& call = calls_[path];
    if (name == "State") {
        call.state = textIn(value);
    } else if (name == "LineIdentification") {
        call.number = textIn(value);
    }
}

void Telephony::show()
{
    const auto modem = std::ranges::find_if(modems_, [](const auto& each) { return each.second.canCall; });
    KYRTypeCallInfo first;
    for (const CallState wanted : {kIncoming, kActive, kOutgoing}) {
        const auto call =
            std::ranges::find_if(calls_, [&](const auto& each) { return stateOf(each.second.state) == wanted; });
        if (call != calls_.end()) {
            first = {static_cast<KYRBtType::CallState>(wanted), call->second.number};
            break;
        }
    }
    const std::lock_guard lock(mutex_);
    connection_ = modem == modems_.end() ? KYRBtConnectionState{} : KYRBtConnectionState{1, modem->second.name};
    call_ = first;
}

void Telephony::accept()
{
    bus_.loop().post([this] {
        const auto call =
            std::ranges::find_if(calls_, [](const auto& each) { return stateOf(each.second.state) == kIncoming; });
        if (call != calls_.end()) {
            callModem(call->first, kVoiceCall, "Answer", nullptr);
        }
    });
}

void Telephony::terminate()
{
    bus_.loop().post([this] {
        for (const auto& [path, call] : calls_) {
            if (stateOf(call.state) != kNoCall) {
                callModem(path, kVoiceCall, "Hangup", nullptr);
            }
        }
    });
}

KYRBtConnectionState Telephony::connection() const
{
    const std::lock_guard lock(mutex_);
    return connection_;
}

KYRTypeCallInfo Telephony::call() const
{
    const std::lock_guard lock(mutex_);
    return call_;
}

}  // namespace unit
