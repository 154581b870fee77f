#include "tests/support/EngineTest.h"

#include <cstdio>
#include <fstream>
#include <sstream>

#include "platform/runtime/Root.h"
#include "tests/support/Text.h"

EngineTest::EngineTest()
{
    runtime::setRoot(root.path().string());
    runtime::makeHeadUnitDirectories(root.path().string());
    runtime::TimerService::setInstance(&timers);
    unit.install();
    hmi.clear();
}

EngineTest::~EngineTest()
{
    // The sources of events first, then what they point to.
    unit.stop();
    KYRSingleton<KYRUARTManage>::DestroyInstance();
    KYRSingleton<KYRAutoTest>::DestroyInstance();
    runtime::TimerService::setInstance(nullptr);
    runtime::setRoot("");
}

void EngineTest::start()
{
    KYRSingleton<KYRUARTManage>::GetInstance();
}

void EngineTest::startInTestMode()
{
    start();
    station.sendCommand(0x0F, 0x00, {0x01});
    forget();
}

std::vector<std::string> EngineTest::calls()
{
    std::vector<std::string> texts;
    for (const bench::Call& call : unit.calls().list()) {
        texts.push_back(callText(call));
    }
    return texts;
}

void EngineTest::forget()
{
    unit.events().drain();
    unit.calls().clear();
    station.clear();
    hmi.clear();
    log.clear();
}

std::string EngineTest::path(const std::string& file) const
{
    return root.path().string() + file;
}

std::string EngineTest::content(const std::string& file) const
{
    std::ifstream stream(path(file), std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

void EngineTest::writeFile(const std::string& file, const std::string& content) const
{
    std::ofstream(path(file), std::ios::binary) << content;
}

void CommandTest::sendAndCompare()
{
    const CommandCase& row = GetParam();
    unit.mergeState(row.state);
    startInTestMode();

    station.sendCommand(row.request[0], row.request[1], {row.request.begin() + 2, row.request.end()});

    EXPECT_EQ(station.replies(), row.replies);
    EXPECT_EQ(hmi.requests(), row.requests);
    EXPECT_EQ(calls(), row.calls);
}

std::string printedBy(const std::function<void()>& work)
{
    testing::internal::CaptureStdout();
    work();
    std::fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

void takeTheHeadUnitAway()
{
    bench::HeadUnit other;
    other.install();
}
