#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace station::identity {

/// @returns the object on one line with its end, led by "schema" and "time". Bytes that are no UTF-8 are replaced.
std::string jsonLine(const nlohmann::ordered_json& object);

}  // namespace station::identity
