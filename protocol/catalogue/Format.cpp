#include <fmt/format.h>

#include <string>

#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"

namespace protocol::catalogue {

namespace {

/// Escapes what could steer a terminal, and every byte beyond ASCII unless the whole text is readable UTF-8.
std::string quotedText(std::string_view text)
{
    const bool readable = printable(text) == text;
    std::string out = "\"";
    for (const char c : text) {
        const auto byte = static_cast<std::uint8_t>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if ((byte >= 0x20 && byte < 0x7F) || (readable && byte >= 0x80)) {
            out += c;
        } else {
            out += "\\x" + formatHexBytes(Bytes(&byte, 1));
        }
    }
    return out + '"';
}

std::string formatNumber(const DecodedField& field, std::int64_t number)
{
    const std::string text = fmt::to_string(number);
    if (const std::string_view choice = field.choice(); !choice.empty()) {
        return fmt::format("{} ({})", text, choice);
    }
    if (const auto& scale = field.field->scale) {
        return fmt::format("{} ({} {}{}{})", text, shortText(static_cast<double>(number) * scale->factor), scale->unit,
                           scale->only.empty() ? "" : " ", scale->only);
    }
    return field.field->unit.empty() ? text : fmt::format("{} {}", text, field.field->unit);
}

std::string formatRecords(const std::vector<Record>& records)
{
    std::string text = "[";
    for (const Record& record : records) {
        text += text.size() > 1 ? ", {" : "{";
        for (const DecodedField& field : record) {
            text += fmt::format("{}{}={}", text.back() == '{' ? "" : " ", field.field->name, format(field));
        }
        text += '}';
    }
    return text + ']';
}

struct Formatter {
    const DecodedField& field;

    std::string operator()(std::int64_t number) const { return formatNumber(field, number); }
    std::string operator()(const std::string& text) const { return quotedText(text); }
    std::string operator()(const std::vector<std::uint8_t>& bytes) const
    {
        return bytes.empty() ? "-" : formatHexBytes(bytes);
    }
    std::string operator()(const std::vector<Record>& records) const { return formatRecords(records); }
};

std::string subjectOf(Groups groups, const Decoded& decoded, const Frame& frame)
{
    if (decoded.command != nullptr) {
        return fullKey(groups, *decoded.command);
    }
    if (decoded.notice != nullptr) {
        return fullKey(groups, *decoded.notice);
    }
    const std::uint8_t codes[] = {frame.cmdOne, frame.cmdTwo};
    return formatHexBytes(codes);
}

}  // namespace

std::string format(const DecodedField& field)
{
    if (const std::string mask = maskOf(field); !mask.empty()) {
        return mask + " (masked)";
    }
    return std::visit(Formatter{field}, field.value);
}

std::string format(Groups groups, const Decoded& decoded, const Frame& frame)
{
    std::string text = subjectOf(groups, decoded, frame);
    std::string values;
    for (const DecodedField& field : decoded.fields) {
        values += fmt::format(" {}={}", field.field->name, format(field));
    }
    if (!decoded.rest.empty()) {
        values += (decoded.known() ? " + " : " ") + formatHexBytes(decoded.rest);
    }
    if (values.empty() && decoded.reply != nullptr && !decoded.reply->when.empty()) {
        values = fmt::format(" {}", decoded.reply->when);
    }
    if (!values.empty()) {
        text += ":" + values;
    }
    for (const std::string& problem : decoded.problems) {
        text += fmt::format(" (! {})", problem);
    }
    for (const std::string& remark : decoded.remarks) {
        text += fmt::format(" (note: {})", remark);
    }
    return text;
}

}  // namespace protocol::catalogue
