#pragma once

#include <string>

#include "station/Interrupt.h"

namespace programs::station_tool {

/// No file that the tool reads is longer: a catalogue, a plan, a list of bytes, a capture of a day.
inline constexpr std::size_t kLongestInput = std::size_t{256} << 20;

/// Reads a file whole; "-" is standard input. Throws WrongUse when it cannot be read, is a directory or is longer than
/// kLongestInput, Interrupted when the user ends the waiting for standard input or a pipe.
std::string readInput(const std::string& path, const station::Interrupt& interrupt);

/// Prints a line on standard error that begins with the place in the user's file, without the program's name before it,
/// so that editors find the place.
void complainOfFile(const std::string& line);

}  // namespace programs::station_tool
