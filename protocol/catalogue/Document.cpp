#include "protocol/catalogue/Document.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/Text.h"
#include "protocol/toml/TableReader.h"

namespace protocol::catalogue {

namespace {

using toml_file::Problems;
using toml_file::TableReader;

struct Range {
    std::int64_t minimum;
    std::int64_t maximum;
};

bool isKey(std::string_view text)
{
    constexpr auto legal = [](unsigned char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    };
    return !text.empty() && text.front() >= 'a' && text.front() <= 'z' && std::ranges::all_of(text, legal);
}

constexpr std::string_view kKeyRule = "a lower-case letter, then lower-case letters, digits, '-' and '_'";

bool isOneLine(std::string_view text)
{
    return std::ranges::none_of(text, [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

}  // namespace

struct Document::Storage {
    // Deques: their elements never move.
    std::deque<std::string> texts;
    std::deque<std::vector<Choice>> choices;
    std::deque<std::vector<Field>> fields;
    std::deque<std::vector<Reply>> replies;
    std::deque<std::vector<Command>> commands;
    std::deque<std::vector<Notice>> notices;
    std::vector<Group> groups;
    Problems problems;

    std::string_view keep(std::string text) { return texts.emplace_back(std::move(text)); }

    std::string_view text(TableReader& reader, std::string_view key, bool required = false)
    {
        std::string value = reader.text(key, required);
        if (!isOneLine(value)) {
            reader.report(key, fmt::format("{}: expected one line without control characters", inQuotes(key)));
        }
        return keep(std::move(value));
    }

    std::string_view key(TableReader& reader, std::string_view name)
    {
        const std::string_view value = text(reader, name, true);
        if (!value.empty() && !isKey(value)) {
            reader.report(name, fmt::format("{}: expected {}, got {}", inQuotes(name), kKeyRule, inQuotes(value)));
        }
        return value;
    }

    std::span<const Choice> readChoices(TableReader& reader, Range range);
    std::optional<Scale> readScale(TableReader& reader);
    Field readField(const toml::table& table, bool inRecord);
    std::span<const Field> readFields(TableReader& reader, std::string_view key, bool inRecord = false);
    std::span<const Reply> readReplies(TableReader& reader, std::string_view key, std::uint8_t group,
                                       std::uint8_t command);
    Command readCommand(const toml::table& table, std::uint8_t group);
    Notice readNotice(const toml::table& table, std::uint8_t group);
    void readGroup(const toml::table& table);
    void checkReadBacks(const toml::table& root);
    void read(std::string_view text);
};

std::span<const Choice> Document::Storage::readChoices(TableReader& reader, Range range)
{
    const toml::table* table = reader.table("choices");
    auto& list = choices.emplace_back();
    if (table == nullptr) {
        return list;
    }
    for (const auto& [name, value] : *table) {
        if (!value.is_integer()) {
            toml_file::report(problems, value, fmt::format("choice {}: expected an integer", inQuotes(name.str())));
            continue;
        }
        const std::int64_t number = value.as_integer()->get();
        if (number < range.minimum || number > range.maximum) {
            toml_file::report(problems, value,
                              fmt::format("choice {}: expected {} to {}, got {}", inQuotes(name.str()), range.minimum,
                                          range.maximum, number));
        }
        if (!isKey(name.str())) {
            toml_file::report(problems, value,
                              fmt::format("choice: expected {}, got {}", kKeyRule, inQuotes(name.str())));
        }
        if (std::ranges::find(list, number, &Choice::value) != list.end()) {
            toml_file::report(problems, value,
                              fmt::format("expected one name for {}, got a second, {}", number, inQuotes(name.str())));
        }
        list.push_back({number, keep(std::string(name.str()))});
    }
    std::ranges::sort(list, {}, &Choice::value);
    return list;
}

std::optional<Scale> Document::Storage::readScale(TableReader& reader)
{
    const toml::table* table = reader.table("scale");
    if (table == nullptr) {
        return std::nullopt;
    }
    TableReader scale(*table, "scale", problems);
    const double factor = scale.number("factor", true).value_or(1);
    const Scale result{factor, text(scale, "unit", true), text(scale, "only")};
    if (!(factor > 0) || factor > 1e9) {
        scale.report("factor", fmt::format("'factor': expected more than 0 and at most 1e9, got {}", factor));
    }
    scale.finish();
    return result;
}

Field Document::Storage::readField(const toml::table& table, bool inRecord)
{
    TableReader reader(table, "field", problems);
    Field field;
    field.name = key(reader, "name");
    std::vector<std::string_view> types;
    std::ranges::transform(kTypes, std::back_inserter(types), &TypeInfo::name);
    field.type = static_cast<Type>(reader.oneOf("type", types, true).value_or(0));
    field.meaning = text(reader, "meaning");
    field.unit = text(reader, "unit");
    field.scale = readScale(reader);
    const TypeInfo& whole = infoOf(field.type);
    field.minimum = reader.integer("minimum", false, whole.minimum, whole.maximum).value_or(whole.minimum);
    field.maximum = reader.integer("maximum", false, whole.minimum, whole.maximum).value_or(whole.maximum);
    if (field.minimum > field.maximum) {
        reader.report("minimum", fmt::format("'minimum': expected at most {}, got {}", field.maximum, field.minimum));
    }
    field.choices = readChoices(reader, {field.minimum, field.maximum});
    field.open = reader.boolean("open", field.choices.empty());
    field.optional = reader.boolean("optional", false);
    field.example = text(reader, "example", !inRecord);
    field.fields = readFields(reader, "fields", true);
    field.secret = reader.boolean("secret", false);
    if (field.secret && field.type != Type::kAscii && field.type != Type::kBytes) {
        reader.report("secret", "'secret': expected a field of the type ascii or bytes");
    }
    field.lenient = reader.boolean("lenient", false);
    const bool number = sizeOf(field.type) > 0;
    if (inRecord && !number) {
        reader.report("type", "'type': expected a number in a record");
    }
    if (!number && (!field.choices.empty() || field.scale)) {
        reader.report(field.scale ? "scale" : "choices", "expected choices and a scale for numbers only");
    }
    if (number && field.lenient) {
        reader.report("lenient", "'lenient': expected a text or bytes");
    }
    if ((field.type == Type::kRecords) != !field.fields.empty()) {
        reader.report("fields", field.fields.empty() ? "'fields': expected the fields of a record, got none"
                                                     : "'fields': expected them for the type records only");
    }
    reader.finish();
    return field;
}

std::span<const Field> Document::Storage::readFields(TableReader& reader, std::string_view key, bool inRecord)
{
    auto& list = fields.emplace_back();
    for (const toml::table* table : reader.tables(key)) {
        const Field field = readField(*table, inRecord);
        const Field* before = list.empty() ? nullptr : &list.back();
        const auto complain = [&](const char* what) {
            toml_file::report(problems, *table, fmt::format("field {}: {}", inQuotes(field.name), what));
        };
        if (std::ranges::find(list, field.name, &Field::name) != list.end()) {
            complain("expected each name once");
        }
        if (before != nullptr && before->optional && !field.optional) {
            complain("expected 'optional = true', since the field before it is optional");
        }
        if (before != nullptr && sizeOf(before->type) == 0) {
            complain("expected a field of fixed size before it");
        }
        if (field.type == Type::kRecords && (before == nullptr || sizeOf(before->type) == 0)) {
            complain("expected a number before it, the count of the records");
        }
        list.push_back(field);
    }
    return list;
}

std::span<const Reply> Document::Storage::readReplies(TableReader& reader, std::string_view key, std::uint8_t group,
                                                      std::uint8_t command)
{
    auto& list = replies.emplace_back();
    for (const toml::table* table : reader.tables(key)) {
        TableReader entry(*table, "reply", problems);
        const auto code = entry.integer("group", false, 0, 0x7F).value_or(group);
        Reply reply;
        reply.cmdOne = static_cast<std::uint8_t>(code | kReplyBit);
        reply.cmdTwo = static_cast<std::uint8_t>(entry.integer("code", false, 0, 0xFF).value_or(command));
        reply.when = text(entry, "when");
        reply.fields = readFields(entry, "fields");
        if (!list.empty() && reply.when.empty()) {
            entry.report("when", "'when': expected the case in which this further reply comes, got none");
        }
        entry.finish();
        list.push_back(reply);
    }
    return list;
}

Command Document::Storage::readCommand(const toml::table& table, std::uint8_t group)
{
    TableReader reader(table, "command", problems);
    Command command;
    command.cmdOne = group;
    command.cmdTwo = static_cast<std::uint8_t>(reader.integer("code", true, 0, 0xFF).value_or(0));
    command.key = key(reader, "key");
    command.title = text(reader, "title", true);
    command.meaning = text(reader, "meaning", true);
    command.access = static_cast<Access>(reader.oneOf("access", {"read", "write"}, true).value_or(0));
    command.destructive = reader.boolean("destructive", false);
    command.repeatable = reader.boolean("repeatable", true);
    if (command.destructive && command.repeatable) {
        reader.report("repeatable", "'repeatable': expected false for a destructive command");
    }
    command.params = readFields(reader, "params");
    std::int64_t most = 0;
    for (const Field& field : command.params) {
        most += sizeOf(field.type) > 0 ? static_cast<std::int64_t>(sizeOf(field.type)) : field.maximum;
    }
    command.minimumParams = static_cast<std::size_t>(reader.integer("minimum", false, 0, most).value_or(0));
    command.replies = readReplies(reader, "replies", group, command.cmdTwo);
    command.silentWhen = text(reader, "silent");
    command.later = readReplies(reader, "later", group, command.cmdTwo);
    command.readBack = text(reader, "read-back");
    command.unique = text(reader, "unique");
    if (!command.unique.empty() && (command.readBack.empty() || command.params.size() != 1)) {
        reader.report("unique", "'unique': expected a command with one parameter and a 'read-back'");
    }
    reader.finish();
    return command;
}

Notice Document::Storage::readNotice(const toml::table& table, std::uint8_t group)
{
    TableReader reader(table, "notice", problems);
    Notice notice;
    notice.cmdOne = static_cast<std::uint8_t>(group | kReplyBit);
    notice.cmdTwo = static_cast<std::uint8_t>(reader.integer("code", true, 0, 0xFF).value_or(0));
    notice.key = key(reader, "key");
    notice.title = text(reader, "title", true);
    notice.meaning = text(reader, "meaning", true);
    notice.fields = readFields(reader, "fields");
    reader.finish();
    return notice;
}

void Document::Storage::readGroup(const toml::table& table)
{
    TableReader reader(table, "group", problems);
    Group group;
    group.code = static_cast<std::uint8_t>(reader.integer("code", true, 0, 0x7F).value_or(0));
    group.key = key(reader, "key");
    group.title = text(reader, "title", true);
    group.meaning = text(reader, "meaning", true);
    std::set<std::string_view> keys;
    const auto checkKey = [&](const toml::table& member, std::string_view name) {
        if (!keys.insert(name).second && !name.empty()) {
            toml_file::report(problems, member,
                              fmt::format("expected each key once in the group, got {} again", inQuotes(name)));
        }
    };
    auto& ownCommands = commands.emplace_back();
    for (const toml::table* member : reader.tables("command")) {
        const Command command = readCommand(*member, group.code);
        checkKey(*member, command.key);
        if (std::ranges::find(ownCommands, command.cmdTwo, &Command::cmdTwo) != ownCommands.end()) {
            toml_file::report(problems, *member,
                              fmt::format("expected each code once in the group, got {} again", command.cmdTwo));
        }
        ownCommands.push_back(command);
    }
    auto& ownNotices = notices.emplace_back();
    for (const toml::table* member : reader.tables("notice")) {
        const Notice notice = readNotice(*member, group.code);
        checkKey(*member, notice.key);
        if (std::ranges::find(ownNotices, notice.cmdTwo, &Notice::cmdTwo) != ownNotices.end()) {
            toml_file::report(problems, *member,
                              fmt::format("expected each code once in the group, got {} again", notice.cmdTwo));
        }
        ownNotices.push_back(notice);
    }
    reader.finish();
    if (std::ranges::find(groups, group.code, &Group::code) != groups.end()) {
        reader.report("code", fmt::format("expected each group's code once, got {} again", group.code));
    }
    if (std::ranges::find(groups, group.key, &Group::key) != groups.end()) {
        reader.report("key", fmt::format("expected each group's key once, got {} again", inQuotes(group.key)));
    }
    group.commands = ownCommands;
    group.notices = ownNotices;
    groups.push_back(group);
}

void Document::Storage::checkReadBacks(const toml::table& root)
{
    const auto isRead = [&](std::string_view wanted) {
        return std::ranges::any_of(groups, [&](const Group& group) {
            return std::ranges::any_of(group.commands, [&](const Command& command) {
                return command.access == Access::kRead && wanted == fmt::format("{}.{}", group.key, command.key);
            });
        });
    };
    TableReader reader(root, "catalogue", problems);
    for (const toml::table* group : reader.tables("group")) {
        Problems ignored;
        for (const toml::table* command : TableReader(*group, "group", ignored).tables("command")) {
            TableReader entry(*command, "command", ignored);
            const std::string wanted = entry.text("read-back");
            if (!wanted.empty() && !isRead(wanted)) {
                toml_file::report(problems, *command->get("read-back"),
                                  fmt::format("'read-back': expected a command that reads, got {}", inQuotes(wanted)));
            }
        }
    }
}

void Document::Storage::read(std::string_view text)
{
    const toml::table root = toml_file::parse(text, problems);
    if (!problems.empty()) {
        return;
    }
    TableReader reader(root, "catalogue", problems);
    reader.integer("schema", true, 1, 1);
    for (const toml::table* group : reader.tables("group", true)) {
        readGroup(*group);
    }
    reader.finish();
    if (problems.empty()) {
        checkReadBacks(root);
    }
    toml_file::sort(problems);
}

Document::Document(std::string_view text) : storage_(std::make_unique<Storage>())
{
    storage_->read(text);
}

Document::~Document() = default;
Document::Document(Document&&) noexcept = default;
Document& Document::operator=(Document&&) noexcept = default;

Groups Document::groups() const
{
    return storage_->groups;
}

const toml_file::Problems& Document::problems() const
{
    return storage_->problems;
}

}  // namespace protocol::catalogue
