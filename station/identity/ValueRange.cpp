#include "station/identity/ValueRange.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <charconv>
#include <optional>
#include <utility>

#include "protocol/Errors.h"
#include "protocol/Text.h"

namespace station::identity {

namespace {

using protocol::inQuotes;
using protocol::UserError;

constexpr int kAddressBits = 48;
constexpr int kAddressWidth = 12;
/// All addresses of a block are multicast, or none is.
constexpr std::uint64_t kFewestBits = 8;
constexpr std::uint64_t kMulticast = std::uint64_t{1} << 40;
/// 64 bits hold every number of so many digits.
constexpr std::size_t kMostDigits = 18;

std::optional<std::uint64_t> numberIn(std::string_view digits, int base)
{
    std::uint64_t number = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
    const bool whole = result.ec == std::errc() && result.ptr == digits.data() + digits.size();
    return whole ? std::optional(number) : std::nullopt;
}

/// @returns the record before the '=', and removes both from `text`.
const Record& takeRecord(Records records, std::string_view& text, const char* example)
{
    const auto equals = text.find('=');
    if (equals == std::string_view::npos) {
        throw UserError(fmt::format("expected {}, got {}", example, inQuotes(text)));
    }
    const Record& record = require(records, text.substr(0, equals));
    if (!record.unique) {
        throw UserError(fmt::format("expected a unique record, got {}, of which several units may have the same value",
                                    record.name));
    }
    text.remove_prefix(equals + 1);
    return record;
}

}  // namespace

std::string ValueRange::value(std::uint64_t number) const
{
    return base == 16 ? fmt::format("{}{:0{}X}{}", before, number, width, after)
                      : fmt::format("{}{:0{}}{}", before, number, width, after);
}

bool ValueRange::contains(std::string_view text, std::uint64_t& number) const
{
    if (text.size() != before.size() + static_cast<std::size_t>(width) + after.size() || !text.starts_with(before) ||
        !text.ends_with(after)) {
        return false;
    }
    const auto found = numberIn(text.substr(before.size(), static_cast<std::size_t>(width)), base);
    number = found.value_or(0);
    return found && number >= first && number <= last;
}

ValueRange parseRange(Records records, std::string_view text)
{
    constexpr const char* kExample = "RECORD=TEXT{FIRST..LAST}TEXT, as in factory-serial=SN{000100..000999}";
    const std::string whole(text);
    const Record& record = takeRecord(records, text, kExample);
    std::string before;
    std::string first;
    std::string last;
    std::string after;
    static const re2::RE2 kForm(R"(([^{]*)\{(.*?)\.\.([^}]*)\}(.*))");
    if (!re2::RE2::FullMatch({text.data(), text.size()}, kForm, &before, &first, &last, &after)) {
        throw UserError(fmt::format("expected {}, got {}", kExample, inQuotes(whole)));
    }
    const auto lowest = numberIn(first, 10);
    const auto highest = numberIn(last, 10);
    if (!lowest || !highest || first.size() != last.size() || first.size() > kMostDigits || *lowest > *highest ||
        record.isAddress()) {
        throw UserError(fmt::format("expected two numbers of the same width, the lower one first, got {}{}",
                                    inQuotes(whole),
                                    record.isAddress() ? "; --mac-block is the option for addresses" : ""));
    }
    ValueRange range{&record, std::move(before), std::move(after), *lowest, *highest, static_cast<int>(first.size())};
    normalise(record, range.value(range.first));
    return range;
}

ValueRange parseMacBlock(Records records, std::string_view text)
{
    constexpr const char* kExample = "RECORD=ADDRESS/BITS, as in carplay-mac=001A7D000000/24";
    const std::string whole(text);
    const Record& record = takeRecord(records, text, kExample);
    const auto slash = text.find('/');
    const auto bits = slash == std::string_view::npos ? std::nullopt : numberIn(text.substr(slash + 1), 10);
    if (!record.isAddress() || !bits || *bits > kAddressBits || *bits < kFewestBits) {
        throw UserError(fmt::format("expected {}, BITS from {} to {}, got {}", kExample, kFewestBits, kAddressBits,
                                    inQuotes(whole)));
    }
    const std::string address = normalise(record, text.substr(0, slash));
    const std::uint64_t first = *numberIn(address, 16);
    const std::uint64_t size = std::uint64_t{1} << (kAddressBits - *bits);
    if (first % size != 0) {
        throw UserError(fmt::format("expected the first address of the block, with zeros after its {} bits, got {}",
                                    *bits, inQuotes(whole)));
    }
    if ((first & kMulticast) != 0) {
        throw UserError(fmt::format("expected a block of addresses of single devices, got multicast addresses, {}",
                                    inQuotes(whole)));
    }
    return {&record, "", "", first, first + size - 1, kAddressWidth, 16};
}

}  // namespace station::identity
