#include "programs/station/FrameJson.h"

#include <algorithm>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"

namespace programs::station_tool {

namespace {

using nlohmann::ordered_json;
namespace catalogue = protocol::catalogue;

ordered_json plainValue(const catalogue::Value& value);

ordered_json plainRecord(const catalogue::Record& record)
{
    ordered_json object = ordered_json::object();
    for (const catalogue::DecodedField& field : record) {
        object[std::string(field.field->name)] = plainValue(field.value);
    }
    return object;
}

struct PlainValue {
    ordered_json operator()(std::int64_t number) const { return number; }
    ordered_json operator()(const std::string& text) const { return text; }
    ordered_json operator()(const std::vector<std::uint8_t>& bytes) const { return catalogue::formatHexBytes(bytes); }
    ordered_json operator()(const std::vector<catalogue::Record>& records) const
    {
        ordered_json array = ordered_json::array();
        std::ranges::transform(records, std::back_inserter(array), plainRecord);
        return array;
    }
};

ordered_json plainValue(const catalogue::Value& value)
{
    return std::visit(PlainValue{}, value);
}

ordered_json toJson(const catalogue::DecodedField& field)
{
    const std::string mask = catalogue::maskOf(field);
    ordered_json object{{"value", mask.empty() ? plainValue(field.value) : ordered_json(mask)},
                        {"text", catalogue::format(field)}};
    if (!mask.empty()) {
        object["masked"] = true;
    }
    if (!field.choice().empty()) {
        object["choice"] = field.choice();
    }
    if (!field.field->unit.empty()) {
        object["unit"] = field.field->unit;
    }
    const auto* number = std::get_if<std::int64_t>(&field.value);
    if (const auto& scale = field.field->scale; scale && number != nullptr) {
        object["scaled"] = {{"value", std::stod(protocol::shortText(static_cast<double>(*number) * scale->factor))},
                            {"unit", scale->unit}};
    }
    if (!field.problem.empty()) {
        object["problem"] = field.problem;
    }
    return object;
}

const char* kindOf(const catalogue::Decoded& decoded)
{
    if (decoded.notice != nullptr) {
        return "notice";
    }
    if (decoded.command == nullptr) {
        return "unknown";
    }
    if (decoded.reply == nullptr) {
        return "request";
    }
    const bool later = std::ranges::any_of(decoded.command->later,
                                           [&](const catalogue::Reply& reply) { return &reply == decoded.reply; });
    return later ? "later" : "reply";
}

}  // namespace

ordered_json frameJson(catalogue::Groups groups, const catalogue::Decoded& decoded, const protocol::Frame& frame)
{
    protocol::Frame shown = frame;
    const bool masked = catalogue::maskSecrets(groups, shown);
    ordered_json object{{"cmd_one", frame.cmdOne},
                        {"cmd_two", frame.cmdTwo},
                        {"params", catalogue::formatHexBytes(shown.params)},
                        {"kind", kindOf(decoded)}};
    if (masked) {
        object["masked"] = true;
    }
    if (decoded.command != nullptr) {
        object["key"] = catalogue::fullKey(groups, *decoded.command);
    } else if (decoded.notice != nullptr) {
        object["key"] = catalogue::fullKey(groups, *decoded.notice);
    }
    if (decoded.reply != nullptr && !decoded.reply->when.empty()) {
        object["when"] = decoded.reply->when;
    }
    object["fields"] = ordered_json::object();
    for (const catalogue::DecodedField& field : decoded.fields) {
        object["fields"][std::string(field.field->name)] = toJson(field);
    }
    if (!decoded.rest.empty()) {
        object["rest"] = catalogue::formatHexBytes(decoded.rest);
    }
    object["problems"] = decoded.problems;
    if (!decoded.remarks.empty()) {
        object["remarks"] = decoded.remarks;
    }
    return object;
}

}  // namespace programs::station_tool
