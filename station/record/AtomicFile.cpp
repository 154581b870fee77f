#include "station/record/AtomicFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "station/record/ResultsFolder.h"

namespace station::record {

namespace {

[[noreturn]] void fail(const std::filesystem::path& path, int error)
{
    throw ResultsError("cannot write " + path.string() + ": " + std::strerror(error));
}

/// Closes at the end of its scope.
class Descriptor
{
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor()
    {
        if (number_ >= 0) {
            ::close(number_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return number_; }

    /// Some file systems tell only here that the disk is full.
    bool close()
    {
        const int number = number_;
        number_ = -1;
        return ::close(number) == 0;
    }

private:
    int number_;
};

int openAgain(const char* path, int flags)
{
    int number = -1;
    do {
        // Results are for their owner and his group.
        number = ::open(path, flags | O_CLOEXEC, 0640);
    } while (number < 0 && errno == EINTR);
    return number;
}

void writeAll(const std::filesystem::path& path, const std::filesystem::path& named, std::string_view content)
{
    Descriptor file(openAgain(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW));
    if (file.number() < 0) {
        fail(named, errno);
    }
    while (!content.empty()) {
        const ssize_t written = ::write(file.number(), content.data(), content.size());
        if (written < 0 && errno != EINTR) {
            fail(named, errno);
        }
        content.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    if (!file.close()) {
        fail(named, errno);
    }
}

void sync(const std::filesystem::path& path, const std::filesystem::path& named, int flags)
{
    const Descriptor file(openAgain(path.c_str(), O_RDONLY | flags));
    // EINVAL: a file system that has nothing to sync.
    if (file.number() < 0 || (::fsync(file.number()) != 0 && errno != EINVAL)) {
        fail(named, errno);
    }
}

}  // namespace

void writeAtomically(const std::filesystem::path& path, std::string_view content)
{
    writeAtomically(path, [&](const std::filesystem::path& temporary) { writeAll(temporary, path, content); });
}

void writeAtomically(const std::filesystem::path& path,
                     const std::function<void(const std::filesystem::path& temporary)>& write)
{
    std::filesystem::path temporary = path;
    // Two programs that write the same file do not meet in the temporary one.
    temporary += ".tmp" + std::to_string(::getpid());
    try {
        write(temporary);
        sync(temporary, path, 0);
        if (std::rename(temporary.c_str(), path.c_str()) != 0) {
            fail(path, errno);
        }
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    syncDirectory(path.has_parent_path() ? path.parent_path() : std::filesystem::path("."));
}

void syncDirectory(const std::filesystem::path& directory)
{
    sync(directory, directory, O_DIRECTORY);
}

}  // namespace station::record
