#include "platform/runtime/UartOption.h"

#include <charconv>
#include <optional>
#include <string_view>

#include "platform/runtime/SerialDevice.h"

namespace runtime {
namespace {

constexpr std::string_view kPtyPrefix = "pty:";
constexpr unsigned kDefaultBaud = 115200;

std::optional<unsigned> parseNumber(std::string_view text)
{
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return number;
}

}  // namespace

UartOption parseUartOption(const std::string& text)
{
    if (text.starts_with(kPtyPrefix))
        return {UartOption::Kind::PseudoTerminal, text.substr(kPtyPrefix.size()), 0};

    const auto comma = text.rfind(',');
    UartOption option{UartOption::Kind::Device, text.substr(0, comma), kDefaultBaud};
    if (option.path.empty())
        throw UartOptionError("'" + text + "' names no line: pty:LINK or DEVICE[,BAUD] was expected");
    if (comma == std::string::npos)
        return option;

    const std::string rate = text.substr(comma + 1);
    const auto baud = parseNumber(rate);
    if (!baud || !isKnownBaud(*baud))
        throw UartOptionError("'" + rate + "' is no baud rate: one of " + knownBauds() + " was expected");
    option.baud = *baud;
    return option;
}

}  // namespace runtime
