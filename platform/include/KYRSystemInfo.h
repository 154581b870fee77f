#pragma once

#include <array>
#include <string>

namespace SystemInfo {

/// The versions of the unit's parts, in the platform's order.
struct VersionInfo {
    std::array<std::string, 11> strField;
};

}  // namespace SystemInfo

/// The proxy of the system-information service. Any thread.
class KYRSystemInfo
{
public:
    virtual ~KYRSystemInfo() = default;

    /// Queries all versions again; leaves `info` unchanged on failure.
    /// @returns 1, or 0 on failure.
    virtual int GetVersionInfo(SystemInfo::VersionInfo& info) = 0;
};

/// @returns the proxy, owned by the platform, or null if there is none.
KYRSystemInfo* KYR_GetSystemInfoProxy();
