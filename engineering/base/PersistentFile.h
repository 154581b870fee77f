#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Whole files on the persistent partition. Nothing but regular files is opened, and no open waits: a pipe in a file's
/// place would hold up the station's line.

enum class FileRead {
    kComplete,
    kFailed,   ///< not there, not readable, or not a regular file
    kTooLong,  ///< longer than asked for
};

/// Reads a file.
/// @param text becomes the file's content; empty unless all of it was read
/// @param nLimit bytes that the file may have
FileRead ReadPersistentFile(const std::string& path, std::size_t nLimit, std::string& text);

enum class FileWritten {
    kComplete,
    kNotOpened,   ///< cannot be opened or made, or is not a regular file; what is there is as it was
    kIncomplete,  ///< the beginning of the text, if anything
};

/// Truncates a file and writes it, all of `text`. A file that is not there is made for its owner to write and its group
/// to read; a stricter umask holds. What is there keeps its mode.
FileWritten WritePersistentFile(const std::string& path, std::string_view text);

/// @returns whether a regular file is there and can be read.
bool IsReadableFile(const std::string& path);
