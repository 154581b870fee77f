#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "protocol/Frame.h"
#include "protocol/catalogue/Model.h"

namespace protocol::catalogue {

/// The catalogue that was compiled in, in the order of its file.
Groups groups();

/// SHA-256 of the file that it was compiled from, in lower-case hexadecimal.
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
/// A frame of the right code whose fields do not fit is one too, but for codes that two replies share: there the
/// parameters decide.
bool answers(const Command& command, const Frame& received);

/// @returns whether `received` is what a frame that nobody has described is answered with: its group with bit 7 set
/// and its command.
bool answersUnknown(const Frame& command, const Frame& received);

}  // namespace protocol::catalogue
