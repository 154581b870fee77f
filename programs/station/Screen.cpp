#include "programs/station/Screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace programs::station_tool {

namespace {

constexpr const char* kEraseLineAbove = "\x1b[1A\r\x1b[2K";
constexpr const char* kStyleEnd = "\x1b[m";

winsize screenSize()
{
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 && size.ws_row > 0;
    return known ? size : winsize{24, 80, 0, 0};
}

/// @returns the beginning of a line of UTF-8 that fits; a character is taken to be one column wide, a control sequence
/// that ends with 'm' to have no width.
std::string fitted(const std::string& line, std::size_t columns)
{
    bool sequence = false;
    bool styled = false;
    std::size_t seen = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        sequence = sequence || line[i] == '\x1b';
        styled = styled || sequence;
        const bool begins = (static_cast<unsigned char>(line[i]) & 0xC0) != 0x80;
        if (!sequence && begins && seen++ == columns) {
            return line.substr(0, i) + (styled ? kStyleEnd : "");
        }
        sequence = sequence && line[i] != 'm';
    }
    return line;
}

}  // namespace

std::size_t ScreenBlock::room()
{
    // A block higher than the screen could not be erased.
    const std::size_t rows = screenSize().ws_row;
    return rows > 2 ? rows - 2 : 0;
}

std::string ScreenBlock::redraw(const std::string& above, const std::vector<std::string>& lines)
{
    std::string text;
    for (; drawn_ > 0; --drawn_) {
        text += kEraseLineAbove;
    }
    text += above;
    const std::size_t columns = screenSize().ws_col - 1;
    for (const std::string& line : lines) {
        if (drawn_ < room()) {
            text += fitted(line, columns) + "\n";
            ++drawn_;
        }
    }
    return text;
}

}  // namespace programs::station_tool
