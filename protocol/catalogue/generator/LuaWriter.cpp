#include <span>
#include <stdexcept>

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
    std::string text = "{";
    for (const Field& field : list) {
        text += (text.size() == 1 ? "" : ", ") + ("{ name = " + luaLiteral(field.name)) +
                ", type = " + luaLiteral(infoOf(field.type).name);
        if (sizeOf(field.type) > 0) {
            text += ", size = " + std::to_string(sizeOf(field.type));
        }
        if (!field.unit.empty()) {
            text += ", unit = " + luaLiteral(field.unit);
        }
        if (!field.choices.empty()) {
            text += ", choices = {";
            for (const Choice& choice : field.choices) {
                text += " [" + std::to_string(choice.value) + "] = " + luaLiteral(choice.name) + ",";
            }
            text += " }";
        }
        text += ", minimum = " + std::to_string(field.minimum) + ", maximum = " + std::to_string(field.maximum);
        if (!field.open) {
            text += ", closed = true";
        }
        if (field.optional) {
            text += ", optional = true";
        }
        if (!field.fields.empty()) {
            text += ", fields = " + fields(field.fields);
        }
        text += " }";
    }
    return text + "}";
}

/// What the head unit sends, by both bytes: the usual answer of a code stands before an exception under the same code.
void addFromUnit(std::string& usual, std::string& exceptions, const Group& group, const Command& command)
{
    const std::string key = luaLiteral(std::string(group.key) + "." + std::string(command.key));
    const auto line = [&](const Reply& reply) {
        return "    { " + std::to_string(reply.cmdOne) + ", " + std::to_string(reply.cmdTwo) + ", " + key + ", " +
               fields(reply.fields) + " },\n";
    };
    for (const Reply& reply : command.replies) {
        (reply.when.empty() ? usual : exceptions) += line(reply);
    }
    for (const Reply& reply : command.later) {
        exceptions += line(reply);
    }
}

}  // namespace

std::string writeLua(Groups groups, std::string_view code)
{
    const auto mark = code.find(kMark);
    if (mark == std::string_view::npos) {
        throw std::runtime_error("the script has no line 'local groups = {}'");
    }
    std::string titles;
    std::string requests;
    std::string usual;
    std::string exceptions;
    for (const Group& group : groups) {
        titles += "    [" + std::to_string(group.code) + "] = " + luaLiteral(group.title) + ",\n";
        for (const Command& command : group.commands) {
            requests += "    { " + std::to_string(command.cmdOne) + ", " + std::to_string(command.cmdTwo) + ", " +
                        luaLiteral(std::string(group.key) + "." + std::string(command.key)) + ", " +
                        fields(command.params) + " },\n";
            addFromUnit(usual, exceptions, group, command);
        }
        for (const Notice& notice : group.notices) {
            usual += "    { " + std::to_string(notice.cmdOne) + ", " + std::to_string(notice.cmdTwo) + ", " +
                     luaLiteral(std::string(group.key) + "." + std::string(notice.key)) + ", " + fields(notice.fields) +
                     " },\n";
        }
    }
    return std::string(code.substr(0, mark)) + "local groups = {\n" + titles + "}\nlocal frames = {\n" + requests +
           usual + exceptions + "}\n" + std::string(code.substr(mark + kMark.size()));
}

}  // namespace protocol::catalogue::generator
