#include "programs/Hmi.h"

#include <charconv>
#include <cstdio>

#include "protocol/Text.h"
namespace programs {

namespace {

using Json = nlohmann::ordered_json;

std::string hex(const Json& byte)
{
    std::array<char, 8> digits{};
    std::snprintf(digits.data(), digits.size(), "%02X", byte.get<unsigned>());
    return digits.data();
}

std::string hexList(const Json& bytes)
{
    std::string text = "[";
    for (const Json& byte : bytes) {
        text += (text.size() > 1 ? " " : "") + hex(byte);
    }
    return text + "]";
}

std::string valueText(const std::string& name, const Json& value)
{
    if (value.is_array()) {
        return hexList(value);
    }
    return name == "cmd_one" || name == "cmd_two" ? hex(value) : protocol::printableJson(value.dump());
}

std::optional<std::uint8_t> parseDecimal(std::string_view text)
{
    std::uint8_t value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end ? std::optional(value) : std::nullopt;
}

}  // namespace

std::string asText(const Signal& signal)
{
    std::string line = signal.name;
    for (const auto& [name, value] : signal.arguments.items()) {
        line += ' ' + name + '=' + valueText(name, value);
    }
    return line;
}

std::string asJson(const Signal& signal)
{
    Json object{{"signal", signal.name}};
    object.update(signal.arguments);
    return protocol::printableJson(object.dump());
}

std::optional<Track> parseTrack(std::string_view text)
{
    const auto equals = text.find('=');
    if (equals == std::string_view::npos) {
        return std::nullopt;
    }
    const auto mediaType = parseDecimal(text.substr(0, equals));
    const auto index = parseDecimal(text.substr(equals + 1));
    return mediaType && index ? std::optional(Track{*mediaType, *index}) : std::nullopt;
}

Reaction Hmi::react(const Signal& signal)
{
    const auto byte = [&](const char* name) { return signal.arguments.at(name).get<std::uint8_t>(); };
    if (signal.name == "OnAutoTestMediaSelectTrackSignal") {
        select({byte("media_type"), byte("track_index")});
        return {};
    }
    if (signal.name == "OnAutoTestGetMediaTrackIndexSignal") {
        const std::uint8_t mediaType = byte("media_type");
        return ReportTrack{{mediaType, tracks_[mediaType]}};
    }
    if (signal.name == "OnAutoTestVolumeChangeSignal") {
        return ApplyVolume{byte("value")};
    }
    return {};
}

}  // namespace programs
