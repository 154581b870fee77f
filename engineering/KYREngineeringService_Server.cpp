#include "engineering/KYREngineeringService_Server.h"

#include "KYRAudio.h"
#include "KYRBluetooth.h"
#include "KYRDeviceApp.h"
#include "KYRLocation.h"
#include "KYRMediaPlayer.h"
#include "KYRSource.h"
#include "KYRSystem.h"
#include "KYRTuner.h"
#include "KYRWifi.h"
#include "engineering/KYREngineeringService_IPC.h"
#include "engineering/UARTMgr/KYRUARTManage.h"
#include "engineering/base/KYRSingleton.h"
#include "engineering/base/Log.h"

namespace {

/// Starts a service unless it is started.
/// @returns its started flag, 0 without the service.
template <class Service>
int StartOnce(Service* pService)
{
    if (pService == nullptr)
        return 0;
    {
        KYRAutoLock lock(pService->m_csService);
        if (pService->m_nStarted == 0)
            pService->m_nStarted = pService->InitInstance();
    }
    return pService->m_nStarted;
}

// In the order in which the platform gets them.
constexpr ServiceModule kStartActions[] = {
    MODULE_SYSTEM_PROXY, MODULE_MEDIA_PLAYER, MODULE_AUDIO,    MODULE_BLUETOOTH, MODULE_SOURCE,
    MODULE_NONE,         MODULE_WIFI,         MODULE_LOCATION, MODULE_TUNER,     MODULE_DEVICE_APP,
};

}  // namespace

KYREngineeringService_Server::KYREngineeringService_Server()
{
    ConnectServiceHandle();
    ConnectDBus();
    m_pUartManage = KYRSingleton<KYRUARTManage>::GetInstance();
    m_bUartMgrInit = 1;
    EngineeringServiceReady();
    InitInstance();
}

void KYREngineeringService_Server::ConnectServiceHandle()
{
    if (StartOnce(KYR_GetAppMgrService()) == 0) {
        KYR_LOG_WARN("Start AppMgr Service Fail.");
        return;
    }
    KYR_LOG_DEBUG("Start AppMgr Service Success.");
    m_AppMgrInit = 1;
}

void KYREngineeringService_Server::ConnectDBus()
{
    KYRSingleton<KYREngineeringService_IPC>::GetInstance()->Init();
    m_bDbusInit = 1;
}

void KYREngineeringService_Server::EngineeringServiceReady()
{
    KYR_LOG_INFO("EngineeringServiceReady---- m_bDbusInit = %d, m_bUartMgrInit = %d,m_AppMgrInit = %d", m_bDbusInit,
                 m_bUartMgrInit, m_AppMgrInit);
    KYRAppMgrService* const pAppMgr = KYR_GetAppMgrService();
    if (pAppMgr == nullptr)
        return;
    if (m_bDbusInit != 0 && m_bUartMgrInit != 0 && m_AppMgrInit != 0)
        pAppMgr->NotifyModuleReady(MODULE_ENGINEERING);
    for (const ServiceModule eModule : kStartActions)
        pAppMgr->SetStartServiceAction(eModule, StartServiceAction);
}

int KYREngineeringService_Server::InitInstance()
{
    KYR_LOG_INFO("%s()", __func__);
    return 1;
}

int KYREngineeringService_Server::ExitInstance()
{
    KYR_LOG_INFO("%s()", __func__);
    return 1;
}

int KYREngineeringService_Server::StartServiceAction(ServiceModule eModule)
{
    KYR_LOG_DEBUG("StartServiceAction---- module = %d", eModule);
    switch (eModule) {
        case MODULE_NONE:
            return 1;
        case MODULE_AUDIO:
            return StartOnce(KYR_GetAudioService()) != 0 ? 1 : 0;
        case MODULE_SOURCE:
            KYRSource::StartService();
            return 1;
        case MODULE_SYSTEM_PROXY:
            return KYR_StartSystemProxy();
        case MODULE_TUNER:
            return StartOnce(KYR_GetTunerService());
        case MODULE_BLUETOOTH:
            KYR_CreateBlueTooth();
            return 1;
        case MODULE_MEDIA_PLAYER:
            // The interface's default InitInstance() returns 1, so a player that keeps it counts as started.
            return StartOnce(KYR_GetMediaPlayer());
        case MODULE_LOCATION:
            return StartOnce(KYR_GetLocationService());
        case MODULE_WIFI:
            return StartOnce(KYR_GetWifiService());
        case MODULE_DEVICE_APP:
            return StartOnce(KYR_GetDeviceAppProxy());
        default:
            return 0;
    }
}
