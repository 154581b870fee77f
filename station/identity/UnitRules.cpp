#include "station/identity/UnitRules.h"

#include <algorithm>
#include <cstdint>

#include "protocol/catalogue/HexBytes.h"

namespace station::identity {

namespace {

constexpr std::size_t kAddressDigits = 12;

/// @returns the 12 digits of an address, in capitals; empty for what is not one.
std::string digitsOf(std::string_view value)
{
    std::string digits;
    for (const char c : value) {
        if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')) {
            digits += c;
        } else if (c >= 'a' && c <= 'f') {
            digits += static_cast<char>(c - 'a' + 'A');
        } else if (c != ':' && c != '-' && c != ' ') {
            return {};
        }
    }
    return digits.size() == kAddressDigits ? digits : "";
}

bool consistsOf(std::string_view value, char wanted)
{
    return !value.empty() && std::ranges::all_of(value, [wanted](char c) { return c == wanted; });
}

/// @returns whether the bytes are UTF-8 without control characters.
bool isText(std::string_view bytes)
{
    std::size_t more = 0;  // bytes that the character still needs
    std::uint32_t character = 0;
    std::uint32_t least = 0;
    for (const char c : bytes) {
        const auto byte = static_cast<std::uint8_t>(c);
        if (more > 0) {
            if ((byte & 0xC0) != 0x80) {
                return false;
            }
            character = character << 6 | (byte & 0x3Fu);
            --more;
        } else if (byte < 0x80) {
            character = byte;
            least = 0;
        } else if (byte >= 0xC2 && byte <= 0xF4) {
            more = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : 1;
            character = byte & (0x3Fu >> more);
            least = more == 3 ? 0x10000u : more == 2 ? 0x800u : 0x80u;
        } else {
            return false;
        }
        const bool control = character < 0x20 || (character >= 0x7F && character < 0xA0);
        const bool surrogate = character >= 0xD800 && character < 0xE000;
        if (more == 0 && (control || surrogate || character < least || character > 0x10FFFF)) {
            return false;
        }
    }
    return more == 0;
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
    return std::string(record.name) + ": expected a value that matches " + found->second->pattern() + ", got " +
           registryText(record, value);
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
    return kind == nullptr ? ""
                           : std::string(record.name) + ": expected the address of one device, got " + digits +
                                 ", which is " + kind;
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
               : std::string(record.name) + ": expected " + expected + ", got " + registryText(record, value);
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
