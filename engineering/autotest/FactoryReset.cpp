// A factory reset deletes this service's log files and tells the station. The identity records stay.

#include "KYRSystem.h"
#include "engineering/Log.h"
#include "engineering/PersistentPath.h"
#include "engineering/autotest/IdentityRecord.h"
#include "engineering/autotest/KYRAutoTest.h"
#include "protocol/CommandGroups.h"

namespace {

constexpr const char* kLogFiles = "/perm_data/log/log_engineering*";
constexpr unsigned char kFactoryResetNotice = 0x13;

/// Each reset has its own words for the failure.
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
    Reply(protocol::replyGroup(protocol::kHardKeyAndDisplay), kFactoryResetNotice, {0x01});
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

// WIRE: the station is told in every mode.
void KYRAutoTest::OnFactoryResetMode()
{
    SendFactoryResetNotice();
}
