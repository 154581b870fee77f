// A factory reset deletes this service's log files and sends the station a notice. The identity records stay.

#include <sys/wait.h>

#include <cstdlib>

#include "KYRSystem.h"
#include "engineering/autotest/IdentityRecord.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"
#include "engineering/base/PersistentFile.h"

namespace {

constexpr const char* kLogFiles = "/perm_data/log/log_engineering*";
constexpr unsigned char kFactoryResetNotice = 0x13;

/// Each of the two resets words the failure differently.
void DeleteLogs(const char* pFailureText)
{
    if (KYR_RemoveFile(PersistentPath(kLogFiles).c_str(), 1) == 0) {
        KYR_LOG_ERROR("%s", pFailureText);
        return;
    }
    SyncPersistent("sync, ERROR");
}

}  // namespace

void KYRAutoTest::SendFactoryResetNotice()
{
    Reply(kHardKeyAndDisplay, kFactoryResetNotice, {0x01});
}

void KYRAutoTest::OnU6PersistFactoryResetMode()
{
    KYR_LOG_DEBUG("OnU6PersistFactoryResetMode");
    if (!m_bIsAutoTestMode)
        return;
    SendFactoryResetNotice();
    DeleteLogs("rm /perm_data/log/log_engineering*, Failed!!!");
}

void KYRAutoTest::OnU6PersistAutoFactoryResetMode()
{
    if (m_bIsAutoTestMode)
        DeleteLogs("KYR_RemoveFile /perm_data/log/log_engineering*, Failed!!!");
}

// WIRE: the notice goes out in every mode.
void KYRAutoTest::OnFactoryResetMode()
{
    SendFactoryResetNotice();
}

unsigned int SystemCall(const char* command)
{
    const int nStatus = system(command);
    if (nStatus == -1) {
        KYR_LOG_ERROR("[SystemCall] system(%s) call error", command);
        return 0;
    }
    if (!WIFEXITED(nStatus)) {
        KYR_LOG_ERROR("[SystemCall] system(%s) error(WIFEXITED)", command);
        return 0;
    }
    if (WEXITSTATUS(nStatus) != 0) {
        KYR_LOG_ERROR("[SystemCall] system(%s) error(WEXITSTATUS)", command);
        return 0;
    }
    KYR_LOG_INFO("[SystemCall] system(%s) success", command);
    return 1;
}
