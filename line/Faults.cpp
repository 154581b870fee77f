#include "line/Faults.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>
#include <utility>

#include "host/Descriptor.h"
#include "protocol/Errors.h"
#include "protocol/Quantity.h"
#include "protocol/Text.h"
#include "protocol/toml/TableReader.h"

namespace line {

namespace {

using protocol::toml_file::Problem;
using protocol::toml_file::Problems;
using protocol::toml_file::TableReader;

enum class Kind : std::uint8_t { kChance, kPerSecond, kTime, kBaud };

constexpr double kLongestDelay = 60;
constexpr double kLongestAway = 3600;
constexpr double kLatestEvent = 365 * 86400.0;
constexpr double kMostNoise = 1000;
constexpr double kLeastBaud = 50;
constexpr double kMostBaud = 4'000'000;
constexpr std::size_t kLongestScript = std::size_t{1} << 20;

struct Row {
    std::string_view key;
    Kind kind;
    double most;
    double Faults::*member;
};

constexpr auto kRows = std::to_array<Row>({
    {"drop", Kind::kChance, 1, &Faults::drop},
    {"corrupt", Kind::kChance, 1, &Faults::corrupt},
    {"duplicate", Kind::kChance, 1, &Faults::duplicate},
    {"split", Kind::kChance, 1, &Faults::split},
    {"delay", Kind::kTime, kLongestDelay, &Faults::delay},
    {"jitter", Kind::kTime, kLongestDelay, &Faults::jitter},
    {"baud", Kind::kBaud, kMostBaud, &Faults::baud},
    {"noise", Kind::kPerSecond, kMostNoise, &Faults::noise},
    {"hang_up", Kind::kChance, 1, &Faults::hangUp},
    {"away", Kind::kTime, kLongestAway, &Faults::away},
});

constexpr auto kDirections = std::to_array<std::pair<std::string_view, Direction>>(
    {{"to_unit", Direction::kToUnit}, {"to_station", Direction::kToStation}});

/// @returns the number behind `text`, in or out of its range.
std::optional<double> numberOf(Kind kind, std::string_view text)
{
    if (kind == Kind::kTime) {
        return protocol::parseSeconds(text);
    }
    if (const auto quantity = protocol::parseQuantity(text);
        kind == Kind::kChance && quantity && quantity->unit == "%") {
        return quantity->number / 100;
    }
    return protocol::parseFinite(text);
}

bool holds(const Row& row, double value)
{
    return value >= 0 && value <= row.most && (row.kind != Kind::kBaud || value == 0 || value >= kLeastBaud);
}

std::string expected(const Row& row)
{
    switch (row.kind) {
        case Kind::kChance:
            return "a rate from 0 to 1, or from 0% to 100%";
        case Kind::kPerSecond:
            return fmt::format("a number of bursts per second from 0 to {}", row.most);
        case Kind::kTime:
            return fmt::format("a time from 0 up to {} s, as a number of seconds or with a unit such as 200ms",
                               row.most);
        case Kind::kBaud:
            break;
    }
    return fmt::format("a baud rate from {} to {}, or 0 for no limit", kLeastBaud, row.most);
}

/// @returns a value as text; nothing for a list, a table and the like.
std::optional<std::string> textOf(const toml::node& node)
{
    if (const auto* text = node.as_string()) {
        return text->get();
    }
    return node.is_number() ? std::optional(protocol::toText(*node.value<double>())) : std::nullopt;
}

/// Reads the keys of faults in a table.
void readFaults(TableReader& reader, const std::string& prefix, Change& change)
{
    for (const Row& row : kRows) {
        const toml::node* const node = reader.node(row.key);
        if (node == nullptr) {
            continue;
        }
        const auto value = textOf(*node);
        if (!value) {
            reader.mistyped(row.key, *node, expected(row));
        } else if (const std::string wrong = change.add(prefix + std::string(row.key), *value); !wrong.empty()) {
            reader.report(row.key, wrong);
        }
    }
}

void readBothDirections(TableReader& reader, Change& change)
{
    readFaults(reader, "", change);
    for (const auto& [name, direction] : kDirections) {
        if (const toml::table* table = reader.table(name)) {
            TableReader inner(*table, fmt::format("table '{}'", name), reader.problems());
            readFaults(inner, fmt::format("{}.", name), change);
            inner.finish();
        }
    }
}

std::string readFile(const std::string& path)
{
    const auto refuse = [&](const std::string& reason) { throw protocol::UserError(path + ": " + reason); };
    // Without O_NONBLOCK, a FIFO waits for its writer.
    const host::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {
    };
    if (!file.valid() || fstat(file.get(), &status) != 0) {
        refuse(protocol::unreadable(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        refuse(fmt::format("expected a regular file, got {}", S_ISDIR(status.st_mode)    ? "a directory"
                                                              : S_ISFIFO(status.st_mode) ? "a pipe"
                                                                                         : "a device"));
    }
    std::string text(kLongestScript + 1, '\0');
    std::size_t size = 0;
    for (ssize_t count = 1; count > 0 && size < text.size(); size += static_cast<std::size_t>(count)) {
        count = read(file.get(), text.data() + size, text.size() - size);
        if (count < 0) {
            refuse(protocol::unreadable(errno));
        }
    }
    if (size > kLongestScript) {
        refuse(fmt::format("expected at most {} bytes, got more", kLongestScript));
    }
    text.resize(size);
    return text;
}

}  // namespace

nlohmann::ordered_json toJson(const LineFaults& faults)
{
    nlohmann::ordered_json all;
    for (const auto& [name, direction] : kDirections) {
        for (const Row& row : kRows) {
            all[std::string(name)][std::string(row.key)] = LineFaults(faults).of(direction).*row.member;
        }
    }
    return all;
}

std::string Change::add(std::string_view key, const std::string& value)
{
    const std::string_view whole = key;
    std::optional<Direction> direction;
    for (const auto& [name, each] : kDirections) {
        if (key.starts_with(name) && key.substr(name.size()).starts_with('.')) {
            direction = each;
            key.remove_prefix(name.size() + 1);
            break;
        }
    }
    const auto row = std::ranges::find(kRows, key, &Row::key);
    if (row == kRows.end()) {
        std::vector<std::string_view> keys;
        std::ranges::transform(kRows, std::back_inserter(keys), &Row::key);
        return fmt::format("expected one of {}, perhaps after to_unit. or to_station., got {}{}", fmt::join(keys, ", "),
                           protocol::inQuotes(whole), protocol::didYouMean(key, keys));
    }
    const auto number = numberOf(row->kind, value);
    if (!number || !holds(*row, *number)) {
        return fmt::format("{}: expected {}, got {}", protocol::inQuotes(whole), expected(*row),
                           protocol::inQuotes(value));
    }
    all_.push_back({direction, row->member, *number});
    return "";
}

std::string Change::addJson(const std::string& key, const nlohmann::json& value)
{
    if (!value.is_string() && !value.is_number()) {
        return fmt::format("{}: expected a number or a text, got {}", protocol::inQuotes(key), value.type_name());
    }
    return add(key, value.is_string() ? value.get<std::string>() : value.dump());
}

std::string Change::addObject(const nlohmann::json& object)
{
    if (!object.is_object()) {
        return fmt::format("expected an object such as {{\"drop\": \"1%\"}}, got {}", object.type_name());
    }
    std::string wrong;
    for (const auto& [key, value] : object.items()) {
        const bool nested = value.is_object() && std::ranges::count(kDirections, key, [](const auto& direction) {
                                                     return direction.first;
                                                 }) > 0;
        if (!nested) {
            wrong = wrong.empty() ? addJson(key, value) : wrong;
            continue;
        }
        for (const auto& [inner, innerValue] : value.items()) {
            wrong = wrong.empty() ? addJson(key + "." + inner, innerValue) : wrong;
        }
    }
    return wrong;
}

void Change::applyTo(LineFaults& faults) const
{
    for (const One& one : all_) {
        for (const Direction direction : {Direction::kToUnit, Direction::kToStation}) {
            if (one.direction.value_or(direction) == direction) {
                faults.of(direction).*one.member = one.value;
            }
        }
    }
}

Script parseScript(std::string_view text, Problems& problems)
{
    Script script;
    const toml::table root = protocol::toml_file::parse(text, problems);
    if (!problems.empty()) {
        return script;
    }
    TableReader reader(root, "script", problems);
    constexpr std::int64_t kSchema = 1;
    if (const auto schema = reader.integer("schema", true); schema && *schema != kSchema) {
        reader.report("schema", fmt::format("'schema': expected {}, got {}", kSchema, *schema));
    }
    if (const auto seed = reader.integer("seed", false, 0)) {
        script.seed = static_cast<std::uint64_t>(*seed);
    }
    readBothDirections(reader, script.begin);
    for (const toml::table* table : reader.tables("at")) {
        TableReader entry(*table, "entry [[at]]", problems);
        Script::Event event;
        if (entry.node("time") == nullptr) {
            entry.report("time", "'time': expected a time since the line began, such as \"10s\", got none");
        }
        event.time = entry.seconds("time", 0, kLatestEvent).value_or(0);
        event.hangUpFor = entry.seconds("hang_up_for", 0, kLongestAway);
        readBothDirections(entry, event.change);
        entry.finish();
        script.events.push_back(std::move(event));
    }
    reader.finish();
    std::ranges::stable_sort(script.events, {}, &Script::Event::time);
    protocol::toml_file::sort(problems);
    return script;
}

Script loadScript(const std::string& path, std::vector<std::string>& mistakes)
{
    Problems problems;
    Script script = parseScript(readFile(path), problems);
    std::ranges::transform(problems, std::back_inserter(mistakes),
                           [&](const Problem& problem) { return protocol::toml_file::format(path, problem); });
    return script;
}

}  // namespace line
