#include "tests/otherplatform/OtherPlatform.h"

#include <mutex>
#include <thread>
#include <utility>

#include "KYRAndroidAuto.h"
#include "KYRAppMgr.h"
#include "KYRAudio.h"
#include "KYRBluetooth.h"
#include "KYRCarPlay.h"
#include "KYRConfig.h"
#include "KYRDeviceApp.h"
#include "KYRFileMgr.h"
#include "KYRLocation.h"
#include "KYRLog.h"
#include "KYRMediaPlayer.h"
#include "KYRMutex.h"
#include "KYRPower.h"
#include "KYRQLXTimer.h"
#include "KYRSource.h"
#include "KYRSystem.h"
#include "KYRSystemInfo.h"
#include "KYRSystemMisc.h"
#include "KYRSystemUpdate.h"
#include "KYRThread.h"
#include "KYRTuner.h"
#include "KYRU6Persist.h"
#include "KYRUart.h"
#include "KYRWifi.h"

namespace {

KYRAppMgrService* g_appManager = nullptr;
KYRRmtSkeleton* g_receiver = nullptr;
std::string g_root;
std::mutex g_mutex;
std::vector<std::vector<std::uint8_t>> g_sent;  // guarded by g_mutex
std::vector<std::string> g_asked;               // guarded by g_mutex

}  // namespace

namespace otherplatform {

void deliver(std::vector<std::uint8_t> bytes)
{
    g_receiver->MsgDecode(bytes.data(), static_cast<int>(bytes.size()));
}

std::vector<std::vector<std::uint8_t>> takeSent()
{
    const std::lock_guard lock(g_mutex);
    return std::exchange(g_sent, {});
}

void ask(std::string what)
{
    const std::lock_guard lock(g_mutex);
    g_asked.push_back(std::move(what));
}

std::vector<std::string> takeAsked()
{
    const std::lock_guard lock(g_mutex);
    return std::exchange(g_asked, {});
}

void setRoot(const std::string& root)
{
    g_root = root;
}

void setAppManager(KYRAppMgrService* appManager)
{
    g_appManager = appManager;
}

}  // namespace otherplatform

using otherplatform::ask;

// Every service is missing, except that a test may lend an application manager.

KYRAndroidAuto* KYR_GetAAProxy()
{
    return nullptr;
}
KYRAppMgrService* KYR_GetAppMgrService()
{
    return g_appManager;
}
KYRAudio* KYR_GetAudioService()
{
    return nullptr;
}
KYRCarPlay* KYR_GetCarPlayService()
{
    return nullptr;
}
KYRDeviceApp* KYR_GetDeviceAppProxy()
{
    return nullptr;
}
KYRFileMgr* KYR_GetFileMgr()
{
    return nullptr;
}
KYRLibConfigs* GetLibConfigs()
{
    return nullptr;
}
KYRLocation* KYR_GetLocationService()
{
    return nullptr;
}
KYRMediaPlayer* KYR_GetMediaPlayer()
{
    return nullptr;
}
KYRPower* KYR_GetSystemPowerProxy()
{
    return nullptr;
}
KYRSystemInfo* KYR_GetSystemInfoProxy()
{
    return nullptr;
}
KYRSystemMisc* KYR_GetSystemMiscProxy()
{
    return nullptr;
}
KYRSystemUpdate* KYR_GetSystemUpdateProxy()
{
    return nullptr;
}
KYRTuner* KYR_GetTunerService()
{
    return nullptr;
}
KYRU6Persist* KYR_GetU6PersistService()
{
    return nullptr;
}
KYRWifi* KYR_GetWifiService()
{
    return nullptr;
}

// What cannot be missing writes down that it was asked, does nothing, and fails where it can.

zlog_category_t* liblog_category = nullptr;
int log_system_init(const char* name)
{
    ask(std::string("log ") + name);
    return 0;
}

const char* KYR_GetRootPath()
{
    return g_root.c_str();
}
int KYR_ExecSystemCmd(const char* command, int option)
{
    ask("command " + std::to_string(option) + " " + command);
    return 0;
}
int KYR_RemoveFile(const char*, int)
{
    return 0;
}
int KYR_StartSystemProxy()
{
    ask("start of the system proxy");
    return 3;
}

void KYRSource::StartService()
{
    ask("start of the source manager");
}
int KYRSource::Request(int, AudioGainType)
{
    return 0;
}
KYRSource::SourceID KYRSource::GetCurrentSource(SourceType)
{
    return SOURCE_NONE;
}
void KYRSource::AddListener(IKYRSourceListener*)
{
    ask("source listener");
}
void KYRSource::RemoveListener(IKYRSourceListener*) {}

void KYR_CreateBlueTooth()
{
    ask("start of Bluetooth");
}
KYRBtCom::KYRBtCom(IKYRBtComListener* pListener) : m_pListener(pListener)
{
    ask(pListener != nullptr ? "Bluetooth listener" : "Bluetooth");
}
KYRBtCom::~KYRBtCom() = default;
int KYRBtCom::GetAttribute(KYRBtType::Attribute, std::string&)
{
    return 0;
}
int KYRBtCom::DeletePairDeviceList()
{
    return 0;
}
void KYRBtCom::SetCapability(KYRBtType::Capability, int) {}
int KYRBtCom::GetCapability(KYRBtType::Capability)
{
    return 0;
}
void KYRBtCom::AnswerPair(const std::string&, const std::string&, KYRBtType::PairRequestState) {}
void KYRBtPhone::AcceptCall() {}
void KYRBtPhone::TerminateCall() {}
KYRBtConnectionState KYRBtPhone::GetPhoneConnectionState()
{
    return {};
}
void KYRBtPhone::GetCurrentCallInfo(KYRTypeCallInfo&) {}
KYRBtConnectionState KYRBtMedia::GetMediaConnectionState()
{
    return {};
}
KYRBtType::MusicStatus KYRBtMedia::GetMusicPlayStatus()
{
    return {};
}

// Mutex and thread as the C library has them; no timer ever expires.

KYRMutex::KYRMutex()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&m_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}
KYRMutex::~KYRMutex()
{
    pthread_mutex_destroy(&m_mutex);
}
void KYRMutex::Lock()
{
    pthread_mutex_lock(&m_mutex);
}
void KYRMutex::Unlock()
{
    pthread_mutex_unlock(&m_mutex);
}

struct KYRThread::Impl {
};
KYRThread::KYRThread(int nStackSize) : m_pImpl(std::make_unique<Impl>())
{
    ask("thread with a stack of " + std::to_string(nStackSize));
}
KYRThread::~KYRThread() = default;
void KYRThread::Detach()
{
    ask("detach the thread");
}
int KYRThread::Start(Entry entry, void* pArgument)
{
    ask("start the thread");
    std::thread(entry, pArgument).detach();
    return 1;
}

struct KYRQLXTimer::Impl {
};
KYRQLXTimer::KYRQLXTimer() : m_pImpl(std::make_unique<Impl>()) {}
KYRQLXTimer::~KYRQLXTimer() = default;
int KYRQLXTimer::StartNormalTimer(int, int, TimerType, LoopType)
{
    return 1;
}
void KYRQLXTimer::KillNormalTimer(int) {}
int KYRQLXTimer::IsNormalTimerActive(int)
{
    return 0;
}

// The line is memory.

struct KYRUartAdapter::Impl {
};
KYRUartAdapter::KYRUartAdapter() : m_pImpl(std::make_unique<Impl>()) {}
KYRUartAdapter::~KYRUartAdapter() = default;
int KYRUartAdapter::Init(const KYRRmt::UartClientInfo& info)
{
    ask("UART client of type " + std::to_string(info.nType) + ", number " + std::to_string(info.nClientId) +
        ", name '" + info.strName + "', device '" + info.strDevice + "'");
    return 1;
}
int KYRUartAdapter::Exit()
{
    return 1;
}
void KYRUartAdapter::RegisterSkeleton(KYRRmtSkeleton* pSkeleton)
{
    ask("UART receiver");
    g_receiver = pSkeleton;
}
int KYRUartAdapter::SendAutoTestCommand(KYRRmtParameter* pParameter)
{
    const std::lock_guard lock(g_mutex);
    g_sent.emplace_back(pParameter->m_ucData, pParameter->m_ucData + pParameter->m_ucLength);
    return 1;
}
