#pragma once

/// The proxy of the system-update service. Any thread.
class KYRSystemUpdate
{
public:
    virtual ~KYRSystemUpdate() = default;

    /// Requests the platform's update action `nCode`; returns at once.
    virtual void Request(int nCode) = 0;
};

/// @returns the proxy, owned by the platform, or null if there is none.
KYRSystemUpdate* KYR_GetSystemUpdateProxy();
