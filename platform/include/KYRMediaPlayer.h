#pragma once

#include "IKYRService.h"

class IKYRMediaPlayerListener
{
public:
    virtual ~IKYRMediaPlayerListener() = default;
};

/// What every media player of the platform is.
class IKYRMediaPlayer
{
public:
    virtual ~IKYRMediaPlayer() = default;

    /// Starts the player.
    /// @returns 1 when it is up, else 0. A player that needs no start keeps this default.
    virtual int InitInstance() { return 1; }
};

/// The media player service.
class KYRMediaPlayer : public IKYRMediaPlayer, public IKYRService<IKYRMediaPlayerListener>
{
};

/// @returns the media player, owned by the platform, or null when there is none.
KYRMediaPlayer* KYR_GetMediaPlayer();
