#pragma once

#include <sys/stat.h>

#include <filesystem>

namespace tests {

/// A new directory of the test's own, removed at the end with all that is in it.
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

/// Sets this process's umask, which the programs that it starts inherit, as long as the object lives.
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
