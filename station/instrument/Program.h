#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "station/Interrupt.h"

namespace station::instrument {

/// The most that a program may print on standard output.
inline constexpr std::size_t kMostOutput = 64 << 10;
/// What is kept of its standard error: the last bytes.
inline constexpr std::size_t kKeptErrors = 4 << 10;

/// How a program ended.
struct ProgramEnd {
    enum class How : std::uint8_t {
        kExited,
        kSignalled,
        kTimedOut,  ///< it was killed
        kTooMuch,   ///< it was killed, because it printed more than kMostOutput
    };

    How how = How::kExited;
    /// The exit status, or the number of the signal.
    int status = 0;
    std::string out;
    std::string err;
};

/// Runs a program, without a shell, in its folder. Nothing that it starts outlives the call, even what has left its
/// process group: at the time-out it gets SIGTERM, and half a second later everything is killed. The same happens when
/// this process ends. Any thread.
/// @param arguments the first is the program's path
/// @param input its standard input
/// Throws Interrupted, and protocol::LineError if it cannot be started.
ProgramEnd runProgram(const std::vector<std::string>& arguments, const std::string& input,
                      std::chrono::nanoseconds timeout, const Interrupt& interrupt);

}  // namespace station::instrument
