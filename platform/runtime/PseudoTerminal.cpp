#include "platform/runtime/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

namespace runtime {
namespace {

namespace fs = std::filesystem;

/// Another service needs the lock for a few system calls.
constexpr std::chrono::seconds kLockPatience{1};
constexpr int kLockRetryMs = 10;

[[noreturn]] void refuseLink(const fs::path& link, const std::string& reason)
{
    throw TerminalError(link.string() + ": " + reason);
}

[[noreturn]] void refuseLink(const fs::path& link)
{
    refuseLink(link, std::generic_category().message(errno));
}

/// The position of the mark of a service that runs at `link`. It differs for each link, since the kernel soon gives the
/// number of a terminal to the next, and lies far from the bytes that station programs may lock.
flock64 markOf(const fs::path& link)
{
    std::error_code error;
    const fs::path directory = fs::canonical(link.parent_path(), error);
    flock64 range{};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    const std::uint64_t hash = fs::hash_value(directory / link.filename());
    range.l_start = static_cast<off64_t>(hash >> 2 | std::uint64_t{1} << 61);
    range.l_len = 1;
    return range;
}

/// Marks the station's end as served, with a record lock: station programs use flock() and TIOCEXCL.
void markServed(int stationEnd, const fs::path& link)
{
    flock64 range = markOf(link);
    fcntl(stationEnd, F_OFD_SETLK, &range);
}

/// @returns whether `path` is a name that the kernel gives to terminals.
bool isTerminalName(std::string_view path)
{
    constexpr std::string_view kDirectory = "/dev/pts/";
    return path.starts_with(kDirectory) && path.size() > kDirectory.size() &&
           path.find_first_not_of("0123456789", kDirectory.size()) == std::string_view::npos;
}

/// @returns whether `link` leads to the terminal of another service that runs there.
/// @param own this service's terminal, to which the link of a killed service may lead
bool isServed(const fs::path& link, const std::string& own)
{
    std::error_code error;
    const std::string target = fs::read_symlink(link, error).string();
    if (!isTerminalName(target) || target == own) {
        return false;
    }
    const host::Descriptor end(open(target.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!end.valid()) {
        return false;
    }
    flock64 range = markOf(link);
    return fcntl(end.get(), F_OFD_GETLK, &range) == 0 && range.l_type != F_UNLCK;
}

void makeRaw(int terminal)
{
    termios settings{};
    tcgetattr(terminal, &settings);
    cfmakeraw(&settings);
    tcsetattr(terminal, TCSANOW, &settings);
}

void replaceLink(const std::string& target, const fs::path& link)
{
    // Moved into place, so that a station always finds a link.
    const fs::path fresh = link.parent_path() / ("." + link.filename().string() + "." + std::to_string(getpid()));
    unlink(fresh.c_str());
    if (symlink(target.c_str(), fresh.c_str()) != 0) {
        refuseLink(link);
    }
    if (rename(fresh.c_str(), link.c_str()) != 0) {
        const int error = errno;
        unlink(fresh.c_str());
        errno = error;
        refuseLink(link);
    }
}

/// Only one service at a time may examine and make links in a directory. The lock lasts as long as the descriptor.
host::Descriptor lockDirectoryOf(const fs::path& link)
{
    host::Descriptor directory(open(link.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.valid()) {
        refuseLink(link);
    }
    const auto deadline = std::chrono::steady_clock::now() + kLockPatience;
    while (flock(directory.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            refuseLink(link);
        }
        if (std::chrono::steady_clock::now() > deadline) {
            refuseLink(link, "another process locks its directory");
        }
        poll(nullptr, 0, kLockRetryMs);
    }
    return directory;
}

void makeLink(const std::string& target, const fs::path& link)
{
    const auto lock = lockDirectoryOf(link);
    if (symlink(target.c_str(), link.c_str()) == 0) {
        return;
    }
    if (errno != EEXIST) {
        refuseLink(link);
    }
    if (!fs::is_symlink(fs::symlink_status(link))) {
        refuseLink(link, "expected a symbolic link or nothing, found another file");
    }
    if (isServed(link, target)) {
        refuseLink(link, "another service uses this link");
    }
    replaceLink(target, link);
}

}  // namespace

PseudoTerminal::PseudoTerminal(const fs::path& link) : link_(fs::absolute(link).lexically_normal())
{
    master_ = std::make_shared<const host::Descriptor>(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, 64> name{};
    if (!master_->valid() || grantpt(master_->get()) != 0 || unlockpt(master_->get()) != 0 ||
        ptsname_r(master_->get(), name.data(), name.size()) != 0) {
        refuseLink(link_);
    }
    stationEnd_ = name.data();

    station_.reset(::open(stationEnd_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (!station_.valid() || fchmod(station_.get(), S_IRUSR | S_IWUSR) != 0) {
        refuseLink(link_);
    }
    makeRaw(station_.get());
    markServed(station_.get(), link_);
    makeLink(stationEnd_, link_);
    linked_ = true;
}

PseudoTerminal::~PseudoTerminal()
{
    withdraw();
}

void PseudoTerminal::withdraw()
{
    const std::lock_guard lock(mutex_);
    if (!std::exchange(linked_, false)) {
        return;
    }
    std::error_code error;
    if (fs::read_symlink(link_, error) == stationEnd_) {
        unlink(link_.c_str());
    }
}

}  // namespace runtime
