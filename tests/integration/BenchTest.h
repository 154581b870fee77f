#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "station/SerialLink.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TempDir.h"

namespace tests {

/// The station's end of the line in plain bytes, without the codec and the reply rules of the station.
class RawLine
{
public:
    explicit RawLine(const std::filesystem::path& path) : link_(path.string()) {}

    void write(const std::vector<std::uint8_t>& bytes);

    /// @returns `count` bytes, fewer if they do not come within `timeout`.
    std::vector<std::uint8_t> read(std::size_t count, std::chrono::nanoseconds timeout = kGenerous);

    /// Writes `request` and reads as many bytes as `reply` has.
    void expectExchange(const std::vector<std::uint8_t>& request, const std::vector<std::uint8_t>& reply);

private:
    station::SerialLink link_;
};

/// A directory, a bus and programs for one test. At the end, each running program is asked to end; it must do so with
/// status 0 and without a report of a sanitizer.
class BenchTest : public testing::Test
{
protected:
    BenchTest();
    ~BenchTest() override;

    void TearDown() override;

    /// Starts a program in the bench's environment.
    ChildProcess& start(const std::vector<std::string>& arguments);

    /// Runs a program to its end in the bench's environment.
    Outcome run(const std::vector<std::string>& arguments);

    /// Starts the service with a root of its own and further `arguments`, and waits until it is ready.
    ChildProcess& startService(const std::vector<std::string>& arguments = {});

    /// Waits for the end of a program that should end on its own or has been told to.
    void expectEnd(ChildProcess& process, int status);

    /// Programs that start from here on have no session bus.
    void hideBus();

    /// Sends `command` until `wanted` accepts the reply.
    template <class Predicate>
    bool pollLine(const std::vector<std::uint8_t>& command, std::size_t replyLength, Predicate wanted)
    {
        RawLine line(link());
        const auto deadline = std::chrono::steady_clock::now() + kGenerous;
        while (std::chrono::steady_clock::now() < deadline) {
            line.write(command);
            if (wanted(line.read(replyLength, std::chrono::seconds(1)))) {
                return true;
            }
        }
        return false;
    }

    const std::filesystem::path& directory() const { return directory_.path(); }
    std::filesystem::path root() const { return directory() / "root"; }
    std::filesystem::path link() const { return directory() / "run" / "engineering" / "uart"; }
    PrivateBus& bus() { return bus_; }
    ChildProcess::Environment& environment() { return environment_; }

private:
    TempDir directory_;
    PrivateBus bus_;
    ChildProcess::Environment environment_;
    std::vector<std::unique_ptr<ChildProcess>> processes_;
};

/// Runs a program with all three streams on a terminal. Types the next line of `typed` at each question.
/// @returns what it wrote there, and its status.
std::pair<std::string, int> runOnTerminal(const std::vector<std::string>& arguments,
                                          const ChildProcess::Environment& environment, const std::string& typed);

/// @returns the lines of `text`.
std::vector<std::string> linesOf(const std::string& text);

}  // namespace tests
