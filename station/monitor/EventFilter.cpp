#include "station/monitor/EventFilter.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <ranges>
#include <utility>

#include "protocol/Errors.h"
#include "protocol/Frame.h"
#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/HexBytes.h"

namespace station {

namespace {

namespace catalogue = protocol::catalogue;

constexpr auto kDirections = std::to_array<std::pair<std::string_view, TraceEvent::Kind>>({
    {"sent", TraceEvent::Kind::kSent},
    {"received", TraceEvent::Kind::kReceived},
    {"corrupt", TraceEvent::Kind::kCorrupt},
});

constexpr std::uint8_t kGroupMask = static_cast<std::uint8_t>(~protocol::kReplyBit);

std::vector<std::string> split(std::string_view text, char separator)
{
    std::vector<std::string> parts;
    for (;;) {
        const auto end = text.find(separator);
        parts.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

/// @returns the group in which the frame is described, which is not always that of its code.
std::uint8_t groupCode(const TraceEvent& event, const catalogue::Decoded& decoded)
{
    if (decoded.command != nullptr) {
        return decoded.command->cmdOne;
    }
    return (decoded.notice != nullptr ? decoded.notice->cmdOne : event.frame.cmdOne) & kGroupMask;
}

[[noreturn]] void failFor(catalogue::Groups groups, std::string_view word)
{
    std::vector<std::string> keys{"sent", "received", "corrupt"};
    for (const catalogue::Group& group : groups) {
        keys.emplace_back(group.key);
        for (const catalogue::Command& command : group.commands) {
            keys.push_back(fullKey(groups, command));
        }
        for (const catalogue::Notice& notice : group.notices) {
            keys.push_back(fullKey(groups, notice));
        }
    }
    const std::vector<std::string_view> words(keys.begin(), keys.end());
    throw protocol::UserError(
        fmt::format("--filter: expected a direction, a group, a command or a hexadecimal code, got {}{}",
                    protocol::inQuotes(word), protocol::didYouMean(word, words)));
}

}  // namespace

EventFilter::EventFilter(catalogue::Groups groups, std::string_view expression)
{
    if (expression.empty()) {
        return;
    }
    for (const std::string& part : split(expression, ',')) {
        Alternative terms;
        for (const std::string& word : split(part, ' ')) {
            if (!word.empty()) {
                terms.push_back(parse(groups, word));
            }
        }
        if (terms.empty()) {
            throw protocol::UserError("--filter: expected words between the commas, as in 'received tuner', got none");
        }
        alternatives_.push_back(std::move(terms));
    }
}

EventFilter::Term EventFilter::parse(catalogue::Groups groups, std::string_view word)
{
    Term term;
    if (word.starts_with('!')) {
        term.negated = true;
        word.remove_prefix(1);
    }
    if (word.empty()) {
        throw protocol::UserError("--filter: expected a word behind '!', got none");
    }
    const auto direction = std::ranges::find(kDirections, word, &std::pair<std::string_view, TraceEvent::Kind>::first);
    if (direction != kDirections.end()) {
        term.kind = direction->second;
        return term;
    }
    if ((term.group = catalogue::findGroup(groups, word)) != nullptr ||
        (term.command = catalogue::findCommand(groups, word)) != nullptr ||
        (term.notice = catalogue::findNotice(groups, word)) != nullptr) {
        return term;
    }
    const auto dot = word.find('.');
    const auto code = protocol::catalogue::parseHexByte(word.substr(0, dot));
    if (!code) {
        failFor(groups, word);
    }
    term.cmdOne = static_cast<std::uint8_t>(*code & kGroupMask);
    if (dot != std::string_view::npos && !(term.cmdTwo = protocol::catalogue::parseHexByte(word.substr(dot + 1)))) {
        failFor(groups, word);
    }
    return term;
}

bool EventFilter::passes(const TraceEvent& event, const catalogue::Decoded& decoded) const
{
    if (alternatives_.empty() || !hasFrame(event.kind)) {
        return true;
    }
    return std::ranges::any_of(alternatives_, [&](const Alternative& terms) {
        return std::ranges::all_of(terms,
                                   [&](const Term& term) { return holds(term, event, decoded) != term.negated; });
    });
}

bool EventFilter::holds(const Term& term, const TraceEvent& event, const catalogue::Decoded& decoded)
{
    if (term.kind) {
        return event.kind == *term.kind;
    }
    if (term.group != nullptr) {
        return groupCode(event, decoded) == term.group->code;
    }
    if (term.command != nullptr) {
        return decoded.command == term.command;
    }
    if (term.notice != nullptr) {
        return decoded.notice == term.notice;
    }
    return (event.frame.cmdOne & kGroupMask) == *term.cmdOne && (!term.cmdTwo || event.frame.cmdTwo == *term.cmdTwo);
}

}  // namespace station
