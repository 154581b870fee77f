#include <algorithm>
#include <string>

#include "protocol/Frame.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/Describe.h"
#include "protocol/catalogue/HexBytes.h"
#include "protocol/catalogue/Number.h"
#include "protocol/catalogue/Suggest.h"

namespace protocol::catalogue {

namespace {

std::vector<std::string_view> namesOf(std::span<const Field> fields)
{
    std::vector<std::string_view> names;
    std::ranges::transform(fields, std::back_inserter(names), &Field::name);
    return names;
}

std::string listed(const std::vector<std::string_view>& names)
{
    std::string text;
    for (const std::string_view name : names) {
        text += (text.empty() ? "" : ", ") + std::string(name);
    }
    return text;
}

/// @returns the pieces between the separators, without empty ones.
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
    const std::string example = field.example.empty() ? "" : ", for example " + std::string(field.example);
    return std::string(field.name) + "=… is missing: " + describe(field) + example;
}

void checkNames(std::span<const Field> params, std::span<const Argument> arguments)
{
    const auto names = namesOf(params);
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        const std::string& name = argument->first;
        if (std::ranges::find(names, name) == names.end()) {
            throw UserError("unknown parameter " + inQuotes(name) + ": expected " +
                            (names.empty() ? "none" : listed(names)) + didYouMean(name, names));
        }
        if (std::any_of(arguments.begin(), argument, [&](const Argument& each) { return each.first == name; })) {
            throw UserError(inQuotes(name) + " is given twice");
        }
    }
}

void checkSize(const Field& field, std::size_t size)
{
    const auto count = static_cast<std::int64_t>(size);
    if (count < field.minimum || count > field.maximum) {
        throw UserError(std::string(field.name) + ": expected " + describe(field) + ", got " + std::to_string(size));
    }
}

void appendAscii(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    const bool printable = std::ranges::all_of(text, [](char c) { return c >= 0x20 && c < 0x7F; });
    if (!printable) {
        throw UserError(std::string(field.name) + ": expected printable ASCII characters, got others");
    }
    checkSize(field, text.size());
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void appendHexText(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    const auto wrong = text.find_first_not_of("0123456789ABCDEFabcdef");
    if (wrong != std::string_view::npos) {
        throw UserError(std::string(field.name) + ": expected " + describe(field) + " without separators, got " +
                        inQuotes(text));
    }
    checkSize(field, text.size());
    bytes.insert(bytes.end(), text.begin(), text.end());
}

void appendBytes(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    const auto parsed = parseHexBytes(text);
    if (!parsed) {
        throw UserError(std::string(field.name) + ": expected " + describe(field) + " (as in '00 1A 7D'), got " +
                        inQuotes(text));
    }
    checkSize(field, parsed->size());
    bytes.insert(bytes.end(), parsed->begin(), parsed->end());
}

void appendNumber(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    appendBigEndian(bytes, static_cast<std::uint32_t>(parseNumber(field, text)), static_cast<int>(sizeOf(field.type)));
}

/// Blanks separate the records, colons the numbers of one: "5:35 9:28".
void appendRecords(std::vector<std::uint8_t>& bytes, const Field& field, std::string_view text)
{
    std::size_t count = 0;
    for (const auto record : pieces(text, ' ')) {
        const auto numbers = pieces(record, ':');
        if (numbers.size() != field.fields.size()) {
            throw UserError(std::string(field.name) + ": expected " + listed(namesOf(field.fields)) +
                            " with ':' between them, got " + inQuotes(record));
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
            throw UserError(expectation(*leftOut) + "; " + inQuotes(field.name) + " stands behind it");
        }
        append(frame.params, field, given->second);
    }
    if (frame.params.size() > kMaxStationParams) {
        throw UserError("a frame holds at most " + std::to_string(kMaxStationParams) + " parameter bytes, not " +
                        std::to_string(frame.params.size()));
    }
    return frame;
}

}  // namespace protocol::catalogue
