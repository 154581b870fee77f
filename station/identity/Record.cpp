#include "station/identity/Record.h"

#include <algorithm>
#include <stdexcept>

#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Describe.h"
#include "protocol/catalogue/Suggest.h"

namespace station::identity {

namespace {

namespace catalogue = protocol::catalogue;

constexpr std::string_view kGroup = "identity";
constexpr std::string_view kWriter = "write-";

bool isSeparator(char c)
{
    return c == ':' || c == '-' || c == ' ';
}

}  // namespace

std::vector<Record> records(catalogue::Groups groups)
{
    std::vector<Record> all;
    const catalogue::Group* group = catalogue::findGroup(groups, kGroup);
    if (group == nullptr) {
        return all;
    }
    for (const catalogue::Command& command : group->commands) {
        const catalogue::Command* read = catalogue::findCommand(groups, command.readBack);
        if (!command.key.starts_with(kWriter) || command.params.empty() || read == nullptr || read->replies.empty()) {
            continue;
        }
        Record record{command.key.substr(kWriter.size()), &command, read, false, false};
        const auto fields = read->replies.front().fields;
        record.presenceOnly = !fields.empty() && catalogue::sizeOf(fields.front().type) > 0;
        record.unique = !command.unique.empty();
        record.space = command.unique;
        all.push_back(record);
    }
    return all;
}

const Record* find(Records records, std::string_view name)
{
    const auto found = std::ranges::find(records, name, &Record::name);
    return found == records.end() ? nullptr : &*found;
}

const Record& require(Records records, std::string_view name)
{
    if (const Record* record = find(records, name)) {
        return *record;
    }
    std::vector<std::string_view> names;
    std::string list;
    for (const Record& record : records) {
        names.push_back(record.name);
        list += (list.empty() ? "" : ", ") + std::string(record.name);
    }
    const std::string hint = protocol::didYouMean(name, names);
    throw std::invalid_argument("'" + std::string(name) + "' is no record" +
                                (hint.empty() ? "; there are " + list : hint));
}

std::string normalise(const Record& record, std::string_view value)
{
    const catalogue::Field& field = record.write->params.front();
    std::string text(value);
    if (field.type == catalogue::Type::kHexText) {
        std::erase_if(text, isSeparator);
        std::ranges::transform(text, text.begin(),
                               [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c; });
    }
    const auto legal = [&](char c) {
        return field.type == catalogue::Type::kHexText ? (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')
                                                       : c >= 0x20 && c <= 0x7E;
    };
    const auto size = static_cast<std::int64_t>(text.size());
    // Longer than that, the unit could not send it back.
    const auto maximum = std::min<std::int64_t>(field.maximum, protocol::kMaxParams);
    if (text.empty() || size < field.minimum || size > maximum || !std::ranges::all_of(text, legal)) {
        const auto minimum = std::max<std::int64_t>(field.minimum, 1);
        const std::string count =
            minimum == maximum ? std::to_string(minimum) : std::to_string(minimum) + " to " + std::to_string(maximum);
        throw std::invalid_argument(
            "'" + std::string(value) + "' is no value: " + count +
            (field.type == catalogue::Type::kHexText ? " hexadecimal digits" : " printable ASCII characters") +
            " were expected");
    }
    return text;
}

protocol::Frame writeFrame(const Record& record, std::string_view value)
{
    return {record.write->cmdOne, record.write->cmdTwo, {value.begin(), value.end()}};
}

}  // namespace station::identity
