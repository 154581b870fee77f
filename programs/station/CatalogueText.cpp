#include "programs/station/CatalogueText.h"

#include <vector>

#include "programs/Cli.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"

namespace programs::station_tool {

namespace {

using namespace protocol::catalogue;

constexpr std::size_t kTextWidth = 100;

using Row = std::vector<std::string>;

std::string paragraph(std::string_view text)
{
    std::string lines;
    for (const std::string& line : wrapped(std::string(text), kTextWidth)) {
        lines += line + "\n";
    }
    return lines;
}

template <class Coded>
std::string codesOf(const Coded& coded)
{
    const std::uint8_t codes[] = {coded.cmdOne, coded.cmdTwo};
    return formatHexBytes(codes);
}

std::string namesOf(std::span<const Field> fields)
{
    std::string text;
    for (const Field& field : fields) {
        const std::string name = field.optional ? "[" + std::string(field.name) + "]" : std::string(field.name);
        text += (text.empty() ? "" : " ") + name;
    }
    return text;
}

std::string flagsOf(const Command& command)
{
    return std::string(command.access == Access::kRead ? "reads" : "writes") +
           (command.destructive ? ", destructive" : "");
}

std::string answerOf(const Command& command)
{
    const std::string now = command.replies.empty() ? "" : codesOf(command.replies.front());
    if (command.later.empty()) {
        return now.empty() ? "-" : now;
    }
    return (now.empty() ? "" : now + ", ") + "later " + codesOf(command.later.front());
}

void addFieldRows(std::vector<Row>& rows, std::span<const Field> fields, const std::string& indent)
{
    for (const Field& field : fields) {
        std::string notes = describe(field) + (field.optional ? "; may be left out" : "");
        notes += field.example.empty() ? "" : "; for example " + std::string(field.example);
        notes += field.meaning.empty() ? "" : "; " + std::string(field.meaning);
        rows.push_back({indent + std::string(field.name), typeName(field.type), notes});
        addFieldRows(rows, field.fields, indent + "  ");
    }
}

std::string fieldsText(const std::string& title, std::span<const Field> fields)
{
    std::vector<Row> rows;
    addFieldRows(rows, fields, "  ");
    return "\n" + title + ":\n" + (rows.empty() ? "  nothing\n" : protocol::table(rows));
}

std::string repliesText(const char* title, std::span<const Reply> replies)
{
    std::string text;
    for (const Reply& reply : replies) {
        text += fieldsText(title + (" " + codesOf(reply)) + (reply.when.empty() ? "" : ", " + std::string(reply.when)),
                           reply.fields);
    }
    return text;
}

/// @returns the command line that sends `command` with the catalogue's examples, and the frame that it makes; empty
/// when an example is missing.
std::string exampleText(Groups groups, const Command& command)
{
    std::vector<Argument> arguments;
    std::string line = "  engineering-station send " + fullKey(groups, command);
    for (const Field& field : command.params) {
        const std::string example(field.example);
        arguments.emplace_back(field.name, example);
        const bool plain = example.find_first_of(" '\"$&|;<>()*?[]#~`\\") == std::string::npos;
        line += " " + std::string(field.name) + "=" + (plain ? example : "'" + example + "'");
    }
    try {
        const protocol::Frame frame = encode(command, arguments);
        protocol::StationFrameBuffer buffer;
        const std::size_t length = protocol::encode(buffer, frame.cmdOne, frame.cmdTwo, frame.params);
        return "\nExample:\n" + line + (command.destructive ? " --yes" : "") + "\n  " +
               formatHexBytes(protocol::Bytes(buffer).first(length)) + "\n";
    } catch (const protocol::UserError&) {
        return {};
    }
}

nlohmann::ordered_json fieldsJson(std::span<const Field> fields)
{
    auto array = nlohmann::ordered_json::array();
    for (const Field& field : fields) {
        nlohmann::ordered_json object{{"name", field.name},       {"type", typeName(field.type)},
                                      {"meaning", field.meaning}, {"minimum", field.minimum},
                                      {"maximum", field.maximum}, {"optional", field.optional}};
        if (field.secret) {
            object["secret"] = true;
        }
        if (!field.unit.empty()) {
            object["unit"] = field.unit;
        }
        if (field.scale) {
            object["scale"] = {
                {"factor", field.scale->factor}, {"unit", field.scale->unit}, {"only", field.scale->only}};
        }
        if (!field.choices.empty()) {
            object["open"] = field.open;
            for (const Choice& choice : field.choices) {
                object["choices"].push_back({{"name", choice.name}, {"value", choice.value}});
            }
        }
        if (!field.example.empty()) {
            object["example"] = field.example;
        }
        if (!field.fields.empty()) {
            object["fields"] = fieldsJson(field.fields);
        }
        array.push_back(std::move(object));
    }
    return array;
}

nlohmann::ordered_json repliesJson(std::span<const Reply> replies)
{
    auto array = nlohmann::ordered_json::array();
    for (const Reply& reply : replies) {
        array.push_back({{"cmd_one", reply.cmdOne},
                         {"cmd_two", reply.cmdTwo},
                         {"when", reply.when},
                         {"fields", fieldsJson(reply.fields)}});
    }
    return array;
}

nlohmann::ordered_json commandJson(const std::string& key, const Command& command)
{
    return {{"key", key},
            {"cmd_one", command.cmdOne},
            {"cmd_two", command.cmdTwo},
            {"title", command.title},
            {"meaning", command.meaning},
            {"access", command.access == Access::kRead ? "read" : "write"},
            {"destructive", command.destructive},
            {"repeatable", command.repeatable},
            {"minimum_params", command.minimumParams},
            {"params", fieldsJson(command.params)},
            {"replies", repliesJson(command.replies)},
            {"silent_when", command.silentWhen},
            {"later", repliesJson(command.later)},
            {"read_back", command.readBack},
            {"unique", command.unique}};
}

nlohmann::ordered_json noticeJson(const std::string& key, const Notice& notice)
{
    return {{"key", key},
            {"cmd_one", notice.cmdOne},
            {"cmd_two", notice.cmdTwo},
            {"title", notice.title},
            {"meaning", notice.meaning},
            {"fields", fieldsJson(notice.fields)}};
}

}  // namespace

const char* typeName(Type type)
{
    switch (type) {
        case Type::kU8:
            return "u8";
        case Type::kU16be:
            return "u16be";
        case Type::kU24be:
            return "u24be";
        case Type::kU32be:
            return "u32be";
        case Type::kI32be:
            return "i32be";
        case Type::kBytes:
            return "bytes";
        case Type::kAscii:
            return "ascii";
        case Type::kHexText:
            return "hex";
        case Type::kRecords:
            return "records";
    }
    return "";
}

std::string listText(Groups groups)
{
    std::vector<Row> rows;
    for (const Group& group : groups) {
        for (const Command& command : group.commands) {
            rows.push_back({codesOf(command), fullKey(groups, command),
                            std::string(command.title) + (command.destructive ? " (destructive)" : "")});
        }
        for (const Notice& notice : group.notices) {
            rows.push_back({codesOf(notice), fullKey(groups, notice), std::string(notice.title) + " (sent unasked)"});
        }
    }
    return protocol::table(rows);
}

std::string groupText(const Group& group)
{
    const std::string key(group.key);
    std::vector<Row> rows;
    if (!group.commands.empty()) {
        rows.push_back({"code", "command", "parameters", "reply", "", "title"});
    }
    for (const Command& command : group.commands) {
        rows.push_back({codesOf(command), key + "." + std::string(command.key), namesOf(command.params),
                        answerOf(command), flagsOf(command), std::string(command.title)});
    }
    for (const Notice& notice : group.notices) {
        rows.push_back({codesOf(notice), key + "." + std::string(notice.key), namesOf(notice.fields), "",
                        "sent unasked", std::string(notice.title)});
    }
    const std::uint8_t codes[] = {group.code};
    return key + ", group " + formatHexBytes(codes) + ": " + std::string(group.title) + "\n" +
           paragraph(group.meaning) + "\n" + protocol::table(rows);
}

std::string commandText(Groups groups, const Command& command)
{
    std::string text = fullKey(groups, command) + ", " + codesOf(command) + ": " + std::string(command.title) + "\n" +
                       paragraph(command.meaning) + "\n";
    std::vector<Row> rows{{"It", flagsOf(command)},
                          {"After a reconnect", command.repeatable ? "may be sent again" : "is not sent again"}};
    if (!command.readBack.empty()) {
        rows.push_back({"Read back with", std::string(command.readBack)});
    }
    if (!command.unique.empty()) {
        rows.push_back({"Unique among units", "each " + std::string(command.unique) + " is given once (see registry)"});
    }
    if (!command.silentWhen.empty()) {
        rows.push_back({"No reply comes", std::string(command.silentWhen)});
    }
    text += protocol::table(rows) + fieldsText("Parameters", command.params);
    text += command.replies.empty() ? "\nReply: none\n" : repliesText("Reply", command.replies);
    return text + repliesText("Later", command.later) + exampleText(groups, command);
}

std::string noticeText(Groups groups, const Notice& notice)
{
    return fullKey(groups, notice) + ", " + codesOf(notice) + ": " + std::string(notice.title) + " (sent unasked)\n" +
           paragraph(notice.meaning) + fieldsText("Parameters", notice.fields);
}

nlohmann::ordered_json commandJson(Groups groups, const Command& command)
{
    return commandJson(fullKey(groups, command), command);
}

nlohmann::ordered_json noticeJson(Groups groups, const Notice& notice)
{
    return noticeJson(fullKey(groups, notice), notice);
}

nlohmann::ordered_json groupJson(const Group& group)
{
    const std::string prefix = std::string(group.key) + ".";
    nlohmann::ordered_json object{
        {"key", group.key}, {"code", group.code}, {"title", group.title}, {"meaning", group.meaning}};
    object["commands"] = nlohmann::ordered_json::array();
    for (const Command& command : group.commands) {
        object["commands"].push_back(commandJson(prefix + std::string(command.key), command));
    }
    object["notices"] = nlohmann::ordered_json::array();
    for (const Notice& notice : group.notices) {
        object["notices"].push_back(noticeJson(prefix + std::string(notice.key), notice));
    }
    return object;
}

}  // namespace programs::station_tool
