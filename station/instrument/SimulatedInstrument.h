#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/Descriptor.h"
#include "tests/support/PtyPeer.h"

namespace station::instrument {

/// An instrument that answers each line as the test says, over a socket or a serial line.
class SimulatedInstrument
{
public:
    /// Writes an answer, or several.
    using Write = std::function<void(const std::string&)>;

    /// The reaction to a line; by default that of a power supply.
    std::map<std::string, std::function<void(const Write&)>> on;

    explicit SimulatedInstrument(bool serial)
    {
        std::signal(SIGPIPE, SIG_IGN);
        if (serial) {
            peer_.emplace();
            return;
        }
        listener_.reset(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in any{};
        any.sin_family = AF_INET;
        any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof any;
        if (bind(listener_.get(), reinterpret_cast<sockaddr*>(&any), size) != 0 || listen(listener_.get(), 4) != 0 ||
            getsockname(listener_.get(), reinterpret_cast<sockaddr*>(&any), &size) != 0) {
            throw std::runtime_error("no socket can be had");
        }
        port_ = ntohs(any.sin_port);
    }

    ~SimulatedInstrument() { stop(); }

    void start()
    {
        thread_ = std::thread([this] { peer_ ? converse(peer_->descriptor()) : accept(); });
    }

    void stop()
    {
        stop_.signal();
        if (thread_.joinable()) {
            thread_.join();
        }
    }

    std::string address() const
    {
        return peer_ ? "serial:" + peer_->path() + ":9600" : "tcp:127.0.0.1:" + std::to_string(port_);
    }

    std::vector<std::string> lines() const
    {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

    /// For a reaction: closes the connection.
    void hangUp() { hangsUp_ = true; }

private:
    bool await(int descriptor) const
    {
        std::array<pollfd, 2> wanted{{{descriptor, POLLIN, 0}, {stop_.descriptor(), POLLIN, 0}}};
        return poll(wanted.data(), wanted.size(), -1) > 0 && wanted[1].revents == 0;
    }

    void accept()
    {
        while (await(listener_.get())) {
            const host::Descriptor connection(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            converse(connection.get());
        }
    }

    void converse(int descriptor)
    {
        std::string text;
        std::array<char, 512> chunk;
        while (await(descriptor)) {
            const ssize_t count = read(descriptor, chunk.data(), chunk.size());
            if (count <= 0) {
                return;
            }
            text.append(chunk.data(), static_cast<std::size_t>(count));
            for (auto end = text.find('\n'); end != std::string::npos; end = text.find('\n')) {
                answer(descriptor, text.substr(0, end));
                text.erase(0, end + 1);
                if (std::exchange(hangsUp_, false)) {
                    return;
                }
            }
        }
    }

    void answer(int descriptor, const std::string& line)
    {
        {
            const std::lock_guard lock(mutex_);
            lines_.push_back(line);
        }
        const Write write = [this, descriptor](const std::string& answer) {
            fcntl(descriptor, F_SETFL, O_NONBLOCK);
            std::array<pollfd, 2> wanted{{{descriptor, POLLOUT, 0}, {stop_.descriptor(), POLLIN, 0}}};
            for (std::size_t at = 0; at < answer.size();) {
                const ssize_t count = ::write(descriptor, answer.data() + at, answer.size() - at);
                if (count > 0) {
                    at += static_cast<std::size_t>(count);
                } else if (errno != EAGAIN || poll(wanted.data(), wanted.size(), -1) < 0 || wanted[1].revents != 0) {
                    return;
                }
            }
        };
        if (const auto found = on.find(line); found != on.end()) {
            found->second(write);
        } else if (line == "*IDN?") {
            write("ACME,PSU-30,42,1.0\r\n");
        } else if (line == "SYST:ERR?") {
            write("0,\"No error\"\n");
        }
    }

    std::optional<::tests::PtyPeer> peer_;
    host::Descriptor listener_;
    int port_ = 0;
    bool hangsUp_ = false;  // of the thread
    const host::Wakeup stop_;
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
    std::thread thread_;
};

}  // namespace station::instrument
