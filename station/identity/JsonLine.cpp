#include "station/identity/JsonLine.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace station::identity {

namespace {

/// Of every line of a ledger and of a journal.
constexpr int kSchema = 1;

}  // namespace

std::string utc(std::chrono::system_clock::time_point time)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(time - seconds).count();
    const std::time_t whole = std::chrono::system_clock::to_time_t(seconds);
    std::tm parts{};
    gmtime_r(&whole, &parts);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + length, text.size() - length, ".%06dZ", static_cast<int>(us));
    return text.data();
}

std::string jsonLine(const nlohmann::ordered_json& object)
{
    nlohmann::ordered_json line{{"schema", kSchema}, {"time", utc(std::chrono::system_clock::now())}};
    line.update(object);
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace station::identity
