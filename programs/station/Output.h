#pragma once

namespace programs::station_tool {

/// Lets `stdout` remember why it could not be written first, whoever prints to it. To be called before anything is
/// printed; std::cout does not take part.
void watchStandardOutput();

/// @returns 0 when all that was printed has reached standard output, else the errno of the first write that failed.
int flushStandardOutput();

}  // namespace programs::station_tool
