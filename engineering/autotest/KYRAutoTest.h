#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <span>
#include <string>
#include <vector>

#include "KYRAppMgr.h"
#include "KYRAudio.h"
#include "KYRBluetooth.h"
#include "KYRCarPlay.h"
#include "KYRDeviceApp.h"
#include "KYRKey.h"
#include "KYRLocation.h"
#include "KYRMediaPlayer.h"
#include "KYRPower.h"
#include "KYRQLXTimer.h"
#include "KYRSource.h"
#include "KYRSystemMisc.h"
#include "KYRTuner.h"
#include "KYRU6Persist.h"

class KYRAutoTest;
struct IdentityRecord;

/// A request's parameter bytes. They belong to the receive path, which reuses them after the command.
using Params = std::span<const unsigned char>;

/// One command of a group. The tables are the only list of commands.
struct Command {
    unsigned char code;     // cmd_two
    std::size_t minParams;  // the engine ignores a command with fewer parameter bytes
    const char* name;
    void (*action)(KYRAutoTest& engine, Params params);
};

/// @returns whether the codes of a table stand in ascending order, each once.
constexpr bool CodesAscend(std::span<const Command> commands)
{
    for (std::size_t i = 1; i < commands.size(); ++i) {
        if (commands[i - 1].code >= commands[i].code)
            return false;
    }
    return true;
}

/// The auto-test engine: keeps the auto-test mode, dispatches the station's frames to the handlers of their command
/// groups, and listens to the platform's services for the values that the handlers report. One per process,
/// KYRSingleton<KYRAutoTest>.
///
/// Commands arrive on the UART adapter's delivery thread, one at a time; events on the platform's listener and timer
/// threads; key reports on the D-Bus thread. Members that several threads use are atomic or guarded.
class KYRAutoTest : public IKYRAppListener,
                    public IKYRU6PersistListener,
                    public IKYRCarPlayListener,
                    public IKYRPowerListener,
                    public IKYRBtComListener,
                    public IKYRSourceListener,
                    public IKYRAudioListener,
                    public IKYRMediaPlayer,
                    public IKYRSystemMiscListener,
                    public IKYRLocationListener,
                    public IKYRRadioListener,
                    public KYRQLXTimer,
                    public IKYRDeviceAppListener
{
public:
    /// Registers as listener of every service that exists. Creates the directory of the identity records if it is
    /// missing. Events may arrive before it returns.
    KYRAutoTest();

    /// Stays in the listener lists: the engine lives as long as the process.
    ~KYRAutoTest() override;

    // ---- dispatcher ----

    /// A good frame from the station. Always serves group 15. Serves every other group, and publishes the frame on
    /// D-Bus, only while auto-test mode is on.
    void HandleAutoTestCommands(unsigned char cmd_one, unsigned char cmd_two, unsigned char* param, int param_len);

    // ---- command groups: each one's handler and table stand in its own file, <Group>Commands.cpp ----

    /// cmd_one of what the station sends.
    enum GroupCode : unsigned char {
        kSource = 0x00,
        kEq = 0x01,
        kTuner = 0x02,
        kMedia = 0x03,
        kBluetooth = 0x04,
        kGps = 0x05,
        kHardKeyAndDisplay = 0x06,
        kInfoAcquire = 0x07,
        kCarState = 0x09,
        kHuInfoWrite = 0x0A,
        kOther = 0x0E,
        kTestMode = 0x0F,
        kWifiConnect = 0x10,
        kPhoneConnected = 0x11,
    };

    void HandleSourceCommands(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleEQCommands(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleTunerCommands(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleMediaCommands(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleBTCommands(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleGPSCommands(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleHardKeyAndDisplay(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleInfoAcquireCommands(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleCarState(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleHUInfoWrite(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleOtherCommands(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleTestMode(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandleWifiConnectCommands(unsigned char cmd_two, unsigned char* param, int param_len);
    void HandlePhoneConnected(unsigned char cmd_two, unsigned char* param, int param_len);

    static std::span<const Command> SourceCommands();
    static std::span<const Command> EQCommands();
    static std::span<const Command> TunerCommands();
    static std::span<const Command> MediaCommands();
    static std::span<const Command> BTCommands();
    static std::span<const Command> GPSCommands();
    static std::span<const Command> HardKeyAndDisplayCommands();
    static std::span<const Command> InfoAcquireCommands();
    static std::span<const Command> CarStateCommands();
    static std::span<const Command> HUInfoWriteCommands();
    static std::span<const Command> OtherCommands();
    static std::span<const Command> TestModeCommands();
    static std::span<const Command> WifiConnectCommands();
    static std::span<const Command> PhoneConnectedCommands();

    /// What the dispatcher looks up.
    struct Group {
        unsigned char code;  // cmd_one
        const char* name;
        void (KYRAutoTest::*handler)(unsigned char cmd_two, unsigned char* param, int param_len);
        std::span<const Command> (*commands)();
    };

    /// Every group, by code.
    static std::span<const Group> Groups()
    {
        static constexpr auto kGroups = std::to_array<Group>({
            {kSource, "source", &KYRAutoTest::HandleSourceCommands, SourceCommands},
            {kEq, "EQ and audio", &KYRAutoTest::HandleEQCommands, EQCommands},
            {kTuner, "tuner", &KYRAutoTest::HandleTunerCommands, TunerCommands},
            {kMedia, "media", &KYRAutoTest::HandleMediaCommands, MediaCommands},
            {kBluetooth, "Bluetooth", &KYRAutoTest::HandleBTCommands, BTCommands},
            {kGps, "GPS", &KYRAutoTest::HandleGPSCommands, GPSCommands},
            {kHardKeyAndDisplay, "hard keys and display", &KYRAutoTest::HandleHardKeyAndDisplay,
             HardKeyAndDisplayCommands},
            {kInfoAcquire, "information acquisition", &KYRAutoTest::HandleInfoAcquireCommands, InfoAcquireCommands},
            {kCarState, "car state", &KYRAutoTest::HandleCarState, CarStateCommands},
            {kHuInfoWrite, "head-unit information write", &KYRAutoTest::HandleHUInfoWrite, HUInfoWriteCommands},
            {kOther, "other", &KYRAutoTest::HandleOtherCommands, OtherCommands},
            {kTestMode, "test mode", &KYRAutoTest::HandleTestMode, TestModeCommands},
            {kWifiConnect, "Wi-Fi connection", &KYRAutoTest::HandleWifiConnectCommands, WifiConnectCommands},
            {kPhoneConnected, "phone connected", &KYRAutoTest::HandlePhoneConnected, PhoneConnectedCommands},
        });
        static_assert(std::ranges::adjacent_find(kGroups, std::ranges::greater_equal{}, &Group::code) == kGroups.end(),
                      "codes ascend, each once");
        return kGroups;
    }

    // ---- key reports ----

    /// Reports a key to the station, if it has switched key reports on. Any thread.
    void FeedBackKeyEvent(E_KeyVKey key, E_KeyStatus status);

    /// @returns the station's code of a key, 0xFF for an unknown key.
    unsigned char ChangeKeyTypeToAutoTestKey(E_KeyVKey key);

    // ---- sources ----

    /// @returns the platform's source for the station's number, SOURCE_NONE for a number without one.
    KYRSource::SourceID ChangeSourceID(unsigned char test_id);

    /// @returns the station's number for a source of the platform, 0 for a source without one.
    unsigned char ChangeSourcrMgrSourceID(KYRSource::SourceID source_id);

    // ---- identity records; each change is followed by a sync ----

    void SaveFactorySerialNum(const unsigned char* param, int param_len);
    void SavePasswordNum(const unsigned char* param, int param_len);
    void SaveCarPlayMacAddress(const unsigned char* param, int param_len);
    void SaveHUSerialNum(const unsigned char* param, int param_len);
    void SaveDrawingCode(const unsigned char* param, int param_len);
    void SaveProductionDate(const unsigned char* param, int param_len);

    void FeedBackFactorySerialNum();
    void FeedBackPasswordNum();
    void FeedBackCarPlayMacAddress();
    void FeedBackHUSerialNum();
    void FeedBackDrawingCode();
    void FeedBackProductionDate();

    /// Writes the Bluetooth address into the controller's persistent store.
    /// @param param the address as hexadecimal characters, most significant first. Only the first 12 count. Does
    ///   nothing for fewer, or if one of them is a control character.
    void SaveBtMacAddress(const unsigned char* param, int param_len);

    // ---- line-oriented files of at most 1 MiB; the root is not put in front of the paths ----

    /// @returns the number of lines, a last line without line end included; 0 if the file is unreadable or longer.
    int CountLines(std::string path);

    /// Copies a text file. Empties the destination even if the source is unreadable.
    /// @returns whether the copy is complete.
    bool CopyFile(std::string src, std::string dst);

    /// Replaces line `line_no`, counted from 1, by `new_text` and a line end. Refuses a missing line. Leaves the file
    /// unchanged if it cannot make a backup. The backup "/media/backup.txt" stays.
    void ResetLineContents(std::string path, int line_no, std::string new_text);

    // ---- connections to the services; 1 if connected, 0 without the service ----

    int InitPowerService();
    int InitPersistService();
    int InitAudioService();
    int InitCarPlayService();
    int InitMediaService();
    int InitTunerService();

    // ---- the platform's events ----

    void OnU6PersistDataChange(U6Persist::E_ModuleName eModule, unsigned int nValue) override;
    void OnU6PersistFactoryResetMode() override;
    void OnU6PersistAutoFactoryResetMode() override;
    void OnSourceStatusChanged(KYRSource::SourceID eSource, KYRSource::SourceStatus eStatus) override;
    void OnCarSpeedChange(unsigned int nSpeed) override;
    void OnRadioAntStateChange(SystemMisc::AntState eState) override;
    void OnGpsAntStateChange(SystemMisc::AntState eState) override;
    void OnLCarInfoChange(_LCarInfo info) override;
    void OnFactoryResetMode() override;
    void OnOpenBtStatusChanged(KYRBtType::PowerStatus eStatus) override;
    void OnDeletePairStatusChanged(int bStatus) override;
    void OnAnswerPairRequest(const std::string& strAddress, const std::string& strName, int nType,
                             KYRBtType::PairRequestState eState) override;
    void OnFrequencyChanged(KYRTuner::BandID eBand, unsigned int nValue, unsigned int nFrequency) override;
    void OnTAChanged(unsigned int nFrequency, int nActive) override;
    void OnAudioMuteStateChanged(KYRAudio::MuteState eState, KYRAudio::AudioChannel eChannel) override;
    void OnModuleStatusChanged(AppBootInfo& info) override;
    void OnStatusChange(KYRCarPlay::CarPlayConnectStatus eStatus) override;
    void OnConnectionStatusChanged(const KYRDeviceApp::_ConnectionInfo& info) override;
    void OnAASatinfoChange(const _GpsSatelliteData& data) override;
    void OnAALocationChange(const _LocationData& data) override;

    /// Restarts the unit after the hard-key group has restored its settings.
    static constexpr int kRestartTimer = 20;
    static constexpr int kRestartDelay = 10;  // tenths of a second

    /// Timer thread.
    void OnTimerHandleFunc(int id) override;

private:
    /// Looks the command up in its group's table and carries it out.
    void Run(std::span<const Command> commands, unsigned char cmd_two, unsigned char* param, int param_len);

    /// Sends a frame of a group to the station; any thread.
    static void Reply(GroupCode group, unsigned char cmd_two, std::vector<unsigned char> params);
    static void ReplyText(GroupCode group, unsigned char cmd_two, const std::string& text);

    /// Tells the station that a factory reset has begun.
    static void SendFactoryResetNotice();

    std::string BtAttribute(KYRBtType::Attribute attribute);
    KYRTuner* TunerOrLog();
    void ReplyAntenna(unsigned char cmd_two, bool bGood);
    void SwitchPowerModeFrom(int nExpectedStatus, int nMode);
    void SaveRecord(const IdentityRecord& record, const unsigned char* param, int param_len);
    void FeedBackRecord(const IdentityRecord& record);
    void ReplyPresence(unsigned char cmd_two, const IdentityRecord& record);

    /// FindUsbInterfaceMac() of NetworkInterfaces.h.
    static int GetUsbInterfaceMac(std::array<unsigned char, 6>& mac);

    static constexpr std::size_t kMaxSatellites = 20;

    /// The last report of the satellites in view.
    struct Satellites {
        int m_iStarNumberInView = 0;
        std::array<int, kMaxSatellites> number{};
        std::array<int, kMaxSatellites> signal{};  // strongest first, not in the order of `number`
    };

    struct Position {
        int m_iLongitude = 0;
        int m_iLatitude = 0;
    };

    std::atomic<bool> m_bIsAutoTestMode = false;

    // Set by events, for the handlers.
    std::atomic<bool> m_bMediaModuleReady = false;  // module 9
    std::atomic<int> m_nWifiModuleReady = 0;        // module 17
    std::atomic<unsigned int> m_iCarSpeed = 0;
    std::atomic<int> m_nRadioAntState = 0;
    std::atomic<int> m_nGpsAntState = 0;
    std::atomic<int> m_nBtPowerStatus = 0;
    std::atomic<int> m_nHardwareMuteState = 0;
    std::atomic<int> m_nTAActive = 0;
    std::atomic<unsigned int> m_nFmFrequency = 0;
    std::atomic<bool> m_bCarPlayConnected = false;
    std::atomic<unsigned char> m_ucCarInfo = 0;
    std::mutex m_LocationMutex;  // a reply must not mix two reports
    Satellites m_Satellites;     // guarded by m_LocationMutex
    Position m_Position;         // guarded by m_LocationMutex

    // Set by commands.
    std::atomic<unsigned char> m_ucKeyFeedback = 0;  // read on the D-Bus thread
    unsigned char m_ucLastSource = 0;
    int m_nEqSwitch = 1;
    unsigned char m_iFlag = 0;
    unsigned char m_ucStatusFlag = 0;

    // The platform's services, null if missing; set by the constructor.
    KYRPower* m_PowerService = nullptr;
    KYRAudio* m_AudioService = nullptr;
    KYRMediaPlayer* m_MediaPlayer = nullptr;
    KYRTuner* m_TuerService = nullptr;

    // Last, because their events need the members above.
    KYRBtCom m_BtCom{this};
    KYRBtPhone m_BtPhone;
    KYRBtMedia m_BtMedia;
};

/// Appends the pieces of `text` between the separators to `pieces`. Removes blanks and tabs at the beginning of every
/// piece but the last. A separator at the end adds no empty piece; an empty separator separates nothing.
void splitString(std::vector<std::string>& pieces, const std::string& text, const std::string& separator);

/// Runs a shell command and waits for it.
/// @returns 1 if it ran and exited with status 0, else 0; the log says why.
unsigned int SystemCall(const char* command);
