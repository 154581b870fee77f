// The program as a whole, against a head unit in the test's process on a bus of the test's own.

#include <KYRAppMgr.h>
#include <KYRSystemMisc.h>
#include <KYRTuner.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <memory>

#include "platform/bench/HeadUnit.h"
#include "platform/bench/HeadUnitBus.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PrivateBus.h"

namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using tests::ChildProcess;
using Stream = ChildProcess::Stream;

class HeadunitctlTest : public testing::Test
{
protected:
    HeadunitctlTest()
    {
        setenv("DBUS_SESSION_BUS_ADDRESS", bus_.address().c_str(), 1);
        unit_.install();
        std::string error;
        EXPECT_TRUE(headUnitBus_.start(error)) << error;
    }
    ~HeadunitctlTest() override
    {
        headUnitBus_.stop();
        unit_.stop();
    }

    static std::vector<std::string> command(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), HEADUNITCTL);
        return arguments;
    }

    static tests::Outcome run(std::vector<std::string> arguments) { return tests::run(command(std::move(arguments))); }

    tests::PrivateBus bus_;
    bench::HeadUnit unit_;
    bench::HeadUnitBus headUnitBus_{unit_};
};

TEST_F(HeadunitctlTest, StatePrintsTheValueAtThePath)
{
    const auto outcome = run({"state", "/bluetooth/capabilities"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "{\n  \"0\": 1,\n  \"9\": 0\n}\n");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(HeadunitctlTest, StateWithoutPathPrintsTheWhole)
{
    EXPECT_EQ(nlohmann::json::parse(run({"state"}).out), unit_.state().get(""));
}

TEST_F(HeadunitctlTest, SetReplacesTheValue)
{
    const auto outcome = run({"set", "/audio/volume", "20"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out + outcome.err, "");
    EXPECT_EQ(unit_.state().number("/audio/volume"), 20);
}

TEST_F(HeadunitctlTest, SetTakesANegativeNumber)
{
    EXPECT_EQ(run({"set", "/audio/volume", "-5"}).status, 0);
    EXPECT_EQ(unit_.state().number("/audio/volume"), -5);
}

TEST_F(HeadunitctlTest, EventIsDelivered)
{
    class : public IKYRSystemMiscListener
    {
    public:
        std::atomic<unsigned int> speed{0};
        void OnCarSpeedChange(unsigned int nSpeed) override { speed = nSpeed; }
    } listener;
    KYR_GetSystemMiscProxy()->AddListener(&listener);

    EXPECT_EQ(run({"event", "OnCarSpeedChange", R"({"speed":80})"}).status, 0);

    EXPECT_EQ(listener.speed, 80u);
    KYR_GetSystemMiscProxy()->RemoveListener(&listener);
}

TEST_F(HeadunitctlTest, EventWithoutArgumentsNeedsNoJson)
{
    EXPECT_EQ(run({"event", "OnFactoryResetMode"}).status, 0);
}

TEST_F(HeadunitctlTest, StartModulePrintsTheResult)
{
    KYR_GetAppMgrService()->SetStartServiceAction(MODULE_AUDIO, [](ServiceModule module) { return module * 10; });

    const auto outcome = run({"start-module", "2"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "20\n");
}

TEST_F(HeadunitctlTest, CallsPrintsALinePerCallAndClearsOnlyWhenAsked)
{
    KYR_GetTunerService()->Seek(KYRTuner::BAND_FM, 1);
    KYR_GetTunerService()->AutoStore();
    const std::string lines =
        "{\"service\":\"tuner\",\"op\":\"Seek\",\"args\":[1,1]}\n"
        "{\"service\":\"tuner\",\"op\":\"AutoStore\",\"args\":[]}\n";

    EXPECT_EQ(run({"calls"}).out, lines);
    EXPECT_EQ(run({"calls", "--clear"}).out, lines);
    EXPECT_EQ(run({"calls"}).out, "");
}

TEST_F(HeadunitctlTest, WatchFollowsCallsAndChangesUntilInterrupted)
{
    ChildProcess watch(command({"watch"}));
    ASSERT_TRUE(watch.waitForLine(Stream::kErr, "ready"));

    KYR_GetTunerService()->SwitchBandRequest(KYRTuner::BAND_4);

    EXPECT_EQ(watch.waitForLine(Stream::kOut, "SwitchBandRequest"),
              R"({"service":"tuner","op":"SwitchBandRequest","args":[4]})");
    EXPECT_EQ(watch.waitForLine(Stream::kOut, "/tuner/band"), R"({"path":"/tuner/band","value":4})");
    watch.signal(SIGINT);
    EXPECT_EQ(watch.wait(), 0);
}

TEST_F(HeadunitctlTest, WatchEndsWhenTheHeadUnitLeavesTheBus)
{
    ChildProcess watch(command({"watch"}));
    ASSERT_TRUE(watch.waitForLine(Stream::kErr, "ready"));

    headUnitBus_.stop();

    EXPECT_EQ(watch.wait(), 0);
}

TEST_F(HeadunitctlTest, WatchFailsWhenTheBusDies)
{
    ChildProcess watch(command({"watch"}));
    ASSERT_TRUE(watch.waitForLine(Stream::kErr, "ready"));

    bus_.kill();

    EXPECT_EQ(watch.wait(), 1);
    EXPECT_EQ(watch.output(Stream::kErr), "ready\nheadunitctl: the session bus is gone\n");
}

struct RefusedCase {
    const char* name;
    std::vector<std::string> arguments;
    int status;
    const char* says;
};

class HeadunitctlRefusalTest : public HeadunitctlTest, public testing::WithParamInterface<RefusedCase>
{
};

TEST_P(HeadunitctlRefusalTest, IsOneLineAndAStatus)
{
    const auto outcome = run(GetParam().arguments);

    EXPECT_EQ(outcome.status, GetParam().status);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, AllOf(StartsWith("headunitctl: "), HasSubstr(GetParam().says), EndsWith("\n")));
    EXPECT_EQ(std::ranges::count(outcome.err, '\n'), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Headunitctl, HeadunitctlRefusalTest,
    testing::Values(
        RefusedCase{"UnknownPath", {"state", "/audio/volum"}, 2, "/audio/volum: expected "},
        RefusedCase{"WrongType", {"set", "/audio/volume", "true"}, 2, "/audio/volume: expected "},
        RefusedCase{"ValueThatIsNoJson",
                    {"set", "/wifi/text", "Unit"},
                    2,
                    "headunitctl: /wifi/text: expected JSON, such as 20 or '\"text\"', got 'Unit'"},
        RefusedCase{"UnknownEvent", {"event", "OnNothing"}, 2, "expected one of OnModuleStatusChanged, "},
        RefusedCase{"MissingArgument", {"event", "OnCarSpeedChange"}, 2, "OnCarSpeedChange: speed: expected "},
        RefusedCase{"ArgumentsThatAreNoJson",
                    {"event", "OnCarSpeedChange", "{speed: 70}"},
                    2,
                    "headunitctl: OnCarSpeedChange: expected JSON, such as '{\"speed\": 70}', got '{speed: 70}'"},
        RefusedCase{"NoStartAction", {"start-module", "4"}, 1, "module 4: "},
        RefusedCase{"ModuleThatIsNoNumber", {"start-module", "wifi"}, 2, "N: expected a number, got 'wifi' ("},
        RefusedCase{"ArgumentThatIsNoUtf8", {"state", "/\xFF"}, 2, "UTF-8"},
        RefusedCase{"NoCommand",
                    {},
                    2,
                    "expected a verb (state, set, event, start-module, calls, watch, power-cycle, line), got none"},
        RefusedCase{"UnknownCommand", {"states"}, 2, "unknown verb 'states'; did you mean 'state'?"},
        RefusedCase{"ValueMissing", {"set", "/audio/volume"}, 2, "set: expected JSON, got none"}),
    [](const auto& each) { return each.param.name; });

TEST_F(HeadunitctlTest, WithoutHeadUnitItSaysWhatToStart)
{
    headUnitBus_.stop();

    for (const char* const each : {"state", "calls", "watch", "power-cycle"}) {
        const auto outcome = run({each});
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(outcome.err,
                  "headunitctl: no head unit is on the session bus (com.zent.linux.headunit): "
                  "start engineering-service on this bus\n");
    }
}

TEST_F(HeadunitctlTest, WithoutBusItSaysSo)
{
    const auto outcome = tests::run(command({"state"}), {{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/bus"}});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, AllOf(StartsWith("headunitctl: no session bus: Could not connect"),
                                   EndsWith("; type the export line that scripts/run printed\n")));
}

TEST_F(HeadunitctlTest, WithoutTheAddressOfABusItSaysWhatToType)
{
    const auto outcome = tests::run(
        command({"state"}),
        {{"DBUS_SESSION_BUS_ADDRESS", std::nullopt}, {"XDG_RUNTIME_DIR", "/nonexistent"}, {"DISPLAY", std::nullopt}});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.err, "headunitctl: no session bus: type the export line that scripts/run printed\n");
}

TEST_F(HeadunitctlTest, HelpShowsAnExampleOfEachCommand)
{
    for (const char* const each : {"state", "set", "event", "start-module", "calls", "watch", "power-cycle"}) {
        const auto outcome = run({each, "--help"});
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.out, HasSubstr(std::string("headunitctl ") + each));
    }
}

TEST_F(HeadunitctlTest, VersionIsPrinted)
{
    const auto outcome = run({"--version"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.out, StartsWith("headunitctl "));
}

}  // namespace
