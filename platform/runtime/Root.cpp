#include "platform/runtime/Root.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "KYRSystem.h"
#include "host/Descriptor.h"
#include "platform/runtime/Report.h"
#include "protocol/Errors.h"

namespace runtime {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStoreDirectory = "kyr/etc/bluetooth/bin";
constexpr const char* kStoreFile = "PSConfig.psr";

/// The keys of the controller in factory state. The second line is the device address, which the service provisions.
constexpr const char* kDefaultStore =
    "// PSKEYs\n"
    "&0001 = 0000 0000 0000 0000\n"
    "&0017 = 0000 0000\n"
    "&01f6 = 0018\n"
    "&01fe = 6590\n"
    "&0205 = 0001\n";

std::string& rootPath()
{
    static std::string* const path = new std::string;  // in use until the process ends
    return *path;
}

void makeStore(const fs::path& directory)
{
    const fs::path file = directory / kStoreFile;
    if (fs::exists(fs::symlink_status(file))) {
        return;
    }
    std::ofstream stream(file, std::ios::binary);
    stream << kDefaultStore;
    stream.close();
    if (!stream) {
        throw fs::filesystem_error("cannot write", file, std::make_error_code(std::errc::io_error));
    }
}

fs::path runDirectory()
{
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime != '\0') {
        return fs::absolute(runtime) / "engineering";
    }
    return "/tmp/engineering-" + std::to_string(getuid());
}

[[noreturn]] void refuseDirectory(const fs::path& path, const std::string& reason)
{
    throw std::runtime_error("run directory " + path.string() + ": " + reason);
}

}  // namespace

void setRoot(const std::string& directory)
{
    if (directory.empty()) {
        rootPath().clear();
        return;
    }
    std::string path = fs::absolute(directory).lexically_normal().string();
    while (path.ends_with('/')) {
        path.pop_back();
    }
    rootPath() = path;
}

bool makeHeadUnitDirectories(const std::string& root)
{
    if (root.empty()) {
        return true;
    }
    std::error_code refused;
    fs::create_directories(root, refused);
    if (refused) {
        throw protocol::StorageError("--root " + root + ": cannot make the directory: " + refused.message());
    }
    try {
        for (const char* const directory : {"perm_data/data/bluetooth", "perm_data/log", "media", kStoreDirectory}) {
            fs::create_directories(fs::path(root) / directory);
        }
        makeStore(fs::path(root) / kStoreDirectory);
        return true;
    } catch (const fs::filesystem_error& error) {
        report("--root " + root + ": cannot make " + error.path1().string() + ": " + error.code().message());
        return false;
    }
}

std::filesystem::path makeRunDirectory()
{
    const fs::path path = runDirectory();
    if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        refuseDirectory(path, std::generic_category().message(errno));
    }

    // Checks the open directory, so that no other user can swap it in between: everybody may write to /tmp.
    const host::Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory.valid()) {
        refuseDirectory(
            path, errno == ELOOP || errno == ENOTDIR ? "not a directory" : std::generic_category().message(errno));
    }
    struct stat status = {};
    if (fstat(directory.get(), &status) != 0) {
        refuseDirectory(path, std::generic_category().message(errno));
    }
    if (status.st_uid != getuid()) {
        refuseDirectory(path, "belongs to another user");
    }
    if (fchmod(directory.get(), S_IRWXU) != 0) {
        refuseDirectory(path, std::generic_category().message(errno));
    }
    return path;
}

}  // namespace runtime

const char* KYR_GetRootPath()
{
    return runtime::rootPath().c_str();
}
