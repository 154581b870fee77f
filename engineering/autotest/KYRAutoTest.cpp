#include "engineering/autotest/KYRAutoTest.h"

#include <unistd.h>

#include <algorithm>

#include "KYRSystem.h"
#include "engineering/autotest/IdentityRecord.h"
#include "engineering/base/Log.h"
#include "engineering/base/Outlets.h"
#include "engineering/base/PersistentFile.h"
#include "protocol/Frame.h"

namespace {

/// Adds a listener to a service, when there is one.
/// @returns 1, or 0 without the service.
template <class Service, class Listener>
int Listen(Service* pService, Listener* pListener)
{
    if (pService == nullptr)
        return 0;
    pService->AddListener(pListener);
    return 1;
}

void MakeIdentityDirectory()
{
    const std::string strPath = PersistentPath(kIdentityDirectory);
    if (access(strPath.c_str(), F_OK) == 0)
        return;
    const std::string strCommand = "mkdir " + PersistentShellPath(kIdentityDirectory);
    if (KYR_ExecSystemCmd(strCommand.c_str(), 1) == 0)
        KYR_LOG_ERROR("KYRAutoTest,mkdir %s failed.", strPath.c_str());
}

}  // namespace

KYRAutoTest::KYRAutoTest()
{
    KYR_LOG_DEBUG("KYRAutoTest(), Created!");
    Listen(KYR_GetAppMgrService(), static_cast<IKYRAppListener*>(this));
    InitPowerService();
    InitPersistService();
    InitAudioService();
    InitCarPlayService();
    InitMediaService();
    InitTunerService();
    KYRSource::AddListener(this);
    Listen(KYR_GetSystemMiscProxy(), static_cast<IKYRSystemMiscListener*>(this));
    Listen(KYR_GetLocationService(), static_cast<IKYRLocationListener*>(this));
    Listen(KYR_GetDeviceAppProxy(), static_cast<IKYRDeviceAppListener*>(this));
    MakeIdentityDirectory();
}

// An expiry must not reach an object that is half destroyed.
KYRAutoTest::~KYRAutoTest()
{
    KillNormalTimer(kRestartTimer);
}

int KYRAutoTest::InitPowerService()
{
    m_PowerService = KYR_GetSystemPowerProxy();
    if (Listen(m_PowerService, static_cast<IKYRPowerListener*>(this)) == 0)
        return 0;
    KYR_LOG_INFO("InitPowerService m_PowerService->AddListener()");
    return 1;
}

int KYRAutoTest::InitPersistService()
{
    return Listen(KYR_GetU6PersistService(), static_cast<IKYRU6PersistListener*>(this));
}

int KYRAutoTest::InitAudioService()
{
    m_AudioService = KYR_GetAudioService();
    if (Listen(m_AudioService, static_cast<IKYRAudioListener*>(this)) == 0)
        return 0;
    KYR_LOG_INFO("InitAudioService(), AddListener");
    return 1;
}

int KYRAutoTest::InitCarPlayService()
{
    return Listen(KYR_GetCarPlayService(), static_cast<IKYRCarPlayListener*>(this));
}

int KYRAutoTest::InitMediaService()
{
    m_MediaPlayer = KYR_GetMediaPlayer();
    return m_MediaPlayer != nullptr ? 1 : 0;
}

int KYRAutoTest::InitTunerService()
{
    m_TuerService = KYR_GetTunerService();
    if (Listen(m_TuerService, static_cast<IKYRRadioListener*>(this)) == 0)
        return 0;
    KYR_LOG_INFO("InitTunerService(), AddListener");
    return 1;
}

void KYRAutoTest::OnTimerHandleFunc(int id)
{
    if (id != kRestartTimer)
        return;
    if (KYRPower* const pPower = KYR_GetSystemPowerProxy())
        pPower->RestartSystem();
    else
        KYR_LOG_ERROR("no power proxy, the unit does not restart");
}

void KYRAutoTest::Run(std::span<const Command> commands, unsigned char cmd_two, unsigned char* param, int param_len)
{
    const Params params(param, static_cast<std::size_t>(std::max(param_len, 0)));
    const auto command = std::ranges::lower_bound(commands, cmd_two, {}, &Command::code);
    if (command == commands.end() || command->code != cmd_two || params.size() < command->minParams)
        return;
    command->action(*this, params);
}

void KYRAutoTest::Reply(GroupCode group, unsigned char cmd_two, std::vector<unsigned char> params)
{
    if (const auto pSend = g_pSendToStation.load())
        pSend(static_cast<unsigned char>(group | protocol::kReplyBit), cmd_two, std::move(params));
}

void KYRAutoTest::ReplyText(GroupCode group, unsigned char cmd_two, const std::string& text)
{
    Reply(group, cmd_two, {text.begin(), text.end()});
}
