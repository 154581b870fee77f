#include "station/Conversation.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/HexBytes.h"
#include "station/FrameScanner.h"
#include "station/trace/Attribution.h"

namespace station {

namespace {

using protocol::inQuotes;
using protocol::UserError;

std::uint8_t byteOf(const std::string& word)
{
    const auto byte = protocol::catalogue::parseHexByte(word);
    if (!byte) {
        throw UserError(fmt::format("expected one or two hexadecimal digits, got {}", inQuotes(word)));
    }
    return *byte;
}

Request parseBytes(protocol::catalogue::Groups groups, const std::string& cmdOne,
                   const std::vector<std::string>& arguments)
{
    if (arguments.empty()) {
        throw UserError(
            fmt::format("{}: expected the command's code after the group's, as in '0F 00 01', got none", cmdOne));
    }
    std::vector<std::uint8_t> bytes{byteOf(cmdOne)};
    std::ranges::transform(arguments, std::back_inserter(bytes), byteOf);
    if (const auto pieces = scanFrames(bytes);
        pieces.size() == 1 && pieces.front().kind == ScannedPiece::Kind::kFrame) {
        const auto length = pieces.front().frame.params.size() + 2;
        throw UserError(fmt::format(
            "2A A2 begins a whole frame; give its content: {}",
            protocol::catalogue::formatHexBytes(std::span(bytes).subspan(protocol::kCmdOneOffset, length))));
    }
    return requestOf(groups, {bytes[0], bytes[1], {bytes.begin() + 2, bytes.end()}});
}

std::string noAssignment(const protocol::catalogue::Command& command, const std::string& word)
{
    if (command.params.empty()) {
        return fmt::format("expected no parameter, got {}", inQuotes(word));
    }
    const auto& first = command.params.front();
    return fmt::format("expected NAME=VALUE, as in '{}={}', got {}", first.name, first.example, inQuotes(word));
}

Request parseNamed(protocol::catalogue::Groups groups, const std::string& key, const std::vector<std::string>& words)
{
    const auto* command = findCommand(groups, std::string_view(key));
    if (command == nullptr) {
        throw UserError(noSuchCommand(groups, key));
    }
    try {
        std::vector<protocol::catalogue::Argument> arguments;
        for (const std::string& word : words) {
            const auto equals = word.find('=');
            if (equals == std::string::npos) {
                throw UserError(noAssignment(*command, word));
            }
            arguments.emplace_back(word.substr(0, equals), word.substr(equals + 1));
        }
        return {encode(*command, arguments), command, true, key};
    } catch (const UserError& error) {
        throw UserError(fmt::format("{}: {}", key, error.what()));
    }
}

bool hasReply(const Request& request)
{
    return request.command != nullptr && !request.command->replies.empty();
}

bool waitsForReply(const Request& request, const SendTerms& terms)
{
    return !request.named || hasReply(request) || terms.expectNone;
}

bool isReply(const Request& request, const protocol::Frame& frame)
{
    return hasReply(request) ? answers(*request.command, frame)
                             : protocol::catalogue::answersUnknown(request.frame, frame);
}

void awaitLater(Connection& connection, const Request& request, Connection::Clock::time_point deadline, Answer& answer)
{
    while (auto frame = connection.receive(deadline)) {
        if (isLater(*request.command, *frame)) {
            answer.later = std::move(frame);
            return;
        }
        // A unit that never falls silent always has another frame.
        if (Connection::Clock::now() >= deadline) {
            return;
        }
    }
}

/// Asks a silent unit whether it is in auto-test mode, without which it answers few commands.
ModeReport askMode(Connection& connection, protocol::catalogue::Groups groups, const Request& request)
{
    constexpr auto kPatience = std::chrono::milliseconds(300);
    const auto* mode = findCommand(groups, std::string_view("test.mode"));
    if (mode == nullptr || request.command == nullptr || request.command->cmdOne == mode->cmdOne) {
        return ModeReport::kNotAsked;
    }
    const auto exchange = connection.request(
        encode(*mode, {}), [&](const protocol::Frame& frame) { return answers(*mode, frame); }, kPatience,
        mode->repeatable);
    if (!exchange.reply) {
        return ModeReport::kSilent;
    }
    const auto decoded = decodeFromUnit(groups, *exchange.reply, mode);
    return !decoded.fields.empty() && decoded.fields.front().choice() == "on" ? ModeReport::kOn : ModeReport::kOff;
}

/// @returns why a sound unit may be silent.
std::string hint(const Request& request, const SendTerms& terms, ModeReport mode)
{
    const auto* command = request.command;
    if (command == nullptr) {
        return "; the catalogue does not know the command";
    }
    if (command->replies.empty() && !terms.waitLater) {
        return command->later.empty() ? "; the command has no reply: add --expect-none"
                                      : "; the reply comes later: add --wait-later";
    }
    if (mode == ModeReport::kSilent) {
        return "; the unit does not answer test.mode either: is it connected and switched on?";
    }
    if (mode == ModeReport::kOff) {
        return "; auto-test mode is off: 'send test.set-mode mode=on' switches it on";
    }
    const auto silence = command->silentWhen.empty() ? "" : fmt::format("; it does not reply {}", command->silentWhen);
    return (mode == ModeReport::kOn ? "; the unit did not answer although auto-test mode is on" : "") + silence;
}

}  // namespace

Request requestOf(protocol::catalogue::Groups groups, protocol::Frame frame)
{
    Request request;
    request.frame = std::move(frame);
    if (request.frame.params.size() > protocol::kMaxStationParams) {
        throw UserError(fmt::format("expected at most {} parameter bytes, got {}", protocol::kMaxStationParams,
                                    request.frame.params.size()));
    }
    request.command = findCommand(groups, request.frame.cmdOne, request.frame.cmdTwo);
    const std::uint8_t codes[] = {request.frame.cmdOne, request.frame.cmdTwo};
    request.title =
        request.command != nullptr ? fullKey(groups, *request.command) : protocol::catalogue::formatHexBytes(codes);
    return request;
}

Request parseRequest(protocol::catalogue::Groups groups, const std::string& command,
                     const std::vector<std::string>& arguments)
{
    return protocol::catalogue::parseHexByte(command) ? parseBytes(groups, command, arguments)
                                                      : parseNamed(groups, command, arguments);
}

void check(const Request& request, const SendTerms& terms)
{
    if (request.command != nullptr && request.command->destructive && !terms.yes) {
        throw UserError(
            fmt::format("{} is destructive ({}): add --yes to send it", request.title, request.command->title));
    }
    if (terms.waitLater && (request.command == nullptr || request.command->later.empty())) {
        throw UserError(fmt::format("--wait-later: the catalogue has no later reply to {}", request.title));
    }
    if (terms.waitLater && terms.expectNone) {
        throw UserError("expected --wait-later or --expect-none, got both");
    }
}

std::vector<protocol::Frame> Answer::frames() const
{
    std::vector<protocol::Frame> all;
    for (const auto& frame : {reply, later}) {
        if (frame) {
            all.push_back(*frame);
        }
    }
    return all;
}

Answer converse(Connection& connection, protocol::catalogue::Groups groups, const Request& request,
                const SendTerms& terms)
{
    const bool waits = waitsForReply(request, terms);
    if (!waits && !terms.waitLater) {
        connection.send(request.frame);
        return {};
    }
    Answer answer;
    const auto accept = [&](const protocol::Frame& frame) {
        if (terms.waitLater && !answer.later && isLater(*request.command, frame)) {
            answer.later = frame;
            return !waits;
        }
        return waits && isReply(request, frame);
    };
    const bool repeatable = request.command != nullptr && request.command->repeatable;
    auto exchange = connection.request(request.frame, accept, terms.timeout, repeatable);
    answer.roundTrip = exchange.roundTrip;
    answer.corrupt = exchange.corrupt;
    if (waits) {
        answer.reply = std::move(exchange.reply);
    }
    if (terms.waitLater && !answer.later && (answer.reply || !waits)) {
        awaitLater(connection, request, Connection::Clock::now() + terms.timeout, answer);
    }
    const bool owed = (waits && !answer.reply) || (terms.waitLater && !answer.later);
    if (owed && !terms.expectNone && (hasReply(request) || terms.waitLater)) {
        answer.mode = askMode(connection, groups, request);
    }
    return answer;
}

Judgement judge(const Request& request, const SendTerms& terms, const Answer& answer)
{
    if (terms.expectNone) {
        return answer.reply ? Judgement{protocol::kFailed, fmt::format("{}: expected no reply, got one", request.title)}
                            : Judgement{};
    }
    if (waitsForReply(request, terms) && !answer.reply) {
        const auto corrupt =
            answer.corrupt == 0 ? std::string() : fmt::format("; frames with a wrong checksum: {}", answer.corrupt);
        return {protocol::kNoAnswer, fmt::format("{}: expected a reply within {} s, got none{}{}", request.title,
                                                 std::chrono::duration<double>(terms.timeout).count(), corrupt,
                                                 hint(request, terms, answer.mode))};
    }
    if (terms.waitLater && !answer.later) {
        return {protocol::kNoAnswer,
                fmt::format("{}: expected the later reply within {} s, got none{}", request.title,
                            std::chrono::duration<double>(terms.timeout).count(), hint(request, terms, answer.mode))};
    }
    if (!waitsForReply(request, terms) && !terms.waitLater) {
        return {protocol::kPassed,
                fmt::format("{}: sent; {}", request.title,
                            request.command->later.empty() ? "no reply is due"
                                                           : "the reply comes later: --wait-later waits for it")};
    }
    return {};
}

}  // namespace station
