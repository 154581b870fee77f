#include "station/identity/UnitRules.h"

#include <fmt/format.h>
#include <glib.h>

#include <algorithm>
#include <cstdint>

#include "protocol/catalogue/HexBytes.h"

namespace station::identity {

namespace {

constexpr std::size_t kAddressDigits = 12;

/// @returns the 12 digits of an address, in capitals; empty if it is not an address.
std::string digitsOf(std::string_view value)
{
    std::string digits = withoutSeparators(value);
    const bool legal = std::ranges::all_of(digits, [](char c) { return g_ascii_isxdigit(c); });
    return legal && digits.size() == kAddressDigits ? digits : "";
}

bool consistsOf(std::string_view value, char wanted)
{
    return !value.empty() && std::ranges::all_of(value, [wanted](char c) { return c == wanted; });
}

/// @returns whether the bytes are UTF-8 without control characters.
bool isText(std::string_view bytes)
{
    if (bytes.empty()) {
        return true;
    }
    if (!g_utf8_validate_len(bytes.data(), bytes.size(), nullptr)) {
        return false;
    }
    for (const char* at = bytes.data(); at < bytes.data() + bytes.size(); at += g_utf8_skip[static_cast<guchar>(*at)]) {
        if (g_unichar_iscntrl(g_utf8_get_char(at)) != FALSE) {
            return false;
        }
    }
    return true;
}

}  // namespace

bool UnitRules::isPlaceholder(const Record& record, std::string_view value) const
{
    if (value.empty()) {
        return true;
    }
    if (!record.isAddress()) {
        return serial.isNone(value);
    }
    const std::string digits = digitsOf(value);
    return consistsOf(value, '\xFF') || consistsOf(digits, '0') || consistsOf(digits, 'F');
}

std::string UnitRules::objection(const Record& record, std::string_view value) const
{
    const auto found = patterns.find(record.name);
    if (found == patterns.end() || re2::RE2::FullMatch({value.data(), value.size()}, *found->second)) {
        return {};
    }
    return fmt::format("{}: expected a value that matches {}, got {}", record.name, found->second->pattern(),
                       registryText(record, value));
}

std::string reservedAddress(const Record& record, std::string_view value)
{
    const std::string digits = record.isAddress() ? digitsOf(value) : "";
    if (digits.empty()) {
        return {};
    }
    const char* kind = consistsOf(digits, '0')                                             ? "all zero"
                       : consistsOf(digits, 'F')                                           ? "all F"
                       : std::string_view("13579BDF").find(digits[1]) != std::string::npos ? "a multicast address"
                                                                                           : nullptr;
    return kind == nullptr
               ? ""
               : fmt::format("{}: expected the address of one device, got {}, which is {}", record.name, digits, kind);
}

std::string mangled(const Record& record, std::string_view value)
{
    const char* expected = nullptr;
    if (record.isAddress() && (value.size() != kAddressDigits || digitsOf(value).empty())) {
        expected = "12 hexadecimal digits";
    } else if (record.unique && value.find_first_of("\r\n") != std::string_view::npos) {
        expected = "a value without a line end";
    }
    return expected == nullptr
               ? ""
               : fmt::format("{}: expected {}, got {}", record.name, expected, registryText(record, value));
}

std::string registryText(const Record& record, std::string_view value)
{
    if (record.isAddress()) {
        if (std::string digits = digitsOf(value); !digits.empty()) {
            return digits;
        }
    }
    if (isText(value) && !value.starts_with(kHex)) {
        return std::string(value);
    }
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(value.data());
    return std::string(kHex) + protocol::catalogue::formatHexBytes({bytes, value.size()}, "");
}

}  // namespace station::identity
