// The bridge on a real bus of the test's own.

#include "engineering/KYREngineeringService_IPC.h"

#include <gio/gunixfdlist.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "engineering/BusConnection.h"
#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/base/BusSignals.h"
#include "engineering/base/KYRSingleton.h"
#include "engineering/base/Outlets.h"
#include "platform/bench/HeadUnit.h"
#include "platform/runtime/Root.h"
#include "tests/support/BusClient.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/RecordedWire.h"
#include "tests/support/TempDir.h"

namespace {

std::atomic<bool> g_bNoThreads = false;

}  // namespace

// Stands before pthread_create() for the platform's threads.
extern "C" {

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* argument);

int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*), void* argument)
{
    return g_bNoThreads ? EAGAIN : __real_pthread_create(thread, attributes, entry, argument);
}

}  // extern "C"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

/// GDBus and the bridge last as long as the process, and so does all that they refer to.
struct Bridge {
    Bridge()
    {
        setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
        runtime::setRoot(root.path().string());
        runtime::makeHeadUnitDirectories(root.path().string());
        unit.install();
        EXPECT_EQ(KYRSingleton<KYREngineeringService_IPC>::GetInstance()->Init(), 1);
        EXPECT_TRUE(log.waitFor(kNameAcquired));
        firstStart = log.lines();
        KYRSingleton<KYRUARTManage>::GetInstance();
    }

    static constexpr const char* kNameAcquired =
        "INFO [rkb]engineering: nameAcquiredCB , Acquired bus name: com.zent.linux.engineering.";

    LogRecorder log;
    tests::PrivateBus bus;
    tests::TempDir root;
    bench::HeadUnit unit;
    RecordedWire station;
    std::vector<std::string> firstStart;  // log lines
};

class BridgeTest : public testing::Test
{
public:
    BridgeTest() : client(bridge().bus.address())
    {
        bridge().station.clear();
        log.clear();
    }

    static Bridge& bridge()
    {
        static Bridge* const instance = new Bridge;
        return *instance;
    }

    static std::vector<std::string> replies() { return bridge().station.replies(); }

    LogRecorder log;
    tests::BusClient client;
};

TEST_F(BridgeTest, TheStartLogsItsStepsInTheirOrder)
{
    EXPECT_THAT(bridge().firstStart,
                ElementsAre("INFO KYREngineeringService_IPC()", "INFO Init()", "INFO InitDbusConnect()",
                            "INFO engineering: bus_acquired_cb call.", Bridge::kNameAcquired));
}

TEST_F(BridgeTest, EveryEmitFunctionSendsItsSignal)
{
    const unsigned char ucParams[] = {0x01, 0xFF};

    emit_uart_data_changed_signal(0x0F, 0x00, ucParams, 2);
    emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_1, MEDIA_PLAY_ACTION_2);
    emit_on_auto_test_media_select_track_signal(MEDIA_TYPE_3, 5);
    emit_on_auto_test_get_media_track_signal(MEDIA_TYPE_2);
    emit_on_auto_test_volume_change_signal(12);
    emit_on_auto_test_mode_changed_signal(1);
    emit_on_auto_test_set_fader_balance_signal(7, 10);
    emit_on_auto_test_enter_aging_test_signal(0);
    emit_on_auto_test_require_aging_test_signal();
    emit_on_auto_test_select_page_signal(static_cast<AUTO_TEST_PAGE_TYPE>(70000));
    emit_on_auto_test_set_eq_switch_signal(5);

    EXPECT_THAT(
        client.waitForSignals(11),
        ElementsAre("uart_data_changed_signal (byte 0x0f, byte 0x00, <[byte 0x01, 0xff]>, byte 0x02)",
                    "OnAutoTestMediaPlayActionSignal (byte 0x01, byte 0x02)",
                    "OnAutoTestMediaSelectTrackSignal (byte 0x03, byte 0x05)",
                    "OnAutoTestGetMediaTrackIndexSignal (byte 0x02,)", "OnAutoTestVolumeChangeSignal (byte 0x0c,)",
                    "OnAutoTestModeChangeSignal (true,)", "OnAutoTestSetFaderBalanceSignal (byte 0x07, byte 0x0a)",
                    "OnAutoTestEnterAgingTestSignal (false,)", "OnAutoTestRequireAgingTestStateSignal ()",
                    "OnAutoTestSelectPageSignal (uint32 70000,)", "OnAutoTestSetEqSwitchSignal (true,)"));
}

TEST_F(BridgeTest, EmittingLeavesTheFunctionsLinesInTheLog)
{
    emit_uart_data_changed_signal(0x2A, 0xA2, nullptr, 0);
    emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_1, MEDIA_PLAY_ACTION_2);
    emit_on_auto_test_media_select_track_signal(MEDIA_TYPE_3, 5);
    emit_on_auto_test_get_media_track_signal(MEDIA_TYPE_2);
    emit_on_auto_test_volume_change_signal(12);
    emit_on_auto_test_mode_changed_signal(1);
    emit_on_auto_test_set_fader_balance_signal(7, 10);
    emit_on_auto_test_enter_aging_test_signal(1);
    emit_on_auto_test_require_aging_test_signal();
    emit_on_auto_test_select_page_signal(static_cast<AUTO_TEST_PAGE_TYPE>(2));
    emit_on_auto_test_set_eq_switch_signal(1);

    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG [rkb] emit_uart_data_changed_signal, cmd_one = 2a, cmd_two = a2, param_size = 0",
                            "DEBUG emit_on_auto_test_media_play_action_signal, media_type = 1, media_play_action = 2",
                            "DEBUG emit_on_auto_test_media_select_track_signal, media_type = 3, track_index = 5",
                            "DEBUG emit_on_auto_test_get_media_track_signal, media_type = 2",
                            "INFO emit_on_auto_test_mode_changed_signal, is_auto_test_mode = 1",
                            "INFO emit_on_auto_test_set_fader_balance_signal, fader_value = 7, balance_value = 10",
                            "INFO emit_on_auto_test_enter_aging_test_signal, is_aging_test_mode = 1"));
}

TEST_F(BridgeTest, ThreeSignalsAreLoggedOnceTheyAreSent)
{
    struct Seen {
        const LogRecorder& log;
        std::vector<std::size_t> lines;  // log lines at each signal
    } seen{log, {}};
    ComZentLinuxEngineering* const skeleton = pSkeleton;
    const auto note = +[](Seen* at) { at->lines.push_back(at->log.lines().size()); };
    for (const char* const signal : {"on-auto-test-mode-change-signal", "on-auto-test-set-fader-balance-signal",
                                     "on-auto-test-enter-aging-test-signal", "on-auto-test-media-play-action-signal"})
        g_signal_connect_swapped(skeleton, signal, G_CALLBACK(note), &seen);

    emit_on_auto_test_mode_changed_signal(1);
    emit_on_auto_test_set_fader_balance_signal(7, 10);
    emit_on_auto_test_enter_aging_test_signal(0);
    emit_on_auto_test_media_play_action_signal(MEDIA_TYPE_1, MEDIA_PLAY_ACTION_2);

    g_signal_handlers_disconnect_by_data(skeleton, &seen);
    EXPECT_THAT(seen.lines, ElementsAre(0, 1, 2, 4)) << "the last is logged before it is sent";
}

TEST_F(BridgeTest, AnyModeButZeroTravelsAsTrue)
{
    for (const int mode : {0, 1, 2, -1})
        emit_on_auto_test_mode_changed_signal(mode);

    EXPECT_THAT(client.waitForSignals(4),
                ElementsAre("OnAutoTestModeChangeSignal (false,)", "OnAutoTestModeChangeSignal (true,)",
                            "OnAutoTestModeChangeSignal (true,)", "OnAutoTestModeChangeSignal (true,)"));
}

TEST_F(BridgeTest, ACallerHasItsAnswerThoughTheLineIsStuck)
{
    bridge().station.hold();

    EXPECT_EQ(client.callEngineering("uart_send_data", "(byte 0x8E, byte 1, <[byte 9]>, uint16 1)"), "()");
    EXPECT_THAT(replies(), IsEmpty());

    bridge().station.release();
    ASSERT_TRUE(bridge().station.waitForFrames(1));
    EXPECT_THAT(replies(), ElementsAre("8E 01 [09]"));
}

TEST_F(BridgeTest, AMethodWithoutAHandlerIsAnsweredWithItsNameAndTheInterface)
{
    ComZentLinuxEngineering* const bare = com_zent_linux_engineering_skeleton_new();
    GDBusConnection* const connection = client.connection();
    ASSERT_TRUE(g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(bare), connection, "/bare", nullptr));
    // Calls to this connection's own object arrive in the context of whoever exported it: the bridge's loop.
    tests::BusClient caller(bridge().bus.address());
    GError* error = nullptr;

    GVariant* const reply = g_dbus_connection_call_sync(
        caller.connection(), g_dbus_connection_get_unique_name(connection), "/bare", "com.zent.linux.engineering",
        "auto_test_set_track_index", g_variant_new("(yy)", 1, 2), nullptr, G_DBUS_CALL_FLAGS_NONE, 20000, nullptr,
        &error);

    ASSERT_EQ(reply, nullptr);
    EXPECT_TRUE(g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD));
    EXPECT_THAT(
        error->message,
        HasSubstr("Method auto_test_set_track_index is not implemented on interface com.zent.linux.engineering"));
    g_error_free(error);
    g_dbus_interface_skeleton_unexport(G_DBUS_INTERFACE_SKELETON(bare));
    g_object_unref(bare);
}

TEST_F(BridgeTest, AFrameWithoutParametersTravelsWithAnEmptyArray)
{
    emit_uart_data_changed_signal(0x0F, 0xFF, nullptr, 0);

    EXPECT_THAT(client.waitForSignals(1),
                ElementsAre("uart_data_changed_signal (byte 0x0f, byte 0xff, <@ay []>, byte 0x00)"));
}

TEST_F(BridgeTest, MoreThan256ParametersAreCutAndTheCountKeepsItsLow8Bits)
{
    const std::vector<unsigned char> params(300, 0x41);

    emit_uart_data_changed_signal(0x0F, 0xFF, params.data(), 300);

    const auto signals = client.waitForSignals(1);
    ASSERT_THAT(signals, SizeIs(1));
    EXPECT_THAT(signals[0], testing::EndsWith(", byte 0x2c)"));  // 300 - 256
    const auto text = signals[0];
    std::size_t elements = 0;
    for (std::size_t at = text.find("0x41"); at != std::string::npos; at = text.find("0x41", at + 1))
        ++elements;
    EXPECT_EQ(elements, 256U);
}

constexpr const char* kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";

GDBusMessage* makeTrackCall()
{
    GDBusMessage* const message =
        g_dbus_message_new_method_call("com.zent.linux.engineering", "/com/zent/linux/engineering",
                                       "com.zent.linux.engineering", "auto_test_set_track_index");
    g_dbus_message_set_body(message, g_variant_new("(yy)", 1, 7));
    return message;
}

std::size_t openDescriptors()
{
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

void callWithoutReply(GDBusConnection* connection, int descriptors = 0)
{
    GDBusMessage* const message = makeTrackCall();
    if (descriptors > 0) {
        GUnixFDList* const list = g_unix_fd_list_new();
        for (int i = 0; i < descriptors; ++i)
            g_unix_fd_list_append(list, STDERR_FILENO, nullptr);
        g_dbus_message_set_unix_fd_list(message, list);
        g_object_unref(list);
    }
    g_dbus_message_set_flags(message, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    g_dbus_connection_send_message(connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    g_object_unref(message);
}

/// Calls that wait for their answers. Belongs to the test's thread.
class PendingCalls
{
public:
    PendingCalls(GDBusConnection* connection, int count) : wanted_(count)
    {
        g_main_context_push_thread_default(context_);
        for (int i = 0; i < count; ++i) {
            GDBusMessage* const message = makeTrackCall();
            g_dbus_connection_send_message_with_reply(connection, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, 20'000,
                                                      nullptr, nullptr, onReply, this);
            g_object_unref(message);
        }
        g_main_context_pop_thread_default(context_);
    }
    ~PendingCalls()
    {
        waitForAll();
        g_main_context_unref(context_);
    }
    PendingCalls(const PendingCalls&) = delete;
    PendingCalls& operator=(const PendingCalls&) = delete;

    /// @returns how many have been answered, with anything.
    int answered()
    {
        while (g_main_context_iteration(context_, FALSE) != FALSE) {
        }
        return answered_;
    }

    /// @returns whether all were answered with success.
    bool waitForAll()
    {
        while (answered_ < wanted_)
            g_main_context_iteration(context_, TRUE);
        return succeeded_ == wanted_;
    }

private:
    static void onReply(GObject* connection, GAsyncResult* result, gpointer self)
    {
        auto& calls = *static_cast<PendingCalls*>(self);
        ++calls.answered_;
        GDBusMessage* const reply =
            g_dbus_connection_send_message_with_reply_finish(G_DBUS_CONNECTION(connection), result, nullptr);
        if (reply == nullptr)
            return;
        if (g_dbus_message_get_message_type(reply) == G_DBUS_MESSAGE_TYPE_METHOD_RETURN)
            ++calls.succeeded_;
        g_object_unref(reply);
    }

    GMainContext* const context_ = g_main_context_new();
    const int wanted_;
    int answered_ = 0;
    int succeeded_ = 0;
};

struct SendCase {
    const char* arguments;
    std::vector<std::string> replies;
};

TEST_F(BridgeTest, UartSendDataSendsTheFirstBytesAndFillsUpWithZeroes)
{
    const SendCase cases[] = {
        {"(byte 0x8E, byte 0x01, <[byte 1, 2, 3]>, uint16 3)", {"8E 01 [01 02 03]"}},
        {"(byte 0x8E, byte 0x01, <[byte 1, 2, 3]>, uint16 0)", {"8E 01 []"}},
        {"(byte 0x8E, byte 0x01, <[byte 1, 2, 3]>, uint16 2)", {"8E 01 [01 02]"}},
        {"(byte 0x8E, byte 0x01, <[byte 1, 2, 3]>, uint16 5)", {"8E 01 [01 02 03 00 00]"}},
        {"(byte 0x8E, byte 0x01, <@ay []>, uint16 1)", {"8E 01 [00]"}},
        {"(byte 0x8E, byte 0x01, <'text'>, uint16 0)", {"8E 01 []"}},
    };
    for (const SendCase& row : cases) {
        bridge().station.clear();

        EXPECT_EQ(client.callEngineering("uart_send_data", row.arguments), "()") << row.arguments;

        EXPECT_TRUE(bridge().station.waitForFrames(row.replies.size()));
        EXPECT_EQ(replies(), row.replies) << row.arguments;
    }
}

TEST_F(BridgeTest, UartSendDataLeavesItsLineInTheLog)
{
    EXPECT_EQ(client.callEngineering("uart_send_data", "(byte 0x8E, byte 0x1F, <[byte 1, 2, 3]>, uint16 2)"), "()");

    EXPECT_TRUE(bridge().station.waitForFrames(1));
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG [rkb] callback_send_uart_data, arg_cmd_one = 8e, arg_cmd_two = 1f, "
                                         "arg_param_size = 2"));
}

TEST_F(BridgeTest, UartSendDataTakes20BytesAndRefusesMoreWithSuccessAndAnErrorLine)
{
    const std::string strTwentyOne = "<[byte 1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21]>";

    EXPECT_EQ(client.callEngineering("uart_send_data", "(byte 0x8E, byte 1, " + strTwentyOne + ", uint16 21)"), "()");
    EXPECT_EQ(client.callEngineering("uart_send_data", "(byte 0x8E, byte 1, " + strTwentyOne + ", uint16 65535)"),
              "()");
    EXPECT_EQ(client.callEngineering("uart_send_data", "(byte 0x8E, byte 1, " + strTwentyOne + ", uint16 20)"), "()");

    ASSERT_TRUE(bridge().station.waitForFrames(1));
    EXPECT_THAT(replies(), ElementsAre("8E 01 [01 02 03 04 05 06 07 08 09 0A 0B 0C 0D 0E 0F 10 11 12 13 14]"));
    EXPECT_THAT(log.errors(),
                ElementsAre("ERROR uart_send_data, 21 parameter bytes are more than 20, nothing is sent",
                            "ERROR uart_send_data, 65535 parameter bytes are more than 20, nothing is sent"));
}

TEST_F(BridgeTest, UartSendDataRefusesAParameterThatIsNoArrayOfBytes)
{
    EXPECT_EQ(client.callEngineering("uart_send_data", "(byte 0x8E, byte 1, <'text'>, uint16 1)"), "()");
    EXPECT_EQ(client.callEngineering("uart_send_data", "(byte 0x8E, byte 2, <[byte 9]>, uint16 1)"), "()");

    ASSERT_TRUE(bridge().station.waitForFrames(1));
    EXPECT_THAT(replies(), ElementsAre("8E 02 [09]"));
    EXPECT_THAT(
        log.errors(),
        ElementsAre("ERROR uart_send_data, param: expected an array of bytes, got another type; nothing is sent"));
}

TEST_F(BridgeTest, CallsBeyond256UnderWayAreRefusedAtOnceAndTheOthersServed)
{
    bridge().station.hold();
    // The first has its answer and occupies the loop.
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 0)"), "()");
    // The bus lets one client wait for 128 answers.
    tests::BusClient other(bridge().bus.address());
    PendingCalls pending(client.connection(), BusCalls::kMostWaiting / 2);
    PendingCalls others(other.connection(), BusCalls::kMostWaiting / 2);
    EXPECT_EQ(other.pingEngineering(), kLimitsExceeded);

    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 1)"), kLimitsExceeded);
    EXPECT_EQ(pending.answered() + others.answered(), 0);

    bridge().station.release();
    EXPECT_TRUE(pending.waitForAll());
    EXPECT_TRUE(others.waitForAll());
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 2)"), "()");
    EXPECT_TRUE(bridge().station.waitForFrames(BusCalls::kMostWaiting + 2));
    EXPECT_THAT(replies(), Not(Contains("83 05 [01]"))) << "the call that was refused";
}

TEST_F(BridgeTest, ACallThatIsServedMakesRoomAtOnce)
{
    bridge().station.hold();
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 0)"), "()");
    for (int count = 0; count < BusCalls::kMostWaiting; ++count)
        callWithoutReply(client.connection());
    EXPECT_EQ(client.pingEngineering(), kLimitsExceeded);

    bridge().station.hold(100);
    EXPECT_TRUE(bridge().station.waitForFrames(100));

    EXPECT_EQ(client.pingEngineering(), "()");
    bridge().station.release();
    EXPECT_TRUE(bridge().station.waitForFrames(BusCalls::kMostWaiting + 1));
}

TEST_F(BridgeTest, CallsWithoutAWaitingCallerAreCountedToo)
{
    bridge().station.hold();
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 0)"), "()");
    for (int count = 0; count < BusCalls::kMostWaiting + 50; ++count)
        callWithoutReply(client.connection());

    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 1)"), kLimitsExceeded);

    bridge().station.release();
    EXPECT_TRUE(bridge().station.waitForFrames(BusCalls::kMostWaiting + 1));
}

TEST_F(BridgeTest, DescriptorsOfCallsThatWaitAreClosed)
{
    const std::size_t before = openDescriptors();
    bridge().station.hold();
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 0)"), "()");
    for (int count = 0; count < 50; ++count)
        callWithoutReply(client.connection(), 16);
    // GDBus's own thread answers this, in its turn.
    EXPECT_EQ(client.pingEngineering(), "()");

    // 800 came. GLib may have opened one of its own meanwhile.
    EXPECT_LT(openDescriptors(), before + 16);

    bridge().station.release();
    EXPECT_TRUE(bridge().station.waitForFrames(51));
}

TEST_F(BridgeTest, ASecondInitLogsItsLineAndChangesNothing)
{
    GMainLoop* const loop = pLoop;
    ComZentLinuxEngineering* const skeleton = pSkeleton;

    EXPECT_EQ(KYRSingleton<KYREngineeringService_IPC>::GetInstance()->InitDbusConnect(), 1);

    EXPECT_THAT(log.lines(), ElementsAre("INFO InitDbusConnect()"));
    EXPECT_EQ(pLoop, loop);
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 9)"), "()");
    EXPECT_EQ(pSkeleton, skeleton);
}

TEST_F(BridgeTest, TracksAndKeysReachTheStation)
{
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 2, byte 7)"), "()");
    ASSERT_TRUE(bridge().station.waitForFrames(1));
    EXPECT_THAT(replies(), ElementsAre("83 0D [07]"));

    bridge().station.sendCommand(0x0F, 0x00, {0x01});
    bridge().station.sendCommand(0x06, 0x0B, {0x01});
    bridge().station.clear();
    EXPECT_EQ(client.callEngineering("auto_test_feedback_key_event", "(byte 64, byte 16)"), "()");
    ASSERT_TRUE(bridge().station.waitForFrames(1));
    EXPECT_THAT(replies(), ElementsAre("86 11 [25 04]"));
    bridge().station.sendCommand(0x0F, 0x00, {0x00});
}

TEST_F(BridgeTest, AnExceptionEndsItsCallAloneWhichWasAnswered)
{
    bridge().station.throwOnNextSend(std::runtime_error("the line is on fire"));
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 7)"), "()");
    EXPECT_TRUE(log.waitFor("ERROR "));
    bridge().station.throwOnNextSend(7);
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 7)"), "()");
    EXPECT_EQ(client.callEngineering("auto_test_set_track_index", "(byte 1, byte 8)"), "()");

    ASSERT_TRUE(bridge().station.waitForFrames(1));
    EXPECT_THAT(replies(), ElementsAre("83 05 [08]"));
    EXPECT_THAT(log.errors(), ElementsAre("ERROR D-Bus method call ended by an exception: the line is on fire",
                                          "ERROR D-Bus method call ended by an unknown exception"));
}

TEST_F(BridgeTest, AMethodThatTheInterfaceLacksAndWrongTypesAreRefusedByTheBusLibrary)
{
    EXPECT_EQ(client.callEngineering("no_such_method", "()"), "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(client.callEngineering("uart_send_data", "('a', 'b')"), "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_THAT(replies(), IsEmpty());
}

TEST_F(BridgeTest, ABusThatStandsStillCostsAMomentAndThenNothing)
{
    const std::vector<unsigned char> params(200, 0x55);
    bridge().bus.stop();

    std::chrono::steady_clock::duration slowest{};
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20'000; ++i) {
        const auto before = std::chrono::steady_clock::now();
        emit_uart_data_changed_signal(0x0C, 0x01, params.data(), 200);
        slowest = std::max(slowest, std::chrono::steady_clock::now() - before);
    }
    const auto took = std::chrono::steady_clock::now() - start;

    bridge().bus.cont();
    EXPECT_LT(took, std::chrono::seconds(5));
    EXPECT_THAT(log.lines(), Contains("WARN D-Bus takes no signals, they are dropped until it does"));

    // Including the time for the frame itself, the station waits less than a tenth of a second.
    EXPECT_LT(BusBacklog::kPatience, std::chrono::milliseconds(100));
    EXPECT_GE(slowest, BusBacklog::kPatience);

    // Without any further step the bus reads signals again.
    const auto signals = client.waitForSignals(BusBacklog::kLimit);
    EXPECT_LT(signals.size(), 20'000U);
    for (std::size_t count = client.waitForSignals(0).size();;) {
        emit_on_auto_test_volume_change_signal(1);
        if (client.waitForSignals(count + 1).size() > count)
            break;
    }
    EXPECT_THAT(log.lines(), Contains(StartsWith("WARN D-Bus takes signals again, ")));
}

// The last of them: it ends the bridge.
TEST_F(BridgeTest, ABusThatEndsLeavesTwoLinesAndTheStationIsAnswered)
{
    bridge().bus.kill();

    EXPECT_TRUE(
        log.waitFor("ERROR the connection to D-Bus has closed, the service goes on without the name "
                    "com.zent.linux.engineering"));
    EXPECT_TRUE(log.waitFor("INFO engineering: nameLostCB call, Acquired bus name: com.zent.linux.engineering."));
    bridge().station.sendCommand(0x0F, 0x00, {0x01});
    bridge().station.sendCommand(0x0F, 0x00, {0x00});
    EXPECT_THAT(replies(), ElementsAre("8F 00 [01]", "8F 00 [00]"));
}

/// @returns a connection of this process, as the bridge uses it, but without a loop that runs.
GDBusConnection* connect(const std::string& address)
{
    return g_dbus_connection_new_for_address_sync(
        address.c_str(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, nullptr, nullptr);
}

TEST(BusSocketTest, IsClosedWithItsConnectionThoughNoMainLoopRuns)
{
    static std::atomic<int> closings = 0;
    static std::atomic<GIOStream*> socket = nullptr;
    const tests::PrivateBus bus;
    tests::BusClient client(bus.address());
    GDBusConnection* const connection = connect(bus.address());
    ASSERT_NE(connection, nullptr);
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    const std::string name = g_dbus_connection_get_unique_name(connection);
    socket = g_dbus_connection_get_stream(connection);
    CloseSocketWith(connection, [] { closings += g_io_stream_is_closed(socket) ? 2 : 1; });
    g_dbus_connection_emit_signal(connection, nullptr, "/", "com.example.Test", "First", nullptr, nullptr);
    g_dbus_connection_flush_sync(connection, nullptr, nullptr);

    client.sendUndecodable(name, G_DBUS_MESSAGE_TYPE_SIGNAL);

    EXPECT_TRUE(client.waitForOwner(name, false));
    EXPECT_EQ(closings, 1) << "called once, before the socket is closed";
    g_object_unref(connection);
}

TEST(BusBacklogTest, WithoutAConnectionEverySignalIsAdmitted)
{
    BusBacklog backlog;

    for (int i = 0; i <= BusBacklog::kLimit; ++i)
        ASSERT_TRUE(backlog.Admit());
}

TEST(BusBacklogTest, StopsAtItsLimitAndGoesOnAtHalfOfIt)
{
    const LogRecorder log;
    const tests::PrivateBus bus;
    static BusBacklog& backlog = *new BusBacklog;  // outlives the connection's thread
    GDBusConnection* const connection = connect(bus.address());
    ASSERT_NE(connection, nullptr);
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    backlog.Watch(connection);
    const auto send = [connection](const char* interface, int count) {
        for (int i = 0; i < count; ++i)
            g_dbus_connection_emit_signal(connection, nullptr, "/", interface, "Some", nullptr, nullptr);
        g_dbus_connection_flush_sync(connection, nullptr, nullptr);
    };
    constexpr const char* kCounted = "com.zent.linux.engineering";

    for (int round = 0; round < 2; ++round) {
        LogRecorder{}.clear();
        send(kCounted, 1);  // not admitted before
        for (int i = 0; i < BusBacklog::kLimit; ++i)
            ASSERT_TRUE(backlog.Admit()) << i;
        EXPECT_FALSE(backlog.Admit());
        EXPECT_FALSE(backlog.Admit());

        send("com.example.Other", BusBacklog::kLimit);
        send(kCounted, BusBacklog::kLimit / 2 - 1);
        EXPECT_FALSE(backlog.Admit());
        EXPECT_THAT(log.lines(), ElementsAre("WARN D-Bus takes no signals, they are dropped until it does"));

        send(kCounted, 1);
        EXPECT_THAT(log.lines(), ElementsAre("WARN D-Bus takes no signals, they are dropped until it does",
                                             "WARN D-Bus takes signals again, 3 were dropped"));
        send(kCounted, BusBacklog::kLimit / 2);
    }
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    while (!g_dbus_connection_is_closed(connection))  // GDBus's thread says so a moment later
        std::this_thread::yield();
    for (int i = 0; i <= BusBacklog::kLimit; ++i)
        ASSERT_TRUE(backlog.Admit()) << "a closed connection queues nothing";
    g_object_unref(connection);
}

TEST(BusBacklogTest, ASenderThatWaitsGoesOnAsSoonAsASignalHasLeft)
{
    const tests::PrivateBus bus;
    static BusBacklog& backlog = *new BusBacklog;  // outlives the connection's thread
    GDBusConnection* const connection = connect(bus.address());
    ASSERT_NE(connection, nullptr);
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    backlog.Watch(connection);
    for (int i = 0; i < BusBacklog::kLimit; ++i)
        ASSERT_TRUE(backlog.Admit());
    constexpr int kSignals = 100;
    std::atomic<int> admitted = 0;
    const auto start = std::chrono::steady_clock::now();

    std::thread sender([&] {
        for (int i = 0; i < kSignals; ++i)
            admitted += backlog.Admit() ? 1 : kSignals;
    });
    for (int i = 0; i < kSignals; ++i) {
        g_dbus_connection_emit_signal(connection, nullptr, "/", "com.zent.linux.engineering", "Some", nullptr, nullptr);
        g_dbus_connection_flush_sync(connection, nullptr, nullptr);
        while (admitted <= i)
            std::this_thread::yield();
    }
    sender.join();

    EXPECT_EQ(admitted, kSignals);
    EXPECT_LT(std::chrono::steady_clock::now() - start, kSignals * BusBacklog::kPatience / 2);
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    g_object_unref(connection);
}

/// Calls that pass the bounds arrive at a connection.
class BusCallsTest : public testing::Test
{
public:
    BusCallsTest()
    {
        g_dbus_connection_set_exit_on_close(connection, FALSE);
        // GDBus's thread passes through here first: ThreadSanitizer does not see GDBus's own locks.
        const std::lock_guard lock(made_);
        g_dbus_connection_add_filter(
            connection,
            [](GDBusConnection*, GDBusMessage* message, gboolean, gpointer) {
                const std::lock_guard until(made_);
                return message;
            },
            nullptr, nullptr);
        calls.Watch(connection);
        g_dbus_connection_add_filter(
            connection,
            [](GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer self) {
                gsize size = 0;
                g_free(g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr));
                const std::lock_guard lock(static_cast<BusCallsTest*>(self)->mutex_);
                if (incoming && g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL)
                    static_cast<BusCallsTest*>(self)->arrived_.push_back(size);
                return message;
            },
            this, nullptr);
    }
    ~BusCallsTest() override { g_dbus_connection_close_sync(connection, nullptr, nullptr); }

    /// @returns the sizes of the calls that have arrived. A call has arrived when it is answered.
    std::vector<gsize> arrived()
    {
        const std::lock_guard lock(mutex_);
        return arrived_;
    }

    /// Calls a method that the connection lacks.
    /// @returns the name of the error.
    std::string call(std::size_t bytes = 0, const char* path = BusCalls::kObjectPath)
    {
        const std::vector<unsigned char> params(bytes, 0x55);
        g_autoptr(GDBusMessage) message = g_dbus_message_new_method_call(g_dbus_connection_get_unique_name(connection),
                                                                         path, "com.example.Test", "Take");
        g_dbus_message_set_body(
            message, g_variant_new("(@ay)", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, params.data(), bytes, 1)));
        g_autoptr(GDBusMessage) reply = g_dbus_connection_send_message_with_reply_sync(
            client.connection(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, 20'000, nullptr, nullptr, nullptr);
        return reply != nullptr ? g_dbus_message_get_error_name(reply) : "no reply";
    }

    tests::PrivateBus bus;
    tests::BusClient client{bus.address()};
    BusCalls& calls = *new BusCalls;  // outlives the connection's thread
    GDBusConnection* const connection = connect(bus.address());

private:
    static inline std::mutex made_;
    std::mutex mutex_;
    std::vector<gsize> arrived_;  // guarded by mutex_
};

constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";

TEST_F(BusCallsTest, AMessageHasAtMost64KiB)
{
    EXPECT_EQ(call(1000), kUnknownMethod);
    ASSERT_THAT(arrived(), SizeIs(1));
    const std::size_t most = BusCalls::kMostBytes - (arrived()[0] - 1000);

    EXPECT_EQ(call(most), kUnknownMethod);
    EXPECT_EQ(call(most + 1), kLimitsExceeded);

    EXPECT_THAT(arrived(), ElementsAre(arrived()[0], 64U * 1024));
}

TEST_F(BusCallsTest, OnceStoppedNoCallToTheObjectArrives)
{
    calls.Stop();

    EXPECT_EQ(call(), "org.freedesktop.DBus.Error.ServiceUnknown");
    EXPECT_THAT(arrived(), IsEmpty());

    EXPECT_EQ(call(0, "/com/example/other"), kUnknownMethod);
    EXPECT_THAT(arrived(), SizeIs(1));
}

TEST(ExportDbusEnv, WithoutAPipeIsLogged)
{
    const LogRecorder log;
    // Before the limit: the first use of a type costs a sanitizer a pipe.
    KYREngineeringService_IPC bridge;
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);

    bridge.ExportDbusEnv();

    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_THAT(log.errors(), ElementsAre("ERROR can not popen,return now"));
}

/// In a process of its own, whose connection exports an object at the bridge's path.
[[noreturn]] void startBesideAnotherObject()
{
    LogRecorder log;
    const tests::PrivateBus bus;
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    GDBusConnection* const connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    ComZentLinuxEngineering* const other = com_zent_linux_engineering_skeleton_new();
    g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(other), connection, BusCalls::kObjectPath, nullptr);

    KYRSingleton<KYREngineeringService_IPC>::GetInstance()->Init();

    const bool logged = log.waitFor(
        "ERROR Error: Failed to export object. Reason: An object is already exported for the interface "
        "com.zent.linux.engineering at /com/zent/linux/engineering.");
    while (g_main_loop_is_running(pLoop) != FALSE)
        std::this_thread::yield();
    _exit(logged ? 0 : 1);
}

TEST(BridgeDeathTest, AnObjectThatCannotBeExportedIsLoggedAndEndsTheLoop)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");

    EXPECT_EXIT(startBesideAnotherObject(), testing::ExitedWithCode(0), "");
}

/// In a process of its own, which cannot start a thread.
[[noreturn]] void startWithoutAThread()
{
    const LogRecorder log;
    const tests::PrivateBus bus;
    setenv("DBUS_SESSION_BUS_ADDRESS", bus.address().c_str(), 1);
    g_bNoThreads = true;

    const int nResult = KYRSingleton<KYREngineeringService_IPC>::GetInstance()->Init();

    const std::vector<std::string> expected{"ERROR no thread for D-Bus, the service goes on without"};
    _exit(nResult == 1 && log.errors() == expected ? 0 : 1);
}

TEST(BridgeDeathTest, AThreadThatCannotBeStartedIsLoggedAndTheServiceGoesOn)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");

    EXPECT_EXIT(startWithoutAThread(), testing::ExitedWithCode(0), "");
}

/// What ExportDbusEnv() makes of a command that prints this address. Once in a process: what the command printed takes
/// the command's place.
void exportAddress(const std::string& address)
{
    const tests::TempDir directory;
    const auto launcher = directory.path() / "dbus-launch";
    std::ofstream(launcher) << "#!/bin/sh\necho OTHER=1\necho DBUS_SESSION_BUS_ADDRESS=" << address << "\n";
    std::filesystem::permissions(launcher, std::filesystem::perms::owner_all);
    const std::string oldPath = std::getenv("PATH");
    setenv("PATH", (directory.path().string() + ":" + oldPath).c_str(), 1);
    KYREngineeringService_IPC bridge;

    bridge.ExportDbusEnv();

    setenv("PATH", oldPath.c_str(), 1);
}

TEST(ExportDbusEnv, PutsTheAddressThatTheCommandPrintsIntoTheEnvironmentWithItsLineEnd)
{
    const std::size_t before = openDescriptors();

    exportAddress("unix:path=/of/the/launcher");

    EXPECT_STREQ(std::getenv("DBUS_SESSION_BUS_ADDRESS"), "unix:path=/of/the/launcher\n");
    EXPECT_LE(openDescriptors(), before);
}

TEST(ExportDbusEnvDeathTest, TakesTheFirst255CharactersOfALine)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr std::size_t kRoom = 255 - std::string_view("DBUS_SESSION_BUS_ADDRESS=").size();

    EXPECT_EXIT(
        {
            exportAddress(std::string(300, 'a'));
            _exit(std::getenv("DBUS_SESSION_BUS_ADDRESS") == std::string(kRoom, 'a') ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(GvariantData, BuildsAndExtractsAnyNumberOfBytes)
{
    for (const int length : {0, 1, 20, 256}) {
        const std::vector<unsigned char> bytes(static_cast<std::size_t>(length), 0xA5);
        GVariant* const variant = g_variant_ref_sink(gvariant_data_build(bytes.data(), length));
        std::vector<unsigned char> buffer(300, 0x00);

        EXPECT_STREQ(g_variant_get_type_string(variant), "v");
        EXPECT_TRUE(gvariant_data_extract(buffer, variant));

        std::vector<unsigned char> expected = bytes;
        expected.resize(300, 0x00);
        EXPECT_EQ(buffer, expected) << length;
        g_variant_unref(variant);
    }
}

TEST(GvariantData, ANegativeLengthBuildsAnEmptyArray)
{
    GVariant* const variant = g_variant_ref_sink(gvariant_data_build(nullptr, -1));
    GVariant* const inner = g_variant_get_variant(variant);

    EXPECT_EQ(g_variant_n_children(inner), 0U);

    g_variant_unref(inner);
    g_variant_unref(variant);
}

TEST(GvariantData, ExtractingStopsAtTheBuffersEnd)
{
    const std::vector<unsigned char> bytes(30, 0xA5);
    GVariant* const variant = g_variant_ref_sink(gvariant_data_build(bytes.data(), 30));
    std::array<unsigned char, 24> memory{};

    EXPECT_TRUE(gvariant_data_extract(std::span(memory).first(20), variant));

    EXPECT_EQ(memory[19], 0xA5);
    EXPECT_EQ(memory[20], 0x00);
    g_variant_unref(variant);
}

TEST(GvariantData, AnythingButAnArrayOfBytesLeavesTheBufferAlone)
{
    GVariant* const variant = g_variant_ref_sink(g_variant_new_variant(g_variant_new_string("text")));
    unsigned char buffer[4] = {1, 2, 3, 4};

    EXPECT_FALSE(gvariant_data_extract(buffer, variant));

    EXPECT_THAT(buffer, ElementsAre(1, 2, 3, 4));
    g_variant_unref(variant);
}

}  // namespace
