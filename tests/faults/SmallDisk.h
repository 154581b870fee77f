#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tests {

/// A file system of its own with little space, in memory, which only this process's main thread and the programs that
/// it starts see. Making one takes the right to mount.
class SmallDisk
{
public:
    /// Mounts the file system on `directory`, which is made. Not mounted where that is not allowed: see problem().
    SmallDisk(const std::filesystem::path& directory, std::size_t bytes);

    /// No process may still use it.
    ~SmallDisk();

    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    /// @returns why there is no such file system here, empty if there is one.
    const std::optional<std::string>& problem() const { return problem_; }

    /// Takes all space that is left, and gives it back.
    void fill();
    void free();

    /// Makes it read-only, once no file is open for writing.
    void makeReadOnly();

private:
    std::filesystem::path filler() const { return directory_ / "filler"; }

    const std::filesystem::path directory_;
    std::optional<std::string> problem_;
};

}  // namespace tests
