#pragma once

#include <filesystem>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>

/// Files that outlive a loss of power, and their hashes.
namespace station::record {

/// Replaces the file at `path` as a whole: it has its old content or all that `write` writes, also after a loss of
/// power. Its owner may write it and its group may read it. Throws protocol::StorageError; `path` then has its old
/// content, and no temporary file remains.
void writeAtomically(const std::filesystem::path& path, const std::function<void(std::ostream&)>& write);

/// Makes the names in a directory outlive a loss of power. Throws protocol::StorageError.
void syncDirectory(const std::filesystem::path& directory);

/// @returns the SHA-256 of some bytes, in lower-case hexadecimal.
std::string sha256(std::string_view bytes);

}  // namespace station::record
