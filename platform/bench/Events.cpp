#include "platform/bench/Events.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

#include "platform/bench/FakeContext.h"
#include "platform/bench/JsonText.h"
#include "protocol/Text.h"

namespace bench {
namespace {

using nlohmann::json;
using enum ArgumentType;

constexpr std::size_t kMostSatellites = std::size(_GpsSatelliteData{}.nNumber);

int intOf(const json& arguments, const char* name)
{
    return arguments.at(name).get<int>();
}

unsigned int unsignedOf(const json& arguments, const char* name)
{
    return arguments.at(name).get<unsigned int>();
}

std::string textOf(const json& arguments, const char* name)
{
    return arguments.at(name).get<std::string>();
}

/// The argument as a number of one of the platform's enumerations, in or out of its values.
template <class Enumeration>
Enumeration enumOf(const json& arguments, const char* name)
{
    static_assert(sizeof(Enumeration) == sizeof(int));
    return static_cast<Enumeration>(intOf(arguments, name));
}

_GpsSatelliteData satellitesOf(const json& arguments)
{
    const json& rows = arguments.at("satellites");
    _GpsSatelliteData data{};
    data.nCount = arguments.contains("count") ? intOf(arguments, "count") : static_cast<int>(rows.size());
    for (std::size_t row = 0; row < rows.size(); ++row) {
        data.nNumber[row] = rows[row][0].get<int>();
        data.nSignal[row] = rows[row][1].get<int>();
    }
    return data;
}

constexpr EventArgument kModule[] = {{"module", kInt}};
constexpr EventArgument kSpeed[] = {{"speed", kUnsigned}};
constexpr EventArgument kState[] = {{"state", kInt}};
constexpr EventArgument kStatus[] = {{"status", kInt}};
constexpr EventArgument kPairRequest[] = {{"address", kText}, {"name", kText}, {"type", kInt}, {"state", kInt}};
constexpr EventArgument kFrequency[] = {{"band", kInt}, {"value", kUnsigned}, {"frequency", kUnsigned}};
constexpr EventArgument kAnnouncement[] = {{"freq", kUnsigned}, {"active", kInt}};
constexpr EventArgument kMute[] = {{"state", kInt}, {"channel", kInt}};
constexpr EventArgument kSatelliteRows[] = {{"satellites", kSatellites}, {"count", kInt, false}};
constexpr EventArgument kPosition[] = {{"latitude", kInt}, {"longitude", kInt}};
constexpr EventArgument kCarInfo[] = {{"value", kByte}};
constexpr EventArgument kSource[] = {{"source", kInt}, {"status", kInt}};
constexpr EventArgument kPersistData[] = {{"module", kInt}, {"value", kUnsigned}};

constexpr auto kEvents = std::to_array<Event>({
    {"OnModuleStatusChanged", kModule,
     [](Services& services, const json& arguments) { services.appManager.bringUp(intOf(arguments, "module")); }},

    {"OnCarSpeedChange", kSpeed,
     [](Services& services, const json& arguments) {
         const auto speed = unsignedOf(arguments, "speed");
         tellListeners(services.systemMisc, [&](auto& listener) { listener.OnCarSpeedChange(speed); });
     }},

    {"OnRadioAntStateChange", kState,
     [](Services& services, const json& arguments) {
         const auto state = enumOf<SystemMisc::AntState>(arguments, "state");
         tellListeners(services.systemMisc, [&](auto& listener) { listener.OnRadioAntStateChange(state); });
     }},

    {"OnGpsAntStateChange", kState,
     [](Services& services, const json& arguments) {
         const auto state = enumOf<SystemMisc::AntState>(arguments, "state");
         tellListeners(services.systemMisc, [&](auto& listener) { listener.OnGpsAntStateChange(state); });
     }},

    {"OnOpenBtStatusChanged", kStatus,
     [](Services&, const json& arguments) {
         const auto status = enumOf<KYRBtType::PowerStatus>(arguments, "status");
         FakeBluetooth::tellClients([&](auto& listener) { listener.OnOpenBtStatusChanged(status); });
     }},

    {"OnDeletePairStatusChanged", kStatus,
     [](Services&, const json& arguments) {
         const int status = intOf(arguments, "status");
         FakeBluetooth::tellClients([&](auto& listener) { listener.OnDeletePairStatusChanged(status); });
     }},

    {"OnAnswerPairRequest", kPairRequest,
     [](Services&, const json& arguments) {
         const auto address = textOf(arguments, "address");
         const auto name = textOf(arguments, "name");
         const int type = intOf(arguments, "type");
         const auto state = enumOf<KYRBtType::PairRequestState>(arguments, "state");
         FakeBluetooth::tellClients([&](auto& listener) { listener.OnAnswerPairRequest(address, name, type, state); });
     }},

    {"OnFrequencyChanged", kFrequency,
     [](Services& services, const json& arguments) {
         const auto band = enumOf<KYRTuner::BandID>(arguments, "band");
         const auto value = unsignedOf(arguments, "value");
         const auto frequency = unsignedOf(arguments, "frequency");
         tellListeners(services.tuner, [&](auto& listener) { listener.OnFrequencyChanged(band, value, frequency); });
     }},

    {"OnTAChanged", kAnnouncement,
     [](Services& services, const json& arguments) {
         const auto frequency = unsignedOf(arguments, "freq");
         const int active = intOf(arguments, "active");
         tellListeners(services.tuner, [&](auto& listener) { listener.OnTAChanged(frequency, active); });
     }},

    {"OnAudioMuteStateChanged", kMute,
     [](Services& services, const json& arguments) {
         const auto state = enumOf<KYRAudio::MuteState>(arguments, "state");
         const auto channel = enumOf<KYRAudio::AudioChannel>(arguments, "channel");
         tellListeners(services.audio, [&](auto& listener) { listener.OnAudioMuteStateChanged(state, channel); });
     }},

    {"OnStatusChange", kStatus,
     [](Services& services, const json& arguments) {
         const auto status = enumOf<KYRCarPlay::CarPlayConnectStatus>(arguments, "status");
         tellListeners(services.carPlay, [&](auto& listener) { listener.OnStatusChange(status); });
     }},

    {"OnConnectionStatusChanged", kStatus,
     [](Services& services, const json& arguments) {
         KYRDeviceApp::_ConnectionInfo info{};
         info.status = intOf(arguments, "status");
         tellListeners(services.deviceApp, [&](auto& listener) { listener.OnConnectionStatusChanged(info); });
     }},

    {"OnAASatinfoChange", kSatelliteRows,
     [](Services& services, const json& arguments) {
         const auto data = satellitesOf(arguments);
         tellListeners(services.location, [&](auto& listener) { listener.OnAASatinfoChange(data); });
     }},

    {"OnAALocationChange", kPosition,
     [](Services& services, const json& arguments) {
         _LocationData data{};
         data.nLatitude = intOf(arguments, "latitude");
         data.nLongitude = intOf(arguments, "longitude");
         tellListeners(services.location, [&](auto& listener) { listener.OnAALocationChange(data); });
     }},

    {"OnLCarInfoChange", kCarInfo,
     [](Services& services, const json& arguments) {
         _LCarInfo info{};
         info.ucValue = static_cast<unsigned char>(intOf(arguments, "value"));
         tellListeners(services.systemMisc, [&](auto& listener) { listener.OnLCarInfoChange(info); });
     }},

    {"OnSourceStatusChanged", kSource,
     [](Services& services, const json& arguments) {
         const auto source = enumOf<KYRSource::SourceID>(arguments, "source");
         const auto status = enumOf<KYRSource::SourceStatus>(arguments, "status");
         tellListeners(services.sourceManager, [&](auto& listener) { listener.OnSourceStatusChanged(source, status); });
     }},

    {"OnU6PersistDataChange", kPersistData,
     [](Services& services, const json& arguments) {
         const auto module = enumOf<U6Persist::E_ModuleName>(arguments, "module");
         const auto value = unsignedOf(arguments, "value");
         tellListeners(services.u6Persist, [&](auto& listener) { listener.OnU6PersistDataChange(module, value); });
     }},

    {"OnU6PersistFactoryResetMode",
     {},
     [](Services& services, const json&) {
         tellListeners(services.u6Persist, [](auto& listener) { listener.OnU6PersistFactoryResetMode(); });
     }},

    {"OnU6PersistAutoFactoryResetMode",
     {},
     [](Services& services, const json&) {
         tellListeners(services.u6Persist, [](auto& listener) { listener.OnU6PersistAutoFactoryResetMode(); });
     }},

    {"OnFactoryResetMode",
     {},
     [](Services& services, const json&) {
         tellListeners(services.systemMisc, [](auto& listener) { listener.OnFactoryResetMode(); });
     }},
});

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
    if (event.arguments.empty()) {
        return "none";
    }
    std::string list;
    for (const EventArgument& argument : event.arguments) {
        list += list.empty() ? "" : ", ";
        list += argument.required ? argument.name : "[" + std::string(argument.name) + "]";
    }
    return list;
}

[[noreturn]] void refuse(const Event& event, const std::string& why)
{
    throw EventError(
        EventError::Kind::kInvalidArguments,
        protocol::printable(std::string(event.name) + ": " + why + "; its arguments are: " + listOfArguments(event)));
}

void checkArguments(const Event& event, const json& arguments)
{
    if (!arguments.is_object()) {
        refuse(event, "the arguments must be an object");
    }
    for (const auto& [name, value] : arguments.items()) {
        if (std::ranges::find(event.arguments, name, &EventArgument::name) == event.arguments.end()) {
            refuse(event, "there is no argument \"" + name + "\"");
        }
    }
    for (const EventArgument& argument : event.arguments) {
        const auto value = arguments.find(argument.name);
        if (value == arguments.end() && argument.required) {
            refuse(event, "\"" + std::string(argument.name) + "\" is missing");
        }
        if (value != arguments.end() && !fits(argument.type, *value)) {
            refuse(event, "\"" + std::string(argument.name) + "\" must be " + wanted(argument.type));
        }
    }
}

const Event& findEvent(const std::string& name)
{
    const auto event = std::ranges::find_if(kEvents, [&name](const Event& each) { return name == each.name; });
    if (event != kEvents.end()) {
        return *event;
    }
    std::string names;
    for (const Event& each : kEvents) {
        names += (names.empty() ? "" : ", ") + std::string(each.name);
    }
    throw EventError(EventError::Kind::kUnknownEvent,
                     protocol::printable("there is no event \"" + name + "\"; there are " + names));
}

}  // namespace

std::span<const Event> allEvents()
{
    return kEvents;
}

std::function<void()> makeEvent(Services& services, const std::string& name, const json& arguments)
{
    const Event& event = findEvent(name);
    checkArguments(event, arguments);
    return [&services, &event, arguments] { event.deliver(services, arguments); };
}

}  // namespace bench
