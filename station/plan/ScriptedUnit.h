#pragma once

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "protocol/Frame.h"
#include "protocol/FrameAssembler.h"
#include "tests/support/TempDir.h"

namespace station::plan::tests {

using protocol::Frame;

/// A unit on a pseudo-terminal, for tests: between start and stop every frame that it gets goes to a script, on a
/// thread of its own.
class ScriptedUnit
{
public:
    using Script = std::function<void(const Frame&)>;

    explicit ScriptedUnit(Script script = {}) : script_(std::move(script)), stop_(eventfd(0, EFD_CLOEXEC)) { plugIn(); }

    ~ScriptedUnit()
    {
        stop();
        if (master_ >= 0) {
            close(master_);
        }
        if (slave_ >= 0) {
            close(slave_);
        }
        close(stop_);
    }

    ScriptedUnit(const ScriptedUnit&) = delete;
    ScriptedUnit& operator=(const ScriptedUnit&) = delete;

    /// From here on the script runs: what it uses has to be ready.
    void start()
    {
        thread_ = std::thread([this] { serve(); });
    }

    /// What the script has written can be looked at when this returns.
    void stop()
    {
        if (thread_.joinable()) {
            eventfd_write(stop_, 1);
            thread_.join();
        }
    }

    const std::string& path() const { return path_; }

    /// For the script.
    void write(const std::vector<std::uint8_t>& bytes)
    {
        if (::write(master_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            throw std::runtime_error("the pseudo-terminal took less than it was given");
        }
    }

    /// For the script: sends these bytes again and again until the unit is stopped.
    void flood(const std::vector<std::uint8_t>& bytes)
    {
        constexpr int kLookMs = 10;
        std::array<pollfd, 2> wanted{{{master_, POLLOUT, 0}, {stop_, POLLIN, 0}}};
        while (poll(wanted.data(), wanted.size(), kLookMs) >= 0 && (wanted[1].revents & POLLIN) == 0) {
            if ((wanted[0].revents & POLLOUT) != 0) {
                write(bytes);
            }
        }
    }

    /// For the script: the device is gone when it returns.
    void vanish()
    {
        close(master_);
        close(slave_);
        master_ = slave_ = -1;
        std::filesystem::remove(path_);
    }

    /// For the script, after vanish: a device of the same name is there again.
    void comeBack() { plugIn(); }

    /// What has come so far, as "cmd_one cmd_two" in one number each.
    std::vector<unsigned> codes() const
    {
        const std::lock_guard lock(mutex_);
        return codes_;
    }

private:
    void plugIn()
    {
        std::array<char, 128> name{};
        if (openpty(&master_, &slave_, name.data(), nullptr, nullptr) != 0) {
            throw std::runtime_error("no pseudo-terminal can be had");
        }
        termios raw{};
        tcgetattr(slave_, &raw);
        cfmakeraw(&raw);
        tcsetattr(slave_, TCSANOW, &raw);
        std::filesystem::create_symlink(name.data(), path_);
    }

    void serve()
    {
        protocol::FrameAssembler assembler;
        while (master_ >= 0) {
            std::array<pollfd, 2> wanted{{{master_, POLLIN, 0}, {stop_, POLLIN, 0}}};
            if (poll(wanted.data(), wanted.size(), -1) < 0 || (wanted[1].revents & POLLIN) != 0) {
                return;
            }
            std::array<std::uint8_t, 512> chunk;
            const ssize_t count = ::read(master_, chunk.data(), chunk.size());
            if (count <= 0) {
                return;
            }
            assembler.append(protocol::Bytes(chunk).first(static_cast<std::size_t>(count)));
            while (auto received = assembler.next()) {
                const auto params = received->params();
                const Frame frame{received->cmdOne, received->cmdTwo, {params.begin(), params.end()}};
                {
                    const std::lock_guard lock(mutex_);
                    codes_.push_back(static_cast<unsigned>(frame.cmdOne << 8 | frame.cmdTwo));
                }
                if (script_) {
                    script_(frame);
                }
            }
        }
    }

    Script script_;
    int stop_;
    int master_ = -1;
    int slave_ = -1;
    const ::tests::TempDir directory_;
    const std::string path_ = directory_.path() / "unit";
    mutable std::mutex mutex_;
    std::vector<unsigned> codes_;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace station::plan::tests
