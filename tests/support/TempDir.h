#pragma once

#include <sys/stat.h>

#include <filesystem>

namespace tests {

/// A new directory, removed with its contents at the end of the object.
class TempDir
{
public:
    TempDir();
    ~TempDir();

    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// Sets the umask of this process, and so of the programs that it starts, as long as the object exists.
class Umask
{
public:
    explicit Umask(mode_t mask) : old_(umask(mask)) {}
    ~Umask() { umask(old_); }

    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    const mode_t old_;
};

}  // namespace tests
