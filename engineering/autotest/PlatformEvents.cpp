// Events of the platform's services. The engine stores most values in every mode, so that they are current when the
// station switches auto-test mode on and a command group reports them. The events of the GPS and Bluetooth groups stand
// in the files of those groups, the factory resets in FactoryReset.cpp.

#include "engineering/autotest/KYRAutoTest.h"
#include "engineering/base/Log.h"

void KYRAutoTest::OnU6PersistDataChange(U6Persist::E_ModuleName, unsigned int) {}

void KYRAutoTest::OnSourceStatusChanged(KYRSource::SourceID, KYRSource::SourceStatus) {}

void KYRAutoTest::OnCarSpeedChange(unsigned int nSpeed)
{
    m_iCarSpeed = nSpeed;
}

void KYRAutoTest::OnRadioAntStateChange(SystemMisc::AntState eState)
{
    m_nRadioAntState = eState;
}

void KYRAutoTest::OnGpsAntStateChange(SystemMisc::AntState eState)
{
    m_nGpsAntState = eState;
}

void KYRAutoTest::OnOpenBtStatusChanged(KYRBtType::PowerStatus eStatus)
{
    m_nBtPowerStatus = eStatus;
}

void KYRAutoTest::OnFrequencyChanged(KYRTuner::BandID eBand, unsigned int, unsigned int nFrequency)
{
    if (eBand == KYRTuner::BAND_FM)
        m_nFmFrequency = nFrequency;
}

void KYRAutoTest::OnTAChanged(unsigned int nFrequency, int nActive)
{
    KYR_LOG_INFO("OnTAChanged, freq = %d active = %d", nFrequency, nActive);
    m_nTAActive = nActive;
}

void KYRAutoTest::OnAudioMuteStateChanged(KYRAudio::MuteState eState, KYRAudio::AudioChannel eChannel)
{
    KYR_LOG_DEBUG("OnAudioMuteStateChanged, MuteState = %d, channel = %d", eState, eChannel);
    if (eChannel == KYRAudio::CHANNEL_HARDWARE)
        m_nHardwareMuteState = eState;
}

void KYRAutoTest::OnModuleStatusChanged(AppBootInfo& info)
{
    KYR_LOG_INFO("OnModuleStatusChanged, module = %d", info.module);
    if (info.module == MODULE_MEDIA_PLAYER)
        m_bMediaModuleReady = true;
    else if (info.module == MODULE_WIFI)
        m_nWifiModuleReady = 1;
}

void KYRAutoTest::OnStatusChange(KYRCarPlay::CarPlayConnectStatus eStatus)
{
    KYR_LOG_DEBUG("CarPlayConnectStatus, OnStatusChange status = %d", eStatus);
    if (eStatus == KYRCarPlay::CARPLAY_CONNECTED)
        m_bCarPlayConnected = true;
    else if (eStatus == KYRCarPlay::CARPLAY_DISCONNECTING || eStatus == KYRCarPlay::CARPLAY_DISCONNECTED)
        m_bCarPlayConnected = false;
}

void KYRAutoTest::OnConnectionStatusChanged(const KYRDeviceApp::_ConnectionInfo& info)
{
    if (!m_bIsAutoTestMode)
        return;
    KYR_LOG_INFO("OnConnectionStatusChanged, info.status = %d", info.status);
    if (info.status != 2)
        return;
    if (KYRDeviceApp* const pDeviceApp = KYR_GetDeviceAppProxy())
        pDeviceApp->SelectConnection(1, 0);
    else
        KYR_LOG_ERROR("OnConnectionStatusChanged, no device-app proxy");
}
