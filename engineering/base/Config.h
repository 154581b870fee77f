#pragma once

#include "KYRConfig.h"

/// Look-ups for platforms with and without a configuration. Without one, no key has a value.

inline constexpr const char* kOpenDebugKey = "/engineering/open_debug";
inline constexpr const char* kEnableCpTestKey = "/system/enable_cp_test";
inline constexpr const char* kProjectNameKey = "/project/project_name";

inline bool ConfigFlag(const char* pKey)
{
    KYRLibConfigs* const pConfigs = GetLibConfigs();
    return pConfigs != nullptr && pConfigs->GetBool(pKey) != 0;
}

/// @returns the text, empty if the key has none.
inline std::string ConfigText(const char* pKey)
{
    std::string strText;
    if (KYRLibConfigs* const pConfigs = GetLibConfigs())
        pConfigs->GetText(pKey, strText);
    return strText;
}
