#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"

namespace tests {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::SizeIs;
using Stream = ChildProcess::Stream;

class HeadUnitControlTest : public BenchTest
{
protected:
    Outcome control(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> all{HEADUNITCTL};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return run(all);
    }

    json state(const std::string& path) { return json::parse(control({"state", path}).out); }

    std::vector<json> calls()
    {
        std::vector<json> records;
        for (const std::string& line : linesOf(control({"calls"}).out)) {
            records.push_back(json::parse(line));
        }
        return records;
    }
};

TEST_F(HeadUnitControlTest, HeadUnitFileIsMergedOverTheState)
{
    const auto file = directory() / "headunit.json";
    std::ofstream(file) << R"({"audio": {"volume": 7}})";
    startService({"--headunit", file.string()});

    EXPECT_EQ(state("/audio/volume"), 7);
    EXPECT_EQ(state("/audio/volume_limit"), 40);
}

TEST_F(HeadUnitControlTest, CallsShowTheBringUpInOrder)
{
    startService();

    const auto records = calls();

    ASSERT_THAT(records, SizeIs(testing::Ge(2u)));
    EXPECT_EQ(records[0], (json{{"service", "app_manager"}, {"op", "NotifyModuleInitBegin"}, {"args", {14}}}));
    EXPECT_THAT(records,
                testing::Contains(json{{"service", "app_manager"}, {"op", "NotifyModuleReady"}, {"args", {14}}}));
}

TEST_F(HeadUnitControlTest, WatchFollowsAgainAfterASignalThatGDBusCannotDecode)
{
    startService();
    ChildProcess& watch = start({HEADUNITCTL, "watch"});
    ASSERT_TRUE(watch.waitForLine(Stream::kErr, "ready"));
    BusClient attacker(bus().address());
    const auto connections = attacker.connectionsOf(watch.pid());
    ASSERT_THAT(connections, SizeIs(1));

    attacker.sendUndecodable(connections.front(), G_DBUS_MESSAGE_TYPE_SIGNAL);

    EXPECT_TRUE(watch.waitForLine(Stream::kErr, "connected again")) << watch.output(Stream::kErr);
    control({"set", "/audio/volume", "21"});
    EXPECT_TRUE(watch.waitForLine(Stream::kOut, "/audio/volume"));
}

TEST_F(HeadUnitControlTest, HeadUnitIsBackOnTheBusAfterACallThatGDBusCannotDecode)
{
    ChildProcess& service = startService();
    BusClient attacker(bus().address());

    attacker.sendUndecodable("com.zent.linux.headunit", G_DBUS_MESSAGE_TYPE_METHOD_CALL);

    EXPECT_TRUE(service.waitForLine(Stream::kErr, "connected again")) << service.output(Stream::kErr);
    EXPECT_EQ(state("/audio/volume"), 12);
    EXPECT_EQ(attacker.callEngineering("auto_test_set_track_index", "(byte 0, byte 0)"), "()");
}

TEST_F(HeadUnitControlTest, PowerCycleHangsTheLineUpAndStartsTheUnitWithItsNewAddress)
{
    const auto file = directory() / "headunit.json";
    std::ofstream(file) << R"({"audio": {"volume": 7}})";
    ChildProcess& service = startService({"--headunit", file.string()});
    const auto send = [this](const std::vector<std::string>& words) {
        std::vector<std::string> all{ENGINEERING_STATION, "send", "--port", link().string()};
        all.insert(all.end(), words.begin(), words.end());
        return run(all).out;
    };
    send({"test.set-mode", "mode=on"});
    send({"identity.write-hu-serial", "value=HU7"});
    send({"identity.write-bluetooth-address", "value=0002F5A1B2C3"});
    ASSERT_THAT(send({"identity.bluetooth-address-present"}), HasSubstr("yes"));
    control({"set", "/audio/volume", "20"});
    RawLine old(link());

    for (int cycle = 0; cycle < 2; ++cycle) {
        const Outcome outcome = control({"power-cycle"});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
    }

    EXPECT_THROW(old.read(1), std::system_error);
    EXPECT_EQ(service.wait(std::chrono::nanoseconds(0)), std::nullopt) << "it is the same process";
    for (const auto& each : std::filesystem::directory_iterator("/proc/" + std::to_string(service.pid()) + "/fd")) {
        std::error_code ignored;
        EXPECT_THAT(std::filesystem::read_symlink(each, ignored).string(), testing::Not(HasSubstr("memfd")));
    }
    EXPECT_EQ(state("/bluetooth/attributes/3"), "00:02:F5:A1:B2:C3");
    EXPECT_EQ(state("/audio/volume"), 7);
    EXPECT_THAT(send({"test.mode"}), HasSubstr("off"));
    send({"test.set-mode", "mode=on"});
    EXPECT_THAT(send({"identity.hu-serial"}), HasSubstr("HU7"));
}

TEST_F(HeadUnitControlTest, StartModuleRunsTheRegisteredAction)
{
    startService();

    const auto outcome = control({"start-module", "1"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "1\n");
}

}  // namespace
}  // namespace tests
