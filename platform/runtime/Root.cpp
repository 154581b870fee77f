#include "platform/runtime/Root.h"

#include <filesystem>
#include <fstream>

#include "KYRSystem.h"
#include "platform/runtime/Report.h"

namespace runtime {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStoreDirectory = "kyr/etc/bluetooth/bin";
constexpr const char* kStoreFile = "PSConfig.psr";

/// The controller's keys as it leaves the factory. The second line is the device address, which is what the service
/// provisions.
constexpr const char* kDefaultStore =
    "// PSKEYs\n"
    "&0001 = 0000 0000 0000 0000\n"
    "&0017 = 0000 0000\n"
    "&01f6 = 0018\n"
    "&01fe = 6590\n"
    "&0205 = 0001\n";

std::string& rootPath()
{
    static std::string* const path = new std::string;  // KYR_GetRootPath() may be called until the process has ended
    return *path;
}

void makeStore(const fs::path& directory)
{
    const fs::path file = directory / kStoreFile;
    if (fs::exists(fs::symlink_status(file)))
        return;
    std::ofstream stream(file, std::ios::binary);
    stream << kDefaultStore;
    stream.close();
    if (!stream)
        throw fs::filesystem_error("cannot write", file, std::make_error_code(std::errc::io_error));
}

}  // namespace

void setRoot(const std::string& directory)
{
    if (directory.empty()) {
        rootPath().clear();
        return;
    }
    std::string path = fs::absolute(directory).lexically_normal().string();
    while (path.ends_with('/'))
        path.pop_back();
    rootPath() = path;
}

bool makeHeadUnitDirectories(const std::string& root)
{
    if (root.empty())
        return true;
    try {
        for (const char* const directory : {"perm_data/data/bluetooth", "perm_data/log", "media", kStoreDirectory})
            fs::create_directories(fs::path(root) / directory);
        makeStore(fs::path(root) / kStoreDirectory);
        return true;
    } catch (const fs::filesystem_error& error) {
        report("the head unit's directories cannot be made below " + root + ": " + error.path1().string() + ": " +
               error.code().message());
        return false;
    }
}

}  // namespace runtime

const char* KYR_GetRootPath()
{
    return runtime::rootPath().c_str();
}
