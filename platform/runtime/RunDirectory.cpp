#include "platform/runtime/RunDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <system_error>

#include "platform/runtime/Descriptor.h"

namespace runtime {
namespace {

namespace fs = std::filesystem;

fs::path runDirectory()
{
    const char* const runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime != nullptr && *runtime != '\0')
        return fs::absolute(runtime) / "engineering";
    return "/tmp/engineering-" + std::to_string(getuid());
}

[[noreturn]] void refuseDirectory(const fs::path& path, const std::string& reason)
{
    throw std::runtime_error("the run directory " + path.string() + " cannot be used: " + reason);
}

}  // namespace

fs::path makeRunDirectory()
{
    const fs::path path = runDirectory();
    if (mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        refuseDirectory(path, std::generic_category().message(errno));

    // Asked of the open directory, so that nobody can put another in its place in between; /tmp is everybody's.
    const Descriptor directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory.valid())
        refuseDirectory(
            path, errno == ELOOP || errno == ENOTDIR ? "it is no directory" : std::generic_category().message(errno));
    struct stat status = {};
    if (fstat(directory.get(), &status) != 0)
        refuseDirectory(path, std::generic_category().message(errno));
    if (status.st_uid != getuid())
        refuseDirectory(path, "it belongs to another user");
    if (fchmod(directory.get(), S_IRWXU) != 0)
        refuseDirectory(path, std::generic_category().message(errno));
    return path;
}

}  // namespace runtime
