#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "protocol/Frame.h"
#include "protocol/catalogue/Model.h"

namespace protocol::catalogue {

/// The compiled catalogue, in the order of its file.
Groups groups();

/// SHA-256 of the catalogue's file, in lower-case hexadecimal.
std::string_view hash();

/// @returns the group of a code (without bit 7), nullptr for none.
const Group* findGroup(Groups groups, std::uint8_t code);
const Group* findGroup(Groups groups, std::string_view key);

/// @returns the command of the two bytes of a request, nullptr for none.
const Command* findCommand(Groups groups, std::uint8_t cmdOne, std::uint8_t cmdTwo);

/// @param key GROUP.COMMAND, as in "tuner.play".
const Command* findCommand(Groups groups, std::string_view key);

/// @param key GROUP.NOTICE, as in "keys.pressed".
const Notice* findNotice(Groups groups, std::string_view key);

/// @returns "tuner.play".
std::string fullKey(Groups groups, const Command& command);
std::string fullKey(Groups groups, const Notice& notice);

/// @returns whether `received` is one of the replies that the catalogue has for `command`.
/// A frame with the right code and unexpected fields counts, too. If two replies share the code, the parameters decide.
bool answers(const Command& command, const Frame& received);

/// @returns whether `received` has the code of the reply to an undescribed frame: its group with bit 7 set, and its
/// command.
bool answersUnknown(const Frame& command, const Frame& received);

}  // namespace protocol::catalogue
