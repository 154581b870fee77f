#pragma once

#include "IKYRService.h"

class IKYRMediaPlayerListener
{
public:
    virtual ~IKYRMediaPlayerListener() = default;
};

/// Base class of the platform's media players.
class IKYRMediaPlayer
{
public:
    virtual ~IKYRMediaPlayer() = default;

    /// Starts the player.
    /// @returns 1 if the player is up, else 0. A player without a start keeps this default.
    virtual int InitInstance() { return 1; }
};

/// The media player service.
class KYRMediaPlayer : public IKYRMediaPlayer, public IKYRService<IKYRMediaPlayerListener>
{
};

/// @returns the media player, owned by the platform, or null if there is none.
KYRMediaPlayer* KYR_GetMediaPlayer();
