#pragma once

#include <gio/gio.h>

#include <memory>
#include <span>

#include "KYRThread.h"

/// Joins the service to the session bus: owns the bus name com.zent.linux.engineering, exports the one skeleton at
/// /com/zent/linux/engineering, and runs the main loop of the default main context on a thread of its own, on which
/// all bus callbacks and method calls arrive. The emit functions (Outlets.h) send through it.
/// Lives until the process ends. If the name is lost, if another process has it, or without a bus, the loop ends for
/// good, the bridge gives up its claim to the name, and the service goes on without the bus.
class KYREngineeringService_IPC
{
public:
    KYREngineeringService_IPC();
    virtual ~KYREngineeringService_IPC();
    KYREngineeringService_IPC(const KYREngineeringService_IPC&) = delete;
    KYREngineeringService_IPC& operator=(const KYREngineeringService_IPC&) = delete;

    /// Starts the thread and asks for the name, once in a process; returns at once. Any thread.
    /// @returns 1.
    int Init();
    int InitDbusConnect();

    /// Runs the main loop until it is quit, then leaves the bus; the bridge's thread.
    void DbusThreadHandle();

    /// Starts a session bus and puts its address into the environment. Nothing calls it.
    void ExportDbusEnv();

private:
    std::unique_ptr<KYRThread> m_pThread;
};

/// The thread's entry; the argument is the bridge.
void* DbusThreadCallBack(void* pArgument);

/// The bridge's main loop; null before InitDbusConnect().
extern GMainLoop* pLoop;

/// Writes the bytes of a "v" that holds an "ay" to the beginning of `buffer`, as many as fit.
/// @returns false, and leaves `buffer` unchanged, if the variant holds anything else.
bool gvariant_data_extract(std::span<unsigned char> buffer, GVariant* variant);
