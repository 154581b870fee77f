#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <span>
#include <stdexcept>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"
#include "protocol/catalogue/generator/Writers.h"

namespace protocol::catalogue::generator {

namespace {

constexpr std::string_view kBegin =
    "<!-- From here to the end mark: made from protocol/catalogue.toml by scripts/generate -->\n";
constexpr std::string_view kEnd = "<!-- end mark -->\n";

std::string hex(std::uint8_t byte)
{
    return formatHexBytes(std::array{byte});
}

std::string code(std::uint8_t one, std::uint8_t two)
{
    return "`" + hex(one) + " " + hex(two) + "`";
}

/// The frame of the examples of `fields`, as it stands on the wire.
std::string exampleFrame(std::uint8_t one, std::uint8_t two, std::span<const Field> fields)
{
    Command command;
    command.cmdOne = one;
    command.cmdTwo = two;
    command.params = fields;
    std::vector<Argument> arguments;
    for (const Field& field : fields) {
        arguments.emplace_back(field.name, field.example);
    }
    const Frame frame = catalogue::encode(command, arguments);
    StationFrameBuffer buffer;
    const std::size_t length = protocol::encode(buffer, one, two, frame.params);
    return "`" + formatHexBytes(Bytes(buffer).first(length)) + "`";
}

std::string rangeOf(const Field& field)
{
    const bool number = sizeOf(field.type) > 0;
    const std::int64_t most = field.type == Type::kI32be ? 0x7FFFFFFF
                              : number                   ? (std::int64_t{1} << (8 * sizeOf(field.type))) - 1
                                                         : static_cast<std::int64_t>(kMaxParams);
    const std::int64_t least = field.type == Type::kI32be ? -std::int64_t{0x80000000} : 0;
    if (field.minimum == least && field.maximum == most) {
        return "";
    }
    const std::string range = field.minimum == field.maximum
                                  ? std::to_string(field.minimum)
                                  : std::to_string(field.minimum) + " to " + std::to_string(field.maximum);
    return number ? range : field.type == Type::kRecords ? range + " of them" : range + " bytes";
}

std::string describe(const Field& field)
{
    std::vector<std::string> notes{std::string(nameOf(field.type))};
    if (field.type == Type::kRecords) {
        std::string inner;
        for (const Field& each : field.fields) {
            inner += (inner.empty() ? "" : ", ") + std::string(each.name) + " " + std::string(nameOf(each.type));
        }
        notes.back() = "for each: " + inner;
    }
    if (!field.unit.empty()) {
        notes.emplace_back(field.unit);
    }
    if (const auto range = rangeOf(field); !range.empty() && field.choices.empty()) {
        notes.push_back(range);
    }
    std::string named;
    for (const Choice& choice : field.choices) {
        named += (named.empty() ? "" : ", ") + std::to_string(choice.value) + " " + std::string(choice.name);
    }
    if (!named.empty()) {
        notes.push_back(named + (field.open ? ", or another" : ""));
    }
    if (field.optional) {
        notes.emplace_back("may be missing");
    }
    if (!field.meaning.empty()) {
        notes.emplace_back(field.meaning);
    }
    std::string text = "*" + std::string(field.name) + "* (";
    for (std::size_t i = 0; i < notes.size(); ++i) {
        text += (i == 0 ? "" : "; ") + notes[i];
    }
    return text + ")";
}

std::string describe(std::span<const Field> fields)
{
    std::string text;
    for (const Field& field : fields) {
        text += (text.empty() ? "" : ", ") + describe(field);
    }
    return text;
}

std::string describe(const Reply& reply)
{
    std::string text = code(reply.cmdOne, reply.cmdTwo);
    text += reply.fields.empty() ? ", no byte" : ": " + describe(reply.fields);
    return reply.when.empty() ? text : text + " when " + std::string(reply.when);
}

std::string repliesOf(const Command& command)
{
    std::vector<std::string> parts;
    for (const Reply& reply : command.replies) {
        parts.push_back(describe(reply));
    }
    if (!command.silentWhen.empty()) {
        parts.push_back("none " + std::string(command.silentWhen));
    }
    for (const Reply& reply : command.later) {
        parts.push_back("later " + describe(reply));
    }
    std::string text;
    for (const auto& part : parts) {
        text += (text.empty() ? "" : "; ") + part;
    }
    return text.empty() ? "none" : text;
}

std::string effectOf(const Command& command)
{
    std::string text(command.meaning);
    if (command.destructive) {
        text += " **Destructive.**";
    }
    if (!command.repeatable) {
        text += " Not sent again after a reconnect.";
    }
    if (!command.readBack.empty()) {
        text += " Read back with `" + std::string(command.readBack) + "`.";
    }
    return text;
}

std::string row(const Group& group, const Command& command)
{
    std::string example = exampleFrame(command.cmdOne, command.cmdTwo, command.params);
    const auto answers = command.replies.empty() ? command.later : command.replies;
    if (!answers.empty()) {
        example += "<br>" + exampleFrame(answers.front().cmdOne, answers.front().cmdTwo, answers.front().fields);
    }
    return "| " + code(command.cmdOne, command.cmdTwo) + "<br>`" + std::string(group.key) + "." +
           std::string(command.key) + "` | " + (command.params.empty() ? "—" : describe(command.params)) + " | " +
           effectOf(command) + " | " + repliesOf(command) + " | " + example + " |\n";
}

std::string section(const Group& group)
{
    std::string text = "## " + std::string(group.title) + ", group `" + hex(group.code) + "`, `" +
                       std::string(group.key) + "`\n\n" + std::string(group.meaning) + "\n\n" +
                       "| command | parameters | what happens | reply | example: request, then reply |\n"
                       "| --- | --- | --- | --- | --- |\n";
    for (const Command& command : group.commands) {
        text += row(group, command);
    }
    if (!group.notices.empty()) {
        text += "\nThe unit sends on its own:\n\n| frame | fields | when | example |\n| --- | --- | --- | --- |\n";
    }
    for (const Notice& notice : group.notices) {
        text += "| " + code(notice.cmdOne, notice.cmdTwo) + "<br>`" + std::string(group.key) + "." +
                std::string(notice.key) + "` | " + describe(notice.fields) + " | " + std::string(notice.meaning) +
                " | " + exampleFrame(notice.cmdOne, notice.cmdTwo, notice.fields) + " |\n";
    }
    return text + "\n";
}

}  // namespace

std::string_view nameOf(Type type)
{
    constexpr std::array<std::string_view, 9> kNames{"u8",    "u16be", "u24be", "u32be",  "i32be",
                                                     "bytes", "ascii", "hex",   "records"};
    return kNames.at(static_cast<std::size_t>(type));
}

std::string writeMarkdown(Groups groups, std::string_view page)
{
    const auto begin = page.find(kBegin);
    const auto end = page.find(kEnd);
    if (begin == std::string_view::npos || end == std::string_view::npos || end < begin) {
        throw std::runtime_error("the page has no marks around the tables");
    }
    std::string text(page.substr(0, begin + kBegin.size()));
    text += "\n";
    for (const Group& group : groups) {
        text += section(group);
    }
    return text + std::string(page.substr(end));
}

}  // namespace protocol::catalogue::generator
