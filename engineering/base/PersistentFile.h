#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// @returns `path` ("/perm_data/...", "/media/...", "/kyr/...") with the platform's root in front.
std::string PersistentPath(std::string_view path);

/// @returns the same as a word of a shell command.
std::string PersistentShellPath(std::string_view path);

/// Whole files on the persistent partition. These functions open regular files only and never wait: a pipe in a file's
/// place would block the station's line.

enum class FileRead {
    kComplete,
    kFailed,   ///< missing, not readable, or not a regular file
    kTooLong,  ///< longer than the limit
};

/// Reads a file.
/// @param text becomes the file's content; empty unless the whole file was read
/// @param nLimit bytes that the file may have
FileRead ReadPersistentFile(const std::string& path, std::size_t nLimit, std::string& text);

enum class FileWritten {
    kComplete,
    kNotOpened,   ///< cannot be opened or created, or is not a regular file; what exists is unchanged
    kIncomplete,  ///< the file holds the beginning of the text, or nothing
};

/// Truncates a file and writes all of `text`. Creates a missing file, which its owner may write and its group read; a
/// stricter umask applies. An existing file keeps its mode.
FileWritten WritePersistentFile(const std::string& path, std::string_view text);

/// @returns whether the path names a regular file that can be read.
bool IsReadableFile(const std::string& path);
