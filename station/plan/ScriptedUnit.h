#pragma once

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/Descriptor.h"
#include "protocol/Frame.h"
#include "protocol/FrameAssembler.h"
#include "tests/support/PtyPeer.h"
#include "tests/support/TempDir.h"

namespace station::plan::tests {

using protocol::Frame;

/// A unit on a pseudo-terminal, for tests: between start and stop every frame that it gets goes to a script, on a
/// thread of its own.
class ScriptedUnit
{
public:
    using Script = std::function<void(const Frame&)>;

    explicit ScriptedUnit(Script script = {}) : script_(std::move(script)) { plugIn(); }

    ~ScriptedUnit() { stop(); }

    ScriptedUnit(const ScriptedUnit&) = delete;
    ScriptedUnit& operator=(const ScriptedUnit&) = delete;

    /// Starts the script, which needs its objects ready.
    void start()
    {
        thread_ = std::thread([this] { serve(); });
    }

    /// A test may read the results of the script after this call.
    void stop()
    {
        if (thread_.joinable()) {
            stop_.signal();
            thread_.join();
        }
    }

    const std::string& path() const { return path_; }

    /// For the script.
    void write(const std::vector<std::uint8_t>& bytes) { peer_->write(bytes); }

    /// For the script: sends these bytes again and again until the unit is stopped.
    void flood(const std::vector<std::uint8_t>& bytes)
    {
        constexpr int kLookMs = 10;
        std::array<pollfd, 2> wanted{{{peer_->descriptor(), POLLOUT, 0}, {stop_.descriptor(), POLLIN, 0}}};
        while (poll(wanted.data(), wanted.size(), kLookMs) >= 0 && (wanted[1].revents & POLLIN) == 0) {
            if ((wanted[0].revents & POLLOUT) != 0) {
                write(bytes);
            }
        }
    }

    /// For the script: the device is gone when it returns.
    void vanish()
    {
        peer_.reset();
        std::filesystem::remove(path_);
    }

    /// For the script, after vanish: a device of the same name is there again.
    void comeBack() { plugIn(); }

    /// The commands so far, "cmd_one cmd_two" in one number each.
    std::vector<unsigned> codes() const
    {
        const std::lock_guard lock(mutex_);
        return codes_;
    }

private:
    void plugIn()
    {
        peer_.emplace();
        std::filesystem::create_symlink(peer_->path(), path_);
    }

    void serve()
    {
        protocol::FrameAssembler assembler;
        while (peer_) {
            std::array<pollfd, 2> wanted{{{peer_->descriptor(), POLLIN, 0}, {stop_.descriptor(), POLLIN, 0}}};
            if (poll(wanted.data(), wanted.size(), -1) < 0 || (wanted[1].revents & POLLIN) != 0) {
                return;
            }
            std::array<std::uint8_t, 512> chunk;
            const ssize_t count = ::read(peer_->descriptor(), chunk.data(), chunk.size());
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
    const host::Wakeup stop_;
    std::optional<::tests::PtyPeer> peer_;  // nothing: the device is gone
    const ::tests::TempDir directory_;
    const std::string path_ = directory_.path() / "unit";
    mutable std::mutex mutex_;
    std::vector<unsigned> codes_;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace station::plan::tests
