#pragma once

class IKYRSourceListener;

/// The audio source manager. Any thread.
class KYRSource
{
public:
    /// 1 to 44 are in use; 0 means that no source plays.
    enum SourceID : int {
        SOURCE_NONE = 0,
        SOURCE_USB_MEDIA = 16,
    };
    enum SourceType : int { SOURCE_TYPE_MAIN = 0 };
    enum AudioGainType : int { AUDIO_GAIN_DEFAULT = 0 };
    enum SourceStatus : int {};

    /// Starts the source manager's client in this process.
    static void StartService();

    /// Switches to a source.
    /// @returns 1 on success, any other number if the source is not available.
    static int Request(int nSourceId, AudioGainType eGain);

    /// @returns the current source.
    static SourceID GetCurrentSource(SourceType eType);

    /// Adds a listener (not owned). Ignores null and a listener that is already there.
    static void AddListener(IKYRSourceListener* pListener);
    static void RemoveListener(IKYRSourceListener* pListener);
};

class IKYRSourceListener
{
public:
    virtual ~IKYRSourceListener() = default;

    /// Listener thread.
    virtual void OnSourceStatusChanged(KYRSource::SourceID eSource, KYRSource::SourceStatus eStatus)
    {
        static_cast<void>(eSource);
        static_cast<void>(eStatus);
    }
};
