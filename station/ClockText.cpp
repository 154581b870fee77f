#include "station/ClockText.h"

#include <fmt/chrono.h>

#include <array>
#include <cstdio>
#include <ctime>

namespace station {

namespace {

using TimePoint = std::chrono::system_clock::time_point;

std::string format(TimePoint time, const char* format, std::tm* (*split)(const std::time_t*, std::tm*))
{
    const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(time).time_since_epoch().count();
    std::tm parts{};
    split(&seconds, &parts);
    return fmt::format(fmt::runtime(std::string("{:") + format + '}'), parts);
}

}  // namespace

std::string formatUtc(TimePoint time, const char* format)
{
    return station::format(time, format, gmtime_r);
}

std::string formatLocal(TimePoint time, const char* format)
{
    return station::format(time, format, localtime_r);
}

std::string fractionOfSecond(TimePoint time, int digits)
{
    const std::chrono::nanoseconds rest = time - std::chrono::floor<std::chrono::seconds>(time);
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), ".%09d", static_cast<int>(rest.count()));
    return {text.data(), static_cast<std::size_t>(1 + digits)};
}

std::string isoUtc(TimePoint time, int digits)
{
    return formatUtc(time, "%Y-%m-%dT%H:%M:%S") + fractionOfSecond(time, digits) + "Z";
}

}  // namespace station
