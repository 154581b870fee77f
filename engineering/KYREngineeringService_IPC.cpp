#include "engineering/KYREngineeringService_IPC.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <vector>

#include "KYRHmi.h"
#include "KYRKey.h"
#include "engineering/BusConnection.h"
#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/base/BusSignals.h"
#include "engineering/base/KYRSingleton.h"
#include "engineering/base/Log.h"

GMainLoop* pLoop = nullptr;

namespace {

constexpr const char* kBusName = "com.zent.linux.engineering";
constexpr int kThreadStackSize = 51200;

/// Parameter bytes that a method call may carry.
constexpr std::size_t kMethodParams = 20;

/// ExportDbusEnv()'s command, and then its output: the environment refers to it for as long as the process lives.
char g_DbusEnv[256] = "dbus-launch --config-file=/etc/dbus-1/session.conf |grep DBUS_SESSION_BUS_ADDRESS";

// Made before any thread starts and never destroyed: GDBus's own thread may use it until the process has ended.
BusCalls& g_Calls = *new BusCalls;

/// Held while the loop is made and the name asked for.
std::mutex g_InitMutex;
guint g_nOwnerId = 0;  // of the claim to the name; guarded by g_InitMutex

/// Runs a method call's work. An exception must not pass through the C code that called back.
template <class Work>
void RunGuarded(Work work)
{
    try {
        work();
    } catch (const std::exception& error) {
        KYR_LOG_ERROR("D-Bus method call ended by an exception: %s", error.what());
    } catch (...) {
        KYR_LOG_ERROR("D-Bus method call ended by an unknown exception");
    }
}

KYRUARTManage* UartManage()
{
    return KYRSingleton<KYRUARTManage>::GetInstance();
}

void SendUartData(unsigned char cmd_one, unsigned char cmd_two, std::span<const unsigned char> bytes, bool bIsByteArray,
                  std::size_t param_size)
{
    if (param_size > bytes.size()) {
        KYR_LOG_ERROR("uart_send_data, %zu parameter bytes are more than %zu, nothing is sent", param_size,
                      bytes.size());
        return;
    }
    if (param_size > 0 && !bIsByteArray) {
        KYR_LOG_ERROR("uart_send_data, param: expected an array of bytes, got another type; nothing is sent");
        return;
    }
    UartManage()->SendData(cmd_one, cmd_two, {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(param_size)});
}

// In all three the caller gets its answer before the work begins, whether the work succeeds or not.

gboolean callback_send_uart_data(ComZentLinuxEngineering* skeleton, GDBusMethodInvocation* invocation, guchar cmd_one,
                                 guchar cmd_two, GVariant* param, guint16 param_size, gpointer)
{
    KYR_LOG_DEBUG("[rkb] callback_send_uart_data, arg_cmd_one = %x, arg_cmd_two = %x, arg_param_size = %d", cmd_one,
                  cmd_two, param_size);
    unsigned char buffer[kMethodParams] = {};
    const bool bIsByteArray = gvariant_data_extract(buffer, param);
    com_zent_linux_engineering_complete_uart_send_data(skeleton, invocation);
    RunGuarded([&] { SendUartData(cmd_one, cmd_two, buffer, bIsByteArray, param_size); });
    return TRUE;
}

gboolean callback_auto_test_set_track_index(ComZentLinuxEngineering* skeleton, GDBusMethodInvocation* invocation,
                                            guchar media_type, guchar track_index, gpointer)
{
    com_zent_linux_engineering_complete_auto_test_set_track_index(skeleton, invocation);
    RunGuarded([&] { UartManage()->AutoTestSetTrackIndex(static_cast<MEDIA_TYPE>(media_type), track_index); });
    return TRUE;
}

gboolean callback_auto_test_feedback_key_event(ComZentLinuxEngineering* skeleton, GDBusMethodInvocation* invocation,
                                               guchar key_type, guchar key_action, gpointer)
{
    com_zent_linux_engineering_complete_auto_test_feedback_key_event(skeleton, invocation);
    RunGuarded([&] {
        UartManage()->AutoTestFeedbackKeyEvent(static_cast<E_KeyVKey>(key_type), static_cast<E_KeyStatus>(key_action));
    });
    return TRUE;
}

/// By default, GDBus ends the process when the bus goes away; the station link must go on. Call this before the loop
/// runs: the loop reports that a connection has closed, and a new connection may close at once. Keeps
/// the process's shared connection, the one that asks for the name, for good. Without a bus the name will be lost.
void KeepProcessWithoutBus()
{
    GDBusConnection* const connection = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (connection != nullptr)
        g_dbus_connection_set_exit_on_close(connection, FALSE);
}

void connectionClosedCB()
{
    KYR_LOG_ERROR("the connection to D-Bus has closed, the service goes on without the name %s", kBusName);
}

void busAcquiredCB(GDBusConnection* connection, const gchar*, gpointer)
{
    KYR_LOG_INFO("engineering: bus_acquired_cb call.");
    // Again, for a bus that appeared after the thread began.
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    ComZentLinuxEngineering* const skeleton = com_zent_linux_engineering_skeleton_new();
    g_signal_connect(skeleton, "handle-uart-send-data", G_CALLBACK(callback_send_uart_data), nullptr);
    g_signal_connect(skeleton, "handle-auto-test-set-track-index", G_CALLBACK(callback_auto_test_set_track_index),
                     nullptr);
    g_signal_connect(skeleton, "handle-auto-test-feedback-key-event", G_CALLBACK(callback_auto_test_feedback_key_event),
                     nullptr);
    pSkeleton = skeleton;

    g_autoptr(GError) error = nullptr;
    if (g_dbus_interface_skeleton_export(G_DBUS_INTERFACE_SKELETON(skeleton), connection, BusCalls::kObjectPath,
                                         &error)) {
        // Only now: a counted signal must also leave.
        g_Backlog.Watch(connection);
        g_Calls.Watch(connection);
        CloseSocketWith(connection, connectionClosedCB);
        return;
    }
    KYR_LOG_ERROR("Error: Failed to export object. Reason: %s.", error->message);
    g_main_loop_quit(pLoop);
}

void nameAcquiredCB(GDBusConnection*, const gchar* name, gpointer)
{
    KYR_LOG_INFO("[rkb]engineering: nameAcquiredCB , Acquired bus name: %s.", name);
}

/// After the loop has ended, the bridge serves no calls. It gives up its claim, or the bus would give the name to this
/// process when the owner ends. It serves the calls that waited for the loop and refuses further ones.
void LeaveBus()
{
    g_Calls.Stop();
    const guint nOwnerId = [] {
        const std::lock_guard lock(g_InitMutex);
        return g_nOwnerId;
    }();
    g_bus_unown_name(nOwnerId);
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
}

void nameLostCB(GDBusConnection*, const gchar* name, gpointer)
{
    KYR_LOG_INFO("engineering: nameLostCB call, Acquired bus name: %s.", name);
    g_main_loop_quit(pLoop);
}

}  // namespace

KYREngineeringService_IPC::KYREngineeringService_IPC()
{
    KYR_LOG_INFO("%s()", __func__);
    m_pThread = std::make_unique<KYRThread>(kThreadStackSize);
    m_pThread->Detach();
}

KYREngineeringService_IPC::~KYREngineeringService_IPC() = default;

int KYREngineeringService_IPC::Init()
{
    KYR_LOG_INFO("%s()", __func__);
    return InitDbusConnect();
}

int KYREngineeringService_IPC::InitDbusConnect()
{
    KYR_LOG_INFO("%s()", __func__);
    const std::lock_guard lock(g_InitMutex);
    if (pLoop != nullptr)
        return 1;
    pLoop = g_main_loop_new(nullptr, FALSE);
    if (m_pThread->Start(DbusThreadCallBack, this) == 0)
        KYR_LOG_ERROR("no thread for D-Bus, the service goes on without");
    g_nOwnerId = g_bus_own_name(G_BUS_TYPE_SESSION, kBusName, G_BUS_NAME_OWNER_FLAGS_NONE, busAcquiredCB,
                                nameAcquiredCB, nameLostCB, nullptr, nullptr);
    return 1;
}

void KYREngineeringService_IPC::DbusThreadHandle()
{
    KeepProcessWithoutBus();
    g_main_loop_run(pLoop);
    LeaveBus();
}

void KYREngineeringService_IPC::ExportDbusEnv()
{
    FILE* const pPipe = popen(g_DbusEnv, "r");
    if (pPipe == nullptr) {
        KYR_LOG_ERROR("can not popen,return now");
        return;
    }
    const bool bLineRead = fgets(g_DbusEnv, sizeof g_DbusEnv, pPipe) != nullptr;
    pclose(pPipe);
    if (bLineRead)
        putenv(g_DbusEnv);
}

void* DbusThreadCallBack(void* pArgument)
{
    static_cast<KYREngineeringService_IPC*>(pArgument)->DbusThreadHandle();
    return nullptr;
}

bool gvariant_data_extract(std::span<unsigned char> buffer, GVariant* variant)
{
    g_autoptr(GVariant) inner = g_variant_get_variant(variant);
    const bool bIsByteArray = g_variant_is_of_type(inner, G_VARIANT_TYPE_BYTESTRING);
    if (bIsByteArray) {
        gsize count = 0;
        const auto* const bytes =
            static_cast<const unsigned char*>(g_variant_get_fixed_array(inner, &count, sizeof(guchar)));
        std::copy_n(bytes, std::min(count, buffer.size()), buffer.begin());
    }
    return bIsByteArray;
}
