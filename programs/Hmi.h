#pragma once

#include <array>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace programs {

/// A signal of the engineering interface, its arguments by name in the order of the interface description.
/// A parameter area is an array of numbers.
struct Signal {
    std::string name;
    nlohmann::ordered_json arguments = nlohmann::ordered_json::object();
};

/// @returns the signal as one line for people, `OnAutoTestModeChangeSignal mode=true`. What the station's protocol
/// writes in hexadecimal is hexadecimal here: `cmd_one=0F cmd_two=00 param=[01]`.
std::string asText(const Signal& signal);

/// @returns the signal as one JSON object: `signal`, then the arguments by name.
std::string asJson(const Signal& signal);

/// A track, as media type and index.
struct Track {
    std::uint8_t mediaType = 0;
    std::uint8_t index = 0;

    bool operator==(const Track&) const = default;
};

/// Reads TYPE=INDEX, both decimal from 0 to 255.
/// @returns nothing when `text` is anything else.
std::optional<Track> parseTrack(std::string_view text);

/// Asks for a call of auto_test_set_track_index.
struct ReportTrack {
    Track track;

    bool operator==(const ReportTrack&) const = default;
};

/// Asks that the head unit's volume be set.
struct ApplyVolume {
    std::uint8_t volume = 0;

    bool operator==(const ApplyVolume&) const = default;
};

/// What an HMI does upon a signal; often nothing.
using Reaction = std::variant<std::monostate, ReportTrack, ApplyVolume>;

/// An HMI without a screen and without a bus: remembers which track plays on each medium and says how to answer a
/// signal. For one thread.
class Hmi
{
public:
    /// Makes `track` the current one of its medium. Until then, it is track 0.
    void select(Track track) { tracks_[track.mediaType] = track.index; }

    /// Takes a signal whose arguments have the types of the interface description.
    Reaction react(const Signal& signal);

private:
    std::array<std::uint8_t, 256> tracks_{};  // by media type
};

}  // namespace programs
