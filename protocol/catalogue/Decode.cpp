#include <algorithm>
#include <string>
#include <utility>

#include "protocol/Text.h"
#include "protocol/catalogue/Catalogue.h"
#include "protocol/catalogue/Codec.h"
#include "protocol/catalogue/Fields.h"

namespace protocol::catalogue {

namespace {

/// A possible meaning of a head unit's frame.
struct Meaning {
    const Command* command = nullptr;
    const Reply* reply = nullptr;
    const Notice* notice = nullptr;

    std::span<const Field> fields() const { return reply != nullptr ? reply->fields : notice->fields; }
};

/// Lists the possible meanings of a frame, the likeliest first.
class Meanings
{
public:
    explicit Meanings(const Frame& frame) : frame_(frame) {}

    void addReplies(const Command& command, std::span<const Reply> replies)
    {
        for (const Reply& reply : replies) {
            if (isCode(reply)) {
                all_.push_back({&command, &reply, nullptr});
            }
        }
    }

    /// @returns whether the frame has the code of the command's own reply.
    bool isOwn(const Command& command) const { return answersUnknown({command.cmdOne, command.cmdTwo, {}}, frame_); }

    void addNotices(Groups groups)
    {
        for (const Group& group : groups) {
            for (const Notice& notice : group.notices) {
                if (isCode(notice)) {
                    all_.push_back({nullptr, nullptr, &notice});
                }
            }
        }
    }

    const std::vector<Meaning>& all() const { return all_; }

private:
    template <class Coded>
    bool isCode(const Coded& coded) const
    {
        return coded.cmdOne == frame_.cmdOne && coded.cmdTwo == frame_.cmdTwo;
    }

    const Frame& frame_;
    std::vector<Meaning> all_;
};

std::vector<Meaning> meaningsOf(Groups groups, const Frame& frame, const Command* asked)
{
    Meanings meanings(frame);
    if (asked != nullptr) {
        meanings.addReplies(*asked, asked->replies);
        meanings.addReplies(*asked, asked->later);
    }
    const auto addAll = [&](std::span<const Reply> Command::*replies, bool ownCode) {
        for (const Group& group : groups) {
            for (const Command& command : group.commands) {
                if (meanings.isOwn(command) == ownCode) {
                    meanings.addReplies(command, command.*replies);
                }
            }
        }
    };
    addAll(&Command::replies, true);
    addAll(&Command::replies, false);
    addAll(&Command::later, true);
    addAll(&Command::later, false);
    meanings.addNotices(groups);
    return meanings.all();
}

Decoded decodedAs(const Meaning& meaning, const Frame& frame)
{
    FieldValues values = decodeFields(meaning.fields(), frame.params);
    if (values.problems.empty() && !values.rest.empty()) {
        values.problems.push_back(plural(values.rest.size(), "byte") + " too many");
    }
    return {meaning.command,          meaning.reply,          meaning.notice,
            std::move(values.fields), std::move(values.rest), std::move(values.problems),
            std::move(values.remarks)};
}

}  // namespace

std::string_view DecodedField::choice() const
{
    const auto* number = std::get_if<std::int64_t>(&value);
    if (number == nullptr) {
        return {};
    }
    const auto found = std::ranges::find(field->choices, *number, &Choice::value);
    return found == field->choices.end() ? std::string_view() : found->name;
}

Decoded decodeRequest(Groups groups, const Frame& frame)
{
    const Command* command = findCommand(groups, frame.cmdOne, frame.cmdTwo);
    Decoded decoded;
    if (command == nullptr) {
        decoded.rest = frame.params;
        return decoded;
    }
    FieldValues values = decodeFields(command->params, frame.params);
    decoded.command = command;
    decoded.fields = std::move(values.fields);
    decoded.rest = std::move(values.rest);
    decoded.problems = std::move(values.problems);
    decoded.remarks = std::move(values.remarks);
    return decoded;
}

Decoded decodeFromUnit(Groups groups, const Frame& frame, const Command* asked)
{
    std::optional<Decoded> likeliest;
    for (const Meaning& meaning : meaningsOf(groups, frame, asked)) {
        Decoded decoded = decodedAs(meaning, frame);
        if (decoded.problems.empty()) {
            return decoded;
        }
        if (!likeliest) {
            likeliest = std::move(decoded);
        }
    }
    if (likeliest) {
        return *std::move(likeliest);
    }
    Decoded unknown;
    unknown.rest = frame.params;
    return unknown;
}

bool answers(const Command& command, const Frame& received)
{
    for (const Reply& reply : command.replies) {
        if (reply.cmdOne != received.cmdOne || reply.cmdTwo != received.cmdTwo) {
            continue;
        }
        // The first reply has the command's own code. Further replies share their codes with other commands' replies.
        if (&reply == &command.replies.front() || decodedAs({&command, &reply, nullptr}, received).problems.empty()) {
            return true;
        }
    }
    return false;
}

}  // namespace protocol::catalogue
