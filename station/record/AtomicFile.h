#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

namespace station::record {

/// Puts a file of this content in the place of `path`, as a whole: `path` is what it was before or all of `content`,
/// also after a loss of power. Throws ResultsError; `path` is then what it was before, and no temporary file stays.
void writeAtomically(const std::filesystem::path& path, std::string_view content);

/// The same for a file that somebody else writes: `write` gets the temporary path and throws what it likes on failure.
void writeAtomically(const std::filesystem::path& path,
                     const std::function<void(const std::filesystem::path& temporary)>& write);

/// Makes sure that what was named in a directory is named so after a loss of power. Throws ResultsError.
void syncDirectory(const std::filesystem::path& directory);

}  // namespace station::record
