// The platform's getters, and what has no backend on stock Linux.

#include "platform/linux/Unit.h"

#include <KYRAndroidAuto.h>
#include <KYRAudio.h>
#include <KYRBluetooth.h>
#include <KYRCarPlay.h>
#include <KYRDeviceApp.h>
#include <KYRMediaPlayer.h>
#include <KYRSource.h>
#include <KYRSystem.h>

#include <atomic>
#include <type_traits>

#include "platform/runtime/System.h"

namespace unit {
namespace {

std::atomic<Unit*> theUnit = nullptr;

/// @returns the interface of the installed unit; null if it is off.
template <class Interface>
Interface* installed(std::optional<Interface> Unit::*interface)
{
    Unit* const unit = theUnit;
    return unit != nullptr && unit->*interface ? &*(unit->*interface) : nullptr;
}

/// Calls `action` with an interface of the installed unit.
/// @returns its result; a default value if the interface is off.
template <class Interface, class Action>
auto with(std::optional<Interface> Unit::*interface, Action action)
{
    Interface* const there = installed(interface);
    using Result = decltype(action(*there));
    if constexpr (std::is_void_v<Result>) {
        if (there != nullptr) {
            action(*there);
        }
    } else {
        return there == nullptr ? Result() : action(*there);
    }
}

}  // namespace

Unit::Unit(const UnitConfig& config, Role role) : board_(role == Role::kServe)
{
    if (role == Role::kServe) {
        statusBus_.emplace(sessionBus_, board_);
    } else {
        systemBusStatus_.emplace(systemBus_, board_, "system-bus");
        sessionBusStatus_.emplace(sessionBus_, board_, "session-bus");
    }
    for (const auto& [interface, backend] : config.backends) {
        board_.add(interface, backend);
    }
    if (!config.isOff("app-manager")) {
        appManager.emplace(config.appManager, systemBus_, systemd_);
    }
    if (!config.isOff("power")) {
        power.emplace(config.power, systemBus_, systemd_, board_);
    }
    if (!config.isOff("bluetooth")) {
        bluetooth.emplace(config.bluetooth, systemBus_, board_, role == Role::kServe);
    }
    if (!config.isOff("phone")) {
        phone.emplace(systemBus_, board_, role == Role::kServe);
    }
    if (!config.isOff("location")) {
        location.emplace(config.location, loop_, board_);
    }
    if (!config.isOff("audio")) {
        audio.emplace(config.audio, alsaMixer(config.audio.card), loop_, board_);
    }
    if (!config.isOff("source")) {
        source.emplace(config.sources, systemBus_, sessionBus_, board_);
    }
    if (!config.isOff("system-misc")) {
        vehicleData.emplace(config.vehicleData, systemBus_, systemd_, board_,
                            VehicleData::Kernel{.takesLines = role == Role::kServe});
    }
    if (!config.isOff("system-update")) {
        systemUpdate.emplace(config.updateBundles, systemBus_, board_);
    }
    if (!config.isOff("file-manager")) {
        fileManager.emplace(config.clearUnit, systemBus_, systemd_, board_);
    }
    if (!config.isOff("persistence")) {
        persistence.emplace(config.persistence, systemBus_, board_);
    }
    if (!config.isOff("tuner")) {
        tuner.emplace(config.tuner, loop_, board_, [this, unit = config.tuner.soundUnit] {
            if (!unit.empty()) {
                systemd_.start(unit);
            }
        });
    }
    if (!config.isOff("wifi")) {
        wifi.emplace(config.wifi, systemBus_, board_, role == Role::kServe, [this] {
            if (appManager) {
                appManager->moduleIsUp(MODULE_WIFI);
            }
        });
        if (appManager) {
            appManager->setWifiStart([this] { wifi->activate(); });
        }
    }
    if (!config.isOff("system-info")) {
        systemInformation.emplace(config.versions, systemBus_, board_);
    }
    if (!config.isOff("config")) {
        configuration.emplace(config);
        board_.set("config", State::kUp);
    }
    loop_.run();
}

Unit::~Unit()
{
    Unit* self = this;
    theUnit.compare_exchange_strong(self, nullptr);
    loop_.stop();
}

void Unit::feedWatchdog(runtime::TtyWire& wire, std::chrono::milliseconds interval, std::function<void()> feed)
{
    wire.beat(interval, [this, feed = std::move(feed)] { loop_.post(feed); });
}

void Unit::install()
{
    theUnit = this;
}

}  // namespace unit

using unit::Unit;

KYRAppMgrService* KYR_GetAppMgrService()
{
    return unit::installed(&Unit::appManager);
}
KYRPower* KYR_GetSystemPowerProxy()
{
    return unit::installed(&Unit::power);
}
KYRSystemInfo* KYR_GetSystemInfoProxy()
{
    return unit::installed(&Unit::systemInformation);
}
KYRLocation* KYR_GetLocationService()
{
    return unit::installed(&Unit::location);
}
KYRAudio* KYR_GetAudioService()
{
    return unit::installed(&Unit::audio);
}
KYRSystemMisc* KYR_GetSystemMiscProxy()
{
    return unit::installed(&Unit::vehicleData);
}
KYRSystemUpdate* KYR_GetSystemUpdateProxy()
{
    return unit::installed(&Unit::systemUpdate);
}
KYRFileMgr* KYR_GetFileMgr()
{
    return unit::installed(&Unit::fileManager);
}
KYRU6Persist* KYR_GetU6PersistService()
{
    return unit::installed(&Unit::persistence);
}
KYRTuner* KYR_GetTunerService()
{
    return unit::installed(&Unit::tuner);
}
KYRWifi* KYR_GetWifiService()
{
    return unit::installed(&Unit::wifi);
}
KYRLibConfigs* GetLibConfigs()
{
    return unit::installed(&Unit::configuration);
}

int KYR_ExecSystemCmd(const char* pCommand, int nWait)
{
    return pCommand != nullptr && runtime::runShell(pCommand, nWait == 1) ? 1 : 0;
}
int KYR_RemoveFile(const char* pPath, int nForce)
{
    return pPath != nullptr && runtime::removeFiles(pPath, nForce == 1) ? 1 : 0;
}
// The proxies are parts of this process.
int KYR_StartSystemProxy()
{
    return 1;
}

// Off.

KYRAndroidAuto* KYR_GetAAProxy()
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
KYRMediaPlayer* KYR_GetMediaPlayer()
{
    return nullptr;
}

// The clients run in this process: there is nothing to start.
void KYR_CreateBlueTooth() {}
void KYRSource::StartService() {}

int KYRSource::Request(int nSourceId, AudioGainType)
{
    return unit::with(&Unit::source, [&](auto& source) { return source.request(nSourceId); });
}
KYRSource::SourceID KYRSource::GetCurrentSource(SourceType)
{
    return unit::with(&Unit::source, [](auto& source) { return source.current(); });
}
void KYRSource::AddListener(IKYRSourceListener* pListener)
{
    unit::with(&Unit::source, [&](auto& source) { source.AddListener(pListener); });
}
void KYRSource::RemoveListener(IKYRSourceListener* pListener)
{
    unit::with(&Unit::source, [&](auto& source) { source.RemoveListener(pListener); });
}

int KYRBtCom::GetAttribute(KYRBtType::Attribute eAttribute, std::string& strValue)
{
    return unit::with(&Unit::bluetooth, [&](auto& bluetooth) { return bluetooth.getAttribute(eAttribute, strValue); });
}
int KYRBtCom::DeletePairDeviceList()
{
    return unit::with(&Unit::bluetooth, [](auto& bluetooth) { return bluetooth.deletePairings() ? 1 : 0; });
}
void KYRBtCom::SetCapability(KYRBtType::Capability eCapability, int nValue)
{
    unit::with(&Unit::bluetooth, [&](auto& bluetooth) { bluetooth.setCapability(eCapability, nValue); });
}
int KYRBtCom::GetCapability(KYRBtType::Capability eCapability)
{
    return unit::with(&Unit::bluetooth, [&](auto& bluetooth) { return bluetooth.capability(eCapability); });
}
void KYRBtCom::AnswerPair(const std::string&, const std::string&, KYRBtType::PairRequestState eState)
{
    unit::with(&Unit::bluetooth, [&](auto& bluetooth) { bluetooth.answerPair(eState); });
}
KYRBtConnectionState KYRBtMedia::GetMediaConnectionState()
{
    return unit::with(&Unit::bluetooth, [](auto& bluetooth) { return bluetooth.mediaConnection(); });
}
KYRBtType::MusicStatus KYRBtMedia::GetMusicPlayStatus()
{
    return unit::with(&Unit::bluetooth, [](auto& bluetooth) { return bluetooth.musicStatus(); });
}

void KYRBtPhone::AcceptCall()
{
    unit::with(&Unit::phone, [](auto& phone) { phone.accept(); });
}
void KYRBtPhone::TerminateCall()
{
    unit::with(&Unit::phone, [](auto& phone) { phone.terminate(); });
}
KYRBtConnectionState KYRBtPhone::GetPhoneConnectionState()
{
    return unit::with(&Unit::phone, [](auto& phone) { return phone.connection(); });
}
void KYRBtPhone::GetCurrentCallInfo(KYRTypeCallInfo& info)
{
    info = unit::with(&Unit::phone, [](auto& phone) { return phone.call(); });
}
