#pragma once

#include "KYRAppMgr.h"

class KYRUARTManage;

/// Brings up the three pillars of the service: the connection to the application manager, the D-Bus bridge and the
/// link manager. They outlive this object.
class KYREngineeringService_Server
{
public:
    /// Does the whole bring-up, on the framework's thread.
    KYREngineeringService_Server();
    virtual ~KYREngineeringService_Server() {}
    KYREngineeringService_Server(const KYREngineeringService_Server&) = delete;
    KYREngineeringService_Server& operator=(const KYREngineeringService_Server&) = delete;

    /// Connects to the application manager.
    void ConnectServiceHandle();

    /// Creates the D-Bus bridge, which gets its name later or never.
    void ConnectDBus();

    /// Reports this module ready if all three pillars stand. Registers the start actions in any case.
    void EngineeringServiceReady();

    /// @returns 1.
    int InitInstance();
    int ExitInstance();

    /// Starts a platform module in this process. Runs on a thread of the application manager.
    /// @returns non-zero if the module is started, 0 for a module that this process does not start.
    static int StartServiceAction(ServiceModule eModule);

    static void AsyncConnectService(KYREngineeringService_Server* pServer) { pServer->ConnectServiceHandle(); }
    static void AsyncStartDBus(KYREngineeringService_Server* pServer) { pServer->ConnectDBus(); }

private:
    KYRUARTManage* m_pUartManage = nullptr;  // not owned
    int m_AppMgrInit = 0;
    int m_bDbusInit = 0;
    int m_bUartMgrInit = 0;
};
