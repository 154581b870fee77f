#include "station/PortUsers.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <system_error>

namespace station {

namespace {

namespace fs = std::filesystem;
using FileStatus = struct stat;

std::optional<pid_t> parsePid(std::string_view text)
{
    pid_t pid = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), pid);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || pid <= 0) {
        return std::nullopt;
    }
    return pid;
}

std::string describe(pid_t pid)
{
    const std::string folder = fmt::format("/proc/{}", pid);
    std::string name;
    std::getline(std::ifstream(folder + "/comm"), name);
    // The kernel keeps the first 15 characters only.
    std::string program;
    std::getline(std::ifstream(folder + "/cmdline"), program, '\0');
    program = fs::path(program).filename().string();
    if (!name.empty() && program.starts_with(name)) {
        name = program;
    }
    return name.empty() ? fmt::format("process {}", pid) : fmt::format("{}, process {}", name, pid);
}

bool hasOpen(const fs::path& process, dev_t device)
{
    std::error_code error;
    for (fs::directory_iterator it(process / "fd", error), end; !error && it != end; it.increment(error)) {
        FileStatus file{};
        if (stat(it->path().c_str(), &file) == 0 && S_ISCHR(file.st_mode) && file.st_rdev == device) {
            return true;
        }
    }
    return false;
}

std::string holderOfLock(const FileStatus& file)
{
    // As the kernel writes it.
    const auto wanted = fmt::format("{:02x}:{:02x}:{}", major(file.st_dev), minor(file.st_dev), file.st_ino);

    // 7: FLOCK  ADVISORY  WRITE 4711 00:18:5 0 EOF
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream words(line);
        std::string number, kind, mode, access, pid, inode;
        words >> number >> kind >> mode >> access >> pid >> inode;
        if (kind == "FLOCK" && inode == wanted) {
            const auto holder = parsePid(pid);
            return holder ? describe(*holder) : "";
        }
    }
    return {};
}

}  // namespace

std::string lockHolder(int descriptor)
{
    FileStatus file{};
    return fstat(descriptor, &file) == 0 ? holderOfLock(file) : "";
}

std::string portUser(const std::string& path)
{
    FileStatus file{};
    if (stat(path.c_str(), &file) != 0) {
        return {};
    }
    const std::string holder = holderOfLock(file);
    // The maker of a pseudo-terminal may keep both of its ends open.
    return holder.empty() && !isPseudoTerminal(file.st_rdev) ? otherUser(path) : holder;
}

std::string otherUser(const std::string& path)
{
    FileStatus device{};
    if (stat(path.c_str(), &device) != 0 || !S_ISCHR(device.st_mode)) {
        return {};
    }
    std::error_code error;
    for (fs::directory_iterator it("/proc", error), end; !error && it != end; it.increment(error)) {
        const auto pid = parsePid(it->path().filename().string());
        if (pid && *pid != getpid() && hasOpen(it->path(), device.st_rdev)) {
            return describe(*pid);
        }
    }
    return {};
}

bool isPseudoTerminal(dev_t device)
{
    // The major numbers that Linux has given to the Unix98 pseudo-terminals.
    constexpr unsigned kFirst = 136;
    constexpr unsigned kLast = 143;
    return major(device) >= kFirst && major(device) <= kLast;
}

}  // namespace station
