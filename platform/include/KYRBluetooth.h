#pragma once

#include <memory>
#include <string>

/// The Bluetooth services' types.
class KYRBtType
{
public:
    enum PowerStatus : int {};
    enum Attribute : int {
        ATTRIBUTE_VERSION = 2,
        ATTRIBUTE_LOCAL_ADDRESS = 3,  // six two-digit hexadecimal fields separated by ':'
        ATTRIBUTE_LOCAL_NAME = 4,
    };
    enum Capability : int {
        CAPABILITY_0 = 0,
        CAPABILITY_9 = 9,
    };
    enum PairRequestState : int { PAIR_REQUESTED = 1 };
    enum CallState : int {};
    enum MusicStatus : int {
        MUSIC_PLAYING = 1,
        MUSIC_PAUSED = 2,
    };
};

/// State of a profile's connection.
struct KYRBtConnectionState {
    int nState = 0;  // 1: connected
    std::string strText;
};

struct KYRTypeCallInfo {
    KYRBtType::CallState eCallState{};
    std::string strNumber;
};

/// All notifications arrive on the Bluetooth service's listener thread.
class IKYRBtComListener
{
public:
    virtual ~IKYRBtComListener() = default;

    virtual void OnOpenBtStatusChanged(KYRBtType::PowerStatus eStatus) { static_cast<void>(eStatus); }

    /// A DeletePairDeviceList() has ended.
    virtual void OnDeletePairStatusChanged(int bStatus) { static_cast<void>(bStatus); }

    /// A device asks to be paired.
    virtual void OnAnswerPairRequest(const std::string& strAddress, const std::string& strName, int nType,
                                     KYRBtType::PairRequestState eState)
    {
        static_cast<void>(strAddress);
        static_cast<void>(strName);
        static_cast<void>(nType);
        static_cast<void>(eState);
    }
};

/// Client of the Bluetooth adapter: attributes, capabilities, pairing. Any thread.
class KYRBtCom
{
public:
    /// @param pListener receives the adapter's events from now on; not owned, may be null
    explicit KYRBtCom(IKYRBtComListener* pListener);

    /// Stops the events. Waits for an event that another thread is delivering.
    ~KYRBtCom();
    KYRBtCom(const KYRBtCom&) = delete;
    KYRBtCom& operator=(const KYRBtCom&) = delete;

    /// Fills in `strValue`; leaves it unchanged if the adapter does not have the attribute.
    /// @returns 1 if the adapter has the attribute, else 0.
    int GetAttribute(KYRBtType::Attribute eAttribute, std::string& strValue);

    /// Starts deleting all pairings; OnDeletePairStatusChanged() reports the end.
    /// @returns 1 if the deletion has begun, else 0.
    int DeletePairDeviceList();

    void SetCapability(KYRBtType::Capability eCapability, int nValue);
    int GetCapability(KYRBtType::Capability eCapability);

    void AnswerPair(const std::string& strAddress, const std::string& strName, KYRBtType::PairRequestState eState);

private:
    IKYRBtComListener* m_pListener;
};

/// Client of the Bluetooth phone service. Any thread.
class KYRBtPhone
{
public:
    void AcceptCall();
    void TerminateCall();
    KYRBtConnectionState GetPhoneConnectionState();
    void GetCurrentCallInfo(KYRTypeCallInfo& info);
};

/// Client of the Bluetooth audio service. Any thread.
class KYRBtMedia
{
public:
    KYRBtConnectionState GetMediaConnectionState();
    KYRBtType::MusicStatus GetMusicPlayStatus();
};

/// Starts the Bluetooth services' clients in this process.
void KYR_CreateBlueTooth();
