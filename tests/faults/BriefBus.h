#pragma once

#include <filesystem>
#include <string>
#include <thread>

namespace tests {

/// A bus that lets every client in, greets it, and closes the connection a moment later: up to half a millisecond,
/// another time with each client.
class BriefBus
{
public:
    /// Listens at `path`.
    explicit BriefBus(const std::filesystem::path& path);
    ~BriefBus();

    BriefBus(const BriefBus&) = delete;
    BriefBus& operator=(const BriefBus&) = delete;

    const std::string& address() const { return address_; }

private:
    void run();

    const std::string address_;
    const int listener_;
    unsigned clients_ = 0;
    std::thread thread_;
};

}  // namespace tests
