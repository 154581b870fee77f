#include <fmt/format.h>

#include <cstdint>
#include <span>

#include "protocol/catalogue/generator/Writers.h"

namespace protocol::catalogue::generator {

namespace {

std::string literal(std::string_view text)
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

/// Writes the arrays from the inside out: what an element points to stands before it.
class CppWriter
{
public:
    std::string take() { return std::move(out_); }

    std::string choices(std::span<const Choice> list)
    {
        return array("Choice", list, [](const Choice& choice) {
            return fmt::format("{{{}, {}}}", choice.value, literal(choice.name));
        });
    }

    std::string fields(std::span<const Field> list)
    {
        return array("Field", list, [this](const Field& field) {
            const std::string inner = fields(field.fields);
            const std::string named = choices(field.choices);
            const std::string scale = field.scale ? fmt::format("Scale{{{}, {}, {}}}", field.scale->factor,
                                                                literal(field.scale->unit), literal(field.scale->only))
                                                  : "std::nullopt";
            return fmt::format("{{{}, Type{{{}}}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}}}",
                               literal(field.name), static_cast<int>(field.type), literal(field.meaning),
                               literal(field.unit), scale, field.minimum, field.maximum, named, field.open,
                               field.optional, literal(field.example), inner, field.secret, field.lenient);
        });
    }

    std::string replies(std::span<const Reply> list)
    {
        return array("Reply", list, [this](const Reply& reply) {
            const std::string inner = fields(reply.fields);
            return fmt::format("{{{}, {}, {}, {}}}", reply.cmdOne, reply.cmdTwo, literal(reply.when), inner);
        });
    }

    std::string commands(std::span<const Command> list)
    {
        return array("Command", list, [this](const Command& command) {
            const std::string params = fields(command.params);
            const std::string atOnce = replies(command.replies);
            const std::string later = replies(command.later);
            return fmt::format("{{{}, {}, {}, {}, {}, Access::{}, {}, {}, {}, {}, {}, {}, {}, {}, {}}}", command.cmdOne,
                               command.cmdTwo, literal(command.key), literal(command.title), literal(command.meaning),
                               command.access == Access::kRead ? "kRead" : "kWrite", command.destructive,
                               command.repeatable, command.minimumParams, params, atOnce, literal(command.silentWhen),
                               later, literal(command.readBack), literal(command.unique));
        });
    }

    std::string notices(std::span<const Notice> list)
    {
        return array("Notice", list, [this](const Notice& notice) {
            const std::string inner = fields(notice.fields);
            return fmt::format("{{{}, {}, {}, {}, {}, {}}}", notice.cmdOne, notice.cmdTwo, literal(notice.key),
                               literal(notice.title), literal(notice.meaning), inner);
        });
    }

    std::string groups(Groups list)
    {
        return array("Group", list, [this](const Group& group) {
            const std::string ownCommands = commands(group.commands);
            const std::string ownNotices = notices(group.notices);
            return fmt::format("{{{}, {}, {}, {}, {}, {}}}", group.code, literal(group.key), literal(group.title),
                               literal(group.meaning), ownCommands, ownNotices);
        });
    }

private:
    /// Writes one array and @returns how to refer to it.
    template <class T, class Write>
    std::string array(std::string_view type, std::span<const T> list, Write write)
    {
        if (list.empty()) {
            return "{}";
        }
        std::string body;
        for (const T& element : list) {
            body += fmt::format("    {},\n", write(element));
        }
        const std::string name = fmt::format("k{}{}", type, ++count_);
        out_ += fmt::format("constexpr {} {}[] = {{\n{}}};\n", type, name, body);
        return name;
    }

    std::string out_;
    int count_ = 0;
};

}  // namespace

std::string writeCpp(Groups groups, std::string_view hash)
{
    CppWriter writer;
    const std::string all = writer.groups(groups);
    return fmt::format(
        "// Made from catalogue.toml.\n#include \"protocol/catalogue/Catalogue.h\"\n\n"
        "namespace protocol::catalogue {{\n\nnamespace {{\n\n{}\n}}  // namespace\n\n"
        "Groups groups()\n{{\n    return {};\n}}\n\n"
        "std::string_view hash()\n{{\n    return {};\n}}\n\n}}  // namespace protocol::catalogue\n",
        writer.take(), all, literal(hash));
}

}  // namespace protocol::catalogue::generator
