#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace programs::station_tool {

/// Lines at the bottom of a terminal that are drawn again in place.
class ScreenBlock
{
public:
    /// @returns the lines that the screen has room for.
    static std::size_t room();

    /// @returns what to print: it erases the block, prints `above`, and draws `lines` below as the new block. A line
    /// that is too long and lines that are too many are cut.
    std::string redraw(const std::string& above, const std::vector<std::string>& lines);

private:
    std::size_t drawn_ = 0;
};

}  // namespace programs::station_tool
