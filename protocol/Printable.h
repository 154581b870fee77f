#pragma once

#include <string>
#include <string_view>

namespace protocol {

/// @returns `text` as one line of valid UTF-8 that shows itself and does nothing: control characters become their
/// pictures (U+2400 …), and U+FFFD stands for what is not UTF-8, for the C1 controls, and for what changes the
/// direction of writing.
std::string printable(std::string_view text);

/// The same for a text that is JSON already, with its line ends: what printable() replaces is escaped as \uXXXX, so
/// that a reader of JSON gets it back.
std::string printableJson(std::string_view json);

}  // namespace protocol
