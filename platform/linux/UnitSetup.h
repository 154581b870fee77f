#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/ScriptedService.h"
#include "platform/linux/Unit.h"
#include "platform/linux/UnitTestFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TempDir.h"

namespace unit {

/// What a listener has heard, in words. Any thread.
class Heard
{
public:
    void add(const std::string& what)
    {
        const std::lock_guard lock(mutex_);
        heard_.push_back(what);
        changed_.notify_all();
    }

    /// Waits until there are `count` words.
    /// @returns all so far, fewer if they do not come in time.
    std::vector<std::string> waitFor(std::size_t count)
    {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, tests::kGenerous, [&] { return heard_.size() >= count; });
        return heard_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> heard_;  // guarded by mutex_
};

/// A unit with a bus of its own, which is both the system bus and the session bus.
class UnitSetup : public testing::Test
{
protected:
    UnitSetup()
    {
        g_setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.address().c_str(), TRUE);
        g_setenv("DBUS_SESSION_BUS_ADDRESS", bus_.address().c_str(), TRUE);
        std::ofstream(directory_.path() / "unit.toml") << tests::unitFile();
        std::vector<std::string> mistakes;
        config_ = loadUnitConfig(directory_.path() / "unit.toml", mistakes);
        EXPECT_THAT(mistakes, testing::IsEmpty());
    }

    Unit& start()
    {
        unit_.emplace(config_);
        unit_->install();
        return *unit_;
    }

    /// Waits until `interface` is in `state`.
    /// @returns the reason.
    std::string reasonOnce(const std::string& interface, State state)
    {
        return reasonOnce(unit_->board(), interface, state);
    }
    static std::string reasonOnce(StatusBoard& board, const std::string& interface, State state)
    {
        std::string reason = "it did not happen";
        board.await(
            [&](const auto& all) {
                return std::ranges::any_of(all, [&](const InterfaceStatus& status) {
                    const bool is = status.interface == interface && status.state == state;
                    reason = is ? status.reason : reason;
                    return is;
                });
            },
            tests::kGenerous);
        return reason;
    }

    /// @returns what `ask` returns once it is `wanted`, or after a long time.
    template <class Ask, class Value>
    Value once(Ask ask, Value wanted)
    {
        const auto giveUp = std::chrono::steady_clock::now() + tests::kGenerous;
        while (ask() != wanted && std::chrono::steady_clock::now() < giveUp) {
            std::this_thread::yield();
        }
        return ask();
    }

    std::unique_ptr<tests::ScriptedService> service(const std::string& name,
                                                    tests::ScriptedService::Answers answers = {})
    {
        return std::make_unique<tests::ScriptedService>(bus_.address(), name, std::move(answers));
    }

    tests::TempDir directory_;
    tests::PrivateBus bus_;
    UnitConfig config_;
    std::optional<Unit> unit_;
};

}  // namespace unit
