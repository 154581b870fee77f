#include "station/plan/JsonValue.h"

#include <nlohmann/json.hpp>

namespace station::plan {

namespace {

using Json = nlohmann::ordered_json;

struct NoJson {
};

Json convert(const toml::node& node)
{
    if (const auto* table = node.as_table()) {
        Json object = Json::object();
        for (const auto& [key, value] : *table) {
            object[std::string(key.str())] = convert(value);
        }
        return object;
    }
    if (const auto* array = node.as_array()) {
        Json list = Json::array();
        for (const auto& value : *array) {
            list.push_back(convert(value));
        }
        return list;
    }
    if (const auto* text = node.as_string()) {
        return text->get();
    }
    if (const auto* integer = node.as_integer()) {
        return integer->get();
    }
    if (const auto* number = node.as_floating_point()) {
        return number->get();
    }
    if (const auto* flag = node.as_boolean()) {
        return flag->get();
    }
    throw NoJson();
}

}  // namespace

std::optional<std::string> jsonText(const toml::node& node)
{
    try {
        return convert(node).dump(-1, ' ', false, Json::error_handler_t::replace);
    } catch (const NoJson&) {
        return std::nullopt;
    }
}

}  // namespace station::plan
