#include "platform/bench/Events.h"

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>
#include <iterator>
#include <limits>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/bench/FakeContext.h"
#include "platform/bench/JsonText.h"
#include "platform/runtime/BluetoothClients.h"
#include "platform/runtime/Listeners.h"
#include "protocol/Text.h"

namespace bench {
namespace {

using nlohmann::json;

constexpr std::size_t kMostSatellites = std::size(_GpsSatelliteData{}.nNumber);

/// What an argument of an event may be.
enum class ArgumentType {
    kInt,       ///< 32 bits and a sign
    kUnsigned,  ///< 32 bits
    kByte,      ///< 0 to 255
    kText,
    kSatellites,  ///< array of at most 20 arrays of two integers: number and signal
};
using enum ArgumentType;

struct EventArgument {
    const char* name;  ///< null: no argument
    ArgumentType type;
    bool required = true;
};

/// One listener operation.
struct Event {
    const char* name;
    std::array<EventArgument, 4> slots;
    /// Calls the operation on every listener, with checked arguments. Listener thread.
    void (*deliver)(const Event& event, Services& services, const json& arguments);

    std::span<const EventArgument> arguments() const
    {
        const auto end = std::ranges::find(slots, nullptr, &EventArgument::name);
        return {slots.begin(), end};
    }
};

template <class Value>
constexpr ArgumentType argumentType()
{
    if constexpr (std::is_same_v<Value, std::string>) {
        return kText;
    } else {
        static_assert(sizeof(Value) == sizeof(int));
        return std::is_same_v<Value, unsigned int> ? kUnsigned : kInt;
    }
}

/// The number of an enumeration may be outside of its values.
template <class Value>
Value valueOf(const json& value)
{
    if constexpr (std::is_enum_v<Value>) {
        return static_cast<Value>(value.get<int>());
    } else {
        return value.get<Value>();
    }
}

template <class Listener, class Registry>
void tellAll(Registry& registry, const std::function<void(Listener&)>& tell)
{
    if constexpr (std::is_same_v<Registry, FakeBluetooth>) {
        runtime::tellBluetoothClients(tell);
    } else {
        runtime::tellListeners(registry, tell);
    }
}

/// An event whose arguments are the parameters of the operation, in their order.
template <auto kService, auto kOperation>
struct Operation;

template <auto kService, class Listener, class... Parameters, void (Listener::*kOperation)(Parameters...)>
struct Operation<kService, kOperation> {
    static constexpr Event event(const char* name, std::convertible_to<const char*> auto... names)
    {
        static_assert(sizeof...(names) == sizeof...(Parameters));
        return {name, {EventArgument{names, argumentType<std::remove_cvref_t<Parameters>>()}...}, deliver};
    }

    static void deliver(const Event& event, Services& services, const json& arguments)
    {
        deliverFrom(event, services, arguments, std::index_sequence_for<Parameters...>());
    }

    template <std::size_t... kPlaces>
    static void deliverFrom(const Event& event, Services& services, [[maybe_unused]] const json& arguments,
                            std::index_sequence<kPlaces...>)
    {
        tellAll<Listener>(services.*kService, [&](Listener& listener) {
            (listener.*
             kOperation)(valueOf<std::remove_cvref_t<Parameters>>(arguments.at(event.slots[kPlaces].name))...);
        });
    }
};

_GpsSatelliteData satellitesOf(const json& arguments)
{
    const json& rows = arguments.at("satellites");
    _GpsSatelliteData data{};
    data.nCount = arguments.value("count", static_cast<int>(rows.size()));
    for (std::size_t row = 0; row < rows.size(); ++row) {
        data.nNumber[row] = rows[row][0].get<int>();
        data.nSignal[row] = rows[row][1].get<int>();
    }
    return data;
}

constexpr Event kEvents[] = {
    {"OnModuleStatusChanged",
     {{{"module", kInt}}},
     [](const Event&, Services& services, const json& arguments) {
         services.appManager.bringUp(arguments.at("module").get<int>());
     }},
    Operation<&Services::systemMisc, &IKYRSystemMiscListener::OnCarSpeedChange>::event("OnCarSpeedChange", "speed"),
    Operation<&Services::systemMisc, &IKYRSystemMiscListener::OnRadioAntStateChange>::event("OnRadioAntStateChange",
                                                                                            "state"),
    Operation<&Services::systemMisc, &IKYRSystemMiscListener::OnGpsAntStateChange>::event("OnGpsAntStateChange",
                                                                                          "state"),
    Operation<&Services::bluetooth, &IKYRBtComListener::OnOpenBtStatusChanged>::event("OnOpenBtStatusChanged",
                                                                                      "status"),
    Operation<&Services::bluetooth, &IKYRBtComListener::OnDeletePairStatusChanged>::event("OnDeletePairStatusChanged",
                                                                                          "status"),
    Operation<&Services::bluetooth, &IKYRBtComListener::OnAnswerPairRequest>::event("OnAnswerPairRequest", "address",
                                                                                    "name", "type", "state"),
    Operation<&Services::tuner, &IKYRRadioListener::OnFrequencyChanged>::event("OnFrequencyChanged", "band", "value",
                                                                               "frequency"),
    Operation<&Services::tuner, &IKYRRadioListener::OnTAChanged>::event("OnTAChanged", "freq", "active"),
    Operation<&Services::audio, &IKYRAudioListener::OnAudioMuteStateChanged>::event("OnAudioMuteStateChanged", "state",
                                                                                    "channel"),
    Operation<&Services::carPlay, &IKYRCarPlayListener::OnStatusChange>::event("OnStatusChange", "status"),
    {"OnConnectionStatusChanged",
     {{{"status", kInt}}},
     [](const Event&, Services& services, const json& arguments) {
         KYRDeviceApp::_ConnectionInfo info{};
         info.status = arguments.at("status").get<int>();
         runtime::tellListeners(services.deviceApp, [&](auto& listener) { listener.OnConnectionStatusChanged(info); });
     }},
    {"OnAASatinfoChange",
     {{{"satellites", kSatellites}, {"count", kInt, false}}},
     [](const Event&, Services& services, const json& arguments) {
         const auto data = satellitesOf(arguments);
         runtime::tellListeners(services.location, [&](auto& listener) { listener.OnAASatinfoChange(data); });
     }},
    {"OnAALocationChange",
     {{{"latitude", kInt}, {"longitude", kInt}}},
     [](const Event&, Services& services, const json& arguments) {
         _LocationData data{};
         data.nLatitude = arguments.at("latitude").get<int>();
         data.nLongitude = arguments.at("longitude").get<int>();
         runtime::tellListeners(services.location, [&](auto& listener) { listener.OnAALocationChange(data); });
     }},
    {"OnLCarInfoChange",
     {{{"value", kByte}}},
     [](const Event&, Services& services, const json& arguments) {
         _LCarInfo info{};
         info.ucValue = arguments.at("value").get<unsigned char>();
         runtime::tellListeners(services.systemMisc, [&](auto& listener) { listener.OnLCarInfoChange(info); });
     }},
    Operation<&Services::sourceManager, &IKYRSourceListener::OnSourceStatusChanged>::event("OnSourceStatusChanged",
                                                                                           "source", "status"),
    Operation<&Services::u6Persist, &IKYRU6PersistListener::OnU6PersistDataChange>::event("OnU6PersistDataChange",
                                                                                          "module", "value"),
    Operation<&Services::u6Persist, &IKYRU6PersistListener::OnU6PersistFactoryResetMode>::event(
        "OnU6PersistFactoryResetMode"),
    Operation<&Services::u6Persist, &IKYRU6PersistListener::OnU6PersistAutoFactoryResetMode>::event(
        "OnU6PersistAutoFactoryResetMode"),
    Operation<&Services::systemMisc, &IKYRSystemMiscListener::OnFactoryResetMode>::event("OnFactoryResetMode"),
};

bool isIntegerBetween(const json& value, std::int64_t least, std::int64_t most)
{
    if (value.is_number_unsigned()) {
        return value.get<std::uint64_t>() <= static_cast<std::uint64_t>(most);
    }
    return value.is_number_integer() && value.get<std::int64_t>() >= least && value.get<std::int64_t>() <= most;
}

bool isIntArgument(const json& value)
{
    using Limits = std::numeric_limits<std::int32_t>;
    return isIntegerBetween(value, Limits::min(), Limits::max());
}

bool isSatellite(const json& value)
{
    return value.is_array() && value.size() == 2 && isIntArgument(value[0]) && isIntArgument(value[1]);
}

bool fits(ArgumentType type, const json& value)
{
    switch (type) {
        case kInt:
            return isIntArgument(value);
        case kUnsigned:
            return isIntegerBetween(value, 0, std::numeric_limits<std::uint32_t>::max());
        case kByte:
            return isIntegerBetween(value, 0, 255);
        case kText:
            return value.is_string();
        case kSatellites:
            return value.is_array() && value.size() <= kMostSatellites && std::ranges::all_of(value, isSatellite);
    }
    return false;
}

const char* wanted(ArgumentType type)
{
    switch (type) {
        case kInt:
            return "an integer from -2147483648 to 2147483647";
        case kUnsigned:
            return "an integer from 0 to 4294967295";
        case kByte:
            return "an integer from 0 to 255";
        case kText:
            return "a text";
        case kSatellites:
            return "an array of at most 20 arrays [number, signal]";
    }
    return "something else";
}

std::string listOfArguments(const Event& event)
{
    if (event.arguments().empty()) {
        return "none";
    }
    std::string list;
    for (const EventArgument& argument : event.arguments()) {
        list += list.empty() ? "" : ", ";
        list += argument.required ? argument.name : "[" + std::string(argument.name) + "]";
    }
    return list;
}

[[noreturn]] void refuse(const Event& event, const std::string& why)
{
    throw EventError(
        EventError::Kind::kInvalidArguments,
        protocol::printable(std::string(event.name) + ": " + why + " (arguments: " + listOfArguments(event) + ")"));
}

void checkArguments(const Event& event, const json& arguments)
{
    const auto taken = event.arguments();
    if (!arguments.is_object()) {
        refuse(event, "expected an object of arguments");
    }
    for (const auto& [name, value] : arguments.items()) {
        if (std::ranges::find(taken, name, &EventArgument::name) == taken.end()) {
            refuse(event, "unknown argument '" + name + "'");
        }
    }
    for (const EventArgument& argument : taken) {
        const auto value = arguments.find(argument.name);
        if (value == arguments.end() && argument.required) {
            refuse(event, std::string(argument.name) + ": expected " + wanted(argument.type) + ", got none");
        }
        if (value != arguments.end() && !fits(argument.type, *value)) {
            refuse(event,
                   std::string(argument.name) + ": expected " + wanted(argument.type) + ", got " + value->dump());
        }
    }
}

const Event& findEvent(const std::string& name)
{
    const auto event = std::ranges::find_if(kEvents, [&name](const Event& each) { return name == each.name; });
    if (event != std::end(kEvents)) {
        return *event;
    }
    std::string list;
    std::vector<std::string_view> names;
    for (const Event& each : kEvents) {
        names.emplace_back(each.name);
        list += (list.empty() ? "" : ", ") + std::string(each.name);
    }
    const std::string suggestion = protocol::didYouMean(name, names);
    throw EventError(EventError::Kind::kUnknownEvent,
                     protocol::printable("unknown event " + protocol::inQuotes(name) +
                                         (suggestion.empty() ? "; expected one of " + list : suggestion)));
}

}  // namespace

std::vector<std::string> eventNames()
{
    std::vector<std::string> names;
    std::ranges::transform(kEvents, std::back_inserter(names), &Event::name);
    return names;
}

std::function<void()> makeEvent(Services& services, const std::string& name, const json& arguments)
{
    const Event& event = findEvent(name);
    checkArguments(event, arguments);
    return [&services, &event, arguments] { event.deliver(event, services, arguments); };
}

}  // namespace bench
