#include "programs/station/InputFile.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "programs/station/Tool.h"
#include "protocol/Text.h"

namespace programs::station_tool {

namespace {

class Descriptor
{
public:
    explicit Descriptor(const std::string& path)
        // A pipe that nobody writes to must not hold the opening up: it is waited for where it can be interrupted.
        : owned_(path != "-"), number_(owned_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK) : STDIN_FILENO)
    {
    }
    ~Descriptor()
    {
        if (owned_ && number_ >= 0) {
            close(number_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int number() const { return number_; }

private:
    bool owned_;
    int number_;
};

[[noreturn]] void fail(const std::string& path, int error)
{
    throw WrongUse((path == "-" ? "standard input" : path) + ": cannot be read: " + std::strerror(error));
}

}  // namespace

std::string readInput(const std::string& path, const station::Interrupt& interrupt)
{
    const Descriptor input(path);
    if (input.number() < 0) {
        fail(path, errno);
    }
    std::string text;
    std::array<char, 65536> chunk;
    for (;;) {
        std::array<pollfd, 2> waits{pollfd{input.number(), POLLIN, 0}, pollfd{interrupt.descriptor(), POLLIN, 0}};
        if (poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) {
            fail(path, errno);
        }
        if (interrupt.requested()) {
            throw station::Interrupted();
        }
        if (waits[0].revents == 0) {
            continue;
        }
        const ssize_t count = read(input.number(), chunk.data(), chunk.size());
        if (count < 0 && errno != EINTR && errno != EAGAIN) {
            fail(path, errno);
        }
        if (count == 0) {
            return text;
        }
        text.append(chunk.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        if (text.size() > kLongestInput) {
            throw WrongUse(path + ": is longer than " + std::to_string(kLongestInput >> 20) + " MiB");
        }
    }
}

void complainOfFile(const std::string& line)
{
    std::fprintf(stderr, "%s\n", protocol::printable(line).c_str());
}

}  // namespace programs::station_tool
