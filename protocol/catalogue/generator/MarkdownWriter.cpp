#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"
#include "protocol/catalogue/generator/Writers.h"

namespace protocol::catalogue::generator {

namespace {

std::string hex(std::uint8_t byte)
{
    return formatHexBytes(std::array{byte});
}

std::string code(std::uint8_t one, std::uint8_t two)
{
    return fmt::format("`{} {}`", hex(one), hex(two));
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
    const TypeInfo& whole = infoOf(field.type);
    if (field.minimum == whole.minimum && field.maximum == whole.maximum) {
        return "";
    }
    const std::string range = field.minimum == field.maximum ? fmt::to_string(field.minimum)
                                                             : fmt::format("{} to {}", field.minimum, field.maximum);
    return range + (whole.size > 0 ? "" : field.type == Type::kRecords ? " of them" : " bytes");
}

/// @returns the texts of a list, `separator` between them.
template <class T, class Write>
std::string joined(std::span<const T> list, std::string_view separator, Write write)
{
    std::vector<std::string> texts;
    std::ranges::transform(list, std::back_inserter(texts), write);
    return fmt::format("{}", fmt::join(texts, separator));
}

std::string cellOf(const Field& field)
{
    std::vector<std::string> notes{std::string(infoOf(field.type).name)};
    if (field.type == Type::kRecords) {
        notes.back() = "for each: " + joined(field.fields, ", ", [](const Field& each) {
                           return fmt::format("{} {}", each.name, infoOf(each.type).name);
                       });
    }
    if (!field.unit.empty()) {
        notes.emplace_back(field.unit);
    }
    if (const auto range = rangeOf(field); !range.empty() && field.choices.empty()) {
        notes.push_back(field.lenient ? "usually " + range : range);
    }
    if (!field.choices.empty()) {
        notes.push_back(joined(field.choices, ", ",
                               [](const Choice& choice) { return fmt::format("{} {}", choice.value, choice.name); }) +
                        (field.open ? ", or another" : ""));
    }
    if (field.optional) {
        notes.emplace_back("may be missing");
    }
    if (!field.meaning.empty()) {
        notes.emplace_back(field.meaning);
    }
    return fmt::format("*{}* ({})", field.name, fmt::join(notes, "; "));
}

std::string cellOf(std::span<const Field> fields)
{
    return joined(fields, ", ", [](const Field& field) { return cellOf(field); });
}

std::string cellOf(const Reply& reply)
{
    const std::string text =
        code(reply.cmdOne, reply.cmdTwo) + (reply.fields.empty() ? ", no byte" : ": " + cellOf(reply.fields));
    return reply.when.empty() ? text : fmt::format("{} when {}", text, reply.when);
}

std::string repliesOf(const Command& command)
{
    std::vector<std::string> parts;
    for (const Reply& reply : command.replies) {
        parts.push_back(cellOf(reply));
    }
    if (!command.silentWhen.empty()) {
        parts.push_back(fmt::format("none {}", command.silentWhen));
    }
    for (const Reply& reply : command.later) {
        parts.push_back("later " + cellOf(reply));
    }
    return parts.empty() ? "none" : fmt::format("{}", fmt::join(parts, "; "));
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
        text += fmt::format(" Read back with `{}`.", command.readBack);
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
    return fmt::format("| {}<br>`{}.{}` | {} | {} | {} | {} |\n", code(command.cmdOne, command.cmdTwo), group.key,
                       command.key, command.params.empty() ? "—" : cellOf(command.params), effectOf(command),
                       repliesOf(command), example);
}

std::string section(const Group& group)
{
    std::string text = fmt::format(
        "\n## {}, group `{}`, `{}`\n\n{}\n\n"
        "| command | parameters | what happens | reply | example: request, then reply |\n"
        "| --- | --- | --- | --- | --- |\n",
        group.title, hex(group.code), group.key, group.meaning);
    for (const Command& command : group.commands) {
        text += row(group, command);
    }
    if (!group.notices.empty()) {
        text += "\nThe unit sends on its own:\n\n| frame | fields | when | example |\n| --- | --- | --- | --- |\n";
    }
    for (const Notice& notice : group.notices) {
        text += fmt::format("| {}<br>`{}.{}` | {} | {} | {} |\n", code(notice.cmdOne, notice.cmdTwo), group.key,
                            notice.key, cellOf(notice.fields), notice.meaning,
                            exampleFrame(notice.cmdOne, notice.cmdTwo, notice.fields));
    }
    return text;
}

}  // namespace

std::string writeMarkdown(Groups groups)
{
    std::string text;
    for (const Group& group : groups) {
        text += section(group);
    }
    return text;
}

}  // namespace protocol::catalogue::generator
