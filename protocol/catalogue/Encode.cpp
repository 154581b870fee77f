#include <fmt/format.h>

#include <algorithm>
#include <string>

#include "protocol/Frame.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"
#include "protocol/catalogue/Number.h"

namespace protocol::catalogue {

namespace {

std::vector<std::string_view> namesOf(std::span<const Field> fields)
{
    std::vector<std::string_view> names;
    std::ranges::transform(fields, std::back_inserter(names), &Field::name);
    return names;
}

/// @returns the pieces between the separators without the empty ones.
std::vector<std::string_view> pieces(std::string_view text, char separator)
{
    std::vector<std::string_view> list;
    while (!text.empty()) {
        const auto end = std::min(text.find(separator), text.size());
        if (end > 0) {
            list.push_back(text.substr(0, end));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return list;
}

std::string expectation(const Field& field)
{
    const auto example = field.example.empty() ? std::string() : fmt::format(", as in {}", field.example);
    return fmt::format("{}: expected {}{}, got none", field.name, describe(field), example);
}

void checkNames(std::span<const Field> params, std::span<const Argument> arguments)
{
    const auto names = namesOf(params);
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        const std::string& name = argument->first;
        if (std::ranges::find(names, name) == names.end()) {
            throw UserError(names.empty() ? fmt::format("expected no parameter, got {}", inQuotes(name))
                                          : fmt::format("expected {}, got {}{}", fmt::join(names, " or "),
                                                        inQuotes(name), didYouMean(name, names)));
        }
        if (std::any_of(arguments.begin(), argument, [&](const Argument& each) { return each.first == name; })) {
            throw UserError(fmt::format("{}: expected one value, got two", name));
        }
    }
}

void checkSize(const Field& field, std::size_t size)
{
    const auto count = static_cast<std::int64_t>(size);
    if (count < field.minimum || count > field.maximum) {
        throw UserError(fmt::format("{}: expected {}, got {}", field.name, describe(field), size));
    }
}

/// @returns what the user wrote, for a message; nothing of a secret, since messages go into results.
std::string gotOf(const Field& field, std::string_view text)
{
    return field.secret ? "" : fmt::format(", got {}", inQuotes(text));
}

void appendAscii(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    const bool printable = std::ranges::all_of(text, [](char c) { return c >= 0x20 && c < 0x7F; });
    if (!printable) {
        throw UserError(fmt::format("{}: expected printable ASCII{}", field.name, gotOf(field, text)));
    }
    checkSize(field, text.size());
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void appendHexText(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    const auto wrong = text.find_first_not_of("0123456789ABCDEFabcdef");
    if (wrong != std::string_view::npos) {
        throw UserError(
            fmt::format("{}: expected {} without separators, got {}", field.name, describe(field), inQuotes(text)));
    }
    checkSize(field, text.size());
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void appendBytes(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    const auto parsed = parseHexBytes(text);
    if (!parsed) {
        throw UserError(
            fmt::format("{}: expected {}, as in '00 1A 7D'{}", field.name, describe(field), gotOf(field, text)));
    }
    checkSize(field, parsed->size());
    bytes.insert(bytes.end(), parsed->begin(), parsed->end());
}

void appendNumber(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    appendBigEndian(bytes, static_cast<std::uint32_t>(parseNumber(field, text)), static_cast<int>(sizeOf(field.type)));
}

/// Blanks separate records, colons the numbers of a record: "5:35 9:28".
void appendRecords(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    std::size_t count = 0;
    for (const auto record : pieces(text, ' ')) {
        const auto numbers = pieces(record, ':');
        if (numbers.size() != field.fields.size()) {
            throw UserError(fmt::format("{}: expected {}, got {}", field.name, fmt::join(namesOf(field.fields), ":"),
                                        inQuotes(record)));
        }
        for (std::size_t i = 0; i < numbers.size(); ++i) {
            appendNumber(bytes, field.fields[i], numbers[i]);
        }
        ++count;
    }
    checkSize(field, count);
}

void append(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    switch (field.type) {
        case Type::kAscii:
            return appendAscii(bytes, field, text);
        case Type::kHexText:
            return appendHexText(bytes, field, text);
        case Type::kBytes:
            return appendBytes(bytes, field, text);
        case Type::kRecords:
            return appendRecords(bytes, field, text);
        default:
            return appendNumber(bytes, field, text);
    }
}

}  // namespace

Frame encode(const Command& command, std::span<const Argument> arguments)
{
    checkNames(command.params, arguments);

    Frame frame{command.cmdOne, command.cmdTwo, {}};
    const Field* leftOut = nullptr;
    for (const Field& field : command.params) {
        const auto given = std::ranges::find(arguments, field.name, &Argument::first);
        if (given == arguments.end()) {
            if (!field.optional) {
                throw UserError(expectation(field));
            }
            leftOut = leftOut == nullptr ? &field : leftOut;
            continue;
        }
        if (leftOut != nullptr) {
            throw UserError(fmt::format("{} before {}", expectation(*leftOut), inQuotes(field.name)));
        }
        append(frame.params, field, given->second);
    }
    if (frame.params.size() > kMaxStationParams) {
        throw UserError(fmt::format("expected at most {} parameter bytes in a frame, got {}", kMaxStationParams,
                                    frame.params.size()));
    }
    return frame;
}

}  // namespace protocol::catalogue
