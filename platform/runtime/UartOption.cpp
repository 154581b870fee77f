#include "platform/runtime/UartOption.h"

#include <charconv>
#include <memory>
#include <optional>
#include <string_view>

#include "host/Baud.h"
#include "platform/runtime/Root.h"
#include "protocol/Errors.h"

namespace runtime {
namespace {

constexpr std::string_view kPtyPrefix = "pty:";

std::optional<unsigned> parseNumber(std::string_view text)
{
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

UartOption parseUartOption(const std::string& text, const std::string& name)
{
    if (text.starts_with(kPtyPrefix) && text.size() > kPtyPrefix.size()) {
        return {UartOption::Kind::kPseudoTerminal, text.substr(kPtyPrefix.size()), 0};
    }

    const auto comma = text.rfind(',');
    UartOption option{UartOption::Kind::kDevice, text.substr(0, comma), host::kDefaultBaud};
    if (option.path.empty() || text == kPtyPrefix) {
        throw protocol::UserError(name + ": expected pty:LINK or DEVICE[,BAUD], got '" + text + "'");
    }
    if (comma == std::string::npos) {
        return option;
    }

    const std::string rate = text.substr(comma + 1);
    const auto baud = parseNumber(rate);
    if (!baud || !host::speedOf(*baud)) {
        throw protocol::UserError(name + ": expected a baud rate such as 9600, 115200 or 921600, got '" + rate + "'");
    }
    option.baud = *baud;
    return option;
}

std::unique_ptr<Terminal> openTerminal(const UartOption& option)
{
    if (option.kind == UartOption::Kind::kDevice) {
        return std::make_unique<SerialDevice>(option.path, option.baud);
    }
    const std::filesystem::path link = option.path.empty() ? makeRunDirectory() / "uart" : option.path;
    try {
        return std::make_unique<PseudoTerminal>(link);
    } catch (const TerminalError& error) {
        throw TerminalError(std::string("--uart pty:") + error.what());
    }
}

}  // namespace runtime
