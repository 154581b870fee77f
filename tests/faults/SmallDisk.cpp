#include "tests/faults/SmallDisk.h"

#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "tests/support/ChildProcess.h"

namespace tests {

SmallDisk::SmallDisk(const std::filesystem::path& directory, std::size_t bytes) : directory_(directory)
{
    std::filesystem::create_directories(directory_);
    const std::string options = "mode=0755,size=" + std::to_string(bytes);
    // A name space of the test's own, so that nothing stays mounted whatever happens.
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("none", directory_.c_str(), "tmpfs", 0, options.c_str()) != 0) {
        problem_ = "mounting a small file system takes rights that this process has not: " +
                   std::generic_category().message(errno);
    }
}

SmallDisk::~SmallDisk()
{
    if (!problem_) {
        umount2(directory_.c_str(), MNT_DETACH);
    }
}

void SmallDisk::fill()
{
    std::ofstream file(filler(), std::ios::binary | std::ios::app);
    const std::string page(4096, '\xFF');
    while (file << page << std::flush) {
    }
}

void SmallDisk::free()
{
    std::filesystem::remove(filler());
}

void SmallDisk::makeReadOnly()
{
    const auto deadline = std::chrono::steady_clock::now() + kGenerous;
    while (mount("none", directory_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) != 0) {
        if (errno != EBUSY || std::chrono::steady_clock::now() > deadline) {
            throw std::system_error(errno, std::generic_category(), "remount");
        }
        std::this_thread::yield();
    }
}

}  // namespace tests
