#include "platform/bench/StateSchema.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "platform/bench/JsonText.h"
#include "protocol/Text.h"

namespace bench {
namespace {

using nlohmann::json;

constexpr std::size_t kVersionCount = 11;

/// The names of the state as a tree. The leaves are indices into kStateRows.
const json& schema()
{
    static const json tree = [] {
        json root = json::object();
        for (std::size_t row = 0; row < kStateRows.size(); ++row) {
            root[json::json_pointer(std::string(kStateRows[row].path))] = row;
        }
        return root;
    }();
    return tree;
}

const char* wanted(StateType type)
{
    switch (type) {
        case StateType::kBool:
            return "true or false";
        case StateType::kInt:
            return "an integer from -2147483648 to 2147483647";
        case StateType::kText:
            return "a text";
        case StateType::kIntArray:
            return "an array of integers";
        case StateType::kTextArray:
            return "an array of texts";
        case StateType::kVersions:
            return "an array of 11 texts";
        case StateType::kIntMap:
            return "an object of integers by decimal number";
        case StateType::kTextMap:
            return "an object of texts by decimal number";
        case StateType::kIntArrayMap:
            return "an object of arrays of integers by decimal number";
        case StateType::kConfig:
            return "an object of true or false, integers and texts by keys that begin with '/'";
    }
    return "something else";
}

std::string found(const json& value)
{
    if (value.is_number()) {
        return toText(value);
    }
    if (value.is_string()) {
        return "a text";
    }
    if (value.is_array()) {
        return "an array of " + std::to_string(value.size());
    }
    if (value.is_object()) {
        return "an object";
    }
    return toText(value);  // null, true, false
}

[[noreturn]] void refuseValue(const std::string& path, const json& value, const std::string& right)
{
    throw StateError(
        StateError::Kind::kInvalidValue,
        protocol::printable((path.empty() ? "the state" : path) + ": expected " + right + ", got " + found(value)));
}

[[noreturn]] void refusePath(const std::string& path, const std::string& why)
{
    throw StateError(StateError::Kind::kUnknownPath, protocol::printable(path + ": " + why));
}

std::string listOfKeys(const json& object)
{
    std::string list;
    for (const auto& [key, value] : object.items()) {
        list += (list.empty() ? "" : ", ") + key;
    }
    return list;
}

std::string escaped(std::string key)
{
    for (std::size_t at = 0; (at = key.find_first_of("~/", at)) != std::string::npos; at += 2) {
        key.replace(at, 1, key[at] == '~' ? "~0" : "~1");
    }
    return key;
}

std::string below(const std::string& path, const std::string& key)
{
    return path + "/" + escaped(key);
}

bool isInt(const json& value)
{
    using Limits = std::numeric_limits<std::int32_t>;
    if (value.is_number_unsigned()) {
        return value.get<std::uint64_t>() <= static_cast<std::uint64_t>(Limits::max());
    }
    return value.is_number_integer() && value.get<std::int64_t>() >= Limits::min() &&
           value.get<std::int64_t>() <= Limits::max();
}

bool isText(const json& value)
{
    return value.is_string();
}

/// Look-ups use the shortest spelling of a number, so a key in another spelling would never be found.
bool isNumberKey(const std::string& key)
{
    std::int32_t number = 0;
    const auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), number);
    return error == std::errc() && end == key.data() + key.size() && std::to_string(number) == key;
}

bool isConfigKey(const std::string& key)
{
    return key.starts_with('/');
}

bool isOpen(StateType type)
{
    return type == StateType::kIntMap || type == StateType::kTextMap || type == StateType::kIntArrayMap ||
           type == StateType::kConfig;
}

bool isKeyOf(StateType type, const std::string& key)
{
    return type == StateType::kConfig ? isConfigKey(key) : isNumberKey(key);
}

const char* keyWanted(StateType type)
{
    return type == StateType::kConfig ? "a key that begins with '/', which a path spells ~1"
                                      : "a decimal number as key";
}

using Check = bool (*)(const json&);

void checkArray(const std::string& path, const json& value, Check fits, StateType type)
{
    if (!value.is_array() || (type == StateType::kVersions && value.size() != kVersionCount)) {
        refuseValue(path, value, wanted(type));
    }
    for (std::size_t index = 0; index < value.size(); ++index) {
        if (!fits(value[index])) {
            refuseValue(path + "/" + std::to_string(index), value[index],
                        wanted(fits == isInt ? StateType::kInt : StateType::kText));
        }
    }
}

void checkKeys(const std::string& path, const json& value, StateType type)
{
    if (!value.is_object()) {
        refuseValue(path, value, wanted(type));
    }
    for (const auto& [key, item] : value.items()) {
        if (!isKeyOf(type, key)) {
            refusePath(below(path, key), std::string("expected ") + keyWanted(type));
        }
    }
}

void checkMap(const std::string& path, const json& value, StateType type)
{
    checkKeys(path, value, type);
    for (const auto& [key, item] : value.items()) {
        const std::string itemPath = below(path, key);
        if (type == StateType::kIntArrayMap) {
            checkArray(itemPath, item, isInt, StateType::kIntArray);
        } else if (type == StateType::kIntMap && !isInt(item)) {
            refuseValue(itemPath, item, wanted(StateType::kInt));
        } else if (type == StateType::kTextMap && !isText(item)) {
            refuseValue(itemPath, item, wanted(StateType::kText));
        }
    }
}

void checkConfigItem(const std::string& path, const json& item, const json* before)
{
    if (!item.is_boolean() && !isInt(item) && !isText(item)) {
        refuseValue(path, item, "true or false, an integer or a text");
    }
    if (before == nullptr) {
        return;
    }
    if (before->is_boolean() && !item.is_boolean()) {
        refuseValue(path, item, wanted(StateType::kBool));
    }
    if (before->is_number() && !isInt(item)) {
        refuseValue(path, item, wanted(StateType::kInt));
    }
    if (before->is_string() && !isText(item)) {
        refuseValue(path, item, wanted(StateType::kText));
    }
}

void checkConfig(const std::string& path, const json& value, const json& current)
{
    checkKeys(path, value, StateType::kConfig);
    for (const auto& [key, item] : value.items()) {
        const auto before = current.find(key);
        checkConfigItem(below(path, key), item, before == current.end() ? nullptr : &*before);
    }
}

void checkRow(StateType type, const std::string& path, const json& value, const json& current)
{
    switch (type) {
        case StateType::kBool:
            if (!value.is_boolean()) {
                refuseValue(path, value, wanted(type));
            }
            break;
        case StateType::kInt:
            if (!isInt(value)) {
                refuseValue(path, value, wanted(type));
            }
            break;
        case StateType::kText:
            if (!isText(value)) {
                refuseValue(path, value, wanted(type));
            }
            break;
        case StateType::kIntArray:
            checkArray(path, value, isInt, type);
            break;
        case StateType::kTextArray:
        case StateType::kVersions:
            checkArray(path, value, isText, type);
            break;
        case StateType::kIntMap:
        case StateType::kTextMap:
        case StateType::kIntArrayMap:
            checkMap(path, value, type);
            break;
        case StateType::kConfig:
            checkConfig(path, value, current);
            break;
    }
}

void checkNode(const json& node, const std::string& path, const json& value, const json& current)
{
    if (!node.is_object()) {
        checkRow(kStateRows[node.get<std::size_t>()].type, path, value, current);
        return;
    }
    if (!value.is_object()) {
        refuseValue(path, value, "an object of " + listOfKeys(node));
    }
    for (const auto& [key, item] : value.items()) {
        if (!node.contains(key)) {
            refusePath(below(path, key), "expected one of " + listOfKeys(node));
        }
    }
    for (const auto& [key, child] : node.items()) {
        const auto item = value.find(key);
        if (item == value.end()) {
            throw StateError(StateError::Kind::kInvalidValue,
                             below(path, key) + ": expected a value, got none; it cannot be removed");
        }
        checkNode(child, below(path, key), *item, current.at(key));
    }
}

json::json_pointer parsePointer(const std::string& path)
{
    try {
        return json::json_pointer(path);
    } catch (const json::exception&) {
        refusePath(path,
                   "expected a JSON Pointer: it begins with '/'; a key's ~ is written ~0 and its / is written ~1");
    }
}

/// The names in the pointer, from the root on.
std::vector<std::string> tokens(json::json_pointer pointer)
{
    std::vector<std::string> names;
    for (; !pointer.empty(); pointer.pop_back()) {
        names.push_back(pointer.back());
    }
    std::ranges::reverse(names);
    return names;
}

std::size_t arrayIndex(const json& array, const std::string& name, const std::string& path)
{
    std::size_t index = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), index);
    const bool isIndex = error == std::errc() && end == name.data() + name.size() && std::to_string(index) == name;
    if (!isIndex || index >= array.size()) {
        refusePath(path, "expected one of " + std::to_string(array.size()) + " elements, counted from 0");
    }
    return index;
}

[[noreturn]] void refuseName(const json& object, const json* schemaNode, const std::string& path)
{
    const bool isRow = schemaNode != nullptr && !schemaNode->is_object();
    const std::string open =
        isRow ? std::string(", or ") + keyWanted(kStateRows[schemaNode->get<std::size_t>()].type) : "";
    refusePath(path, "expected one of " + listOfKeys(object) + open);
}

/// @param mayAdd whether to add a new key of an open object at the end of the path
template <class Json>
Json& resolve(Json& document, const std::string& path, bool mayAdd)
{
    Json* value = &document;
    const json* schemaNode = &schema();  // null below a row
    const auto names = tokens(parsePointer(path));
    for (std::size_t depth = 0; depth < names.size(); ++depth) {
        const std::string& name = names[depth];
        if (value->is_array()) {
            value = &(*value)[arrayIndex(*value, name, path)];
            continue;
        }
        if (!value->is_object()) {
            refusePath(path, "expected the end of the path, because a single value has nothing below it");
        }
        if constexpr (!std::is_const_v<Json>) {
            const bool atRow = schemaNode != nullptr && !schemaNode->is_object();
            const StateType type = atRow ? kStateRows[schemaNode->template get<std::size_t>()].type : StateType::kBool;
            if (mayAdd && depth + 1 == names.size() && isOpen(type) && isKeyOf(type, name) && !value->contains(name)) {
                (*value)[name] = nullptr;
            }
        }
        const auto item = value->find(name);
        if (item == value->end()) {
            refuseName(*value, schemaNode, path);
        }
        value = &*item;
        schemaNode = schemaNode != nullptr && schemaNode->is_object() ? &schemaNode->at(name) : nullptr;
    }
    return *value;
}

}  // namespace

json builtInState()
{
    json document = json::object();
    for (const StateRow& row : kStateRows) {
        document[json::json_pointer(std::string(row.path))] = json::parse(row.initial);
    }
    return document;
}

void checkState(const json& candidate, const json& current)
{
    checkNode(schema(), "", candidate, current);
}

const json& findValue(const json& document, const std::string& path)
{
    return resolve(document, path, false);
}

json& findOrAddValue(json& document, const std::string& path)
{
    return resolve(document, path, true);
}

}  // namespace bench
