#pragma once

#include <CLI/CLI.hpp>
#include <chrono>

namespace programs::station_tool {

/// @returns a time of the command line; negative ones are none.
inline std::chrono::nanoseconds fromSeconds(double seconds)
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(std::max(seconds, 0.0)));
}

/// Longer than anybody waits.
inline constexpr double kForEver = 86400.0 * 365;

/// Adds --reconnect SECONDS.
inline void addReconnect(CLI::App& verb, double& seconds)
{
    CLI::Option* option =
        verb.add_option("--reconnect", seconds, "How long to wait for a device that has gone, in seconds")
            ->type_name("SECONDS")
            ->check(CLI::Range(0.0, kForEver));
    if (seconds >= kForEver) {
        option->default_str("as long as it takes");
    } else {
        option->default_val(seconds);
    }
}

}  // namespace programs::station_tool
