#include "tests/support/Text.h"

#include <cstdio>

std::string hexText(const std::vector<std::uint8_t>& bytes)
{
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%s%02X", text.empty() ? "" : " ", byte);
        text += digits;
    }
    return text;
}

std::string frameText(std::uint8_t cmdOne, std::uint8_t cmdTwo, const std::vector<std::uint8_t>& params)
{
    return hexText({cmdOne, cmdTwo}) + " [" + hexText(params) + "]";
}

std::string callText(const bench::Call& call)
{
    return call.service + " " + call.op + " " + call.args.dump();
}
