#include "protocol/catalogue/HexBytes.h"

#include <fmt/format.h>

#include <algorithm>

namespace protocol::catalogue {

namespace {

constexpr std::string_view kSeparators = " \t\r\n:,;";

int digitOf(char c)
{
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

bool appendWord(std::vector<std::uint8_t>& bytes, std::string_view word)
{
    if (word.starts_with("0x") || word.starts_with("0X")) {
        word.remove_prefix(2);
    }
    if (word.empty() || (word.size() > 1 && word.size() % 2 != 0)) {
        return false;
    }
    int high = word.size() == 1 ? 0 : -1;
    for (const char c : word) {
        const int digit = digitOf(c);
        if (digit < 0) {
            return false;
        }
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    return true;
}

}  // namespace

std::optional<std::vector<std::uint8_t>> parseHexBytes(std::string_view text)
{
    std::vector<std::uint8_t> bytes;
    for (;;) {
        const auto begin = text.find_first_not_of(kSeparators);
        if (begin == std::string_view::npos) {
            return bytes;
        }
        text.remove_prefix(begin);
        const auto end = std::min(text.find_first_of(kSeparators), text.size());
        if (!appendWord(bytes, text.substr(0, end))) {
            return std::nullopt;
        }
        text.remove_prefix(end);
    }
}

std::optional<std::uint8_t> parseHexByte(std::string_view text)
{
    std::vector<std::uint8_t> bytes;
    const bool prefixed = text.starts_with("0x") || text.starts_with("0X");
    if (text.size() > (prefixed ? 4U : 2U) || !appendWord(bytes, text)) {
        return std::nullopt;
    }
    return bytes.front();
}

std::string formatFrame(const Frame& frame)
{
    const std::uint8_t codes[] = {frame.cmdOne, frame.cmdTwo};
    return fmt::format("{} [{}]", formatHexBytes(codes), formatHexBytes(frame.params));
}

std::string formatHexBytes(Bytes bytes, std::string_view separator)
{
    return fmt::format("{:02X}", fmt::join(bytes, separator));
}

}  // namespace protocol::catalogue
