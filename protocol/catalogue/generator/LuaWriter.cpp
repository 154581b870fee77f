#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

#include "protocol/catalogue/generator/Writers.h"

namespace protocol::catalogue::generator {

namespace {

constexpr std::string_view kMark = "local groups = {}\n";

std::string luaLiteral(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            out += '\\';
        }
        out += c;
    }
    return out + '"';
}

std::string fields(std::span<const Field> list)
{
    std::vector<std::string> texts;
    for (const Field& field : list) {
        std::string text =
            fmt::format("name = {}, type = {}", luaLiteral(field.name), luaLiteral(infoOf(field.type).name));
        if (sizeOf(field.type) > 0) {
            text += fmt::format(", size = {}", sizeOf(field.type));
        }
        if (!field.unit.empty()) {
            text += fmt::format(", unit = {}", luaLiteral(field.unit));
        }
        if (!field.choices.empty()) {
            text += ", choices = {";
            for (const Choice& choice : field.choices) {
                text += fmt::format(" [{}] = {},", choice.value, luaLiteral(choice.name));
            }
            text += " }";
        }
        text += fmt::format(", minimum = {}, maximum = {}", field.minimum, field.maximum);
        text += field.open ? "" : ", closed = true";
        text += field.optional ? ", optional = true" : "";
        text += field.lenient ? ", lenient = true" : "";
        if (!field.fields.empty()) {
            text += ", fields = " + fields(field.fields);
        }
        texts.push_back(std::move(text));
    }
    return texts.empty() ? "{}" : fmt::format("{{{{ {} }}}}", fmt::join(texts, " }, { "));
}

std::string frameLine(std::uint8_t one, std::uint8_t two, const Group& group, std::string_view key,
                      std::span<const Field> list, std::string_view more = "")
{
    return fmt::format("    {{ {}, {}, {}, {}{} }},\n", one, two, luaLiteral(fmt::format("{}.{}", group.key, key)),
                       fields(list), more);
}

/// @returns what a request's line says about its replies: the codes, each with the most parameter bytes with which it
/// still answers this command.
std::string replies(const Command& command)
{
    if (command.replies.empty()) {
        return "";
    }
    std::string text = ", replies = {";
    for (const Reply& reply : command.replies) {
        // The first reply has the command's own code. Further replies share their codes with other commands' replies.
        std::size_t most = 0;
        for (const Field& field : reply.fields) {
            most += sizeOf(field.type) > 0 ? sizeOf(field.type) : static_cast<std::size_t>(field.maximum);
        }
        text += fmt::format(" [{}] = {},", reply.cmdOne << 8 | reply.cmdTwo,
                            &reply == &command.replies.front() ? kMaxStationParams : most);
    }
    text += fmt::format(" }}, minimum = {}", command.minimumParams);
    return text + (command.silentWhen.empty() ? "" : ", silent = " + luaLiteral(command.silentWhen));
}

}  // namespace

std::string writeLua(Groups groups, std::string_view code)
{
    const auto mark = code.find(kMark);
    if (mark == std::string_view::npos) {
        throw std::runtime_error("expected the line 'local groups = {}' in the script, got none");
    }
    std::string titles;
    std::string requests;
    std::string usual;
    std::string exceptions;
    for (const Group& group : groups) {
        titles += fmt::format("    [{}] = {},\n", group.code, luaLiteral(group.title));
        for (const Command& command : group.commands) {
            requests += frameLine(command.cmdOne, command.cmdTwo, group, command.key, command.params, replies(command));
            // The usual reply of a code stands before an exception under the same code.
            for (const Reply& reply : command.replies) {
                (reply.when.empty() ? usual : exceptions) +=
                    frameLine(reply.cmdOne, reply.cmdTwo, group, command.key, reply.fields);
            }
            for (const Reply& reply : command.later) {
                exceptions += frameLine(reply.cmdOne, reply.cmdTwo, group, command.key, reply.fields);
            }
        }
        for (const Notice& notice : group.notices) {
            usual += frameLine(notice.cmdOne, notice.cmdTwo, group, notice.key, notice.fields);
        }
    }
    return fmt::format("{}local groups = {{\n{}}}\nlocal frames = {{\n{}{}{}}}\n{}", code.substr(0, mark), titles,
                       requests, usual, exceptions, code.substr(mark + kMark.size()));
}

}  // namespace protocol::catalogue::generator
