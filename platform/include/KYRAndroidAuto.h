#pragma once

/// The proxy of the Android Auto service. Any thread.
class KYRAndroidAuto
{
public:
    virtual ~KYRAndroidAuto() = default;

    virtual int GetState() = 0;
};

/// @returns the proxy, owned by the platform, or null if there is none.
KYRAndroidAuto* KYR_GetAAProxy();
