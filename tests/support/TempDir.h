#pragma once

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

}  // namespace tests
