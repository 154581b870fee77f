#include "station/plan/Literal.h"

#include <algorithm>
#include <array>
#include <vector>

#include "protocol/catalogue/HexBytes.h"

namespace station::plan {

namespace catalogue = protocol::catalogue;
using catalogue::Type;
using catalogue::Value;

namespace {

std::string upper(std::string text)
{
    std::ranges::transform(text, text.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return text;
}

}  // namespace

Value literal(const catalogue::Field& field, const std::string& written)
{
    if (field.type == Type::kRecords) {
        throw protocol::UserError("records cannot be compared: expect their count");
    }
    if (written.empty() && field.type == Type::kBytes) {
        return std::vector<std::uint8_t>();
    }
    if (written.empty() && catalogue::sizeOf(field.type) == 0) {
        return std::string();
    }
    // A command that has this field only: the codec knows all ways to write a value.
    catalogue::Field only = field;
    only.optional = false;
    catalogue::Command command;
    command.key = "value";
    command.params = std::span(&only, 1);
    const std::array<catalogue::Argument, 1> argument{{{std::string(field.name), written}}};
    const protocol::Frame frame = catalogue::encode(command, argument);

    catalogue::Group group;
    group.key = "a";
    group.commands = std::span(&command, 1);
    auto decoded = catalogue::decodeRequest(std::span(&group, 1), frame);
    if (decoded.fields.empty()) {
        throw protocol::UserError("'" + written + "' is no value of " + std::string(field.name));
    }
    return std::move(decoded.fields.front().value);
}

bool same(const catalogue::Field& field, const Value& one, const Value& other)
{
    if (field.type == Type::kHexText) {
        const auto* left = std::get_if<std::string>(&one);
        const auto* right = std::get_if<std::string>(&other);
        return left != nullptr && right != nullptr && upper(*left) == upper(*right);
    }
    if (const auto* number = std::get_if<std::int64_t>(&one)) {
        const auto* right = std::get_if<std::int64_t>(&other);
        return right != nullptr && *number == *right;
    }
    if (const auto* text = std::get_if<std::string>(&one)) {
        const auto* right = std::get_if<std::string>(&other);
        return right != nullptr && *text == *right;
    }
    if (const auto* bytes = std::get_if<std::vector<std::uint8_t>>(&one)) {
        const auto* right = std::get_if<std::vector<std::uint8_t>>(&other);
        return right != nullptr && *bytes == *right;
    }
    return false;
}

std::string written(const catalogue::DecodedField& field)
{
    if (const auto* number = std::get_if<std::int64_t>(&field.value)) {
        return std::to_string(*number);
    }
    if (const auto* text = std::get_if<std::string>(&field.value)) {
        return *text;
    }
    if (const auto* bytes = std::get_if<std::vector<std::uint8_t>>(&field.value)) {
        return catalogue::formatHexBytes(*bytes);
    }
    return catalogue::format(field);
}

}  // namespace station::plan
