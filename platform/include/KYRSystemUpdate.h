#pragma once

/// The proxy of the system-update service. Any thread.
class KYRSystemUpdate
{
public:
    virtual ~KYRSystemUpdate() = default;

    /// Asks for the update action that the platform has under `nCode`; returns at once.
    virtual void Request(int nCode) = 0;
};

/// @returns the proxy, owned by the platform, or null when there is none.
KYRSystemUpdate* KYR_GetSystemUpdateProxy();
