#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/KYRSingleton.h"
#include "platform/bench/HeadUnit.h"
#include "platform/runtime/TimerService.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/RecordedWire.h"
#include "tests/support/SignalRecorder.h"
#include "tests/support/TempDir.h"

/// The link manager and the engine over a simulated head unit: `station` is the line, `hmi` the bus, `log` the log,
/// `root` the file system. The service starts in start() or startInTestMode(), so a test can change `unit` before. Time
/// passes only in timers.advance().
class EngineTest : public testing::Test
{
public:
    EngineTest();
    ~EngineTest() override;

    /// Makes the link manager and the engine, as the service does.
    void start();

    /// Starts, switches auto-test mode on as a station does, and forgets the effects.
    void startInTestMode();

    /// Sets one value of the head unit's state.
    void set(const std::string& path, const nlohmann::json& value) { unit.state().set(path, value); }
    nlohmann::json get(const std::string& path) { return unit.state().get(path); }

    /// Delivers an event and returns afterwards.
    void raise(const std::string& name, const nlohmann::json& arguments) { unit.raiseAndWait(name, arguments); }

    /// @returns the recorded actions of the head unit, "tuner Play [1,8750,0,1]".
    std::vector<std::string> calls();

    /// Forgets all records.
    void forget();

    /// The path of a file of the head unit, below `root`.
    std::string path(const std::string& file) const;

    /// A file's whole content.
    std::string content(const std::string& file) const;
    void writeFile(const std::string& file, const std::string& content) const;

    KYRUARTManage& link() { return *KYRSingleton<KYRUARTManage>::GetInstance(); }
    KYRAutoTest& engine() { return *KYRSingleton<KYRAutoTest>::GetInstance(); }

    LogRecorder log;
    tests::TempDir root;
    runtime::TimerService timers{runtime::TimerService::Clock::kManual};
    bench::HeadUnit unit{timers};
    RecordedWire station;
    SignalRecorder hmi;
};

/// One command and all its effects, as a row of a table.
struct CommandCase {
    std::string name;
    std::vector<std::uint8_t> request;                // cmd_one, cmd_two, parameters
    std::vector<std::string> replies;                 // "82 01 [22 2E]"
    std::vector<std::string> requests;                // of the HMI, "OnAutoTestSelectPageSignal(2)"
    std::vector<std::string> calls;                   // "tuner Play [1,8750,0,1]"
    nlohmann::json state = nlohmann::json::object();  // merged over the head unit's state before the start
};

/// Sends the command in auto-test mode and compares everything that leaves the service.
class CommandTest : public EngineTest, public testing::WithParamInterface<CommandCase>
{
public:
    void sendAndCompare();
};

/// Names a row's test.
inline std::string caseName(const testing::TestParamInfo<CommandCase>& info)
{
    return info.param.name;
}

/// @returns what `work` writes to standard output.
std::string printedBy(const std::function<void()>& work);

/// Leaves the platform's getters without a head unit: each returns null. The services that the engine holds stay.
void takeTheHeadUnitAway();

/// Reaches what only tests of the link manager's idle parts need.
class UartManageProbe
{
public:
    static std::vector<unsigned char>& canBuffer(KYRUARTManage& link) { return link.m_vCANRecvBuf; }
    static unsigned char& canState(KYRUARTManage& link) { return link.m_ucCANLinkState; }
    static unsigned char& canRetries(KYRUARTManage& link) { return link.m_ucCANRetryCount; }
    static int& port(KYRUARTManage& link) { return link.m_nPortFd; }
};
