#include "tests/support/TempDir.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

namespace tests {

namespace {

std::filesystem::path makeDirectory()
{
    std::string name = (std::filesystem::temp_directory_path() / "engineering-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::system_error(errno, std::generic_category(), name);
    }
    return name;
}

}  // namespace

TempDir::TempDir() : path_(makeDirectory()) {}

TempDir::~TempDir()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace tests
