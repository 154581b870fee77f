#include "station/Hex.h"

#include <charconv>

namespace station {

namespace {

void append(std::string& text, std::uint8_t byte)
{
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
}

}  // namespace

std::optional<std::uint8_t> parseByte(std::string_view text)
{
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
    }
    if (text.empty() || text.size() > 2) {
        return std::nullopt;
    }
    std::uint8_t value = 0;
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, 16);
    if (result.ec != std::errc() || result.ptr != end) {
        return std::nullopt;
    }
    return value;
}

std::string format(const protocol::Frame& frame)
{
    std::string text;
    append(text, frame.cmdOne);
    text += ' ';
    append(text, frame.cmdTwo);
    text += " [";
    for (std::size_t i = 0; i < frame.params.size(); ++i) {
        if (i > 0) {
            text += ' ';
        }
        append(text, frame.params[i]);
    }
    text += ']';
    return text;
}

}  // namespace station
