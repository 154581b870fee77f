#include <fmt/format.h>

#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {

namespace {

std::string describeNumber(const Field& field)
{
    std::string text = "a number from " + describeRange(field);
    if (!field.unit.empty()) {
        text += fmt::format(" (unit: {})", field.unit);
    }
    if (field.scale) {
        text +=
            fmt::format(", or in {}{}{}", field.scale->unit, field.scale->only.empty() ? "" : " ", field.scale->only);
    }
    return text;
}

}  // namespace

std::string describeRange(const Field& field)
{
    return field.minimum == field.maximum ? fmt::to_string(field.minimum)
                                          : fmt::format("{} to {}", field.minimum, field.maximum);
}

std::string describeChoices(const Field& field)
{
    std::string text;
    for (const Choice& choice : field.choices) {
        const char* separator = text.empty() ? "" : &choice == &field.choices.back() ? " or " : ", ";
        text += fmt::format("{}{} ({})", separator, choice.name, choice.value);
    }
    return text;
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
    return field.open ? fmt::format("{}, such as {}", describeNumber(field), describeChoices(field))
                      : describeChoices(field);
}

}  // namespace protocol::catalogue
