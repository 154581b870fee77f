#pragma once

#include <string>
#include <string_view>

namespace station::record {

/// @returns the SHA-256 of some bytes, in lower-case hexadecimal.
std::string sha256(std::string_view bytes);

}  // namespace station::record
