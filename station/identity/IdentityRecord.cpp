#include "station/identity/IdentityRecord.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <glib.h>

#include <algorithm>

#include "protocol/Errors.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"

namespace station::identity {

namespace {

namespace catalogue = protocol::catalogue;

constexpr std::string_view kGroup = "identity";
constexpr std::string_view kWriter = "write-";

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
        Record record{command.key.substr(kWriter.size()), &command, read};
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
    for (const Record& record : records) {
        names.push_back(record.name);
    }
    const std::string hint = protocol::didYouMean(name, names);
    throw protocol::UserError(
        hint.empty() ? fmt::format("expected one of {}, got {}", fmt::join(names, ", "), protocol::inQuotes(name))
                     : fmt::format("expected a record, got {}{}", protocol::inQuotes(name), hint));
}

std::string withoutSeparators(std::string_view address)
{
    std::string digits(address);
    std::erase_if(digits, [](char c) { return c == ':' || c == '-' || c == ' '; });
    std::ranges::transform(digits, digits.begin(), g_ascii_toupper);
    return digits;
}

std::string normalise(const Record& record, std::string_view value)
{
    const catalogue::Field& field = record.write->params.front();
    const bool address = record.isAddress();
    std::string text(value);
    if (address) {
        text = withoutSeparators(value);
    }
    const auto legal = [&](char c) { return address ? g_ascii_isxdigit(c) : g_ascii_isprint(c); };
    // The unit can send back so many.
    const auto maximum = std::min<std::int64_t>(field.maximum, protocol::kMaxParams);
    const auto minimum = std::max<std::int64_t>(field.minimum, 1);
    const auto size = static_cast<std::int64_t>(text.size());
    if (size < minimum || size > maximum || !std::ranges::all_of(text, legal)) {
        throw protocol::UserError(fmt::format(
            "{}: expected {}{} {}, got {}", record.name, minimum == maximum ? "" : fmt::format("{} to ", minimum),
            maximum, address ? "hexadecimal digits" : "printable ASCII characters", protocol::inQuotes(value)));
    }
    return text;
}

protocol::Frame writeFrame(const Record& record, std::string_view value)
{
    return {record.write->cmdOne, record.write->cmdTwo, {value.begin(), value.end()}};
}

}  // namespace station::identity
