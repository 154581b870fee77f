#include <algorithm>
#include <optional>

#include "protocol/catalogue/Codec.h"

namespace protocol::catalogue {

namespace {

/// @returns where the first secret field begins. The mask covers it and all bytes after it.
std::optional<std::size_t> secretAt(std::span<const Field> fields)
{
    std::size_t offset = 0;
    for (const Field& field : fields) {
        if (field.secret) {
            return offset;
        }
        offset += sizeOf(field.type);
    }
    return std::nullopt;
}

}  // namespace

bool hasSecret(const Command& command)
{
    const auto secret = [](const Reply& reply) { return secretAt(reply.fields).has_value(); };
    return secretAt(command.params) || std::ranges::any_of(command.replies, secret) ||
           std::ranges::any_of(command.later, secret);
}

std::string maskOf(const DecodedField& field)
{
    if (!field.field->secret) {
        return {};
    }
    const auto* text = std::get_if<std::string>(&field.value);
    const auto* bytes = std::get_if<std::vector<std::uint8_t>>(&field.value);
    return std::string(text != nullptr ? text->size() : bytes != nullptr ? bytes->size() : 0, kMask);
}

bool maskSecrets(Groups groups, Frame& frame)
{
    std::size_t from = frame.params.size();
    const auto look = [&](const auto& candidate, std::span<const Field> fields) {
        if (candidate.cmdOne == frame.cmdOne && candidate.cmdTwo == frame.cmdTwo) {
            from = std::min(from, secretAt(fields).value_or(from));
        }
    };
    for (const Group& group : groups) {
        for (const Command& command : group.commands) {
            look(command, command.params);
            for (const auto replies : {command.replies, command.later}) {
                for (const Reply& reply : replies) {
                    look(reply, reply.fields);
                }
            }
        }
        for (const Notice& notice : group.notices) {
            look(notice, notice.fields);
        }
    }
    std::fill(frame.params.begin() + static_cast<std::ptrdiff_t>(from), frame.params.end(), kMask);
    return from < frame.params.size();
}

}  // namespace protocol::catalogue
