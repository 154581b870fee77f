#include <engineering_dbus.h>
#include <gmock/gmock.h>

#include <csignal>

#include "tests/integration/BenchTest.h"
#include "tests/support/BusClient.h"
#include "tests/support/WireVectors.h"

namespace tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using wire::kModeOn;
using wire::kModeOnReply;
using Stream = ChildProcess::Stream;

/// The engineering service's side of the bus, as far as an HMI sees it.
class ServiceDouble
{
public:
    explicit ServiceDouble(const std::string& address)
        : client_(address), skeleton_(com_zent_linux_engineering_skeleton_new())
    {
        // Objects are served where they were exported: in the loop that this thread runs while it waits.
        g_main_context_push_thread_default(context_);
        g_signal_connect(skeleton_, "handle-auto-test-set-track-index", G_CALLBACK(trackIndexSet), this);
        g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(skeleton_), client_.connection(),
                                         "/com/zent/linux/engineering", nullptr);
        g_main_context_pop_thread_default(context_);
        EXPECT_TRUE(client_.own("com.zent.linux.engineering"));
    }

    ~ServiceDouble()
    {
        g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(skeleton_));
        g_object_unref(skeleton_);
        g_main_context_unref(context_);
    }

    ServiceDouble(const ServiceDouble&) = delete;
    ServiceDouble& operator=(const ServiceDouble&) = delete;

    void emit(const std::string& signal, const std::string& arguments) { client_.emitEngineering(signal, arguments); }

    /// Waits for the next call of auto_test_set_track_index.
    /// @returns its media type and track index; empty when none came.
    std::vector<int> nextTrack()
    {
        track_.clear();
        bool late = false;
        GSource* alarm = g_timeout_source_new_seconds(20);
        g_source_set_callback(
            alarm,
            [](gpointer flag) -> gboolean {
                *static_cast<bool*>(flag) = true;
                return G_SOURCE_CONTINUE;
            },
            &late, nullptr);
        g_source_attach(alarm, context_);
        while (track_.empty() && !late) {
            g_main_context_iteration(context_, TRUE);
        }
        g_source_destroy(alarm);
        g_source_unref(alarm);
        return track_;
    }

private:
    static gboolean trackIndexSet(ComZentLinuxEngineering* skeleton, GDBusMethodInvocation* invocation,
                                  guchar mediaType, guchar trackIndex, gpointer self)
    {
        static_cast<ServiceDouble*>(self)->track_ = {mediaType, trackIndex};
        com_zent_linux_engineering_complete_auto_test_set_track_index(skeleton, invocation);
        return TRUE;
    }

    GMainContext* context_ = g_main_context_new();
    BusClient client_;
    ComZentLinuxEngineering* skeleton_;
    std::vector<int> track_;
};

class HmiProgramTest : public BenchTest
{
protected:
    ChildProcess& startHmi(const std::vector<std::string>& arguments = {})
    {
        std::vector<std::string> all{ENGINEERING_HMI};
        all.insert(all.end(), arguments.begin(), arguments.end());
        ChildProcess& hmi = start(all);
        EXPECT_TRUE(hmi.waitForLine(Stream::kErr, "ready")) << hmi.output(Stream::kErr);
        return hmi;
    }
};

TEST_F(HmiProgramTest, StartedAfterTheServiceFollowsEverySignal)
{
    startService();
    ChildProcess& hmi = startHmi();

    RawLine(link()).expectExchange(kModeOn, kModeOnReply);

    EXPECT_TRUE(hmi.waitForLine(Stream::kOut, "uart_data_changed_signal"));
    EXPECT_THAT(hmi.lines(Stream::kOut),
                ElementsAre("OnAutoTestModeChangeSignal mode=true",
                            "uart_data_changed_signal cmd_one=0F cmd_two=00 param=[01] param_size=1"));
    EXPECT_THAT(hmi.lines(Stream::kErr), ElementsAre("ready"));
}

TEST_F(HmiProgramTest, StartedBeforeTheServiceSaysOnceThatItWaitsAndFollowsItThen)
{
    ChildProcess& hmi = startHmi({"--json"});
    EXPECT_THAT(hmi.lines(Stream::kErr), ElementsAre(HasSubstr("com.zent.linux.engineering"), "ready"));
    startService();

    RawLine(link()).expectExchange(kModeOn, kModeOnReply);

    EXPECT_TRUE(hmi.waitForLine(Stream::kOut, "uart_data_changed_signal"));
    EXPECT_THAT(
        hmi.lines(Stream::kOut),
        ElementsAre(R"({"signal":"OnAutoTestModeChangeSignal","mode":true})",
                    R"({"signal":"uart_data_changed_signal","cmd_one":15,"cmd_two":0,"param":[1],"param_size":1})"));
    EXPECT_THAT(hmi.lines(Stream::kErr), SizeIs(2));
}

TEST_F(HmiProgramTest, EverySignalOfTheInterfaceIsShownWithItsArguments)
{
    ServiceDouble service(bus().address());
    ChildProcess& hmi = startHmi();

    service.emit("OnAutoTestMediaPlayActionSignal", "(byte 4, byte 2)");
    service.emit("OnAutoTestMediaSelectTrackSignal", "(byte 1, byte 9)");
    service.emit("OnAutoTestSetFaderBalanceSignal", "(byte 10, byte 200)");
    service.emit("OnAutoTestEnterAgingTestSignal", "(true,)");
    service.emit("OnAutoTestRequireAgingTestStateSignal", "()");
    service.emit("OnAutoTestSelectPageSignal", "(uint32 4000000000,)");
    service.emit("OnAutoTestSetEqSwitchSignal", "(false,)");
    service.emit("uart_data_changed_signal", "(byte 0x0c, byte 0xa0, <[byte 0x00, 0xff]>, byte 2)");

    EXPECT_TRUE(hmi.waitForLine(Stream::kOut, "uart_data_changed_signal"));
    EXPECT_THAT(hmi.lines(Stream::kOut),
                ElementsAre("OnAutoTestMediaPlayActionSignal media_type=4 play_action=2",
                            "OnAutoTestMediaSelectTrackSignal media_type=1 track_index=9",
                            "OnAutoTestSetFaderBalanceSignal fader_value=10 balance_value=200",
                            "OnAutoTestEnterAgingTestSignal aging_test=true", "OnAutoTestRequireAgingTestStateSignal",
                            "OnAutoTestSelectPageSignal page=4000000000", "OnAutoTestSetEqSwitchSignal switch_on=false",
                            "uart_data_changed_signal cmd_one=0C cmd_two=A0 param=[00 FF] param_size=2"));
}

TEST_F(HmiProgramTest, GetTrackIsAnsweredWithTheTrackItWasToldOrThatWasSelected)
{
    ServiceDouble service(bus().address());
    startHmi({"--track", "2=5", "--track", "3=6"});

    service.emit("OnAutoTestGetMediaTrackIndexSignal", "(byte 2,)");
    EXPECT_THAT(service.nextTrack(), ElementsAre(2, 5));

    service.emit("OnAutoTestGetMediaTrackIndexSignal", "(byte 1,)");
    EXPECT_THAT(service.nextTrack(), ElementsAre(1, 0));

    service.emit("OnAutoTestMediaSelectTrackSignal", "(byte 3, byte 8)");
    service.emit("OnAutoTestGetMediaTrackIndexSignal", "(byte 3,)");
    EXPECT_THAT(service.nextTrack(), ElementsAre(3, 8));
}

TEST_F(HmiProgramTest, VolumeChangeReachesTheHeadUnit)
{
    ServiceDouble service(bus().address());
    startService();  // for its head unit; the engineering service's name is taken
    startHmi();

    service.emit("OnAutoTestVolumeChangeSignal", "(byte 33,)");

    const auto deadline = std::chrono::steady_clock::now() + kGenerous;
    std::string volume;
    while (volume != "33\n" && std::chrono::steady_clock::now() < deadline) {
        volume = run({HEADUNITCTL, "state", "/audio/volume"}).out;
    }
    EXPECT_EQ(volume, "33\n");
}

TEST_F(HmiProgramTest, VolumeChangeWithoutAHeadUnitIsOneLineAndItGoesOn)
{
    ServiceDouble service(bus().address());
    ChildProcess& hmi = startHmi();

    service.emit("OnAutoTestVolumeChangeSignal", "(byte 33,)");

    EXPECT_TRUE(hmi.waitForLine(Stream::kErr, "volume"));
    service.emit("OnAutoTestGetMediaTrackIndexSignal", "(byte 1,)");
    EXPECT_THAT(service.nextTrack(), ElementsAre(1, 0));
}

TEST_F(HmiProgramTest, WithoutABusIsOneLineWithStatusOne)
{
    hideBus();

    const auto outcome = run({ENGINEERING_HMI});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
    EXPECT_THAT(outcome.out, IsEmpty());
}

TEST_F(HmiProgramTest, EndsWithStatusZeroUponEitherSignal)
{
    for (const int number : {SIGINT, SIGTERM}) {
        ChildProcess& hmi = startHmi();

        hmi.signal(number);

        expectEnd(hmi, 0);
    }
}

TEST_F(HmiProgramTest, EndsWithStatusOneWhenTheBusGoesAway)
{
    ChildProcess& hmi = startHmi();

    bus().kill();

    expectEnd(hmi, 1);
    EXPECT_THAT(hmi.lines(Stream::kErr).back(), HasSubstr("bus"));
}

TEST_F(HmiProgramTest, FollowsAgainAfterASignalThatGDBusCannotDecode)
{
    ChildProcess& hmi = startHmi({"--track", "1=5"});
    BusClient attacker(bus().address());
    const auto connections = attacker.connectionsOf(hmi.pid());
    ASSERT_THAT(connections, SizeIs(1));

    attacker.sendUndecodable(connections.front(), G_DBUS_MESSAGE_TYPE_SIGNAL);

    EXPECT_TRUE(hmi.waitForLine(Stream::kErr, "connected again")) << hmi.output(Stream::kErr);
    ServiceDouble service(bus().address());
    service.emit("OnAutoTestGetMediaTrackIndexSignal", "(byte 1,)");
    EXPECT_THAT(service.nextTrack(), ElementsAre(1, 5));
}

TEST_F(HmiProgramTest, WrongTrackIsOneLineWithStatusTwo)
{
    const auto outcome = run({ENGINEERING_HMI, "--track", "1=300"});

    EXPECT_EQ(outcome.status, 2);
    EXPECT_THAT(linesOf(outcome.err), SizeIs(1));
}

}  // namespace
}  // namespace tests
