#include <fmt/format.h>

#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {

namespace {

std::string describeNumber(const Field& field)
{
    std::string text = "a number from " + describeRange(field);
    if (!field.unit.empty()) {
        text += " (unit: " + std::string(field.unit) + ")";
    }
    if (field.scale) {
        text += ", or in " + std::string(field.scale->unit);
        text += field.scale->only.empty() ? "" : " " + std::string(field.scale->only);
    }
    return text;
}

}  // namespace

std::string describeRange(const Field& field)
{
    return field.minimum == field.maximum ? std::to_string(field.minimum)
                                          : std::to_string(field.minimum) + " to " + std::to_string(field.maximum);
}

std::string describeChoices(const Field& field)
{
    std::string text;
    for (const Choice& choice : field.choices) {
        text += (text.empty() ? "" : ", ") + std::string(choice.name) + " (" + std::to_string(choice.value) + ")";
    }
    return text;
}

std::string scaled(std::int64_t number, double factor)
{
    // 12 digits are more than any number of the wire has, and fewer than a binary fraction spoils.
    return fmt::format("{:.12g}", static_cast<double>(number) * factor);
}

std::string describe(const Field& field)
{
    switch (field.type) {
        case Type::kBytes:
            return describeRange(field) + " bytes in hexadecimal";
        case Type::kAscii:
            return describeRange(field) + " characters";
        case Type::kHexText:
            return describeRange(field) + " hexadecimal digits";
        case Type::kRecords:
            return describeRange(field) + " records";
        default:
            break;
    }
    if (field.choices.empty()) {
        return describeNumber(field);
    }
    return (field.open ? describeNumber(field) + ", or one of " : "one of ") + describeChoices(field);
}

}  // namespace protocol::catalogue
