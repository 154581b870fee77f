#include <gmock/gmock.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"

namespace tests {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::IsEmpty;
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

    /// Expects that a command is refused: `status`, and one line that contains `part`.
    void expectRefused(const std::vector<std::string>& arguments, const std::string& part, int status = 1)
    {
        const auto outcome = control(arguments);
        EXPECT_EQ(outcome.status, status);
        EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
        EXPECT_THAT(outcome.err, HasSubstr(part));
        EXPECT_THAT(outcome.out, IsEmpty());
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

TEST_F(HeadUnitControlTest, StateIsTheValueAtThePath)
{
    startService();

    EXPECT_EQ(state("/audio/volume"), 12);
    EXPECT_EQ(state("/bluetooth/attributes/4"), "HeadUnit");
}

TEST_F(HeadUnitControlTest, StateWithoutPathIsTheWholeState)
{
    startService();

    const json whole = json::parse(control({"state"}).out);

    EXPECT_EQ(whole.at("audio").at("volume"), 12);
    EXPECT_EQ(whole.at("tuner").at("band"), 1);
}

TEST_F(HeadUnitControlTest, HeadUnitFileIsMergedOverTheState)
{
    const auto file = directory() / "headunit.json";
    std::ofstream(file) << R"({"audio": {"volume": 7}})";
    startService({"--headunit", file.string()});

    EXPECT_EQ(state("/audio/volume"), 7);
    EXPECT_EQ(state("/audio/volume_limit"), 40);
}

TEST_F(HeadUnitControlTest, SetReplacesTheValue)
{
    startService();

    EXPECT_EQ(control({"set", "/audio/volume", "21"}).status, 0);

    EXPECT_EQ(state("/audio/volume"), 21);
}

TEST_F(HeadUnitControlTest, SetOfAnUnknownPathAWrongTypeOrNoJsonIsRefusedAndChangesNothing)
{
    startService();
    const json before = state("");

    expectRefused({"set", "/audio/loudness", "3"}, "/audio/loudness");
    expectRefused({"set", "/audio/volume", R"("loud")"}, "/audio/volume");
    expectRefused({"set", "/audio/volume", "loud"}, "JSON", 2);
    expectRefused({"state", "/no/such/path"}, "/no/such/path");

    EXPECT_EQ(state(""), before);
}

TEST_F(HeadUnitControlTest, EventWithItsArgumentsIsDelivered)
{
    startService();

    EXPECT_EQ(control({"event", "OnCarSpeedChange", R"({"speed": 50})"}).status, 0);
    EXPECT_EQ(control({"event", "OnFactoryResetMode"}).status, 0);
}

TEST_F(HeadUnitControlTest, UnknownEventOrWrongArgumentsAreRefused)
{
    startService();

    expectRefused({"event", "OnMoonPhase", "{}"}, "OnMoonPhase");
    expectRefused({"event", "OnCarSpeedChange"}, "speed");
    expectRefused({"event", "OnCarSpeedChange", R"({"speed": "fast"})"}, "speed");
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

TEST_F(HeadUnitControlTest, ClearedCallsAreGone)
{
    startService();

    EXPECT_EQ(control({"calls", "--clear"}).status, 0);

    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(HeadUnitControlTest, WatchShowsAChangeAsItComes)
{
    startService();
    ChildProcess& watch = start({HEADUNITCTL, "watch"});
    ASSERT_TRUE(watch.waitForLine(Stream::kErr, "ready"));

    control({"set", "/audio/volume", "21"});

    const auto change = watch.waitForLine(Stream::kOut, "/audio/volume");
    ASSERT_TRUE(change);
    EXPECT_EQ(json::parse(*change), (json{{"path", "/audio/volume"}, {"value", 21}}));
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

TEST_F(HeadUnitControlTest, StartModuleRunsTheRegisteredAction)
{
    startService();

    const auto outcome = control({"start-module", "1"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "1\n");
}

TEST_F(HeadUnitControlTest, StartModuleWithoutActionIsRefused)
{
    startService();

    expectRefused({"start-module", "4"}, "4");
}

TEST_F(HeadUnitControlTest, WithoutAHeadUnitOnTheBusFails)
{
    expectRefused({"state"}, "com.zent.linux.headunit");
}

TEST_F(HeadUnitControlTest, WithoutABusFails)
{
    hideBus();

    expectRefused({"state"}, "bus");
}

}  // namespace
}  // namespace tests
