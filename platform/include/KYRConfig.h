#pragma once

#include <string>

/// The head unit's configuration. Any thread; every look-up reads the current configuration.
class KYRLibConfigs
{
public:
    virtual ~KYRLibConfigs() = default;

    /// @returns the truth value under `pKey`, 1 or 0; 0 also if the key is missing or has another type.
    virtual int GetBool(const char* pKey) = 0;

    /// Fills in `strValue` with the text under `pKey`; leaves it unchanged if there is none.
    /// @returns 1 if there is a text, else 0.
    virtual int GetText(const char* pKey, std::string& strValue) = 0;
};

/// @returns the configuration, owned by the platform, or null if there is none.
KYRLibConfigs* GetLibConfigs();
