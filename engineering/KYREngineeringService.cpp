#include <unistd.h>

#include "KYRAppMgr.h"
#include "KYRServiceFw.h"
#include "engineering/KYREngineeringService_Server.h"
#include "engineering/base/KYRSingleton.h"
#include "engineering/base/Log.h"

int KYR_ServiceFw_Init(KYRServiceFw_Args&)
{
    log_system_init("engineering");
    if (KYRAppMgrService* const pAppMgr = KYR_GetAppMgrService())
        pAppMgr->NotifyModuleInitBegin(MODULE_ENGINEERING);
    KYR_LOG_INFO("ModuleProcessInitBegin---- ");
    KYRSingleton<KYREngineeringService_Server>::GetInstance();
    KYR_LOG_INFO("- End");
    return 1;
}

int KYR_ServiceFw_Exec()
{
    KYR_LOG_INFO("%s()", __func__);
    for (;;)
        pause();
}

void KYR_ServiceFw_Deinit()
{
    KYR_LOG_INFO("%s()", __func__);
    KYRSingleton<KYREngineeringService_Server>::DestroyInstance();
}
