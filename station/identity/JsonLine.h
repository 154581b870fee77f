#pragma once

#include <chrono>
#include <nlohmann/json.hpp>
#include <string>

namespace station::identity {

/// @returns "2026-11-21T12:00:00.123456Z".
std::string utc(std::chrono::system_clock::time_point time);

/// @returns the object on one line with its end, led by "schema" and "time". Bytes that are no UTF-8 are replaced.
std::string jsonLine(const nlohmann::ordered_json& object);

}  // namespace station::identity
