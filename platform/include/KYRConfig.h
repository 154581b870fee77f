#pragma once

#include <string>

/// The head unit's configuration. Any thread; every look-up sees the configuration as it is now.
class KYRLibConfigs
{
public:
    virtual ~KYRLibConfigs() = default;

    /// @returns the truth value under `pKey`, 1 or 0; 0 also when there is none or it is no truth value.
    virtual int GetBool(const char* pKey) = 0;

    /// Fills `strValue` with the text under `pKey`; leaves it as it is when there is none.
    /// @returns 1 when there was a text, else 0.
    virtual int GetText(const char* pKey, std::string& strValue) = 0;
};

/// @returns the configuration, owned by the platform, or null when there is none.
KYRLibConfigs* GetLibConfigs();
